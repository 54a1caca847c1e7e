#include "app/terminal/SignalWatch.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace gk::app {

namespace {

/// Signals that come so soon after the first are the same wish: who ends a whole group of
/// processes may reach one of them twice.
constexpr std::chrono::milliseconds kOneWish{300};

/// Ends the watch itself.
constexpr int kStopWatching = SIGUSR1;

sigset_t watchedSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  // Ignored by whoever wants to outlive a terminal. A blocked signal would come nevertheless.
  struct sigaction hangUp {};
  sigaction(SIGHUP, nullptr, &hangUp);
  if (hangUp.sa_handler != SIG_IGN) {
    sigaddset(&signals, SIGHUP);
  }
  sigaddset(&signals, kStopWatching);
  return signals;
}

/// The next watched signal, or nothing once the time is over.
std::optional<int> waitForSignal(std::optional<std::chrono::microseconds> limit) {
  const sigset_t signals = watchedSignals();
  if (!limit) {
    int signal = 0;
    sigwait(&signals, &signal);
    return signal;
  }
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(*limit);
  timespec time{};
  time.tv_sec = seconds.count();
  time.tv_nsec = std::chrono::nanoseconds(*limit - seconds).count();
  const int signal = sigtimedwait(&signals, nullptr, &time);
  return signal > 0 ? std::optional(signal) : std::nullopt;
}

/// Ends the process by a signal that is blocked, as if it were not.
[[noreturn]] void endBy(int signal) {
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  raise(signal);
  pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  constexpr int kSignalled = 128;
  std::_Exit(kSignalled + signal);
}

} // namespace

void blockWatchedSignals() {
  const sigset_t signals = watchedSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

SignalWatch::SignalWatch(std::function<void()> onEnd,
                         std::optional<std::chrono::microseconds> limit)
    : fOnEnd(std::move(onEnd)), fThread([this, limit] { xWatch(limit); }) {}

SignalWatch::~SignalWatch() {
  pthread_kill(fThread.native_handle(), kStopWatching);
  fThread.join();
}

void SignalWatch::xWatch(std::optional<std::chrono::microseconds> limit) {
  if (waitForSignal(limit) == kStopWatching) {
    return;
  }
  fOnEnd();
  const auto second = std::chrono::steady_clock::now() + kOneWish;
  for (auto now = std::chrono::steady_clock::now(); now < second;
       now = std::chrono::steady_clock::now()) {
    if (waitForSignal(std::chrono::ceil<std::chrono::microseconds>(second - now)) ==
        kStopWatching) {
      return;
    }
  }
  if (const std::optional<int> signal = waitForSignal(std::nullopt); signal != kStopWatching) {
    endBy(*signal);
  }
}

} // namespace gk::app
