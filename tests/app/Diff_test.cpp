#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

// Two runs compared: gk diff.

namespace {

using gk::test::kData;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runGk;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class Diff : public testing::Test {
protected:
  static ProgramResult diff(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "diff");
    return runGk(std::move(arguments));
  }

  std::string output(const std::string& name, const std::string& lines) const {
    writeFile(file(name), lines);
    return file(name);
  }

  std::string recording() const {
    const ProgramResult run = runGk({"run", "--speed", "max", "--until", "3", "--robot", "none",
                                     kData + "imu_fall_forward.csv", "--record", file("run.mcap"),
                                     "--overwrite", "--quiet"});
    EXPECT_EQ(run.code, 0) << run.err;
    return file("run.mcap");
  }

  std::string file(const std::string& name) const { return fFolder.file(name); }

  const TemporaryFolder fFolder;
};

constexpr const char* kOne = R"({"t":1,"kind":"event","name":"X","value":1.0}
{"t":2,"kind":"micro","name":"Y","value":true}
{"t":3,"kind":"log","level":2,"category":"c","function":"f","text":"bad"}
)";

TEST_F(Diff, TheSameIsCode0DifferentIs1AndBadInputIs2) {
  const std::string a = output("a.jsonl", kOne);
  const std::string b = output("b.jsonl", R"({"t":1,"kind":"event","name":"X","value":2.0})"
                                          "\n");
  EXPECT_EQ(diff({a, a}).code, 0);
  EXPECT_EQ(diff({a, b}).code, 1);
  EXPECT_EQ(diff({a, file("nothing.jsonl")}).code, 2);
  EXPECT_EQ(diff({a}).code, 2); // an output alone
  EXPECT_EQ(diff({}).code, 2);
  EXPECT_EQ(diff({a, a, a}).code, 2);
  EXPECT_EQ(diff({a, a, "--only", "evnt"}).code, 2);
  EXPECT_EQ(diff({a, a, "--tolerance-time", "-1"}).code, 2);
  EXPECT_EQ(diff({a, a, "--library", "libmine.so"}).code, 2);
}

TEST_F(Diff, BadInputGetsOneLineWithItsPlace) {
  const std::string a = output("a.jsonl", kOne);
  for (const std::string line :
       {"garbage", R"({"t":1})", R"({"t":-1,"kind":"event","name":"X","value":1})",
        R"({"t":1,"kind":"evnt"})", R"({"t":1,"kind":"event","name":"X"})",
        R"({"t":1,"kind":"event","name":1,"value":1})",
        R"({"t":"1","kind":"event","name":"X","value":1})"}) {
    const std::string b = output("b.jsonl", kOne + line + "\n");
    const ProgramResult result = diff({a, b});
    EXPECT_EQ(result.code, 2) << line;
    EXPECT_THAT(result.err, StartsWith(b + ":4: ")) << line;
    EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
    EXPECT_THAT(result.out, IsEmpty());
  }
}

TEST_F(Diff, ForPeopleThereIsALineForEachDifferenceAndForEachName) {
  const std::string a = output("a.jsonl", kOne);
  const std::string b = output("b.jsonl", R"({"t":1.02,"kind":"event","name":"X","value":1.0}
{"t":4,"kind":"event","name":"Z","value":"new"}
)");
  const ProgramResult result = diff({a, b});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.out, "          A" + std::string(a.size() + 1, ' ') + "B\n" + "file      " + a +
                            "  " + b + "\n" + "reported  output" + std::string(a.size() - 4, ' ') +
                            "output\n" + R"(
     1.000  moved    X                                  1.0  1 -> 1.02 s (+0.02 s)
     2.000  missing  micro Y                            true
     4.000  extra    Z                                  "new"
NAME     IN A  IN B  MISSING  EXTRA  CHANGED  MOVED
X        1     1     0        0      0        1
micro Y  1     0     1        0      0        0
Z        0     1     0        1      0        0
different: 1 missing, 1 extra, 0 changed, 1 moved, in 3 of 3 names; the first at 1 s
)");
  EXPECT_THAT(diff({a, b, "--stat"}).out, Not(HasSubstr("1.000  moved")));
  EXPECT_THAT(diff({a, a}).out, EndsWith("\nthe same: 4 values of 2 names\n"));
}

TEST_F(Diff, ForProgramsThereIsOneObject) {
  const std::string a = output("a.jsonl", kOne);
  const std::string b = output("b.jsonl", "");
  EXPECT_EQ(diff({"--json", a, b}).out,
            R"({"same":false,"missing":2,"extra":0,"changed":0,"moved":0,"names":{)"
            R"("X":{"missing":1,"extra":0,"changed":0,"moved":0},)"
            R"("Y":{"missing":1,"extra":0,"changed":0,"moved":0}},"differences":[)"
            R"({"kind":"missing","name":"X","a":{"t":1,"value":1.0}},)"
            R"({"kind":"missing","name":"Y","a":{"t":2,"value":true}}],)"
            R"("a":{"file":")" +
                a + R"(","reported":"output"},"b":{"file":")" + b +
                R"(","reported":"output"}})"
                "\n");
}

