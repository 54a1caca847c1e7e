#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace gk::app {

/// Why something is to end.
struct EndWish {
  /// 0 when the time is over.
  int signal = 0;
  /// Who sent it; 0 when that was no process, such as for the keys of a terminal.
  int sender = 0;

  /// "SIGTERM (process 1234)", "SIGINT", "its time limit".
  std::string text() const;
};

/// Waits on a thread of its own for SIGINT, SIGTERM, SIGHUP (unless it is ignored) or the end of a
/// time. Made before any other
/// thread: signals must be blocked in all of them.
///
/// A second signal ends the process at once.
class SignalWatch {
public:
  /// `onEnd` is called once at most, on the thread of the watch.
  SignalWatch(std::function<void(const EndWish&)> onEnd,
              std::optional<std::chrono::microseconds> limit);
  ~SignalWatch();
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;

private:
  void xWatch(std::optional<std::chrono::microseconds> limit);

  std::function<void(const EndWish&)> fOnEnd;
  std::thread fThread;
};

/// Blocks the watched signals in the calling thread and all that it starts.
void blockWatchedSignals();

} // namespace gk::app
