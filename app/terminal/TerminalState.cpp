#include "app/terminal/TerminalState.h"

#include "app/terminal/Table.h"

#include <atomic>
#include <poll.h>
#include <string_view>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace gk::app {

namespace {

std::atomic<bool> sIsRaw{false};
std::atomic<bool> sIsLineOpen{false};
termios sBefore{};

} // namespace

KeyInput::KeyInput() {
  if (!isTerminal() || tcgetattr(STDIN_FILENO, &sBefore) != 0) {
    return;
  }
  termios raw = sBefore;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  raw.c_cc[VMIN] = 0;
  raw.c_cc[VTIME] = 0;
  sIsRaw = true;
  tcsetattr(STDIN_FILENO, TCSANOW, &raw);
}

KeyInput::~KeyInput() {
  restoreTerminal();
}

std::optional<char> KeyInput::next(std::chrono::milliseconds patience) {
  if (!sIsRaw) {
    std::this_thread::sleep_for(patience);
    return std::nullopt;
  }
  pollfd keys{STDIN_FILENO, POLLIN, 0};
  if (poll(&keys, 1, static_cast<int>(patience.count())) <= 0) {
    return std::nullopt;
  }
  char key = 0;
  if (read(STDIN_FILENO, &key, 1) == 1) {
    return key;
  }
  // The terminal is gone: nobody looks any more.
  std::this_thread::sleep_for(patience);
  return std::nullopt;
}

OpenLine::OpenLine() {
  sIsLineOpen = isTerminal();
}

OpenLine::~OpenLine() {
  sIsLineOpen = false;
}

void restoreTerminal() noexcept {
  if (sIsRaw.exchange(false)) {
    tcsetattr(STDIN_FILENO, TCSANOW, &sBefore);
  }
  if (sIsLineOpen.exchange(false)) {
    constexpr std::string_view kEmptyLine = "\r\x1b[K";
    // What cannot be written to cannot be tidied up.
    [[maybe_unused]] const ssize_t written =
        write(STDOUT_FILENO, kEmptyLine.data(), kEmptyLine.size());
  }
}

} // namespace gk::app
