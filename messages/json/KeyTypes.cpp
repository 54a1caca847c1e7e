#include "messages/json/KeyTypes.h"

#include "messages/json/JsonText.h"
#include "messages/json/JsonValue.h"
#include "messages/text/Numbers.h"

#include <string>

namespace gk::messages {

namespace {

std::string describe(const boost::json::value& json) {
  if (json.is_double()) {
    return doubleText(json.get_double());
  }
  if (json.is_int64()) {
    return std::to_string(json.get_int64());
  }
  if (json.is_object()) {
    return "an object";
  }
  if (json.is_array()) {
    return "an array";
  }
  if (json.is_string()) {
    return quotedText({json.get_string().data(), json.get_string().size()});
  }
  if (json.is_bool()) {
    return json.get_bool() ? "true" : "false";
  }
  return "null";
}

GK::GKValue floatFromJson(const boost::json::value& json) {
  if (json.is_double()) {
    return toFloat(json.get_double());
  }
  if (json.is_int64()) {
    return toFloat(static_cast<double>(json.get_int64()));
  }
  if (json.is_object()) {
    return specialFloat(json.get_object());
  }
  throw FormatError("takes a float, not " + describe(json));
}

GK::GKValue intFromJson(const boost::json::value& json) {
  if (json.is_int64()) {
    return valueFromJson(json);
  }
  if (json.is_double()) {
    if (const auto value = toInt(json.get_double())) {
      return *value;
    }
  }
  throw FormatError("takes an int of 32 bits, not " + describe(json));
}

std::string describe(const GK::GKValue& value) {
  using Type = GK::GKValue::Type;
  if (value.type() == Type::Array) {
    return "an array";
  }
  if (value.type() == Type::String) {
    return quotedText(value.toString());
  }
  std::string text;
  appendJson(text, value);
  return text;
}

GK::GKValue floatFromValue(const GK::GKValue& value) {
  using Type = GK::GKValue::Type;
  if (value.type() == Type::Float || value.type() == Type::Int) {
    return value.toFloat();
  }
  throw FormatError("takes a float, not " + describe(value));
}

GK::GKValue intFromValue(const GK::GKValue& value) {
  using Type = GK::GKValue::Type;
  if (value.type() == Type::Int) {
    return value;
  }
  if (value.type() == Type::Float) {
    if (const auto whole = toInt(static_cast<double>(value.toFloat()))) {
      return *whole;
    }
  }
  throw FormatError("takes an int of 32 bits, not " + describe(value));
}

} // namespace

GK::GKValue valueForKey(KeyType type, const boost::json::value& json) {
  switch (type) {
  case KeyType::Float:
    return floatFromJson(json);
  case KeyType::Int:
    return intFromJson(json);
  case KeyType::Bool:
    if (!json.is_bool()) {
      throw FormatError("takes a bool, not " + describe(json));
    }
    break;
  case KeyType::Text:
    if (!json.is_string()) {
      throw FormatError("takes a string, not " + describe(json));
    }
    break;
  case KeyType::Any:
    break;
  }
  return valueFromJson(json);
}

GK::GKValue valueForKey(KeyType type, const GK::GKValue& value) {
  using Type = GK::GKValue::Type;
  switch (type) {
  case KeyType::Float:
    return floatFromValue(value);
  case KeyType::Int:
    return intFromValue(value);
  case KeyType::Bool:
    if (value.type() != Type::Bool) {
      throw FormatError("takes a bool, not " + describe(value));
    }
    break;
  case KeyType::Text:
    if (value.type() != Type::String) {
      throw FormatError("takes a string, not " + describe(value));
    }
    break;
  case KeyType::Any:
    break;
  }
  return value;
}

} // namespace gk::messages
