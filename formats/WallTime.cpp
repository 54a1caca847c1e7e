#include "formats/WallTime.h"

#include <array>
#include <ctime>

namespace gk::formats {

std::string wallTimeText(std::int64_t micros) {
  constexpr std::int64_t perSecond = 1'000'000;
  constexpr std::int64_t end = 253'402'300'800; // the year 10000
  if (micros < 0 || micros >= end * perSecond) {
    return std::to_string(micros) + " us";
  }
  const std::time_t seconds = micros / perSecond;
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::array<char, sizeof("2026-11-21T12:30:24Z")> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text.data();
}

} // namespace gk::formats
