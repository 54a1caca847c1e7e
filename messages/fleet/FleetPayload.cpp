#include "messages/fleet/FleetPayload.h"

#include "messages/json/EventJson.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"
#include "messages/json/JsonWriter.h"

#include <boost/json/serialize.hpp>

#include <array>
#include <cmath>
#include <utility>

namespace gk::messages {

namespace {

namespace json = boost::json;

constexpr std::array<std::pair<FleetPresence, std::string_view>, 3> kPresences{
    {{FleetPresence::Online, "online"},
     {FleetPresence::Offline, "offline"},
     {FleetPresence::Lost, "lost"}}};

/// Seconds with milliseconds.
double secondsOf(std::int64_t micros) {
  constexpr double kMillisPerSecond = 1e3;
  constexpr double kMicrosPerMilli = 1e3;
  return std::round(static_cast<double>(micros) / kMicrosPerMilli) / kMillisPerSecond;
}

std::int64_t microsOf(double seconds) {
  constexpr double kMicrosPerSecond = 1e6;
  constexpr double kMost = 9e12;
  if (!(std::abs(seconds) < kMost)) {
    throw FormatError("a time is beyond all limits");
  }
  return std::llround(seconds * kMicrosPerSecond);
}

/// The members of an object, as they are asked for.
class Members {
public:
  explicit Members(const json::value& value) {
    if (!value.is_object()) {
      throw FormatError("a JSON object is wanted");
    }
    fObject = &value.get_object();
  }

  /// Null when it is absent or null.
  const json::value* find(std::string_view name) const {
    const json::value* const value = fObject->if_contains(name);
    return value == nullptr || value->is_null() ? nullptr : value;
  }
  const json::value& get(std::string_view name) const {
    const json::value* const value = find(name);
    if (value == nullptr) {
      throw FormatError(quotedText(name) + " is missing");
    }
    return *value;
  }

  std::optional<std::string> findText(std::string_view name) const {
    const json::value* const value = find(name);
    if (value == nullptr) {
      return std::nullopt;
    }
    if (!value->is_string()) {
      throw FormatError(quotedText(name) + " is no text");
    }
    return std::string(value->get_string());
  }
  std::optional<double> findNumber(std::string_view name) const {
    const json::value* const value = find(name);
    if (value == nullptr) {
      return std::nullopt;
    }
    const std::optional<double> number = numberFromJson(*value);
    if (!number) {
      throw FormatError(quotedText(name) + " is no number");
    }
    return number;
  }
  std::optional<bool> findBool(std::string_view name) const {
    const json::value* const value = find(name);
    if (value == nullptr) {
      return std::nullopt;
    }
    if (!value->is_bool()) {
      throw FormatError(quotedText(name) + " is neither true nor false");
    }
    return value->get_bool();
  }
  const json::array& array(std::string_view name) const {
    const json::value& value = get(name);
    if (!value.is_array()) {
      throw FormatError(quotedText(name) + " is no array");
    }
    return value.get_array();
  }

  std::string text(std::string_view name) const {
    get(name);
    return *findText(name);
  }
  double number(std::string_view name) const {
    get(name);
    return *findNumber(name);
  }
  std::uint64_t count(std::string_view name) const {
    const json::value& value = get(name);
    if (!value.is_int64() || value.get_int64() < 0) {
      throw FormatError(quotedText(name) + " is no count");
    }
    return static_cast<std::uint64_t>(value.get_int64());
  }
  std::int64_t time(std::string_view name) const { return microsOf(number(name)); }

