#include "modules/sonar/GKSonar.h"
#include "support/NoticeLines.h"
#include "support/TestModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <thread>

namespace GK {

/// Reaches what cannot be brought about from outside: change-only mode and a clock that jumps.
class GKSonarPeer {
public:
  static void raiseOnChangeOnly(GKSonar& sonar) { sonar.fPeriodicEvents = false; }
  static void setLastEventTime(GKSonar& sonar, std::int64_t seconds) {
    sonar.fLastEventTime.tv_sec = seconds;
  }
};

} // namespace GK

namespace GK::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A sonar without emitters that somebody is subscribed to, and nothing recorded yet. Its first
/// reading raises events.
boost::shared_ptr<GKSonar> makeDetecting(TestPlatform& platform) {
  auto sut = boost::make_shared<GKSonar>(platform.broker());
  sut->init();
  sut->subscribe("test", 30, 0.0F);
  platform.recorder->clear();
  return sut;
}

/// What the first reading of a fresh sonar raises.
std::vector<std::string> firstReading(float left, float right) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  sut->dataChanged(left, right);
  return takeLines(platform);
}

} // namespace

// Construction and start

TEST(GKSonar, DescribesItself) {
  TestModules platform;
  const GKSonar sut(platform.broker());
  EXPECT_EQ(sut.getName(), "GKSonar");
  EXPECT_EQ(sut.getModuleDescription(), "Deals with ultrasonic sensors.\n");
  const auto methods = sut.getMethods();
  EXPECT_EQ(methods.back().name, "_getFilteredValues");
  EXPECT_EQ(methods.back().module, "GKSonar");
  EXPECT_EQ(methods.back().description,
            "Returns a vector with rightand left filtered sonar values (in this order). Theses "
            "valuesare the distances to the nearest detected obstacle.");
  EXPECT_EQ(methods.back().result.type, "vector of float");
  EXPECT_EQ(methods.back().mask, 0);
  EXPECT_THAT(methods.back().params, IsEmpty());
}

TEST(GKSonar, WithoutDcmDeclaresItsEventsAndSaysThatItSimulates) {
  TestModules platform(TestPlatform::kMemoryOnly);
  GKSonar sut(platform.broker());
  sut.init();
  EXPECT_THAT(
      takeLines(platform),
      ElementsAre(
          "declare SonarLeftDetected of GKSonar", "declare SonarRightDetected of GKSonar",
          "declare SonarLateralLeftDetected of GKSonar",
          "declare SonarLateralRightDetected of GKSonar", "declare SonarNothingDetected of GKSonar",
          "declare SonarMiddleDetected of GKSonar", "declare SonarLeftNothingDetected of GKSonar",
          "declare SonarRightNothingDetected of GKSonar",
          "verbose motion.sonar init: GKSonar No DCM. Working in simulation mode."));
}

TEST(GKSonar, WithDcmLogsNothingAtStart) {
  TestModules platform;
  GKSonar sut(platform.broker());
  sut.init();
  const auto lines = takeLines(platform);
  EXPECT_EQ(lines.size(), 8U);
  EXPECT_EQ(lines.back(), "declare SonarRightNothingDetected of GKSonar");
}

TEST(GKSonar, WithoutMemoryServiceCannotStart) {
  TestModules platform(TestPlatform::kNoServices);
  GKSonar sut(platform.broker());
  EXPECT_THROW(sut.init(), GKError);
}

TEST(GKSonar, ARefusedDeclarationLeavesTheStart) {
  TestModules platform;
  platform.faults->fail(GKOperation::DeclareEvent, "SonarRightNothingDetected");
  GKSonar sut(platform.broker());
  EXPECT_THROW(sut.init(), GKError);
}

// Emitters

TEST(GKSonar, WithoutDcmSubscriptionsSendNothingAndTakeNoTime) {
  TestModules platform(TestPlatform::kMemoryOnly);
  GKSonar sut(platform.broker());
  sut.init();
  platform.recorder->clear();
  sut.subscribe("test", 30, 0.0F);
  EXPECT_EQ(GKClock::instance().elapsed(), 0);
  EXPECT_THAT(takeLines(platform), IsEmpty());
  sut.unsubscribe("test");
  EXPECT_EQ(GKClock::instance().elapsed(), 0);
  EXPECT_THAT(platform.recorder->ofKind(GKNotice::Kind::Order), IsEmpty());
}

TEST(GKSonar, TheFirstSubscriberSwitchesTheEmittersOnAfterASecond) {
  TestModules platform;
  GKSonar sut(platform.broker());
  sut.init();
  platform.sleep(30);
  platform.recorder->clear();
  sut.subscribe("test", 30, 0.0F);
  EXPECT_EQ(GKClock::instance().elapsed(), 1030000);
  EXPECT_THAT(takeLines(platform),
              ElementsAre("order [\"US/Actuator/Value\", \"ClearAll\", [[68.0, 1030]]]"));
  sut.subscribe("other", 30, 0.0F);
  EXPECT_THAT(platform.recorder->ofKind(GKNotice::Kind::Order), IsEmpty());
}

