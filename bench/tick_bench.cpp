#include "bench/BenchPlatform.h"
#include "bench/FlatTick.h"
#include "modules/battery/GKBattery.h"
#include "modules/fsr/GKFsr.h"
#include "modules/robotpose/GKRobotPose.h"
#include "modules/sensors/GKSensors.h"
#include "modules/sensors/SensorKeys.h"
#include "modules/sonar/GKSonar.h"

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

namespace GK {

/// Ticks the module without its loop.
class GKSensorsPeer {
public:
  static void bind(GKSensors& sensors) {
    sensors.xFindSiblings();
    sensors.xBindStiffness();
    sensors.xBindBoards();
    sensors.xConnectToMemory();
  }
  static void tick(GKSensors& sensors) { sensors.xTick(); }
};

} // namespace GK

namespace {

using GK::GKModule;
using gk::bench::BenchPlatform;
using gk::bench::FlatTick;

/// All five modules, bound, with the sonar switched on.
class Library {
public:
  Library() {
    GKModule::createModule<GK::GKSonar>(platform.broker)->subscribe("bench");
    GKModule::createModule<GK::GKFsr>(platform.broker);
    GKModule::createModule<GK::GKRobotPose>(platform.broker);
    GKModule::createModule<GK::GKBattery>(platform.broker);
    sensors = GKModule::createModule<GK::GKSensors>(platform.broker);
    GK::GKSensorsPeer::bind(*sensors);
    // Past everything that only the first ticks raise.
    for (int i = 0; i < 100; ++i) {
      tick();
    }
  }

  void tick() { GK::GKSensorsPeer::tick(*sensors); }

  BenchPlatform platform;
  boost::shared_ptr<GK::GKSensors> sensors;
};

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

/// Every value that can raise an event changes on every tick.
void everythingChanges(benchmark::State& state) {
  Library sut;
  std::vector<GK::GKMemoryCell*> cells;
  for (const char* key : GK::kEventKeys) {
    cells.push_back(&sut.platform.store->cell(key));
  }
  GK::GKMemoryCell& stiffness =
      sut.platform.store->cell("Device/SubDeviceList/HeadPitch/Hardness/Actuator/Value");
  GK::GKMemoryCell& charge =
      sut.platform.store->cell("Device/SubDeviceList/Battery/Charge/Sensor/Value");
  GK::GKMemoryCell& status =
      sut.platform.store->cell("Device/SubDeviceList/Battery/Charge/Sensor/Status");
  GK::GKMemoryCell& voltage =
      sut.platform.store->cell("Device/SubDeviceList/Battery/Charge/Sensor/CellVoltageMin");
  bool isOn = false;
  const std::size_t before = allocations.load();
  for (auto _ : state) {
    isOn = !isOn;
    for (GK::GKMemoryCell* cell : cells) {
      cell->storeFloat(isOn ? 1.0F : 0.0F);
    }
    stiffness.storeFloat(isOn ? 1.0F : 0.0F);
    charge.storeFloat(isOn ? 1.0F : 0.5F);
    status.storeInt(isOn ? 0xE0 : 0);
    voltage.storeInt(isOn ? 4000 : 3900);
    sut.tick();
  }
  countAllocations(state, before);
}
BENCHMARK(everythingChanges);

} // namespace

BENCHMARK_MAIN();
