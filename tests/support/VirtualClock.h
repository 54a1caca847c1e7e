#pragma once

#include "gk/GKClock.h"
#include "support/PlatformFixture.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace GK::test {

/// One tick of a loop in these tests, in microseconds.
inline constexpr GKMicros kTick = 20000;

/// Tasks and input on a virtual clock that write down what happens when.
class VirtualClock : public testing::Test {
protected:
  VirtualClock() { GKClock::install(makeVirtualClock(0)); }
  ~VirtualClock() override {
    sut().joinTasks();
    GKClock::install(nullptr);
  }

  static GKClock& sut() { return GKClock::instance(); }
  static void sleep(GKMicros duration) { sut().sleep(duration); }
  static void post(std::function<void()> work) { sut().post({}, std::move(work)); }
  static void start(std::function<void()> work) { sut().start({}, std::move(work)); }
  GKClock::End run(std::optional<GKMicros> until = std::nullopt) {
    return sut().run(&input, until);
  }

  void note(const std::string& what) {
    diary.push_back(what + " at " + std::to_string(sut().elapsed()));
  }
  std::function<void()> noting(const std::string& what) {
    return [this, what] { note(what); };
  }
  /// A task that ticks every 20 ms, `count` times.
  void postLoop(const std::string& name, int count) {
    post([this, name, count] {
      for (int tick = 0; tick < count; ++tick) {
        note(name);
        sleep(kTick);
      }
    });
  }

  ScriptedInput input;
  std::vector<std::string> diary;
};

} // namespace GK::test
