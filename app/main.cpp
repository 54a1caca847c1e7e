#include "app/ask/AskCommands.h"
#include "app/authors/AuthorCommands.h"
#include "app/FleetProgram.h"
#include "app/options/CommandLine.h"
#include "app/play/PlayCommands.h"
#include "app/recordings/RecordingCommands.h"
#include "app/run/RunCommands.h"
#include "app/session/Process.h"
#include "app/test/TestCommand.h"
#include "gk/GKVersion.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

void addHelpCommand(const CommandLine& line) {
  const Command command =
      line.program().titled(kHelpTitle).subcommand("help", "Show the help of a command");
  auto names = std::make_shared<std::vector<std::string>>();
  command.option("COMMAND", *names, "The command, such as run or recording info").shows("");
  command.does([&line, names] {
    fmt::print("{}", line.help(*names));
    return static_cast<int>(kSuccess);
  });
}

constexpr const char* kVersion =
    "gk " GK_VERSION " (module platform " GK_PLATFORM_ABI ", commit " GK_COMMIT ")";

constexpr const char* kFooter = R"(Examples:
  gk run                                       the simulated robot, until Ctrl-C
  gk set Simulation/Touch/Head/Touch/Front on  touch its head, from another shell
  gk events 'Sonar*'                           see some of its events
  gk run --record night.mcap                   keep a run in a file
  gk replay night.mcap --report night.html     repeat it, and make a page of it
  gk play night.mcap                           watch it again, on the page
  gk diff night.mcap --library ./libmine.so    see what another library makes of it
  gk fleet list                                many robots, those first that need somebody
  gk help recording convert                    what a command of a command takes

Environment:
  GK_HOST        the host to ask where --host is not given; else 127.0.0.1:8090
  GK_TOKEN_FILE  the file of its token where --token-file is not given
  GK_FLEET       the broker of gk fleet where --broker is not given; else 127.0.0.1:1883
  GK_LIBRARY_PATH  folders in which --library NAME is looked for first
  NO_COLOR       no colours on a terminal

Exit codes: 0 done, 1 failed (gk diff: different), 2 wrong input, option or name, 3 an expectation
of a run does not hold
)";

int runProgram(int argc, char** argv) {
  if (const int code = replacedByFleet(argc, argv); code >= 0) {
    return code;
  }
  const CommandLine line("gk", "gk: sensor modules of a small humanoid robot", kVersion);
  const Command run = line.program().titled("Run");
  addRunCommand(run);
  addReplayCommand(run);
  addTestCommand(run);
  const Command ask = line.program().titled("Ask a running host");
  addModulesCommand(ask);
  addDescribeCommand(ask);
  addCallCommand(ask);
  addGetCommand(ask);
  addSetCommand(ask);
  addKeysCommand(ask);
  addEventsCommand(ask);
  addWatchCommand(ask);
  addTopCommand(ask);
  addDoctorCommand(ask);
  const Command robots = line.program().titled("Many robots");
  addFleetCommand(robots);
  const Command recordings = line.program().titled("Recordings");
  addRecordCommand(recordings);
  addKeepCommand(recordings);
  addRecordingCommand(recordings);
  addDiffCommand(recordings);
  addPlayCommand(recordings);
  const Command authors = line.program().titled("Write modules");
  addNewCommand(authors);
  addLibraryCommand(authors);
  addCompletionCommand(line);
  addHelpCommand(line);
  line.program().footer(kFooter);
  return line.run(argc, argv);
}

} // namespace

} // namespace gk::app

int main(int argc, char** argv) {
  return gk::app::runProcess("gk", [&] { return gk::app::runProgram(argc, argv); });
}
