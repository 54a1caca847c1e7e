#include "formats/compare/ValuePool.h"

#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"

#include <cmath>
#include <limits>

namespace gk::formats {

namespace {

using GK::GKValue;

} // namespace

ValuePool::Word ValuePool::word(const GKValue& value) {
  switch (value.type()) {
  case GKValue::Type::Bool:
    return xWord(value.type(), value.toBool() ? 1 : 0);
  case GKValue::Type::Int:
    return xWord(value.type(), static_cast<std::uint32_t>(value.toInt()));
  case GKValue::Type::Float: {
    const float number = value.toFloat();
    return xWord(value.type(),
                 std::bit_cast<std::uint32_t>(
                     std::isnan(number) ? std::numeric_limits<float>::quiet_NaN() : number));
  }
  case GKValue::Type::String:
  case GKValue::Type::Array: {
    std::string text;
    messages::appendJson(text, value);
    const auto [entry, isNew] =
        fNumbers.try_emplace(std::move(text), static_cast<std::uint32_t>(fTexts.size()));
    if (isNew) {
      fTexts.push_back(&entry->first);
    }
    return xWord(value.type(), entry->second);
  }
  case GKValue::Type::Invalid:
    break;
  }
  return xWord(GKValue::Type::Invalid, 0);
}

GKValue ValuePool::value(Word word) const {
  const auto bits = static_cast<std::uint32_t>(word);
  switch (typeOf(word)) {
  case GKValue::Type::Bool:
    return bits != 0;
  case GKValue::Type::Int:
    return static_cast<std::int32_t>(bits);
  case GKValue::Type::Float:
    return floatOf(word);
  case GKValue::Type::String:
  case GKValue::Type::Array:
    return messages::valueFromJson(messages::parseJson(xText(word)));
  case GKValue::Type::Invalid:
    break;
  }
  return {};
}

void ValuePool::appendJson(std::string& out, Word word) const {
  if (xIsLarge(word)) {
    out += xText(word);
  } else {
    messages::appendJson(out, value(word));
  }
}

int ValuePool::order(Word left, Word right) const {
  if (xIsLarge(left) && typeOf(left) == typeOf(right)) {
    return xText(left).compare(xText(right));
  }
  return left < right ? -1 : left > right ? 1 : 0;
}

bool SameWithin::xIsNear(ValuePool::Word left, ValuePool::Word right) const {
  const GKValue::Type type = ValuePool::typeOf(left);
  if (type != ValuePool::typeOf(right)) {
    return false;
  }
  if (type == GKValue::Type::Float) {
    return xIsNear(ValuePool::floatOf(left), ValuePool::floatOf(right));
  }
  return type == GKValue::Type::Array && xIsNear(fPool.value(left), fPool.value(right));
}

bool SameWithin::xIsNear(float left, float right) const {
  if (left == right || (std::isnan(left) && std::isnan(right))) {
    return true;
  }
  // Half of the distance to the next float, at most, is lost by reading a decimal number.
  constexpr double rounding = std::numeric_limits<float>::epsilon() / 2;
  const double most = fTolerance + rounding * (std::abs(double{left}) + std::abs(double{right}));
  const bool isLimited = std::isfinite(most);
  return !isExact() && isLimited && std::abs(double{left} - double{right}) <= most;
}

bool SameWithin::xIsNear(const GKValue& left, const GKValue& right) const {
  if (left.type() != right.type()) {
    return false;
  }
  if (left.type() == GKValue::Type::Float) {
    return xIsNear(left.toFloat(), right.toFloat());
  }
  if (left.type() != GKValue::Type::Array) {
    return left == right;
  }
  if (left.size() != right.size()) {
    return false;
  }
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (!xIsNear(left[i], right[i])) {
      return false;
    }
  }
  return true;
}

} // namespace gk::formats
