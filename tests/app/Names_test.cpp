#include "support/Gk.h"
#include "support/RunningHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

// Names that are not there: of commands, options, values, modules, keys and events.

namespace {

using gk::test::kData;
using gk::test::kTouch;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::runGk;
using gk::test::RunningHost;
using gk::test::TemporaryFolder;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string kFeet = kData + "feet_stand.csv";

struct Slip {
  std::vector<std::string> arguments;
  std::string complaint;
};

class GkSlip : public testing::TestWithParam<Slip> {};

TEST_P(GkSlip, IsRefusedWithTheNearestNames) {
  const ProgramResult result = runGk(GetParam().arguments);
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.err, "gk: " + GetParam().complaint + "\n");
  EXPECT_EQ(result.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    OfACommandLine, GkSlip,
    testing::Values(
        Slip{{"rum"}, "gk has no command rum; did you mean run?"},
        Slip{{"help", "reply"}, "gk has no command reply; did you mean replay?"},
        Slip{{"help", "run", "fast"}, "gk run has no command fast"},
        Slip{{"recording", "inf", "a.mcap"}, "gk recording has no command inf; did you mean info?"},
        Slip{{"-v"}, "gk has no option -v; did you mean --version?"},
        Slip{{"replay", "--ony", "event", kFeet},
             "gk replay has no option --ony; did you mean --only or --out?"},
        Slip{{"run", "-sead", "3"}, "gk run has no option -sead; did you mean --seed or --speed?"},
        Slip{{"run", "--sead=3"}, "gk run has no option --sead; did you mean --seed or --speed?"},
        Slip{{"recording", "cat", "--topc", "/pose", "a.mcap"},
             "gk recording cat has no option --topc; did you mean --topic?"},
        Slip{{"call", "GKBattery.getBatteryCharge", "--jsn"},
             "gk call has no option --jsn; did you mean --json?"},
        Slip{{"modules", "all"}, "gk modules has no use for all"},
        Slip{{"replay"}, "FILE is required; gk help replay tells more"},
        Slip{{"replay", "--without", "GKMemry", kFeet},
             "--without: GKMemry is none of GKMemory, DCM, GKResourceManager; did you mean "
             "GKMemory?"}));

TEST(GkNames, CommandsThatAreNotCompleteShowTheirHelp) {
  const ProgramResult alone = runGk({});
  EXPECT_EQ(alone.code, 0);
  EXPECT_EQ(alone.out, runGk({"--help"}).out);
  EXPECT_THAT(alone.out, AllOf(HasSubstr("\nRun:\n"), HasSubstr("\nAsk a running host:\n"),
                               HasSubstr("\nRecordings:\n"), HasSubstr("GK_TOKEN_FILE")));
  EXPECT_EQ(runGk({"recording"}).out, runGk({"help", "recording"}).out);
}

TEST(GkNames, HelpOfACommandOfACommandIsItsOwn) {
  const ProgramResult help = runGk({"help", "recording", "convert"});
  EXPECT_EQ(help.code, 0);
  EXPECT_THAT(help.out, AllOf(HasSubstr("gk recording convert"), HasSubstr("--compression")));
}

TEST(GkNames, TheOptionsOfARunStandInGroups) {
  EXPECT_THAT(runGk({"help", "run"}).out,
              AllOf(HasSubstr("\nOutput:\n"), HasSubstr("\nRecording:\n"), HasSubstr("\nRobot:\n"),
                    HasSubstr("\nTime:\n"), HasSubstr("\nClients:\n")));
}

TEST(GkNames, AnExtractorThatIsNotThereEndsTheRunBeforeItsOutputAppears) {
  const TemporaryFolder folder;
  const std::string out = folder.file("out.jsonl");
  const ProgramResult result = runGk({"replay", "--subscribe", "Sonar", "--out", out, kFeet});
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.err, "gk: --subscribe: there is no module Sonar; did you mean GKSonar?\n");
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_EQ(runGk({"run", "--robot", "none", "--no-listen", "--subscribe", "Sonar"}).err,
            result.err);
}

TEST(GkNames, AKeyThatNeverAppearedIsSaidAtTheEnd) {
  const ProgramResult result = runGk({"replay", "--sample", "robotPos,footContact", kFeet});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(
      result.err,
      AllOf(StartsWith("gk: --sample: there was never a key robotPos; did you mean robotPose"),
            Not(HasSubstr("key footContact"))));
}

