#pragma once

#include <chrono>
#include <string>

namespace gk::app {

/// Draws on standard error how far a piece of work has come, once it has taken a while; nothing
/// where standard error is no terminal. Leaves the line empty when it goes. For one thread.
class ProgressLine {
public:
  ProgressLine();
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  /// `progress` from 0 to 1. Cheap enough to be called for every small step.
  void show(double progress, const std::string& text = {});

  /// True when it is time to draw again, so that nothing needs to be put together before.
  bool isDue();

private:
  using Clock = std::chrono::steady_clock;

  const bool fIsTerminal;
  Clock::time_point fNextDrawing = Clock::now() + std::chrono::milliseconds(500);
  bool fIsDrawn = false;
};

} // namespace gk::app
