// A thread of real-time priority that does nothing but sleep, beside the loop of a host: how late
// it wakes is what the machine alone makes a loop late. Usage: bare_loop PID [SECONDS] Holds the
// host's loop and itself on one processor, with one priority and one period.

#include "runtime/figures/Histogram.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

/// The period of the sensors' loop.
constexpr std::chrono::milliseconds kPeriod{20};
/// How long the host may take until its loop runs.
constexpr std::chrono::seconds kPatience{10};

struct Loop {
  pid_t thread = 0;
  int priority = 0;
};

/// The thread of a process that runs under SCHED_FIFO.
std::optional<Loop> loopOf(const std::string& pid) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/" + pid + "/task")) {
    const auto thread = static_cast<pid_t>(std::stol(entry.path().filename()));
    sched_param parameters{};
    if (sched_getscheduler(thread) == SCHED_FIFO && sched_getparam(thread, &parameters) == 0) {
      return Loop{thread, parameters.sched_priority};
    }
  }
  return std::nullopt;
}

Loop awaitLoop(const std::string& pid) {
  const Clock::time_point patience = Clock::now() + kPatience;
  while (Clock::now() < patience) {
    if (const std::optional<Loop> loop = loopOf(pid)) {
      return *loop;
    }
    std::this_thread::sleep_for(kPeriod);
  }
  std::fprintf(stderr, "bare_loop: no thread of %s has real-time priority\n", pid.c_str());
  std::exit(1);
}

void expect(bool isDone, const char* what) {
  if (!isDone) {
    std::fprintf(stderr, "bare_loop: %s: %s\n", what, std::strerror(errno));
    std::exit(1);
  }
}

/// Seconds that the hypervisor gave to others: `name` is "cpu" for all processors, "cpu0" for one.
double stolen(const std::string& name) {
  constexpr int place = 8;
  std::ifstream file("/proc/stat");
  std::string word;
  while (file >> word) {
    if (word == name) {
      for (int i = 0; i < place && file >> word; ++i) {
      }
      return std::strtod(word.c_str(), nullptr) / static_cast<double>(sysconf(_SC_CLK_TCK));
    }
    std::getline(file, word);
  }
  return 0;
}

timespec timeOf(Clock::time_point time) {
  const auto since = time.time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
  return {seconds.count(), std::chrono::nanoseconds(since - seconds).count()};
}

/// Sleeps as a loop does: so much from the end of a tick on.
gk::runtime::Histogram sleepAgainAndAgain(Clock::duration length) {
  gk::runtime::Histogram lateness;
  const Clock::time_point end = Clock::now() + length;
  for (Clock::time_point now = Clock::now(); now < end;) {
    const Clock::time_point due = now + kPeriod;
    const timespec until = timeOf(due);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
    now = Clock::now();
    lateness.add(std::chrono::duration_cast<std::chrono::microseconds>(now - due).count());
  }
  return lateness;
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bare_loop PID [SECONDS]\n");
    return 2;
  }
  const int seconds = argc > 2 ? std::atoi(argv[2]) : 600;
  const Loop loop = awaitLoop(argv[1]);
  // The last one: interrupts of devices mostly go to the first.
  const auto processor = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)) - 1;
  cpu_set_t processors;
  CPU_ZERO(&processors);
  CPU_SET(static_cast<std::size_t>(processor), &processors);
  const sched_param parameters{loop.priority};
  expect(mlockall(MCL_CURRENT | MCL_FUTURE) == 0, "memory cannot be locked");
  expect(sched_setaffinity(loop.thread, sizeof processors, &processors) == 0, "the host's loop");
  expect(sched_setaffinity(0, sizeof processors, &processors) == 0, "affinity");
  expect(sched_setscheduler(0, SCHED_FIFO, &parameters) == 0, "real-time priority");

  const std::string name = "cpu" + std::to_string(processor);
  const double before = stolen("cpu");
  const double beforeHere = stolen(name);
  const gk::runtime::Histogram lateness = sleepAgainAndAgain(std::chrono::seconds(seconds));
  const double taken = stolen("cpu") - before;
  const double takenHere = stolen(name) - beforeHere;

  const auto quantile = [&](double share) {
    return static_cast<double>(lateness.quantile(share)) / 1e3;
  };
  std::printf("bare: %.3f %.3f %.3f %.3f\n", quantile(0.5), quantile(0.99), quantile(0.999),
              static_cast<double>(lateness.max()) / 1e3);
  std::printf("stolen: %.2f s of this processor, %.2f s of all\n", takenHere, taken);
  return 0;
}
