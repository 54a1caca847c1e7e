#include "app/ask/AskCommands.h"
#include "app/client/HostClient.h"
#include "app/client/HostNames.h"
#include "app/client/Words.h"
#include "app/terminal/Table.h"
#include "formats/text/NearestNames.h"
#include "formats/text/Printable.h"
#include "messages/json/Json.h"
#include "messages/json/JsonText.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/FormatError.h"

#include <boost/json/object.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

void printEntries(const std::vector<json::value>& entries, bool isJson) {
  if (isJson) {
    std::string text = "{";
    for (const json::value& entry : entries) {
      text += text.size() > 1 ? "," : "";
      messages::appendJsonString(text, textMember(entry, "key"));
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

int getKeys(const ClientOptions& options, const std::vector<std::string>& words) {
  HostClient client(options);
  printEntries(keysNamed(client, words), options.isJson);
  return kSuccess;
}

/// What a key takes: what device layers give it; else a bool where it is one at present. Nothing
/// keeps a key from becoming something else.
std::string typeOfKey(const std::optional<json::value>& key, const std::string& name,
                      const std::string& word) {
  if (messages::keyTypeOf(name) != messages::KeyType::Any) {
    return std::string(messages::typeName(messages::keyTypeOf(name)));
  }
  const bool isBool = key && textMember(*key, "type") == "bool";
  return isBool && isBoolWord(word) ? "bool" : "";
}

/// A new key is as good as any, and may be a slip.
void tellOfNewKey(HostClient& client, const std::string& name) {
  std::vector<std::string> names;
  for (const json::value& key : keysLike(client, {})) {
    if (textMember(key, "key") != name) {
      names.push_back(textMember(key, "key"));
    }
  }
  fmt::print(stderr, "gk: {}\n",
             formats::printable(name + " is a new key" +
                                formats::didYouMean(formats::nearestNames(name, names))));
}

/// Writes a key; returns its entry. Raises `ClientError`, which tells the key.
json::value writeKey(HostClient& client, const std::string& name, const std::string& value) {
  try {
    return messages::parseJson(client.put(keyTarget(name), value));
  } catch (const UnknownName&) {
    throw;
  } catch (const ClientError& error) {
    const std::string what = error.what();
    throw ClientError(what.starts_with(name) || error.status() == 0 ? what : name + ": " + what,
                      error.status());
  }
}

int setKey(const ClientOptions& options, const std::string& name, const std::string& word) {
  HostClient client(options);
  const std::optional<json::value> former = findKey(client, name);
  const json::value entry =
      writeKey(client, name, jsonOfWord(word, typeOfKey(former, name, word), name));
  printEntries({entry}, options.isJson);
  if (!former) {
    tellOfNewKey(client, name);
  }
  return kSuccess;
}

/// What `gk get --json` has written. Raises `FormatError`.
json::object readKeys(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file.is_open() || file.bad()) {
    throw messages::FormatError("cannot be read");
  }
  const json::value keys = messages::parseJson(text);
  if (!keys.is_object()) {
    throw messages::FormatError("is no object of keys and values, as gk get --json writes it");
  }
  return keys.get_object();
}

int setFile(const ClientOptions& options, const std::string& path) {
  json::object keys;
  try {
    keys = readKeys(path);
  } catch (const messages::FormatError& error) {
    fmt::print(stderr, "gk: --file: {}: {}\n", path, error.what());
    return kBadInput;
  }
  HostClient client(options);
  std::vector<json::value> entries;
  for (const auto& key : keys) {
    const std::string name(key.key().data(), key.key().size());
    try {
      entries.push_back(writeKey(client, name, valueText(key.value())));
    } catch (const ClientError& error) {
      throw ClientError(fmt::format("{} (key {} of {}; those before it were written)", error.what(),
                                    entries.size() + 1, keys.size()),
                        error.status());
    }
  }
  printEntries(entries, options.isJson);
  return kSuccess;
}

int listKeys(const ClientOptions& options, const std::string& word) {
  HostClient client(options);
  try {
    printEntries(keysLike(client, word), options.isJson);
  } catch (const UnknownName&) {
    if (options.isJson) {
      printEntries(std::vector<json::value>(), true);
    }
    throw;
  }
  return kSuccess;
}

} // namespace

void addGetCommand(const Command& program) {
  const Command command = program.subcommand("get", "Show the values of memory keys");
  auto options = std::make_shared<ClientOptions>();
  auto keys = std::make_shared<std::vector<std::string>>();
  command.option("KEY", *keys, kKeyPatterns).required().shows("");
  addClientOptions(command, *options);
  command.does([=] { return runClient([&] { return getKeys(*options, *keys); }); });
}

void addSetCommand(const Command& program) {
  const Command command = program.subcommand("set", "Write a memory key");
  struct SetOptions {
    ClientOptions client;
    std::string key;
    std::string value;
    std::string file;
    bool isComplete = false;
  };
  auto options = std::make_shared<SetOptions>();
  const Option key = command.option("KEY", options->key, "The key").shows("");
  command.option("VALUE", options->value, "A number, true, false, on, off, a text, or JSON")
      .shows("")
      .whenGiven([raw = options.get()] { raw->isComplete = true; });
  command.option("--file", options->file, "Write all keys of a file that gk get --json has written")
      .shows("FILE")
      .excludes(key);
  addClientOptions(command, options->client);
  command.does([options] {
    if (!options->isComplete && options->file.empty()) {
      fmt::print(stderr, "gk: KEY and VALUE, or --file, are required; gk help set tells more\n");
      return static_cast<int>(kBadInput);
    }
    return runClient([&] {
      return options->file.empty() ? setKey(options->client, options->key, options->value)
                                   : setFile(options->client, options->file);
    });
  });
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
