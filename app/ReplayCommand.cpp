#include "app/Commands.h"
#include "app/Session.h"
#include "formats/InputError.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace gk::app {

namespace {

struct ReplayOptions {
  SessionOptions session;
  bool isAsInput = false;
  std::string report;
};

/// True when the files are the parts of a recorded run, to be repeated as it was.
bool isRun(const ReplayOptions& options) {
  const auto& files = options.session.files;
  return !options.isAsInput && std::all_of(files.begin(), files.end(), runtime::RunReplay::isRun);
}

int replay(const ReplayOptions& options) {
  runtime::HostOptions host = hostOptions(options.session);
  host.isVirtual = true;
  host.endsWithInput = !host.until.has_value();
  SessionView view;
  view.hasProgressBar = true;
  view.report = options.report;
  try {
    if (isRun(options)) {
      if (!host.subscribe.empty() || !host.without.empty()) {
        fmt::print(stderr, "gk: a recorded run is repeated as it was, without --subscribe and "
                           "--without; --as-input plays what came in as any other file\n");
        return kBadInput;
      }
      host.replay = std::make_shared<runtime::RunReplay>(host.files);
      host.without = host.replay->without();
      host.files.clear();
    }
  } catch (const formats::InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
    return kBadInput;
  }
  return runSession(options.session, host, view);
}

} // namespace

void addReplayCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "replay", "Run recordings through the module library in virtual time, as fast as possible");
  auto options = std::make_shared<ReplayOptions>();
  addSessionOptions(*command, options->session);
  command->get_option("FILE")->required();
  command->add_flag("--as-input", options->isAsInput,
                    "Play what came into a recorded run, in ticks of its own");
  command
      ->add_option("--report", options->report,
                   "Write a page with a time line, plots and counts to this file")
      ->type_name("FILE.html");
  command->callback([options, &action] { action = [options] { return replay(*options); }; });
}

} // namespace gk::app
