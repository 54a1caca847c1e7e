#include "gateway/channels/Channels.h"

#include "messages/json/EventJson.h"
#include "messages/json/JsonWriter.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/keys/Subjects.h"
#include "messages/notices/Raise.h"
#include "messages/text/Numbers.h"
#include "messages/text/WallTime.h"
#include "zu/log.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace gk::gateway {

namespace {

constexpr std::string_view kEventPrefix = "/event/";

/// A published schema of viewers: https://github.com/foxglove/foxglove-sdk, schemas/jsonschema.
constexpr std::string_view kLogSchema =
    R"({"title":"foxglove.Log","type":"object","properties":{)"
    R"("timestamp":{"type":"object","title":"time","properties":{"sec":{"type":"integer"},"nsec":{"type":"integer"}}},)"
    R"("level":{"type":"integer","description":"0 unknown, 1 debug, 2 info, 3 warning, 4 error, 5 fatal"},)"
    R"("message":{"type":"string"},"name":{"type":"string","description":"category"},)"
    R"("file":{"type":"string","description":"function that logs"},"line":{"type":"integer"}}})";

constexpr std::string_view kJointStatesSchema =
    R"({"title":"foxglove.JointStates","type":"object","properties":{)"
    R"("timestamp":{"type":"object","title":"time","properties":{"sec":{"type":"integer"},"nsec":{"type":"integer"}}},)"
    R"("joints":{"type":"array","items":{"type":"object","properties":{)"
    R"("name":{"type":"string"},"position":{"type":"number","description":"rad"}}}}}})";

constexpr std::string_view kEventsSchema =
    R"({"title":"gk.Events","type":"object","properties":{)"
    R"("t_s":{"type":"number","description":"seconds since the host started"},)"
    R"("name":{"type":"string"},)"
    R"("kind":{"enum":["event","micro"]},"value":{}}})";

constexpr std::string_view kEventSchema =
    R"({"title":"gk.Event","type":"object","properties":{)"
    R"("t_s":{"type":"number","description":"seconds since the host started"},)"
    R"("kind":{"enum":["event","micro"]},"value":{}}})";

constexpr std::string_view kTickSchema =
    R"({"title":"gk.Tick","type":"object","properties":{)"
    R"("module":{"type":"string","description":"whose loop"},)"
    R"("tick":{"type":"integer","description":"ticks of this loop so far"},)"
    R"("period_s":{"type":"number","description":"time between the ends of ticks"}}})";

/// The viewers' level of one of ours.
int viewerLevel(int level) {
  switch (level) {
  case zu::log::Fatal:
    return 5;
  case zu::log::Error:
    return 4;
  case zu::log::Warning:
    return 3;
  case zu::log::Info:
    return 2;
  default:
    return 1;
  }
}

void appendTimestamp(messages::JsonWriter& json, std::uint64_t nanoseconds) {
  constexpr std::uint64_t kPerSecond = 1'000'000'000;
  json.key("timestamp").beginObject();
  json.key("sec").unsignedInteger(nanoseconds / kPerSecond);
  json.key("nsec").unsignedInteger(nanoseconds % kPerSecond);
  json.endObject();
}

const char* jsonType(messages::SubjectField::Shape shape) {
  switch (shape) {
  case messages::SubjectField::Shape::Number:
    return "number";
  case messages::SubjectField::Shape::Integer:
    return "integer";
  case messages::SubjectField::Shape::Boolean:
    return "boolean";
  case messages::SubjectField::Shape::Text:
    break;
  }
  return "string";
}

std::string schemaOf(const messages::Subject& subject) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject();
  json.key("title").text(subject.schemaName).key("description").text(subject.title);
  json.key("type").text("object").key("properties").beginObject();
  for (const messages::SubjectField& field : subject.fields) {
    json.key(field.name).beginObject();
    json.key("type").text(jsonType(field.shape)).key("description").text(field.meaning);
    json.endObject();
  }
  json.endObject().endObject();
  return text;
}

/// Numbers that JSON has none for become null, which plots leave out.
void appendPlain(messages::JsonWriter& json, const GK::GKValue& value) {
  if (value.type() == GK::GKValue::Type::Float && !std::isfinite(value.toFloat())) {
    json.null();
  } else {
    json.value(value);
  }
}

} // namespace

/// Reads the fields of one channel from the memory.
class Channels::Sampler {
public:
  Sampler(std::uint32_t channel, const std::vector<messages::SubjectField>& fields, bool isJoints)
      : fChannel(channel), fFields(fields), fCells(fields.size(), nullptr), fIsJoints(isJoints) {}

  std::uint32_t channel() const noexcept { return fChannel; }

  std::string sample(const GK::GKMemoryStore& store, std::uint64_t nanoseconds) {
    std::string text;
    messages::JsonWriter json(text);
    json.beginObject();
    if (fIsJoints) {
      appendTimestamp(json, nanoseconds);
      json.key("joints").beginArray();
    }
    for (std::size_t i = 0; i < fFields.size(); ++i) {
      // A cell never moves: one look-up is enough, once the key is there.
      if (fCells[i] == nullptr) {
        fCells[i] = store.find(fFields[i].key);
      }
      if (fCells[i] != nullptr) {
        xAppend(json, fFields[i].name, fCells[i]->load());
      }
    }
    if (fIsJoints) {
      json.endArray();
    }
    json.endObject();
    return text;
  }

private:
  void xAppend(messages::JsonWriter& json, const std::string& name,
               const GK::GKValue& value) const {
    if (fIsJoints) {
      json.beginObject().key("name").text(name).key("position");
      appendPlain(json, value);
      json.endObject();
    } else {
      json.key(name);
      appendPlain(json, value);
    }
  }

