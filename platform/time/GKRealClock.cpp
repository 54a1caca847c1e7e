#include "gk/GKClock.h"
#include "gk/GKMutex.h"
#include "platform/time/GKRealTasks.h"
#include "platform/time/GKTaskPool.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <utility>

namespace GK {

class GKRealClock final : public GKClock {
public:
  GKRealClock(int loopPriority, double speed) : fTasks(loopPriority, speed) {}

  GKMicros elapsed() const noexcept override { return fTasks.elapsed(); }

  GKMicros elapsedRoughly() const noexcept override {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const auto since = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
    return std::max(fTasks.elapsed(GKRealTasks::Steady::time_point(since)), GKMicros{0});
  }

  GKWallTime wallTime() const noexcept override {
    const GKMicros now = fTasks.wall();
    return {now / 1000000, now % 1000000};
  }

  void sleep(GKMicros duration) override { fTasks.sleep(duration); }

  void post(GKTask task, std::function<void()> work) override {
    const bool isLoop = task.isLoop();
    fTasks.run(isLoop, [task = std::move(task), work = std::move(work)] {
      const GKTaskScope scope(task);
      work();
    });
  }

  void start(GKTask task, std::function<void()> work) override {
    post(std::move(task), std::move(work));
  }

  End run(GKInput* input, std::optional<GKMicros> until) override {
    return fTasks.play(input, until, [input] { input->apply(); });
  }

  void requestEnd() noexcept override { fTasks.requestEnd(); }

  void joinTasks() override { fTasks.join(); }

  bool isVirtual() const noexcept override { return false; }

protected:
  void waitFor(GKMutex& mutex) override { mutex.lockOutright(); }
  void freed(GKMutex&) noexcept override {}

private:
  GKRealTasks fTasks;
};

std::shared_ptr<GKClock> makeRealClock(int loopPriority, double speed) {
  return std::make_shared<GKRealClock>(loopPriority, speed);
}

} // namespace GK
