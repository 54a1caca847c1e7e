#include "gk/GKClock.h"
#include "gk/GKMutex.h"
#include "gk/GKTurns.h"
#include "platform/time/GKSleepers.h"
#include "platform/time/GKTaskPool.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

namespace GK {

namespace {

/// The baton of the task that the calling thread runs; null for threads outside of the clock.
thread_local GKBaton* tBaton = nullptr;

} // namespace

/// All state below is touched only by the holder of the baton. Whoever gives the baton away chooses
/// the next holder and moves the time himself, so that a lone sleeping loop never switches threads.
class GKVirtualClock final : public GKClock {
public:
  explicit GKVirtualClock(std::int64_t epochSeconds, std::shared_ptr<GKTurnObserver> observer = {})
      : fEpochSeconds(epochSeconds), fObserver(std::move(observer)) {
    tBaton = &fMain;
    xTell(GKTurn::kMain);
  }
  explicit GKVirtualClock(std::shared_ptr<GKSchedule> schedule)
      : fEpochSeconds(0), fSchedule(std::move(schedule)) {
    tBaton = &fMain;
    // The main thread's turn, in which libraries are loaded.
    if (const std::optional<GKTurn> turn = fSchedule->next()) {
      xBegin(*turn);
    }
  }
  ~GKVirtualClock() override {
    // The next clock may have been made, by this thread, before this one goes.
    if (tBaton == &fMain) {
      tBaton = nullptr;
    }
  }

  GKMicros elapsed() const noexcept override { return fNow.load(std::memory_order_relaxed); }

  GKWallTime wallTime() const noexcept override {
    constexpr GKMicros second = 1000000;
    // Any 64-bit epoch is allowed: sums wrap instead of overflowing.
    const auto now = static_cast<GKMicros>(
        static_cast<std::uint64_t>(elapsed()) +
        static_cast<std::uint64_t>(fWallOffset.load(std::memory_order_relaxed)));
    // Whole seconds downwards, also before 1970.
    const GKMicros micros = (now % second + second) % second;
    const GKMicros whole = now / second - (now % second < 0 ? 1 : 0);
    const auto seconds =
        static_cast<std::uint64_t>(fEpochSeconds) + static_cast<std::uint64_t>(whole);
    return {static_cast<std::int64_t>(seconds), micros};
  }

  void sleep(GKMicros duration) override {
    if (tBaton == nullptr) {
      return;
    }
    fSleepers.add({elapsed() + duration, fOrder++, tBaton});
    xPassOn(tBaton);
  }

  void post(GKTask task, std::function<void()> work) override {
    GKBaton& baton = xLaunch(std::move(task), std::move(work));
    fSleepers.add({elapsed(), fOrder++, &baton});
  }

  void start(GKTask task, std::function<void()> work) override {
    if (fSchedule != nullptr) {
      post(std::move(task), std::move(work));
      return;
    }
    GKBaton& baton = xLaunch(std::move(task), std::move(work));
    // The input goes on as soon as the call has ended or fallen asleep, before anything else.
    fInputHost = tBaton;
    xTell(baton.task);
    baton.release();
    tBaton->acquire();
  }

  End run(GKInput* input, std::optional<GKMicros> until) override {
    fInput = input;
    fUntil = until;
    xWaitInMain();
    fInput = nullptr;
    // What the main thread does from now on, sleeping included, is not part of the run.
    fUntil.reset();
    if (fInputError) {
      std::rethrow_exception(std::exchange(fInputError, nullptr));
    }
    return fEnd;
  }

  void requestEnd() noexcept override { fIsEndRequested.store(true, std::memory_order_relaxed); }

  void joinTasks() override {
    fIsJoining = true;
    xWaitInMain();
    if (fSleepers.isAnyLockWaitedFor()) {
      xDeadlock();
    }
  }

  bool isVirtual() const noexcept override { return true; }

protected:
  void waitFor(GKMutex& mutex) override {
    if (tBaton == nullptr) {
      mutex.lockOutright();
      return;
    }
    // It fell asleep here, however often somebody else gets the lock first.
    const std::uint64_t order = fOrder++;
    const GKMutex::Waiter waiter(mutex);
    while (!mutex.tryLock()) {
      fSleepers.addLockWaiter(order, tBaton, mutex);
      xPassOn(tBaton);
    }
  }

