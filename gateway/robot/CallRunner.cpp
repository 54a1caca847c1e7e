#include "gateway/robot/CallRunner.h"

#include "gk/GKCaller.h"
#include "gk/GKClock.h"

#include <exception>
#include <utility>

namespace gk::gateway {

namespace {

CallOutcome outcomeOf(const BoundCall& call) {
  CallOutcome outcome;
  try {
    const GK::GKCallerScope scope(GK::GKCaller::Client);
    GK::GKValue value = call.module->callMethod(call.method, call.arguments);
    if (call.hasResult) {
      outcome.result = std::move(value);
    }
  } catch (const GK::GKError& error) {
    outcome.error = raisedError(error);
  } catch (const std::exception& error) {
    outcome.error = RpcError{kInternalError, error.what(), {}};
  } catch (...) {
    outcome.error = RpcError{kInternalError, "unknown exception", {}};
  }
  return outcome;
}

} // namespace

bool CallRunner::start(BoundCall call, Done done) {
  // Before anybody is told: what is not carried out must not be repeated either.
  if (!xReserve()) {
    return false;
  }
  GK::GKTask task{call.module->getName(), call.method};
  const formats::CallAction action{task.module, task.method, call.arguments,
                                   task.module + "." + task.method};
  const auto begin = [&] {
    xPost(std::move(task),
          [call = std::move(call), done = std::move(done)] { done(outcomeOf(call)); });
  };
  if (fCarryOut) {
    fCarryOut(action, begin);
  } else {
    begin();
  }
  return true;
}

bool CallRunner::start(GK::GKTask name, std::function<void()> work) {
  if (!xReserve()) {
    return false;
  }
  xPost(std::move(name), std::move(work));
  return true;
}

bool CallRunner::xReserve() {
  if (fIsClosed.load(std::memory_order_relaxed)) {
    return false;
  }
  if (fRunning.fetch_add(1, std::memory_order_relaxed) >= fLimit) {
    fRunning.fetch_sub(1, std::memory_order_relaxed);
    return false;
  }
  return true;
}

void CallRunner::xPost(GK::GKTask name, std::function<void()> work) {
  const auto post = [&] {
    GK::GKClock::instance().post(std::move(name), [this, work = std::move(work)] {
      try {
        work();
      } catch (...) { // NOLINT(bugprone-empty-catch): there is nobody left to tell
      }
      fRunning.fetch_sub(1, std::memory_order_relaxed);
    });
  };
  if (fOutside) {
    fOutside(post);
  } else {
    post();
  }
}

} // namespace gk::gateway
