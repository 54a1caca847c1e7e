#include "gk/test/Matchers.h"
#include "gk/test/Platform.h"
#include "MODULE_NAME.h"

#include <gtest/gtest.h>

namespace {

using gk::test::NeverRaised;
using gk::test::RaisedEvent;

constexpr const char* kEvent = "MODULE_NAMEHeld";
constexpr const char* kTouch = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value";

/// A platform with the sensor that the module looks at. Time is virtual: nothing here waits.
struct MODULE_NAMETest : testing::Test {
  MODULE_NAMETest() { platform.set(kTouch, 0.0F); }

  void load() { GK::GKModule::createModule<MODULE_NAME>(platform.broker()); }

  gk::test::Platform platform;
};

TEST_F(MODULE_NAMETest, TellsOfAHandThatRestsForASecond) {
  load();
  platform.advance(0.45);
  platform.set(kTouch, 1.0F); // seen by the tick at 0.5 s
  platform.advance(2.0);
  EXPECT_THAT(platform.events(), RaisedEvent(kEvent, 1, 1.5));
  EXPECT_EQ(platform.call("MODULE_NAME.getCount"), GK::GKValue(1));
}

TEST_F(MODULE_NAMETest, SaysNothingOfAShorterTouch) {
  load();
  platform.set(kTouch, 1.0F);
  platform.advance(0.95);
  platform.set(kTouch, 0.0F);
  platform.advance(2.0);
  EXPECT_THAT(platform.events(), NeverRaised(kEvent));
}

TEST_F(MODULE_NAMETest, TakesTheTimeFromItsSetting) {
  platform.set("Settings/MODULE_NAME/Seconds", 0.2F);
  load();
  platform.set(kTouch, 1.0F);
  platform.advance(1.0);
  EXPECT_THAT(platform.events(), RaisedEvent(kEvent, 1, 0.2));
}

} // namespace
