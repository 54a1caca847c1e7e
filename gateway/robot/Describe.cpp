#include "gateway/robot/Describe.h"

#include "gk/GKClock.h"
#include "gk/GKModule.h"
#include "messages/json/JsonWriter.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/Numbers.h"

#include <algorithm>

namespace gk::gateway {

namespace {

constexpr double kMicrosPerSecond = 1e6;

messages::JsonWriter& seconds(messages::JsonWriter& json, GK::GKMicros time) {
  std::string text;
  messages::appendSeconds(text, time);
  return json.raw(text);
}

void appendMethod(messages::JsonWriter& json, const GK::GKMethodDescription& method) {
  json.beginObject().key("name").text(method.name).key("module").text(method.module);
  json.key("description").text(method.description);
  json.key("params").beginArray();
  for (const GK::GKParamDescription& param : method.params) {
    json.beginObject().key("name").text(param.name).key("type").text(param.type);
    json.key("description").text(param.description).endObject();
  }
  json.endArray().key("result");
  if (method.result.type.empty()) {
    json.null();
  } else {
    json.beginObject().key("name").text(method.result.name).key("type").text(method.result.type);
    json.key("description").text(method.result.description).endObject();
  }
  json.endObject();
}

void appendKey(messages::JsonWriter& json, const std::string& key, const GK::GKValue& value) {
  json.beginObject().key("key").text(key).key("type").text(value.typeName());
  json.key("value").value(value);
  if (const messages::DeviceKey* device = messages::findDeviceKey(key)) {
    json.key("unit").text(device->unit).key("meaning").text(device->meaning);
  }
  json.endObject();
}

void appendHistogram(messages::JsonWriter& json, const HistogramFigures& figures) {
  json.beginObject().key("count").unsignedInteger(figures.count);
  const double mean = figures.count > 0 ? figures.sum / static_cast<double>(figures.count) : 0;
  json.key("mean_s").real(mean).key("p50_s").real(figures.p50);
  json.key("p99_s").real(figures.p99).key("p999_s").real(figures.p999);
  json.endObject();
}

void appendTicks(messages::JsonWriter& json, const TickFigures& ticks) {
  json.key("overruns").unsignedInteger(ticks.overruns);
  appendHistogram(json.key("duration"), ticks.duration);
  appendHistogram(json.key("lateness"), ticks.lateness);
}

void appendClients(messages::JsonWriter& json, const Counters& counters) {
  json.key("clients").beginArray();
  for (const Counters::ClientReport& client : counters.clients()) {
    json.beginObject().key("name").text(client.name);
    json.key("lostSamples").unsignedInteger(client.lostSamples);
    json.key("lostEvents").unsignedInteger(client.lostEvents).endObject();
  }
  json.endArray();
}

void appendLoops(messages::JsonWriter& json, const Robot& robot, const HostDescription& host,
                 GK::GKMicros now) {
  json.key("loops").beginArray();
  const std::vector<LoopFigures> measured = robot.loops();
  for (const NoticeQueue::Loop& loop : host.counters->loops()) {
    json.beginObject().key("module").text(loop.module);
    json.key("ticks").unsignedInteger(loop.ticks);
    seconds(json.key("age_s"), now - loop.time);
    const auto figures = std::ranges::find(measured, loop.module, &LoopFigures::module);
    if (figures != measured.end()) {
      appendTicks(json, figures->all);
      if (host.isVerbose) {
        json.key("lastMinute").beginObject();
        json.key("rate_hz").real(figures->lastMinute.rate);
        json.key("askedRate_hz").real(figures->lastMinute.askedRate);
        appendTicks(json, figures->lastMinute);
        json.endObject();
      }
    }
    json.endObject();
  }
  json.endArray();
}

/// Ends a list, with what goes into "after" for the next page, if there is one.
std::string finished(std::string& text, messages::JsonWriter& json,
                     const std::optional<std::string>& next) {
  json.endArray().key("next");
  if (next) {
    json.text(*next);
  } else {
    json.null();
  }
  json.endObject();
  return std::move(text);
}

/// A recording's last moment stays: who sees it has to know.
void appendSource(messages::JsonWriter& json, const RunSource& source) {
  constexpr const char* kKinds[] = {"robot", "simulated", "recording"};
  json.key("source").beginObject();
  json.key("kind").text(kKinds[static_cast<std::size_t>(source.kind)]);
  if (source.kind == RunSource::Kind::Recording) {
    const GK::GKMicros end = source.end;
    json.key("file").text(source.file).key("isEnded").boolean(end >= 0);
    if (end >= 0) {
      seconds(json.key("end_s"), end);
    }
  }
  json.endObject();
}

} // namespace

std::string describeModules(const Robot& robot) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject().key("modules").beginArray();
  for (const auto& module : robot.broker().getModules()) {
    const bool isExtractor = module->findMethod("subscribe", 1) != nullptr;
    json.beginObject().key("name").text(module->getName());
    json.key("description").text(module->getModuleDescription());
    json.key("methods").unsignedInteger(module->getMethods().size());
    json.key("isExtractor").boolean(isExtractor).endObject();
  }
  json.endArray().endObject();
  return text;
}

std::string describeModule(const Robot& robot, GK::GKModuleCore& module) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject().key("name").text(module.getName());
  json.key("description").text(module.getModuleDescription());
  if (auto* full = dynamic_cast<GK::GKModule*>(&module)) {
    json.key("version").text(full->version());
  }
  json.key("methods").beginArray();
  for (const GK::GKMethodDescription& method : module.getMethods()) {
    appendMethod(json, method);
  }
  json.endArray().key("events").beginArray();
  if (robot.memory() != nullptr) {
    for (const std::string& event : robot.memory()->getExtractorEvent(module.getName())) {
      json.text(event);
    }
  }
  json.endArray().endObject();
  return text;
}

