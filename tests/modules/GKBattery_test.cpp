#include "support/BatteryPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

using testing::ElementsAre;
using testing::IsEmpty;

namespace GK::test::battery {

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
  platform.set(kCellVoltage, 72);
  const GKBattery sut(platform.broker());
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
    platform.set(kStatus, bit);
    GKBattery sut(platform.broker());
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
  GKBattery sut(platform.broker());
  EXPECT_THAT(takeLines(platform),
              ElementsAre("warning motion.gkbattery GKBattery: No GKMemory. GKBattery Module will "
                          "not create event ",
                          kNotConnectedLine));
  platform.set(kCharge, 0.5F);
  EXPECT_THAT(tick(platform, sut, 60), IsEmpty());
  EXPECT_EQ(sut.getBatteryCharge(), 0);
}

TEST(GKBattery, WithoutAProxyAloneItConnectsAndComplainsAboutBoth) {
  BatteryPlatform platform;
  platform.faults->fail(GKOperation::GetProxy, "GKMemory");
  GKBattery sut(platform.broker());
  EXPECT_THAT(takeLines(platform),
              ElementsAre("warning motion.gkbattery GKBattery: No GKMemory. GKBattery Module will "
                          "not create event ",
                          kNotConnectedLine));
  EXPECT_EQ(platform.faults->uses(GKOperation::GetDataPtr, kCurrent), 1);
  EXPECT_EQ(platform.faults->uses(GKOperation::DeclareEvent, "BatteryLevelChanged"), 0);
  platform.set(kCharge, 0.5F);
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
    GKBattery sut(platform.broker());
    EXPECT_EQ(takeLines(platform).back(), kNotConnectedLine) << key;
    platform.set(kCharge, 0.5F);
    EXPECT_THAT(tick(platform, sut, 60), IsEmpty()) << key;
    EXPECT_EQ(sut.getBatteryCharge(), 0) << key;
  }
}

// Charge

TEST(GKBattery, RaisesTheChargeInPercentWhenItChanges) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  platform.set(kCharge, 0.456F);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargeChanged 45"));
  platform.set(kCharge, 0.459F);
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
  platform.set(kCharge, 0.461F);
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
    platform.set(kCharge, charge);
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
    platform.set(kCharge, charge);
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
  platform.set(kCharge, 0.8F);
  tick(platform, *sut);
  platform.set(kCharge, 0.5F); // not announced yet
  EXPECT_EQ(sut->callMethod("getBatteryCharge", {}), GKValue(50));
}

TEST(GKBattery, ARefusedChargeLeavesTheTickAndIsNotRaisedAgain) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  platform.set(kCharge, 0.5F);
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
  platform.set(kStatus, kDisCharging | kFullCharged | kCharging);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargingFlagChanged true",
                                                "event BatteryFullChargedFlagChanged true",
                                                "event BatteryDisChargingFlagChanged true"));
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
  platform.set(kStatus, kDisCharging);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargingFlagChanged false",
                                                "event BatteryFullChargedFlagChanged false"));
  platform.set(kStatus, 0);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryDisChargingFlagChanged false"));
}

TEST(GKBattery, OtherBitsOfTheStatusMeanNothing) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  platform.set(kStatus, ~(kDisCharging | kFullCharged | kCharging));
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
}

TEST(GKBattery, ARefusedFlagIsNotRaisedAgain) {
  BatteryPlatform platform;
  const auto sut = make(platform);
  platform.set(kStatus, kCharging | kDisCharging);
  platform.faults->fail(GKOperation::RaiseEvent, "BatteryChargingFlagChanged");
  EXPECT_THROW(sut->updatePowerPlugged(), GKError);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryDisChargingFlagChanged true"));
}

TEST(GKBattery, RaisesTheCellVoltageWhenItMovesByTwo) {
  BatteryPlatform platform;
  platform.set(kCellVoltage, 100);
  const auto sut = make(platform);
  platform.set(kCellVoltage, 101);
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
  platform.set(kCellVoltage, 99);
  EXPECT_THAT(tick(platform, *sut), IsEmpty());
  platform.set(kCellVoltage, 102);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargeCellVoltageMinChanged 102"));
  platform.set(kCellVoltage, 100);
  EXPECT_THAT(tick(platform, *sut), ElementsAre("event BatteryChargeCellVoltageMinChanged 100"));
}

TEST(GKBattery, ACellVoltageMayMoveAcrossAllInts) {
  BatteryPlatform platform;
  platform.set(kCellVoltage, std::numeric_limits<int>::min());
  const auto sut = make(platform);
  platform.set(kCellVoltage, std::numeric_limits<int>::max());
  EXPECT_THAT(tick(platform, *sut),
              ElementsAre("event BatteryChargeCellVoltageMinChanged 2147483647"));
  platform.set(kCellVoltage, std::numeric_limits<int>::min());
  EXPECT_THAT(tick(platform, *sut),
              ElementsAre("event BatteryChargeCellVoltageMinChanged -2147483648"));
}

} // namespace GK::test::battery
