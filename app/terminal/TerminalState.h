#pragma once

#include <chrono>
#include <optional>

namespace gk::app {

/// Keys as they are pressed, without the line that a terminal collects and echoes otherwise; none
/// where standard input or output is no terminal. The terminal is as it was when this goes, and
/// when a signal ends the program (`restoreTerminal`). One at a time, for one thread.
class KeyInput {
public:
  KeyInput();
  ~KeyInput();
  KeyInput(const KeyInput&) = delete;
  KeyInput& operator=(const KeyInput&) = delete;

  /// The next key, or nothing when none is pressed for so long.
  static std::optional<char> next(std::chrono::milliseconds patience);
};

/// While one of these is there, the last line on standard output may be unfinished.
class OpenLine {
public:
  OpenLine();
  ~OpenLine();
  OpenLine(const OpenLine&) = delete;
  OpenLine& operator=(const OpenLine&) = delete;
};

/// Puts the terminal back into the state before. May be called in a signal's handler.
void restoreTerminal() noexcept;

} // namespace gk::app
