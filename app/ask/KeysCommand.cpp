#include "app/ask/AskCommands.h"
#include "app/client/HostClient.h"
#include "app/terminal/Table.h"
#include "formats/json/Json.h"
#include "formats/json/JsonText.h"
#include "formats/text/FormatError.h"

#include <fmt/format.h>

#include <fnmatch.h>
#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

constexpr const char* kMemory = "/api/v1/memory";

/// As JSON if it is some, else as text.
std::string asJson(const std::string& word) {
  try {
    formats::parseJson(word);
    return word;
  } catch (const formats::FormatError&) {
    std::string text;
    formats::appendJsonString(text, word);
    return text;
  }
}

void print(const std::vector<json::value>& entries, bool isJson) {
  if (isJson) {
    std::string text = "{";
    for (const json::value& entry : entries) {
      text += text.size() > 1 ? "," : "";
      formats::appendJsonString(text, textMember(entry, "key"));
      text += ":" + valueText(member(entry, "value"));
    }
    fmt::print("{}}}\n", text);
    return;
  }
  std::vector<std::vector<std::string>> rows{{"KEY", "VALUE", "UNIT"}};
  for (const json::value& entry : entries) {
    rows.push_back(
        {textMember(entry, "key"), valueText(member(entry, "value")), textMember(entry, "unit")});
  }
  fmt::print("{}", tableText(rows));
}

int getKeys(const ClientOptions& options, const std::vector<std::string>& keys) {
  HostClient client(options);
  std::vector<json::value> entries;
  entries.reserve(keys.size());
  for (const std::string& key : keys) {
    entries.push_back(client.getJson(std::string(kMemory) + "/" + escapedPath(key)));
  }
  print(entries, options.isJson);
  return kSuccess;
}

int setKey(const ClientOptions& options, const std::string& key, const std::string& value) {
  HostClient client(options);
  const json::value entry =
      formats::parseJson(client.put(std::string(kMemory) + "/" + escapedPath(key), asJson(value)));
  print({entry}, options.isJson);
  return kSuccess;
}

int listKeys(const ClientOptions& options, const std::string& pattern) {
  HostClient client(options);
  const bool isGlob = pattern.find_first_of("*?[") != std::string::npos;
  std::vector<json::value> entries;
  std::string after;
  while (true) {
    const json::value page = client.getJson(
        fmt::format("{}?limit=1000&contains={}&after={}", kMemory,
                    isGlob ? std::string() : escapedPath(pattern), escapedPath(after)));
    for (json::value& entry : client.listOf(page, "keys")) {
      if (!isGlob || fnmatch(pattern.c_str(), textMember(entry, "key").c_str(), 0) == 0) {
        entries.push_back(std::move(entry));
      }
    }
    after = textMember(page, "next");
    if (after.empty()) {
      break;
    }
  }
  print(entries, options.isJson);
  return kSuccess;
}

} // namespace

void addGetCommand(const Command& program) {
  const Command command = program.subcommand("get", "Show the values of memory keys");
  auto options = std::make_shared<ClientOptions>();
  auto keys = std::make_shared<std::vector<std::string>>();
  command.option("KEY", *keys, "The keys").required().shows("");
  addClientOptions(command, *options);
  command.does([=] { return runClient([&] { return getKeys(*options, *keys); }); });
}

void addSetCommand(const Command& program) {
  const Command command = program.subcommand("set", "Write a memory key");
  auto options = std::make_shared<ClientOptions>();
  auto key = std::make_shared<std::string>();
  auto value = std::make_shared<std::string>();
  command.option("KEY", *key, "The key").required().shows("");
  command.option("VALUE", *value, "A number, true, false, a text, or JSON").required().shows("");
  addClientOptions(command, *options);
  command.does([=] { return runClient([&] { return setKey(*options, *key, *value); }); });
}

void addKeysCommand(const Command& program) {
  const Command command = program.subcommand("keys", "List memory keys and their values");
  auto options = std::make_shared<ClientOptions>();
  auto pattern = std::make_shared<std::string>();
  command.option("PATTERN", *pattern, "A part of the keys' names, or a pattern with * and ?")
      .shows("");
  addClientOptions(command, *options);
  command.does([=] { return runClient([&] { return listKeys(*options, *pattern); }); });
}

} // namespace gk::app
