#pragma once

#include "gk/GKValue.h"
#include "messages/json/JsonText.h"
#include "messages/json/JsonValue.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace gk::messages {

/// Appends JSON to a string, without white space; puts the commas. Members come out in the order of
/// the calls. For one thread.
class JsonWriter {
public:
  explicit JsonWriter(std::string& out) : fOut(out) {}

  JsonWriter& beginObject() { return xBegin('{'); }
  JsonWriter& endObject() { return xEnd('}'); }
  JsonWriter& beginArray() { return xBegin('['); }
  JsonWriter& endArray() { return xEnd(']'); }

  /// The name of the member whose value comes next.
  JsonWriter& key(std::string_view name) {
    xComma();
    appendJsonString(fOut, name);
    fOut += ':';
    fNeedsComma = false;
    return *this;
  }

  JsonWriter& text(std::string_view value) {
    xComma();
    appendJsonString(fOut, value);
    return *this;
  }
  JsonWriter& integer(std::int64_t value) { return raw(std::to_string(value)); }
  JsonWriter& unsignedInteger(std::uint64_t value) { return raw(std::to_string(value)); }
  /// With the fewest digits that read back to the same number; null when it is not finite.
  JsonWriter& real(double value) {
    if (!std::isfinite(value)) {
      return null();
    }
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    return raw({digits.data(), static_cast<std::size_t>(end - digits.data())});
  }
  JsonWriter& boolean(bool value) { return raw(value ? "true" : "false"); }
  JsonWriter& null() { return raw("null"); }
  /// As in recordings: {"float":"nan"} and its like stand for what JSON has no number for.
  JsonWriter& value(const GK::GKValue& value) {
    xComma();
    appendJson(fOut, value);
    return *this;
  }
  /// What `write` appends of a value, which it is given; null where there is none.
  template <class Value, class Write>
  JsonWriter& optional(const std::optional<Value>& value, const Write& write) {
    if (value) {
      write(*value);
      return *this;
    }
    return null();
  }
  /// Text that is JSON already.
  JsonWriter& raw(std::string_view json) {
    xComma();
    fOut += json;
    return *this;
  }

private:
  JsonWriter& xBegin(char bracket) {
    xComma();
    fOut += bracket;
    fNeedsComma = false;
    return *this;
  }
  JsonWriter& xEnd(char bracket) {
    fOut += bracket;
    fNeedsComma = true;
    return *this;
  }
  void xComma() {
    if (fNeedsComma) {
      fOut += ',';
    }
    fNeedsComma = true;
  }

  std::string& fOut;
  bool fNeedsComma = false;
};

} // namespace gk::messages
