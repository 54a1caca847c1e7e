#pragma once

#include "app/options/Command.h"

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

/// The program's command line as a whole. For one thread.
class CommandLine {
public:
  CommandLine(const std::string& name, const std::string& text, const std::string& version);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// What commands are added to.
  Command program() const;

  /// Reads the line and does what it asks for; complains in one line on standard error. Returns the
  /// exit code.
  int run(int argc, const char* const* argv) const;

  /// A command as it may be given.
  struct Description {
    std::string name;
    /// "--out", without short forms.
    std::vector<std::string> options;
  };
  /// Those that the help shows, in its order.
  std::vector<Description> commands() const;

  /// The help of a command, or of the program when the name is empty.
  std::string help(const std::string& command) const;

private:
  struct Parser;
  std::unique_ptr<Parser> fParser;
};

} // namespace gk::app
