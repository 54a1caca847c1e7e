#include "formats/lines/ExpectedValue.h"

#include <algorithm>
#include <cmath>

namespace gk::formats {

namespace {

using Type = GK::GKValue::Type;

std::optional<double> numberOf(const GK::GKValue& value) {
  if (value.type() == Type::Int) {
    return value.toInt();
  }
  return value.type() == Type::Float ? std::optional<double>(value.toFloat()) : std::nullopt;
}

/// The number that is expected where a float is found is rounded to float as well.
double numberFor(const GK::GKValue& expected, const GK::GKValue& actual) {
  return actual.type() == Type::Float ? static_cast<double>(expected.toFloat())
                                      : *numberOf(expected);
}

std::optional<double> marginOfEqual(const GK::GKValue& expected, const GK::GKValue& actual,
                                    double tolerance) {
  if (expected.type() == Type::Array && actual.type() == Type::Array) {
    if (expected.size() != actual.size()) {
      return std::nullopt;
    }
    double least = kNoMargin;
    for (std::size_t i = 0; i < expected.size(); ++i) {
      const std::optional<double> margin = marginOfEqual(expected[i], actual[i], tolerance);
      if (!margin) {
        return std::nullopt;
      }
      least = std::min(least, *margin);
    }
    return least;
  }
  if (!numberOf(expected) || !numberOf(actual)) {
    return expected == actual ? std::optional(kNoMargin) : std::nullopt;
  }
  const double wanted = numberFor(expected, actual);
  const double found = *numberOf(actual);
  if (wanted == found || (std::isnan(wanted) && std::isnan(found))) {
    return tolerance; // Infinities are equal and have no difference.
  }
  const double margin = tolerance - std::abs(wanted - found);
  return margin >= 0.0 ? std::optional(margin) : std::nullopt;
}

} // namespace

std::optional<double> marginOf(const ExpectedValue& expected, const GK::GKValue& actual) {
  if (expected.value) {
    return marginOfEqual(*expected.value, actual, expected.tolerance);
  }
  if (expected.isAny()) {
    return kNoMargin;
  }
  const std::optional<double> found = numberOf(actual);
  if (!found || std::isnan(*found)) {
    return std::nullopt;
  }
  double least = kNoMargin;
  if (expected.above) {
    if (!(*found > *expected.above)) {
      return std::nullopt;
    }
    least = std::min(least, *found - *expected.above);
  }
  if (expected.below) {
    if (!(*found < *expected.below)) {
      return std::nullopt;
    }
    least = std::min(least, *expected.below - *found);
  }
  return least;
}

double distanceTo(const ExpectedValue& expected, const GK::GKValue& actual) {
  if (!expected.value || !numberOf(*expected.value) || !numberOf(actual)) {
    return kNoMargin;
  }
  const double wanted = numberFor(*expected.value, actual);
  const double found = *numberOf(actual);
  const double distance = std::abs(wanted - found);
  if (std::isnan(distance)) {
    return kNoMargin;
  }
  return distance;
}

} // namespace gk::formats
