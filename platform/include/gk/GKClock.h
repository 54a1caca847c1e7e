#pragma once

#include "gk/GKApi.h"
#include "gk/GKTime.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace GK {

class GKMutex;

/// Who runs: the bound method that a task of the platform was started for.
struct GKTask {
  std::string module;
  std::string method;
  /// What `GKProxy::postCall` returned for it; 0 for tasks that were started in another way.
  int number = 0;

  /// The name of the bound method that is a module's periodic loop. Each sleep of a task that runs
  /// a method of this name ends one tick.
  static constexpr const char* kLoopMethod = "run";

  bool isLoop() const { return method == kLoopMethod; }

  /// The task that the calling thread runs, or null outside of tasks.
  GK_API static const GKTask* current() noexcept;
};

/// A point in time as clients see it: whole seconds since 1970-01-01T00:00:00 UTC and microseconds.
struct GKWallTime {
  std::int64_t seconds = 0;
  std::int64_t microseconds = 0;
};

/// What a host plays into the system as time goes on.
class GKInput {
public:
  virtual ~GKInput() = default;

  /// When the next step is due, in microseconds since the clock started, never going back;
  /// nothing at the end of the input.
  virtual std::optional<GKMicros> next() = 0;

  /// Carries out one step that is due. May start calls (`GKClock::start`) and ask for the end of
  /// the run. Must not sleep nor wait for a `GKMutex`.
  virtual void apply() = 0;

  /// On the virtual clock, when all is done that is due by the time limit: a later limit up to
  /// which the run goes on, or nothing. On whichever thread that was done; nothing else happens
  /// meanwhile, so that it may wait for somebody outside.
  virtual std::optional<GKMicros> goOn() { return std::nullopt; }

  /// The run has ended, and the thread that plays it has no turn yet on a clock that gives turns:
  /// it may wait here for threads that still want one.
  virtual void onEnd() {}
};

/// Time and tasks of the process. Everything that tells the time, sleeps, waits for a lock or runs
/// in the background does so through the one installed clock; no module can tell which one it is.
///
/// All operations may be called from any thread unless said otherwise here or by the clock's maker.
class GK_API GKClock {
public:
  /// Why `run` returned.
  enum class End {
    Requested, ///< `requestEnd` was called
    Until,     ///< the time limit was reached
    Idle       ///< nothing is left that could ever happen
  };

  virtual ~GKClock();

  /// Microseconds since this clock started; never goes back.
  virtual GKMicros elapsed() const noexcept = 0;

  /// As `elapsed`, at a quarter of the cost, and late by the operating system's timer tick (a few
  /// milliseconds) at most.
  virtual GKMicros elapsedRoughly() const noexcept { return elapsed(); }

  /// As `elapsed`, and goes on while the caller works in real time: for measuring how long that
  /// takes. Nothing else may depend on it.
  virtual GKMicros measured() const noexcept { return elapsed(); }

  virtual GKWallTime wallTime() const noexcept = 0;

  /// Suspends the calling thread; 0 gives way to whatever is due before.
  virtual void sleep(GKMicros duration) = 0;

  /// Runs `work` in a task of its own, at once, however many others are running. `work` must not
  /// let exceptions out.
  virtual void post(GKTask task, std::function<void()> work) = 0;

  /// As `post`, and ahead of everything that is due. For the input of `run`.
  virtual void start(GKTask task, std::function<void()> work) = 0;

  /// Plays `input` (may be null) until an end is asked for, `until` (microseconds since the start)
  /// has passed or nothing is left to do. Called by the thread that created the clock. Exceptions
  /// of the input end the run and leave from here.
  virtual End run(GKInput* input, std::optional<GKMicros> until) = 0;

  /// Makes `run` return as soon as the running task sleeps or ends.
  virtual void requestEnd() noexcept = 0;

  /// Waits until every task has ended. Called by the thread that created the clock, at shutdown;
  /// sleeps of a real clock are cut short from here on.
  virtual void joinTasks() = 0;

  /// True where nothing may be lost for the sake of time: sinks are waited for.
  virtual bool isVirtual() const noexcept = 0;

  /// True where no other task runs until the calling one sleeps, waits for a lock or ends.
  virtual bool isOneAtATime() const noexcept { return isVirtual(); }

  /// The installed clock. There is always one: a real clock until another one is installed.
  static GKClock& instance();

  /// Replaces the installed clock; null brings back a fresh real one. Only while no task runs and
  /// nobody waits for a lock.
  static void install(std::shared_ptr<GKClock> clock);

protected:
  friend class GKMutex;
  virtual void waitFor(GKMutex& mutex) = 0;
  virtual void freed(GKMutex& mutex) noexcept = 0;

  friend class GKOutsideTurn;
  /// True when the calling thread got the turn by this call and has to give it back.
  virtual bool takeOutsideTurn() { return false; }
  virtual void giveOutsideTurn() noexcept {}
};

/// The computer's own clock; every task has a thread.
///
/// `loopPriority`: tasks that are loops run under the operating system's first-in-first-out
/// scheduling at this priority (1 to 99); 0 leaves them as all others are. Where that is not
/// permitted, nothing changes.
///
/// `speed`, above 0: how many seconds of this clock pass in one of the computer's. Its wall time
/// begins as the computer's and goes as fast.
GK_API std::shared_ptr<GKClock> makeRealClock(int loopPriority = 0, double speed = 1.0);

/// A clock that stands still while anything runs, and jumps to the next moment at which something
/// is due as soon as everything is asleep. Exactly one task runs at a time, so that what happens is
/// a function of the input.
///
/// At equal times the input comes first, then whoever fell asleep first; a posted task counts as
/// one that fell asleep when it was posted. A task that waits for a lock keeps its place.
///
/// Only its tasks and the thread that made it take part: all other threads may tell the time and
/// ask for the end, nothing else; a sleep of theirs returns at once. Where the rest waits for locks
/// that nobody will ever free, the process ends.
///
/// `epochSeconds` is the wall time at the start, in seconds since 1970.
GK_API std::shared_ptr<GKClock> makeVirtualClock(std::int64_t epochSeconds);

} // namespace GK
