#include "app/play/RunTape.h"

#include "formats/mcap/Decode.h"
#include "formats/run/RunFile.h"
#include "formats/run/RunLogWriter.h"
#include "formats/text/InputError.h"
#include "gk/GKClock.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"
#include "messages/keys/Subjects.h"
#include "messages/text/FormatError.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <algorithm>
#include <optional>
#include <variant>

namespace gk::app {

namespace {

namespace json = boost::json;
namespace mcap = formats::mcap;

using Shape = messages::SubjectField::Shape;

constexpr std::string_view kEvents = "/events";
constexpr std::string_view kLog = "/log";
constexpr std::string_view kTicks = "/tick";
constexpr std::string_view kJoints = "/joint_states";
constexpr std::int64_t kPerMicro = 1000;

/// Our level of one of the viewers'.
int levelOf(std::int64_t viewerLevel) {
  constexpr std::int64_t fatal = 5;
  return static_cast<int>(std::clamp<std::int64_t>(fatal + 1 - viewerLevel, 1, fatal));
}

std::string textMember(const json::object& object, const char* name) {
  const json::value* found = object.if_contains(name);
  return found != nullptr && found->is_string()
             ? std::string(found->get_string().data(), found->get_string().size())
             : std::string();
}

/// A field as its key has it; nothing for what is no such value.
std::optional<GK::GKValue> valueOf(const json::value& field, Shape shape) {
  switch (shape) {
  case Shape::Number:
    return field.is_number() ? std::optional(GK::GKValue(field.to_number<float>())) : std::nullopt;
  case Shape::Integer:
    return field.is_int64()
               ? std::optional(GK::GKValue(static_cast<std::int32_t>(field.get_int64())))
               : std::nullopt;
  case Shape::Boolean:
    return field.is_bool() ? std::optional(GK::GKValue(field.get_bool())) : std::nullopt;
  case Shape::Text:
    break;
  }
  return field.is_string() ? std::optional(GK::GKValue(
                                 std::string(field.get_string().data(), field.get_string().size())))
                           : std::nullopt;
}

} // namespace

RunTape::RunTape(const std::string& path) : fPath(path), fSource(path) {
  try {
    xAddSubjects();
    xFindChunks();
    if (fChunks.empty()) {
      throw formats::InputError(path, 0, "there is nothing in it that can be played");
    }
    xFindEpoch();
  } catch (const messages::FormatError& error) {
    throw formats::InputError(path, 0, error.what());
  }
}

RunTape::RunTape(const RunTape& other)
    : fPath(other.fPath), fSource(other.fPath), fChunks(other.fChunks), fChannels(other.fChannels),
      fEpoch(other.fEpoch), fBegin(other.fBegin), fEnd(other.fEnd), fHasRun(other.fHasRun),
      fHasChannels(other.fHasChannels), fHasTurns(other.fHasTurns), fModule(other.fModule),
      fLoops(other.fLoops), fKeys(other.fKeys), fByName(other.fByName),
      fSampledKeys(other.fSampledKeys), fRunKeys(other.fRunKeys), fTopics(other.fTopics) {}

void RunTape::xAddSubjects() {
  const auto add = [this](std::string_view topic,
                          const std::vector<messages::SubjectField>& fields) {
    Fields& known = fTopics[std::string(topic)];
    for (const messages::SubjectField& field : fields) {
      known[field.name] = {xKey(field.key), static_cast<int>(field.shape)};
    }
  };
  add(kJoints, messages::jointPositions());
  for (const messages::Subject& subject : messages::subjects()) {
    add(subject.topic, subject.fields);
  }
  fSampledKeys = fKeys.size();
}

std::size_t RunTape::xKey(std::string_view name) {
  const auto found = fByName.find(name);
  if (found != fByName.end()) {
    return found->second;
  }
  fKeys.emplace_back(name);
  return fByName.emplace(std::string(name), fKeys.size() - 1).first->second;
}

void RunTape::xFindChunks() {
  mcap::Problems problems;
  mcap::Scanner scanner(fSource, problems);
  while (const std::optional<mcap::RecordPlace> place = scanner.next()) {
    if (place->opcode == mcap::Opcode::Chunk) {
      try {
        const mcap::ChunkHead head = fLoader.head(*place).head;
        fChunks.push_back({*place, static_cast<GK::GKMicros>(head.startTime / kPerMicro),
                           static_cast<GK::GKMicros>(head.endTime / kPerMicro)});
      } catch (const messages::FormatError&) { // NOLINT(bugprone-empty-catch): a damaged place
      }
    } else if (place->opcode == mcap::Opcode::Metadata) {
      const mcap::Metadata metadata = mcap::decodeMetadata(scanner.content(*place));
      const auto clock = metadata.values.find(formats::kClockMember);
      fHasTurns =
          fHasTurns || (metadata.name == formats::kRunMetadata && clock != metadata.values.end() &&
                        clock->second == formats::kTurnsClock);
    } else if (place->opcode == mcap::Opcode::Channel) {
      mcap::Channel channel = mcap::decodeChannel(scanner.content(*place));
      fHasChannels = fHasChannels || fTopics.contains(channel.topic);
      fChannels.insert_or_assign(channel.id, std::move(channel));
    }
  }
}

/// Times of the file are those since 1970: a block of the run log says where its own begin.
void RunTape::xFindEpoch() {
  std::optional<std::int64_t> epoch;
  for (std::size_t chunk = 0; chunk < fChunks.size() && !epoch; ++chunk) {
    try {
      mcap::InnerRecords records(fLoader.load(fChunks[chunk].place));
      while (const std::optional<mcap::InnerRecord> record = records.next()) {
        if (record->opcode == mcap::Opcode::Channel) {
          mcap::Channel channel = mcap::decodeChannel(record->content);
          fHasRun = fHasRun || formats::isRunEncoding(channel.messageEncoding);
          fHasChannels = fHasChannels || fTopics.contains(channel.topic);
          fChannels.insert_or_assign(channel.id, std::move(channel));
          continue;
        }
        if (record->opcode != mcap::Opcode::Message || epoch) {
          continue;
        }
        const mcap::Message message = mcap::decodeMessage(record->content);
        if (!xIsBlock(message)) {
          continue;
        }
        formats::RunLogReader log;
        log.begin(message.data, message.sequence, fChannels[message.channelId].messageEncoding);
        GK::GKMicros first = 0;
        while (const std::optional<formats::RunEntry> entry = log.next()) {
          if (const auto* turn = std::get_if<formats::RunTurn>(&*entry)) {
            first = turn->time;
            break;
          }
        }
        epoch = static_cast<std::int64_t>(message.logTime / kPerMicro) - first;
      }
    } catch (const messages::FormatError&) { // NOLINT(bugprone-empty-catch): the next one will do
    }
  }
  fEpoch = epoch.value_or(fChunks.front().begin);
  for (Chunk& chunk : fChunks) {
    chunk.begin -= fEpoch;
    chunk.end -= fEpoch;
  }
  std::ranges::stable_sort(fChunks, {}, &Chunk::begin);
  // The first and the last thing that happened; whatever a damaged end may hide.
  fBegin = std::max<GK::GKMicros>(fChunks.front().begin, 0);
  fEnd = fBegin;
  // The first chunk of the run log names the keys.
  for (std::size_t i = 0; i < fChunks.size() && fHasRun && fRunKeys.empty(); ++i) {
    load(i, Detail::WithoutSamples);
  }
  for (std::size_t i = chunkBefore(fChunks.back().begin); i < fChunks.size(); ++i) {
    const std::vector<TapeEntry> entries = load(i, Detail::WithoutSamples);
    fEnd = std::max({fEnd, fChunks[i].end, entries.empty() ? fEnd : entries.back().time});
  }
}

std::size_t RunTape::chunkBefore(GK::GKMicros time) const {
  const auto found = std::ranges::find_if(
      fChunks, [time](const Chunk& chunk) { return chunk.end + kOverlap >= time; });
  return static_cast<std::size_t>(found - fChunks.begin());
}

GK::GKMicros RunTape::xTime(std::uint64_t nanoseconds) const {
  return static_cast<GK::GKMicros>(nanoseconds / kPerMicro) - fEpoch;
}

template <class Take> void RunTape::xEach(std::size_t chunk, const Take& take) {
  try {
    mcap::InnerRecords records(fLoader.load(fChunks.at(chunk).place));
    while (const std::optional<mcap::InnerRecord> record = records.next()) {
      if (record->opcode == mcap::Opcode::Channel) {
        mcap::Channel channel = mcap::decodeChannel(record->content);
        fChannels.insert_or_assign(channel.id, std::move(channel));
      } else if (record->opcode == mcap::Opcode::Message) {
        take(mcap::decodeMessage(record->content));
      }
    }
  } catch (const messages::FormatError&) { // NOLINT(bugprone-empty-catch): what was read counts
  }
}

std::vector<TapeEntry> RunTape::load(std::size_t chunk, Detail detail) {
  const bool isOfTicks = detail == Detail::Ticks;
  if (isOfTicks) {
    fLog = {};
    fLogChunk.reset();
  } else {
    xReadLogBefore(chunk);
  }
  std::vector<TapeEntry> entries;
  xEach(chunk, [&](const mcap::Message& message) {
    if (!isOfTicks || !fHasRun || xIsBlock(message)) {
      xTake(message, detail, entries);
    }
  });
  if (isOfTicks) {
    std::erase_if(entries,
                  [](const TapeEntry& entry) { return entry.kind != TapeEntry::Kind::Tick; });
  }
  std::ranges::stable_sort(entries,
                           [](const TapeEntry& a, const TapeEntry& b) { return a.isBefore(b); });
  return entries;
}

bool RunTape::xIsBlock(const mcap::Message& message) const {
  const auto channel = fChannels.find(message.channelId);
  return channel != fChannels.end() && formats::isRunEncoding(channel->second.messageEncoding);
}

void RunTape::xReadLogBefore(std::size_t chunk) {
  const std::optional<std::size_t> done = std::exchange(fLogChunk, chunk + 1);
  if (!fHasRun || chunk == done) {
    return;
  }
  // Nobody skips ahead by more than that to be left without values: a block stands alone so often.
  const GK::GKMicros oldest = fChunks[chunk].begin - formats::RunLogWriter::kAnewTime - kOverlap;
  std::size_t first = chunk;
  while (first > 0 && fChunks[first - 1].end >= oldest) {
    --first;
  }
  fLog = {};
  std::vector<TapeEntry> left;
  for (; first < chunk; ++first) {
    xEach(first, [&](const mcap::Message& message) {
      if (xIsBlock(message)) {
        xTake(message, Detail::WithoutSamples, left);
        left.clear();
      }
    });
  }
}

void RunTape::xTake(const mcap::Message& message, Detail detail, std::vector<TapeEntry>& entries) {
  const auto channel = fChannels.find(message.channelId);
  if (channel == fChannels.end()) {
    return;
  }
  try {
    if (xIsBlock(message)) {
      xTakeRun(message, entries);
    } else {
      xTakeMessage(channel->second.topic, xTime(message.logTime), message.data, detail, entries);
    }
  } catch (const messages::FormatError&) { // NOLINT(bugprone-empty-catch): a message less
  }
}

void RunTape::xTakeRun(const mcap::Message& block, std::vector<TapeEntry>& entries) {
  fLog.begin(block.data, block.sequence, fChannels[block.channelId].messageEncoding);
  // What stands before the first turn was there before.
  GK::GKMicros now = 0;
  while (const std::optional<formats::RunEntry> entry = fLog.next()) {
    if (const auto* turn = std::get_if<formats::RunTurn>(&*entry)) {
      now = turn->time;
      if (!fHasTurns || fLoops.empty() || fLoops.contains(turn->task)) {
        TapeEntry& tick = entries.emplace_back();
        tick.time = now;
      }
    } else if (const auto* task = std::get_if<formats::RunTask>(&*entry)) {
      if (task->method == GK::GKTask::kLoopMethod) {
        fLoops.insert(task->task);
        fModule = task->module;
      }
    } else if (const auto* key = std::get_if<formats::RunKey>(&*entry)) {
      fRunKeys[key->index] = xKey(key->name);
    } else if (const auto* values = std::get_if<formats::RunValues>(&*entry)) {
      TapeEntry& changed = entries.emplace_back();
      changed.time = now;
      changed.kind = TapeEntry::Kind::Values;
      for (const formats::RunValue& value : values->values) {
        if (const auto known = fRunKeys.find(value.key); known != fRunKeys.end()) {
          changed.values.emplace_back(known->second, values->value(value));
        }
      }
    }
  }
}

void RunTape::xTakeMessage(const std::string& topic, GK::GKMicros time, std::string_view text,
                           Detail detail, std::vector<TapeEntry>& entries) {
  const auto fields = fTopics.find(topic);
  const bool isSample = fields != fTopics.end();
  const bool isTick = topic == kTicks && !fHasRun;
  if (!(isSample && detail == Detail::All) && !isTick && topic != kEvents && topic != kLog) {
    return;
  }
  const json::value parsed = messages::parseJson(std::string(text));
  if (!parsed.is_object()) {
    return;
  }
  const json::object& object = parsed.get_object();
  TapeEntry entry;
  entry.time = time;
  if (topic == kEvents) {
    entry.kind = TapeEntry::Kind::Raise;
    entry.notice.kind = textMember(object, "kind") == "micro" ? GK::GKNotice::Kind::MicroEvent
                                                              : GK::GKNotice::Kind::Event;
    entry.notice.name = textMember(object, "name");
    if (const json::value* value = object.if_contains("value")) {
      entry.notice.value = messages::valueFromJson(*value);
    }
  } else if (topic == kLog) {
    entry.kind = TapeEntry::Kind::Log;
    entry.notice.kind = GK::GKNotice::Kind::Log;
    const json::value* level = object.if_contains("level");
    entry.notice.level = levelOf(level != nullptr && level->is_int64() ? level->get_int64() : 0);
    entry.notice.name = textMember(object, "name");
    entry.notice.owner = textMember(object, "file");
    entry.notice.text = textMember(object, "message");
  } else if (isSample) {
    entry.kind = TapeEntry::Kind::Sample;
    const auto take = [&](std::string_view name, const json::value& value) {
      const auto field = fields->second.find(name);
      if (field == fields->second.end()) {
        return;
      }
      if (std::optional<GK::GKValue> known =
              valueOf(value, static_cast<Shape>(field->second.second))) {
        entry.values.emplace_back(field->second.first, *std::move(known));
      }
    };
    if (topic == kJoints) {
      const json::value* joints = object.if_contains("joints");
      if (joints != nullptr && joints->is_array()) {
        for (const json::value& joint : joints->get_array()) {
          const json::value* position =
              joint.is_object() ? joint.get_object().if_contains("position") : nullptr;
          if (position != nullptr) {
            take(textMember(joint.get_object(), "name"), *position);
          }
        }
      }
    } else {
      for (const auto& member : object) {
        take({member.key().data(), member.key().size()}, member.value());
      }
    }
  }
  entries.push_back(std::move(entry));
}

} // namespace gk::app
