#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace gk::app {

/// What a run in real time says on standard error before its first line.
struct Head {
  /// Which robot it is.
  std::string robot;
  /// What listens, or why nothing does: a line.
  std::string address;
  bool isServed = false;
  /// The page is part of this build.
  bool hasPage = false;
  std::optional<std::chrono::microseconds> limit;
};

/// Robot, address, what happens, how to end it: a line each, and one for a page that is missing.
std::string headText(const Head& head);

} // namespace gk::app
