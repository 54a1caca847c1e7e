#include "app/session/Replay.h"

#include "app/session/Complaints.h"
#include "app/session/ReplayHost.h"
#include "formats/text/InputError.h"
#include "messages/text/FormatError.h"

#include <fmt/format.h>

#include <utility>

namespace gk::app {

int runReplay(const SessionOptions& session, const FileTests& tests, SessionView view,
              bool isAsInput) {
  runtime::HostOptions host;
  try {
    host = replayHost(session, tests, isAsInput);
    if (host.replay != nullptr && !tests.ends.empty()) {
      throw messages::FormatError(
          "a recorded run ends where it did, and " + tests.ends.front() +
          " has an \"end\"; --as-input plays what came in as any other file");
    }
  } catch (const formats::InputError& error) {
    complainAsItStands(error.what());
    return kBadInput;
  } catch (const messages::FormatError& error) {
    complain(error.what());
    return kBadInput;
  }
  view.judge.expectations = tests.expectations;
  return runSession(session, host, view);
}

} // namespace gk::app
