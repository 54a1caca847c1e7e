#include "app/terminal/SignalWatch.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
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

/// The next watched signal, or signal 0 once the time is over.
EndWish waitForSignal(std::optional<std::chrono::microseconds> limit) {
  const sigset_t signals = watchedSignals();
  siginfo_t info{};
  int signal = -1;
  if (limit) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(*limit);
    timespec time{};
    time.tv_sec = seconds.count();
    time.tv_nsec = std::chrono::nanoseconds(*limit - seconds).count();
    signal = sigtimedwait(&signals, &info, &time);
  } else {
    // Interrupted when the process was stopped and goes on.
    while (signal < 0) {
      signal = sigwaitinfo(&signals, &info);
    }
  }
  return signal > 0 ? EndWish{signal, info.si_code == SI_USER ? info.si_pid : 0} : EndWish{};
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

std::string EndWish::text() const {
  if (signal == 0) {
    return "its time limit";
  }
  const char* name = sigabbrev_np(signal);
  std::string text = name != nullptr ? std::string("SIG") + name : std::to_string(signal);
  return sender != 0 ? text + " (process " + std::to_string(sender) + ")" : text;
}

SignalWatch::SignalWatch(std::function<void(const EndWish&)> onEnd,
                         std::optional<std::chrono::microseconds> limit)
    : fOnEnd(std::move(onEnd)), fThread([this, limit] { xWatch(limit); }) {}

SignalWatch::~SignalWatch() {
  pthread_kill(fThread.native_handle(), kStopWatching);
  fThread.join();
}

void SignalWatch::xWatch(std::optional<std::chrono::microseconds> limit) {
  const EndWish wish = waitForSignal(limit);
  if (wish.signal == kStopWatching) {
    return;
  }
  fOnEnd(wish);
  const auto second = std::chrono::steady_clock::now() + kOneWish;
  for (auto now = std::chrono::steady_clock::now(); now < second;
       now = std::chrono::steady_clock::now()) {
    if (waitForSignal(std::chrono::ceil<std::chrono::microseconds>(second - now)).signal ==
        kStopWatching) {
      return;
    }
  }
  if (const EndWish again = waitForSignal(std::nullopt); again.signal != kStopWatching) {
    endBy(again.signal);
  }
}

} // namespace gk::app
