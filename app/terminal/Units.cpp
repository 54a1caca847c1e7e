#include "app/terminal/Units.h"

#include <fmt/format.h>

#include <array>
#include <cmath>

namespace gk::app {

namespace {

struct UnitDigits {
  std::string_view unit;
  /// Behind the point; what comes after is noise of the sensors.
  int digits;
};

constexpr std::array kDigits = {UnitDigits{"m", 3},    UnitDigits{"kg", 3},   UnitDigits{"rad", 3},
                                UnitDigits{"A", 3},    UnitDigits{"degC", 1}, UnitDigits{"N", 1},
                                UnitDigits{"mV", 0},   UnitDigits{"V", 2},    UnitDigits{"s", 2},
                                UnitDigits{"rad/s", 3}};

} // namespace

std::string durationText(double seconds) {
  constexpr double minute = 60;
  constexpr double hour = 60 * minute;
  constexpr double day = 24 * hour;
  const double size = std::abs(seconds);
  if (size < 0.01) {
    return fmt::format("{:.2f} ms", seconds * 1e3);
  }
  if (size < 1) {
    return fmt::format("{:.0f} ms", seconds * 1e3);
  }
  if (size < 2 * minute) {
    return fmt::format("{:.1f} s", seconds);
  }
  if (size < 2 * hour) {
    return fmt::format("{:.0f} min", seconds / minute);
  }
  return size < 2 * day ? fmt::format("{:.1f} h", seconds / hour)
                        : fmt::format("{:.1f} days", seconds / day);
}

std::string measureText(double value, std::string_view unit) {
  for (const UnitDigits& known : kDigits) {
    if (known.unit == unit) {
      return fmt::format("{:.{}f} {}", value, known.digits, unit);
    }
  }
  constexpr double large = 1000;
  constexpr double small = 0.001;
  const double size = std::abs(value);
  std::string text = size >= large              ? fmt::format("{:.1f}", value)
                     : size > 0 && size < small ? fmt::format("{:.3g}", value)
                                                : fmt::format("{:.3f}", value);
  // "0.500" says no more than "0.5".
  while ((size == 0 || (size < large && size >= small)) && text.ends_with('0') &&
         !text.ends_with(".0")) {
    text.pop_back();
  }
  return unit.empty() ? text : text + " " + std::string(unit);
}

} // namespace gk::app