TEST_F(Diff, KindsNamesAndTolerancesAreChosen) {
  const std::string a = output("a.jsonl", kOne);
  const std::string b = output("b.jsonl", R"({"t":1.02,"kind":"event","name":"X","value":1.1}
{"t":2,"kind":"micro","name":"Y","value":true}
)");
  EXPECT_EQ(diff({a, b, "--ignore", "X"}).code, 0);
  EXPECT_EQ(diff({a, b, "--only", "micro"}).code, 0);
  EXPECT_EQ(diff({a, b, "--only", "log"}).code, 1);
  EXPECT_EQ(diff({a, b, "--tolerance-value", "0.1", "--tolerance-time", "0.02"}).code, 0);
  EXPECT_EQ(diff({a, b, "--tolerance-value", "0.1", "--tolerance-time", "0.019"}).code, 1);
  EXPECT_THAT(diff({a, b, "--ignore", "x*"}).err, HasSubstr("nothing is called x*"));
}

TEST_F(Diff, ARecordingIsWhatTheLibraryMakesOfIt) {
  const std::string run = recording();
  const ProgramResult result = diff({run, "--only", "event,micro,log"});
  EXPECT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_THAT(result.out, AllOf(HasSubstr("recorded"), HasSubstr("run now"),
                                HasSubstr("libraries  gksensors  "), HasSubstr("gksensors ")));
}

TEST_F(Diff, AnotherLibraryMakesSomethingElseOfARecording) {
  const std::string run = recording();
  const ProgramResult result =
      diff({run, "--library", GK_TEST_LIBRARIES "/libStrangeName.so", "--json"});
  EXPECT_EQ(result.code, 2); // there is no such library
  EXPECT_THAT(result.err, AllOf(StartsWith(run + ": cannot be run: "), HasSubstr("StrangeName")));
}

TEST_F(Diff, EveryKindOfInputCanBeComparedWithEveryOther) {
  const std::string run = recording();
  ASSERT_EQ(runGk({"replay", run, "--out", file("run.jsonl"), "--only", "event,micro"}).code, 0);
  ASSERT_EQ(runGk({"replay", kData + "imu_fall_forward.csv", "--until", "3", "--out",
                   file("table.jsonl")})
                .code,
            0);
  EXPECT_EQ(diff({run, file("run.jsonl")}).code, 0);
  EXPECT_EQ(diff({file("run.jsonl"), file("table.jsonl")}).code, 0);
  // The table goes on behind the third second.
  const ProgramResult table = diff({run, kData + "imu_fall_forward.csv", "--stat"});
  EXPECT_EQ(table.code, 1);
  EXPECT_THAT(table.out, HasSubstr(" 0 missing, "));
  const std::string scenario = output("s.jsonl", "{\"t\": 1, \"get\": [\"robotPose\"]}\n");
  EXPECT_EQ(diff({scenario, scenario, "--only", "value,event"}).code, 0);
}

TEST_F(Diff, SampledKeysAreComparedToo) {
  const std::string a = output("a.jsonl", R"({"t":0,"kind":"sample","values":{"k":1.0,"l":1}}
{"t":0.02,"kind":"sample","values":{"k":1.5,"l":1}}
)");
  const std::string b = output("b.jsonl", R"({"t":0,"kind":"sample","values":{"k":1.0,"l":1}}
{"t":0.02,"kind":"sample","values":{"k":1.75,"l":1}}
)");
  EXPECT_EQ(diff({a, b}).code, 0);
  const ProgramResult result = diff({a, b, "--only", "sample"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out, HasSubstr("changed  sample k                           1.5 -> 1.75\n"));
}

TEST_F(Diff, WhatARecordingDoesNotTellIsLeftOutAndToldSo) {
  const ProgramResult result = diff({recording(), "--only", "event,data", "--json"});
  EXPECT_EQ(result.code, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr(R"("left_out":["data"])"));
}

TEST_F(Diff, ManyRecordingsGetATableAndTheWorstCode) {
  const std::string run = recording();
  const std::string bad = output("bad.mcap", "no recording");
  const ProgramResult same = diff({"--each", run, run});
  EXPECT_EQ(same.code, 0) << same.err;
  EXPECT_THAT(same.out, AllOf(StartsWith("FILE"), HasSubstr(run + "  same "),
                              EndsWith("2 the same, 0 different, 0 malformed\n")));
  const ProgramResult mixed = diff({"--each", run, bad, run, "--json"});
  EXPECT_EQ(mixed.code, 2);
  EXPECT_THAT(mixed.err, StartsWith(bad + ":"));
  EXPECT_THAT(mixed.out, StartsWith(R"({"file":")" + run + R"(","same":true,)"));
  EXPECT_EQ(std::ranges::count(mixed.out, '\n'), 3);
}

TEST_F(Diff, APageHoldsBothRunsAndNothingFromElsewhere) {
  const std::string a = output("a.jsonl", kOne);
  const std::string b =
      output("b.jsonl", R"({"t":1,"kind":"event","name":"</script>","value":"<b>"})"
                        "\n");
  EXPECT_EQ(diff({a, b, "--html", file("page.html")}).code, 1);
  const std::string page = readFile(file("page.html"));
  EXPECT_TRUE(page.starts_with("<!DOCTYPE html>"));
  for (const char* foreign : {"</script>\"", "https:", "<link", "src="}) {
    EXPECT_EQ(page.find(foreign), std::string::npos) << foreign;
  }
  EXPECT_EQ(diff({a, b, "--html", a}).code, 2);
  EXPECT_EQ(readFile(a), kOne);
}

} // namespace
