#include "app/options/Command.h"

#include "app/options/ConfigFile.h"
#include "formats/text/NearestNames.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
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

/// The smaller the worse.
int rankOf(int code) {
  constexpr int ranks[] = {kBadInput, kFailure, kExpectationFailed, kSuccess};
  const auto* found = std::ranges::find(ranks, code);
  return found == std::end(ranks) ? -code : static_cast<int>(found - std::begin(ranks));
}

} // namespace

int worseOf(int one, int other) {
  return rankOf(one) <= rankOf(other) ? one : other;
}

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
  return checked([values](const std::string& value) {
    const bool isOne = std::ranges::find(values, value) != values.end();
    return isOne ? std::string()
                 : fmt::format("{} is none of {}{}", value, fmt::join(values, ", "),
                               formats::didYouMean(formats::nearestNames(value, values)));
  });
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

Command Command::titled(const std::string& title) const {
  Command command = *this;
  command.fTitle = title;
  return command;
}

Command Command::subcommand(const std::string& name, const std::string& text) const {
  // A word behind a command is never another one.
  fApp->require_subcommand(0, 1);
  CLI::App* added = fApp->add_subcommand(name, text);
  if (!fTitle.empty()) {
    added->group(fTitle);
  }
  return {added, fChosen};
}

void Command::section(const std::string& title) const {
  fApp->option_defaults()->group(title);
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

void Command::takesConfig(const std::string& text) const {
  // Read before the line is, of which its options become a part.
  fApp->add_option_function<std::string>(
          kConfigOption, [](const std::string&) {}, text)
      ->type_name("FILE");
}

void Command::does(Action action) const {
  fApp->callback([app = fApp, chosen = fChosen, action = std::move(action)] {
    // Of a command and one of its commands the latter was meant.
    if (app->get_subcommands().empty()) {
      *chosen = action;
    }
  });
}

} // namespace gk::app
