#include "gk/GKClock.h"
#include "gk/GKMutex.h"
#include "support/TestPlatform.h"
#include "zu/os.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace GK {
namespace {

using test::TestPlatform;

void sleepTwice() {
  zu::os::msleep(20);
  zu::os::msleep(30);
}

TEST(PlatformSleep, IsInMilliseconds) {
  const TestPlatform platform(TestPlatform::kNoServices);

  zu::os::msleep(20);
  EXPECT_EQ(GKClock::instance().elapsed(), 20000);

  zu::os::msleep(4294967295u);
  EXPECT_EQ(GKClock::instance().elapsed(), 4294967315000);
}

TEST(PlatformSleep, OfALoopEndsATick) {
  const TestPlatform platform(TestPlatform::kNoServices);

  GKClock::instance().post({"GKSensors", "run"}, sleepTwice);
  platform.sleep(100);

  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(0, 20000));
}

TEST(PlatformSleep, OfAnythingElseEndsNone) {
  const TestPlatform platform(TestPlatform::kNoServices);

  GKClock::instance().post({"GKSonar", "subscribe"}, sleepTwice);
  platform.sleep(100);

  EXPECT_THAT(platform.recorder->ticks(), IsEmpty());
}

/// Real time that goes on only when it is asked for, or when somebody sleeps; who sleeps wakes up
/// late by what is set.
class SteppedClock : public GKClock {
public:
  GKMicros elapsed() const noexcept override { return now; }
  GKWallTime wallTime() const noexcept override { return {}; }
  void sleep(GKMicros duration) override { now += duration + lateness; }
  void post(GKTask task, std::function<void()> work) override {
    fTasks->post(std::move(task), std::move(work));
  }
  void start(GKTask task, std::function<void()> work) override {
    fTasks->start(std::move(task), std::move(work));
  }
  End run(GKInput* input, std::optional<GKMicros> until) override {
    return fTasks->run(input, until);
  }
  void requestEnd() noexcept override { fTasks->requestEnd(); }
  void joinTasks() override { fTasks->joinTasks(); }
  bool isVirtual() const noexcept override { return false; }

  GKMicros now = 0;
  GKMicros lateness = 0;

protected:
  void waitFor(GKMutex& mutex) override { mutex.lockOutright(); }
  void freed(GKMutex&) noexcept override {}

private:
  std::shared_ptr<GKClock> fTasks = makeRealClock();
};

/// Writes down how ticks went: "GKSensors 5000-7000 late 5000 pause 30000".
class TickKeeper : public GKObserver {
public:
  void onNotice(const GKNotice&) override {}
  void onTickTimes(const GKTickTimes& times, const GKTask& task) override {
    lines.push_back(task.module + " " + std::to_string(times.begin) + "-" +
                    std::to_string(times.end) + " late " + std::to_string(times.lateness) +
                    " pause " + std::to_string(times.pause));
  }

  std::vector<std::string> lines;
};

TEST(PlatformSleep, OfALoopInRealTimeTellsWhenItsTicksBeganAndEndedAndHowLateTheyWere) {
  const auto clock = std::make_shared<SteppedClock>();
  const auto keeper = boost::make_shared<TickKeeper>();
  GKClock::install(clock);
  GKObserverList::instance().add(keeper);

  clock->post({"GKSensors", "run"}, [&clock] {
    clock->now += 100; // nobody knows when the first tick was to begin
    clock->lateness = 7;
    zu::os::msleep(20);
    clock->now += 300; // the second tick's work
    clock->lateness = 0;
    zu::os::msleep(30);
    clock->now += 500; // the third's
    zu::os::msleep(20);
  });
  clock->joinTasks();
  GKObserverList::instance().remove(keeper);
  GKClock::install(nullptr);

  EXPECT_THAT(keeper->lines, ElementsAre("GKSensors 20107-20407 late 7 pause 30000",
                                         "GKSensors 50407-50907 late 0 pause 20000"));
}

TEST(PlatformTime, IsTheWallTimeOfTheClock) {
  const TestPlatform platform(TestPlatform::kNoServices);
  platform.sleep(1500);

  zu::os::timeval now;
  EXPECT_EQ(zu::os::gettimeofday(&now), 0);

  EXPECT_EQ(now.tv_sec, TestPlatform::kEpoch + 1);
  EXPECT_EQ(now.tv_usec, 500000);
}

} // namespace
} // namespace GK
