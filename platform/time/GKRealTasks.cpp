#include "platform/time/GKRealTasks.h"

#include "platform/time/GKPriorityScope.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <mutex>
#include <utility>

namespace GK {

namespace {

/// Longer than any computer runs, and far from what a time point of its clock cannot hold.
constexpr std::chrono::microseconds kForever = std::chrono::years(100);

/// Microseconds. Who has slept until a moment must not find that it is still to come.
constexpr double kLostByRounding = 0.001;

template <class Duration> GKMicros microsOf(Duration duration) {
  return std::chrono::duration_cast<std::chrono::microseconds>(duration).count();
}

} // namespace

void GKGate::waitUntil(std::chrono::steady_clock::time_point deadline) {
  const auto time = deadline.time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  const timespec until{seconds.count(), std::chrono::nanoseconds(time - seconds).count()};
  // The steady clock is the system's monotonic one.
  int failed = 0;
  do {
    failed = sem_clockwait(&fPasses, CLOCK_MONOTONIC, &until);
  } while (failed != 0 && errno == EINTR);
  if (failed == 0) {
    open(); // for the next one
  }
}

GKMicros GKRealTasks::elapsed(Steady::time_point now) const noexcept {
  const GKMicros since = microsOf(now - fStart);
  return fSpeed == 1.0
             ? since
             : static_cast<GKMicros>(static_cast<double>(since) * fSpeed + kLostByRounding);
}

GKMicros GKRealTasks::wall() const noexcept {
  return fSpeed == 1.0 ? systemWall() : fWallStart + elapsed();
}

GKMicros GKRealTasks::systemWall() noexcept {
  return microsOf(std::chrono::system_clock::now().time_since_epoch());
}

GKRealTasks::Steady::duration GKRealTasks::xSteady(GKMicros duration) const noexcept {
  if (fSpeed == 1.0) {
    return std::chrono::microseconds(std::min(duration, kForever.count()));
  }
  // Rounded up: who wakes finds that the time has come.
  const double micros = std::ceil(static_cast<double>(duration) / fSpeed);
  return micros < static_cast<double>(kForever.count())
             ? std::chrono::microseconds(static_cast<GKMicros>(micros))
             : kForever;
}

void GKRealTasks::sleep(GKMicros duration) {
  fJoining.waitUntil(Steady::now() + xSteady(duration));
}

void GKRealTasks::run(bool isLoop, std::function<void()> work) {
  {
    const std::lock_guard lock(fMutex);
    ++fTasks;
  }
  fPool.run([this, priority = isLoop ? fLoopPriority : 0, work = std::move(work)]() mutable {
    {
      const GKPriorityScope scope(priority);
      work();
    }
    work = nullptr;
    const std::lock_guard lock(fMutex);
    if (--fTasks == 0) {
      fAllEnded.notify_all();
    }
  });
}

GKClock::End GKRealTasks::play(GKInput* input, std::optional<GKMicros> until,
                               const std::function<void()>& apply) {
  while (true) {
    const std::optional<GKMicros> due = input != nullptr ? input->next() : std::nullopt;
    const bool isInput = due.has_value() && (!until || *due <= *until);
    if (xWaitForEnd(isInput ? due : until)) {
      return GKClock::End::Requested;
    }
    if (!isInput) {
      return GKClock::End::Until;
    }
    apply();
  }
}

void GKRealTasks::requestEnd() noexcept {
  const std::lock_guard lock(fMutex);
  fIsEndRequested = true;
  fEnd.notify_all();
}

void GKRealTasks::join() {
  fJoining.open();
  std::unique_lock<std::mutex> lock(fMutex);
  fAllEnded.wait(lock, [this] { return fTasks == 0; });
}

bool GKRealTasks::xWaitForEnd(std::optional<GKMicros> due) {
  std::unique_lock<std::mutex> lock(fMutex);
  const auto isEnd = [this] { return fIsEndRequested; };
  if (!due) {
    fEnd.wait(lock, isEnd);
    return true;
  }
  return fEnd.wait_until(lock, fStart + xSteady(*due), isEnd);
}

} // namespace GK
