#include "support/LoadedModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace GK {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

struct GKSensorsMonitorTest : test::LoadedModules {
  void setStiffness(const std::string& joint, float value, float max = 1.0f) {
    const std::string prefix = "Device/SubDeviceList/" + joint + "/Hardness/Actuator/";
    platform.set(prefix + "Max", max);
    platform.set(prefix + "Value", value);
  }

  void setAllStiffness(float value, float max = 1.0f) {
    for (const char* joint : kStiffnessJoints) {
      setStiffness(joint, value, max);
    }
  }

  /// The body's state on a first tick with all joints at `value` of `max`.
  GKValue firstState(float value, float max = 1.0f) {
    setAllStiffness(value, max);
    load();
    platform.sleep(10);
    return raised("BodyStiffnessChanged").back();
  }

  void setError(const std::string& board, int code) {
    platform.set("Device/DeviceList/" + board + "/Error", code);
  }

  void setTemperature(const std::string& joint, const GKValue& value) {
    platform.set("Device/SubDeviceList/" + joint + "/Temperature/Sensor/Value", value);
  }

  /// `board` reports `code` for the next `ticks` ticks of `period` ms, then nothing any more.
  void heat(const std::string& board, int code, unsigned int ticks, unsigned int period = 20) {
    setError(board, code);
    platform.sleep(ticks * period);
    setError(board, 0);
  }

  /// Sleeps until `milliseconds` after the start.
  void sleepUntil(unsigned int milliseconds) {
    platform.sleep(milliseconds - static_cast<unsigned int>(GKClock::instance().elapsed() / 1000));
  }

  /// Ends of the first intervals at 20 ms: 1001 ticks each, the first tick being at 0.
  static constexpr unsigned int kFirstEnd = 20000;
  static constexpr unsigned int kSecondEnd = 40020;
  static constexpr unsigned int kThirdEnd = 60040;

  std::vector<std::string> heatLines() const {
    std::vector<std::string> lines;
    for (const std::string& line : platform.recorder->logLines()) {
      if (line.find("motion.sensors xExtractTemperature") != std::string::npos) {
        lines.push_back(line);
      }
    }
    return lines;
  }
};

TEST_F(GKSensorsMonitorTest, AllJointsWithoutStiffnessAreOff) {
  EXPECT_EQ(firstState(0.0f), 0);
}

TEST_F(GKSensorsMonitorTest, AllJointsAtTheirMaximumAreStiff) {
  EXPECT_EQ(firstState(1.0f), 2);
}

TEST_F(GKSensorsMonitorTest, NinetyFivePercentIsNotStiffYet) {
  EXPECT_EQ(firstState(0.95f), 1);
}

TEST_F(GKSensorsMonitorTest, JustAboveNinetyFivePercentIsStiff) {
  EXPECT_EQ(firstState(std::nextafter(0.95f, 1.0f)), 2);
}

TEST_F(GKSensorsMonitorTest, FivePercentIsNotOffAnyMore) {
  EXPECT_EQ(firstState(0.05f), 1);
}

TEST_F(GKSensorsMonitorTest, JustBelowFivePercentIsOff) {
  EXPECT_EQ(firstState(std::nextafter(0.05f, 0.0f)), 0);
}

TEST_F(GKSensorsMonitorTest, SharesAreOfTheJointsOwnMaximum) {
  EXPECT_EQ(firstState(0.5f, 0.5f), 2);
}

TEST_F(GKSensorsMonitorTest, NothingOfNothingIsIntermediate) {
  EXPECT_EQ(firstState(0.0f, 0.0f), 1);
}

TEST_F(GKSensorsMonitorTest, NotANumberIsIntermediate) {
  EXPECT_EQ(firstState(kNaN), 1);
}

TEST_F(GKSensorsMonitorTest, UnknownMaximumIsIntermediate) {
  EXPECT_EQ(firstState(1.0f, kNaN), 1);
}

TEST_F(GKSensorsMonitorTest, OneIntermediateJointMakesTheBodyIntermediate) {
  setStiffness("RWristYaw", 0.5f);
  load();
  platform.sleep(10);
  EXPECT_THAT(raised("BodyStiffnessChanged"), ElementsAre(GKValue(-1), GKValue(1)));
}

