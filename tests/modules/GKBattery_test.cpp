#include "modules/battery/GKBattery.h"
#include "support/NoticeLines.h"
#include "support/TestModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace GK {

/// Reaches single steps of a tick, to try their limits with exact numbers.
class GKBatteryPeer {
public:
  static float motorSample(GKBattery& battery) { return battery.xReadMotorSample(); }
  static float score(GKBattery& battery) { return battery.xUpdateScore(); }
  static float motorMean(const GKBattery& battery) { return battery.fMotorMean; }
  static void setMotorMean(GKBattery& battery, float mean) { battery.fMotorMean = mean; }
  static float batteryMean(const GKBattery& battery) { return battery.fBatteryMean; }
  static bool isPlugged(const GKBattery& battery) { return battery.fPowerPlugged; }

  /// The first decision has been taken and was `isPlugged`.
  static void setDecided(GKBattery& battery, bool isPlugged) {
    battery.fPlugDecided = true;
    battery.fPowerPlugged = isPlugged;
  }
  static void decide(GKBattery& battery, float score) { battery.xDecidePowerPlugged(score); }
};

} // namespace GK

namespace GK::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Peer = GKBatteryPeer;

constexpr const char* kCharge = "Device/SubDeviceList/Battery/Charge/Sensor/Value";
constexpr const char* kStatus = "Device/SubDeviceList/Battery/Charge/Sensor/Status";
constexpr const char* kCellVoltage = "Device/SubDeviceList/Battery/Charge/Sensor/CellVoltageMin";
constexpr const char* kCurrent = "Device/SubDeviceList/Battery/Current/Sensor/Value";
constexpr const char* kFirstJoint = "Device/SubDeviceList/HeadPitch/ElectricCurrent/Sensor/Value";
constexpr const char* kSecondJoint = "Device/SubDeviceList/HeadYaw/ElectricCurrent/Sensor/Value";
constexpr const char* kLastJoint = "Device/SubDeviceList/RAnkleRoll/ElectricCurrent/Sensor/Value";

constexpr int kDisCharging = 0x20;
constexpr int kFullCharged = 0x40;
constexpr int kCharging = 0x80;

constexpr const char* kNotConnectedLine =
    "warning motion.gkbattery xConnectToMemory: GKBattery :Connection to GKMemory failed. "
    "GKBattery Module will not create event";

/// Battery currents (ampere) at which, with all joints idle, the power is surely in or out.
constexpr float kChargeCurrent = 1.0F;
constexpr float kDrainCurrent = -1.0F;

/// A battery that is empty, so that a tick at rest announces nothing.
class BatteryPlatform : public TestModules {
public:
  explicit BatteryPlatform(Services services = kMemoryOnly) : TestModules(services) {
    insert(kCharge, 0.0F);
  }
};

boost::shared_ptr<GKBattery> make(TestPlatform& platform) {
  auto sut = boost::make_shared<GKBattery>(platform.broker);
  platform.recorder->clear();
  return sut;
}

std::vector<std::string> tick(TestPlatform& platform, GKBattery& sut, int times = 1) {
  for (int i = 0; i < times; ++i) {
    sut.updatePowerPlugged();
  }
  return takeLines(platform);
}

} // namespace

// Construction

TEST(GKBattery, DescribesItself) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  EXPECT_EQ(sut->getName(), "GKBattery");
  EXPECT_EQ(sut->getModuleDescription(),
            "Deals with Battery informations.\n"
            "A event name BatteryChargeCellVoltageMinChanged is raised when the cell voltage Min "
            "(int) of the battery changed.\n"
            "A event name BatteryChargingFlagChanged is raised when the flag battery is charging "
            "(bool) changed.\n"
            "A event name BatteryFullChargedFlagChanged is raised when the flag battery is full "
            "charged (bool) changed.\n"
            "A event name BatteryDisChargingFlagChanged is raised when the flag battery is "
            "disCharging (bool) changed.\n"
            "A event name BatteryLevelChanged is raised when the battery level percentage (int) "
            "changed.\n");
}

