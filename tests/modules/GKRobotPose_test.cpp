#include "gk/GKProxy.h"
#include "modules/robotpose/GKRobotPose.h"
#include "support/NoticeLines.h"
#include "support/TestModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace GK::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kAngleX = "Device/SubDeviceList/InertialSensor/AngleX/Sensor/Value";
constexpr const char* kAngleY = "Device/SubDeviceList/InertialSensor/AngleY/Sensor/Value";
constexpr const char* kIsStand = "Motion/IsStand";
constexpr const char* kLegs = "RobotConfig/Body/Device/Legs/Version";

/// The joints of both legs, which a crouching robot bends.
constexpr const char* kKnees[] = {"Device/SubDeviceList/LKneePitch/Position/Sensor/Value",
                                  "Device/SubDeviceList/RKneePitch/Position/Sensor/Value"};
constexpr const char* kAnkles[] = {"Device/SubDeviceList/LAnklePitch/Position/Sensor/Value",
                                   "Device/SubDeviceList/RAnklePitch/Position/Sensor/Value"};

constexpr const char* kNotConnectedLine =
    "error motion.sensors.robotpose xConnectToMemory: GKRobotPose Connection to GKMemory failed. "
    "Please check that DCM is running.";
constexpr const char* kNoEventLine =
    "error motion.sensors.robotpose GKRobotPose: GKRobotPoseCould not insert data in GKMemory. "
    "GKRobotPose Module will not create event.";

/// A platform with the feet's contacts, which another module publishes. Its robot seems to sit:
/// upright with stretched legs in the air.
class PosePlatform : public TestModules {
public:
  explicit PosePlatform(Services services = kAllServices) : TestModules(services) {
    set("leftFootContact", 0.0F);
    set("rightFootContact", 0.0F);
  }

  void sit() { xPose(0.0F, 0.0F, 0.0F); }
  void stand() { xPose(1.0F, 0.0F, 0.0F); }
  void crouch() { xPose(1.0F, 2.0F, -1.0F); }
  void lieOnTheBack() {
    sit();
    set(kAngleY, -1.5F);
  }

  /// ["robotPose", "robotPoseSince"].
  std::string outputs() const {
    GKValue values;
    values.arrayPush(value("robotPose"));
    values.arrayPush(value("robotPoseSince"));
    return textOf(values);
  }

private:
  void xPose(float isStand, float knee, float ankle) {
    set(kAngleY, 0.0F);
    set(kIsStand, isStand);
    for (const char* key : kKnees) {
      set(key, knee);
    }
    for (const char* key : kAnkles) {
      set(key, ankle);
    }
  }
};

boost::shared_ptr<GKRobotPose> make(TestPlatform& platform) {
  auto sut = boost::make_shared<GKRobotPose>(platform.broker());
  platform.recorder->clear();
  return sut;
}

void tick(GKRobotPose& sut, int times) {
  for (int i = 0; i < times; ++i) {
    sut.updateRobotPose();
  }
}

/// Ticks that announce a pose.
constexpr int kAnnounced = 26;

} // namespace

// Construction

TEST(GKRobotPose, DescribesItself) {
  PosePlatform platform;
  const auto sut = make(platform);
  EXPECT_EQ(sut->getName(), "GKRobotPose");
  EXPECT_EQ(sut->getModuleDescription(),
            "This module give the estimated Moku PoseDetects. \n.A MicroEvent is generated when "
            "the robot pose changed. A temporization of 500ms is apply before generated this "
            "MicroEvent.\nThe GKMemory Key is robotPoseChanged, its a string corresponding to the "
            "actual robot Pose.\nAlso some fast access Memory key are available : \n robotPose An "
            "integer in relation with the actual pose(use getPoseNames() to have a relation "
            "between int and string)\n robotPoseSince A float corresponding to the time in second "
            "since the actual Pose is active.\n");
}

TEST(GKRobotPose, DescribesItsMethods) {
  PosePlatform platform;
  const auto methods = make(platform)->getMethods();
  ASSERT_EQ(methods.size(), 2U);
  EXPECT_EQ(methods[0].name, "getPoseNames");
  EXPECT_EQ(methods[0].module, "GKRobotPose");
  EXPECT_EQ(methods[0].description, "Get the full list of pose possibly return by this module.\n");
  EXPECT_THAT(methods[0].params, IsEmpty());
  EXPECT_EQ(methods[0].result.name, "pPoseList");
  EXPECT_EQ(methods[0].result.description,
            "A GKValue array of string containing the possible Poses.");
  EXPECT_EQ(methods[1].name, "getActualPoseAndTime");
  EXPECT_EQ(methods[1].description,
            "Get the actual robot pose and the time since this pose was activate.");
  EXPECT_THAT(methods[1].params, IsEmpty());
  EXPECT_EQ(methods[1].result.name, "pRobotPoseAndTime");
  EXPECT_EQ(methods[1].result.description,
            "A GKValue array of size 2. With first a string of the robot pose and \nthen a float "
            "with the time in second since this pose is activated.");
}

