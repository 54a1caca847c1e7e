#include "bench/BenchLibrary.h"
#include "bench/FlatTick.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <new>

// What one tick costs, and what the same arithmetic costs without everything around it.

namespace {

std::atomic<std::size_t> allocations{0};

} // namespace

// gcc does not see that these belong together once some of them are inlined.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size)) {
    return memory;
  }
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using gk::bench::FlatTick;
using gk::bench::Library;

void countAllocations(benchmark::State& state, std::size_t before) {
  state.counters["allocs/tick"] = benchmark::Counter(
      static_cast<double>(allocations.load() - before), benchmark::Counter::kAvgIterations);
}

void flat(benchmark::State& state) {
  FlatTick sut;
  for (auto _ : state) {
    sut.tick();
    benchmark::DoNotOptimize(sut);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(flat);

void steady(benchmark::State& state) {
  Library sut;
  const std::size_t before = allocations.load();
  for (auto _ : state) {
    sut.tick();
  }
  countAllocations(state, before);
}
BENCHMARK(steady);

/// Every value that can raise an event changes on every tick; the changes are part of it.
void everythingChanges(benchmark::State& state) {
  Library sut;
  const std::size_t before = allocations.load();
  for (auto _ : state) {
    sut.changeEverything();
    sut.tick();
  }
  countAllocations(state, before);
}
BENCHMARK(everythingChanges);

} // namespace

BENCHMARK_MAIN();
