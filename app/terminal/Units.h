#pragma once

#include <string>
#include <string_view>

/// Numbers as people read them.
namespace gk::app {

/// A time in the unit that suits it: "0.31 ms", "12 ms", "3.5 s", "12 min", "3.4 h", "2.1 days".
std::string durationText(double seconds);

/// A measured value with the digits that are worth something in its unit, and the unit: "0.011 kg",
/// "31.2 degC". Three behind the point, and no more than needed, where the unit is not known.
std::string measureText(double value, std::string_view unit);

} // namespace gk::app