TEST_F(GKSensorsMonitorTest, OffAndStiffJointsTogetherAreMixed) {
  setStiffness("RWristYaw", 1.0f);
  load();
  platform.sleep(10);
  EXPECT_THAT(raised("BodyStiffnessChanged"), ElementsAre(GKValue(-1), GKValue(1)));
}

TEST_F(GKSensorsMonitorTest, EachChangeOfTheBodyIsToldOnce) {
  loadAndTick();
  setAllStiffness(1.0f);
  tick(3);
  setStiffness("HeadYaw", 0.5f);
  tick(3);
  setAllStiffness(0.0f);
  tick(3);
  EXPECT_THAT(raised("BodyStiffnessChanged"), ElementsAre(GKValue(2), GKValue(1), GKValue(0)));
  for (const GKNotice& notice : platform.recorder->ofKind(GKNotice::Kind::Event)) {
    EXPECT_NE(notice.name, "BodyStiffnessChanged") << "only ever a micro-event";
  }
}

TEST_F(GKSensorsMonitorTest, FailedStiffnessEventIsRaisedOnTheNextTick) {
  loadAndTick();
  platform.faults->fail(GKOperation::RaiseMicroEvent, "BodyStiffnessChanged");
  setAllStiffness(1.0f);
  tick();
  EXPECT_THAT(raised("BodyStiffnessChanged"), IsEmpty());
  tick();
  EXPECT_THAT(raised("BodyStiffnessChanged"), ElementsAre(GKValue(2)));
}

TEST_F(GKSensorsMonitorTest, JointWithoutItsMaximumIsLeftOut) {
  setAllStiffness(1.0f);
  setStiffness("HeadPitch", 0.0f);
  platform.faults->fail(GKOperation::GetDataPtr,
                        "Device/SubDeviceList/HeadPitch/Hardness/Actuator/Max");
  load();
  platform.sleep(10);
  EXPECT_THAT(raised("BodyStiffnessChanged"), ElementsAre(GKValue(-1), GKValue(2)));
}

TEST_F(GKSensorsMonitorTest, JointWithoutItsValueIsLeftOutAndTheOthersStayInOrder) {
  // With different maxima a shift of one list against the other would show.
  for (std::size_t i = 0; i < kStiffnessJoints.size(); ++i) {
    const float max = 1.0f + static_cast<float>(i);
    setStiffness(kStiffnessJoints[i], max, max);
  }
  setStiffness("LHand", 0.0f);
  platform.faults->fail(GKOperation::GetDataPtr,
                        "Device/SubDeviceList/LHand/Hardness/Actuator/Value");
  load();
  platform.sleep(10);
  EXPECT_THAT(raised("BodyStiffnessChanged"), ElementsAre(GKValue(-1), GKValue(2)));
}

TEST_F(GKSensorsMonitorTest, WithoutAnyJointTheStateStaysUnknown) {
  for (const char* joint : kStiffnessJoints) {
    platform.faults->fail(GKOperation::GetDataPtr, hardnessPrefix(joint) + "Max");
  }
  load();
  platform.sleep(100);
  EXPECT_THAT(raised("BodyStiffnessChanged"), ElementsAre(GKValue(-1)));
}

TEST_F(GKSensorsMonitorTest, HundredAndOneHotTicksRaiseTheAlarmAtTheEndOfTheInterval) {
  loadAndTick();
  setTemperature("LElbowRoll", 71.9f);
  setTemperature("LElbowYaw", -3.7f);
  heat("LeftArmBoard", 34, 101);
  sleepUntil(kFirstEnd - 10);
  EXPECT_THAT(raised("HotJoinDetected"), IsEmpty());
  tick();
  EXPECT_THAT(raised("HotJoinDetected"),
              ElementsAre(GKValue("Device/DeviceList/LeftArmBoard/Error")));
  EXPECT_THAT(heatLines(),
              ElementsAre("4 motion.sensors xExtractTemperature: GKSensorsMotor board "
                          "Device/DeviceList/LeftArmBoard/Error return several high temperature 34",
                          "4 motion.sensors xExtractTemperature: GKSensorsTemperature of : "
                          "Device/SubDeviceList/LElbowRoll/Temperature/Sensor/Value is: 71",
                          "4 motion.sensors xExtractTemperature: GKSensorsTemperature of : "
                          "Device/SubDeviceList/LElbowYaw/Temperature/Sensor/Value is: -3"));
}

