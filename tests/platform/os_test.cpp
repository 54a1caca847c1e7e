#include "gk/GKClock.h"
#include "support/TestPlatform.h"
#include "zu/os.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