  const std::uint32_t fChannel;
  const std::vector<messages::SubjectField>& fFields;
  std::vector<const GK::GKMemoryCell*> fCells;
  const bool fIsJoints;
};

Channels::Channels(std::shared_ptr<const GK::GKMemoryStore> store, const GK::GKWallTime& wall,
                   GK::GKMicros elapsed)
    : fStore(std::move(store)), fEpoch(messages::epochOf(wall, elapsed)) {
  fEventsId = add({0, "/events", "gk.Events", std::string(kEventsSchema), Flow::Queue});
  fLogId = add({0, "/log", "foxglove.Log", std::string(kLogSchema), Flow::Queue});
  fTickId = add({0, "/tick", "gk.Tick", std::string(kTickSchema), Flow::Latest});
  const std::uint32_t joints = add(
      {0, "/joint_states", "foxglove.JointStates", std::string(kJointStatesSchema), Flow::Latest});
  fSamplers.push_back(std::make_unique<Sampler>(joints, messages::jointPositions(), true));
  for (const messages::Subject& subject : messages::subjects()) {
    const std::uint32_t id =
        add({0, subject.topic, subject.schemaName, schemaOf(subject), Flow::Latest});
    fSamplers.push_back(std::make_unique<Sampler>(id, subject.fields, false));
  }
}

Channels::~Channels() = default;

std::uint32_t Channels::add(Channel channel) {
  channel.id = static_cast<std::uint32_t>(fChannels.size() + 1);
  fByTopic.emplace(channel.topic, channel.id);
  fChannels.push_back(std::move(channel));
  return fChannels.back().id;
}

const Channel* Channels::find(std::string_view topic) const {
  const auto found = fByTopic.find(topic);
  return found != fByTopic.end() ? &fChannels[found->second - 1] : nullptr;
}

void Channels::addEvent(const std::string& event) {
  if (fByEvent.size() >= kMaxEventChannels || fByEvent.contains(event)) {
    return;
  }
  fByEvent.emplace(event, add({0, std::string(kEventPrefix).append(event), "gk.Event",
                               std::string(kEventSchema), Flow::Queue}));
}

std::uint64_t Channels::nanoseconds(GK::GKMicros time) const noexcept {
  return messages::nanosecondsSince1970(fEpoch, time);
}

std::vector<ChannelMessage> Channels::ofNotice(const GK::GKNotice& notice) {
  std::vector<ChannelMessage> messages;
  const std::uint64_t time = nanoseconds(notice.time);
  if (notice.kind == GK::GKNotice::Kind::Declare) {
    addEvent(notice.name);
  } else if (messages::isRaise(notice)) {
    addEvent(notice.name);
    std::string combined;
    messages::JsonWriter(combined).text(notice.name);
    std::string rest;
    messages::JsonWriter json(rest);
    json.beginObject();
    messages::appendEvent(json, notice);
    json.endObject();
    messages.push_back({fEventsId, time, R"({"name":)" + combined + "," + rest.substr(1)});
    if (const auto own = fByEvent.find(notice.name); own != fByEvent.end()) {
      messages.push_back({own->second, time, std::move(rest)});
    }
  } else if (notice.kind == GK::GKNotice::Kind::Log) {
    std::string text;
    messages::JsonWriter json(text);
    json.beginObject();
    appendTimestamp(json, time);
    json.key("level").integer(viewerLevel(notice.level));
    json.key("message").text(notice.text).key("name").text(notice.name);
    json.key("file").text(notice.owner).key("line").integer(0).endObject();
    messages.push_back({fLogId, time, std::move(text)});
  }
  return messages;
}

std::vector<ChannelMessage> Channels::ofTick(GK::GKMicros time, std::string_view module,
                                             std::uint64_t number, const IsWanted& isWanted) {
  std::vector<ChannelMessage> messages;
  const std::uint64_t nanos = nanoseconds(time);
  const auto found = fLoops.find(module);
  Loop& loop = found != fLoops.end() ? found->second : fLoops[std::string(module)];
  const Loop before = std::exchange(loop, {number, time});
  if (isWanted(fTickId)) {
    std::string text;
    messages::JsonWriter json(text);
    json.beginObject().key("module").text(module).key("tick").unsignedInteger(number);
    if (before.ticks > 0 && number > before.ticks) {
      const auto passed = static_cast<GK::GKMicros>(number - before.ticks);
      std::string period;
      messages::appendSeconds(period, (time - before.last) / passed);
      json.key("period_s").raw(period);
    }
    json.endObject();
    messages.push_back({fTickId, nanos, std::move(text)});
  }
  for (const auto& sampler : fSamplers) {
    if (fStore != nullptr && isWanted(sampler->channel())) {
      messages.push_back({sampler->channel(), nanos, sampler->sample(*fStore, nanos)});
    }
  }
  return messages;
}

std::optional<ChannelMessage> Channels::sample(std::uint32_t channel, GK::GKMicros time) {
  const auto sampler = std::ranges::find_if(
      fSamplers, [channel](const auto& one) { return one->channel() == channel; });
  if (sampler == fSamplers.end() || fStore == nullptr) {
    return std::nullopt;
  }
  const std::uint64_t nanos = nanoseconds(time);
  return ChannelMessage{channel, nanos, (*sampler)->sample(*fStore, nanos)};
}

} // namespace gk::gateway
