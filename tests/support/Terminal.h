#pragma once

#include "support/Program.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace gk::test {

/// What a terminal shows (the part of ECMA-48 and of xterm's orders that programs here use). As
/// xterm does it leaves lines as they are when its size changes.
class ShownScreen {
public:
  ShownScreen(std::size_t columns, std::size_t rows) { resize(columns, rows); }

  void resize(std::size_t columns, std::size_t rows) {
    fColumns = columns;
    fCells.resize(rows);
    for (auto& row : fCells) {
      row.resize(columns, " ");
    }
    fRow = std::min(fRow, rows - 1);
    fColumn = std::min(fColumn, columns - 1);
  }

  /// Takes whole orders and characters; returns how much was taken.
  std::size_t feed(std::string_view bytes) {
    std::size_t taken = 0;
    while (taken < bytes.size()) {
      const std::size_t one = xTake(bytes.substr(taken));
      if (one == 0) {
        break;
      }
      taken += one;
    }
    return taken;
  }

  /// Without spaces at the ends of lines, and without empty lines at the end.
  std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    for (const auto& row : fCells) {
      std::string line;
      for (const std::string& cell : row) {
        line += cell;
      }
      line.erase(line.find_last_not_of(' ') + 1);
      lines.push_back(line);
    }
    while (!lines.empty() && lines.back().empty()) {
      lines.pop_back();
    }
    return lines;
  }
  std::string text() const {
    std::string text;
    for (const std::string& line : lines()) {
      text += line + "\n";
    }
    return text;
  }

private:
  std::size_t xTake(std::string_view bytes) {
    const char first = bytes[0];
    if (first == '\x1b') {
      return xTakeOrder(bytes);
    }
    if (first == '\r') {
      fColumn = 0;
    } else if (first == '\n') {
      xNextRow();
    } else if (static_cast<unsigned char>(first) >= ' ') {
      const auto lead = static_cast<unsigned char>(first);
      const std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
      if (bytes.size() < size) {
        return 0;
      }
      xPut(std::string(bytes.substr(0, size)));
      return size;
    }
    return 1;
  }

  std::size_t xTakeOrder(std::string_view bytes) {
    const auto isEnd = [](char c) { return c >= '@'; };
    if (bytes.size() < 3) {
      return 0;
    }
    const auto end = std::find_if(bytes.begin() + 2, bytes.end(), isEnd);
    if (end == bytes.end()) {
      return 0;
    }
    const std::string parameter(bytes.begin() + 2, end);
    const std::size_t count = parameter.empty() || parameter[0] == '?' ? 1 : std::stoul(parameter);
    switch (*end) {
    case 'A':
      fRow -= std::min(fRow, count);
      break;
    case 'H':
      fRow = fColumn = 0;
      break;
    case 'J':
      xClear(fRow, parameter == "2" ? 0 : fColumn);
      for (std::size_t row = parameter == "2" ? 0 : fRow + 1; row < fCells.size(); ++row) {
        xClear(row, 0);
      }
      break;
    case 'K':
      xClear(fRow, fColumn);
      break;
    case 'h':
    case 'l':
      fIsWrapping = parameter == "?7" ? *end == 'h' : fIsWrapping;
      break;
    case 'm':
      break;
    default:
      throw std::runtime_error("an order that is not known: " +
                               std::string(bytes.begin() + 1, end + 1));
    }
    return static_cast<std::size_t>(end - bytes.begin()) + 1;
  }

  void xPut(std::string character) {
    if (fColumn == fColumns) {
      if (fIsWrapping) {
        fColumn = 0;
        xNextRow();
      } else {
        --fColumn;
      }
    }
    fCells[fRow][fColumn++] = std::move(character);
  }

  void xNextRow() {
    if (fRow + 1 < fCells.size()) {
      ++fRow;
      return;
    }
    fCells.erase(fCells.begin());
    fCells.emplace_back(fColumns, " ");
  }

  void xClear(std::size_t row, std::size_t from) {
    std::fill(fCells[row].begin() + static_cast<std::ptrdiff_t>(std::min(from, fColumns)),
              fCells[row].end(), " ");
  }

  std::size_t fColumns = 0;
  std::vector<std::vector<std::string>> fCells;
  std::size_t fRow = 0;
  /// As many as there are columns behind the last one: the next character goes to the next row.
  std::size_t fColumn = 0;
  bool fIsWrapping = true;
};

