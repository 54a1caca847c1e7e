#include "messages/json/JsonValue.h"

#include "messages/text/Numbers.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

#include <cmath>
#include <limits>
#include <utility>

namespace gk::messages {

namespace {

constexpr std::string_view kFloatMember = "float";

std::string_view specialName(float value) {
  if (std::isnan(value)) {
    return "nan";
  }
  return value < 0.0F ? "-inf" : "inf";
}

template <class Int> GK::GKValue intFromJson(Int value) {
  if (!std::in_range<std::int32_t>(value)) {
    throw FormatError("the int " + std::to_string(value) + " is beyond 32 bits");
  }
  return static_cast<std::int32_t>(value);
}

} // namespace

std::optional<double> numberFromJson(const boost::json::value& json) {
  return json.is_int64()    ? std::optional(static_cast<double>(json.get_int64()))
         : json.is_double() ? std::optional(json.get_double())
                            : std::nullopt;
}

float specialFloat(const boost::json::object& json) {
  const boost::json::value* name = json.if_contains(kFloatMember);
  if (json.size() == 1 && name != nullptr && name->is_string()) {
    const boost::json::string& text = name->get_string();
    for (const float value :
         {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
          -std::numeric_limits<float>::infinity()}) {
      if (specialName(value) == std::string_view(text.data(), text.size())) {
        return value;
      }
    }
  }
  throw FormatError(R"(an object is no value, except {"float": "nan"}, "inf" or "-inf")");
}

GK::GKValue valueFromJson(const boost::json::value& json) {
  switch (json.kind()) {
  case boost::json::kind::null:
    return {};
  case boost::json::kind::bool_:
    return json.get_bool();
  case boost::json::kind::int64:
    return intFromJson(json.get_int64());
  case boost::json::kind::uint64:
    return intFromJson(json.get_uint64());
  case boost::json::kind::double_:
    return toFloat(json.get_double());
  case boost::json::kind::string:
    return std::string(json.get_string().data(), json.get_string().size());
  case boost::json::kind::array: {
    GK::GKValue::Array elements;
    elements.reserve(json.get_array().size());
    for (const boost::json::value& element : json.get_array()) {
      elements.push_back(valueFromJson(element));
    }
    return elements;
  }
  case boost::json::kind::object:
    return specialFloat(json.get_object());
  }
  throw FormatError("not a value");
}

void appendJson(std::string& out, const GK::GKValue& value) {
  switch (value.type()) {
  case GK::GKValue::Type::Invalid:
    out += "null";
    return;
  case GK::GKValue::Type::Bool:
    out += value.toBool() ? "true" : "false";
    return;
  case GK::GKValue::Type::Int:
    out += std::to_string(value.toInt());
    return;
  case GK::GKValue::Type::Float:
    if (const float number = value.toFloat(); std::isfinite(number)) {
      appendFloat(out, number);
    } else {
      out += R"({"float":")";
      out += specialName(number);
      out += R"("})";
    }
    return;
  case GK::GKValue::Type::String:
    appendJsonString(out, value.toString());
    return;
  case GK::GKValue::Type::Array: {
    const char* separator = "[";
    for (const GK::GKValue& element : value.toArray()) {
      out += separator;
      appendJson(out, element);
      separator = ",";
    }
    out += value.size() == 0 ? "[]" : "]";
    return;
  }
  }
}

} // namespace gk::messages