TEST(GKBattery, DescribesItsMethods) {
  BatteryPlatform platform;
  const auto methods = make(platform)->getMethods();
  ASSERT_EQ(methods.size(), 2U);
  EXPECT_EQ(methods[0].name, "_setResistanceValue");
  EXPECT_EQ(methods[0].module, "GKBattery");
  EXPECT_EQ(methods[0].description, "hide method to activate the event BatteryPowerPluggedChanged");
  ASSERT_EQ(methods[0].params.size(), 2U);
  EXPECT_EQ(methods[0].params[0].name, "Positive");
  EXPECT_EQ(methods[0].params[0].description, "True activate extractor");
  EXPECT_EQ(methods[0].params[0].type, "float");
  EXPECT_EQ(methods[0].params[1].name, "Negative");
  EXPECT_EQ(methods[0].params[1].description, "True activate extractor");
  EXPECT_EQ(methods[0].params[1].type, "float");
  EXPECT_EQ(methods[0].result.type, "");
  EXPECT_EQ(methods[1].name, "getBatteryCharge");
  EXPECT_EQ(methods[1].description, "Get the battery charge in percents");
  EXPECT_THAT(methods[1].params, IsEmpty());
  EXPECT_EQ(methods[1].result.name, "charge");
  EXPECT_EQ(methods[1].result.description, "the percentage of remaining power");
  EXPECT_EQ(methods[1].result.type, "int");
}

TEST(GKBattery, DeclaresItsEventsAndRaisesTheirInitialValues) {
  BatteryPlatform platform;
  platform.insert(kCellVoltage, 72);
  const GKBattery sut(platform.broker);
  EXPECT_THAT(
      takeLines(platform),
      ElementsAre(
          "declare BatteryChargingFlagChanged of GKBattery",
          "declare BatteryFullChargedFlagChanged of GKBattery",
          "declare BatteryDisChargingFlagChanged of GKBattery",
          "declare BatteryChargeCellVoltageMinChanged of GKBattery",
          "declare BatteryPowerPluggedChanged of GKBattery",
          "declare BatteryLevelChanged of GKBattery", "event BatteryChargingFlagChanged false",
          "event BatteryFullChargedFlagChanged false", "event BatteryDisChargingFlagChanged false",
          "event BatteryChargeCellVoltageMinChanged 72", "event BatteryPowerPluggedChanged false",
          "event BatteryLevelChanged -1"));
}

TEST(GKBattery, InitialFlagsComeFromTheStatus) {
  const std::vector<std::pair<int, const char*>> cases = {
      {kCharging, "event BatteryChargingFlagChanged true"},
      {kFullCharged, "event BatteryFullChargedFlagChanged true"},
      {kDisCharging, "event BatteryDisChargingFlagChanged true"}};
  for (const auto& [bit, line] : cases) {
    BatteryPlatform platform;
    platform.insert(kStatus, bit);
    GKBattery sut(platform.broker);
    auto lines = takeLines(platform);
    EXPECT_THAT(lines, testing::Contains(line));
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& text) { return text.ends_with(" true"); }),
              1);
    EXPECT_THAT(tick(platform, sut), IsEmpty()) << line;
  }
}

TEST(GKBattery, WithoutMemoryServiceDoesNothing) {
  BatteryPlatform platform(TestPlatform::kNoServices);
  GKBattery sut(platform.broker);
  EXPECT_THAT(takeLines(platform),
              ElementsAre("warning motion.gkbattery GKBattery: No GKMemory. GKBattery Module will "
                          "not create event "));
  platform.insert(kCharge, 0.5F);
  EXPECT_THAT(tick(platform, sut, 60), IsEmpty());
  EXPECT_EQ(sut.getBatteryCharge(), 0);
}

