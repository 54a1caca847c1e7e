#include "messages/text/WallTime.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <limits>

namespace gk::messages {

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

std::int64_t epochOf(const GK::GKWallTime& wall, GK::GKMicros elapsed) noexcept {
  constexpr std::int64_t perSecond = 1'000'000;
  constexpr std::int64_t mostSeconds = 9'000'000'000'000;
  return std::clamp(wall.seconds, -mostSeconds, mostSeconds) * perSecond + wall.microseconds -
         elapsed;
}

std::uint64_t nanosecondsSince1970(std::int64_t epoch, std::int64_t micros) noexcept {
  constexpr std::uint64_t perMicro = 1000;
  constexpr std::uint64_t latest = std::numeric_limits<std::uint64_t>::max() / perMicro;
  // Without a sign the sum cannot overflow: each part has 63 bits at most.
  const auto later = static_cast<std::uint64_t>(micros);
  const std::uint64_t before = epoch < 0 ? ~static_cast<std::uint64_t>(epoch) + 1 : 0;
  const std::uint64_t sum =
      epoch < 0 ? later - std::min(before, later) : static_cast<std::uint64_t>(epoch) + later;
  return std::min(sum, latest) * perMicro;
}

} // namespace gk::messages
