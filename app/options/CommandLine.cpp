#include "app/options/CommandLine.h"

#include "app/options/ConfigFile.h"
#include "app/options/Journal.h"
#include "app/options/Slips.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace gk::app {

struct CommandLine::Parser {
  Parser(const std::string& name, const std::string& text) : app(text, name) {}

  CLI::App app;
  Action chosen;
};

CommandLine::CommandLine(const std::string& name, const std::string& text,
                         const std::string& version)
    : fParser(std::make_unique<Parser>(name, text)) {
  fParser->app.set_version_flag("--version", version, "Print the version and end");
}

CommandLine::~CommandLine() = default;

Command CommandLine::program() const {
  return {&fParser->app, &fParser->chosen};
}

int CommandLine::run(int argc, const char* const* argv) const {
  CLI::App& app = fParser->app;
  const std::vector<std::string> words(argv + 1, argv + argc);
  const auto option =
      std::ranges::find_if(words, [](const std::string& word) { return word.starts_with('-'); });
  ConfiguredLine line;
  try {
    const std::vector<std::string> names(words.begin(), option);
    const CLI::App& subject = commandOf(app, names);
    line = configured(app, subject, words);
    // The parser takes them from the end.
    app.parse(std::vector<std::string>(line.words.rbegin(), line.words.rend()));
    expectNoSlip(app, words);
    if (fParser->chosen) {
      return fParser->chosen();
    }
    fmt::print("{}", helpOf(subject));
    return kSuccess;
  } catch (const CLI::Success& request) {
    return app.exit(request);
  } catch (const CLI::ParseError& error) {
    const std::string complaint = complaintOf(app, error);
    const bool isOfFile = std::ranges::any_of(
        line.fromFile, [&](const std::string& name) { return complaint.starts_with(name + ":"); });
    fmt::print(stderr, "{}{}: {}{}\n", journalLevel(Severity::Error), app.get_name(),
               isOfFile ? line.file + ": " : "", complaint);
    return kBadInput;
  }
}

std::vector<CommandLine::Description> CommandLine::commands() const {
  std::vector<Description> descriptions;
  for (const CLI::App* command :
       fParser->app.get_subcommands([](const CLI::App*) { return true; })) {
    if (command->get_group().empty()) {
      continue;
    }
    Description description{command->get_name(), command->get_description(), {}};
    for (const CLI::Option* option : command->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        description.options.push_back("--" + name);
      }
    }
    descriptions.push_back(std::move(description));
  }
  return descriptions;
}

std::string CommandLine::help(const std::vector<std::string>& command) const {
  return helpOf(commandNamed(fParser->app, command));
}

} // namespace gk::app