TEST(GKRobotPose, AnnouncesThatItKnowsNothingYet) {
  PosePlatform platform;
  const GKRobotPose sut(platform.broker());
  EXPECT_THAT(takeLines(platform), ElementsAre("declare robotPoseChanged of GKRobotPose",
                                               "event robotPoseChanged \"Unknown\"",
                                               "resource Standing false", "resource Sitting false",
                                               "data robotPose 0.0", "data robotPoseSince 0.0"));
}

TEST(GKRobotPose, WithoutMemoryServiceKnowsNothing) {
  PosePlatform platform(TestPlatform::kNoServices);
  GKRobotPose sut(platform.broker());
  EXPECT_THAT(takeLines(platform),
              ElementsAre("error motion.sensors.robotpose GKRobotPose: GKRobotPoseNo GKMemory. "
                          "robotPose set to \"Unknown\".",
                          "error motion.sensors.robotpose GKRobotPose: GKRobotPoseNo resource "
                          "manager found"));
  platform.stand();
  tick(sut, kAnnounced);
  EXPECT_THAT(takeLines(platform), IsEmpty());
  EXPECT_EQ(textOf(sut.getActualPoseAndTime()), "[\"Unknown\", 0.0]");
}

TEST(GKRobotPose, WithoutResourceManagerStillAnnouncesPoses) {
  PosePlatform platform(TestPlatform::kMemoryOnly);
  GKRobotPose sut(platform.broker());
  EXPECT_THAT(takeLines(platform),
              ElementsAre("error motion.sensors.robotpose GKRobotPose: GKRobotPoseNo resource "
                          "manager found",
                          "declare robotPoseChanged of GKRobotPose",
                          "event robotPoseChanged \"Unknown\"", "data robotPose 0.0",
                          "data robotPoseSince 0.0"));
  platform.stand();
  tick(sut, kAnnounced);
  EXPECT_THAT(takeLines(platform), ElementsAre("event robotPoseChanged \"Stand\""));
}

TEST(GKRobotPose, WithoutLegsKnowsNothing) {
  PosePlatform platform;
  platform.set(kLegs, -1);
  GKRobotPose sut(platform.broker());
  EXPECT_THAT(takeLines(platform),
              ElementsAre("warning motion.sensors.robotpose GKRobotPose: GKRobotPoseNo legs. "
                          "robotPose is set to \"Unknown\".",
                          "declare robotPoseChanged of GKRobotPose",
                          "event robotPoseChanged \"Unknown\"", "resource Standing false",
                          "resource Sitting false", "data robotPose 0.0",
                          "data robotPoseSince 0.0"));
  platform.stand();
  tick(sut, kAnnounced);
  EXPECT_THAT(takeLines(platform), IsEmpty());
  EXPECT_EQ(platform.outputs(), "[0.0, 0.0]");
  EXPECT_EQ(textOf(sut.getActualPoseAndTime()), "[\"Unknown\", 0.0]");
}

TEST(GKRobotPose, AnUnreadableVersionOfTheLegsLeavesTheConstructor) {
  PosePlatform platform;
  platform.faults->fail(GKOperation::GetData, kLegs);
  EXPECT_THROW(GKRobotPose(platform.broker()), GKError);
  platform.set(kLegs, 1.0F); // of another type: refused
  EXPECT_THROW(GKRobotPose(platform.broker()), GKError);
}

TEST(GKRobotPose, ARefusedFirstEventDisablesEventsForGood) {
  for (const auto operation : {GKOperation::DeclareEvent, GKOperation::RaiseEvent}) {
    PosePlatform platform;
    platform.faults->fail(operation, "robotPoseChanged");
    GKRobotPose sut(platform.broker());
    auto lines = takeLines(platform);
    EXPECT_THAT(lines, testing::Contains(kNoEventLine));
    EXPECT_THAT(lines, testing::Not(testing::Contains("resource Standing false")));

    platform.stand();
    tick(sut, kAnnounced + 10);
    EXPECT_THAT(takeLines(platform), IsEmpty());
    EXPECT_EQ(platform.value("robotPose"), GKValue(1.0F));
    EXPECT_EQ(platform.value("robotPoseSince"), GKValue(36.0F * 0.02F));
  }
}

