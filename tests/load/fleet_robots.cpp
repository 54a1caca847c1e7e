#include "extensions/fleet/Bridge.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKObserver.h"
#include "messages/fleet/BrokerAddress.h"
#include "zu/log.h"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <utility>
#include <vector>

// Robots that do nothing but raise events, each with a bridge of its own, all in this process. What
// one raises all of them tell: observers are the process's.
//
// Usage: fleet_robots BROKER FOLDER FIRST ROBOTS EVENTS SECONDS [PARTS]
// Raises EVENTS a second for SECONDS, in PARTS bursts a second (1). Writes "boot ROBOT BOOTID" for
// each robot, "raised COUNT TIME" after each burst, and when the broker has everything
// "end COUNT CPU_SECONDS", or "late COUNT BACKLOG" when it has not within two minutes.

namespace {

using namespace std::chrono;

constexpr seconds kPatience{120};

double now() {
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  constexpr double micro = 1e-6;
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * micro;
}

class Robots {
public:
  Robots(const std::string& broker, const std::string& folder, int first, int count) {
    for (int i = first; i < first + count; ++i) {
      gk::fleet::FleetSettings settings;
      settings.broker = gk::messages::parseBrokerAddress(broker, true);
      settings.root = "gk";
      settings.site = "load";
      settings.robot = "r" + std::to_string(i);
      settings.outbox.file = folder + "/" + settings.robot + ".sqlite";
      const std::string name = settings.robot;
      gk::fleet::BridgeSources sources;
      sources.store = fStore;
      sources.factsheet = [name] {
        gk::messages::FleetFactsheet sheet;
        sheet.name = name;
        sheet.version = "0";
        return sheet;
      };
      sources.moduleCount = [] { return std::size_t{0}; };
      fBridges.push_back(
          std::make_unique<gk::fleet::Bridge>(std::move(settings), std::move(sources)));
      std::printf("boot %s %s\n", name.c_str(), fBridges.back()->bootId().c_str());
    }
    for (const auto& bridge : fBridges) {
      bridge->start();
    }
  }

  void raise(int count) {
    for (int i = 0; i < count; ++i) {
      ++fRaised;
      GK::GKObserverList::instance().show(GK::GKNotice::Kind::Event, [this](GK::GKNotice& notice) {
        notice.name = "Load";
        notice.value = static_cast<int>(fRaised);
      });
    }
    std::printf("raised %lld %.3f\n", fRaised, now());
    std::fflush(stdout);
  }

  /// What the broker has not acknowledged, of all.
  unsigned long long backlog() const {
    unsigned long long sum = 0;
    for (const auto& bridge : fBridges) {
      sum += bridge->status().backlog;
    }
    return sum;
  }
  long long raised() const { return fRaised; }

private:
  std::shared_ptr<GK::GKMemoryStore> fStore = std::make_shared<GK::GKMemoryStore>();
  std::vector<std::unique_ptr<gk::fleet::Bridge>> fBridges;
  long long fRaised = 0;
};

} // namespace

int main(int argc, char** argv) {
  if (argc < 7) {
    std::fprintf(stderr, "usage: fleet_robots BROKER FOLDER FIRST ROBOTS EVENTS SECONDS [PARTS]\n");
    return 2;
  }
  zu::log::setConsoleLevel(zu::log::Error);
  const int events = std::atoi(argv[5]);
  const int parts = argc > 7 ? std::atoi(argv[7]) : 1;
  Robots robots(argv[1], argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
  const auto begin = steady_clock::now();
  const auto end = begin + seconds(std::atoi(argv[6]));
  for (auto next = begin; next < end; next += microseconds(1'000'000 / parts)) {
    std::this_thread::sleep_until(next);
    robots.raise(events / parts);
  }
  // What was raised last is in the outboxes soon.
  std::this_thread::sleep_for(seconds(1));
  const auto limit = steady_clock::now() + kPatience;
  while (robots.backlog() > 0 && steady_clock::now() < limit) {
    std::this_thread::sleep_for(milliseconds(100));
  }
  if (const unsigned long long left = robots.backlog(); left > 0) {
    std::printf("late %lld %llu\n", robots.raised(), left);
    return 1;
  }
  std::printf("end %lld %.3f\n", robots.raised(), cpuSeconds());
  return 0;
}
