#include "simulation/RobotRun.h"

#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

// The tour that gk run plays when nothing else is asked for.

namespace {

using namespace gk::test;

const std::string kTour = GK_SOURCE_DIR "/examples/tour.jsonl";
const std::string kExpected = GK_SOURCE_DIR "/tests/simulation/tour.expected.txt";
constexpr const char* kRound = "62"; // s

ProgramResult tour(const std::string& kinds) {
  return runRobot(kTour, kRound, {"--only", kinds});
}

/// Values that depend on where exactly a limb hits the floor are no part of the story.
const std::set<std::string> kIncidental = {"BatteryChargeCellVoltageMinChanged",
                                           "BatteryChargeChanged", "LeftBumperPressed",
                                           "RightBumperPressed"};

/// What each event told, in order: "robotPoseChanged: Stand, Crouch, ...". Of a distance in metres
/// the first decimal counts, and of repeated reports one.
std::string story(const std::string& lines) {
  std::map<std::string, std::vector<std::string>> values;
  for (const boost::json::object& line : jsonLines(lines)) {
    const std::string name = textOf(line.at("name"));
    std::string value = boost::json::serialize(line.at("value"));
    if (name.starts_with("Sonar")) {
      value = std::to_string(numberOf(line.at("value"))).substr(0, 3);
    }
    std::vector<std::string>& told = values[name];
    if (!kIncidental.contains(name) && (told.empty() || told.back() != value)) {
      told.push_back(value);
    }
  }
  std::string text;
  for (const auto& [name, told] : values) {
    text += name + ":";
    for (const std::string& value : told) {
      text += " " + value;
    }
    text += "\n";
  }
  return text;
}

TEST(Tour, TellsItsStory) {
  const ProgramResult result = tour("event,micro");
  ASSERT_EQ(result.code, 0) << result.err;
  if (std::getenv("GK_UPDATE_GOLDEN") != nullptr) {
    writeFile(kExpected, story(result.out));
    return;
  }
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

TEST(Tour, EndsAsItBegan) {
  // Two rounds by the loop: the second one tells the same story about touches, poses and sonar.
  const ProgramResult result = runProgram(
      {GK_PROGRAM, "run", "--speed", "max", "--until", "130", "--out", "-", "--only", "event"});
  ASSERT_EQ(result.code, 0) << result.err;
  std::vector<std::string> first;
  std::vector<std::string> second;
  for (const boost::json::object& line : jsonLines(result.out)) {
    const double time = numberOf(line.at("t"));
    if (textOf(line.at("name")) == "robotPoseChanged" && time > 14) {
      std::vector<std::string>& round = time < 62 ? first : second;
      if (time < 62 || time > 76) {
        round.push_back(textOf(line.at("value")));
      }
    }
  }
  EXPECT_GT(first.size(), 15U);
  EXPECT_EQ(second, first);
}

} // namespace
