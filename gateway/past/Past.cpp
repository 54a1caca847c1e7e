#include "gateway/past/Past.h"

#include "formats/mcap/Sink.h"
#include "formats/mcap/Writer.h"
#include "formats/run/RunFile.h"
#include "formats/run/RunLogReader.h"
#include "gateway/channels/Channels.h"
#include "messages/json/JsonWriter.h"
#include "messages/json/SameValue.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/keys/Subjects.h"
#include "messages/notices/NoticeSize.h"
#include "messages/text/Numbers.h"
#include "messages/text/WallTime.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <variant>

namespace gk::gateway {

namespace {

/// Samples of a recording for viewers, as of any recording.
constexpr GK::GKMicros kSamplePeriod = 100'000;
constexpr std::string_view kJointTopic = "/joint_states";
constexpr std::string_view kSettings = "Settings/";

std::string secondsText(GK::GKMicros time) {
  std::string text;
  messages::appendSeconds(text, time);
  return text;
}

/// A field of a channel as a row of values, without the brackets.
struct Column {
  std::string_view topic;
  std::string_view field;
  std::size_t key = 0;
  std::string values;
  bool isEverThere = false;
};

void appendCell(Column& column, const GK::GKValue& value) {
  column.values += column.values.empty() ? "" : ",";
  const bool isThere =
      value.type() != GK::GKValue::Type::Invalid &&
      !(value.type() == GK::GKValue::Type::Float && !std::isfinite(value.toFloat()));
  if (isThere) {
    column.isEverThere = true;
    messages::JsonWriter(column.values).value(value);
  } else {
    column.values += "null";
  }
}

void appendTopics(messages::JsonWriter& json, const std::vector<Column>& columns) {
  json.key("topics").beginObject();
  std::string_view topic;
  for (const Column& column : columns) {
    if (!column.isEverThere) {
      continue;
    }
    if (column.topic != topic) {
      if (!topic.empty()) {
        json.endObject();
      }
      topic = column.topic;
      json.key(topic).beginObject();
    }
    json.key(column.field).raw("[" + column.values + "]");
  }
  if (!topic.empty()) {
    json.endObject();
  }
  json.endObject();
}

bool isRaise(const GK::GKNotice& notice) {
  return notice.kind == GK::GKNotice::Kind::Event || notice.kind == GK::GKNotice::Kind::MicroEvent;
}

void appendEvent(messages::JsonWriter& json, const GK::GKNotice& event) {
  json.beginObject().key("t_s").raw(secondsText(event.time)).key("name").text(event.name);
  json.key("kind").text(event.kind == GK::GKNotice::Kind::MicroEvent ? "micro" : "event");
  json.key("value").value(event.value).endObject();
}

} // namespace

struct Past::View {
  std::vector<std::shared_ptr<const Piece>> pieces;
  std::vector<GK::GKValue> base;
  std::vector<std::string> names;
  std::vector<bool> isInput;
  std::map<std::string, std::size_t, std::less<>> byName;
  std::shared_ptr<const GK::GKMemoryStore> store;
  std::string module;
  GK::GKMicros begin = 0;
  GK::GKMicros end = 0;
  bool isBeginGone = false;

