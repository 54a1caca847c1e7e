#include "FallAlarm.h"
#include "gk/test/Matchers.h"
#include "gk/test/Platform.h"

#include <gtest/gtest.h>

namespace {

using gk::test::NeverRaised;
using gk::test::RaisedEvent;

struct FallAlarmTest : testing::Test {
  void load() { GK::GKModule::createModule<FallAlarm>(platform.broker()); }

  void raise(const std::string& event, const GK::GKValue& value) {
    platform.call("GKMemory.raiseEvent", event, value);
    platform.advance(0.0); // the event is handed over
  }

  gk::test::Platform platform;
};

TEST_F(FallAlarmTest, BeginsWithTheFirstLyingPose) {
  load();
  raise("robotPoseChanged", "Stand");
  EXPECT_THAT(platform.events(), NeverRaised("FallAlarm"));
  platform.advance(1.0);
  raise("robotPoseChanged", "Belly");
  EXPECT_THAT(platform.events(), RaisedEvent("FallAlarm", true, 1.0));
  EXPECT_EQ(platform.call("FallAlarm.isFallen"), GK::GKValue(true));
  platform.clear();
  raise("robotPoseChanged", "Unknown");
  raise("robotPoseChanged", "Back");
  EXPECT_THAT(platform.events(), NeverRaised("FallAlarm"));
}

TEST_F(FallAlarmTest, EndsWhenItHasStayedUpForTwoSeconds) {
  load();
  raise("robotPoseChanged", "Back");
  platform.advance(1.0);
  raise("robotPoseChanged", "Sit");
  platform.advance(1.5);
  raise("footContactChanged", false); // it stumbles,
  platform.advance(1.0);
  raise("footContactChanged", true); // and the time begins anew
  platform.advance(5.0);
  EXPECT_THAT(platform.events(), RaisedEvent("FallAlarm", false, 5.5));
  EXPECT_EQ(platform.call("FallAlarm.isFallen"), GK::GKValue(false));
}

TEST_F(FallAlarmTest, TakesTheQuietTimeFromItsSetting) {
  platform.set("Settings/FallAlarm/QuietSeconds", 0.5F);
  load();
  raise("robotPoseChanged", "Left");
  raise("robotPoseChanged", "Stand");
  platform.advance(1.0);
  EXPECT_THAT(platform.events(), RaisedEvent("FallAlarm", false, 0.5));
}

} // namespace
