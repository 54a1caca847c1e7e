#include "messages/text/Numbers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace gk::messages {

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// Tells for a decimal number beyond the range of doubles whether it is too large, not too small.
bool isAboveOne(std::string_view digits) {
  // Place of the first digit that is not 0, counted from the point: 1 for "5", 0 for "0.5".
  std::int64_t place = 0;
  const std::size_t exponentAt = std::min(digits.find_first_of("eE"), digits.size());
  const std::string_view mantissa = digits.substr(0, exponentAt);
  const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
  const std::size_t first = mantissa.find_first_of("123456789");
  if (first == std::string_view::npos) {
    return false;
  }
  place = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  if (first > point) {
    ++place;
  }
  if (exponentAt == digits.size()) {
    return place > 0;
  }
  std::string_view exponentText = digits.substr(exponentAt + 1);
  if (exponentText.starts_with('+')) {
    exponentText.remove_prefix(1);
  }
  std::int64_t exponent = 0;
  const auto [end, status] =
      std::from_chars(exponentText.data(), exponentText.data() + exponentText.size(), exponent);
  if (status == std::errc::result_out_of_range) {
    return !exponentText.starts_with('-');
  }
  return exponent > -place;
}

} // namespace

std::optional<double> parseDouble(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  const std::string_view digits = text.substr(isNegative ? 1 : 0);
  // Also keeps out the words for infinity and NaN that from_chars knows.
  if (digits.empty() || (!isDigit(digits.front()) && digits.front() != '.')) {
    return std::nullopt;
  }
  double value = 0.0;
  const char* last = text.data() + text.size();
  const auto [end, status] = std::from_chars(text.data(), last, value);
  if (end != last || status == std::errc::invalid_argument) {
    return std::nullopt;
  }
  if (status == std::errc::result_out_of_range) {
    const double size = isAboveOne(digits) ? std::numeric_limits<double>::infinity() : 0.0;
    return isNegative ? -size : size;
  }
  return value;
}

std::optional<float> parseFloat(std::string_view text) {
  if (const std::optional<double> value = parseDouble(text)) {
    return toFloat(*value);
  }
  if (text == "nan") {
    return std::numeric_limits<float>::quiet_NaN();
  }
  if (text == "inf") {
    return std::numeric_limits<float>::infinity();
  }
  if (text == "-inf") {
    return -std::numeric_limits<float>::infinity();
  }
  return std::nullopt;
}

std::optional<std::int32_t> parseInt(std::string_view text) {
  std::int32_t value = 0;
  const char* last = text.data() + text.size();
  const auto [end, status] = std::from_chars(text.data(), last, value);
  if (end == last && status == std::errc()) {
    return value;
  }
  const std::optional<double> number = parseDouble(text);
  return number ? toInt(*number) : std::nullopt;
}

std::optional<std::int32_t> toInt(double value) {
  // Written so that NaN fails.
  const bool fits = value >= std::numeric_limits<std::int32_t>::min() &&
                    value <= std::numeric_limits<std::int32_t>::max();
  if (!fits || std::trunc(value) != value) {
    return std::nullopt;
  }
  return static_cast<std::int32_t>(value);
}

float toFloat(double value) {
  constexpr double largest = std::numeric_limits<float>::max();
  // Halfway from the largest float to the next power of two; from there on the nearest is infinity.
  constexpr double limit = 0x1.ffffffp127;
  if (std::abs(value) <= largest || std::isnan(value)) {
    return static_cast<float>(value);
  }
  const float size = std::abs(value) < limit ? std::numeric_limits<float>::max()
                                             : std::numeric_limits<float>::infinity();
  return std::copysign(size, value < 0.0 ? -1.0F : 1.0F);
}

std::optional<GK::GKMicros> toMicros(double seconds) {
  if (!(std::abs(seconds) <= kMaxSeconds)) {
    return std::nullopt;
  }
  constexpr double microsPerSecond = 1e6;
  return static_cast<GK::GKMicros>(std::llround(seconds * microsPerSecond));
}

std::string doubleText(double value) {
  char text[32];
  const char* end = std::to_chars(text, text + sizeof text, value).ptr;
  return {text, static_cast<std::size_t>(end - text)};
}

void appendSeconds(std::string& out, GK::GKMicros time) {
  constexpr std::uint64_t microsPerSecond = 1'000'000;
  constexpr std::size_t decimals = 6;
  const bool isNegative = time < 0;
  const auto bits = static_cast<std::uint64_t>(time);
  const std::uint64_t size = isNegative ? 0 - bits : bits;
  if (isNegative) {
    out += '-';
  }
  char text[24];
  char* end = std::to_chars(text, text + sizeof text, size / microsPerSecond).ptr;
  out.append(text, end);
  const std::uint64_t fraction = size % microsPerSecond;
  if (fraction == 0) {
    return;
  }
  // A leading 1 keeps the zeros after the point.
  end = std::to_chars(text, text + sizeof text, microsPerSecond + fraction).ptr;
  std::string_view digits(text + 1, decimals);
  digits = digits.substr(0, digits.find_last_not_of('0') + 1);
  out += '.';
  out += digits;
}

void appendFloat(std::string& out, float value) {
  // Enough for every float in either notation.
  char text[64];
  const char* end = std::to_chars(text, text + sizeof text, value).ptr;
  std::string_view digits(text, static_cast<std::size_t>(end - text));
  if (digits.find_first_of(".e") != std::string_view::npos) {
    out += digits;
    return;
  }
  // Whole numbers beyond 24 bits come out with all their digits, which can be more than needed.
  constexpr float wholeLimit = 0x1p24F;
  if (std::abs(value) > wholeLimit) {
    end = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific).ptr;
    out += std::string_view(text, static_cast<std::size_t>(end - text));
    return;
  }
  out += digits;
  out += ".0";
}

} // namespace gk::messages
