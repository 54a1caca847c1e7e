#include "support/LoadedModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string_view>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace GK {
namespace {

using GKSensorsTest = test::LoadedModules;

constexpr const char* kPeriodWarning =
    "3 motion.sensors xUpdateParameters: GKSensors the period of GKSensors extractor can't be less "
    "than 20 ms";

TEST_F(GKSensorsTest, DeclaresItsEventsInOrderAndNotTheStiffnessEvent) {
  load();
  EXPECT_THAT(platform.memory().getExtractorEvent("GKSensors"),
              ElementsAre("HotJoinDetected", "RightBumperPressed", "LeftBumperPressed",
                          "ChestButtonPressed", "FrontTactilTouched", "MiddleTactilTouched",
                          "RearTactilTouched", "HandRightBackTouched", "HandRightLeftTouched",
                          "HandRightRightTouched", "HandLeftBackTouched", "HandLeftLeftTouched",
                          "HandLeftRightTouched"));
}

TEST_F(GKSensorsTest, InitPublishesBumpersAsIntAndUnknownStiffness) {
  load();
  EXPECT_EQ(platform.value("RightBumperPressed"), GKValue(0));
  EXPECT_EQ(platform.value("LeftBumperPressed"), GKValue(0));
  EXPECT_THAT(raised("BodyStiffnessChanged"), ElementsAre(GKValue(-1)));
  EXPECT_THAT(platform.recorder->ofKind(GKNotice::Kind::MicroEvent), Not(IsEmpty()));
  EXPECT_THAT(raised("RightBumperPressed"), IsEmpty());
}

TEST_F(GKSensorsTest, IsItsOwnFirstSubscriber) {
  load();
  EXPECT_EQ(sensors()->getSubscribersInfo(),
            GKValue(GKValue::Array{GKValue(GKValue::Array{"sensors", 20, 0.0f})}));
}

TEST_F(GKSensorsTest, DescribesItselfAndBindsRun) {
  load();
  EXPECT_EQ(sensors()->getModuleDescription(),
            "Deals with bumpers and chest button. \n Activate the events : \"RightBumperPressed\", "
            "\"LeftBumperPressed\", \"ChestButtonPressed\".");
  const GKMethodDescription run = sensors()->getMethods().back();
  EXPECT_EQ(run.name, "run");
  EXPECT_EQ(run.module, "GKSensors");
  EXPECT_EQ(run.description, "Monitors sensors.");
  EXPECT_THAT(run.params, IsEmpty());
}

TEST_F(GKSensorsTest, FailedDeclarationEndsLoadingAndCallsExit) {
  platform.faults->fail(GKOperation::DeclareEvent, "RearTactilTouched");
  EXPECT_THROW(_createModule(platform.broker()), GKError);
  platform.sleep(100);
  EXPECT_THAT(platform.recorder->ticks(), IsEmpty());
}

TEST_F(GKSensorsTest, TicksEveryTwentyMilliseconds) {
  load();
  platform.sleep(70);
  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(0, 20000, 40000, 60000));
}

TEST_F(GKSensorsTest, PeriodBelowTwentyBecomesTwentyWithAWarning) {
  load();
  sensors()->updatePeriod("sensors", 19);
  EXPECT_THAT(platform.recorder->logLines(), Contains(kPeriodWarning));
  platform.sleep(50);
  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(0, 20000, 40000));
}

TEST_F(GKSensorsTest, PeriodOfTwentyIsTakenSilently) {
  load();
  sensors()->updatePeriod("sensors", 20);
  EXPECT_THAT(platform.recorder->logLines(), Not(Contains(kPeriodWarning)));
}

TEST_F(GKSensorsTest, LongerPeriodStretchesTheSleepBetweenTicks) {
  load();
  sensors()->updatePeriod("sensors", 500);
  platform.sleep(1100);
  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(0, 500000, 1000000));
}

TEST_F(GKSensorsTest, FirstSubscribersPeriodBelowTwentyIsWarnedAboutToo) {
  loadAndTick();
  sensors()->unsubscribe("sensors");
  platform.sleep(100);
  platform.recorder->clear();
  sensors()->subscribe("client", 1, 0.0f);
  EXPECT_THAT(platform.recorder->logLines(), ElementsAre(kPeriodWarning));
}

TEST_F(GKSensorsTest, LoopEndsWhenTheLastSubscriberLeaves) {
  loadAndTick();
  sensors()->unsubscribe("sensors");
  platform.sleep(200);
  EXPECT_THAT(platform.recorder->ticks(), IsEmpty());
}

