#include "app/client/Words.h"

#include "app/client/HostAddress.h"
#include "messages/json/Json.h"
#include "messages/json/JsonText.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace gk::app {

namespace {

constexpr std::array<std::string_view, 2> kOn = {"on", "yes"};
constexpr std::array<std::string_view, 2> kOff = {"off", "no"};

std::optional<boost::json::value> readJson(const std::string& word) {
  try {
    return messages::parseJson(word);
  } catch (const messages::FormatError&) {
    return std::nullopt;
  }
}

[[noreturn]] void refuse(const std::string& name, const char* wanted, const std::string& word) {
  throw ClientError(fmt::format("{}: takes {}, not {}", name, wanted, word));
}

} // namespace

bool isBoolWord(const std::string& word) {
  return std::ranges::find(kOn, word) != kOn.end() || std::ranges::find(kOff, word) != kOff.end();
}

std::string jsonOfWord(const std::string& word, const std::string& type, const std::string& name) {
  if (type == "bool" && isBoolWord(word)) {
    return std::ranges::find(kOn, word) != kOn.end() ? "true" : "false";
  }
  const std::optional<boost::json::value> value = readJson(word);
  if (type == "bool" && !(value && value->is_bool())) {
    refuse(name, "true or false, on or off", word);
  }
  if (type == "int") {
    const std::optional<std::int32_t> whole = messages::parseInt(word);
    if (!whole) {
      refuse(name, "a whole number of 32 bits", word);
    }
    return std::to_string(*whole);
  }
  // Such as {"float":"nan"}.
  if (type == "float" && !(value && (value->is_number() || value->is_object()))) {
    refuse(name, "a number", word);
  }
  if (value && type != "string") {
    return word;
  }
  std::string text;
  messages::appendJsonString(text, word);
  return text;
}

} // namespace gk::app
