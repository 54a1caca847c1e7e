#include "app/ask/AskCommands.h"
#include "app/ask/FirstLine.h"
#include "app/client/HostClient.h"
#include "app/client/HostNames.h"
#include "devices/meaning/EventWords.h"
#include "formats/text/Printable.h"
#include "messages/json/JsonText.h"
#include "messages/json/JsonValue.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

std::string signature(const json::value& method) {
  std::string text = textMember(method, "name") + "(";
  const char* separator = "";
  for (const json::value& param : listMember(method, "params")) {
    text += separator + textMember(param, "type") + " " + textMember(param, "name");
    separator = ", ";
  }
  const std::string result = textMember(member(method, "result"), "type");
  return text + (result.empty() ? ")" : ") -> " + result);
}

/// Who declares a method, where that is not the module itself but what it is made of.
std::string origin(const json::value& method, const json::value& module) {
  const std::string declarer = textMember(method, "module");
  const bool isOwn = declarer.empty() || declarer == textMember(module, "name");
  return isOwn ? std::string() : "  (of " + declarer + ")";
}

void showModule(const json::value& module) {
  fmt::print("{} {}\n{}\n\nMethods:\n", textMember(module, "name"), textMember(module, "version"),
             textMember(module, "description"));
  for (const json::value& method : listMember(module, "methods")) {
    fmt::print("  {}{}\n      {}\n", signature(method), origin(method, module),
               firstLineOf(textMember(method, "description")));
    for (const json::value& param : listMember(method, "params")) {
      fmt::print("      {}: {}\n", textMember(param, "name"), textMember(param, "description"));
    }
  }
  const std::vector<json::value> events = listMember(module, "events");
  fmt::print("{}", events.empty() ? "" : "\nEvents:\n");
  for (const json::value& event : events) {
    const std::string_view text(event.get_string().data(), event.get_string().size());
    fmt::print("  {}\n", formats::printable(text));
  }
}

/// One property; nothing where there is none.
void showLine(const char* label, const std::string& text) {
  if (!text.empty()) {
    fmt::print("  {:<8} {}\n", label, formats::printable(text));
  }
}

void showMeaning(const std::string& name) {
  if (const devices::EventWords* words = devices::findEventWords(name)) {
    showLine("meaning", std::string(words->meaning));
    showLine("unit", std::string(words->unit));
  }
}

void showEvent(const std::string& name, const json::value& event) {
  const std::string owner = textMember(event, "owner");
  fmt::print("{}, an event{}\n", formats::printable(name),
             owner.empty() ? "" : " of " + formats::printable(owner));
  showMeaning(name);
  const double count = numberMember(event, "count");
  showLine("raised", count > 0 ? fmt::format("{:.0f} time{}, last at {:.3f} s", count,
                                             count > 1 ? "s" : "", numberMember(event, "t_s"))
                               : "not yet");
  showLine("last", count > 0 ? valueText(member(event, "value")) : "");
  showLine("says",
           count > 0 ? devices::eventSentence(name, messages::valueFromJson(member(event, "value")))
                     : "");
}

void showKey(const std::string& name, const json::value& key) {
  fmt::print("{}, a key\n", formats::printable(name));
  if (const messages::DeviceKey* device = messages::findDeviceKey(name)) {
    showLine("meaning", std::string(device->meaning));
    showLine("unit", std::string(device->unit));
    showLine("range", device->range
                          ? fmt::format("{:g} to {:g}", device->range->least, device->range->most)
                          : "");
  } else {
    showMeaning(name);
  }
  showLine("type", textMember(key, "type"));
  showLine("now", valueText(member(key, "value")));
}

std::string eventJson(const std::string& name, const json::value& event) {
  std::string text = R"({"name":)";
  messages::appendJsonString(text, name);
  messages::appendJsonString(text += R"(,"owner":)", textMember(event, "owner"));
  return text + fmt::format(R"(,"count":{:.0f},"value":{},"t_s":{}}})",
                            numberMember(event, "count"), valueText(member(event, "value")),
                            member(event, "t_s").is_null()
                                ? "null"
                                : messages::doubleText(numberMember(event, "t_s")));
}

/// An event leaves its last value under its own name: both are told.
int describeFact(HostClient& client, const ClientOptions& options, const std::string& name,
                 const UnknownName& noModule) {
  const std::optional<json::value> event = findEvent(client, name);
  const std::optional<json::value> key = findKey(client, name);
  if (!event && !key) {
    const std::string what = noModule.what();
    throw UnknownName(what.ends_with('?') ? what : missingFact(client, name));
  }
  if (options.isJson) {
    fmt::print("{{{}{}{}}}\n", event ? R"("event":)" + eventJson(name, *event) : "",
               event && key ? "," : "", key ? R"("key":)" + client.get(keyTarget(name)) : "");
    return kSuccess;
  }
  if (event) {
    showEvent(name, *event);
  }
  if (key && (!event || numberMember(*event, "count") <= 0)) {
    showKey(name, *key);
  }
  return kSuccess;
}

int describe(const ClientOptions& options, const std::string& name) {
  HostClient client(options);
  const std::string target = "/api/v1/modules/" + escapedPath(name);
  try {
    if (options.isJson) {
      fmt::print("{}\n", client.get(target));
    } else {
      showModule(client.getJson(target));
    }
    return kSuccess;
  } catch (const UnknownName& error) {
    return describeFact(client, options, name, error);
  }
}

} // namespace

void addDescribeCommand(const Command& program) {
  const Command command = program.subcommand(
      "describe",
      "Show what a module's methods take, or what an event or a key tells: meaning, unit, range");
  auto options = std::make_shared<ClientOptions>();
  auto name = std::make_shared<std::string>();
  command.option("NAME", *name, "The module, event or key").required().shows("");
  addClientOptions(command, *options);
  command.does([options, name] { return runClient([&] { return describe(*options, *name); }); });
}

} // namespace gk::app