TEST_F(GKSensorsTest, RestartedLoopBindsEverythingAgain) {
  loadAndTick();
  sensors()->unsubscribe("sensors");
  platform.sleep(90);
  sensors()->subscribe("client", 20, 0.0f);
  platform.sleep(50);
  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(100000, 120000, 140000));
  for (const char* key : {kEventKeys[0], "Device/SubDeviceList/HeadYaw/Hardness/Actuator/Max",
                          "Device/DeviceList/HeadBoard/Error"}) {
    EXPECT_EQ(platform.faults->uses(GKOperation::GetDataPtr, key), 2) << key;
  }
}

TEST_F(GKSensorsTest, RestartPublishesNothingAgain) {
  loadAndTick();
  sensors()->unsubscribe("sensors");
  platform.sleep(90);
  sensors()->subscribe("client", 20, 0.0f);
  platform.sleep(50);
  EXPECT_THAT(raised("FrontTactilTouched"), IsEmpty());
  EXPECT_THAT(raised("LeftBumperPressed"), IsEmpty());
  EXPECT_THAT(raised("BodyStiffnessChanged"), IsEmpty());
}

TEST_F(GKSensorsTest, StartBeforeTheOldLoopHasLeftMakesNoSecondLoop) {
  loadAndTick();
  sensors()->unsubscribe("sensors");
  sensors()->subscribe("client", 20, 0.0f);
  platform.sleep(60);
  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(20000, 40000, 60000));
  EXPECT_EQ(platform.faults->uses(GKOperation::GetDataPtr, kEventKeys[0]), 1);
}

TEST_F(GKSensorsTest, SecondRunLooksTheSiblingsUpAndReturns) {
  loadAndTick();
  const GKMicros before = GKClock::instance().elapsed();
  platform.broker()->getProxy("GKSensors", 0)->callVoid("run");
  EXPECT_EQ(GKClock::instance().elapsed(), before);
  EXPECT_EQ(platform.faults->uses(GKOperation::GetProxy, "GKBattery"), 2);
  EXPECT_EQ(platform.faults->uses(GKOperation::GetDataPtr, "Device/DeviceList/HeadBoard/Error"), 1);
}

TEST_F(GKSensorsTest, RunWithoutDetectionLooksTheSiblingsUpAndReturns) {
  loadAndTick();
  sensors()->exit();
  platform.sleep(100);
  const GKMicros before = GKClock::instance().elapsed();
  platform.broker()->getProxy("GKSensors", 0)->callVoid("run");
  EXPECT_EQ(GKClock::instance().elapsed(), before);
  EXPECT_EQ(platform.faults->uses(GKOperation::GetProxy, "GKSonar"), 2);
  EXPECT_EQ(platform.faults->uses(GKOperation::GetDataPtr, "Device/DeviceList/HeadBoard/Error"), 1);
}

TEST_F(GKSensorsTest, AfterExitNoTickFollowsAndANewLoopMayStart) {
  loadAndTick();
  sensors()->exit();
  platform.sleep(100);
  EXPECT_THAT(platform.recorder->ticks(), IsEmpty());
  sensors()->unsubscribe("sensors");
  sensors()->subscribe("client", 20, 0.0f);
  platform.sleep(10);
  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(110000));
}

TEST_F(GKSensorsTest, MissingSiblingEndsTheLoopBeforeItStarts) {
  platform.faults->fail(GKOperation::GetProxy, "GKBattery");
  load();
  platform.sleep(100);
  EXPECT_THAT(platform.recorder->ticks(), IsEmpty());
  EXPECT_THAT(platform.recorder->logLines(),
              Contains(testing::StartsWith("2 platform.proxy postCall: GKSensors.run: ")));
  // Nothing is marked as running: the next call starts the loop.
  platform.broker()->getProxy("GKSensors", 0)->postCall("run");
  platform.sleep(10);
  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(100000));
}

TEST_F(GKSensorsTest, MissingBoardKeepsEveryLaterLoopFromStarting) {
  platform.faults->fail(GKOperation::GetDataPtr, "Device/DeviceList/RightHipBoard/Error");
  load();
  platform.sleep(100);
  EXPECT_THAT(platform.recorder->logLines(),
              Contains(testing::StartsWith("2 platform.proxy postCall: GKSensors.run: ")));
  platform.broker()->getProxy("GKSensors", 0)->postCall("run");
  platform.sleep(100);
  EXPECT_THAT(platform.recorder->ticks(), IsEmpty());
}

