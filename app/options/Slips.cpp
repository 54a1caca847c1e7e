#include "app/options/Slips.h"

#include "formats/text/NearestNames.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>

namespace gk::app {

namespace {

std::vector<const CLI::App*> commandsIn(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

/// "gk recording info".
std::string pathOf(const CLI::App& command) {
  return command.get_parent() == nullptr ? command.get_name()
                                         : pathOf(*command.get_parent()) + " " + command.get_name();
}

const CLI::App& commandIn(const CLI::App& app, const std::string& name) {
  const std::vector<const CLI::App*> commands = commandsIn(app);
  std::vector<std::string> shown;
  for (const CLI::App* command : commands) {
    if (command->get_name() == name) {
      return *command;
    }
    if (!command->get_group().empty()) {
      shown.push_back(command->get_name());
    }
  }
  throw CLI::ExtrasError(pathOf(app) + " has no command " + name +
                             formats::didYouMean(formats::nearestNames(name, shown)),
                         CLI::ExitCodes::ExtrasError);
}

/// The command that was given last, which has what was left over.
const CLI::App& givenLast(const CLI::App& app) {
  const auto given = app.get_subcommands();
  return given.empty() ? app : givenLast(*given.back());
}

/// Whether words behind the command may be others than its commands.
bool takesWords(const CLI::App& command) {
  return std::ranges::any_of(command.get_options(),
                             [](const CLI::Option* option) { return option->get_positional(); });
}

/// "-3" is a number.
bool isOption(const std::string& word) {
  return word.size() > 1 && word[0] == '-' && word != "--" &&
         std::isdigit(static_cast<unsigned char>(word[1])) == 0;
}

std::vector<std::string> optionsLike(const CLI::App& command, const std::string& word) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
  }
  if (word.size() > 2) {
    return formats::nearestNames(word[1] == '-' ? word : "-" + word, names);
  }
  // Of a letter there is nothing but where names begin.
  std::erase_if(names, [&word](const std::string& name) { return name[2] != word[1]; });
  constexpr std::size_t most = 3;
  names.resize(std::min(names.size(), most));
  return names;
}

/// What is wrong with the first option that nobody knows; empty when there is none. Where words may
/// be anything, only what is nearly an option counts.
std::string unknownOption(const CLI::App& command) {
  for (const std::string& word : command.remaining()) {
    const std::string name = word.substr(0, word.find('='));
    if (!isOption(name)) {
      continue;
    }
    const std::vector<std::string> nearest = optionsLike(command, name);
    if (!command.get_allow_extras() || (name[1] == '-' && !nearest.empty())) {
      return pathOf(command) + " has no option " + name + formats::didYouMean(nearest);
    }
  }
  return {};
}

} // namespace

bool hasCommands(const CLI::App& app) {
  return !commandsIn(app).empty();
}

const CLI::App& commandOf(const CLI::App& app, const std::vector<std::string>& words) {
  const CLI::App* command = &app;
  for (auto word = words.begin(); word != words.end() && hasCommands(*command); ++word) {
    const auto isMeant = [&word](const CLI::App* one) { return one->get_name() == *word; };
    if (takesWords(*command) && std::ranges::none_of(commandsIn(*command), isMeant)) {
      break;
    }
    command = &commandIn(*command, *word);
  }
  return *command;
}

const CLI::App& commandNamed(const CLI::App& app, const std::vector<std::string>& words) {
  const CLI::App* command = &app;
  for (const std::string& word : words) {
    command = &commandIn(*command, word);
  }
  return *command;
}

std::string helpOf(const CLI::App& command) {
  // Not App::help, which goes on to the subcommand being run.
  return command.get_formatter()->make_help(&command, pathOf(command), CLI::AppFormatMode::Normal);
}

void expectNoSlip(const CLI::App& app, const std::vector<std::string>& words) {
  if (std::ranges::find(words, "--") != words.end()) {
    return;
  }
  if (const std::string slip = unknownOption(givenLast(app)); !slip.empty()) {
    throw CLI::ExtrasError(slip, CLI::ExitCodes::ExtrasError);
  }
}

std::string complaintOf(const CLI::App& app, const CLI::ParseError& error) {
  for (const CLI::App* command : {&app, &givenLast(app)}) {
    if (std::string slip = unknownOption(*command); !slip.empty()) {
      return slip;
    }
  }
  const CLI::App& command = givenLast(app);
  const std::vector<std::string> left = command.remaining();
  if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError) && !left.empty()) {
    return pathOf(command) + " has no use for " + left.front();
  }
  return error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError)
             ? std::string(error.what()) + "; " + pathOf(app) + " help" +
                   pathOf(command).substr(pathOf(app).size()) + " tells more"
             : error.what();
}

} // namespace gk::app