  std::vector<std::string> texts(std::string_view name) const {
    std::vector<std::string> texts;
    for (const json::value& entry : array(name)) {
      if (!entry.is_string()) {
        throw FormatError(quotedText(name) + " holds something else than texts");
      }
      texts.emplace_back(entry.get_string());
    }
    return texts;
  }

private:
  const json::object* fObject;
};

void appendTexts(JsonWriter& out, std::string_view name, const std::vector<std::string>& texts) {
  out.key(name).beginArray();
  for (const std::string& text : texts) {
    out.text(text);
  }
  out.endArray();
}

void appendLoops(JsonWriter& out, const std::vector<FleetState::Loop>& loops) {
  out.key("loops").beginArray();
  for (const FleetState::Loop& loop : loops) {
    out.beginObject();
    out.key("module").text(loop.module);
    out.key("ticks").unsignedInteger(loop.ticks);
    out.key("rate_hz").real(loop.rate);
    out.key("lateness_s").real(loop.lateness);
    out.key("work_s").real(loop.work);
    out.key("overruns").unsignedInteger(loop.overruns);
    out.endObject();
  }
  out.endArray();
}

void appendModules(JsonWriter& out, const std::vector<FleetFactsheet::Module>& modules) {
  out.key("modules").beginArray();
  for (const FleetFactsheet::Module& module : modules) {
    out.beginObject();
    out.key("name").text(module.name);
    out.key("description").text(module.description);
    out.key("methods").beginArray();
    for (const FleetFactsheet::Method& method : module.methods) {
      out.beginObject();
      out.key("name").text(method.name);
      out.key("description").text(method.description);
      appendTexts(out, "params", method.params);
      out.key("hasResult").boolean(method.hasResult);
      out.endObject();
    }
    out.endArray();
    appendTexts(out, "events", module.events);
    out.endObject();
  }
  out.endArray();
}

FleetFactsheet::Module moduleOf(const json::value& value) {
  const Members members(value);
  FleetFactsheet::Module module;
  module.name = members.text("name");
  module.description = members.findText("description").value_or("");
  for (const json::value& entry : members.array("methods")) {
    const Members method(entry);
    module.methods.push_back({method.text("name"), method.findText("description").value_or(""),
                              method.texts("params"),
                              method.findBool("hasResult").value_or(false)});
  }
  module.events = members.texts("events");
  return module;
}

} // namespace

std::string_view presenceName(FleetPresence presence) {
  for (const auto& [value, name] : kPresences) {
    if (value == presence) {
      return name;
    }
  }
  return {};
}

std::string connectionPayload(const FleetConnection& connection) {
  std::string text;
  JsonWriter out(text);
  out.beginObject();
  out.key("state").text(presenceName(connection.presence));
  out.key("bootId").text(connection.bootId);
  out.key("time").real(secondsOf(connection.time));
  out.endObject();
  return text;
}

FleetConnection readConnection(std::string_view payload) {
  const json::value value = parseJson(payload);
  const Members members(value);
  const std::string state = members.text("state");
  for (const auto& [presence, name] : kPresences) {
    if (name == state) {
      return {presence, members.text("bootId"), members.time("time")};
    }
  }
  throw FormatError("\"state\" is none of online, offline and lost");
}

std::string eventBody(const FleetEvent& event) {
  GK::GKNotice notice;
  notice.kind = event.kind;
  notice.time = event.uptime;
  notice.value = event.value;
  std::string text;
  JsonWriter out(text);
  out.beginObject();
  out.key("name").text(event.name);
  appendEvent(out, notice);
  out.key("time").real(secondsOf(event.time));
  out.key("uptime").real(secondsOf(event.uptime));
  out.key("bootId").text(event.bootId);
  out.key("seq").unsignedInteger(event.seq);
  return text;
}

std::string eventPayload(std::string_view body, bool isHistorical) {
  std::string text(body);
  text += isHistorical ? ",\"historical\":true}" : ",\"historical\":false}";
  return text;
}

std::string eventPayload(const FleetEvent& event) {
  return eventPayload(eventBody(event), event.isHistorical);
}

FleetEvent readEvent(std::string_view payload) {
  const json::value value = parseJson(payload);
  const Members members(value);
  FleetEvent event;
  event.name = members.text("name");
  event.kind = members.findText("kind") == "micro" ? GK::GKNotice::Kind::MicroEvent
                                                   : GK::GKNotice::Kind::Event;
  if (const json::value* given = members.find("value")) {
    event.value = valueFromJson(*given);
  }
  event.time = members.time("time");
  event.uptime = microsOf(members.findNumber("uptime").value_or(0));
  event.bootId = members.text("bootId");
  event.seq = members.count("seq");
  event.isHistorical = members.findBool("historical").value_or(false);
  return event;
}

std::string gapPayload(const FleetGap& gap) {
  std::string text;
  JsonWriter out(text);
  out.beginObject();
  out.key("bootId").text(gap.bootId);
  out.key("from").unsignedInteger(gap.from);
  out.key("to").unsignedInteger(gap.to);
  out.endObject();
  return text;
}

FleetGap readGap(std::string_view payload) {
  const json::value value = parseJson(payload);
  const Members members(value);
  return {members.text("bootId"), members.count("from"), members.count("to")};
}

std::string statePayload(const FleetState& state) {
  std::string text;
  JsonWriter out(text);
  const auto writeText = [&out](const std::string& value) { out.text(value); };
  const auto writeBool = [&out](bool value) { out.boolean(value); };
  const auto writeReal = [&out](double value) { out.real(value); };
  out.beginObject();
  out.key("bootId").text(state.bootId);
  out.key("time").real(secondsOf(state.time));
  out.key("uptime").real(secondsOf(state.uptime));
  out.key("pose").optional(state.pose, writeText);
  out.key("footContact").optional(state.isOnFloor, writeBool);
  out.key("battery").beginObject();
  out.key("charge").optional(state.charge, writeReal);
  out.key("plugged").optional(state.isPlugged, writeBool);
  out.endObject();
  out.key("stiffness").optional(state.stiffness, writeText);
  out.key("hottest").optional(state.hottest, [&out](const FleetState::Joint& joint) {
    out.beginObject();
    out.key("joint").text(joint.name);
    out.key("temperature_degC").real(joint.temperature);
    out.endObject();
  });
  appendLoops(out, state.loops);
  out.key("outbox").beginObject();
  out.key("backlog").unsignedInteger(state.outbox.backlog);
  out.key("bytes").unsignedInteger(state.outbox.bytes);
  out.key("oldest_s").optional(state.outbox.oldest, writeReal);
  out.key("gaps").unsignedInteger(state.outbox.gaps);
  out.key("refused").unsignedInteger(state.outbox.refused);
  out.endObject();
  out.endObject();
  return text;
}

FleetState readState(std::string_view payload) {
  const json::value value = parseJson(payload);
  const Members members(value);
  FleetState state;
  state.bootId = members.text("bootId");
  state.time = members.time("time");
  state.uptime = members.time("uptime");
  state.pose = members.findText("pose");
  state.isOnFloor = members.findBool("footContact");
  const Members battery(members.get("battery"));
  state.charge = battery.findNumber("charge");
  state.isPlugged = battery.findBool("plugged");
  state.stiffness = members.findText("stiffness");
  if (const json::value* hottest = members.find("hottest")) {
    const Members joint(*hottest);
    state.hottest = {joint.text("joint"), joint.number("temperature_degC")};
  }
  for (const json::value& entry : members.array("loops")) {
    const Members loop(entry);
    state.loops.push_back({loop.text("module"), loop.count("ticks"), loop.number("rate_hz"),
                           loop.number("lateness_s"), loop.number("work_s"),
                           loop.count("overruns")});
  }
  const Members outbox(members.get("outbox"));
  state.outbox = {outbox.count("backlog"), outbox.count("bytes"), outbox.findNumber("oldest_s"),
                  outbox.count("gaps"), outbox.count("refused")};
  return state;
}

std::string factsheetPayload(const FleetFactsheet& factsheet) {
  std::string text;
  JsonWriter out(text);
  out.beginObject();
  out.key("name").text(factsheet.name);
  out.key("version").text(factsheet.version);
  out.key("page").optional(factsheet.page, [&out](const std::string& page) { out.text(page); });
  appendTexts(out, "calls", factsheet.calls);
  appendModules(out, factsheet.modules);
  out.endObject();
  return text;
}

FleetFactsheet readFactsheet(std::string_view payload) {
  const json::value value = parseJson(payload);
  const Members members(value);
  FleetFactsheet factsheet;
  factsheet.name = members.text("name");
  factsheet.version = members.text("version");
  factsheet.page = members.findText("page");
  if (members.find("calls") != nullptr) {
    factsheet.calls = members.texts("calls");
  }
  for (const json::value& entry : members.array("modules")) {
    factsheet.modules.push_back(moduleOf(entry));
  }
  return factsheet;
}

std::string requestPayload(const json::value& params) {
  std::string text = "{\"params\":";
  text += json::serialize(params);
  text += '}';
  return text;
}

json::value readRequest(std::string_view payload) {
  const json::value value = parseJson(payload);
  const json::value* const params = Members(value).find("params");
  if (params == nullptr) {
    return nullptr;
  }
  if (!params->is_array() && !params->is_object()) {
    throw FormatError("\"params\" is neither an array nor an object");
  }
  return *params;
}

std::string answerPayload(const FleetAnswer& answer) {
  std::string text;
  JsonWriter out(text);
  out.beginObject();
  if (answer.error) {
    out.key("error").beginObject();
    out.key("code").integer(answer.error->code);
    out.key("message").text(answer.error->message);
    if (!answer.error->data.empty()) {
      out.key("data").raw(answer.error->data);
    }
    out.endObject();
  } else {
    out.key("result").raw(answer.result.empty() ? "null" : answer.result);
  }
  out.endObject();
  return text;
}

FleetAnswer readAnswer(std::string_view payload) {
  const json::value value = parseJson(payload);
  const Members members(value);
  FleetAnswer answer;
  if (const json::value* given = members.find("error")) {
    const Members error(*given);
    answer.error = {static_cast<int>(error.number("code")), error.text("message"), {}};
    if (const json::value* data = error.find("data")) {
      answer.error->data = json::serialize(*data);
    }
    return answer;
  }
  const json::value* const result = value.get_object().if_contains("result");
  if (result == nullptr) {
    throw FormatError("neither \"result\" nor \"error\" is there");
  }
  answer.result = json::serialize(*result);
  return answer;
}

} // namespace gk::messages
