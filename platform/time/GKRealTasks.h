#pragma once

#include "gk/GKClock.h"
#include "gk/GKPriorityMutex.h"
#include "platform/time/GKTaskPool.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <optional>
#include <semaphore.h>

namespace GK {

/// Closed until it is opened once and for all. Whoever waits at it takes no lock.
class GKGate {
public:
  GKGate() { sem_init(&fPasses, 0, 0); }
  ~GKGate() { sem_destroy(&fPasses); }
  GKGate(const GKGate&) = delete;
  GKGate& operator=(const GKGate&) = delete;

  void open() { sem_post(&fPasses); }
  /// Returns when the gate is open, at `deadline` at the latest.
  void waitUntil(std::chrono::steady_clock::time_point deadline);

private:
  sem_t fPasses{};
};

/// What all clocks of real time need: the time since they were made, their tasks, and how both come
/// to their end. Any thread.
class GKRealTasks {
public:
  using Steady = std::chrono::steady_clock;

  /// As for `makeRealClock`.
  GKRealTasks(int loopPriority, double speed) : fSpeed(speed), fLoopPriority(loopPriority) {}

  /// Microseconds since the start, as fast as the clock goes; `now`: by the computer's steady
  /// clock.
  GKMicros elapsed(Steady::time_point now = Steady::now()) const noexcept;
  /// Microseconds since 1970, by the computer's wall clock; at other speeds than 1 only the start
  /// is the computer's.
  GKMicros wall() const noexcept;

  /// Cut short by `join`. Takes no lock: a loop must not wait for other sleepers on its way out.
  void sleep(GKMicros duration);

  /// Runs `work` on a thread of its own. What it holds goes before the task counts as ended:
  /// libraries are closed after that.
  void run(bool isLoop, std::function<void()> work);

  /// As `GKClock::run`, with `apply` to carry out a step of the input.
  GKClock::End play(GKInput* input, std::optional<GKMicros> until,
                    const std::function<void()>& apply);
  void requestEnd() noexcept;

  /// Ends all sleeps, those to come as well, and waits for all tasks.
  void join();

private:
  static GKMicros systemWall() noexcept;
  /// Waits until `due`, or for ever without one. True when the end was asked for.
  bool xWaitForEnd(std::optional<GKMicros> due);
  /// How long `duration` takes on the computer's clock.
  Steady::duration xSteady(GKMicros duration) const noexcept;

  const Steady::time_point fStart = Steady::now();
  const GKMicros fWallStart = systemWall();
  const double fSpeed;
  const int fLoopPriority;
  GKGate fJoining;
  GKPriorityMutex fMutex;
  std::condition_variable fEnd;
  std::condition_variable fAllEnded;
  bool fIsEndRequested = false;
  std::size_t fTasks = 0;
  /// Last, so that its threads are gone before the rest.
  GKTaskPool fPool;
};

} // namespace GK
