#include "support/LoadedModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace GK {
namespace {

using GKSensorsEventsTest = test::LoadedModules;

const GKValue kPressed = 1.0f;
const GKValue kReleased = 0.0f;

constexpr const char* kChest = "Device/SubDeviceList/ChestBoard/Button/Sensor/Value";
constexpr const char* kFront = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value";
constexpr const char* kLeftFootLeft = "Device/SubDeviceList/LFoot/Bumper/Left/Sensor/Value";
constexpr const char* kLeftFootRight = "Device/SubDeviceList/LFoot/Bumper/Right/Sensor/Value";
constexpr const char* kRightFootLeft = "Device/SubDeviceList/RFoot/Bumper/Left/Sensor/Value";
constexpr const char* kRightFootRight = "Device/SubDeviceList/RFoot/Bumper/Right/Sensor/Value";

TEST_F(GKSensorsEventsTest, FirstTickPublishesEverySensorOnceInOrder) {
  load();
  platform.recorder->clear();
  platform.sleep(10);
  std::vector<std::string> names;
  for (const GKNotice& notice : platform.recorder->ofKind(GKNotice::Kind::Event)) {
    const bool isBattery = notice.name.starts_with("Battery");
    if (!isBattery) {
      EXPECT_EQ(notice.value, kReleased) << notice.name;
      names.push_back(notice.name);
    }
  }
  EXPECT_THAT(names,
              ElementsAre("LeftBumperPressed", "RightBumperPressed", "ChestButtonPressed",
                          "FrontTactilTouched", "MiddleTactilTouched", "RearTactilTouched",
                          "HandRightBackTouched", "HandRightLeftTouched", "HandRightRightTouched",
                          "HandLeftBackTouched", "HandLeftLeftTouched", "HandLeftRightTouched"));
}

TEST_F(GKSensorsEventsTest, UnchangedValuesRaiseNothing) {
  loadAndTick();
  tick(10);
  EXPECT_THAT(platform.recorder->ofKind(GKNotice::Kind::Event), IsEmpty());
}

TEST_F(GKSensorsEventsTest, TouchAndReleaseRaiseOneEventEach) {
  loadAndTick();
  platform.set(kFront, 1.0f);
  tick(3);
  platform.set(kFront, 0.0f);
  tick(3);
  EXPECT_THAT(raised("FrontTactilTouched"), ElementsAre(kPressed, kReleased));
}

TEST_F(GKSensorsEventsTest, AnyChangeCountsWithoutThreshold) {
  loadAndTick();
  platform.set(kChest, 0.3f);
  tick();
  platform.set(kChest, 0.4f);
  tick();
  EXPECT_THAT(raised("ChestButtonPressed"), ElementsAre(GKValue(0.3f), GKValue(0.4f)));
}

TEST_F(GKSensorsEventsTest, NegativeZeroIsNoChange) {
  loadAndTick();
  platform.set(kChest, -0.0f);
  tick();
  EXPECT_THAT(raised("ChestButtonPressed"), IsEmpty());
}

TEST_F(GKSensorsEventsTest, NotANumberIsPublishedOnEveryTick) {
  loadAndTick();
  platform.set(kChest, std::numeric_limits<float>::quiet_NaN());
  tick(3);
  EXPECT_THAT(raised("ChestButtonPressed"), SizeIs(3));
}

TEST_F(GKSensorsEventsTest, StartValueOfMinusFiveIsTakenAsPublished) {
  platform.set(kChest, -5.0f);
  load();
  platform.sleep(10);
  EXPECT_THAT(raised("ChestButtonPressed"), IsEmpty());
}

TEST_F(GKSensorsEventsTest, EachTouchSensorRaisesItsOwnEvent) {
  const std::vector<std::pair<std::string, std::string>> sensorsAndEvents = {
      {"ChestBoard/Button", "ChestButtonPressed"},
      {"Head/Touch/Front", "FrontTactilTouched"},
      {"Head/Touch/Middle", "MiddleTactilTouched"},
      {"Head/Touch/Rear", "RearTactilTouched"},
      {"RHand/Touch/Back", "HandRightBackTouched"},
      {"RHand/Touch/Left", "HandRightLeftTouched"},
      {"RHand/Touch/Right", "HandRightRightTouched"},
      {"LHand/Touch/Back", "HandLeftBackTouched"},
      {"LHand/Touch/Left", "HandLeftLeftTouched"},
      {"LHand/Touch/Right", "HandLeftRightTouched"}};
  loadAndTick();
  for (const auto& [sensor, event] : sensorsAndEvents) {
    platform.recorder->clear();
    platform.set("Device/SubDeviceList/" + sensor + "/Sensor/Value", 1.0f);
    tick();
    const std::vector<GKNotice> notices = platform.recorder->ofKind(GKNotice::Kind::Event);
    ASSERT_THAT(notices, SizeIs(1)) << sensor;
    EXPECT_EQ(notices[0].name, event);
  }
}

TEST_F(GKSensorsEventsTest, PressIsPublishedOnTheSecondTickAndReleaseAtOnce) {
  loadAndTick();
  platform.set(kLeftFootLeft, 1.0f);
  tick();
  EXPECT_THAT(raised("LeftBumperPressed"), IsEmpty());
  tick();
  EXPECT_THAT(raised("LeftBumperPressed"), ElementsAre(kPressed));
  platform.set(kLeftFootLeft, 0.0f);
  tick();
  EXPECT_THAT(raised("LeftBumperPressed"), ElementsAre(kPressed, kReleased));
}

TEST_F(GKSensorsEventsTest, HeldBumperIsPublishedOnce) {
  loadAndTick();
  platform.set(kRightFootRight, 1.0f);
  tick(10);
  EXPECT_THAT(raised("RightBumperPressed"), ElementsAre(kPressed));
}

TEST_F(GKSensorsEventsTest, PressOfOneTickIsNoPress) {
  loadAndTick();
  platform.set(kLeftFootLeft, 1.0f);
  tick();
  platform.set(kLeftFootLeft, 0.0f);
  tick(5);
  EXPECT_THAT(raised("LeftBumperPressed"), IsEmpty());
}

TEST_F(GKSensorsEventsTest, BothBumpersOfAFootAreOne) {
  loadAndTick();
  platform.set(kLeftFootLeft, 1.0f);
  platform.set(kLeftFootRight, 1.0f);
  tick(2);
  platform.set(kLeftFootLeft, 0.0f);
  tick(2);
  EXPECT_THAT(raised("LeftBumperPressed"), ElementsAre(kPressed));
  platform.set(kLeftFootRight, 0.0f);
  tick();
  EXPECT_THAT(raised("LeftBumperPressed"), ElementsAre(kPressed, kReleased));
}

TEST_F(GKSensorsEventsTest, AnyPositiveBumperValueIsATouch) {
  loadAndTick();
  platform.set(kRightFootLeft, -1.0f);
  tick(3);
  EXPECT_THAT(raised("RightBumperPressed"), IsEmpty());
  platform.set(kRightFootLeft, std::numeric_limits<float>::denorm_min());
  tick(2);
  EXPECT_THAT(raised("RightBumperPressed"), ElementsAre(kPressed));
}

TEST_F(GKSensorsEventsTest, FeetPressedTogetherConfirmEachOther) {
  loadAndTick();
  platform.set(kLeftFootLeft, 1.0f);
  platform.set(kRightFootLeft, 1.0f);
  tick();
  // Left asks the shared counter first and gets 1, right gets 2.
  EXPECT_THAT(raised("LeftBumperPressed"), IsEmpty());
  EXPECT_THAT(raised("RightBumperPressed"), ElementsAre(kPressed));
  tick();
  EXPECT_THAT(raised("LeftBumperPressed"), ElementsAre(kPressed));
}

TEST_F(GKSensorsEventsTest, PressOnOneFootConfirmsTheOther) {
  loadAndTick();
  platform.set(kLeftFootLeft, 1.0f);
  tick();
  platform.set(kLeftFootLeft, 0.0f);
  platform.set(kRightFootLeft, 1.0f);
  tick();
  EXPECT_THAT(raised("LeftBumperPressed"), IsEmpty());
  EXPECT_THAT(raised("RightBumperPressed"), ElementsAre(kPressed));
}

TEST_F(GKSensorsEventsTest, TicksFiftyMillisecondsApartStillConfirm) {
  load();
  sensors()->updatePeriod("sensors", 50);
  platform.sleep(10);
  platform.recorder->clear();
  platform.set(kLeftFootLeft, 1.0f);
  platform.sleep(100);
  EXPECT_THAT(raised("LeftBumperPressed"), ElementsAre(kPressed));
}

TEST_F(GKSensorsEventsTest, TicksFurtherApartNeverConfirmAPressOfOneFoot) {
  load();
  sensors()->updatePeriod("sensors", 51);
  platform.sleep(10);
  platform.recorder->clear();
  platform.set(kLeftFootLeft, 1.0f);
  platform.sleep(510);
  EXPECT_THAT(raised("LeftBumperPressed"), IsEmpty());
}

} // namespace
} // namespace GK