  /// Calls for each entry in its order `turn(time)`, `values(RunValues)`, `action(Action)`. What
  /// `turn` returns says whether to go on.
  template <class Turn, class TakeValues, class TakeAction>
  void walk(const Turn& turn, const TakeValues& values, const TakeAction& action) const {
    for (const auto& piece : pieces) {
      formats::RunLogReader reader(piece->log);
      while (std::optional<formats::RunEntry> entry = reader.next()) {
        if (const auto* at = std::get_if<formats::RunTurn>(&*entry)) {
          if (!turn(at->time)) {
            return;
          }
        } else if (const auto* changed = std::get_if<formats::RunValues>(&*entry)) {
          values(*changed);
        } else if (const auto* done = std::get_if<formats::RunAction>(&*entry)) {
          action(done->action);
        }
      }
    }
  }
};

void Past::open(std::shared_ptr<const GK::GKMemoryStore> store) {
  const std::lock_guard lock(fMutex);
  fStore = std::move(store);
  const auto add = [this](const std::string& name, bool isInput) {
    if (fByName.try_emplace(name, fKeys.size()).second) {
      fKeys.push_back({name, nullptr, isInput, {}});
    }
  };
  for (const messages::DeviceKey& key : messages::simulatedKeys()) {
    add(key.name, true);
  }
  for (const messages::Subject& subject : messages::subjects()) {
    for (const messages::SubjectField& field : subject.fields) {
      add(field.key, false);
    }
  }
  fBase.assign(fKeys.size(), {});
}

void Past::xBeginPieceAt(GK::GKMicros time) {
  if (!fLog.isEmpty() && time - fPieceBegin >= kPieceTime) {
    xEndPiece();
  }
  if (fLog.isEmpty()) {
    // What was seen before the first piece is as old as its first tick.
    fPieceBegin = fEvents.empty() ? time : std::min(time, fEvents.front().time);
    fIsBeginGone = fIsBeginGone || (fPieces.empty() && fPieceBegin > kPieceTime);
  }
}

void Past::xEndPiece() {
  auto piece = std::make_shared<Piece>();
  piece->begin = fPieceBegin;
  piece->log = fLog.take();
  // Pieces are forgotten one by one.
  fLog.beginAnew();
  piece->events = std::exchange(fEvents, {});
  piece->bytes = sizeof(Piece) + piece->log.size() + std::exchange(fEventBytes, 0);
  fBytes += piece->bytes;
  fPieces.push_back(std::move(piece));
  xForget();
}

/// A flood between two ticks.
void Past::xEndPieceIfFull() {
  if (fLog.size() + fEventBytes > fOptions.bytes / 2 && !fLog.isEmpty()) {
    xEndPiece();
  }
}

void Past::xForget() {
  const auto isTooOld = [this] {
    return fPieces.size() > 1 && fPieces[1]->begin <= fLast - fOptions.length;
  };
  while (isTooOld() || (fPieces.size() > 1 && fBytes > fOptions.bytes)) {
    xForgetOldest();
  }
}

void Past::xForgetOldest() {
  formats::RunLogReader reader(fPieces.front()->log);
  while (std::optional<formats::RunEntry> entry = reader.next()) {
    if (const auto* changed = std::get_if<formats::RunValues>(&*entry)) {
      for (const formats::RunValue& value : changed->values) {
        fBase[value.key] = changed->value(value);
      }
    }
  }
  fBytes -= fPieces.front()->bytes;
  fPieces.pop_front();
  fIsBeginGone = true;
}

void Past::onNotice(const GK::GKNotice& notice) {
  using Kind = GK::GKNotice::Kind;
  if (!isOn() || (!isRaise(notice) && notice.kind != Kind::Declare && notice.kind != Kind::Log)) {
    return;
  }
  const std::lock_guard lock(fMutex);
  fEvents.push_back(notice);
  fEventBytes += messages::bytesOf(notice);
  xEndPieceIfFull();
}

void Past::onTick(GK::GKMicros time, std::string_view module) {
  const std::lock_guard lock(fMutex);
  if (!isOn() || fStore == nullptr) {
    return;
  }
  time = std::max(time, fLast);
  xBeginPieceAt(time);
  fLast = time;
  if (fModule.empty()) {
    fModule = module;
  }
  fLog.add(formats::RunTurn{formats::kOutsideTask, time});
  fLog.beginValues();
  for (std::size_t i = 0; i < fKeys.size(); ++i) {
    Key& key = fKeys[i];
    if (key.cell == nullptr) {
      key.cell = fStore->find(key.name);
    }
    if (key.cell == nullptr || !key.cell->exists()) {
      continue;
    }
    GK::GKValue value = key.cell->load();
    if (!messages::isSameValue(value, key.told)) {
      fLog.addValue(i, value);
      key.told = std::move(value);
    }
  }
  fLog.endValues();
}

void Past::onAction(GK::GKMicros time, const formats::Action& action) {
  const std::lock_guard lock(fMutex);
  if (!isOn() || fStore == nullptr) {
    return;
  }
  time = std::max(time, fLast);
  xBeginPieceAt(time);
  fLast = time;
  fLog.add(formats::RunTurn{formats::kOutsideTask, time});
  fLog.add(formats::RunAction{action});
  xEndPieceIfFull();
}

Past::View Past::xView() {
  const std::lock_guard lock(fMutex);
  if (!fLog.isEmpty()) {
    xEndPiece();
  }
  View view;
  view.pieces.assign(fPieces.begin(), fPieces.end());
  view.base = fBase;
  for (const Key& key : fKeys) {
    view.names.push_back(key.name);
    view.isInput.push_back(key.isInput);
  }
  view.byName = fByName;
  view.store = fStore;
  view.module = fModule;
  view.begin = fPieces.empty() ? fLast : std::max(fPieces.front()->begin, fLast - fOptions.length);
  view.end = fLast;
  view.isBeginGone = fIsBeginGone;
  return view;
}

std::string Past::json(const PastRange& range, std::string_view session) {
  const View view = xView();
  const GK::GKMicros from = std::max(range.from.value_or(view.begin), view.begin);
  GK::GKMicros to = std::min(range.to.value_or(view.end), view.end);
  std::optional<GK::GKMicros> next;

  std::vector<Column> columns;
  const auto addColumns = [&](std::string_view topic,
                              const std::vector<messages::SubjectField>& fields) {
    for (const messages::SubjectField& field : fields) {
      if (const auto key = view.byName.find(field.key); key != view.byName.end()) {
        columns.push_back({topic, field.name, key->second, {}, false});
      }
    }
  };
  addColumns(kJointTopic, messages::jointPositions());
  for (const messages::Subject& subject : messages::subjects()) {
    addColumns(subject.topic, subject.fields);
  }
  std::vector<GK::GKValue> state = view.base;
  std::string times;
  std::size_t bytes = 0;
  GK::GKMicros due = from;
  // A row is what stood when the next turn begins.
  std::optional<GK::GKMicros> row;
  const auto finishRow = [&] {
    if (!row || range.step <= 0 || *row < due || *row > to) {
      return;
    }
    times += (times.empty() ? "" : ",") + secondsText(*row);
    bytes = times.size();
    for (Column& column : columns) {
      appendCell(column, state[column.key]);
      bytes += column.values.size();
    }
    due = std::max(due + range.step, *row + range.step - range.step / 2);
    if (bytes > range.most) {
      to = *row;
      next = *row + 1;
    }
  };
  if (range.step > 0) {
    view.walk(
        [&](GK::GKMicros time) {
          finishRow();
          row = time;
          return time <= to && !next;
        },
        [&](const formats::RunValues& values) {
          for (const formats::RunValue& value : values.values) {
            state[value.key] = values.value(value);
          }
        },
        [](const formats::Action&) {});
    finishRow();
  }

  std::string events;
  messages::JsonWriter eventsJson(events);
  eventsJson.beginArray();
  for (const auto& piece : view.pieces) {
    for (const GK::GKNotice& event : piece->events) {
      if (!isRaise(event) || event.time < from || event.time > to) {
        continue;
      }
      if (bytes + events.size() > range.most + range.most / 2) {
        to = event.time;
        next = event.time;
        break;
      }
      appendEvent(eventsJson, event);
    }
  }
  eventsJson.endArray();

  next = next ? next : range.rest;
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject().key("session").text(session);
  const auto [begin, end] = range.whole.value_or(std::pair(view.begin, view.end));
  json.key("begin").raw(secondsText(begin)).key("end").raw(secondsText(end));
  json.key("from").raw(secondsText(from)).key("to").raw(secondsText(to)).key("next");
  if (next) {
    json.raw(secondsText(*next));
  } else {
    json.null();
  }
  json.key("times").raw("[" + times + "]");
  appendTopics(json, columns);
  json.key("events").raw(events).endObject();
  return text;
}

namespace {

/// The channels of a robot in a recording that lies in memory.
class PastWriter {
public:
  PastWriter(std::int64_t epoch, const formats::mcap::StringMap& about)
      : fWriter(fSink, {.library = about.at("version"), .apart = formats::kRunTopic}),
        fEpoch(epoch) {
    fWriter.addMetadata({formats::kRunMetadata, about});
    fRun = fWriter.addChannel(formats::kRunTopic, formats::kRunEncoding, 0);
  }