TEST_F(GKSensorsMonitorTest, HundredHotTicksAreTolerated) {
  loadAndTick();
  heat("LeftArmBoard", 34, 100);
  sleepUntil(kFirstEnd + 10);
  EXPECT_THAT(raised("HotJoinDetected"), IsEmpty());
  EXPECT_THAT(heatLines(), IsEmpty());
}

TEST_F(GKSensorsMonitorTest, HotTicksOfTwoIntervalsDoNotAddUp) {
  loadAndTick();
  // 60 of these ticks lie before the end of the first interval.
  sleepUntil(kFirstEnd - 60 * 20 + 10);
  heat("LeftArmBoard", 34, 120);
  sleepUntil(kSecondEnd + 10);
  EXPECT_THAT(raised("HotJoinDetected"), IsEmpty());
}

TEST_F(GKSensorsMonitorTest, OnlyThreeErrorCodesMeanHeat) {
  loadAndTick();
  unsigned int end = kFirstEnd;
  for (const int code : {32, 36, -1, 33, 34, 35}) {
    platform.recorder->clear();
    setError("HeadBoard", code);
    sleepUntil(end + 10);
    const bool isHeat = code >= 33 && code <= 35;
    EXPECT_EQ(raised("HotJoinDetected").size(), isHeat ? 1u : 0u) << code;
    // An interval without heat makes the next alarm possible.
    setError("HeadBoard", 0);
    sleepUntil(end + kFirstEnd + 20 + 10);
    end += 2 * (kFirstEnd + 20);
  }
}

TEST_F(GKSensorsMonitorTest, LastHotBoardInTheOrderOfKeysIsNamed) {
  loadAndTick();
  setError("RightArmBoard", 33);
  setError("LeftThighBoard", 35);
  setError("HeadBoard", 34);
  sleepUntil(kFirstEnd + 10);
  EXPECT_THAT(raised("HotJoinDetected"),
              ElementsAre(GKValue("Device/DeviceList/RightArmBoard/Error")));
  // This board has one joint only.
  EXPECT_THAT(heatLines(),
              ElementsAre("4 motion.sensors xExtractTemperature: GKSensorsMotor board "
                          "Device/DeviceList/RightArmBoard/Error return several high temperature "
                          "33",
                          "4 motion.sensors xExtractTemperature: GKSensorsTemperature of : "
                          "Device/SubDeviceList/RElbowRoll/Temperature/Sensor/Value is: 30"));
}

TEST_F(GKSensorsMonitorTest, BoardOfOneJointLogsOneTemperature) {
  loadAndTick();
  setError("RightHipBoard", 35);
  sleepUntil(kFirstEnd + 10);
  EXPECT_THAT(heatLines(),
              ElementsAre("4 motion.sensors xExtractTemperature: GKSensorsMotor board "
                          "Device/DeviceList/RightHipBoard/Error return several high temperature "
                          "35",
                          "4 motion.sensors xExtractTemperature: GKSensorsTemperature of : "
                          "Device/SubDeviceList/RHipRoll/Temperature/Sensor/Value is: 30"));
  EXPECT_THAT(platform.recorder->logLines(),
              Not(Contains("2 motion.sensors run: GKSensors Connection to GKMemory failed.")));
}

TEST_F(GKSensorsMonitorTest, TemperaturesThatNoIntHoldsAreLoggedAsTheSmallestInt) {
  loadAndTick();
  setTemperature("HeadPitch", kNaN);
  setTemperature("HeadYaw", 2147483648.0f);
  setError("HeadBoard", 33);
  sleepUntil(kFirstEnd + 10);
  EXPECT_THAT(heatLines(),
              Contains("4 motion.sensors xExtractTemperature: GKSensorsTemperature of : "
                       "Device/SubDeviceList/HeadPitch/Temperature/Sensor/Value is: -2147483648"));
  EXPECT_THAT(heatLines(),
              Contains("4 motion.sensors xExtractTemperature: GKSensorsTemperature of : "
                       "Device/SubDeviceList/HeadYaw/Temperature/Sensor/Value is: -2147483648"));
}

TEST_F(GKSensorsMonitorTest, LastingHeatIsReportedOnce) {
  loadAndTick();
  setError("HeadBoard", 33);
  sleepUntil(kThirdEnd + 10);
  EXPECT_THAT(raised("HotJoinDetected"), testing::SizeIs(1));
}

