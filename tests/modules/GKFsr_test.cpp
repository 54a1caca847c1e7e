#include "modules/fsr/GKFsr.h"
#include "support/NoticeLines.h"
#include "support/TestModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace GK::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kLeft = "Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value";
constexpr const char* kRight = "Device/SubDeviceList/RFoot/FSR/TotalWeight/Sensor/Value";
constexpr const char* kLegs = "RobotConfig/Body/Device/Legs/Version";
constexpr const char* kLeftFoot = "RobotConfig/Body/Device/Foot/Left/Version";
constexpr const char* kRightFoot = "RobotConfig/Body/Device/Foot/Right/Version";

constexpr const char* kNoLegsLine =
    "warning motion.gkfsr GKFsr: GKFsr No legs detected. FootContact is set to true.";
constexpr const char* kNoFsrsLine =
    "warning motion.gkfsr GKFsr: GKFsr No FSRs detected. FootContact is set to true.";
constexpr const char* kNotConnectedLine =
    "warning motion.gkfsr xConnectToMemory: GKFsr Connection to GKMemory failed. Please check that "
    "DCM is running";

void weigh(TestPlatform& platform, float left, float right) {
  platform.set(kLeft, left);
  platform.set(kRight, right);
}

/// [overall contact, left contact, right contact, left weight, right weight].
std::string outputs(const TestPlatform& platform) {
  GKValue values;
  for (const char* key : {"footContact", "leftFootContact", "rightFootContact",
                          "leftFootTotalWeight", "rightFootTotalWeight"}) {
    values.arrayPush(platform.value(key));
  }
  return textOf(values);
}

void tick(GKFsr& sut, int times) {
  for (int i = 0; i < times; ++i) {
    sut.updateFootContact();
  }
}

/// The sensors' outputs that nobody has touched since construction.
constexpr const char* kInitialOutputs = "[1.0, 1.0, 1.0, 0.0, 0.0]";

boost::shared_ptr<GKFsr> make(TestPlatform& platform) {
  auto sut = boost::make_shared<GKFsr>(platform.broker());
  platform.recorder->clear();
  return sut;
}

} // namespace

TEST(GKFsr, DescribesItself) {
  TestModules platform;
  const auto sut = make(platform);
  EXPECT_EQ(sut->getName(), "GKFsr");
  EXPECT_EQ(sut->getModuleDescription(),
            "Deals with FSR sensors.\n"
            " A MicroEvent is generated when the foot contact changed.\n"
            "The GKMemory Key is footContactChanged, its a boolean which is set to \"True\" if one "
            "of the foot touched the ground\n"
            "Also some fast access Memory key are available : \n"
            " footContact (1.0f if one of the foot touched the ground)\n"
            " leftFootContact (1.0f if the left foot touched the ground)\n"
            " rightFootContact (1.0f if the right foot touched the ground)\n"
            " leftFootTotalWeight (the average weight on the left foot in Kg)\n"
            " rightFootTotalWeight (the average weight on the right foot in Kg)\n");
  EXPECT_THAT(sut->getMethods(), IsEmpty());
}

TEST(GKFsr, StartsWithContactEverywhereAndNoWeight) {
  TestModules platform;
  const GKFsr sut(platform.broker());
  EXPECT_THAT(takeLines(platform),
              ElementsAre("data footContact 1.0", "data leftFootContact 1.0",
                          "data rightFootContact 1.0", "data leftFootTotalWeight 0.0",
                          "data rightFootTotalWeight 0.0"));
}

TEST(GKFsr, WithoutMemoryServiceSaysSoAndStillTriesToConnect) {
  TestModules platform(TestPlatform::kNoServices);
  GKFsr sut(platform.broker());
  EXPECT_THAT(
      takeLines(platform),
      ElementsAre("warning motion.gkfsr GKFsr: GKFsr No GKMemory. FootContact is set to true.",
                  kNotConnectedLine));
  sut.updateFootContact();
  EXPECT_THAT(takeLines(platform), IsEmpty());
}

TEST(GKFsr, WithoutLegsKeepsItsInitialOutputs) {
  TestModules platform;
  platform.set(kLegs, -1);
  GKFsr sut(platform.broker());
  EXPECT_THAT(platform.recorder->logLines(), ElementsAre("3 motion.gkfsr GKFsr: GKFsr No legs "
                                                         "detected. FootContact is set to true."));
  platform.recorder->clear();
  tick(sut, 3);
  EXPECT_EQ(outputs(platform), kInitialOutputs);
  EXPECT_THAT(takeLines(platform), IsEmpty());
}

TEST(GKFsr, WithoutSensorsUnderOneFootKeepsItsInitialOutputs) {
  for (const char* foot : {kLeftFoot, kRightFoot}) {
    TestModules platform;
    platform.set(foot, 0);
    GKFsr sut(platform.broker());
    EXPECT_EQ(takeLines(platform).front(), kNoFsrsLine) << foot;
    tick(sut, 3);
    EXPECT_EQ(outputs(platform), kInitialOutputs) << foot;
    EXPECT_THAT(takeLines(platform), IsEmpty()) << foot;
  }
}

