#include "support/BatteryPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace GK::test::battery {

// Currents

TEST(GKBatteryPlug, WorkingMotorsGetTheSmallerOffset) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  const auto sampleOf = [&](float current) {
    platform.set(kLastJoint, current);
    return Peer::motorSample(*sut);
  };
  EXPECT_EQ(sampleOf(0.0F), 2.5F);
  EXPECT_EQ(sampleOf(below(0.5F)), below(0.5F) + 2.5F);
  EXPECT_EQ(sampleOf(0.5F), 0.5F + 0.83F);
  EXPECT_EQ(sampleOf(above(0.5F)), above(0.5F) + 0.83F);
  EXPECT_EQ(sampleOf(-4.0F), -1.5F);
  EXPECT_TRUE(std::isnan(sampleOf(kNaN)));
}

TEST(GKBatteryPlug, AllJointsAreAddedUp) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  for (const char* joint : kStiffnessJoints) {
    platform.set(std::string("Device/SubDeviceList/") + joint + "/ElectricCurrent/Sensor/Value",
                 0.5F);
  }
  EXPECT_EQ(Peer::motorSample(*sut), 12.5F + 0.83F);
}

TEST(GKBatteryPlug, JointsAreAddedFromTheHeadOn) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  // 2^24 swallows a single 1 that comes after it.
  platform.set(kFirstJoint, 16777216.0F);
  platform.set(kSecondJoint, 1.0F);
  platform.set(kLastJoint, -16777216.0F);
  EXPECT_EQ(Peer::motorSample(*sut), 2.5F);
}

TEST(GKBatteryPlug, WithoutAnyJointTheMotorsAreIdle) {
  BatteryPlatform platform;
  GKMemoryFastAccess::StopAllAccess(); // nothing connects from here on, and nothing says so
  const auto sut = make(platform);
  platform.set(kFirstJoint, 50.0F);
  EXPECT_EQ(Peer::motorSample(*sut), 2.5F);
}

TEST(GKBatteryPlug, TheMeansKeepAShareOfTheirHistory) {
  BatteryPlatform platform;
  platform.set(kCurrent, 0.5F);
  const auto sut = make(platform);
  // 50 samples of 2.5 and of 0.5 from the first tick on, and the former mean on top.
  EXPECT_EQ(Peer::score(*sut), 0.5F * 2.5F + 2.5F);
  EXPECT_EQ(Peer::score(*sut), (25.5F / 50.0F) * 2.5F + 127.5F / 50.0F);
  EXPECT_EQ(Peer::motorMean(*sut), 2.55F);
  EXPECT_EQ(Peer::batteryMean(*sut), 0.51F);
}

TEST(GKBatteryPlug, ASampleLeavesTheWindowAfterFiftyTicks) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  Peer::score(*sut); // fills the window with zeroes
  platform.set(kCurrent, 50.0F);
  Peer::score(*sut);
  platform.set(kCurrent, 0.0F);
  for (int i = 0; i < 49; ++i) {
    Peer::score(*sut);
    EXPECT_GE(Peer::batteryMean(*sut), 1.0F) << i;
  }
  Peer::score(*sut);
  EXPECT_LT(Peer::batteryMean(*sut), 0.03F); // only the share of the history is left
}

TEST(GKBatteryPlug, TheFormerMeanComesFirstInTheSum) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  Peer::setMotorMean(*sut, 16777216.0F);
  Peer::score(*sut);
  // From 2^24 on floats are even numbers: each of the 50 samples of 2.5 adds only 2.
  EXPECT_EQ(Peer::motorMean(*sut), 16777316.0F / 50.0F);
}

// Plug

TEST(GKBatteryPlug, TheFirstDecisionIsTakenSilentlyAtTickFifty) {
  BatteryPlatform platform;
  platform.set(kCurrent, kChargeCurrent);
  const auto sut = make(platform);
  EXPECT_THAT(tick(platform, *sut, 49), IsEmpty());
  EXPECT_FALSE(Peer::isPlugged(*sut));
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
  EXPECT_TRUE(Peer::isPlugged(*sut));
  EXPECT_THAT(tick(platform, *sut, 50), IsEmpty());
}

