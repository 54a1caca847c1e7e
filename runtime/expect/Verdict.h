#pragma once

#include "formats/lines/Expectation.h"
#include "gk/GKTime.h"

#include <optional>
#include <string>

namespace gk::runtime {

/// What became of an expectation.
struct Verdict {
  /// Which of the expectations, from 0.
  std::size_t index = 0;
  std::string file;
  std::size_t line = 0;
  bool holds = false;
  /// What was expected and what happened, on one line; where it fails: "expected ..., but ...".
  std::string text;
  /// Of one that holds: seconds that were left in its window.
  std::optional<double> secondsLeft;
  /// Of one that holds: how far a number was from its limit.
  std::optional<double> margin;
  /// Where to look in the output, in microseconds since the start.
  GK::GKMicros time = 0;
  /// Which round of a loop, from 1.
  unsigned int round = 1;
};

/// "FILE:LINE: text", as one line for a terminal.
std::string verdictLine(const Verdict& verdict);

} // namespace gk::runtime
