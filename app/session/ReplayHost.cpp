#include "app/session/ReplayHost.h"

#include "formats/text/FormatError.h"

#include <algorithm>
#include <memory>
#include <string>

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

runtime::HostOptions replayHost(const SessionOptions& options, const FileTests& tests,
                                bool isAsInput) {
  runtime::HostOptions host = hostOptions(options);
  host.beside = tests.companions;
  host.companions = tests.ends;
  host.isVirtual = true;
  host.endsWithInput = !host.until.has_value();
  // The files are the parts of one run then.
  if (isAsInput || !std::ranges::all_of(host.files, runtime::RunReplay::isRun)) {
    return host;
  }
  if (!host.subscribe.empty() || !host.without.empty()) {
    throw formats::FormatError("a recorded run is repeated as it was, without --subscribe and "
                               "--without; --as-input plays what came in as any other file");
  }
  host.replay = std::make_shared<runtime::RunReplay>(host.files);
  host.without = host.replay->without();
  refuseAsBefore(host);
  host.files.clear();
  return host;
}

} // namespace gk::app
