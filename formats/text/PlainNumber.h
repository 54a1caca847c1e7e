#pragma once

#include <cstddef>
#include <cstdint>

namespace gk::formats {

/// Reads digits into `number`, behind those that it has; it wraps when they are too many. Returns
/// where they end.
inline const char* readDigits(const char* at, const char* last, std::uint64_t& number) noexcept {
  for (; at != last; ++at) {
    const unsigned digit = static_cast<unsigned char>(*at) - unsigned{'0'};
    if (digit > 9) {
      break;
    }
    number = number * 10 + digit;
  }
  return at;
}

/// Reads a number as tables mostly have them ("-12", "0.5"), to the same double as
/// `messages::parseDouble` and in a fraction of its time. Returns where the number ends; null when
/// it has none or too many digits, and `value` is as it was then. Whether the text goes on (with an
/// exponent, say) is for the caller to see.
///
/// Up to 15 digits and the power of ten behind the point are exact doubles, so that their quotient
/// is rounded once (W. D. Clinger, "How to Read Floating Point Numbers Accurately", 1990).
inline const char* readPlainNumber(const char* at, const char* last, double& value) noexcept {
  constexpr std::size_t mostDigits = 15;
  constexpr double powers[mostDigits + 1] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                             1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  const bool isNegative = at != last && *at == '-';
  const char* const whole = at + (isNegative ? 1 : 0);
  std::uint64_t number = 0;
  at = readDigits(whole, last, number);
  auto digits = static_cast<std::size_t>(at - whole);
  std::size_t decimals = 0;
  if (at != last && *at == '.') {
    const char* const fraction = at + 1;
    at = readDigits(fraction, last, number);
    decimals = static_cast<std::size_t>(at - fraction);
    digits += decimals;
  }
  if (digits == 0 || digits > mostDigits) {
    return nullptr;
  }
  // Signed, as processors convert them.
  const double size = static_cast<double>(static_cast<std::int64_t>(number)) / powers[decimals];
  value = isNegative ? -size : size;
  return at;
}

} // namespace gk::formats