TEST(GKBatteryPlug, ATickThatFailsDoesNotCountTowardsTheDecision) {
  BatteryPlatform platform;
  platform.set(kCurrent, kChargeCurrent);
  const auto sut = make(platform);
  platform.set(kCharge, 0.5F);
  platform.faults->fail(GKOperation::RaiseEvent, "BatteryChargeChanged");
  EXPECT_THROW(sut->updatePowerPlugged(), GKError);
  tick(platform, *sut, 49);
  EXPECT_FALSE(Peer::isPlugged(*sut));
  tick(platform, *sut);
  EXPECT_TRUE(Peer::isPlugged(*sut));
}

TEST(GKBatteryPlug, TellsWhenThePowerIsPulledAndPluggedIn) {
  BatteryPlatform platform;
  platform.set(kCurrent, kChargeCurrent);
  const auto sut = make(platform);
  tick(platform, *sut, 50);
  platform.set(kCurrent, kDrainCurrent);
  EXPECT_THAT(tick(platform, *sut, 60), ElementsAre("event BatteryPowerPluggedChanged false"));
  platform.set(kCurrent, kChargeCurrent);
  EXPECT_THAT(tick(platform, *sut, 60), ElementsAre("event BatteryPowerPluggedChanged true"));
}

TEST(GKBatteryPlug, PluggedInNeedsMoreThanTheUpperScore) {
  for (const float score : {below(3.0F), 3.0F, kNaN}) {
    BatteryPlatform platform;
    const auto sut = make(platform);
    Peer::setDecided(*sut, false);
    Peer::decide(*sut, score);
    EXPECT_THAT(takeLines(platform), IsEmpty()) << score;
  }
  BatteryPlatform platform;
  const auto sut = make(platform);
  Peer::setDecided(*sut, false);
  Peer::decide(*sut, above(3.0F));
  EXPECT_THAT(takeLines(platform), ElementsAre("event BatteryPowerPluggedChanged true"));
}

TEST(GKBatteryPlug, PluggedOutNeedsLessThanTheLowerScore) {
  for (const float score : {3.5F, 2.0F, above(1.0F), 1.0F, kNaN}) {
    BatteryPlatform platform;
    const auto sut = make(platform);
    Peer::setDecided(*sut, true);
    Peer::decide(*sut, score);
    EXPECT_THAT(takeLines(platform), IsEmpty()) << score;
  }
  BatteryPlatform platform;
  const auto sut = make(platform);
  Peer::setDecided(*sut, true);
  Peer::decide(*sut, below(1.0F));
  EXPECT_THAT(takeLines(platform), ElementsAre("event BatteryPowerPluggedChanged false"));
}

TEST(GKBatteryPlug, AFullBatteryIsPluggedInWhateverTheCurrents) {
  BatteryPlatform platform;
  platform.set(kCurrent, kDrainCurrent);
  const auto sut = make(platform);
  tick(platform, *sut, 50);
  platform.set(kStatus, kFullCharged);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryFullChargedFlagChanged true",
                                                "event BatteryPowerPluggedChanged true"));
  EXPECT_THAT(tick(platform, *sut, 100), IsEmpty());
  platform.set(kStatus, 0);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryFullChargedFlagChanged false",
                                                "event BatteryPowerPluggedChanged false"));
}

TEST(GKBatteryPlug, ARefusedPlugEventLeavesTheTickAndIsNotRaisedAgain) {
  BatteryPlatform platform;
  platform.set(kCurrent, kDrainCurrent);
  const auto sut = make(platform);
  tick(platform, *sut, 50);
  platform.set(kStatus, kFullCharged);
  platform.faults->fail(GKOperation::RaiseEvent, "BatteryPowerPluggedChanged");
  EXPECT_THROW(sut->updatePowerPlugged(), GKError);
  platform.recorder->clear();
  EXPECT_THAT(tick(platform, *sut, 5), IsEmpty());
  EXPECT_TRUE(Peer::isPlugged(*sut));
}

} // namespace GK::test::battery