/// A program in a terminal of its own. Killed when it still runs at destruction.
class TerminalProgram {
public:
  /// `variables`: "NAME=VALUE", besides a plain environment.
  TerminalProgram(std::vector<std::string> arguments, unsigned short columns, unsigned short rows,
                  const std::vector<std::string>& variables = {})
      : fScreen(columns, rows) {
    const winsize size{rows, columns, 0, 0};
    fPid = forkpty(&fTerminal, nullptr, nullptr, &size);
    if (fPid == 0) {
      unsetenv("NO_COLOR");
      setenv("TERM", "xterm", 1);
      for (const std::string& variable : variables) {
        const std::size_t equal = variable.find('=');
        setenv(variable.substr(0, equal).c_str(), variable.substr(equal + 1).c_str(), 1);
      }
      become(arguments);
    }
  }
  ~TerminalProgram() {
    if (fPid > 0) {
      kill(fPid, SIGKILL);
      waitpid(fPid, nullptr, 0);
    }
    close(fTerminal);
  }
  TerminalProgram(const TerminalProgram&) = delete;
  TerminalProgram& operator=(const TerminalProgram&) = delete;

  pid_t pid() const { return fPid; }
  const ShownScreen& screen() const { return fScreen; }
  /// All that it has written so far.
  const std::string& written() const { return fWritten; }

  void press(std::string_view keys) const {
    if (write(fTerminal, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
      throw std::runtime_error("the terminal takes no keys");
    }
  }

  void resize(unsigned short columns, unsigned short rows) {
    const winsize size{rows, columns, 0, 0};
    fScreen.resize(columns, rows);
    ioctl(fTerminal, TIOCSWINSZ, &size);
  }

  /// Whether keys are echoed, and handed over line by line, as shells want it.
  bool isPlain() const {
    termios state{};
    tcgetattr(fTerminal, &state);
    return (state.c_lflag & ECHO) != 0 && (state.c_lflag & ICANON) != 0;
  }

  /// Lets it run until something holds. Raises std::runtime_error with what is shown when it ends
  /// before that.
  template <typename Condition> void runUntil(const Condition& holds) {
    while (!holds()) {
      if (!xPump() && !holds()) {
        throw std::runtime_error("it has ended too early: " + fScreen.text());
      }
    }
  }

  /// Waits for its end, and for all that it writes. The code of a program ended by a signal is 128
  /// + the signal.
  int wait() {
    while (xPump()) {
    }
    int status = 0;
    waitpid(fPid, &status, 0);
    fPid = 0;
    return exitCode(status);
  }

private:
  /// Takes what there is, and waits a little for it. False once the program has closed the
  /// terminal.
  bool xPump() {
    pollfd ready{fTerminal, POLLIN, 0};
    if (poll(&ready, 1, 10) <= 0) {
      return true;
    }
    char bytes[4096];
    const ssize_t size = read(fTerminal, bytes, sizeof bytes);
    if (size <= 0) {
      return size < 0 && errno == EINTR;
    }
    fWritten.append(bytes, static_cast<std::size_t>(size));
    fTaken += fScreen.feed(std::string_view(fWritten).substr(fTaken));
    return true;
  }

  int fTerminal = -1;
  pid_t fPid = 0;
  std::string fWritten;
  std::size_t fTaken = 0;
  ShownScreen fScreen;
};

} // namespace gk::test