TEST_F(GKSensorsMonitorTest, HeatEndsWithAnIntervalWithoutAnyHotTick) {
  loadAndTick();
  setError("HeadBoard", 33);
  sleepUntil(kFirstEnd + 10);
  platform.recorder->clear();
  // A single hot tick keeps the alarm up for another interval.
  heat("HeadBoard", 33, 1);
  sleepUntil(kSecondEnd + 10);
  EXPECT_THAT(heatLines(), IsEmpty());
  sleepUntil(kThirdEnd + 10);
  EXPECT_THAT(heatLines(),
              ElementsAre("4 motion.sensors xExtractTemperature: GKSensorsNo more heat for 20s"));
  EXPECT_THAT(raised("HotJoinDetected"), IsEmpty());
  setError("HeadBoard", 33);
  sleepUntil(kThirdEnd + kFirstEnd + 20 + 10);
  EXPECT_THAT(raised("HotJoinDetected"), testing::SizeIs(1));
}

TEST_F(GKSensorsMonitorTest, FailedAlarmIsNotRaisedAgain) {
  loadAndTick();
  platform.faults->fail(GKOperation::RaiseEvent, "HotJoinDetected");
  setError("HeadBoard", 33);
  sleepUntil(kFirstEnd + 10);
  EXPECT_THAT(platform.recorder->logLines(),
              Contains("2 motion.sensors run: GKSensors Connection to GKMemory failed."));
  sleepUntil(kThirdEnd + 10);
  EXPECT_THAT(raised("HotJoinDetected"), IsEmpty());
  EXPECT_THAT(heatLines(), IsEmpty());
}

TEST_F(GKSensorsMonitorTest, FailedAlarmLeavesTheIntervalToTheNextTick) {
  loadAndTick();
  platform.faults->fail(GKOperation::RaiseEvent, "HotJoinDetected");
  heat("HeadBoard", 33, 101);
  sleepUntil(kFirstEnd + 10);
  // The interval ended one tick later than planned, so the next one does too.
  sleepUntil(kSecondEnd + 10);
  EXPECT_THAT(heatLines(), IsEmpty());
  tick();
  EXPECT_THAT(heatLines(),
              ElementsAre("4 motion.sensors xExtractTemperature: GKSensorsNo more heat for 20s"));
}

TEST_F(GKSensorsMonitorTest, EachAlarmLooksTheMemoryServiceUpOnce) {
  loadAndTick();
  const int before = platform.faults->uses(GKOperation::GetProxy, "GKMemory");
  setError("HeadBoard", 33);
  sleepUntil(kThirdEnd + 10);
  EXPECT_EQ(platform.faults->uses(GKOperation::GetProxy, "GKMemory"), before + 1);
}

TEST_F(GKSensorsMonitorTest, FailedTemperatureLeavesTheAlarmRaised) {
  loadAndTick();
  platform.faults->fail(GKOperation::GetData,
                        "Device/SubDeviceList/HeadYaw/Temperature/Sensor/Value");
  setError("HeadBoard", 33);
  sleepUntil(kThirdEnd + 10);
  EXPECT_THAT(raised("HotJoinDetected"), testing::SizeIs(1));
  EXPECT_THAT(heatLines(), testing::SizeIs(2)); // board and first joint
}

struct Interval {
  int period;
  unsigned int endTick;
};

struct GKSensorsIntervalTest : GKSensorsMonitorTest, testing::WithParamInterface<Interval> {};

TEST_P(GKSensorsIntervalTest, IntervalIsTwentySecondsInTicksRoundedDown) {
  load();
  sensors()->updatePeriod("sensors", GetParam().period);
  setError("HeadBoard", 33);
  const auto period = static_cast<unsigned int>(GetParam().period);
  // The first tick is at 0, so tick number n is at (n - 1) periods.
  sleepUntil((GetParam().endTick - 1) * period - 10);
  EXPECT_THAT(raised("HotJoinDetected"), IsEmpty());
  platform.sleep(20);
  EXPECT_THAT(raised("HotJoinDetected"), testing::SizeIs(1));
}

// 20000 / period ticks do not complete the interval, one more does.
INSTANTIATE_TEST_SUITE_P(Periods, GKSensorsIntervalTest,
                         testing::Values(Interval{20, 1001}, Interval{30, 667}, Interval{50, 401}),
                         [](const auto& test) { return std::to_string(test.param.period) + "ms"; });

} // namespace
} // namespace GK
