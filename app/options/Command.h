#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

/// The command line. What parses it is known to this folder alone: it is dear to include.
namespace gk::app {

/// Exit codes of every command.
enum ExitCode : int { kSuccess = 0, kFailure = 1, kBadInput = 2, kExpectationFailed = 3 };

/// Of the exit codes of several runs the one that tells most: ended by a signal, wrong input,
/// failed, expectations that do not hold, done.
int worseOf(int one, int other);

/// An option or argument of a command; copies stand for the same one. Each operation returns the
/// option itself.
class Option {
public:
  explicit Option(CLI::Option* option) : fOption(option) {}

  /// What stands for the value in the help: "SECONDS".
  Option shows(const std::string& placeholder) const;
  /// The help tells the value that holds without the option.
  Option showsDefault() const;
  Option required() const;
  /// Of an argument that takes several values: at most one.
  Option atMostOne() const;
  /// Of an option that takes several values: one each time that it is given.
  Option onceEach() const;
  /// Of an option that takes several values: they may stand in one word.
  Option separatedBy(char separator) const;
  /// An environment variable that gives the value where the command line does not.
  Option orFrom(const std::string& variable) const;

  // Values that are taken; both ends are.

  /// A number at all: "nan" is none.
  Option number() const;
  Option within(int least, int most) const;
  Option within(double least, double most) const;
  Option positive() const;
  /// Anything else is answered with the nearest of them.
  Option oneOf(const std::vector<std::string>& values) const;
  /// `check` returns what is wrong with a value; empty for nothing.
  Option checked(std::function<std::string(const std::string&)> check) const;

  Option needs(const Option& other) const;
  Option excludes(const Option& other) const;
  /// Called when the option is given.
  Option whenGiven(std::function<void()> tell) const;

private:
  CLI::Option* fOption;
};

/// What a command does once its options are read; returns the exit code.
using Action = std::function<int()>;

/// The program or one of its subcommands, being described; copies stand for the same one. For one
/// thread.
class Command {
public:
  Command(CLI::App* app, Action* chosen) : fApp(app), fChosen(chosen) {}

  /// The same one; subcommands that are added to this copy stand under a title in the help.
  Command titled(const std::string& title) const;

  /// Without one of its subcommands a command that has any shows its help.
  Command subcommand(const std::string& name, const std::string& text) const;
  /// The options added from now on stand under this title in the help.
  void section(const std::string& title) const;
  /// Leaves the command out of the help.
  void hide() const;
  /// Text at the end of the help.
  void footer(const std::string& text) const;

  Option flag(const std::string& names, bool& isOn, const std::string& text) const;

  /// An option by its names ("-o,--out"), or an argument by its place ("FILE"). `value` is written
  /// to when the line is read, and must live until then. There are: string, vector of strings, int,
  /// unsigned, 64-bit integers, double, optional double.
  template <class Value>
  Option option(const std::string& names, Value& value, const std::string& text) const;

  /// An argument again that was added before.
  Option argument(const std::string& name) const;

  /// Takes words that are no options, wherever they stand, as they are. Returns what gives them
  /// when the line has been read.
  std::function<std::vector<std::string>()> takesRest() const;

  /// The command takes options from a file as well, which "--config" names.
  void takesConfig(const std::string& text) const;

  /// What is to be done when this command was given.
  void does(Action action) const;

private:
  CLI::App* fApp;
  Action* fChosen;
  std::string fTitle;
};

} // namespace gk::app
