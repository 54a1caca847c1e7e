#pragma once

#include "gk/GKClock.h"
#include "gk/GKPriorityMutex.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <thread>
#include <vector>

namespace GK {

/// Threads for tasks: as many as there are tasks, kept for later ones.
class GKTaskPool {
public:
  GKTaskPool() = default;
  /// Waits for all work.
  ~GKTaskPool();
  GKTaskPool(const GKTaskPool&) = delete;
  GKTaskPool& operator=(const GKTaskPool&) = delete;

  /// Runs `work` at once on a thread of its own. Any thread.
  void run(std::function<void()> work);

private:
  void xServe();

  GKPriorityMutex fMutex;
  std::condition_variable fWake;
  std::deque<std::function<void()>> fQueue;
  std::size_t fIdle = 0;
  bool fClosing = false;
  std::vector<std::thread> fThreads;
};

/// When the calling thread's loop woke up for the present tick, and how late that was.
struct GKLoopWake {
  bool isKnown = false;
  GKMicros time = 0;
  GKMicros lateness = 0;

  /// The calling thread's; unknown at the beginning of each task.
  static GKLoopWake& current() noexcept;
};

/// Makes `task` the current one of the calling thread until it goes out of scope.
class GKTaskScope {
public:
  explicit GKTaskScope(const GKTask& task) noexcept;
  ~GKTaskScope();
  GKTaskScope(const GKTaskScope&) = delete;
  GKTaskScope& operator=(const GKTaskScope&) = delete;
};

} // namespace GK