TEST(GKFsr, WithoutLegsAndSensorsSaysBoth) {
  TestModules platform;
  platform.set(kLegs, -1);
  platform.set(kRightFoot, 0);
  const GKFsr sut(platform.broker());
  const auto lines = takeLines(platform);
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[0], kNoLegsLine);
  EXPECT_EQ(lines[1], kNoFsrsLine);
}

TEST(GKFsr, AnUnreadableConfigurationCountsAsSensorsPresent) {
  for (const char* key : {kLegs, kLeftFoot, kRightFoot}) {
    TestModules platform;
    platform.faults->fail(GKOperation::GetData, key);
    const auto sut = make(platform);
    sut->updateFootContact();
    EXPECT_THAT(takeLines(platform), ElementsAre("micro footContactChanged false")) << key;
  }
}

TEST(GKFsr, AnUnreadableFootOverrulesMissingLegs) {
  TestModules platform;
  platform.set(kLegs, -1);
  platform.set(kLeftFoot, 0);
  platform.set(kRightFoot, 1.0F); // of another type: refused
  GKFsr sut(platform.broker());
  EXPECT_EQ(takeLines(platform).front(), kNoLegsLine);
  sut.updateFootContact();
  EXPECT_THAT(takeLines(platform), ElementsAre("micro footContactChanged false"));
}

TEST(GKFsr, ARefusedInitialOutputLeavesTheConstructor) {
  TestModules platform;
  platform.faults->fail(GKOperation::InsertData, "rightFootTotalWeight");
  EXPECT_THROW(GKFsr(platform.broker()), GKError);
}

TEST(GKFsr, AMissingSensorIsLoggedAndWeighsNothing) {
  TestModules platform;
  platform.faults->fail(GKOperation::GetDataPtr, kRight);
  GKFsr sut(platform.broker());
  EXPECT_EQ(takeLines(platform).back(), kNotConnectedLine);

  weigh(platform, 0.0F, 50.0F); // the right foot is not seen
  sut.updateFootContact();
  EXPECT_THAT(takeLines(platform), ElementsAre("micro footContactChanged false"));

  weigh(platform, 50.0F, 0.0F);
  sut.updateFootContact();
  EXPECT_THAT(takeLines(platform), ElementsAre("micro footContactChanged true"));
  EXPECT_EQ(outputs(platform), kInitialOutputs); // outputs come after inputs: not connected either
}

TEST(GKFsr, AWeightReachesItsFullValueAfterTenTicks) {
  TestModules platform;
  const auto sut = make(platform);
  weigh(platform, 5.0F, 2.5F);
  for (int k = 1; k <= 12; ++k) {
    sut->updateFootContact();
    const auto share = static_cast<float>(std::min(k, 10));
    EXPECT_EQ(platform.value("leftFootTotalWeight"), GKValue(share * 0.5F)) << k;
    EXPECT_EQ(platform.value("rightFootTotalWeight"), GKValue(share * 0.25F)) << k;
  }
}

TEST(GKFsr, AnOldWeightIsForgottenAfterTenTicks) {
  TestModules platform;
  const auto sut = make(platform);
  weigh(platform, 20.0F, 0.0F);
  sut->updateFootContact();
  weigh(platform, 0.0F, 0.0F);
  tick(*sut, 9);
  EXPECT_EQ(outputs(platform), "[1.0, 1.0, 0.0, 2.0, 0.0]");
  sut->updateFootContact();
  EXPECT_EQ(outputs(platform), "[0.0, 0.0, 0.0, 0.0, 0.0]");
}

TEST(GKFsr, TheAverageAddsFromOldestToNewestInSinglePrecision) {
  TestModules platform;
  const auto sut = make(platform);
  // 2^24 swallows each single 1 that comes after it, but not their sum that came before it.
  weigh(platform, 16777216.0F, 1.0F);
  sut->updateFootContact();
  weigh(platform, 1.0F, 1.0F);
  tick(*sut, 8);
  weigh(platform, 1.0F, 16777216.0F);
  sut->updateFootContact();
  EXPECT_EQ(platform.value("leftFootTotalWeight"), GKValue(16777216.0F / 10.0F));
  EXPECT_EQ(platform.value("rightFootTotalWeight"), GKValue(16777224.0F / 10.0F));
}

TEST(GKFsr, NegativeZeroesAddUpToZero) {
  TestModules platform;
  const auto sut = make(platform);
  weigh(platform, -0.0F, -0.0F);
  tick(*sut, 10);
  EXPECT_EQ(outputs(platform), "[0.0, 0.0, 0.0, 0.0, 0.0]");
}