std::string describeEvents(const Robot& robot, const EventPage& page) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject().key("events").beginArray();
  const auto events =
      robot.memory() != nullptr ? robot.memory()->getEvents() : std::vector<GK::GKEventInfo>();
  const GK::GKEventInfo* last = nullptr;
  for (const GK::GKEventInfo& event : events) {
    if (event.name <= page.after) {
      continue;
    }
    if (text.size() > page.bytes) {
      return finished(text, json, last->name);
    }
    last = &event;
    json.beginObject().key("name").text(event.name).key("owner").text(event.owner);
    json.key("count").unsignedInteger(event.count).key("value").value(event.value).key("t_s");
    if (event.count > 0) {
      seconds(json, event.time);
    } else {
      json.null();
    }
    json.endObject();
  }
  return finished(text, json, std::nullopt);
}

std::string describeKey(const std::string& key, const GK::GKValue& value) {
  std::string text;
  messages::JsonWriter json(text);
  appendKey(json, key, value);
  return text;
}

std::string describeKeys(const Robot& robot, const KeyPage& page) {
  const std::shared_ptr<GK::GKMemoryStore> store = robot.store();
  std::vector<std::string> keys = store != nullptr ? store->keys() : std::vector<std::string>();
  std::erase_if(keys, [&page](const std::string& key) {
    return !key.starts_with(page.prefix) || (!page.after.empty() && key <= page.after) ||
           key.find(page.contains) == std::string::npos;
  });
  std::size_t count = 0;
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject().key("keys").beginArray();
  for (; count < std::min(keys.size(), page.limit); ++count) {
    if (count > 0 && text.size() > page.bytes) {
      break;
    }
    if (const std::optional<GK::GKValue> value = store->get(keys[count])) {
      appendKey(json, keys[count], *value);
    }
  }
  return finished(text, json, count < keys.size() ? std::optional(keys[count - 1]) : std::nullopt);
}

std::string describeHost(const Robot& robot, const HostDescription& host) {
  const GK::GKClock& clock = GK::GKClock::instance();
  const GK::GKMicros now = clock.elapsed();
  const GK::GKWallTime wall = clock.wallTime();
  const Counters& counters = *host.counters;
  std::uint64_t events = 0;
  if (robot.memory() != nullptr) {
    for (const GK::GKEventInfo& event : robot.memory()->getEvents()) {
      events += event.count;
    }
  }
  std::string text;
  messages::JsonWriter json(text);
  json.beginObject().key("name").text("gksensors").key("version").text(host.version);
  seconds(json.key("t_s"), now);
  json.key("time_s").real(static_cast<double>(wall.seconds) +
                          static_cast<double>(wall.microseconds) / kMicrosPerSecond);
  json.key("startTime_s").real(host.startTime);
  json.key("session").text(host.session);
  if (!host.playback.empty()) {
    json.key("playback").raw(host.playback);
  }
  if (host.source != nullptr) {
    appendSource(json, *host.source);
  }
  json.key("modules").unsignedInteger(robot.broker().getModules().size());
  appendLoops(json, robot, host, now);
  json.key("events").unsignedInteger(events);
  json.key("memoryKeys").unsignedInteger(robot.store() != nullptr ? robot.store()->size() : 0);
  json.key("deviceKeys").beginObject();
  json.key("count").unsignedInteger(messages::deviceKeys().size()).key("age_s");
  if (counters.deviceChange() >= 0) {
    seconds(json, now - counters.deviceChange());
  } else {
    json.null();
  }
  json.endObject().key("connections").unsignedInteger(counters.connections.load());
  json.key("webSocketClients").unsignedInteger(counters.webSocketClients.load());
  json.key("callsRunning").unsignedInteger(host.callsRunning);
  json.key("dropped").beginObject();
  json.key("samples").unsignedInteger(counters.droppedSamples.load());
  json.key("events").unsignedInteger(counters.droppedEvents.load()).endObject();
  if (host.isVerbose) {
    appendClients(json, counters);
  }
  json.endObject();
  return text;
}

bool Readiness::isReady() const {
  return std::ranges::all_of(conditions,
                             [](const Condition& one) { return one.isMet || !one.isVital; });
}

std::string Readiness::text() const {
  std::string text;
  for (const Condition& condition : conditions) {
    text += condition.isMet ? "[+] " : "[-] ";
    text += condition.text + "\n";
  }
  for (const std::string& one : told) {
    text += "[=] " + one + "\n";
  }
  for (const std::string& matter : matters) {
    text += "[!] " + matter + "\n";
  }
  return text + (isReady() ? "ok\n" : "not ready\n");
}

Readiness readinessOf(const Robot* robot, const Counters& counters,
                      const RecordingSource& recording) {
  Readiness readiness;
  readiness.conditions.push_back({"modules are loaded", robot != nullptr});
  const std::vector<NoticeQueue::Loop> loops = counters.loops();
  readiness.conditions.push_back({"a loop ticks", robot != nullptr && !loops.empty()});
  if (robot != nullptr) {
    const GK::GKMicros now = GK::GKClock::instance().elapsed();
    for (const NoticeQueue::Loop& loop : loops) {
      readiness.conditions.push_back(
          {loop.module + " keeps ticking", now - loop.time < Readiness::kLongestTick});
    }
  }
  if (recording) {
    // Clients are served as well without.
    const std::string trouble = recording().trouble;
    readiness.conditions.push_back(
        {"the run is recorded" + (trouble.empty() ? std::string() : ": " + trouble),
         trouble.empty(), false});
  }
  return readiness;
}

} // namespace gk::gateway
