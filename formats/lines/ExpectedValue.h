#pragma once

#include "formats/lines/Expectation.h"

#include <limits>
#include <optional>

namespace gk::formats {

/// The margin of a value that is held against nothing that could be measured.
inline constexpr double kNoMargin = std::numeric_limits<double>::infinity();

/// Whether `actual` is what is expected: then the distance to the nearest limit, else nothing.
///
/// An int equals a float of the same value, NaN equals NaN; the tolerance counts, arrays are
/// compared element by element. Only numbers keep limits.
std::optional<double> marginOf(const ExpectedValue& expected, const GK::GKValue& actual);

/// How far a number is from the value that is expected; infinite for all else.
double distanceTo(const ExpectedValue& expected, const GK::GKValue& actual);

} // namespace gk::formats