  void freed(GKMutex& mutex) noexcept override { fSleepers.freed(mutex, elapsed()); }

private:
  [[noreturn]] static void xDeadlock() {
    std::fputs("gk: tasks wait for locks that nobody will ever free\n", stderr);
    std::abort();
  }

  /// The number of a task that starts.
  std::optional<std::uint64_t> xNumber(const GKTask& task) {
    if (fSchedule != nullptr) {
      return fSchedule->started(task);
    }
    const std::uint64_t number = fNextTask++;
    if (fObserver != nullptr) {
      fObserver->onTask(number, task);
    }
    return number;
  }

  void xTell(std::optional<std::uint64_t> task) {
    if (fObserver != nullptr && task) {
      // Far from our time this wraps: a repetition then has another wall time.
      const std::uint64_t wall = static_cast<std::uint64_t>(fEpochSeconds) * 1000000;
      fObserver->onTurn({*task, elapsed(), static_cast<std::int64_t>(wall)});
    }
  }

  /// A task's thread, waiting for the returned baton.
  GKBaton& xLaunch(GKTask task, std::function<void()> work) {
    auto baton = std::make_shared<GKBaton>(xNumber(task));
    fPool.run([this, baton, task = std::move(task), work = std::move(work)]() mutable {
      baton->acquire();
      tBaton = baton.get();
      {
        const GKTaskScope scope(task);
        work();
      }
      // What the work holds goes before the task counts as ended: libraries are closed after that.
      work = nullptr;
      xChoose()->release();
      tBaton = nullptr;
    });
    return *baton;
  }

  /// Gives the baton to whoever is next and returns when it comes back to `self`.
  void xPassOn(GKBaton* self) {
    GKBaton* next = xChoose();
    if (next != self) {
      next->release();
      self->acquire();
    }
  }

  void xWaitInMain() {
    fIsMainWaiting = true;
    xPassOn(&fMain);
  }

  GKBaton* xWakeMain(End end) {
    fIsMainWaiting = false;
    fEnd = end;
    if (end != End::Until) {
      xTell(GKTurn::kMain);
    }
    return &fMain;
  }

  /// Moves the time to the next thing that happens. Plays the input on the way; returns whose turn
  /// it is.
  GKBaton* xChoose() {
    if (fInputHost != nullptr) {
      return std::exchange(fInputHost, nullptr);
    }
    while (true) {
      if (fIsMainWaiting && !fIsJoining && fIsEndRequested.load(std::memory_order_relaxed)) {
        return xWakeMain(End::Requested);
      }
      if (fSchedule != nullptr) {
        if (GKBaton* next = xFollow()) {
          return next;
        }
        continue;
      }
      const std::optional<GKMicros> sleeper = xNextSleeper();
      const std::optional<GKMicros> input = xNextInput();
      if (input && (!sleeper || *input <= *sleeper) && !xIsBeyondLimit(*input)) {
        fNow.store(*input, std::memory_order_relaxed);
        xTell(GKTurn::kOutside);
        xApplyInput();
      } else if (sleeper && !xIsBeyondLimit(*sleeper)) {
        fNow.store(*sleeper, std::memory_order_relaxed);
        GKBaton* next = fSleepers.takeFirst();
        xTell(next->task);
        return next;
      } else if (!fIsMainWaiting) {
        xDeadlock();
      } else if (!xGoesOn()) {
        return xWakeMain(sleeper || input ? End::Until : End::Idle);
      }
    }
  }

  /// Carries out one turn of the schedule. Returns whose it is; null when nobody's thread is needed
  /// for it, or when the schedule has come to its end.
  GKBaton* xFollow() {
    const std::optional<GKTurn> turn = xNextTurn();
    if (!turn || xIsBeyondLimit(turn->time)) {
      fSchedule.reset();
      fInput = nullptr;
      return fIsMainWaiting && !fIsJoining ? xWakeMain(End::Until) : nullptr;
    }
    if (GKBaton* unknown = xTakeUnknown(turn->time)) {
      return unknown;
    }
    xBegin(*turn);
    if (turn->task == GKTurn::kOutside) {
      xApplyInput();
      return nullptr;
    }
    if (GKBaton* next = fSleepers.takeTask(turn->task)) {
      return next;
    }
    const bool isEnd = turn->task == GKTurn::kMain && fIsMainWaiting && !fIsJoining;
    return isEnd ? xWakeMain(End::Requested) : nullptr;
  }

