#pragma once

#include "gk/GKClock.h"
#include "gk/GKMutex.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace gk::app {

/// The clock of a host that plays a recorded run: it stands where somebody sets it, back as well,
/// and bears the recording's date. Tasks run as on the computer's own clock.
class PlayClock final : public GK::GKClock {
public:
  /// `epoch`: microseconds since 1970 at time 0.
  explicit PlayClock(std::int64_t epoch) : fEpoch(epoch) {}

  /// Any thread.
  void set(GK::GKMicros time) noexcept { fTime.store(time, std::memory_order_relaxed); }

  GK::GKMicros elapsed() const noexcept override { return fTime.load(std::memory_order_relaxed); }
  GK::GKWallTime wallTime() const noexcept override {
    constexpr std::int64_t perSecond = 1'000'000;
    const std::int64_t now = fEpoch + elapsed();
    return {now / perSecond, now % perSecond};
  }
  void sleep(GK::GKMicros duration) override { fReal->sleep(duration); }
  void post(GK::GKTask task, std::function<void()> work) override {
    fReal->post(std::move(task), std::move(work));
  }
  void start(GK::GKTask task, std::function<void()> work) override {
    fReal->start(std::move(task), std::move(work));
  }
  End run(GK::GKInput* input, std::optional<GK::GKMicros> until) override {
    return fReal->run(input, until);
  }
  void requestEnd() noexcept override { fReal->requestEnd(); }
  void joinTasks() override { fReal->joinTasks(); }
  bool isVirtual() const noexcept override { return false; }

protected:
  void waitFor(GK::GKMutex& mutex) override { mutex.lockOutright(); }
  void freed(GK::GKMutex&) noexcept override {}

private:
  const std::int64_t fEpoch;
  std::atomic<GK::GKMicros> fTime{0};
  const std::shared_ptr<GK::GKClock> fReal = GK::makeRealClock();
};

} // namespace gk::app
