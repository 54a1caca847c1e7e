#include "bench/BenchLibrary.h"

#include <boost/make_shared.hpp>

#include <benchmark/benchmark.h>
#include <string>

// How cost grows: a tick and an event against the number of memory keys, of subscribers and of
// observers.

namespace {

using gk::bench::Library;

class NullObserver : public GK::GKObserver {
public:
  void onNotice(const GK::GKNotice&) override {}
};

/// Observers that are there as long as it is.
class Observers {
public:
  explicit Observers(std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) {
      fObservers.push_back(boost::make_shared<NullObserver>());
      GK::GKObserverList::instance().add(fObservers.back());
    }
  }
  ~Observers() {
    for (const auto& observer : fObservers) {
      GK::GKObserverList::instance().remove(observer);
    }
  }
  Observers(const Observers&) = delete;
  Observers& operator=(const Observers&) = delete;

private:
  std::vector<boost::shared_ptr<NullObserver>> fObservers;
};

void addKeys(Library& library, std::int64_t count) {
  for (std::int64_t i = 0; i < count; ++i) {
    library.platform.store->set("Some/Other/Key" + std::to_string(i), 1.0F);
  }
}

void tickBesideKeys(benchmark::State& state) {
  Library sut;
  addKeys(sut, state.range(0));
  for (auto _ : state) {
    sut.tick();
  }
}
BENCHMARK(tickBesideKeys)->Arg(0)->Arg(10000)->Arg(1000000);

void tickWithSubscribers(benchmark::State& state) {
  Library sut;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    sut.platform.broker->findModule("GKSonar")->callMethod("subscribe", {std::to_string(i)});
  }
  for (auto _ : state) {
    sut.tick();
  }
}
BENCHMARK(tickWithSubscribers)->Arg(0)->Arg(8)->Arg(64);

void tickWithObservers(benchmark::State& state) {
  Library sut;
  const Observers observers(state.range(0));
  for (auto _ : state) {
    sut.tick();
  }
}
BENCHMARK(tickWithObservers)->Arg(0)->Arg(1)->Arg(4)->Arg(16);

void busyTickWithObservers(benchmark::State& state) {
  Library sut;
  const Observers observers(state.range(0));
  for (auto _ : state) {
    sut.changeEverything();
    sut.tick();
  }
}
BENCHMARK(busyTickWithObservers)->Arg(0)->Arg(1)->Arg(4)->Arg(16);

void raiseWithObservers(benchmark::State& state) {
  Library sut;
  const Observers observers(state.range(0));
  const std::string event = "FrontTactilTouched";
  for (auto _ : state) {
    sut.platform.memory->raiseEvent(event, 1.0F, GK::GKCaller::Module);
  }
}
BENCHMARK(raiseWithObservers)->Arg(0)->Arg(1)->Arg(4)->Arg(16);

void raiseBesideKeys(benchmark::State& state) {
  Library sut;
  addKeys(sut, state.range(0));
  const std::string event = "FrontTactilTouched";
  for (auto _ : state) {
    sut.platform.memory->raiseEvent(event, 1.0F, GK::GKCaller::Module);
  }
}
BENCHMARK(raiseBesideKeys)->Arg(0)->Arg(10000)->Arg(1000000);

} // namespace

BENCHMARK_MAIN();
