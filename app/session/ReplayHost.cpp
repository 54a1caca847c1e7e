#include "app/session/ReplayHost.h"

#include "app/session/Libraries.h"
#include "messages/text/FormatError.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

/// A member of what the recorded run tells about itself; empty when there is none.
std::string told(const runtime::RunReplay& replay, const char* name) {
  const auto found = replay.about().find(name);
  return found != replay.about().end() ? found->second : std::string();
}

/// What clients were refused in the recorded run they are refused again.
void refuseAsBefore(runtime::HostOptions& host) {
  host.hadSimulation = told(*host.replay, "robot").starts_with("sim");
  host.limits = devices::limitsOf(told(*host.replay, "limits"));
}

/// The libraries that it had, unless the options say otherwise.
std::vector<std::string> librariesAsBefore(const runtime::RunReplay& replay,
                                           const SessionOptions& options) {
  std::vector<std::string> libraries = recordedLibraries(told(replay, "libraries"));
  if (libraries.empty()) {
    libraries.emplace_back(kOwnLibrary);
  }
  return libraryNames(addLibraries(libraries, options.libraries));
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
    throw messages::FormatError("a recorded run is repeated as it was, without --subscribe and "
                                "--without; --as-input plays what came in as any other file");
  }
  host.replay = std::make_shared<runtime::RunReplay>(host.files);
  host.without = host.replay->without();
  host.libraries = librariesAsBefore(*host.replay, options);
  refuseAsBefore(host);
  host.files.clear();
  return host;
}

} // namespace gk::app
