#include "simulation/RobotRun.h"
#include "support/Golden.h"

#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

// The tour that gk run plays when nothing else is asked for.

namespace {

using namespace gk::test;

const std::string kTour = GK_SOURCE_DIR "/examples/tour.jsonl";
const std::string kExpected = GK_SOURCE_DIR "/tests/simulation/tour.expected.txt";
constexpr const char* kRound = "63.2"; // s

ProgramResult tour(const std::string& kinds) {
  return runRobot(kTour, kRound, {"--only", kinds});
}

/// Told by how a limb hits the floor, and by how the battery is drawn from: no part of the story.
const std::set<std::string> kIncidental = {"BatteryChargeCellVoltageMinChanged",
                                           "LeftBumperPressed", "RightBumperPressed"};

/// Obstacles are told until the first posture, when the floor comes into sight.
constexpr double kObstaclesEnd = 13.5; // s

/// What each event told, in order, each value once until it changes: "robotPoseChanged: "Unknown"
/// "Stand" ...". Of the distances only the kinds of scenes count.
std::string story(const std::string& lines) {
  std::map<std::string, std::vector<std::string>> told;
  const auto tell = [&told](const std::string& about, const std::string& what) {
    std::vector<std::string>& values = told[about];
    if (values.empty() || values.back() != what) {
      values.push_back(what);
    }
  };
  for (const boost::json::object& line : jsonLines(lines)) {
    const std::string name = textOf(line.at("name"));
    if (!name.starts_with("Sonar")) {
      if (!kIncidental.contains(name)) {
        tell(name, boost::json::serialize(line.at("value")));
      }
    } else if (!name.ends_with("LeftNothingDetected") && !name.ends_with("RightNothingDetected") &&
               numberOf(line.at("t")) < kObstaclesEnd) {
      tell("Sonar", name);
    }
  }
  std::string text;
  for (const auto& [about, values] : told) {
    text += about + ":";
    for (const std::string& value : values) {
      text += " " + value;
    }
    text += "\n";
  }
  return text;
}

TEST(Tour, TellsItsStory) {
  const ProgramResult result = tour("event,micro");
  ASSERT_EQ(result.code, 0) << result.err;
  updateGolden(story(result.out), kExpected);
  EXPECT_EQ(story(result.out), readFile(kExpected));
}

TEST(Tour, IsTheSameEachTime) {
  const ProgramResult first = tour("event,micro,data,order,resource,log");
  ASSERT_EQ(first.code, 0) << first.err;
  EXPECT_EQ(tour("event,micro,data,order,resource,log").out, first.out);
}

TEST(Tour, RaisesEveryEventAfterTheStart) {
  std::set<std::string> missing;
  std::set<std::string> written;
  const ProgramResult result = tour("declare,event,micro,data");
  for (const boost::json::object& line : jsonLines(result.out)) {
    const std::string kind = textOf(line.at("kind"));
    if (kind == "declare") {
      missing.insert(textOf(line.at("event")));
    } else if (kind == "data") {
      written.insert(textOf(line.at("key")));
    }
  }
  // Raised without a declaration.
  missing.insert({"BodyStiffnessChanged", "footContactChanged", "BatteryChargeChanged"});
  // Told once at the start, and told as data.
  missing.erase("BatteryLevelChanged");
  missing.erase("SonarMiddleDetected");
  EXPECT_TRUE(written.contains("SonarMiddleDetected"));
  for (const boost::json::object& line : jsonLines(result.out)) {
    const std::string kind = textOf(line.at("kind"));
    if ((kind == "event" || kind == "micro") && numberOf(line.at("t")) > 0) {
      missing.erase(textOf(line.at("name")));
    }
  }
  EXPECT_THAT(missing, testing::IsEmpty());
}

TEST(Tour, TheNextRoundShowsTheSamePostures) {
  const ProgramResult result = runProgram(
      {GK_PROGRAM, "run", "--speed", "max", "--until", "126", "--out", "-", "--only", "event"});
  ASSERT_EQ(result.code, 0) << result.err;
  constexpr double round = 63.22;
  std::vector<std::string> poses[2];
  for (const boost::json::object& line : jsonLines(result.out)) {
    const double time = numberOf(line.at("t"));
    const bool isSecond = time > round;
    if (textOf(line.at("name")) == "robotPoseChanged" &&
        time - (isSecond ? round : 0) > kObstaclesEnd) {
      poses[isSecond ? 1 : 0].push_back(textOf(line.at("value")));
    }
  }
  EXPECT_GT(poses[0].size(), 15U);
  EXPECT_EQ(poses[1], poses[0]);
}

} // namespace
