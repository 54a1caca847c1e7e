#include "app/run/Jobs.h"
#include "app/run/RunCommands.h"
#include "app/run/Watching.h"
#include "app/session/Complaints.h"
#include "app/session/FileTests.h"
#include "app/session/Libraries.h"
#include "app/session/Replay.h"
#include "formats/recording/TestFile.h"
#include "formats/text/InputError.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <set>
#include <utility>

namespace gk::app {

namespace {

struct ReplayOptions {
  SessionOptions session;
  bool isAsInput = false;
  bool isWatching = false;
  std::string report;
  std::string columns;
  /// 0: all files are one input.
  unsigned int jobs = 0;
};

int replay(const ReplayOptions& options) {
  SessionView view;
  view.hasProgressBar = true;
  view.report = options.report;
  view.columns = options.columns;
  SessionOptions session = options.session;
  try {
    const FileTests tests = readFileTests(session.files, session.isExpectingNothing);
    applyFileOptions(tests, session);
    if (!view.columns.empty() && session.sample.empty()) {
      complain("--columns: needs --sample, which names the keys");
      return kBadInput;
    }
    return runReplay(session, tests, std::move(view), options.isAsInput);
  } catch (const formats::InputError& error) {
    complainAsItStands(error.what());
    return kBadInput;
  }
}

/// Replays each file by itself. Their lines go to files in the folder that --out names.
int replayEach(const ReplayOptions& options) {
  const std::filesystem::path folder = options.session.out;
  if (!folder.empty() && !std::filesystem::is_directory(folder)) {
    complain(fmt::format("--out: with --jobs {} has to be a folder", folder.string()));
    return kBadInput;
  }
  if (!options.report.empty()) {
    complain("--report: is about one run, and does not go with --jobs");
    return kBadInput;
  }
  if (!options.columns.empty()) {
    complain("--columns: is of one run, and does not go with --jobs");
    return kBadInput;
  }
  std::vector<Job> jobs;
  std::set<std::filesystem::path> outputs;
  for (const std::string& file : options.session.files) {
    SessionOptions one = options.session;
    one.files = {file};
    if (!folder.empty()) {
      const std::filesystem::path name = std::filesystem::path(file).filename();
      one.out = (folder / name).string() + ".jsonl";
      if (!outputs.insert(one.out).second) {
        complain(fmt::format("--out: two files are named {}, they would share {}", name.string(),
                             one.out));
        return kBadInput;
      }
    }
    std::vector<std::string> arguments = sessionArguments(one);
    if (options.isAsInput) {
      arguments.insert(arguments.begin(), "--as-input");
    }
    arguments.insert(arguments.begin(), "replay");
    jobs.push_back({file, std::move(arguments)});
  }
  return runJobs(jobs, options.jobs);
}

/// What a run reads: inputs, what lies beside them, libraries.
std::vector<std::string> filesOf(const SessionOptions& session) {
  std::vector<std::string> files = session.files;
  for (const std::string& file : session.files) {
    files.push_back(formats::companionOf(file));
  }
  for (const std::string& name : libraryNames(session.libraries)) {
    try {
      files.push_back(runtime::findLibrary(name, libraryFolders()));
    } catch (const runtime::LoadError&) { // NOLINT(bugprone-empty-catch): each run says so
    }
  }
  return files;
}

/// The same replay anew each time that one of its files has changed.
int watch(const ReplayOptions& options) {
  if (options.jobs > 0) {
    complain("--watch: is about one run, and does not go with --jobs");
    return kBadInput;
  }
  std::vector<std::string> arguments = sessionArguments(options.session);
  if (options.session.isQuiet) {
    arguments.insert(arguments.begin(), "--quiet");
  }
  for (const std::string& name : options.session.show) {
    arguments.insert(arguments.begin(), {"--show", name});
  }
  if (!options.report.empty()) {
    arguments.insert(arguments.begin(), {"--report", options.report});
  }
  if (options.isAsInput) {
    arguments.insert(arguments.begin(), "--as-input");
  }
  arguments.insert(arguments.begin(), "replay");
  return runOnChanges(arguments, filesOf(options.session));
}

} // namespace

void addReplayCommand(const Command& program) {
  const Command command = program.subcommand(
      "replay", "Run recordings through the module library in virtual time, as fast as possible");
  auto options = std::make_shared<ReplayOptions>();
  addSessionOptions(command, options->session);
  command.argument("FILE").required();
  command.section("Input");
  command.flag("--as-input", options->isAsInput,
               "Play what came into a recorded run, in ticks of its own");
  command.flag("--watch", options->isWatching,
               "Replay anew whenever an input, what lies beside it or a library changes, until "
               "Ctrl-C");
  command.section("Output");
  command
      .option("--report", options->report,
              "Write a page with a time line, plots and counts to this file")
      .shows("FILE.html");
  command
      .option("--columns", options->columns,
              "Write the values of --sample to this file as a table that numpy maps")
      .shows("FILE.npy");
  command
      .option("-j,--jobs", options->jobs,
              "Replay each file by itself, N at a time, and show one line for each; --out then "
              "names a folder")
      .within(1, 1024)
      .shows("N");
  command.does([options] {
    if (options->isWatching) {
      return watch(*options);
    }
    return options->jobs > 0 ? replayEach(*options) : replay(*options);
  });
}

} // namespace gk::app