TEST(GkNames, AnEventThatWasNeverRaisedLeavesNoRecordingAndSaysSo) {
  const TemporaryFolder folder;
  const std::vector<std::string> run = {"run", "--speed", "max", "--until", "1", "--robot", "none"};
  std::vector<std::string> misspelt = run;
  misspelt.insert(misspelt.end(),
                  {"--record", folder.file("run.mcap"), "--record-on", "FrontTactilTouchd"});
  EXPECT_THAT(
      runGk(misspelt).err,
      HasSubstr("gk: --record-on: nothing was recorded, there was no event "
                "FrontTactilTouchd; did you mean FrontTactilTouched or RearTactilTouched?\n"));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(GkNames, WordsStandForKeysByOneRule) {
  const RunningHost host;
  host.gk({"set", "Mine/Key", "1"});
  host.gk({"set", "Mine/Key2", "2"});
  // Its own name, although it is a part of another.
  EXPECT_EQ(host.gk({"get", "Mine/Key", "--json"}).out, "{\"Mine/Key\":1}\n");
  EXPECT_EQ(host.gk({"get", "Mine/Ke", "--json"}).out, "{\"Mine/Key\":1,\"Mine/Key2\":2}\n");
  const std::string part = host.gk({"get", "Head/Touch", "--json"}).out;
  EXPECT_THAT(part, AllOf(HasSubstr(kTouch), HasSubstr("Head/Touch/Rear")));
  EXPECT_EQ(host.gk({"get", "*/Head/Touch/*", "--json"}).out, part);
  EXPECT_EQ(host.gk({"keys", "Head/Touch", "--json"}).out, part);
  EXPECT_EQ(host.gk({"get", kTouch, "Head/Touch/Front", "--json"}).out,
            host.gk({"get", kTouch, "--json"}).out);
  EXPECT_THAT(host.gk({"watch", "Head/Touch", "--count", "1"}).out,
              AllOf(HasSubstr(kTouch), HasSubstr("Head/Touch/Rear")));
}

TEST(GkNames, AWordThatMeansNoKeyIsRefusedAndAPatternLikewise) {
  const RunningHost host;
  for (const char* command : {"get", "keys", "watch"}) {
    const ProgramResult word = host.gk({command, "xyzzy"});
    EXPECT_EQ(word.code, 2) << command;
    EXPECT_EQ(word.err, "gk: there is no key xyzzy\n") << command;
    EXPECT_EQ(word.out, "") << command;
    const ProgramResult pattern = host.gk({command, "xyzzy*"});
    EXPECT_EQ(pattern.code, 2) << command;
    EXPECT_EQ(pattern.err, "gk: no key matches xyzzy*\n") << command;
  }
  EXPECT_EQ(host.gk({"keys", "xyzzy", "--json"}).out, "{}\n");
}

TEST(GkNames, AnEventThatNobodyHasDeclaredIsWaitedForWithTheNearest) {
  const RunningHost host;
  Program events(
      {GK_PROGRAM, "events", "frontTactilTouch", "--count", "1", "--host", host.address()});
  events.runUntil([&events] { return events.errSoFar().ends_with("\n"); });
  EXPECT_EQ(events.errSoFar(), "gk: waiting: so far there is no event frontTactilTouch; did you "
                               "mean FrontTactilTouched?\n");
  while (!events.hasEnded()) {
    host.gk({"call", "GKMemory.raiseEvent", "frontTactilTouch", "1"});
  }
  EXPECT_EQ(events.wait().code, 0);
}

TEST(GkNames, EventsAndKeysAreDescribedAsModulesAre) {
  const RunningHost host;
  const ProgramResult sonar = host.gk({"describe", "Device/SubDeviceList/US/Left/Sensor/Value"});
  EXPECT_EQ(sonar.code, 0) << sonar.err;
  EXPECT_THAT(sonar.out,
              AllOf(HasSubstr("/Value, a key\n  meaning  "), HasSubstr("\n  unit     m\n"),
                    HasSubstr("\n  type     float\n"), EndsWith("\n  now      2.55\n")));
  const ProgramResult event = host.gk({"describe", "SonarLeftDetected"});
  EXPECT_EQ(event.code, 0) << event.err;
  EXPECT_THAT(event.out, StartsWith("SonarLeftDetected, an event of GKSonar\n"
                                    "  meaning  distance of an obstacle ahead, rather to the left\n"
                                    "  unit     m\n"
                                    "  raised   not yet\n"));
  EXPECT_THAT(host.gk({"describe", "Motion/IsStand", "--json"}).out,
              StartsWith(R"({"key":{"key":"Motion/IsStand","type":"float","value":0.0)"));
  EXPECT_THAT(host.gk({"describe", "SonarLeftDetectd"}).err,
              StartsWith("gk: there is no module, event or key SonarLeftDetectd; did you mean "
                         "SonarLeftDetected"));
}

TEST(GkNames, EveryEventOfOurModulesHasAMeaning) {
  const RunningHost host;
  std::istringstream names(host.gk({"names", "events"}).out);
  int count = 0;
  for (std::string name; std::getline(names, name); ++count) {
    EXPECT_THAT(host.gk({"describe", name}).out, HasSubstr("\n  meaning  ")) << name;
  }
  EXPECT_GT(count, 25);
}

TEST(GkNames, AKeyThatIsMadeIsToldWithTheNearest) {
  const RunningHost host;
  const ProgramResult made = host.gk({"set", "Motion/IsStnd", "1"});
  EXPECT_EQ(made.code, 0);
  EXPECT_EQ(made.err, "gk: Motion/IsStnd is a new key; did you mean Motion/IsStand?\n");
  EXPECT_EQ(host.gk({"set", "Motion/IsStnd", "0"}).err, "");
}

TEST(GkNames, AValueThatDoesNotFitIsToldWithItsParameterOrKey) {
  const RunningHost host;
  EXPECT_EQ(host.gk({"call", "GKSonar.subscribe", "me", "soon", "0.5"}).err,
            "gk: period: takes a whole number of 32 bits, not soon\n");
  EXPECT_THAT(host.gk({"set", kTouch, "much"}).err, StartsWith("gk: " + kTouch + ": "));
}

TEST(GkNames, BoolsAreWrittenAsPeopleDo) {
  const RunningHost host({"--no-tour"});
  const std::string key = "Simulation/Hoist/Hold";
  EXPECT_EQ(host.gk({"set", key, "on", "--json"}).out, "{\"" + key + "\":true}\n");
  EXPECT_EQ(host.gk({"set", key, "no", "--json"}).out, "{\"" + key + "\":false}\n");
  EXPECT_EQ(host.gk({"set", key, "maybe"}).err,
            "gk: " + key + ": takes true or false, on or off, not maybe\n");
  // A key of anybody's becomes what it is given.
  EXPECT_EQ(host.gk({"set", "Mine/Flag", "true", "--json"}).out, "{\"Mine/Flag\":true}\n");
  EXPECT_EQ(host.gk({"set", "Mine/Flag", "off", "--json"}).out, "{\"Mine/Flag\":false}\n");
  EXPECT_EQ(host.gk({"set", "Mine/Flag", "2.5", "--json"}).out, "{\"Mine/Flag\":2.5}\n");
  // Where no bool is wanted these are texts.
  EXPECT_EQ(host.gk({"set", "Mine/Word", "on", "--json"}).out, "{\"Mine/Word\":\"on\"}\n");
}

TEST(GkSet, AFileOfKeysIsWrittenBackAsItWasRead) {
  const RunningHost host;
  const TemporaryFolder folder;
  host.gk({"set", "Mine/A", "1"});
  host.gk({"set", "Mine/B", "[1,2.5,\"x\"]"});
  const std::string before = host.gk({"get", "Mine/*", "--json"}).out;
  gk::test::writeFile(folder.file("keys.json"), before);
  host.gk({"set", "Mine/A", "7"});
  const ProgramResult written = host.gk({"set", "--file", folder.file("keys.json")});
  EXPECT_EQ(written.code, 0) << written.err;
  EXPECT_EQ(host.gk({"get", "Mine/*", "--json"}).out, before);
}

TEST(GkSet, AFileThatIsNoneOfKeysIsRefused) {
  const TemporaryFolder folder;
  gk::test::writeFile(folder.file("list.json"), "[1]");
  const ProgramResult list = runGk({"set", "--file", folder.file("list.json")});
  EXPECT_EQ(list.code, 2);
  EXPECT_THAT(list.err, HasSubstr("list.json: is no object of keys and values"));
  const ProgramResult missing = runGk({"set", "--file", folder.file("none.json")});
  EXPECT_EQ(missing.code, 2);
  EXPECT_THAT(missing.err, EndsWith("none.json: cannot be read\n"));
  EXPECT_EQ(runGk({"set", "Mine/A"}).code, 2);
  EXPECT_EQ(runGk({"set", "Mine/A", "1", "--file", folder.file("list.json")}).code, 2);
}

} // namespace
