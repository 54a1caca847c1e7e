#include "simulation/RobotRun.h"
#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

// The simulated robot as users of the program meet it.

namespace {

using namespace gk::test;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

/// Runs a scenario of this text for ten seconds at most.
ProgramResult play(const std::string& text, std::vector<std::string> more = {}) {
  const TemporaryFolder folder;
  writeFile(folder.file("script.jsonl"), text);
  ProgramResult result = runRobot(folder.file("script.jsonl"), "10", more);
  // The folder's name differs each time.
  const std::size_t at = result.err.find(folder.file(""));
  if (at != std::string::npos) {
    result.err.erase(at, folder.file("").size());
  }
  return result;
}

TEST(RobotProgram, AScriptThatAsksForAnUnknownKeyIsMalformed) {
  for (const char* time : {"", "\"t\":1,"}) {
    const ProgramResult result =
        play("# ok\n{" + std::string(time) + "\"set\":{\"Simulation/Wind\":1.0}}\n");
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.err,
              "script.jsonl:2: key \"Simulation/Wind\": the simulated robot has no such key\n");
  }
}

TEST(RobotProgram, AScriptWithAWrongTypeIsMalformed) {
  const ProgramResult result = play("{\"t\":1,\"set\":{\"Simulation/Charger/Plugged\":1}}\n");
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.err,
            "script.jsonl:1: key \"Simulation/Charger/Plugged\": takes a bool, not 1\n");
}

TEST(RobotProgram, AScriptWithAValueOutOfRangeEndsTheRunAtItsLine) {
  const ProgramResult result =
      play("{\"t\":1,\"set\":{\"Motion/IsStand\":0.0,\"Simulation/Posture\":\"Dance\"}}\n");
  EXPECT_EQ(result.code, 2);
  EXPECT_THAT(result.err, testing::StartsWith(
                              "script.jsonl:1: Simulation/Posture: there is no posture \"Dance\""));
}

TEST(RobotProgram, BeforeLoadingAValueOutOfRangeGivesOneLineToo) {
  const ProgramResult result = play("{\"set\":{\"Simulation/Push/X\":100}}\n");
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.err, "gk: Simulation/Push/X takes -60.0 to 60.0 N, not 100.0\n");
}

TEST(RobotProgram, AClientIsToldWhatIsWrongAndTheKeyKeepsItsValue) {
  const ProgramResult result =
      play("{\"t\":1,\"call\":\"GKMemory.insertData\",\"args\":[\"Simulation/Wind\",1.0]}\n"
           "{\"t\":1,\"call\":\"GKMemory.insertData\",\"args\":[\"Simulation/Push/X\",\"much\"]}\n"
           "{\"t\":1,\"get\":[\"Simulation/Wind\",\"Simulation/Push/X\"]}\n",
           {"--only", "error,value"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.out,
            "{\"t\":1,\"kind\":\"error\",\"call\":\"GKMemory.insertData\",\"module\":\"GKMemory\","
            "\"method\":\"insertData\",\"description\":\"the simulated robot has no key "
            "Simulation/Wind\"}\n"
            "{\"t\":1,\"kind\":\"error\",\"call\":\"GKMemory.insertData\",\"module\":\"GKMemory\","
            "\"method\":\"insertData\",\"description\":\"Simulation/Push/X: takes a float, not "
            "\\\"much\\\"\"}\n"
            "{\"t\":1,\"kind\":\"value\",\"key\":\"Simulation/Wind\"}\n"
            "{\"t\":1,\"kind\":\"value\",\"key\":\"Simulation/Push/X\",\"value\":0.0}\n");
}

TEST(RobotProgram, ALineOfTheTimeOfATickIsSeenByThatTick) {
  const ProgramResult result =
      play("{\"t\":1,\"set\":{\"Simulation/Touch/Head/Touch/Front\":true}}\n", {"--only", "event"});
  EXPECT_THAT(result.out, HasSubstr("{\"t\":1,\"kind\":\"event\",\"name\":\"FrontTactilTouched\","
                                    "\"value\":1.0}"));
}

TEST(RobotProgram, WithoutTheTourTheRobotStandsStill) {
  const ProgramResult result = runGk({"run", "--no-tour", "--speed", "max", "--until", "30",
                                      "--out", "-", "--only", "event,micro"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("\"name\":\"robotPoseChanged\",\"value\":\"Stand\""));
  EXPECT_THAT(result.out, HasSubstr("\"name\":\"BodyStiffnessChanged\",\"value\":2"));
  EXPECT_THAT(result.out, Not(HasSubstr("FrontTactilTouched\",\"value\":1.0")));
}

TEST(RobotProgram, WithoutARobotTheKeysAreNeutral) {
  const ProgramResult result = runGk({"run", "--robot", "none", "--speed", "max", "--until", "2",
                                      "--out", "-", "--only", "event,micro"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("\"name\":\"robotPoseChanged\",\"value\":\"Sit\""));
  EXPECT_THAT(result.out, HasSubstr("\"name\":\"BodyStiffnessChanged\",\"value\":0"));
}

TEST(RobotProgram, ListsEachKeyItServes) {
  const ProgramResult robot = runGk({"run", "--robot", "sim", "--keys"});
  EXPECT_EQ(robot.code, 0);
  EXPECT_THAT(robot.out, testing::StartsWith("KEY "));
  EXPECT_THAT(robot.out, testing::ContainsRegex(
                             "\nSimulation/Hoist/Height +float +m +0.1 to 1 +0.45 +height"));
  EXPECT_THAT(robot.out, HasSubstr("\nDevice/SubDeviceList/US/Left/Sensor/Value "));
  const ProgramResult none = runGk({"run", "--robot", "none", "--keys"});
  EXPECT_THAT(none.out, Not(HasSubstr("Simulation/")));
  EXPECT_THAT(none.out, HasSubstr("\nDevice/SubDeviceList/US/Left/Sensor/Value "));
}

TEST(RobotProgram, AnUnknownRobotIsAWrongOption) {
  const ProgramResult result = runGk({"run", "--robot", "real"});
  EXPECT_EQ(result.code, 2);
  EXPECT_THAT(result.err, EndsWith("\n"));
  EXPECT_THAT(result.err, testing::StartsWith("gk: "));
}

} // namespace
