#pragma once

#include "gateway/robot/CarryOut.h"
#include "gateway/robot/Robot.h"
#include "gateway/robot/RpcRequest.h"
#include "gk/GKClock.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace gk::gateway {

/// How a call ended: with a result, which methods without one leave out, or with an error.
struct CallOutcome {
  std::optional<GK::GKValue> result;
  std::optional<RpcError> error;
  /// A result that is no value, as JSON; only of the host's own methods.
  std::string json;
};

/// Runs calls of clients in tasks of the platform, so that none holds up another or the gateway,
/// and never more than a fixed number at a time. Tasks end with the host: a call that sleeps is cut
/// short by the shutdown.
///
/// Any thread. Must outlive its tasks, which the broker's shutdown waits for.
class CallRunner {
public:
  static constexpr std::size_t kMaxCalls = 128;

  using Done = std::function<void(CallOutcome)>;

  explicit CallRunner(std::size_t limit = kMaxCalls) : fLimit(limit) {}

  /// How calls are started from here on. Before the first one.
  void setCarryOut(CarryOut carryOut) { fCarryOut = std::move(carryOut); }

  /// Where tasks are posted from here on, if not every thread may do that. Before the first call.
  void setOutside(Outside outside) { fOutside = std::move(outside); }

  /// From here on no call is started: what is left of batches ends without having been run.
  void close() noexcept { fIsClosed.store(true, std::memory_order_relaxed); }

  /// Calls `done` in the task of the call, or returns false when too many calls are running.
  [[nodiscard]] bool start(BoundCall call, Done done);

  /// The same for work of another kind; `name` names its task. What `work` raises is lost.
  [[nodiscard]] bool start(GK::GKTask name, std::function<void()> work);

  std::size_t running() const noexcept { return fRunning.load(std::memory_order_relaxed); }

private:
  /// Takes one of the places, if one is free.
  bool xReserve();
  /// Runs work in a task, and gives its place back.
  void xPost(GK::GKTask name, std::function<void()> work);

  const std::size_t fLimit;
  CarryOut fCarryOut;
  Outside fOutside;
  std::atomic<std::size_t> fRunning{0};
  std::atomic<bool> fIsClosed{false};
};

} // namespace gk::gateway