TEST(GKFsr, ContactNeedsMoreThanTheThreshold) {
  // One reading of 4 kg among zeroes averages to exactly the threshold of 0.4 kg.
  const std::vector<std::pair<float, const char*>> cases = {
      {below(below(4.0F)), "0.0"}, {4.0F, "0.0"}, {above(4.0F), "1.0"}};
  for (const auto& [weight, contact] : cases) {
    TestModules left;
    auto sut = make(left);
    weigh(left, weight, 0.0F);
    sut->updateFootContact();
    EXPECT_EQ(textOf(left.value("footContact")), contact) << weight;
    EXPECT_EQ(textOf(left.value("leftFootContact")), contact) << weight;
    EXPECT_EQ(textOf(left.value("rightFootContact")), "0.0") << weight;
  }
  for (const auto& [weight, contact] : cases) {
    TestModules right;
    auto sut = make(right);
    weigh(right, 0.0F, weight);
    sut->updateFootContact();
    EXPECT_EQ(textOf(right.value("footContact")), contact) << weight;
    EXPECT_EQ(textOf(right.value("leftFootContact")), "0.0") << weight;
    EXPECT_EQ(textOf(right.value("rightFootContact")), contact) << weight;
  }
}

TEST(GKFsr, TwoFeetTooLightForThemselvesTouchTheGroundTogether) {
  TestModules platform;
  const auto sut = make(platform);
  weigh(platform, 2.5F, 2.0F);
  sut->updateFootContact();
  EXPECT_EQ(outputs(platform), "[1.0, 0.0, 0.0, 0.25, 0.2]");
}

TEST(GKFsr, TogetherTheFeetNeedMoreThanTheThresholdToo) {
  TestModules platform;
  const auto sut = make(platform);
  weigh(platform, 2.0F, 2.0F);
  sut->updateFootContact();
  EXPECT_EQ(outputs(platform), "[0.0, 0.0, 0.0, 0.2, 0.2]");
}

TEST(GKFsr, ALiftedRobotIsAnnouncedOnTheFirstTickAndOnce) {
  TestModules platform;
  const auto sut = make(platform);
  sut->updateFootContact();
  EXPECT_THAT(takeLines(platform), ElementsAre("micro footContactChanged false"));
  tick(*sut, 5);
  EXPECT_THAT(takeLines(platform), IsEmpty());
}

TEST(GKFsr, ARobotOnTheGroundIsNotAnnouncedUntilItIsLifted) {
  TestModules platform;
  const auto sut = make(platform);
  weigh(platform, 2.2F, 2.0F);
  tick(*sut, 12);
  EXPECT_THAT(takeLines(platform), IsEmpty());

  weigh(platform, 0.0F, 0.0F);
  tick(*sut, 9); // one reading of ten is left: 0.42 kg
  EXPECT_THAT(takeLines(platform), IsEmpty());
  sut->updateFootContact();
  EXPECT_THAT(takeLines(platform), ElementsAre("micro footContactChanged false"));

  weigh(platform, 5.0F, 0.0F);
  sut->updateFootContact();
  EXPECT_THAT(takeLines(platform), ElementsAre("micro footContactChanged true"));
}

TEST(GKFsr, AWeightThatIsNoNumberIsNoContactForTenTicks) {
  TestModules platform;
  const auto sut = make(platform);
  weigh(platform, kNaN, 50.0F);
  sut->updateFootContact();
  EXPECT_EQ(outputs(platform), "[0.0, 0.0, 1.0, nan, 5.0]");
  weigh(platform, 0.0F, 50.0F);
  tick(*sut, 9);
  EXPECT_EQ(outputs(platform), "[0.0, 0.0, 1.0, nan, 50.0]");
  sut->updateFootContact();
  EXPECT_EQ(outputs(platform), "[1.0, 0.0, 1.0, 0.0, 50.0]");
}

TEST(GKFsr, ARefusedEventIsLoggedAndNotRaisedAgain) {
  TestModules platform;
  const auto sut = make(platform);
  platform.faults->fail(GKOperation::RaiseMicroEvent, "footContactChanged");
  sut->updateFootContact();
  EXPECT_THAT(takeLines(platform),
              ElementsAre("warning motion.gkfsr updateFootContact: GKFsr Failed to insert Data"));
  EXPECT_EQ(outputs(platform), "[0.0, 0.0, 0.0, 0.0, 0.0]");
  tick(*sut, 3);
  EXPECT_THAT(takeLines(platform), IsEmpty());

  weigh(platform, 50.0F, 0.0F);
  sut->updateFootContact();
  EXPECT_THAT(takeLines(platform), ElementsAre("micro footContactChanged true"));
}

TEST(GKFsr, ItsEndStopsFastAccessOfEverybody) {
  TestModules platform;
  GKMemoryFastAccess access;
  make(platform).reset();
  access.ConnectToVariables(platform.broker(), {kLeft}, false);
  std::vector<float> values = {1.0F};
  access.GetValues(values);
  EXPECT_THAT(values, IsEmpty());
}

} // namespace GK::test
