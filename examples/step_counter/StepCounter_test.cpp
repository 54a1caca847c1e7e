#include "gk/test/Matchers.h"
#include "gk/test/Platform.h"
#include "StepCounter.h"

#include <gtest/gtest.h>

namespace {

using gk::test::NeverRaised;
using gk::test::RaisedEvent;

struct StepCounterTest : testing::Test {
  StepCounterTest() {
    weigh(2.2F, 2.2F);
    GK::GKModule::createModule<StepCounter>(platform.broker());
  }

  void weigh(float left, float right) {
    platform.set("Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value", left);
    platform.set("Device/SubDeviceList/RFoot/FSR/TotalWeight/Sensor/Value", right);
  }

  gk::test::Platform platform;
};

TEST_F(StepCounterTest, CountsAFootThatComesDownAgain) {
  platform.call("StepCounter.subscribe", "test");
  platform.advance(0.1);
  weigh(0.1F, 4.3F);
  platform.advance(0.1);
  EXPECT_THAT(platform.events(), NeverRaised("StepTaken"));
  weigh(2.2F, 2.2F);
  platform.advance(0.1);
  EXPECT_THAT(platform.events(), RaisedEvent("StepTaken", 1, 0.22));
  EXPECT_EQ(platform.call("StepCounter.getSteps"), GK::GKValue(1));
}

TEST_F(StepCounterTest, ALiftedRobotTakesNoSteps) {
  platform.call("StepCounter.subscribe", "test");
  for (int i = 0; i < 5; ++i) {
    weigh(0.0F, 0.3F);
    platform.advance(0.1);
    weigh(0.3F, 0.0F);
    platform.advance(0.1);
  }
  EXPECT_THAT(platform.events(), NeverRaised("StepTaken"));
}

TEST_F(StepCounterTest, WorksOnlyWhileSomebodyIsSubscribed) {
  platform.call("StepCounter.subscribe", "test");
  platform.call("StepCounter.unsubscribe", "test");
  weigh(0.0F, 4.4F);
  platform.advance(0.1);
  weigh(2.2F, 2.2F);
  platform.advance(0.1);
  EXPECT_THAT(platform.events(), NeverRaised("StepTaken"));
}

} // namespace