TEST(GKBattery, AFailedConnectionMakesItDoNothing) {
  const std::vector<std::pair<GKOperation, const char*>> failures = {
      {GKOperation::GetDataPtr, kFirstJoint},
      {GKOperation::GetDataPtr, kLastJoint},
      {GKOperation::GetDataPtr, kCharge},
      {GKOperation::GetDataPtr, kStatus},
      {GKOperation::GetDataPtr, kCellVoltage},
      {GKOperation::GetDataPtr, kCurrent},
      {GKOperation::DeclareEvent, "BatteryLevelChanged"},
      {GKOperation::RaiseEvent, "BatteryLevelChanged"}};
  for (const auto& [operation, key] : failures) {
    BatteryPlatform platform;
    platform.faults->fail(operation, key);
    GKBattery sut(platform.broker);
    EXPECT_EQ(takeLines(platform).back(), kNotConnectedLine) << key;
    platform.insert(kCharge, 0.5F);
    EXPECT_THAT(tick(platform, sut, 60), IsEmpty()) << key;
    EXPECT_EQ(sut.getBatteryCharge(), 0) << key;
  }
}

// Charge

TEST(GKBattery, RaisesTheChargeInPercentWhenItChanges) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  platform.insert(kCharge, 0.456F);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargeChanged 45"));
  platform.insert(kCharge, 0.459F);
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
  platform.insert(kCharge, 0.461F);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargeChanged 46"));
}

TEST(GKBattery, AnEmptyBatteryIsNoChangeAtTheStart) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
}

TEST(GKBattery, TheChargeIsCutTowardZeroInSinglePrecision) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  const auto percentOf = [&](float charge) {
    platform.insert(kCharge, charge);
    return sut->getBatteryCharge();
  };
  EXPECT_EQ(percentOf(1.0F), 100);
  EXPECT_EQ(percentOf(0.29F), 29); // 28 in double precision
  EXPECT_EQ(percentOf(0.009F), 0);
  EXPECT_EQ(percentOf(-0.009F), 0);
  EXPECT_EQ(percentOf(-0.456F), -45);
}

TEST(GKBattery, AChargeBeyondAllIntsIsTheSmallestInt) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  const auto percentOf = [&](float charge) {
    platform.insert(kCharge, charge);
    return sut->getBatteryCharge();
  };
  constexpr int kSmallest = std::numeric_limits<int>::min();
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  EXPECT_EQ(percentOf(kNaN), kSmallest);
  EXPECT_EQ(percentOf(kInfinity), kSmallest);
  EXPECT_EQ(percentOf(-kInfinity), kSmallest);
  EXPECT_EQ(percentOf(21474838.0F), kSmallest);
  EXPECT_EQ(percentOf(-21474838.0F), kSmallest);
  EXPECT_EQ(percentOf(21474834.0F), 2147483392);
}

TEST(GKBattery, TellsRemoteCallersTheChargeOfTheMoment) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  platform.insert(kCharge, 0.8F);
  tick(platform, *sut);
  platform.insert(kCharge, 0.5F); // not announced yet
  EXPECT_EQ(sut->callMethod("getBatteryCharge", {}), GKValue(50));
}

TEST(GKBattery, ARefusedChargeLeavesTheTickAndIsNotRaisedAgain) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  platform.insert(kCharge, 0.5F);
  platform.faults->fail(GKOperation::RaiseEvent, "BatteryChargeChanged");
  EXPECT_THROW(sut->updatePowerPlugged(), GKError);
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
}

TEST(GKBattery, LogsTheResistanceValues) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  sut->callMethod("_setResistanceValue", {GKValue(1.5F), GKValue(2)});
  EXPECT_THAT(takeLines(platform),
              ElementsAre("info motion.gkbattery _setResistanceValue: resistance change 1.5 2"));
}

// Flags and cell voltage

TEST(GKBattery, RaisesEachFlagThatChangesInAFixedOrder) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  platform.insert(kStatus, kDisCharging | kFullCharged | kCharging);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargingFlagChanged true",
                                                "event BatteryFullChargedFlagChanged true",
                                                "event BatteryDisChargingFlagChanged true"));
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
  platform.insert(kStatus, kDisCharging);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargingFlagChanged false",
                                                "event BatteryFullChargedFlagChanged false"));
  platform.insert(kStatus, 0);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryDisChargingFlagChanged false"));
}

TEST(GKBattery, OtherBitsOfTheStatusMeanNothing) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  platform.insert(kStatus, ~(kDisCharging | kFullCharged | kCharging));
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
}