  std::optional<GKTurn> xNextTurn() {
    try {
      return fSchedule->next();
    } catch (...) {
      xInputFailed();
      return std::nullopt;
    }
  }

  void xBegin(const GKTurn& turn) {
    fNow.store(std::max(elapsed(), turn.time), std::memory_order_relaxed);
    fWallOffset.store(turn.wallOffset, std::memory_order_relaxed);
    try {
      fSchedule->begin();
    } catch (...) {
      xInputFailed();
    }
  }

  /// A task that is not in the schedule and due by `time`.
  GKBaton* xTakeUnknown(GKMicros time) {
    const GKPlace* first = fSleepers.firstUnknown(time);
    if (first == nullptr) {
      return nullptr;
    }
    fNow.store(std::max(elapsed(), first->due), std::memory_order_relaxed);
    return fSleepers.take(first);
  }

  bool xIsBeyondLimit(GKMicros due) const { return fUntil.has_value() && due > *fUntil; }

  /// Whether the input wants the run to go on behind the limit.
  bool xGoesOn() {
    if (fInput == nullptr || fIsJoining || !fUntil) {
      return false;
    }
    try {
      const std::optional<GKMicros> limit = fInput->goOn();
      fUntil = limit ? limit : fUntil;
      return limit.has_value();
    } catch (...) {
      xInputFailed();
      return true;
    }
  }

  std::optional<GKMicros> xNextSleeper() const {
    if (fSleepers.isEmpty()) {
      return std::nullopt;
    }
    return std::max(elapsed(), fSleepers.firstDue());
  }

  std::optional<GKMicros> xNextInput() {
    if (fInput == nullptr || fIsJoining) {
      return std::nullopt;
    }
    try {
      const std::optional<GKMicros> due = fInput->next();
      return due ? std::optional(std::max(elapsed(), *due)) : std::nullopt;
    } catch (...) {
      xInputFailed();
      return elapsed();
    }
  }

  void xApplyInput() {
    if (fInput == nullptr) {
      return;
    }
    try {
      fInput->apply();
    } catch (...) {
      xInputFailed();
    }
  }

  void xInputFailed() {
    fInputError = std::current_exception();
    fInput = nullptr;
    requestEnd();
  }

  const std::int64_t fEpochSeconds;
  const std::shared_ptr<GKTurnObserver> fObserver;
  /// Null when there is none, or no more of it.
  std::shared_ptr<GKSchedule> fSchedule;
  std::uint64_t fNextTask = GKTurn::kFirstTask;
  /// What the wall clock of a schedule is ahead, microseconds; 0 without one.
  std::atomic<std::int64_t> fWallOffset{0};
  /// Read by any thread, moved by the holder of the baton.
  std::atomic<GKMicros> fNow{0};
  std::uint64_t fOrder = 0;
  GKSleepers fSleepers;

  GKInput* fInput = nullptr;
  std::exception_ptr fInputError;
  /// The thread on which the input waits for a call that it has started.
  GKBaton* fInputHost = nullptr;

  GKBaton fMain{GKTurn::kMain};
  bool fIsMainWaiting = false;
  bool fIsJoining = false;
  std::optional<GKMicros> fUntil;
  End fEnd = End::Idle;
  std::atomic<bool> fIsEndRequested{false};

  /// Last, so that its threads are gone before the rest.
  GKTaskPool fPool;
};

std::shared_ptr<GKClock> makeVirtualClock(std::int64_t epochSeconds) {
  return std::make_shared<GKVirtualClock>(epochSeconds);
}

std::shared_ptr<GKClock> makeVirtualClock(std::int64_t epochSeconds,
                                          std::shared_ptr<GKTurnObserver> observer) {
  return std::make_shared<GKVirtualClock>(epochSeconds, std::move(observer));
}

std::shared_ptr<GKClock> makeReplayClock(std::shared_ptr<GKSchedule> schedule) {
  return std::make_shared<GKVirtualClock>(std::move(schedule));
}

} // namespace GK
