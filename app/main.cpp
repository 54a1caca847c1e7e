#include "app/Commands.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <exception>
#include <memory>
#include <string>

namespace {

using gk::app::Action;

void addHelpCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("help", "Show the help of a command");
  auto name = std::make_shared<std::string>();
  command->add_option("COMMAND", *name, "The command")
      ->check(CLI::Validator(
          [&app](const std::string& text) {
            const auto all = app.get_subcommands(
                [&text](const CLI::App* one) { return one->get_name() == text; });
            return all.empty() ? text + " is no command of gk" : std::string();
          },
          ""));
  command->callback([&app, &action, name] {
    action = [&app, name] {
      const CLI::App* subject = name->empty() ? &app : app.get_subcommand(*name);
      // Not App::help, which goes on to the subcommand being run: this one.
      const std::string usage = name->empty() ? "gk" : "gk " + *name;
      fmt::print("{}",
                 subject->get_formatter()->make_help(subject, usage, CLI::AppFormatMode::Normal));
      return 0;
    };
  });
}

int runProgram(int argc, char** argv) {
  CLI::App app("gk: sensor modules of a small humanoid robot", "gk");
  app.set_version_flag("--version", "gk " GK_VERSION);
  app.require_subcommand(1);
  Action action;
  gk::app::addRunCommand(app, action);
  gk::app::addReplayCommand(app, action);
  gk::app::addRecordingCommand(app, action);
  gk::app::addModulesCommand(app, action);
  gk::app::addDescribeCommand(app, action);
  gk::app::addCallCommand(app, action);
  gk::app::addGetCommand(app, action);
  gk::app::addSetCommand(app, action);
  gk::app::addKeysCommand(app, action);
  gk::app::addEventsCommand(app, action);
  gk::app::addWatchCommand(app, action);
  gk::app::addRecordCommand(app, action);
  gk::app::addTopCommand(app, action);
  gk::app::addDoctorCommand(app, action);
  gk::app::addCompletionCommand(app, action);
  addHelpCommand(app, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& request) {
    return app.exit(request);
  } catch (const CLI::ParseError& error) {
    fmt::print(stderr, "gk: {}\n", error.what());
    return gk::app::kBadInput;
  }
  return action();
}

} // namespace

int main(int argc, char** argv) {
  try {
    return runProgram(argc, argv);
  } catch (const std::exception& error) {
    fmt::print(stderr, "gk: {}\n", error.what());
    return gk::app::kFailure;
  }
}
