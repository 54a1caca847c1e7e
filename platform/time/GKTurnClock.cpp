#include "gk/GKMutex.h"
#include "gk/GKPriorityMutex.h"
#include "gk/GKTurns.h"
#include "platform/time/GKRealTasks.h"
#include "platform/time/GKTaskPool.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace GK {

namespace {

/// The wall clock follows the computer's when it is off by more than this, microseconds.
constexpr std::int64_t kWallTolerance = 1000;

/// A lock that was freed without a word is looked at again after this.
constexpr std::chrono::milliseconds kLockPoll{20};

/// What the calling thread knows of its turn on the clock that it belongs to.
struct OwnTurn {
  const void* clock = nullptr;
  std::uint64_t task = GKTurn::kOutside;
  /// Tells this turn from all others; 0 without a turn.
  std::uint64_t serial = 0;
  GKMicros time = 0;
};

thread_local OwnTurn tTurn;

} // namespace

class GKTurnClock final : public GKClock {
public:
  GKTurnClock(std::shared_ptr<GKTurnObserver> observer, std::chrono::milliseconds patience,
              int loopPriority, double speed)
      : fObserver(std::move(observer)), fPatience(patience), fTasks(loopPriority, speed) {
    fWallOffset = fTasks.wall();
    fSerial = 1;
    fHolder = fSerial;
    tTurn = {this, GKTurn::kMain, fSerial, 0};
    fObserver->onTurn({GKTurn::kMain, 0, fWallOffset});
  }
  ~GKTurnClock() override {
    if (tTurn.clock == this) {
      tTurn = {};
    }
  }

  GKMicros elapsed() const noexcept override { return xHasTurn() ? tTurn.time : fTasks.elapsed(); }
  GKMicros measured() const noexcept override { return fTasks.elapsed(); }

  GKWallTime wallTime() const noexcept override {
    const std::int64_t now = elapsed() + fWallOffset.load(std::memory_order_relaxed);
    return {now / 1000000, now % 1000000};
  }

  void sleep(GKMicros duration) override {
    xAway([this, duration] { fTasks.sleep(duration); });
  }

  void post(GKTask task, std::function<void()> work) override {
    const GKOutsideTurn outside(*this);
    const std::uint64_t number = fNextTask.fetch_add(1, std::memory_order_relaxed);
    fObserver->onTask(number, task);
    const bool isLoop = task.isLoop();
    fTasks.run(isLoop, [this, number, task = std::move(task), work = std::move(work)]() mutable {
      xTake(number);
      {
        const GKTaskScope scope(task);
        work();
      }
      // What the work holds goes within its turn.
      work = nullptr;
      xGive();
      tTurn = {};
    });
  }

  void start(GKTask task, std::function<void()> work) override {
    post(std::move(task), std::move(work));
  }

  End run(GKInput* input, std::optional<GKMicros> until) override {
    {
      const std::lock_guard lock(fMutex);
      fIsPatient = false;
    }
    xGive();
    const End end = fTasks.play(input, until, [this, input] {
      const GKOutsideTurn turn(*this);
      input->apply();
    });
    if (input != nullptr) {
      input->onEnd();
    }
    xTake(GKTurn::kMain, end != End::Until);
    return end;
  }

  void requestEnd() noexcept override { fTasks.requestEnd(); }

  void joinTasks() override {
    xAway([this] { fTasks.join(); });
  }

  bool isVirtual() const noexcept override { return false; }
  bool isOneAtATime() const noexcept override { return true; }

protected:
  bool takeOutsideTurn() override {
    const bool isFree = !xHasTurn();
    if (isFree) {
      xTake(GKTurn::kOutside);
    }
    return isFree;
  }
  void giveOutsideTurn() noexcept override { xGive(); }

