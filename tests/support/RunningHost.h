#pragma once

#include "support/Program.h"

#include <string>
#include <vector>

namespace gk::test {

/// A host on a free port, with the arguments that a test adds. In general its values stay neutral.
class RunningHost {
public:
  explicit RunningHost(const std::vector<std::string>& more = {"--robot", "none"})
      : fProgram(arguments(more)) {
    const std::string before = "listening at http://";
    std::string text;
    std::size_t place = std::string::npos;
    // The host says so once it can be asked.
    fProgram.runUntil([&] {
      place = (text = fProgram.errSoFar()).find(before);
      return place != std::string::npos &&
             text.find("/\n", place + before.size()) != std::string::npos;
    });
    place += before.size();
    fAddress = text.substr(place, text.find('/', place) - place);
  }

  const std::string& address() const { return fAddress; }
  Program& program() { return fProgram; }

  ProgramResult gk(std::vector<std::string> command) const {
    command.insert(command.begin(), GK_PROGRAM);
    command.insert(command.end(), {"--host", fAddress});
    return runProgram(std::move(command));
  }

private:
  static std::vector<std::string> arguments(const std::vector<std::string>& more) {
    std::vector<std::string> all = {GK_PROGRAM, "run", "--listen", "127.0.0.1:0"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  Program fProgram;
  std::string fAddress;
};

} // namespace gk::test