TEST_F(GKSensorsTest, FailedConnectionIsLoggedAndTheMissingValuesReadAsZero) {
  const char* front = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value";
  platform.set("Device/SubDeviceList/ChestBoard/Button/Sensor/Value", 1.0f);
  platform.set(front, 1.0f);
  platform.faults->fail(GKOperation::GetDataPtr, front);
  load();
  tick(2);
  EXPECT_THAT(platform.recorder->logLines(),
              Contains("2 motion.sensors run: GKSensors Connection to GKMemory failed. Please "
                       "check that DCM is running"));
  EXPECT_THAT(raised("ChestButtonPressed"), ElementsAre(GKValue(1.0f)));
  EXPECT_THAT(raised("FrontTactilTouched"), ElementsAre(GKValue(0.0f)));
  EXPECT_THAT(raised("HandLeftRightTouched"), ElementsAre(GKValue(0.0f)));
}

TEST_F(GKSensorsTest, FailedTickIsLoggedAndTheNextOneGoesOn) {
  platform.faults->fail(GKOperation::RaiseEvent, "FrontTactilTouched");
  load();
  platform.sleep(10);
  EXPECT_THAT(platform.recorder->logLines(),
              Contains("2 motion.sensors run: GKSensors Connection to GKMemory failed."));
  EXPECT_THAT(raised("ChestButtonPressed"), SizeIs(1));
  EXPECT_THAT(raised("MiddleTactilTouched"), IsEmpty());
  tick();
  // The failed change itself counts as published.
  EXPECT_THAT(raised("FrontTactilTouched"), IsEmpty());
  EXPECT_THAT(raised("MiddleTactilTouched"), ElementsAre(GKValue(0.0f)));
  platform.set("Device/SubDeviceList/Head/Touch/Front/Sensor/Value", 1.0f);
  tick();
  EXPECT_THAT(raised("FrontTactilTouched"), ElementsAre(GKValue(1.0f)));
}

TEST_F(GKSensorsTest, SonarGetsLeftBeforeRight) {
  load();
  platform.broker()->getProxy("GKSonar", 0)->callVoid("subscribe", std::string("client"));
  platform.set("Device/SubDeviceList/US/Left/Sensor/Value", 0.5f);
  platform.set("Device/SubDeviceList/US/Right/Sensor/Value", 0.6f);
  tick(2);
  // Right comes first in this answer.
  EXPECT_EQ(
      platform.broker()->getProxy("GKSonar", 0)->call<std::vector<float>>("_getFilteredValues"),
      (std::vector<float>{0.6f, 0.5f}));
}

TEST_F(GKSensorsTest, PoseSeesTheFootContactOfTheSameTick) {
  load();
  platform.set("leftFootContact", -1.0f);
  platform.sleep(10);
  EXPECT_EQ(platform.value("leftFootContact"), GKValue(0.0f));
  EXPECT_TRUE(platform.value("robotPose").isValid());
}

/// Makes the tick that raises "FrontTactilTouched" take its time.
class SlowRaise : public GKOperationHook {
public:
  static constexpr unsigned int kDuration = 7; // ms

  void before(GKOperation operation, std::string_view key) override {
    if (operation == GKOperation::RaiseEvent && key == "FrontTactilTouched") {
      zu::os::msleep(kDuration);
    }
  }
};

/// Stands 2 ms after the beginning of a tick that takes 7 ms.
struct GKSensorsInATick : GKSensorsTest {
  GKSensorsInATick() {
    loadAndTick();
    GKOperationHook::install(std::make_shared<SlowRaise>());
    platform.set("Device/SubDeviceList/Head/Touch/Front/Sensor/Value", 1.0F);
    platform.sleep(12);
  }

  static constexpr GKMicros kTicksEnd = 27000;
};

TEST_F(GKSensorsInATick, ExitReturnsWhenTheTickHasEnded) {
  ASSERT_LT(GKClock::instance().elapsed(), kTicksEnd);
  sensors()->exit();
  EXPECT_EQ(GKClock::instance().elapsed(), kTicksEnd);
}

TEST_F(GKSensorsInATick, SiblingsAreNotReplacedUnderTheTick) {
  ASSERT_LT(GKClock::instance().elapsed(), kTicksEnd);
  platform.broker()->getProxy("GKSensors", 0)->callVoid("run");
  EXPECT_EQ(GKClock::instance().elapsed(), kTicksEnd);
}

} // namespace
} // namespace GK
