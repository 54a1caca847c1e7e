#include "app/options/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <system_error>
#include <type_traits>
#include <utility>

namespace gk::app {

namespace {

/// Without a text of its own in the help: the placeholder tells enough.
template <class Check> Check unnamed(Check check) {
  check.description("");
  return check;
}

/// What the parser makes of a number that does not fit is another number.
template <class Value> std::string checkInteger(std::string& text) {
  Value value{};
  const char* last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, value);
  return error == std::errc() && end == last
             ? std::string()
             : fmt::format("{} is no whole number from {} to {}", text,
                           std::numeric_limits<Value>::min(), std::numeric_limits<Value>::max());
}

/// An option that takes a text is left out or has one.
template <class Value> constexpr bool kIsText =
    std::is_same_v<Value, std::string> || std::is_same_v<Value, std::vector<std::string>>;
std::string checkGiven(std::string& text) {
  return text.empty() ? "the value is empty" : std::string();
}

} // namespace

Option Option::shows(const std::string& placeholder) const {
  fOption->type_name(placeholder);
  return *this;
}

Option Option::showsDefault() const {
  fOption->capture_default_str();
  return *this;
}

Option Option::required() const {
  fOption->required();
  return *this;
}

Option Option::atMostOne() const {
  fOption->expected(0, 1);
  return *this;
}

Option Option::onceEach() const {
  fOption->allow_extra_args(false);
  return *this;
}

Option Option::separatedBy(char separator) const {
  fOption->delimiter(separator);
  return *this;
}

Option Option::orFrom(const std::string& variable) const {
  fOption->envname(variable);
  return *this;
}

Option Option::within(int least, int most) const {
  fOption->check(unnamed(CLI::Range(least, most)));
  return *this;
}

Option Option::within(double least, double most) const {
  fOption->check(unnamed(CLI::Range(least, most)));
  return number();
}

Option Option::positive() const {
  fOption->check(CLI::Validator(
      [](std::string& value) {
        double number = 0;
        const bool isOne = CLI::detail::lexical_cast(value, number) && number > 0;
        return isOne ? std::string() : value + " is no number above 0";
      },
      ""));
  return *this;
}

Option Option::number() const {
  fOption->check(CLI::Validator(
      [](std::string& value) {
        double number = 0;
        const bool isOne = CLI::detail::lexical_cast(value, number) && !std::isnan(number);
        return isOne ? std::string() : value + " is no number";
      },
      ""));
  return *this;
}

Option Option::oneOf(const std::vector<std::string>& values) const {
  fOption->check(unnamed(CLI::IsMember(values)));
  return *this;
}

Option Option::checked(std::function<std::string(const std::string&)> check) const {
  fOption->check(
      CLI::Validator([check = std::move(check)](std::string& value) { return check(value); }, ""));
  return *this;
}

Option Option::needs(const Option& other) const {
  fOption->needs(other.fOption);
  return *this;
}

Option Option::excludes(const Option& other) const {
  fOption->excludes(other.fOption);
  return *this;
}

Option Option::whenGiven(std::function<void()> tell) const {
  fOption->each([tell = std::move(tell)](const std::string&) { tell(); });
  return *this;
}

Command Command::subcommand(const std::string& name, const std::string& text) const {
  return {fApp->add_subcommand(name, text), fChosen};
}

void Command::needsSubcommand() const {
  fApp->require_subcommand(1);
}

void Command::hide() const {
  fApp->group("");
}

void Command::footer(const std::string& text) const {
  fApp->footer(text);
}

Option Command::flag(const std::string& names, bool& isOn, const std::string& text) const {
  return Option(fApp->add_flag(names, isOn, text));
}

template <class Value>
Option Command::option(const std::string& names, Value& value, const std::string& text) const {
  CLI::Option* option = fApp->add_option(names, value, text);
  if constexpr (std::is_integral_v<Value>) {
    option->check(CLI::Validator(&checkInteger<Value>, ""));
  } else if constexpr (kIsText<Value>) {
    if (names.starts_with('-')) {
      option->check(CLI::Validator(&checkGiven, ""));
    }
  }
  return Option(option);
}

template Option Command::option(const std::string&, std::string&, const std::string&) const;
template Option Command::option(const std::string&, std::vector<std::string>&,
                                const std::string&) const;
template Option Command::option(const std::string&, int&, const std::string&) const;
template Option Command::option(const std::string&, unsigned&, const std::string&) const;
template Option Command::option(const std::string&, std::int64_t&, const std::string&) const;
template Option Command::option(const std::string&, std::uint64_t&, const std::string&) const;
template Option Command::option(const std::string&, double&, const std::string&) const;
template Option Command::option(const std::string&, std::optional<double>&,
                                const std::string&) const;

Option Command::argument(const std::string& name) const {
  return Option(fApp->get_option(name));
}

std::function<std::vector<std::string>()> Command::takesRest() const {
  fApp->allow_extras();
  return [app = fApp] { return app->remaining(); };
}

void Command::does(Action action) const {
  fApp->callback([chosen = fChosen, action = std::move(action)] { *chosen = action; });
}

struct CommandLine::Parser {
  Parser(const std::string& name, const std::string& text) : app(text, name) {}

  CLI::App app;
  Action chosen;
};

CommandLine::CommandLine(const std::string& name, const std::string& text,
                         const std::string& version)
    : fParser(std::make_unique<Parser>(name, text)) {
  fParser->app.set_version_flag("--version", version);
  fParser->app.require_subcommand(1);
}

CommandLine::~CommandLine() = default;

Command CommandLine::program() const {
  return {&fParser->app, &fParser->chosen};
}

int CommandLine::run(int argc, const char* const* argv) const {
  try {
    fParser->app.parse(argc, argv);
  } catch (const CLI::Success& request) {
    return fParser->app.exit(request);
  } catch (const CLI::ParseError& error) {
    fmt::print(stderr, "{}: {}\n", fParser->app.get_name(), error.what());
    return kBadInput;
  }
  return fParser->chosen();
}

std::vector<CommandLine::Description> CommandLine::commands() const {
  std::vector<Description> descriptions;
  for (const CLI::App* command :
       fParser->app.get_subcommands([](const CLI::App*) { return true; })) {
    if (command->get_group().empty()) {
      continue;
    }
    Description description{command->get_name(), {}};
    for (const CLI::Option* option : command->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        description.options.push_back("--" + name);
      }
    }
    descriptions.push_back(std::move(description));
  }
  return descriptions;
}

std::string CommandLine::help(const std::string& command) const {
  const CLI::App& app = fParser->app;
  const CLI::App* const subject = command.empty() ? &app : app.get_subcommand(command);
  // Not App::help, which goes on to the subcommand being run: this one.
  const std::string usage = command.empty() ? app.get_name() : app.get_name() + " " + command;
  return subject->get_formatter()->make_help(subject, usage, CLI::AppFormatMode::Normal);
}

} // namespace gk::app
