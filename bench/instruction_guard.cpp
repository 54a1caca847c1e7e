#include "bench/BenchLibrary.h"
#include "bench/Subscriber.h"

#include <cstdio>
#include <string>
#include <string_view>
#include <valgrind/callgrind.h>
#include <vector>

// Does one thing a thousand times, to be counted by an instrument: how many instructions it takes
// does not depend on what else the machine does. See check.sh.

namespace {

using gk::bench::BenchPlatform;
using gk::bench::Library;
using gk::bench::Subscriber;

constexpr int kRounds = 1000;

/// What all threads do for `work`, but for what only its first time takes.
template <class F> void count(const F& work) {
  work(0);
  CALLGRIND_START_INSTRUMENTATION;
  for (int round = 1; round <= kRounds; ++round) {
    work(round);
  }
  CALLGRIND_STOP_INSTRUMENTATION;
}

void steadyTick() {
  Library library;
  count([&](int) { library.tick(); });
}

void busyTick() {
  Library library;
  count([&](int) {
    library.changeEverything();
    library.tick();
  });
}

/// From the raise of an event until the callback of its only subscriber has returned.
void event() {
  constexpr int kBurst = 100;
  BenchPlatform platform;
  boost::make_shared<Subscriber>(platform.broker, "Subscriber")->initModule();
  const std::string name = "FrontTactilTouched";
  platform.memory->subscribeToEvent(name, "Subscriber", Subscriber::kMethod);
  count([&](int round) {
    platform.memory->raiseEvent(name, 1.0F, GK::GKCaller::Module);
    if (round % kBurst == 0) {
      GK::GKClock::instance().sleep(0);
    }
  });
}

void getData() {
  const BenchPlatform platform;
  const std::vector<std::string> keys = platform.store->keys();
  count([&](int round) {
    platform.memory->getData(keys[static_cast<std::size_t>(round) % keys.size()],
                             GK::GKCaller::Module);
  });
}

} // namespace

int main(int argc, char** argv) {
  struct Kind {
    std::string_view name;
    void (*run)();
  };
  constexpr Kind kinds[] = {{"steady-tick", steadyTick},
                            {"busy-tick", busyTick},
                            {"event", event},
                            {"get-data", getData}};
  for (const Kind& kind : kinds) {
    if (argc == 2 && argv[1] == kind.name) {
      kind.run();
      return 0;
    }
  }
  std::fputs("usage: instruction_guard steady-tick|busy-tick|event|get-data\n", stderr);
  return 2;
}
