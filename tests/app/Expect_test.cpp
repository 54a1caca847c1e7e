#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

// What files expect of their runs, as `gk replay` and `gk run` judge it.

namespace {

using gk::test::kTouch;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runGk;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// The head is touched at 0.5 s and let go of at 0.98 s.
const std::string kTouched = R"({"t":0.5,"set":{")" + kTouch + R"(":1.0}}
{"t":0.98,"set":{")" + kTouch +
                             R"(":0.0}}
{"t":2,"get":["robotPose"]}
)";

class Expect : public testing::Test {
protected:
  /// The text of a run's standard error without its sum.
  static std::string complaints(const ProgramResult& result) {
    std::string text = result.err;
    while (text.ends_with('\n')) {
      text.pop_back();
    }
    text.erase(text.find_last_of('\n') + 1);
    return text;
  }

  ProgramResult replay(const std::string& name, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"replay", "-q"});
    options.push_back(file(name));
    return runGk(options);
  }

  void write(const std::string& name, const std::string& text) const {
    writeFile(file(name), text);
  }
  std::string file(const std::string& name) const { return fFolder.file(name); }

private:
  const TemporaryFolder fFolder;
};

TEST_F(Expect, WhatHoldsIsNotToldOf) {
  write("a.jsonl", kTouched + R"({"t":2,"expect":{"key":"FrontTactilTouched","value":0}}
{"t":2,"expect":{"key":"robotPose","value":2}}
{"expect":{"event":"FrontTactilTouched","count":3}}
)");
  const ProgramResult result = replay("a.jsonl");
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(complaints(result), "");
}

TEST_F(Expect, EachThatDoesNotHoldIsALineInTheOrderOfTheFile) {
  write("a.jsonl", R"({"expect":{"event":"FrontTactilTouched","count":4}}
{"t":0.5,"set":{")" + kTouch +
                       R"(":1.0}}
{"t":0.6,"never":{"event":"FrontTactilTouched","for":0.4}}
{"t":0.98,"set":{")" + kTouch +
                       R"(":0.0}}
{"t":1,"call":"GKBattery.getBatteryCharge","as":"charge"}
{"t":1.01,"expect":{"key":"FrontTactilTouched","value":0.75}}
{"t":1.5,"expect":{"event":"FrontTactilTouched","value":1.0}}
{"t":1.99,"expect":{"event":"FrontTactilTouched","value":1.0}}
{"expect":{"call":"charge","value":57}}
{"t":2,"get":["robotPose"]}
)");
  const ProgramResult result = replay("a.jsonl");
  const std::string a = file("a.jsonl") + ":";
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(complaints(result),
            a + "1: expected 4 of FrontTactilTouched, but 3\n" + a +
                "3: expected no FrontTactilTouched from 0.600 to 1.000 s, but FrontTactilTouched "
                "0.0 at 0.980 s\n" +
                a + "6: expected FrontTactilTouched 0.75 at 1.010 s, but it was 0.0\n" + a +
                "7: expected FrontTactilTouched 1.0 within 0.1 s of 1.500, but FrontTactilTouched "
                "1.0 at 0.500 s\n" +
                a +
                "8: expected FrontTactilTouched 1.0 within 0.1 s of 1.990, but the run ended at "
                "2.000 s\n" +
                a + "9: expected call charge to return 57, but it returned 100\n");
}

TEST_F(Expect, TheRunItselfIsTheSameAndItsOutputIsWritten) {
  const std::string expectations = R"({"expect":{"event":"Nobody","count":1}}
{"t":0.1,"expect":{"key":"robotPose","value":77,"for":0.5}}
{"t":0.2,"never":{"event":"FrontTactilTouched"}}
)";
  write("bare.jsonl", kTouched);
  write("full.jsonl", expectations + kTouched);
  write("beside.jsonl", kTouched);
  write("beside.expect.jsonl", expectations);
  ASSERT_EQ(replay("bare.jsonl", {"--out", file("bare.out")}).code, 0);
  for (const char* name : {"full", "beside"}) {
    const std::string out = file(std::string(name) + ".out");
    EXPECT_EQ(replay(std::string(name) + ".jsonl", {"--out", out}).code, 3);
    EXPECT_EQ(readFile(out), readFile(file("bare.out"))) << name;
  }
}

TEST_F(Expect, ARecordingOfTheRunIsTheSameToo) {
  write("bare.jsonl", kTouched);
  write("full.jsonl", kTouched + R"({"t":2,"expect":{"key":"robotPose","value":77,"for":0.5}}
)");
  for (const char* name : {"bare", "full"}) {
    const std::string base = file(name);
    runGk({"run", "-q", "--speed", "max", "--until", "3", "--record", base + ".mcap",
           base + ".jsonl"});
    ASSERT_EQ(runGk({"replay", "--out", base + ".out", base + ".mcap"}).code, 0);
  }
  EXPECT_EQ(readFile(file("bare.out")), readFile(file("full.out")));
}