  // The lock itself is taken with the turn only, so that who gets it follows from the turns.
  void waitFor(GKMutex& mutex) override {
    if (!xHasTurn()) {
      mutex.lockOutright();
      return;
    }
    const GKMutex::Waiter waiter(mutex);
    for (std::uint64_t freed = xFreed(); !mutex.tryLock(); freed = xFreed()) {
      xAway([&] {
        std::unique_lock<std::mutex> lock(fMutex);
        fLockFreed.wait_for(lock, kLockPoll, [&] { return fFreed != freed; });
      });
    }
  }

  void freed(GKMutex&) noexcept override {
    const std::lock_guard lock(fMutex);
    ++fFreed;
    fLockFreed.notify_all();
  }

private:
  bool xHasTurn() const noexcept { return tTurn.clock == this && tTurn.serial != 0; }

  /// Waits for the turn. Turns that nobody is told of leave no trace in a repetition.
  void xTake(std::uint64_t task, bool isTold = true) {
    std::unique_lock<std::mutex> lock(fMutex);
    const auto isFree = [this] { return fHolder == 0; };
    if (fIsPatient) {
      fTurnFree.wait(lock, isFree);
    } else if (!fTurnFree.wait_for(lock, fPatience, isFree)) {
      fObserver->onOverlap();
    }
    fHolder = ++fSerial;
    fLastTime = std::max(fLastTime, fTasks.elapsed());
    const std::int64_t wallOffset = fTasks.wall() - fLastTime;
    if (std::abs(wallOffset - fWallOffset.load(std::memory_order_relaxed)) > kWallTolerance) {
      fWallOffset.store(wallOffset, std::memory_order_relaxed);
    }
    tTurn = {this, task, fHolder, fLastTime};
    if (isTold) {
      fObserver->onTurn({task, fLastTime, fWallOffset.load(std::memory_order_relaxed)});
    }
  }

  void xGive() noexcept {
    {
      const std::lock_guard lock(fMutex);
      // Whoever was too slow has lost it already.
      if (fHolder == tTurn.serial) {
        fHolder = 0;
      }
    }
    tTurn.serial = 0;
    fTurnFree.notify_one();
  }

  /// Does something that takes its time, without the turn.
  template <class Wait> void xAway(const Wait& wait) {
    if (!xHasTurn()) {
      wait();
      return;
    }
    const std::uint64_t task = tTurn.task;
    xGive();
    wait();
    xTake(task);
  }

  std::uint64_t xFreed() {
    const std::lock_guard lock(fMutex);
    return fFreed;
  }

  const std::shared_ptr<GKTurnObserver> fObserver;
  const std::chrono::milliseconds fPatience;
  std::atomic<std::int64_t> fWallOffset{0};
  std::atomic<std::uint64_t> fNextTask{GKTurn::kFirstTask};

  /// Guards what follows.
  GKPriorityMutex fMutex;
  std::condition_variable fTurnFree;
  /// The serial of the turn that is had; 0 while there is none.
  std::uint64_t fHolder = 0;
  std::uint64_t fSerial = 0;
  GKMicros fLastTime = 0;
  /// Before the run everybody waits for the main thread, however long loading takes.
  bool fIsPatient = true;

  std::condition_variable fLockFreed;
  std::uint64_t fFreed = 0;
  /// Last, so that its threads are gone before the rest.
  GKRealTasks fTasks;
};

std::shared_ptr<GKClock> makeTurnClock(std::shared_ptr<GKTurnObserver> observer,
                                       std::chrono::milliseconds patience, int loopPriority,
                                       double speed) {
  return std::make_shared<GKTurnClock>(std::move(observer), patience, loopPriority, speed);
}

GKTurnObserver::~GKTurnObserver() = default;
GKSchedule::~GKSchedule() = default;

GKOutsideTurn::GKOutsideTurn(GKClock& clock) : fClock(clock), fIsTaken(fClock.takeOutsideTurn()) {}

GKOutsideTurn::~GKOutsideTurn() {
  if (fIsTaken) {
    fClock.giveOutsideTurn();
  }
}

} // namespace GK
