#pragma once

#include "gk/GKTime.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Numbers and their texts, exact both ways and independent of the locale.
namespace gk::messages {

/// The double nearest to a decimal number ("-12", "0.5", "1e-3"); nothing when `text` is anything
/// else. Numbers beyond the range of doubles are infinite, those too close to 0 are 0.
std::optional<double> parseDouble(std::string_view text);

/// A decimal number, read as double and rounded once, or exactly "nan", "inf" or "-inf".
std::optional<float> parseFloat(std::string_view text);

/// A decimal number that is whole and fits 32 bits; "34.0" is 34.
std::optional<std::int32_t> parseInt(std::string_view text);

/// The value as an int, or nothing when it is not whole or beyond 32 bits.
std::optional<std::int32_t> toInt(double value);

/// The float nearest to `value`; infinite when that is beyond the range of floats.
float toFloat(double value);

/// Longest time in seconds that is taken from outside. The sum of two such times, in microseconds,
/// still fits 64 bits.
constexpr double kMaxSeconds = 4.0e12;

/// `seconds` in whole microseconds, to the nearest; nothing for NaN and for times beyond
/// `kMaxSeconds` either way.
std::optional<GK::GKMicros> toMicros(double seconds);

/// A double in an error text, with as many digits as it needs.
std::string doubleText(double value);

/// Appends seconds with up to six decimals, no trailing zeros: "0", "0.02", "1.5".
void appendSeconds(std::string& out, GK::GKMicros time);

/// Appends a finite float with the fewest digits that read back to the same float, and always with
/// a "." or an exponent: "1.0", "0.1", "1e+20", "-0.0".
void appendFloat(std::string& out, float value);

} // namespace gk::messages
