#include "support/LoadedModules.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};

void* allocate(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}

} // namespace

// gcc does not see that all of these belong together once some of them are inlined.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

// The whole program counts its allocations.
void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace GK {
namespace {

using SteadyTickTest = test::LoadedModules;

/// Allocations within `count` ticks. The recorder, which would allocate, is taken away.
std::size_t allocationsOf(test::LoadedModules& modules, unsigned int count) {
  GKObserverList::instance().remove(modules.platform.recorder);
  const std::size_t before = allocations;
  modules.tick(count);
  return allocations - before;
}

TEST_F(SteadyTickTest, AllocatesNothing) {
  load();
  // Everything that happens once has happened, and every buffer has its size.
  platform.sleep(30000);
  EXPECT_EQ(allocationsOf(*this, 400), 0u);
}

TEST_F(SteadyTickTest, AllocatesNothingBetweenTheEventsOfTheSonar) {
  load();
  platform.broker()->getProxy("GKSonar", 0)->callVoid("subscribe", std::string("client"));
  platform.sleep(30000);
  platform.recorder->clear();
  // Without obstacles the sonar repeats itself now and then. Right after that there is time.
  for (int i = 0; i < 1000 && platform.recorder->all().empty(); ++i) {
    tick();
  }
  ASSERT_FALSE(platform.recorder->all().empty());
  EXPECT_EQ(allocationsOf(*this, 50), 0u);
}

TEST_F(SteadyTickTest, AllocationsAreSeen) {
  loadAndTick();
  platform.set("Device/SubDeviceList/ChestBoard/Button/Sensor/Value", 1.0f);
  EXPECT_GT(allocationsOf(*this, 1), 0u);
}

TEST_F(SteadyTickTest, LooksUpNoKeyAndNoModule) {
  load();
  platform.sleep(30000);
  const std::size_t before = platform.faults->allUses();
  tick(400);
  EXPECT_EQ(platform.faults->allUses(), before);
}

} // namespace
} // namespace GK
