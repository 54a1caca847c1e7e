#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <thread>

namespace gk::app {

/// Waits on a thread of its own for SIGINT, SIGTERM, SIGHUP (unless it is ignored) or the end of a
/// time. Made before any other
/// thread: signals must be blocked in all of them.
///
/// A second signal ends the process at once.
class SignalWatch {
public:
  /// `onEnd` is called once at most, on the thread of the watch.
  SignalWatch(std::function<void()> onEnd, std::optional<std::chrono::microseconds> limit);
  ~SignalWatch();
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;

private:
  void xWatch(std::optional<std::chrono::microseconds> limit);

  std::function<void()> fOnEnd;
  std::thread fThread;
};

/// Blocks the watched signals in the calling thread and all that it starts.
void blockWatchedSignals();

} // namespace gk::app
