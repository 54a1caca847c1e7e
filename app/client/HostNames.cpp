#include "app/client/HostNames.h"

#include "formats/text/NamePattern.h"
#include "formats/text/NearestNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

namespace gk::app {

namespace {

namespace json = boost::json;

constexpr const char* kMemory = "/api/v1/memory";
constexpr const char* kEvents = "/api/v1/events";

/// All pages of a list, each entry by `take`. `target` ends in "after=".
template <class Take>
void takeAll(HostClient& client, const std::string& target, const char* list, const Take& take) {
  std::string after;
  do {
    const json::value page = client.getJson(target + escapedPath(after));
    for (json::value& entry : client.listOf(page, list)) {
      take(std::move(entry));
    }
    after = textMember(page, "next");
  } while (!after.empty());
}

/// The keys whose names contain `part`, and fit `word`.
std::vector<json::value> listKeys(HostClient& client, const std::string& part,
                                  const std::string& word) {
  std::vector<json::value> entries;
  takeAll(client, fmt::format("{}?limit=1000&contains={}&after=", kMemory, escapedPath(part)),
          "keys", [&](json::value entry) {
            if (formats::isMeant(textMember(entry, "key"), word)) {
              entries.push_back(std::move(entry));
            }
          });
  return entries;
}

std::vector<std::string> namesOf(const std::vector<json::value>& entries, const char* member) {
  std::vector<std::string> names;
  names.reserve(entries.size());
  for (const json::value& entry : entries) {
    names.push_back(textMember(entry, member));
  }
  return names;
}

/// What is said of a word that means nothing.
std::string missing(const char* what, const std::string& word,
                    const std::vector<std::string>& names) {
  return formats::isPattern(word)
             ? fmt::format("no {} matches {}", what, word)
             : fmt::format("there is no {} {}{}", what, word,
                           formats::didYouMean(formats::nearestNames(word, names)));
}

} // namespace

std::string keyTarget(const std::string& key) {
  return std::string(kMemory) + "/" + escapedPath(key);
}

std::optional<json::value> findKey(HostClient& client, const std::string& name) {
  try {
    return client.getJson(keyTarget(name));
  } catch (const UnknownName&) {
    return std::nullopt;
  }
}

std::vector<json::value> keysLike(HostClient& client, const std::string& word) {
  std::vector<json::value> entries =
      listKeys(client, formats::isPattern(word) ? std::string() : word, word);
  if (entries.empty() && !word.empty()) {
    const std::vector<json::value> all = listKeys(client, {}, {});
    throw UnknownName(missing("key", word, namesOf(all, "key")));
  }
  return entries;
}

std::vector<json::value> keysNamed(HostClient& client, const std::vector<std::string>& words) {
  std::vector<json::value> entries;
  std::set<std::string> names;
  const auto add = [&](json::value entry) {
    if (names.insert(textMember(entry, "key")).second) {
      entries.push_back(std::move(entry));
    }
  };
  for (const std::string& word : words) {
    if (word.empty()) {
      throw UnknownName("a key's name is empty");
    }
    if (std::optional<json::value> key = findKey(client, word)) {
      add(*std::move(key));
    } else {
      std::ranges::for_each(keysLike(client, word), add);
    }
  }
  return entries;
}

std::vector<json::value> eventsOf(HostClient& client) {
  std::vector<json::value> events;
  takeAll(client, std::string(kEvents) + "?after=", "events",
          [&events](json::value event) { events.push_back(std::move(event)); });
  return events;
}

std::optional<json::value> findEvent(HostClient& client, const std::string& name) {
  for (json::value& event : eventsOf(client)) {
    if (textMember(event, "name") == name) {
      return std::optional(std::move(event));
    }
  }
  return std::nullopt;
}

std::string missingFact(HostClient& client, const std::string& name) {
  std::set<std::string> names;
  for (const json::value& event : eventsOf(client)) {
    names.insert(textMember(event, "name"));
  }
  for (const json::value& key : keysLike(client, {})) {
    names.insert(textMember(key, "key"));
  }
  return missing("module, event or key", name, {names.begin(), names.end()});
}

std::string missingEvent(HostClient& client, const std::string& word) {
  if (word.empty()) {
    return {};
  }
  const std::vector<std::string> names = namesOf(eventsOf(client), "name");
  const bool isThere = std::ranges::any_of(
      names, [&word](const std::string& name) { return formats::isMeant(name, word); });
  return isThere ? std::string() : missing("event", word, names);
}

} // namespace gk::app
