#pragma once

#include "gk/GKExtractor.h"
#include "gk/GKProxy.h"
#include "support/TestModules.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace GK::test {

/// The five modules in a platform with all device keys, loop included. Until `load` nothing is
/// loaded. Ticks happen at 0, 20, 40 ... ms; `load` returns at 0, before the first one.
struct LoadedModules : testing::Test {
  /// Loads the modules. The test then stands at time 0, before the first tick.
  void load() { ASSERT_EQ(_createModule(platform.broker()), 0); }

  /// Loads the modules and lets the first tick pass; the test then stands at 10 ms, between two
  /// ticks, and forgets what has happened.
  void loadAndTick() {
    load();
    platform.sleep(10);
    platform.recorder->clear();
  }

  /// Lets `count` ticks of 20 ms happen.
  void tick(unsigned int count = 1) { platform.sleep(20 * count); }

  boost::shared_ptr<GKExtractor> sensors() {
    return boost::dynamic_pointer_cast<GKExtractor>(platform.broker()->findModule("GKSensors"));
  }

  std::vector<GKValue> raised(const std::string& event) const {
    return platform.recorder->raised(event);
  }

  TestModules platform;
};

} // namespace GK::test
