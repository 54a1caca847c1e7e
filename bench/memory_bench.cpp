#ifdef GK_HAS_HIREDIS
#include "bench/RedisServer.h"
#endif
#include "gk/GKMemory.h"

#include <benchmark/benchmark.h>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <string>
#include <unistd.h>
#include <unordered_map>
#include <vector>

// Reading and writing memory keys by name, beside a standard map behind a lock, from one and two
// threads, with a thousand, ten thousand and a million keys.

namespace {

/// Names as long as real ones, and a random row of accesses. Each access brings a name of its own,
/// as a caller would.
struct Keys {
  explicit Keys(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      names.push_back("Device/SubDeviceList/Joint" + std::to_string(i) + "/Position/Sensor/Value");
    }
    std::mt19937 random(1);
    std::uniform_int_distribution<std::size_t> any(0, count - 1);
    for (std::string& access : accesses) {
      access = names[any(random)];
    }
  }

  const std::string& at(std::size_t i) const { return accesses[i % accesses.size()]; }

  std::vector<std::string> names;
  std::vector<std::string> accesses = std::vector<std::string>(1 << 14);
};

const Keys& keysOf(std::size_t count) {
  static std::map<std::size_t, std::unique_ptr<Keys>> all;
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  std::unique_ptr<Keys>& keys = all[count];
  if (keys == nullptr) {
    keys = std::make_unique<Keys>(count);
  }
  return *keys;
}

struct Service {
  explicit Service(const Keys& keys) {
    for (const std::string& name : keys.names) {
      memory.insertData(name, 1.0F, GK::GKCaller::Module);
    }
  }
  GK::GKMemory memory{nullptr, std::make_shared<GK::GKMemoryStore>()};
};

struct LockedMap {
  explicit LockedMap(const Keys& keys) {
    for (const std::string& name : keys.names) {
      values[name] = 1.0F;
    }
  }
  std::shared_mutex mutex;
  std::unordered_map<std::string, GK::GKValue> values;
};

/// One for each number of keys, kept over all runs: threads share it.
template <class T> T& shared(std::size_t count) {
  static std::map<std::size_t, std::unique_ptr<T>> all;
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  std::unique_ptr<T>& one = all[count];
  if (one == nullptr) {
    one = std::make_unique<T>(keysOf(count));
  }
  return *one;
}

template <class F> void visit(benchmark::State& state, F&& access) {
  const Keys& keys = keysOf(static_cast<std::size_t>(state.range(0)));
  auto i = static_cast<std::size_t>(state.thread_index()) * 7919;
  for (auto _ : state) {
    access(keys.at(i++));
  }
  state.SetItemsProcessed(state.iterations());
}

void getData(benchmark::State& state) {
  const GK::GKMemory& memory = shared<Service>(static_cast<std::size_t>(state.range(0))).memory;
  visit(state, [&](const std::string& key) {
    benchmark::DoNotOptimize(memory.getData(key, GK::GKCaller::Module));
  });
}

void insertData(benchmark::State& state) {
  GK::GKMemory& memory = shared<Service>(static_cast<std::size_t>(state.range(0))).memory;
  visit(state, [&](const std::string& key) { memory.insertData(key, 2.0F, GK::GKCaller::Module); });
}

void getDataPtr(benchmark::State& state) {
  const GK::GKMemory& memory = shared<Service>(static_cast<std::size_t>(state.range(0))).memory;
  visit(state, [&](const std::string& key) {
    benchmark::DoNotOptimize(memory.getDataPtr(key, GK::GKCaller::Module));
  });
}

void lockedMapRead(benchmark::State& state) {
  LockedMap& map = shared<LockedMap>(static_cast<std::size_t>(state.range(0)));
  visit(state, [&](const std::string& key) {
    const std::shared_lock lock(map.mutex);
    GK::GKValue value = map.values.find(key)->second;
    benchmark::DoNotOptimize(value);
  });
}

void lockedMapWrite(benchmark::State& state) {
  LockedMap& map = shared<LockedMap>(static_cast<std::size_t>(state.range(0)));
  visit(state, [&](const std::string& key) {
    const std::unique_lock lock(map.mutex);
    map.values[key] = 2.0F;
  });
}

/// What a float key takes besides the characters of its name. Not a matter of time.
void bytesPerKey(benchmark::State& state) {
  const auto resident = [] {
    std::ifstream statm("/proc/self/statm");
    std::int64_t size = 0;
    std::int64_t pages = 0;
    statm >> size >> pages;
    return pages * sysconf(_SC_PAGESIZE);
  };
  const Keys& keys = keysOf(static_cast<std::size_t>(state.range(0)));
  std::int64_t names = 0;
  for (const std::string& name : keys.names) {
    names += static_cast<std::int64_t>(name.size());
  }
  for (auto _ : state) {
    const std::int64_t before = resident();
    const Service service(keys);
    const std::int64_t used = resident() - before - names;
    state.counters["bytes/key"] =
        static_cast<double>(used) / static_cast<double>(keys.names.size());
  }
}
BENCHMARK(bytesPerKey)->Arg(1000000)->Iterations(1);

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1000)->Arg(10000)->Arg(1000000)->ThreadRange(1, 2)->UseRealTime();
}
BENCHMARK(getData)->Apply(sizes);
BENCHMARK(lockedMapRead)->Apply(sizes);
BENCHMARK(insertData)->Apply(sizes);
BENCHMARK(lockedMapWrite)->Apply(sizes);
BENCHMARK(getDataPtr)->Apply(sizes);

#ifdef GK_HAS_HIREDIS
void redisRead(benchmark::State& state) {
  gk::bench::RedisServer server;
  for (const std::string& key : keysOf(static_cast<std::size_t>(state.range(0))).names) {
    server.set(key, 1.0F);
  }
  visit(state, [&](const std::string& key) { benchmark::DoNotOptimize(server.get(key)); });
}
BENCHMARK(redisRead)->Arg(10000)->UseRealTime();
#endif

} // namespace

BENCHMARK_MAIN();
