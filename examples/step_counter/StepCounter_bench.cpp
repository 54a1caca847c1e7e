#include "gk/test/Platform.h"
#include "StepCounter.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

// What a tick costs when nothing happens. Usage: StepCounter_bench [TICKS]

int main(int argc, char** argv) {
  const long ticks = argc > 1 ? std::atol(argv[1]) : 10'000'000;
  gk::test::Platform platform;
  platform.set("Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value", 2.2F);
  platform.set("Device/SubDeviceList/RFoot/FSR/TotalWeight/Sensor/Value", 2.2F);
  const auto sut = GK::GKModule::createModule<StepCounter>(platform.broker());
  const auto start = std::chrono::steady_clock::now();
  for (long i = 0; i < ticks; ++i) {
    sut->tick();
  }
  const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - start;
  std::printf("%.1f ns a tick, %ld ticks\n", taken.count() / static_cast<double>(ticks), ticks);
  return sut->getSteps() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