TEST(GKRobotPose, ARefusedInitialOutputLeavesTheConstructor) {
  for (const char* key : {"robotPose", "robotPoseSince"}) {
    PosePlatform platform;
    platform.faults->fail(GKOperation::InsertData, key);
    EXPECT_THROW(GKRobotPose(platform.broker()), GKError) << key;
  }
}

TEST(GKRobotPose, AMissingSensorIsLoggedAndReadsZero) {
  PosePlatform platform;
  platform.faults->fail(GKOperation::GetDataPtr, kIsStand);
  GKRobotPose sut(platform.broker());
  EXPECT_EQ(takeLines(platform).back(), kNotConnectedLine);

  platform.stand(); // is not seen: the robot seems to sit
  tick(sut, kAnnounced);
  EXPECT_THAT(takeLines(platform), ElementsAre("event robotPoseChanged \"Sit\"",
                                               "resource Standing false", "resource Sitting true"));
  EXPECT_EQ(platform.outputs(), "[0.0, 0.0]"); // outputs come after inputs: not connected either
}

TEST(GKRobotPose, WithoutAnySensorTheRobotSeemsToSit) {
  PosePlatform platform;
  platform.faults->fail(GKOperation::GetDataPtr, kAngleX);
  const auto sut = make(platform);
  platform.lieOnTheBack();
  sut->updateRobotPose();
  EXPECT_EQ(textOf(sut->getActualPoseAndTime()), "[\"Sit\", 0.02]");
}

// Ticks

TEST(GKRobotPose, PublishesThePoseAtOnce) {
  PosePlatform platform;
  const auto sut = make(platform);
  platform.stand();
  sut->updateRobotPose();
  EXPECT_EQ(platform.outputs(), "[1.0, 0.02]");
  tick(*sut, 4);
  EXPECT_EQ(platform.value("robotPoseSince"), GKValue(5.0F * 0.02F));
  platform.crouch();
  sut->updateRobotPose();
  EXPECT_EQ(platform.outputs(), "[3.0, 0.02]");
}

TEST(GKRobotPose, AnnouncesAPoseOnItsTwentySixthTickAndOnce) {
  PosePlatform platform;
  const auto sut = make(platform);
  platform.stand();
  tick(*sut, 25);
  EXPECT_THAT(takeLines(platform), IsEmpty());
  sut->updateRobotPose();
  EXPECT_THAT(takeLines(platform), ElementsAre("event robotPoseChanged \"Stand\"",
                                               "resource Sitting false", "resource Standing true"));
  tick(*sut, 100);
  EXPECT_THAT(takeLines(platform), IsEmpty());
}

TEST(GKRobotPose, APoseHeldTooShortlyIsNotAnnounced) {
  PosePlatform platform;
  const auto sut = make(platform);
  platform.stand();
  tick(*sut, 25);
  platform.sit();
  tick(*sut, 25);
  EXPECT_THAT(takeLines(platform), IsEmpty());
}

TEST(GKRobotPose, AFlickerBackToTheAnnouncedPoseIsOnlyPublished) {
  PosePlatform platform;
  const auto sut = make(platform);
  platform.stand();
  tick(*sut, 30);
  platform.recorder->clear();

  platform.sit();
  tick(*sut, 25);
  EXPECT_EQ(platform.outputs(), "[2.0, 0.5]");
  platform.stand();
  tick(*sut, 30);
  EXPECT_EQ(platform.value("robotPose"), GKValue(1.0F));
  EXPECT_EQ(platform.value("robotPoseSince"), GKValue(30.0F * 0.02F));
  EXPECT_THAT(takeLines(platform), IsEmpty());
}

TEST(GKRobotPose, TellsTheResourceManagerWhetherItSitsOrStands) {
  PosePlatform platform;
  const auto sut = make(platform);
  platform.sit();
  tick(*sut, kAnnounced);
  EXPECT_THAT(takeLines(platform), ElementsAre("event robotPoseChanged \"Sit\"",
                                               "resource Standing false", "resource Sitting true"));
  platform.crouch();
  tick(*sut, kAnnounced);
  EXPECT_THAT(takeLines(platform), ElementsAre("event robotPoseChanged \"Crouch\"",
                                               "resource Sitting false", "resource Standing true"));
  platform.lieOnTheBack();
  tick(*sut, kAnnounced);
  EXPECT_THAT(takeLines(platform),
              ElementsAre("event robotPoseChanged \"Back\"", "resource Standing false",
                          "resource Sitting false"));
}

