#pragma once

#include "gk/GKApi.h"

#include <chrono>
#include <cstdint>

namespace GK {

/// Microseconds: the platform's unit of time inside.
using GKMicros = std::int64_t;

/// A span of time by components; they add up.
struct GKTime {
  int days = 0;
  int hours = 0;
  int minutes = 0;
  int seconds = 0;
  int milliseconds = 0;

  constexpr GKMicros toMicros() const noexcept {
    constexpr GKMicros millisecond = 1000;
    constexpr GKMicros second = 1000 * millisecond;
    return days * (86400 * second) + hours * (3600 * second) + minutes * (60 * second) +
           seconds * second + milliseconds * millisecond;
  }
};

/// Counts calls that follow each other closely.
///
/// Not synchronised: one counter belongs to one thread at a time.
class GK_API RTCount {
public:
  /// The length of the current burst of calls: 1 on the first call and on each call that comes
  /// later than `span` after the previous one, otherwise one more than the previous call returned,
  /// up to the largest int.
  int tic(const GKTime& span);

private:
  /// Tests do not live through two thousand million calls.
  friend class RTCountPeer;

  int fCount = 0;
  GKMicros fLast = 0;
};

} // namespace GK