TEST(GKSonar, TheLastSubscriberSwitchesTheEmittersOffAtOnce) {
  TestModules platform;
  GKSonar sut(platform.broker());
  sut.init();
  sut.subscribe("test", 30, 0.0F);
  platform.recorder->clear();
  sut.unsubscribe("test");
  EXPECT_EQ(GKClock::instance().elapsed(), 1000000);
  EXPECT_EQ(takeLines(platform).front(),
            "order [\"US/Actuator/Value\", \"ClearAll\", [[32.0, 1000]]]");
}

TEST(GKSonar, DetectsAlthoughTheSwitchOnWasRefused) {
  TestModules platform;
  GKSonar sut(platform.broker());
  sut.init();
  platform.recorder->clear();
  platform.faults->fail(GKOperation::DcmSet, "");
  sut.subscribe("test", 30, 0.0F);
  EXPECT_THAT(takeLines(platform), ElementsAre("error motion.sonar xActivateReception: "
                                               "GKSonarfDCM->set(DCMOrderValue) failed."));
  EXPECT_EQ(sut.getCurrentPeriod(), 30);
  sut.dataChanged(0.5F, 0.5F);
  EXPECT_THAT(sut.getFilteredValues(), ElementsAre(0.5F, 0.5F));
}

TEST(GKSonar, StopsAlthoughTheSwitchOffWasRefused) {
  TestModules platform;
  GKSonar sut(platform.broker());
  sut.init();
  sut.subscribe("test", 30, 0.0F);
  platform.recorder->clear();
  platform.faults->fail(GKOperation::DcmSet, "");
  sut.unsubscribe("test");
  EXPECT_EQ(takeLines(platform).front(),
            "error motion.sonar xDesactivateReception: GKSonarfDCM->set(DCMOrderValue) failed");
  sut.dataChanged(0.5F, 0.5F);
  EXPECT_THAT(sut.getFilteredValues(), ElementsAre(2.55F, 2.55F));
}

// Filter

TEST(GKSonar, IgnoresReadingsWhileNobodyIsSubscribed) {
  TestModules platform(TestPlatform::kMemoryOnly);
  GKSonar sut(platform.broker());
  sut.init();
  platform.recorder->clear();
  sut.dataChanged(0.5F, 0.5F);
  EXPECT_THAT(sut.getFilteredValues(), ElementsAre(2.55F, 2.55F));
  EXPECT_THAT(takeLines(platform), IsEmpty());
}

TEST(GKSonar, KeepsTheFilteredDistancesOverAPauseOfSubscription) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  sut->dataChanged(0.5F, 0.9F);
  sut->unsubscribe("test");
  sut->dataChanged(1.5F, 1.9F);
  EXPECT_THAT(sut->getFilteredValues(), ElementsAre(0.9F, 0.5F));
  sut->subscribe("test", 30, 0.0F);
  EXPECT_THAT(sut->getFilteredValues(), ElementsAre(0.9F, 0.5F));
}

TEST(GKSonar, TellsRemoteCallersTheRightDistanceFirst) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  sut->dataChanged(0.5F, 0.9F);
  EXPECT_EQ(textOf(sut->callMethod("_getFilteredValues", {})), "[0.9, 0.5]");
}

TEST(GKSonar, AReadingCountsWhenItMovesByMoreThanTheThreshold) {
  for (const bool isLeft : {true, false}) {
    TestModules platform(TestPlatform::kMemoryOnly);
    const auto sut = makeDetecting(platform);
    const auto read = [&](float moving) {
      sut->dataChanged(isLeft ? moving : 0.0F, isLeft ? 0.0F : moving);
      return sut->getFilteredValues()[isLeft ? 1 : 0];
    };
    EXPECT_EQ(read(0.0F), 0.0F);
    EXPECT_EQ(read(below(0.01F)), 0.0F);
    EXPECT_EQ(read(0.01F), 0.0F);
    EXPECT_EQ(read(above(0.01F)), above(0.01F));
  }
}

TEST(GKSonar, OneSideThatMovesBringsTheOtherUpToDate) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  sut->dataChanged(0.5F, 0.9F);
  sut->dataChanged(0.505F, 0.905F);
  EXPECT_THAT(sut->getFilteredValues(), ElementsAre(0.9F, 0.5F));
  sut->dataChanged(0.52F, 0.901F);
  EXPECT_THAT(sut->getFilteredValues(), ElementsAre(0.901F, 0.52F));
}