TEST_F(Expect, MalformedOnesAreBadInputBeforeAnythingRuns) {
  write("a.jsonl", kTouched + R"({"t":3,"expect":{"event":"X","count":1}}
)");
  const ProgramResult result = replay("a.jsonl", {"--out", file("out")});
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.err, file("a.jsonl") + ":4: \"expect\" of a count takes no \"t\": it is about "
                                          "the whole run\n");
  EXPECT_EQ(readFile(file("out")), "");
}

TEST_F(Expect, ACompanionIsReadForEveryKindOfInputUnlessItIsLeftOut) {
  write("walk.csv", "time," + kTouch + "\n0,0\n0.5,1\n1,1\n");
  write("walk.expect.jsonl", R"({"t":0.5,"expect":{"event":"FrontTactilTouched","value":0.5}}
)");
  const ProgramResult result = replay("walk.csv");
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(complaints(result), file("walk.expect.jsonl") +
                                    ":1: expected FrontTactilTouched 0.5 within 0.1 s of 0.500, "
                                    "but FrontTactilTouched 1.0 at 0.500 s\n");
  EXPECT_EQ(replay("walk.csv", {"--no-expect"}).code, 0);

  ASSERT_EQ(runGk({"run", "-q", "--speed", "max", "--no-expect", "--until", "1", "--record",
                   file("walk.mcap"), file("walk.csv")})
                .code,
            0);
  EXPECT_EQ(replay("walk.mcap").code, 3);
}

TEST_F(Expect, AnEndMakesTheRunGoOn) {
  write("a.jsonl", R"({"t":0.1,"expect":{"key":"robotPose","value":2,"for":0.5}}
)");
  EXPECT_THAT(replay("a.jsonl").err, HasSubstr("but the run ended at 0.000 s"));
  write("a.jsonl", R"({"t":0.6,"expect":{"key":"robotPose","value":2,"for":0.3}}
{"t":1,"end":true}
)");
  const ProgramResult result = replay("a.jsonl");
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, StartsWith("1.000 s, 51 ticks"));
}

TEST_F(Expect, AnEndBesideAnInputDoesSoAsWellButNotForARecordedRun) {
  write("a.csv", "time," + kTouch + "\n0,0\n");
  write("a.expect.jsonl", R"({"t":1,"end":true}
)");
  EXPECT_THAT(replay("a.csv").err, StartsWith("1.000 s, 51 ticks"));
  ASSERT_EQ(runGk({"run", "-q", "--speed", "max", "--until", "0.5", "--record", file("a.mcap"),
                   file("a.csv")})
                .code,
            0);
  const ProgramResult result = replay("a.mcap");
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.err, "gk: a recorded run ends where it did, and " + file("a.expect.jsonl") +
                            " has an \"end\"; --as-input plays what came in as any other file\n");
}

TEST_F(Expect, WhatLiesBesideAnInputIsNoInput) {
  write("a.expect.jsonl", "");
  write("a.expected.jsonl", "");
  for (const char* name : {"a.expect.jsonl", "a.expected.jsonl"}) {
    const ProgramResult result = replay(name);
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.err, file(name) + ": lies beside an input with what is expected of it, and is "
                                       "none\n");
  }
}

TEST_F(Expect, FilesBringTheirOptions) {
  write("a.jsonl", R"(# why
{"options":["--subscribe","GKSonar","--without=DCM","--until","0.5","--sample","robotPose,Mine","--epoch","5","--setting","Mine/X=0.5"]}
{"t":0.4,"get":["Settings/Mine/X"]}
)");
  const ProgramResult result =
      runGk({"replay", "--out", "-", "--only", "sample,value,result", file("a.jsonl")});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.out, HasSubstr(R"("call":"GKSonar.subscribe")"));
  EXPECT_THAT(result.out,
              HasSubstr(R"({"t":0.4,"kind":"value","key":"Settings/Mine/X","value":0.5})"));
  EXPECT_THAT(result.out, HasSubstr(R"({"t":0.5,"kind":"sample","values":{"robotPose":2.0}})"));
  EXPECT_THAT(
      result.err,
      HasSubstr(
          "gk: --sample: there was never a key Mine; did you mean Settings/Mine/X?\n0.500 s, "));
  // Those of the command line are added, or win.
  const ProgramResult more =
      runGk({"replay", "--out", "-", "--until", "0.1", "--sample", "footContact", file("a.jsonl")});
  EXPECT_THAT(more.out, HasSubstr(R"("values":{"robotPose":2.0,"footContact":0.0}})"));
  EXPECT_THAT(more.err, HasSubstr("0.100 s, "));
}

