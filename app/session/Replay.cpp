#include "app/session/Replay.h"

#include "formats/text/InputError.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace gk::app {

namespace {

/// What clients were refused in the recorded run they are refused again.
void refuseAsBefore(runtime::HostOptions& host) {
  const auto told = [&](const char* name) {
    const auto found = host.replay->about().find(name);
    return found != host.replay->about().end() ? found->second : std::string();
  };
  host.hadSimulation = told("robot").starts_with("sim");
  host.limits = devices::limitsOf(told("limits"));
}

} // namespace

int runReplay(const SessionOptions& session, const FileTests& tests, SessionView view,
              bool isAsInput) {
  runtime::HostOptions host = hostOptions(session);
  host.beside = tests.companions;
  host.companions = tests.ends;
  host.isVirtual = true;
  host.endsWithInput = !host.until.has_value();
  view.judge.expectations = tests.expectations;
  try {
    // The files may be the parts of a recorded run, to be repeated as it was.
    if (!isAsInput && std::ranges::all_of(session.files, runtime::RunReplay::isRun)) {
      if (!host.subscribe.empty() || !host.without.empty()) {
        fmt::print(stderr, "gk: a recorded run is repeated as it was, without --subscribe and "
                           "--without; --as-input plays what came in as any other file\n");
        return kBadInput;
      }
      if (!tests.ends.empty()) {
        fmt::print(stderr,
                   "gk: a recorded run ends where it did, and {} has an \"end\"; --as-input plays "
                   "what came in as any other file\n",
                   tests.ends.front());
        return kBadInput;
      }
      host.replay = std::make_shared<runtime::RunReplay>(host.files);
      host.without = host.replay->without();
      refuseAsBefore(host);
      host.files.clear();
    }
  } catch (const formats::InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
    return kBadInput;
  }
  return runSession(session, host, view);
}

} // namespace gk::app
