#include "formats/lines/TestLine.h"

#include "formats/lines/ExpectationObject.h"
#include "formats/lines/LineTime.h"
#include "messages/json/Json.h"
#include "messages/json/JsonText.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

#include <string>

namespace gk::formats {

namespace {

namespace json = boost::json;

constexpr std::string_view kExpect = "expect";
constexpr std::string_view kNever = "never";
constexpr std::string_view kEnd = "end";
constexpr std::string_view kOptions = "options";

std::string_view viewOf(json::string_view text) {
  return {text.data(), text.size()};
}

FileOptions readOptions(const json::object& line) {
  FileOptions options;
  for (const json::key_value_pair& member : line) {
    const std::string_view name = viewOf(member.key());
    const json::value& value = member.value();
    if (name == kOptions) {
      if (!value.is_array()) {
        throw messages::FormatError("\"options\" takes an array of strings");
      }
      for (const json::value& word : value.get_array()) {
        if (!word.is_string()) {
          throw messages::FormatError("\"options\" takes an array of strings");
        }
        options.words.emplace_back(viewOf(word.get_string()));
      }
    } else if (name == "exit") {
      constexpr int most = 255;
      if (!value.is_int64() || value.get_int64() < 0 || value.get_int64() > most) {
        throw messages::FormatError("\"exit\" of options takes an exit code, 0 to 255");
      }
      options.exit = static_cast<int>(value.get_int64());
    } else if (name == "error" || name == "stdout") {
      if (!value.is_string()) {
        throw messages::FormatError(messages::quotedText(name) + " takes a string");
      }
      (name == "error" ? options.error : options.out.emplace()) = viewOf(value.get_string());
    } else {
      throw messages::FormatError("a line of options has no " + messages::quotedText(name));
    }
  }
  return options;
}

/// What makes the line one of these; empty for another line.
std::string_view testKindOf(const json::object& line) {
  for (const std::string_view kind : {kOptions, kExpect, kNever, kEnd}) {
    if (line.contains(kind)) {
      return kind;
    }
  }
  return {};
}

} // namespace

bool mayBeTestLine(std::string_view text) {
  // Escapes may spell anything.
  for (const std::string_view word : {kExpect, kNever, kEnd, kOptions, std::string_view("\\u")}) {
    if (text.find(word) != std::string_view::npos) {
      return true;
    }
  }
  return false;
}

std::optional<TestLine> readTestLine(std::string_view text) {
  const json::value value = messages::parseJson(text);
  if (!value.is_object()) {
    throw messages::FormatError("a line is an object");
  }
  const json::object& object = value.get_object();
  const std::string_view kind = testKindOf(object);
  if (kind.empty()) {
    return std::nullopt;
  }
  if (kind == kOptions) {
    return TestLine{std::nullopt, readOptions(object)};
  }
  for (const json::key_value_pair& member : object) {
    const std::string_view name = viewOf(member.key());
    if (name != kTimeMember && name != kind) {
      throw messages::FormatError(messages::quotedText(kind) +
                                  " stands in a line of its own, without " +
                                  messages::quotedText(name));
    }
  }
  TestLine line;
  line.time = lineTime(object);
  if (kind == kEnd) {
    const json::value& end = object.at(kEnd);
    if (!end.is_bool() || !end.get_bool()) {
      throw messages::FormatError("\"end\" takes true");
    }
    if (!line.time) {
      throw messages::FormatError("\"end\" needs a time \"t\"");
    }
    line.what = EndMark{};
    return line;
  }
  line.what = readExpectation(kind, object.at(kind), line.time.has_value());
  return line;
}

bool isExpectation(std::string_view text) {
  if (!mayBeTestLine(text)) {
    return false;
  }
  try {
    const json::value value = messages::parseJson(text);
    return value.is_object() &&
           (value.get_object().contains(kExpect) || value.get_object().contains(kNever));
  } catch (const messages::FormatError&) {
    return false;
  }
}

} // namespace gk::formats
