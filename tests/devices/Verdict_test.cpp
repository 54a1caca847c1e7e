#include "devices/meaning/Verdict.h"
#include "messages/keys/DeviceKeys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace gk::devices;
using namespace gk::messages;
using GK::GKMicros;
using GK::GKValue;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr GKMicros kSecond = 1'000'000;

/// A robot that stands, in a host where all is well.
class VerdictOf : public testing::Test {
protected:
  VerdictOf() {
    for (const DeviceKey& key : deviceKeys()) {
      store.set(key.name, key.start);
    }
    raise(0, "footContactChanged", GKValue(true));
    raise(0, "robotPoseChanged", GKValue("Stand"));
  }

  void raise(GKMicros time, const std::string& name, const GKValue& value) {
    store.set(name, value);
    GK::GKNotice notice;
    notice.time = time;
    notice.name = name;
    notice.value = value;
    sut.onNotice(notice);
  }

  std::vector<std::string> texts(GKMicros time) {
    std::vector<std::string> all;
    for (const Matter& matter : sut.look(time, &store, host)) {
      all.push_back(matter.text);
    }
    return all;
  }
  Matter only(GKMicros time) {
    const std::vector<Matter> all = sut.look(time, &store, host);
    EXPECT_EQ(all.size(), 1U);
    return all.empty() ? Matter() : all.front();
  }

  void setCharge(float charge) {
    store.set("Device/SubDeviceList/Battery/Charge/Sensor/Value", GKValue(charge));
  }

  GK::GKMemoryStore store;
  HostCondition host;
  Verdict sut;
};

TEST_F(VerdictOf, ARobotThatStandsIsEmpty) {
  EXPECT_THAT(texts(kSecond), IsEmpty());
  EXPECT_EQ(verdictJson(sut.matters()), "[]");
}

TEST_F(VerdictOf, AFallTellsSinceWhenAndWhatToDo) {
  raise(3 * kSecond, "robotPoseChanged", GKValue("Unknown"));
  raise(4 * kSecond, "robotPoseChanged", GKValue("Belly"));
  EXPECT_EQ(only(9 * kSecond),
            (Matter{4 * kSecond, Level::Error, "Fell onto its belly", "Stand it up", "pose"}));
  EXPECT_EQ(verdictJson(sut.matters()),
            R"([{"since":4,"level":2,"text":"Fell onto its belly","advice":"Stand it up",)"
            R"("subject":"pose"}])");
  raise(10 * kSecond, "robotPoseChanged", GKValue("Stand"));
  EXPECT_THAT(texts(10 * kSecond), IsEmpty());
}

TEST_F(VerdictOf, WhoTurnsOverWhileLyingDoesNotFallAgain) {
  raise(kSecond, "robotPoseChanged", GKValue("Back"));
  raise(2 * kSecond, "robotPoseChanged", GKValue("Left"));
  EXPECT_THAT(texts(2 * kSecond), ElementsAre("Lies on its left side"));
}

TEST_F(VerdictOf, APoseFromBeforeAnybodyListenedIsSeenInTheMemory) {
  store.set("robotPoseChanged", GKValue("Back"));
  EXPECT_EQ(only(2 * kSecond).text, "Lies on its back");
  EXPECT_EQ(only(5 * kSecond).since, 2 * kSecond);
}

TEST_F(VerdictOf, FeetOffTheFloorMatterOnlyToWhoStands) {
  raise(2 * kSecond, "footContactChanged", GKValue(false));
  EXPECT_EQ(only(3 * kSecond), (Matter{2 * kSecond, Level::Warning, "Off the floor",
                                       "Set it down before it moves", "feet"}));
  raise(4 * kSecond, "robotPoseChanged", GKValue("Sit"));
  EXPECT_THAT(texts(5 * kSecond), IsEmpty());
}

TEST_F(VerdictOf, TheHottestJointStandsForAllHotBoards) {
  store.set(boardErrorKey("HeadBoard"), GKValue(32));
  EXPECT_THAT(texts(kSecond), IsEmpty());
  store.set(boardErrorKey("HeadBoard"), GKValue(33));
  store.set(deviceKey("HeadYaw", "/Temperature/Sensor/Value"), GKValue(76.4F));
  EXPECT_THAT(texts(kSecond), ElementsAre("HeadYaw is hot: 76 degC"));
  EXPECT_EQ(sut.matters().front().level, Level::Warning);
  const MotorBoard& other = motorBoards()[1];
  store.set(boardErrorKey(other.name), GKValue(35));
  store.set(deviceKey(other.joints[0], "/Temperature/Sensor/Value"), GKValue(97.0F));
  EXPECT_THAT(texts(kSecond), ElementsAre(std::string(other.joints[0]) +
                                          " is hot: 97 degC, and 1 more motor board"));
  EXPECT_EQ(sut.matters().front().level, Level::Error);
  store.set(boardErrorKey("HeadBoard"), GKValue(36));
  store.set(boardErrorKey(other.name), GKValue(36));
  EXPECT_THAT(texts(kSecond), IsEmpty());
}