TEST(GKRobotPose, ARefusedEventIsLoggedAndNotRaisedAgain) {
  PosePlatform platform;
  const auto sut = make(platform);
  platform.stand();
  platform.faults->fail(GKOperation::RaiseEvent, "robotPoseChanged");
  tick(*sut, kAnnounced + 10);
  EXPECT_THAT(takeLines(platform),
              ElementsAre("error motion.sensors.robotpose updateRobotPose: GKRobotPose Failed to "
                          "insert Data."));
}

TEST(GKRobotPose, ARefusedFirstResourceSkipsTheSecondAndGoesToStandardOutput) {
  PosePlatform platform;
  const auto sut = make(platform);
  platform.stand();
  platform.faults->fail(GKOperation::EnableStateResource, "");
  testing::internal::CaptureStdout();
  tick(*sut, kAnnounced);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Test::before: injected fault\n");
  EXPECT_THAT(takeLines(platform), ElementsAre("event robotPoseChanged \"Stand\""));
}

TEST(GKRobotPose, ARefusedSecondResourceGoesToStandardOutput) {
  PosePlatform platform;
  const auto sut = make(platform);
  platform.stand();
  platform.faults->fail(GKOperation::EnableStateResource, "", 1);
  testing::internal::CaptureStdout();
  tick(*sut, kAnnounced);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Test::before: injected fault\n");
  EXPECT_THAT(takeLines(platform),
              ElementsAre("event robotPoseChanged \"Stand\"", "resource Sitting false"));
}

TEST(GKRobotPose, ARefusedResourceAtTheStartLeavesEventsOn) {
  PosePlatform platform;
  platform.faults->fail(GKOperation::EnableStateResource, "");
  testing::internal::CaptureStdout();
  const auto sut = make(platform);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Test::before: injected fault\n");
  platform.stand();
  tick(*sut, kAnnounced);
  EXPECT_EQ(takeLines(platform).front(), "event robotPoseChanged \"Stand\"");
}

// Bound methods and end

TEST(GKRobotPose, ListsThePosesByCodeAndWarnsEveryTime) {
  PosePlatform platform;
  const auto sut = make(platform);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(textOf(sut->callMethod("getPoseNames", {})),
              "[\"Unknown\", \"Stand\", \"Sit\", \"Crouch\", \"Knee\", \"Frog\", \"Back\", "
              "\"Belly\", \"Left\", \"Right\", \"HeadBack\"]");
    EXPECT_THAT(takeLines(platform),
                ElementsAre("warning GKRobotPose getPoseNames: GKRobotPose is deprecated, please "
                            "useGKRobotPosture instead (getPostureFamilyList)."));
  }
}

TEST(GKRobotPose, TellsPoseAndTimeAndWarnsEveryTime) {
  PosePlatform platform;
  const auto sut = make(platform);
  platform.crouch();
  tick(*sut, 5);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(textOf(sut->callMethod("getActualPoseAndTime", {})), "[\"Crouch\", 0.099999994]");
    EXPECT_THAT(takeLines(platform),
                ElementsAre("warning GKRobotPose getActualPoseAndTime: GKRobotPose is deprecated, "
                            "please useGKRobotPosture instead (getPostureFamily)."));
  }
}

TEST(GKRobotPose, RemoteCallersMayAskWhileTheLoopTicks) {
  PosePlatform platform;
  const auto sut = make(platform);
  platform.stand();
  sut->updateRobotPose();
  std::thread caller([&sut] {
    for (int i = 0; i < 200; ++i) {
      const GKValue answer = sut->getActualPoseAndTime();
      EXPECT_THAT(answer[0].toString(), testing::AnyOf("Stand", "Crouch"));
      EXPECT_GT(answer[1].toFloat(), 0.0F);
    }
  });
  for (int i = 0; i < 200; ++i) {
    i % 2 == 0 ? platform.crouch() : platform.stand();
    sut->updateRobotPose();
  }
  caller.join();
}

TEST(GKRobotPose, ItsExitStopsFastAccessOfEverybody) {
  PosePlatform platform;
  const auto sut = make(platform);
  sut->exit();
  GKMemoryFastAccess access;
  access.ConnectToVariables(platform.broker(), {kAngleX}, false);
  std::vector<float> values = {1.0F};
  access.GetValues(values);
  EXPECT_THAT(values, IsEmpty());

  platform.stand(); // connected before: goes on
  sut->updateRobotPose();
  EXPECT_EQ(platform.outputs(), "[1.0, 0.02]");
}

} // namespace GK::test
