#include "app/ask/AskCommands.h"
#include "app/options/CommandLine.h"
#include "app/recordings/RecordingCommands.h"
#include "app/run/RunCommands.h"
#include "app/session/Process.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <system_error>

namespace gk::app {

namespace {

void addHelpCommand(const CommandLine& line) {
  const Command command = line.program().subcommand("help", "Show the help of a command");
  auto name = std::make_shared<std::string>();
  command.option("COMMAND", *name, "The command").checked([&line](const std::string& text) {
    const bool isKnown =
        std::ranges::count(line.commands(), text, &CommandLine::Description::name) > 0;
    return isKnown ? std::string() : text + " is no command of gk";
  });
  command.does([&line, name] {
    fmt::print("{}", line.help(*name));
    return static_cast<int>(kSuccess);
  });
}

int runProgram(int argc, char** argv) {
  const CommandLine line("gk", "gk: sensor modules of a small humanoid robot", "gk " GK_VERSION);
  const Command program = line.program();
  addRunCommand(program);
  addReplayCommand(program);
  addRecordingCommand(program);
  addModulesCommand(program);
  addDescribeCommand(program);
  addCallCommand(program);
  addGetCommand(program);
  addSetCommand(program);
  addKeysCommand(program);
  addEventsCommand(program);
  addWatchCommand(program);
  addRecordCommand(program);
  addTopCommand(program);
  addDoctorCommand(program);
  addCompletionCommand(line);
  addHelpCommand(line);
  return line.run(argc, argv);
}

} // namespace

} // namespace gk::app

int main(int argc, char** argv) {
  gk::app::prepareProcess();
  try {
    return gk::app::finishStandardOutput(gk::app::runProgram(argc, argv));
  } catch (const std::system_error& error) {
    const bool isOutput = std::ferror(stdout) != 0;
    fmt::print(stderr, "gk: {}\n",
               isOutput ? "cannot write standard output: " + error.code().message() : error.what());
    return gk::app::kFailure;
  } catch (const std::exception& error) {
    fmt::print(stderr, "gk: {}\n", error.what());
    return gk::app::kFailure;
  }
}
