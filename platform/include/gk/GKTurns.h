#pragma once

#include "gk/GKApi.h"
#include "gk/GKClock.h"
#include "gk/GKTime.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

/// Runs that can be repeated: one task at a time has the turn, from where it wakes up to where it
/// falls asleep or ends, and to it time stands still meanwhile. What happens is then a function of
/// the order of turns, of their times, and of what comes from outside.
namespace GK {

/// Who may have a turn. Tasks are counted up from `kFirstTask` in the order in which they start.
struct GKTurn {
  static constexpr std::uint64_t kOutside = 0; ///< the input, and threads that are no tasks
  static constexpr std::uint64_t kMain = 1;    ///< the thread that made the clock
  static constexpr std::uint64_t kFirstTask = 2;

  std::uint64_t task = kOutside;
  /// Microseconds since the clock started.
  GKMicros time = 0;
  /// What the wall clock, in microseconds since 1970, is ahead of `time`.
  std::int64_t wallOffset = 0;
};

/// Sees the turns of a run. Called by whoever has the turn; must be quick and must not use the
/// clock.
class GK_API GKTurnObserver {
public:
  virtual ~GKTurnObserver();

  /// A turn begins. The main thread has it from the making of the clock on, and again when the run
  /// has ended for another reason than a time limit.
  virtual void onTurn(const GKTurn& turn) = 0;

  /// Whoever has the turn has started a task.
  virtual void onTask(std::uint64_t number, const GKTask& task) = 0;

  /// The turn was taken from a task that had it for too long and still runs: from here on two tasks
  /// have run at the same time.
  virtual void onOverlap() = 0;
};

/// The turns of a former run. Called by whoever has the turn.
class GK_API GKSchedule {
public:
  virtual ~GKSchedule();

  /// The next turn; nothing at the end. An exception ends the run and leaves from `GKClock::run`.
  virtual std::optional<GKTurn> next() = 0;

  /// The turn that `next` gave begins: what changed from outside before it is to be done now.
  virtual void begin() = 0;

  /// A task starts. Returns the number under which the former run knew it; nothing for a task that
  /// the former run did not have.
  virtual std::optional<std::uint64_t> started(const GKTask& task) = 0;
};

/// Has the turn of a thread that is no task, for what it does to the system from outside, on clocks
/// that have turns. For short pieces of work that do not sleep.
class GK_API GKOutsideTurn {
public:
  explicit GKOutsideTurn(GKClock& clock = GKClock::instance());
  ~GKOutsideTurn();
  GKOutsideTurn(const GKOutsideTurn&) = delete;
  GKOutsideTurn& operator=(const GKOutsideTurn&) = delete;

private:
  GKClock& fClock;
  const bool fIsTaken;
};

/// How long a turn may take before another task begins nevertheless: no task can stop the others
/// for longer.
constexpr std::chrono::milliseconds kTurnPatience{100};

/// The computer's own clock with turns. Whoever has the turn sees the time at which it began.
///
/// The main thread has the turn from here on until `run`, at time 0. `patience` is the computer's
/// time; `loopPriority`, `speed`: as for `makeRealClock`.
GK_API std::shared_ptr<GKClock> makeTurnClock(std::shared_ptr<GKTurnObserver> observer,
                                              std::chrono::milliseconds patience = kTurnPatience,
                                              int loopPriority = 0, double speed = 1.0);

/// A virtual clock (`makeVirtualClock`) whose turns are seen.
GK_API std::shared_ptr<GKClock> makeVirtualClock(std::int64_t epochSeconds,
                                                 std::shared_ptr<GKTurnObserver> observer);

/// A virtual clock that repeats the turns of a former run: however long its tasks want to sleep,
/// they wake when and in the order in which they did. Tasks that the former run did not have run
/// when they are due; turns of tasks that are not there are left out. The input is applied at the
/// turns of `GKTurn::kOutside`; `GKInput::next` is not asked. `run` ends with `End::Requested` at
/// the main thread's turn, and with `End::Until` when no turn is left.
GK_API std::shared_ptr<GKClock> makeReplayClock(std::shared_ptr<GKSchedule> schedule);

} // namespace GK
