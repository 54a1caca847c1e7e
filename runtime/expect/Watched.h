#pragma once

#include "formats/lines/ExpectedValue.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace gk::runtime {

/// Something that was raised or logged.
struct Seen {
  GK::GKMicros time = 0;
  /// Of an event.
  GK::GKValue value;
  // Of a log line.
  int level = 0;
  std::string text;
};

/// How far a run has come with one expectation.
struct Watched {
  enum class Step : std::uint8_t {
    Open,   ///< it may still go either way
    Missed, ///< it has failed, and something nearer may still come
    Done
  };

  Step step = Step::Open;

  // Events and log lines: what came nearest.

  /// What was meant, before the window.
  std::optional<Seen> before;
  /// The same with another value, or a log line of another level.
  std::optional<Seen> otherBefore;
  std::optional<Seen> otherInside;
  double otherDistance = formats::kNoMargin;
  std::optional<Seen> otherAfter;

  /// Of an event.
  std::uint64_t count = 0;
  /// How many names of an order have come, and when the last of them did.
  std::size_t inOrder = 0;
  GK::GKMicros time = 0;

  // Keys.

  double margin = formats::kNoMargin;
  bool hasMissedFirst = false;

  // Calls.

  /// Its number; 0 before it was made.
  std::uint64_t call = 0;
};

} // namespace gk::runtime
