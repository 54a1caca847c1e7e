#include "bench/Subscriber.h"
#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKClock.h"
#include "gk/GKMemory.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// What raising an event costs the raiser, and until every subscriber's callback has run, on the
// real clock.

namespace {

using gk::bench::Subscriber;

class Bus {
public:
  explicit Bus(int subscribers) {
    GK::GKClock::install(nullptr);
    memory->initModule();
    for (int i = 0; i < subscribers; ++i) {
      add(boost::make_shared<Subscriber>(broker, "Subscriber" + std::to_string(i)));
    }
  }
  ~Bus() {
    modules.clear();
    broker->shutdown();
  }

  void add(const boost::shared_ptr<Subscriber>& module) {
    modules.push_back(module);
    module->initModule();
    memory->subscribeToEvent(event, module->getName(), Subscriber::kMethod);
  }

  void raise() { memory->raiseEvent(event, value, GK::GKCaller::Module); }

  void waitUntilAllHave(std::int64_t count) const {
    for (const auto& module : modules) {
      while (module->calls.load(std::memory_order_acquire) < count) {
        std::this_thread::yield();
      }
    }
  }

  const std::string event = "FrontTactilTouched";
  const GK::GKValue value = 1.0F;
  boost::shared_ptr<GK::GKBrokerManager> manager = boost::make_shared<GK::GKBrokerManager>();
  boost::shared_ptr<GK::GKBroker> broker = boost::make_shared<GK::GKBroker>("bench", manager);
  boost::shared_ptr<GK::GKMemory> memory =
      boost::make_shared<GK::GKMemory>(broker, std::make_shared<GK::GKMemoryStore>());
  std::vector<boost::shared_ptr<Subscriber>> modules;
};

/// The raiser alone; the callbacks are waited for outside of the measured time.
void raise(benchmark::State& state) {
  Bus bus(static_cast<int>(state.range(0)));
  std::int64_t raised = 0;
  for (auto _ : state) {
    bus.raise();
    if (++raised % 1024 == 0) {
      state.PauseTiming();
      bus.waitUntilAllHave(raised);
      state.ResumeTiming();
    }
  }
  bus.waitUntilAllHave(raised);
}
BENCHMARK(raise)->Arg(0)->Arg(1)->Arg(8)->Arg(64)->UseRealTime();

/// From the raise of 256 events until every callback has run; items are deliveries.
void endToEnd(benchmark::State& state) {
  constexpr std::int64_t kBurst = 256;
  Bus bus(static_cast<int>(state.range(0)));
  std::int64_t raised = 0;
  for (auto _ : state) {
    for (std::int64_t i = 0; i < kBurst; ++i) {
      bus.raise();
    }
    raised += kBurst;
    bus.waitUntilAllHave(raised);
  }
  state.SetItemsProcessed(raised * state.range(0));
}
BENCHMARK(endToEnd)->Arg(1)->Arg(8)->Arg(64)->UseRealTime();

using Steady = std::chrono::steady_clock;

/// Knows when it was called last.
class Witness : public Subscriber {
public:
  using Subscriber::Subscriber;

  void onEvent(const std::string& event, const GK::GKValue& value) override {
    came = Steady::now();
    Subscriber::onEvent(event, value);
  }

  Steady::time_point came;
};

/// From the raise of an event until its callback begins, while both sides sleep in between.
void single(benchmark::State& state) {
  constexpr std::chrono::milliseconds kPause{2};
  Bus bus(0);
  const auto witness = boost::make_shared<Witness>(bus.broker, "Witness");
  bus.add(witness);
  std::vector<double> seconds;
  for (auto _ : state) {
    std::this_thread::sleep_for(kPause);
    const Steady::time_point raised = Steady::now();
    bus.raise();
    const auto count = static_cast<std::int64_t>(seconds.size()) + 1;
    while (witness->calls.load(std::memory_order_acquire) < count) {
      std::this_thread::sleep_for(kPause);
    }
    seconds.push_back(std::chrono::duration<double>(witness->came - raised).count());
    state.SetIterationTime(seconds.back());
  }
  std::sort(seconds.begin(), seconds.end());
  state.counters["median"] = seconds[seconds.size() / 2];
  state.counters["99%"] = seconds[seconds.size() * 99 / 100];
}
BENCHMARK(single)->Iterations(1000)->UseManualTime();

/// Two threads raise an event each, without subscribers.
void raiseFromTwoThreads(benchmark::State& state) {
  static std::unique_ptr<Bus> bus;
  if (state.thread_index() == 0) {
    bus = std::make_unique<Bus>(0);
  }
  const std::string event = "Event" + std::to_string(state.thread_index());
  for (auto _ : state) {
    bus->memory->raiseEvent(event, bus->value, GK::GKCaller::Module);
  }
  if (state.thread_index() == 0) {
    bus.reset();
  }
}
BENCHMARK(raiseFromTwoThreads)->Threads(2)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
