#include "gk/test/Matchers.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace gk::test {

namespace {

std::string floatText(float value) {
  if (std::isnan(value)) {
    return "nan"; // whatever its sign
  }
  char digits[64];
  const std::string text(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
  return text.find_first_of(".en") == std::string::npos ? text + ".0" : text;
}

bool isNumber(const GK::GKValue& value) {
  return value.type() == GK::GKValue::Type::Int || value.type() == GK::GKValue::Type::Float;
}

} // namespace

std::string textOf(const GK::GKValue& value) {
  switch (value.type()) {
  case GK::GKValue::Type::Invalid:
    return "invalid";
  case GK::GKValue::Type::Bool:
    return value.toBool() ? "true" : "false";
  case GK::GKValue::Type::Int:
    return std::to_string(value.toInt());
  case GK::GKValue::Type::Float:
    return floatText(value.toFloat());
  case GK::GKValue::Type::String:
    return "\"" + value.toString() + "\"";
  case GK::GKValue::Type::Array:
    break;
  }
  std::string text = "[";
  for (const GK::GKValue& element : value.toArray()) {
    text += (text.size() > 1 ? ", " : "") + textOf(element);
  }
  return text + "]";
}

bool isSame(const GK::GKValue& one, const GK::GKValue& other) {
  if (one.type() == GK::GKValue::Type::Int && other.type() == GK::GKValue::Type::Int) {
    return one.toInt() == other.toInt();
  }
  if (isNumber(one) && isNumber(other)) {
    return one.toFloat() == other.toFloat() ||
           (std::isnan(one.toFloat()) && std::isnan(other.toFloat()));
  }
  if (one.type() == GK::GKValue::Type::Array && other.type() == GK::GKValue::Type::Array) {
    return std::ranges::equal(one.toArray(), other.toArray(), isSame);
  }
  return one == other;
}

} // namespace gk::test