TEST(GKBattery, ARefusedFlagIsNotRaisedAgain) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  platform.insert(kStatus, kCharging | kDisCharging);
  platform.faults->fail(GKOperation::RaiseEvent, "BatteryChargingFlagChanged");
  EXPECT_THROW(sut->updatePowerPlugged(), GKError);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryDisChargingFlagChanged true"));
}

TEST(GKBattery, RaisesTheCellVoltageWhenItMovesByTwo) {
  BatteryPlatform platform;
  platform.insert(kCellVoltage, 100);
  const auto sut = make(platform);
  platform.insert(kCellVoltage, 101);
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
  platform.insert(kCellVoltage, 99);
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
  platform.insert(kCellVoltage, 102);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargeCellVoltageMinChanged 102"));
  platform.insert(kCellVoltage, 100);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargeCellVoltageMinChanged 100"));
}

TEST(GKBattery, ACellVoltageMayMoveAcrossAllInts) {
  BatteryPlatform platform;
  platform.insert(kCellVoltage, std::numeric_limits<int>::min());
  const auto sut = make(platform);
  platform.insert(kCellVoltage, std::numeric_limits<int>::max());
  EXPECT_THAT(tick(platform, *sut),
              ElementsAre("event BatteryChargeCellVoltageMinChanged 2147483647"));
  platform.insert(kCellVoltage, std::numeric_limits<int>::min());
  EXPECT_THAT(tick(platform, *sut),
              ElementsAre("event BatteryChargeCellVoltageMinChanged -2147483648"));
}

// Currents

TEST(GKBattery, WorkingMotorsGetTheSmallerOffset) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  const auto sampleOf = [&](float current) {
    platform.insert(kLastJoint, current);
    return Peer::motorSample(*sut);
  };
  EXPECT_EQ(sampleOf(0.0F), 2.5F);
  EXPECT_EQ(sampleOf(below(0.5F)), below(0.5F) + 2.5F);
  EXPECT_EQ(sampleOf(0.5F), 0.5F + 0.83F);
  EXPECT_EQ(sampleOf(above(0.5F)), above(0.5F) + 0.83F);
  EXPECT_EQ(sampleOf(-4.0F), -1.5F);
  EXPECT_TRUE(std::isnan(sampleOf(kNaN)));
}

TEST(GKBattery, AllJointsAreAddedUp) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  for (const char* joint : kStiffnessJoints) {
    platform.insert(std::string("Device/SubDeviceList/") + joint + "/ElectricCurrent/Sensor/Value",
                    0.5F);
  }
  EXPECT_EQ(Peer::motorSample(*sut), 12.5F + 0.83F);
}

TEST(GKBattery, JointsAreAddedFromTheHeadOn) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  // 2^24 swallows a single 1 that comes after it.
  platform.insert(kFirstJoint, 16777216.0F);
  platform.insert(kSecondJoint, 1.0F);
  platform.insert(kLastJoint, -16777216.0F);
  EXPECT_EQ(Peer::motorSample(*sut), 2.5F);
}

TEST(GKBattery, WithoutAnyJointTheMotorsAreIdle) {
  BatteryPlatform platform;
  GKMemoryFastAccess::StopAllAccess(); // nothing connects from here on, and nothing says so
  const auto sut = make(platform);
  platform.insert(kFirstJoint, 50.0F);
  EXPECT_EQ(Peer::motorSample(*sut), 2.5F);
}

TEST(GKBattery, TheMeansKeepAShareOfTheirHistory) {
  BatteryPlatform platform;
  platform.insert(kCurrent, 0.5F);
  const auto sut = make(platform);
  // 50 samples of 2.5 and of 0.5 from the first tick on, and the former mean on top.
  EXPECT_EQ(Peer::score(*sut), 0.5F * 2.5F + 2.5F);
  EXPECT_EQ(Peer::score(*sut), (25.5F / 50.0F) * 2.5F + 127.5F / 50.0F);
  EXPECT_EQ(Peer::motorMean(*sut), 2.55F);
  EXPECT_EQ(Peer::batteryMean(*sut), 0.51F);
}