TEST_F(VerdictOf, TheBatteryIsLowAtItsLimitAndNotPluggedIn) {
  setCharge(0.21F);
  EXPECT_THAT(texts(kSecond), IsEmpty());
  setCharge(0.2F);
  EXPECT_THAT(texts(kSecond), ElementsAre("Battery at 20 %"));
  EXPECT_EQ(sut.matters().front().level, Level::Warning);
  // What trembles around the limit does not come and go.
  setCharge(0.21F);
  EXPECT_THAT(texts(kSecond), ElementsAre("Battery at 21 %"));
  setCharge(0.1F);
  EXPECT_EQ(only(kSecond).level, Level::Error);
  store.set("BatteryPowerPluggedChanged", GKValue(true));
  EXPECT_THAT(texts(kSecond), IsEmpty());
}

TEST_F(VerdictOf, ALoopThatTakesLongerThanItsLimitHangs) {
  host.loops = {{"GKSensors", 5 * kSecond}};
  EXPECT_THAT(texts(5 * kSecond + Verdict::kLongestSilence), IsEmpty());
  EXPECT_EQ(only(5 * kSecond + Verdict::kLongestSilence + 1).text, "GKSensors has stopped ticking");
  EXPECT_EQ(sut.matters().front().since, 5 * kSecond);
}

TEST_F(VerdictOf, KeysThatNobodyWritesAreStale) {
  host.deviceChange = kSecond;
  EXPECT_THAT(texts(kSecond + Verdict::kFreshness - 1), IsEmpty());
  EXPECT_THAT(texts(kSecond + Verdict::kFreshness), ElementsAre("No fresh values from the robot"));
}

TEST_F(VerdictOf, ARecordingTellsWhyItStandsStillAndWhatItLacks) {
  host.recordingTrouble = "cannot write a.mcap: No space left on device";
  host.lostBlocks = 2;
  host.lostMessages = 7;
  EXPECT_THAT(
      texts(kSecond),
      ElementsAre("The recording stands still: cannot write a.mcap: No space left on device",
                  "The recording lacks 2 blocks of the run and 7 messages"));
}

TEST_F(VerdictOf, AViewersLossIsForgottenAfterAWhile) {
  host.lostEvents = 3;
  EXPECT_THAT(texts(kSecond), ElementsAre("Viewers have lost 3 events"));
  EXPECT_THAT(texts(Verdict::kLossMemory), ElementsAre("Viewers have lost 3 events"));
  EXPECT_THAT(texts(kSecond + Verdict::kLossMemory), IsEmpty());
}

TEST_F(VerdictOf, TheWorstComesFirst) {
  raise(0, "footContactChanged", GKValue(false));
  setCharge(0.05F);
  raise(0, "robotPoseChanged", GKValue("Crouch"));
  host.loops = {{"GKSensors", 0}};
  EXPECT_THAT(texts(9 * kSecond),
              ElementsAre("GKSensors has stopped ticking", "Battery at 5 %", "Off the floor"));
}

TEST_F(VerdictOf, WhatModulesTellOfThemselvesMattersUnlessItIsFine) {
  host.modules = {{"GKMine", "queue", Level::Fine, "queue: 1 jobs"},
                  {"GKMine", "link", Level::Warning, "link: slow"}};
  const Matter matter = only(3 * kSecond);
  EXPECT_EQ(matter.text, "GKMine: link: slow");
  EXPECT_EQ(matter.level, Level::Warning);
  EXPECT_EQ(matter.subject, "GKMine");
  EXPECT_EQ(matter.since, 3 * kSecond);
}

TEST_F(VerdictOf, WhatAModuleTellsLastsHoweverItsWordsChange) {
  host.modules = {{"GKMine", "queue", Level::Warning, "queue: 900 jobs"}};
  EXPECT_EQ(only(3 * kSecond).since, 3 * kSecond);
  host.modules = {{"GKMine", "queue", Level::Error, "queue: 950 jobs"}};
  EXPECT_EQ(only(5 * kSecond).since, 3 * kSecond);
  host.modules = {{"GKMine", "link", Level::Error, "link: cut"}};
  EXPECT_EQ(only(7 * kSecond).since, 7 * kSecond);
}

} // namespace
