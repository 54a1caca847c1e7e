#include "formats/lines/ScenarioLine.h"

#include "formats/lines/LineTime.h"
#include "formats/lines/OperationNames.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

#include <algorithm>
#include <array>
#include <limits>
#include <string>

namespace gk::formats {

namespace {

namespace json = boost::json;

std::string_view view(json::string_view text) {
  return {text.data(), text.size()};
}

std::string textOf(const json::value& value, std::string_view what) {
  if (!value.is_string()) {
    throw messages::FormatError(std::string(what) + " takes a string");
  }
  return std::string(view(value.get_string()));
}

std::vector<std::string> textsOf(const json::value& value, std::string_view what) {
  if (!value.is_array()) {
    throw messages::FormatError(std::string(what) + " takes an array of strings");
  }
  std::vector<std::string> texts;
  for (const json::value& element : value.get_array()) {
    if (!element.is_string()) {
      throw messages::FormatError(std::string(what) + " takes an array of strings");
    }
    texts.emplace_back(view(element.get_string()));
  }
  return texts;
}

/// An optional int member of "fail".
std::int32_t countOf(const json::object& object, std::string_view member, std::int32_t least,
                     std::int32_t absent) {
  const json::value* value = object.if_contains(member);
  if (value == nullptr) {
    return absent;
  }
  if (!value->is_int64() || value->get_int64() < least ||
      value->get_int64() > std::numeric_limits<std::int32_t>::max()) {
    throw messages::FormatError("\"fail\": " + messages::quotedText(member) +
                                " takes an int of 32 bits from " + std::to_string(least) + " on");
  }
  return static_cast<std::int32_t>(value->get_int64());
}

Action parseSet(const json::value& value, const json::object&,
                const messages::KeyTypeOf& keyTypeOf) {
  if (!value.is_object()) {
    throw messages::FormatError("\"set\" takes an object of keys and values");
  }
  SetAction action;
  for (const json::key_value_pair& member : value.get_object()) {
    const std::string_view key = view(member.key());
    try {
      action.values.emplace_back(key, messages::valueForKey(keyTypeOf(key), member.value()));
    } catch (const messages::FormatError& error) {
      throw messages::FormatError("key " + messages::quotedText(key) + ": " + error.what());
    }
  }
  return action;
}

Action parseUnset(const json::value& value, const json::object&, const messages::KeyTypeOf&) {
  return UnsetAction{textsOf(value, "\"unset\"")};
}

Action parseCall(const json::value& value, const json::object& line, const messages::KeyTypeOf&) {
  const std::string name = textOf(value, "\"call\"");
  const std::size_t dot = name.find('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) {
    throw messages::FormatError("\"call\": " + messages::quotedText(name) +
                                " is not \"Module.method\"");
  }
  CallAction action{name.substr(0, dot), name.substr(dot + 1), {}, name};
  if (const json::value* args = line.if_contains("args")) {
    if (!args->is_array()) {
      throw messages::FormatError("\"args\" takes an array of values");
    }
    for (const json::value& argument : args->get_array()) {
      try {
        action.args.push_back(messages::valueFromJson(argument));
      } catch (const messages::FormatError& error) {
        throw messages::FormatError("\"args\": " + std::string(error.what()));
      }
    }
  }
  if (const json::value* label = line.if_contains("as")) {
    action.label = textOf(*label, "\"as\"");
  }
  return action;
}

Action parseGet(const json::value& value, const json::object&, const messages::KeyTypeOf&) {
  return GetAction{textsOf(value, "\"get\"")};
}

Action parseGetOutput(const json::value& value, const json::object&, const messages::KeyTypeOf&) {
  return GetOutputAction{textOf(value, "\"getOutput\"")};
}

Action parseFail(const json::value& value, const json::object&, const messages::KeyTypeOf&) {
  constexpr std::array<std::string_view, 4> members{"operation", "key", "after", "count"};
  if (!value.is_object()) {
    throw messages::FormatError("\"fail\" takes an object");
  }
  const json::object& object = value.get_object();
  for (const json::key_value_pair& member : object) {
    if (std::ranges::find(members, view(member.key())) == members.end()) {
      throw messages::FormatError("\"fail\": unknown member " +
                                  messages::quotedText(view(member.key())));
    }
  }
  const json::value* operation = object.if_contains("operation");
  if (operation == nullptr) {
    throw messages::FormatError("\"fail\" has no \"operation\"");
  }
  const std::string name = textOf(*operation, "\"fail\": \"operation\"");
  const std::optional<GK::GKOperation> found = findOperation(name);
  if (!found) {
    throw messages::FormatError("\"fail\": unknown operation " + messages::quotedText(name));
  }
  FailAction action;
  action.operation = *found;
  if (const json::value* key = object.if_contains("key")) {
    if (!operationHasKey(*found)) {
      throw messages::FormatError("\"fail\": operation " + messages::quotedText(name) +
                                  " has no \"key\"");
    }
    action.key = textOf(*key, "\"fail\": \"key\"");
  }
  action.after = countOf(object, "after", 0, action.after);
  action.count = countOf(object, "count", FailAction::kForever, action.count);
  return action;
}

Action parseExit(const json::value& value, const json::object&, const messages::KeyTypeOf&) {
  if (!value.is_bool() || !value.get_bool()) {
    throw messages::FormatError("\"exit\" takes true");
  }
  return ExitAction{};
}

enum class Allowed { Before, After, Always };

struct Kind {
  std::string_view name;
  Allowed allowed;
  Action (*parse)(const json::value& value, const json::object& line,
                  const messages::KeyTypeOf& keyTypeOf);
};

constexpr Kind kKinds[] = {
    {"set", Allowed::Always, parseSet},
    {"unset", Allowed::Before, parseUnset},
    {"call", Allowed::After, parseCall},
    {"get", Allowed::After, parseGet},
    {"getOutput", Allowed::After, parseGetOutput},
    {"fail", Allowed::Always, parseFail},
    {"exit", Allowed::After, parseExit},
};

constexpr std::string_view kCallMembers[] = {"args", "as"};

/// The one action that a line names. Members that belong to none are refused.
const Kind& kindOf(const json::object& line) {
  const Kind* kind = nullptr;
  for (const json::key_value_pair& member : line) {
    const Kind* found = std::ranges::find(kKinds, view(member.key()), &Kind::name);
    if (found == std::end(kKinds)) {
      continue;
    }
    if (kind != nullptr) {
      throw messages::FormatError("two actions in a line, " + messages::quotedText(kind->name) +
                                  " and " + messages::quotedText(found->name));
    }
    kind = found;
  }
  for (const json::key_value_pair& member : line) {
    const std::string_view name = view(member.key());
    const bool isOfCall = kind != nullptr && kind->name == "call" &&
                          std::ranges::find(kCallMembers, name) != std::end(kCallMembers);
    if (name != kTimeMember && !isOfCall && (kind == nullptr || name != kind->name)) {
      throw messages::FormatError("unknown action or member " + messages::quotedText(name));
    }
  }
  if (kind == nullptr) {
    throw messages::FormatError("the line has no action");
  }
  return *kind;
}

} // namespace

bool isScenarioComment(std::string_view text) {
  return text.starts_with('#') || text.find_first_not_of(" \t") == std::string_view::npos;
}

ScenarioLine parseScenarioLine(std::string_view text, const messages::KeyTypeOf& keyTypeOf) {
  const json::value value = messages::parseJson(text);
  if (!value.is_object()) {
    throw messages::FormatError("a line is an object");
  }
  const json::object& line = value.get_object();
  const std::optional<double> time = lineTime(line);
  const Kind& kind = kindOf(line);
  if (!time && kind.allowed == Allowed::After) {
    throw messages::FormatError(messages::quotedText(kind.name) + " needs a time \"t\"");
  }
  if (time && kind.allowed == Allowed::Before) {
    throw messages::FormatError(messages::quotedText(kind.name) +
                                " takes no time: it comes before loading");
  }
  return {time, kind.parse(line.at(kind.name), line, keyTypeOf)};
}

} // namespace gk::formats