TEST(GKBattery, ASampleLeavesTheWindowAfterFiftyTicks) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  Peer::score(*sut); // fills the window with zeroes
  platform.insert(kCurrent, 50.0F);
  Peer::score(*sut);
  platform.insert(kCurrent, 0.0F);
  for (int i = 0; i < 49; ++i) {
    Peer::score(*sut);
    EXPECT_GE(Peer::batteryMean(*sut), 1.0F) << i;
  }
  Peer::score(*sut);
  EXPECT_LT(Peer::batteryMean(*sut), 0.03F); // only the share of the history is left
}

TEST(GKBattery, TheFormerMeanComesFirstInTheSum) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  Peer::setMotorMean(*sut, 16777216.0F);
  Peer::score(*sut);
  // From 2^24 on floats are even numbers: each of the 50 samples of 2.5 adds only 2.
  EXPECT_EQ(Peer::motorMean(*sut), 16777316.0F / 50.0F);
}

// Plug

TEST(GKBattery, TheFirstDecisionIsTakenSilentlyAtTickFifty) {
  BatteryPlatform platform;
  platform.insert(kCurrent, kChargeCurrent);
  const auto sut = make(platform);
  EXPECT_THAT(tick(platform, *sut, 49), IsEmpty());
  EXPECT_FALSE(Peer::isPlugged(*sut));
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
  EXPECT_TRUE(Peer::isPlugged(*sut));
  EXPECT_THAT(tick(platform, *sut, 50), IsEmpty());
}

TEST(GKBattery, ATickThatFailsDoesNotCountTowardsTheDecision) {
  BatteryPlatform platform;
  platform.insert(kCurrent, kChargeCurrent);
  const auto sut = make(platform);
  platform.insert(kCharge, 0.5F);
  platform.faults->fail(GKOperation::RaiseEvent, "BatteryChargeChanged");
  EXPECT_THROW(sut->updatePowerPlugged(), GKError);
  tick(platform, *sut, 49);
  EXPECT_FALSE(Peer::isPlugged(*sut));
  tick(platform, *sut);
  EXPECT_TRUE(Peer::isPlugged(*sut));
}

TEST(GKBattery, TellsWhenThePowerIsPulledAndPluggedIn) {
  BatteryPlatform platform;
  platform.insert(kCurrent, kChargeCurrent);
  const auto sut = make(platform);
  tick(platform, *sut, 50);
  platform.insert(kCurrent, kDrainCurrent);
  EXPECT_THAT(tick(platform, *sut, 60), ElementsAre("event BatteryPowerPluggedChanged false"));
  platform.insert(kCurrent, kChargeCurrent);
  EXPECT_THAT(tick(platform, *sut, 60), ElementsAre("event BatteryPowerPluggedChanged true"));
}

TEST(GKBattery, PluggedInNeedsMoreThanTheUpperScore) {
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

TEST(GKBattery, PluggedOutNeedsLessThanTheLowerScore) {
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

TEST(GKBattery, AFullBatteryIsPluggedInWhateverTheCurrents) {
  BatteryPlatform platform;
  platform.insert(kCurrent, kDrainCurrent);
  const auto sut = make(platform);
  tick(platform, *sut, 50);
  platform.insert(kStatus, kFullCharged);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryFullChargedFlagChanged true",
                                                "event BatteryPowerPluggedChanged true"));
  EXPECT_THAT(tick(platform, *sut, 100), IsEmpty());
  platform.insert(kStatus, 0);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryFullChargedFlagChanged false",
                                                "event BatteryPowerPluggedChanged false"));
}

TEST(GKBattery, ARefusedPlugEventLeavesTheTickAndIsNotRaisedAgain) {
  BatteryPlatform platform;
  platform.insert(kCurrent, kDrainCurrent);
  const auto sut = make(platform);
  tick(platform, *sut, 50);
  platform.insert(kStatus, kFullCharged);
  platform.faults->fail(GKOperation::RaiseEvent, "BatteryPowerPluggedChanged");
  EXPECT_THROW(sut->updatePowerPlugged(), GKError);
  platform.recorder->clear();
  EXPECT_THAT(tick(platform, *sut, 5), IsEmpty());
  EXPECT_TRUE(Peer::isPlugged(*sut));
}

} // namespace GK::test