TEST(GKSonar, OnlyTheLatestReadingCounts) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  sut->dataChanged(0.3F, 0.3F);
  sut->dataChanged(1.5F, 1.9F);
  EXPECT_THAT(sut->getFilteredValues(), ElementsAre(1.9F, 1.5F));
}

TEST(GKSonar, RemoteCallersMayAskWhileTheLoopTicks) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  sut->dataChanged(0.5F, 0.5F);
  std::thread caller([&sut] {
    for (int i = 0; i < 1000; ++i) {
      EXPECT_THAT(sut->getFilteredValues(), testing::Each(testing::AnyOf(0.5F, 1.5F)));
    }
  });
  for (int i = 0; i < 1000; ++i) {
    const float distance = i % 2 == 0 ? 1.5F : 0.5F;
    sut->dataChanged(distance, distance);
  }
  caller.join();
}

// States

TEST(GKSonar, TellsOnWhichSideTheObstacleIs) {
  EXPECT_THAT(firstReading(0.5F, 0.9F), ElementsAre("event SonarRightNothingDetected 0.9",
                                                    "event SonarLateralLeftDetected 0.5"));
  EXPECT_THAT(firstReading(0.9F, 0.5F), ElementsAre("event SonarLeftNothingDetected 0.9",
                                                    "event SonarLateralRightDetected 0.5"));
  EXPECT_THAT(firstReading(0.5F, 0.45F),
              ElementsAre("data SonarMiddleDetected 0.45", "event SonarRightDetected 0.45"));
  EXPECT_THAT(firstReading(0.45F, 0.5F),
              ElementsAre("data SonarMiddleDetected 0.45", "event SonarLeftDetected 0.45"));
}

TEST(GKSonar, EqualDistancesAreOnTheLeft) {
  EXPECT_THAT(firstReading(0.6F, 0.6F),
              ElementsAre("data SonarMiddleDetected 0.6", "event SonarLeftDetected 0.6"));
}

TEST(GKSonar, ReportsTheFarSideEmptyEvenWhenItDetects) {
  EXPECT_THAT(firstReading(0.2F, 0.6F), ElementsAre("event SonarRightNothingDetected 0.6",
                                                    "event SonarLateralLeftDetected 0.2"));
}

TEST(GKSonar, TellsTheNearerDistanceWhenNothingIsThere) {
  EXPECT_THAT(firstReading(2.0F, 1.0F),
              ElementsAre("event SonarRightNothingDetected 1.0",
                          "event SonarLeftNothingDetected 2.0", "event SonarNothingDetected 1.0"));
  EXPECT_THAT(firstReading(1.0F, 2.0F),
              ElementsAre("event SonarRightNothingDetected 2.0",
                          "event SonarLeftNothingDetected 1.0", "event SonarNothingDetected 1.0"));
}

TEST(GKSonar, DetectsOnlyWhatIsNearerThanTheRange) {
  const auto nameOfLast = [](const std::vector<std::string>& lines) {
    return lines.back().substr(0, lines.back().rfind(' '));
  };
  for (const float far : {0.7F, above(0.7F)}) {
    EXPECT_EQ(nameOfLast(firstReading(far, 2.0F)), "event SonarNothingDetected");
    EXPECT_EQ(nameOfLast(firstReading(2.0F, far)), "event SonarNothingDetected");
  }
  EXPECT_EQ(nameOfLast(firstReading(below(0.7F), 2.0F)), "event SonarLateralLeftDetected");
  EXPECT_EQ(nameOfLast(firstReading(2.0F, below(0.7F))), "event SonarLateralRightDetected");
}

TEST(GKSonar, TwoDistancesCloserThanTheToleranceAreOneObstacle) {
  EXPECT_EQ(firstReading(below(0.08F), 0.0F).back(), "event SonarRightDetected 0.0");
  EXPECT_EQ(firstReading(0.08F, 0.0F).back(), "event SonarLateralRightDetected 0.0");
  EXPECT_EQ(firstReading(above(0.08F), 0.0F).back(), "event SonarLateralRightDetected 0.0");
  EXPECT_EQ(firstReading(0.0F, below(0.08F)).back(), "event SonarLeftDetected 0.0");
  EXPECT_EQ(firstReading(0.0F, 0.08F).back(), "event SonarLateralLeftDetected 0.0");
  EXPECT_EQ(firstReading(0.0F, above(0.08F)).back(), "event SonarLateralLeftDetected 0.0");
}

TEST(GKSonar, ADistanceThatIsNoNumberMovesNothingByItself) {
  EXPECT_THAT(firstReading(kNaN, kNaN), ElementsAre("event SonarRightNothingDetected 2.55",
                                                    "event SonarLeftNothingDetected 2.55",
                                                    "event SonarNothingDetected 2.55"));
}

