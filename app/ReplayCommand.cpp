#include "app/Commands.h"
#include "app/Jobs.h"
#include "app/Session.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <set>

namespace gk::app {

namespace {

struct ReplayOptions {
  SessionOptions session;
  /// 0: all files are one input.
  unsigned int jobs = 0;
};

int replay(const SessionOptions& options) {
  runtime::HostOptions host = hostOptions(options);
  host.isVirtual = true;
  host.endsWithInput = !host.until.has_value();
  SessionView view;
  view.hasProgressBar = true;
  return runSession(options, host, view);
}

/// Replays each file by itself. Their lines go to files in the folder that --out names.
int replayEach(const ReplayOptions& options) {
  const std::filesystem::path folder = options.session.out;
  if (!folder.empty() && !std::filesystem::is_directory(folder)) {
    fmt::print(stderr, "gk: --out: with --jobs {} has to be a folder\n", folder.string());
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
        fmt::print(stderr, "gk: --out: two files are named {}, they would share {}\n",
                   name.string(), one.out);
        return kBadInput;
      }
    }
    std::vector<std::string> arguments = sessionArguments(one);
    arguments.insert(arguments.begin(), "replay");
    jobs.push_back({file, std::move(arguments)});
  }
  return runJobs(jobs, options.jobs);
}

} // namespace

void addReplayCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "replay", "Run recordings through the module library in virtual time, as fast as possible");
  auto options = std::make_shared<ReplayOptions>();
  addSessionOptions(*command, options->session);
  command->get_option("FILE")->required();
  command
      ->add_option(
          "-j,--jobs", options->jobs,
          "Replay each file by itself, N at a time, and show one line for each; --out then "
          "names a folder")
      ->check(CLI::Range(1, 1024).description(""))
      ->type_name("N");
  command->callback([options, &action] {
    action = [options] {
      return options->jobs > 0 ? replayEach(*options) : replay(options->session);
    };
  });
}

} // namespace gk::app