TEST_F(Expect, OptionsThatAFileCannotHaveAreBadInput) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"(["--out","x"])",
       "--out is none that a file can have: --subscribe, --without, --epoch, --until, --sample, "
       "--setting, --library, --only"},
      {R"(["--until"])", "--until takes a value"},
      {R"(["--until","soon"])", "--until: soon is no time"},
      {R"(["--epoch","1.5"])", "--epoch: 1.5 is no whole number"},
      {R"(["--without","X"])", "--without: X is none of GKMemory, DCM, GKResourceManager"},
      {R"(["--only","x"])", "--only: unknown kind of line \"x\""},
      {R"(["--setting","x"])", "--setting: x is not NAME=VALUE"},
  };
  for (const auto& [words, error] : cases) {
    write("a.jsonl", "{\"options\":" + words + "}\n");
    const ProgramResult result = replay("a.jsonl");
    EXPECT_EQ(result.code, 2) << words;
    EXPECT_THAT(result.err, StartsWith(file("a.jsonl") + ":1: \"options\": " + error.substr(0, 3)));
    EXPECT_THAT(result.err, HasSubstr(error));
  }
}

TEST_F(Expect, OfSeveralFilesOnlyOneMayHaveOptions) {
  write("a.jsonl", "{\"options\":[]}\n");
  write("b.jsonl", "{\"options\":[]}\n");
  const ProgramResult result = runGk({"replay", "-q", file("a.jsonl"), file("b.jsonl")});
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.err, file("b.jsonl") +
                            ":1: a run has one line of \"options\", and there is one "
                            "in " +
                            file("a.jsonl") + "\n");
}

TEST_F(Expect, WhatFailedBeforeDecidesOverTheExitCode) {
  write("a.jsonl", R"({"fail":{"operation":"declareEvent","key":"SonarRightDetected"}}
{"expect":{"event":"X","count":1}}
)");
  const ProgramResult result = replay("a.jsonl");
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr(":2: expected 1 of X, but 0\n"));
}

TEST_F(Expect, ExpectationsSeeWhatIsHidden) {
  write("a.jsonl", kTouched + R"({"t":2,"expect":{"key":"robotPose","value":2}}
{"expect":{"order":["FrontTactilTouched","robotPoseChanged"]}}
)");
  EXPECT_EQ(replay("a.jsonl", {"--only", "page", "--log-level", "0"}).code, 0);
}

TEST_F(Expect, SeveralFilesReplayedByThemselvesTellWhatDoesNotHold) {
  write("a.jsonl", R"({"expect":{"event":"X","count":1}}
)");
  write("b.jsonl", kTouched);
  const ProgramResult result = runGk({"replay", "-j", "2", file("a.jsonl"), file("b.jsonl")});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.err, file("a.jsonl") + ":1: expected 1 of X, but 0\n");
}

TEST_F(Expect, ARunOnTheVirtualClockJudgesEachRound) {
  write("a.jsonl", R"({"t":0.1,"set":{")" + kTouch + R"(":1.0}}
{"t":0.1,"expect":{"event":"FrontTactilTouched","value":1.0}}
{"t":0.5,"set":{")" + kTouch +
                       R"(":0.0}}
{"expect":{"event":"robotPoseChanged","atLeast":1}}
)");
  const ProgramResult result =
      runGk({"run", "-q", "--speed", "max", "--loop", "--until", "1.3", file("a.jsonl")});
  EXPECT_EQ(result.code, 3);
  // The first round sees the pose settle, later ones begin with it; the third is cut off.
  EXPECT_THAT(result.err,
              Not(HasSubstr("a.jsonl:2: expected FrontTactilTouched 1.0 within 0.1 s of "
                            "0.620")));
  EXPECT_THAT(result.err,
              HasSubstr("a.jsonl:4: expected at least 1 of robotPoseChanged, but 0 (round 2)\n"));
  EXPECT_THAT(result.err, Not(HasSubstr("(round 3)\n")));
}

TEST_F(Expect, ARunInRealTimeTellsFailuresWhenTheyAreCertain) {
  write("a.jsonl", R"({"t":0.1,"set":{")" + kTouch + R"(":1.0}}
{"t":0.1,"expect":{"event":"FrontTactilTouched","value":1.0,"within":2}}
{"t":0.1,"expect":{"event":"Nobody","within":0.1}}
{"t":0.1,"expect":{"key":"FrontTactilTouched","value":1.0,"for":0.1}}
)");
  gk::test::Program run({GK_PROGRAM, "run", "-q", "--no-listen", "--for", "600", file("a.jsonl")});
  const std::string failure = file("a.jsonl") + ":3: expected Nobody within 0.1 s of 0.100, but it "
                                                "was never raised\n";
  run.runUntil([&] { return run.errSoFar().find(failure) != std::string::npos; });
  kill(run.pid(), SIGTERM);
  const ProgramResult result = run.wait();
  EXPECT_EQ(result.code, 3);
  EXPECT_THAT(result.err, Not(HasSubstr(":4: ")));
}

} // namespace