TEST(GKSonar, ADistanceThatIsNoNumberComesInWithTheOtherSide) {
  EXPECT_THAT(firstReading(kNaN, 0.5F), ElementsAre("event SonarRightNothingDetected 0.5",
                                                    "event SonarLateralLeftDetected nan"));
  EXPECT_THAT(firstReading(0.5F, kNaN), ElementsAre("event SonarRightNothingDetected nan",
                                                    "event SonarLateralLeftDetected 0.5"));
}

// When events are raised

TEST(GKSonar, RepeatsEventsWhenTheSecondsHaveAdvancedByTwo) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  platform.sleep(900); // the counter of seconds moves at full seconds, whenever that was
  sut->dataChanged(0.6F, 0.6F);
  EXPECT_EQ(takeLines(platform).size(), 2U);

  sut->dataChanged(0.2F, 0.2F); // even a change of state has to wait
  platform.sleep(1099);
  sut->dataChanged(0.2F, 2.0F);
  EXPECT_THAT(takeLines(platform), IsEmpty());

  platform.sleep(1);
  sut->dataChanged(0.2F, 2.0F);
  EXPECT_THAT(takeLines(platform), ElementsAre("event SonarRightNothingDetected 2.0",
                                               "event SonarLateralLeftDetected 0.2"));
}

TEST(GKSonar, WithDcmTheStartCountsAsTheLastRaise) {
  TestModules platform;
  GKSonar sut(platform.broker());
  sut.init();
  sut.subscribe("test", 30, 0.0F);
  platform.recorder->clear();
  platform.sleep(999);
  sut.dataChanged(0.6F, 0.6F);
  EXPECT_THAT(takeLines(platform), IsEmpty());
  platform.sleep(1);
  sut.dataChanged(0.6F, 0.6F);
  EXPECT_EQ(takeLines(platform).size(), 2U);
}

TEST(GKSonar, AClockThatJumpedBackByTwoSecondsOpensTheGate) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  GKSonarPeer::setLastEventTime(*sut, TestPlatform::kEpoch + 1);
  sut->dataChanged(0.6F, 0.6F);
  EXPECT_THAT(takeLines(platform), IsEmpty());
  GKSonarPeer::setLastEventTime(*sut, TestPlatform::kEpoch + 2);
  sut->dataChanged(0.6F, 0.6F);
  EXPECT_EQ(takeLines(platform).size(), 2U);
}

TEST(GKSonar, TheDifferenceOfSecondsHas32Bits) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  constexpr std::int64_t kWrap = std::int64_t{1} << 32;
  for (const std::int64_t shift : {-1, 0, 1}) {
    GKSonarPeer::setLastEventTime(*sut, TestPlatform::kEpoch + kWrap + shift);
    sut->dataChanged(0.6F, 0.6F);
    EXPECT_THAT(takeLines(platform), IsEmpty()) << shift;
  }
  for (const std::int64_t shift : {-2, 2}) {
    GKSonarPeer::setLastEventTime(*sut, TestPlatform::kEpoch + kWrap + shift);
    sut->dataChanged(0.6F, 0.6F);
    EXPECT_EQ(takeLines(platform).size(), 2U) << shift;
  }
}

TEST(GKSonar, TheDifferenceOfSecondsNeverOverflows) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  GKSonarPeer::setLastEventTime(*sut, std::numeric_limits<std::int64_t>::min());
  sut->dataChanged(0.6F, 0.6F);
  EXPECT_EQ(takeLines(platform).size(), 2U);
}

TEST(GKSonar, InChangeOnlyModeRaisesOnAChangeOfState) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  GKSonarPeer::raiseOnChangeOnly(*sut);
  sut->dataChanged(2.0F, 2.0F);
  EXPECT_THAT(takeLines(platform), IsEmpty());
  sut->dataChanged(0.6F, 0.6F);
  EXPECT_EQ(takeLines(platform).size(), 2U);
  sut->dataChanged(0.5F, 0.5F);
  sut->dataChanged(0.5F, 0.5F);
  EXPECT_THAT(takeLines(platform), IsEmpty());
  sut->dataChanged(0.5F, 0.2F);
  EXPECT_EQ(takeLines(platform).size(), 2U);
}

TEST(GKSonar, ARefusedEventLeavesTheTickAndIsNotRaisedAgain) {
  TestModules platform(TestPlatform::kMemoryOnly);
  const auto sut = makeDetecting(platform);
  platform.faults->fail(GKOperation::RaiseEvent, "SonarLeftDetected");
  EXPECT_THROW(sut->dataChanged(0.6F, 0.6F), GKError);
  EXPECT_THAT(takeLines(platform), ElementsAre("data SonarMiddleDetected 0.6"));
  EXPECT_THAT(sut->getFilteredValues(), ElementsAre(0.6F, 0.6F));
  sut->dataChanged(0.6F, 0.6F);
  EXPECT_THAT(takeLines(platform), IsEmpty());
}

} // namespace GK::test