  void writeRun(formats::RunLogWriter& log) {
    if (!log.isEmpty()) {
      const std::uint64_t time = messages::nanosecondsSince1970(fEpoch, log.startTime());
      fWriter.write(fRun, time, time, log.take());
    }
  }

  void write(const Channels& channels, const std::vector<ChannelMessage>& messages) {
    for (const ChannelMessage& message : messages) {
      const auto [place, isNew] = fChannels.try_emplace(message.channel);
      if (isNew) {
        const Channel& channel = channels.all().at(message.channel - 1);
        const auto [schema, isNewSchema] = fSchemas.try_emplace(channel.schemaName);
        if (isNewSchema) {
          schema->second = fWriter.addSchema(channel.schemaName, "jsonschema", channel.schema);
        }
        place->second = fWriter.addChannel(channel.topic, "json", schema->second);
      }
      fWriter.write(place->second, message.time, message.time, message.payload);
    }
  }

  std::string finish() {
    fWriter.finish();
    return fSink.bytes();
  }

private:
  formats::mcap::MemorySink fSink;
  formats::mcap::Writer fWriter;
  const std::int64_t fEpoch;
  std::uint16_t fRun = 0;
  std::map<std::uint32_t, std::uint16_t> fChannels;
  std::map<std::string, std::uint16_t> fSchemas;
};

} // namespace

std::optional<std::string> Past::recording(GK::GKMicros last, std::int64_t epoch,
                                           formats::mcap::StringMap about,
                                           const std::vector<formats::Action>& first) {
  const View view = xView();
  if (view.pieces.empty()) {
    return std::nullopt;
  }
  const GK::GKMicros begin = last >= view.end - view.begin ? view.begin : view.end - last;
  const bool isContinued = view.isBeginGone || begin > view.begin;
  about.emplace("start", messages::wallTimeText(epoch + begin));
  about.emplace("begins", isContinued
                              ? "in the middle of a run: what the modules knew by then is missing"
                              : "with the run");
  PastWriter out(epoch + begin, about);

  constexpr GK::GKMicros perSecond = 1'000'000;
  const auto store = std::make_shared<GK::GKMemoryStore>();
  Channels channels(store, {(epoch + begin) / perSecond, (epoch + begin) % perSecond}, 0);
  std::vector<const GK::GKNotice*> events;
  for (const auto& piece : view.pieces) {
    for (const GK::GKNotice& event : piece->events) {
      // What was declared before is known all the same.
      if (event.time >= begin || event.kind == GK::GKNotice::Kind::Declare) {
        events.push_back(&event);
      }
    }
  }
  auto nextEvent = events.begin();
  const auto tellEventsTo = [&](GK::GKMicros time) {
    for (; nextEvent != events.end() && (*nextEvent)->time <= time; ++nextEvent) {
      GK::GKNotice event = **nextEvent;
      event.time = std::max<GK::GKMicros>(event.time - begin, 0);
      out.write(channels, channels.ofNotice(event));
    }
  };

  formats::RunLogWriter log;
  std::vector<GK::GKValue> state = view.base;
  std::optional<GK::GKMicros> now;
  std::set<std::size_t> changed;
  std::vector<formats::Action> actions;
  std::uint64_t ticks = 0;
  GK::GKMicros nextSample = 0;
  bool hasStarted = false;

  const auto start = [&] {
    hasStarted = true;
    std::size_t index = 0;
    for (const std::string& name : view.names) {
      log.add(formats::RunKey{index++, name});
    }
    if (view.store != nullptr) {
      formats::SetAction settings;
      for (const std::string& key : view.store->keys()) {
        if (key.starts_with(kSettings)) {
          settings.values.emplace_back(key, view.store->get(key).value_or(GK::GKValue()));
        }
      }
      if (!settings.values.empty()) {
        log.add(formats::RunAction{std::move(settings)});
      }
    }
    log.beginValues();
    for (std::size_t i = 0; i < state.size(); ++i) {
      const bool isThere = state[i].type() != GK::GKValue::Type::Invalid;
      if (isThere) {
        store->set(view.names[i], state[i]);
      }
      if (isThere && view.isInput[i]) {
        log.addValue(i, state[i]);
      }
    }
    log.endValues();
    log.add(formats::RunStart{true, isContinued});
    changed.clear();
    actions.insert(actions.begin(), first.begin(), first.end());
  };
  const auto finishTurn = [&] {
    if (!now || *now < begin) {
      actions.clear();
      return;
    }
    const GK::GKMicros time = *now - begin;
    if (!hasStarted) {
      start();
    } else if (time - log.startTime() >= kPieceTime) {
      out.writeRun(log);
    }
    log.add(formats::RunTurn{formats::kOutsideTask, time});
    log.beginValues();
    for (const std::size_t key : changed) {
      store->set(view.names[key], state[key]);
      if (view.isInput[key]) {
        log.addValue(key, state[key]);
      }
    }
    log.endValues();
    changed.clear();
    for (formats::Action& action : actions) {
      log.add(formats::RunAction{std::move(action)});
    }
    actions.clear();
    tellEventsTo(*now);
    ++ticks;
    if (time >= nextSample) {
      nextSample = time + kSamplePeriod;
      out.write(channels,
                channels.ofTick(time, view.module, ticks, [](std::uint32_t) { return true; }));
    }
  };
  view.walk(
      [&](GK::GKMicros time) {
        finishTurn();
        now = time;
        return true;
      },
      [&](const formats::RunValues& values) {
        for (const formats::RunValue& value : values.values) {
          state[value.key] = values.value(value);
          changed.insert(value.key);
        }
      },
      [&](const formats::Action& action) { actions.push_back(action); });
  finishTurn();
  tellEventsTo(view.end + kPieceTime);
  out.writeRun(log);
  return out.finish();
}

} // namespace gk::gateway
