#pragma once

#include "app/options/Command.h"

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

/// What the commands about the program itself stand under.
inline constexpr const char* kHelpTitle = "Help";

/// The program's command line as a whole. For one thread.
class CommandLine {
public:
  CommandLine(const std::string& name, const std::string& text, const std::string& version);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// What commands are added to.
  Command program() const;

  /// Reads the line and does what it asks for; complains in one line on standard error. Commands
  /// that are not complete show their help. Returns the exit code.
  int run(int argc, const char* const* argv) const;

  /// A command as it may be given.
  struct Description {
    std::string name;
    /// What the help says of it.
    std::string text;
    /// "--out", without short forms.
    std::vector<std::string> options;
  };
  /// Those that the help shows, in its order.
  std::vector<Description> commands() const;

  /// The help of a command ("recording", "info"), or of the program without any name. To be asked
  /// for by actions: a name that is not there is an error of the command line.
  std::string help(const std::vector<std::string>& command) const;

private:
  struct Parser;
  std::unique_ptr<Parser> fParser;
};

} // namespace gk::app
