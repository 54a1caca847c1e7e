#include "gk/GKClock.h"
#include "gk/GKMutex.h"
#include "GKPriorityScope.h"
#include "GKTaskPool.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>

namespace GK {

namespace {

using Steady = std::chrono::steady_clock;

} // namespace

class GKRealClock final : public GKClock {
public:
  explicit GKRealClock(int loopPriority) : fLoopPriority(loopPriority) {}

  GKMicros elapsed() const noexcept override {
    return std::chrono::duration_cast<std::chrono::microseconds>(Steady::now() - fStart).count();
  }

  GKMicros elapsedRoughly() const noexcept override {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const Steady::duration since = std::chrono::seconds(now.tv_sec) +
                                   std::chrono::nanoseconds(now.tv_nsec) -
                                   fStart.time_since_epoch();
    return std::max(std::chrono::duration_cast<std::chrono::microseconds>(since).count(),
                    GKMicros{0});
  }

  GKWallTime wallTime() const noexcept override {
    const GKMicros now = std::chrono::duration_cast<std::chrono::microseconds>(
                             std::chrono::system_clock::now().time_since_epoch())
                             .count();
    return {now / 1000000, now % 1000000};
  }

  void sleep(GKMicros duration) override {
    const Steady::time_point deadline = Steady::now() + std::chrono::microseconds(duration);
    std::unique_lock lock(fMutex);
    fJoining.wait_until(lock, deadline, [this] { return fIsJoining; });
  }

  void post(GKTask task, std::function<void()> work) override {
    {
      const std::lock_guard lock(fMutex);
      ++fTasks;
    }
    fPool.run([this, task = std::move(task), work = std::move(work)]() mutable {
      {
        const GKTaskScope scope(task);
        const GKPriorityScope priority(task.isLoop() ? fLoopPriority : 0);
        work();
      }
      // What the work holds goes before the task counts as ended: libraries are closed after that.
      work = nullptr;
      const std::lock_guard lock(fMutex);
      if (--fTasks == 0) {
        fAllEnded.notify_all();
      }
    });
  }

  void start(GKTask task, std::function<void()> work) override {
    post(std::move(task), std::move(work));
  }

  End run(GKInput* input, std::optional<GKMicros> until) override {
    while (true) {
      std::optional<GKMicros> due = input != nullptr ? input->next() : std::nullopt;
      const bool isInput = due.has_value() && (!until || *due <= *until);
      if (xWaitForEnd(isInput ? due : until)) {
        return End::Requested;
      }
      if (!isInput) {
        return End::Until;
      }
      input->apply();
    }
  }

  void requestEnd() noexcept override {
    const std::lock_guard lock(fMutex);
    fIsEndRequested = true;
    fEnd.notify_all();
  }

  void joinTasks() override {
    std::unique_lock lock(fMutex);
    fIsJoining = true;
    fJoining.notify_all();
    fAllEnded.wait(lock, [this] { return fTasks == 0; });
  }

  bool isVirtual() const noexcept override { return false; }

protected:
  void waitFor(GKMutex& mutex) override { mutex.fMutex.lock(); }
  void freed(GKMutex&) noexcept override {}

private:
  /// Waits until `due`, or for ever without one. True when the end was asked for.
  bool xWaitForEnd(std::optional<GKMicros> due) {
    std::unique_lock lock(fMutex);
    const auto isEnd = [this] { return fIsEndRequested; };
    if (!due) {
      fEnd.wait(lock, isEnd);
      return true;
    }
    return fEnd.wait_until(lock, fStart + std::chrono::microseconds(*due), isEnd);
  }

  const Steady::time_point fStart = Steady::now();
  const int fLoopPriority;
  std::mutex fMutex;
  std::condition_variable fEnd;
  std::condition_variable fJoining;
  std::condition_variable fAllEnded;
  bool fIsEndRequested = false;
  bool fIsJoining = false;
  std::size_t fTasks = 0;
  /// Last, so that its threads are gone before the rest.
  GKTaskPool fPool;
};

std::shared_ptr<GKClock> makeRealClock(int loopPriority) {
  return std::make_shared<GKRealClock>(loopPriority);
}

} // namespace GK
