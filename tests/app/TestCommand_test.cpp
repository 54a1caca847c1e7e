#include "support/Gk.h"
#include "support/Terminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// gk test: what it finds, how it runs it, what it tells.

namespace {

namespace fs = std::filesystem;
using gk::test::kTouch;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runProgram;
using gk::test::TemporaryFolder;
using gk::test::TerminalProgram;
using gk::test::writeFile;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

const std::string kMisbehaves = GK_TEST_LIBRARIES "/libMisbehaves.so";

/// A second with one touch.
const std::string kTouched = R"({"t":0.5,"set":{")" + kTouch + R"(":1.0}}
{"t":1,"end":true}
)";
const std::string kHolds = R"({"t":0.5,"expect":{"event":"FrontTactilTouched","value":1.0}}
)" + std::string(R"({"t":0.5,"set":{")") +
                           kTouch + R"(":1.0}}
)";
const std::string kFails = kTouched + R"({"expect":{"event":"FrontTactilTouched","count":3}}
)";

/// Nothing of the machine that these tests run on, but for what a test sets.
class GkTest : public testing::Test {
protected:
  GkTest() {
    for (const char* name : {"CI", "GITHUB_ACTIONS"}) {
      unsetenv(name);
    }
  }

  /// Runs in the folder of the test.
  ProgramResult test(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {GK_PROGRAM, "test"});
    return runProgram(arguments, fFolder.path());
  }
  /// One test that calls a method of the library that misbehaves.
  ProgramResult testCall(const std::string& call, std::vector<std::string> arguments = {}) const {
    write("call.jsonl", R"({"t":0.1,"call":")" + call + R"("}
{"t":0.2,"end":true}
{"expect":{"event":"X","count":0}}
)");
    arguments.insert(arguments.begin(), {"--library", kMisbehaves, "call.jsonl"});
    return test(arguments);
  }

  void write(const std::string& name, const std::string& text) const {
    fs::create_directories(fs::path(file(name)).parent_path());
    writeFile(file(name), text);
  }
  std::string file(const std::string& name) const { return fFolder.file(name); }
  const fs::path& folder() const { return fFolder.path(); }

private:
  const TemporaryFolder fFolder;
};

using GkTestFinds = GkTest;
using GkTestTells = GkTest;
using GkTestGolden = GkTest;
using GkTestShards = GkTest;

TEST_F(GkTest, IsQuietWhenAllIsWell) {
  write("a.jsonl", kHolds);
  write("b.jsonl", kHolds);
  const ProgramResult result = test({});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.out, MatchesRegex("2 passed, 0 failed in [0-9.]+ s\n"));
  EXPECT_EQ(result.err, "");
}

TEST_F(GkTest, AFailureComesWithWhatHappenedAroundItAndTheCommandThatRepeatsIt) {
  write("a b.jsonl", kFails);
  write("ok.jsonl", kHolds);
  const ProgramResult result = test({"-j", "1"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out, StartsWith("a b.jsonl: failed\n"
                                     "a b.jsonl:3: expected 3 of FrontTactilTouched, but 2\n"
                                     "    {\"t\":0,"));
  EXPECT_THAT(result.out,
              HasSubstr(R"(    {"t":0.5,"kind":"event","name":"FrontTactilTouched","value":1.0})"));
  EXPECT_THAT(result.out, HasSubstr("\n  alone: gk test 'a b.jsonl'\n1 passed, 1 failed in "));
  EXPECT_LE(std::count(result.out.begin(), result.out.end(), '\n'), 14);
}

TEST_F(GkTest, TheOrderIsThatOfTheNamesHoweverManyRunAtOnce) {
  std::string expected;
  for (int i = 0; i < 9; ++i) {
    write(std::to_string(i) + ".jsonl", kFails);
    expected += std::to_string(i);
  }
  const ProgramResult result = test({"-j", "4"});
  std::string order;
  for (std::size_t at = 0; (at = result.out.find(".jsonl: failed", at)) != std::string::npos;
       ++at) {
    order += result.out[at - 1];
  }
  EXPECT_EQ(order, expected);
}

TEST_F(GkTest, ACrashIsThatTestsFailure) {
  write("ok.jsonl", kHolds);
  const ProgramResult result = testCall("Misbehaves.crash", {"--json"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out, StartsWith(R"({"test":"call.jsonl","status":"crashed",)"));
  EXPECT_THAT(testCall("Misbehaves.crash").out, HasSubstr("call.jsonl: ended by SIGABRT"));
  EXPECT_THAT(testCall("Misbehaves.crash", {"ok.jsonl"}).out, HasSubstr("0 passed, 2 failed"));
}

TEST_F(GkTest, AHangIsThatTestsFailureAfterItsTime) {
  const ProgramResult result = testCall("Misbehaves.hang", {"--timeout", "0.3"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out, AllOf(HasSubstr("call.jsonl: timeout\n"),
                                HasSubstr("call.jsonl: did not end within 0.3 s\n")));
}

TEST_F(GkTest, AMalformedFileFailsTheOthersRunAndTheCodeIsTwo) {
  write("a.jsonl", R"({"t":1,"expect":{}}
)");
  write("b.jsonl", kFails);
  write("c.jsonl", kHolds);
  const ProgramResult result = test({});
  EXPECT_EQ(result.code, 2);
  EXPECT_THAT(result.out, StartsWith("a.jsonl: malformed\na.jsonl:1: \"expect\" takes an"));
  EXPECT_THAT(result.out, HasSubstr("1 passed, 2 failed in "));
}

TEST_F(GkTest, ALibraryThatDoesNotLoadFailsEachTest) {
  write("a.jsonl", kHolds);
  const ProgramResult result = test({"--library", "no/such/library.so"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out, HasSubstr("a.jsonl: expected exit code 0, but 1: gk: cannot load "
                                    "no/such/library.so: "));
  EXPECT_THAT(result.out, HasSubstr("alone: gk test --library no/such/library.so a.jsonl\n"));
}

TEST_F(GkTest, ExitErrorAndPrintsAreWhatTheOptionsSay) {
  const std::string fault = R"({"fail":{"operation":"declareEvent","key":"SonarRightDetected"}}
{"never":{"event":"X"}}
)";
  write("good.jsonl", R"({"options":[],"exit":1,"error":"injected fault"}
)" + fault);
  write("bad.jsonl", R"({"options":[],"error":"another fault"}
)" + fault);
  write("expected.jsonl", R"({"options":[],"exit":3,"error":"expected 1 of X, but 0"}
{"expect":{"event":"X","count":1}}
)");
  const ProgramResult result = test({});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out, HasSubstr("2 passed, 1 failed"));
  EXPECT_THAT(result.out, HasSubstr("bad.jsonl:1: expected exit code 0, but 1: gk: cannot load "));
  EXPECT_THAT(result.out, HasSubstr("bad.jsonl:1: expected \"another fault\" on standard error, "
                                    "but: gk: cannot load"));
}

TEST_F(GkTest, MalformedInputMayBeWhatIsExpected) {
  write("a.jsonl", "{\"t\":0,\"jump\":1}\n");
  write("a.expect.jsonl", R"({"options":[],"exit":2,"error":"a.jsonl:1: unknown action"}
)");
  EXPECT_EQ(test({}).code, 0);
  write("a.jsonl", "{\"t\":0,\"get\":[]}\n");
  const ProgramResult result = test({});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out, HasSubstr("a.expect.jsonl:1: expected exit code 2, but 0"));
}

TEST_F(GkTest, RepeatFailsWhenTwoRunsDiffer) {
  const ProgramResult same = testCall("Misbehaves.print", {"--repeat", "3"});
  EXPECT_EQ(same.code, 0) << same.out;
  const ProgramResult result = testCall("Misbehaves.raiseProcess", {"--repeat", "3"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out,
              HasSubstr("call.jsonl: runs 1 and 2 of the same input differ: expected "));
  EXPECT_THAT(result.out, HasSubstr("\n    - {\"t\":0.1,\"kind\":\"event\",\"name\":\"Process\""));
  EXPECT_THAT(result.out, HasSubstr("\n    + {\"t\":0.1,\"kind\":\"event\",\"name\":\"Process\""));
  EXPECT_THAT(result.out, HasSubstr("--repeat 3 call.jsonl\n"));
}

TEST_F(GkTestFinds, WhatHasExpectationsInItOrBesideItAndNothingElse) {
  write("with.jsonl", kHolds);
  write("never.jsonl", R"({"never":{"event":"X"}}
)");
  write("golden.jsonl", "");
  write("golden.expected.jsonl", "");
  write("beside.csv", "time,a\n0,0\n");
  write("beside.csv.gz", "");
  write("beside.mcap", "");
  write("beside.expect.jsonl", "");
  write("bare.jsonl", kTouched);
  write("output.jsonl", R"({"t":0,"kind":"event","name":"expect","value":1}
)");
  write("broken.jsonl", "{\"expect\"\n");
  write("bare.csv", "time,a\n0,0\n");
  write("left.expected.jsonl.new", "");
  write(".git/a.jsonl", kHolds);
  write("node_modules/a.jsonl", kHolds);
  write("build/CMakeCache.txt", "");
  write("build/a.jsonl", kHolds);
  write("deep/er/a.jsonl", kHolds);
  fs::create_directory_symlink("deep", file("link"));
  const ProgramResult list = test({"--list"});
  EXPECT_EQ(list.code, 0);
  EXPECT_EQ(list.out, "beside.csv\nbeside.csv.gz\nbeside.mcap\ndeep/er/a.jsonl\ngolden.jsonl\n"
                      "never.jsonl\nwith.jsonl\n");
  EXPECT_EQ(test({"--list", "build", ".git", "./build/"}).out, ".git/a.jsonl\nbuild/a.jsonl\n");
  EXPECT_EQ(test({"--list", "-k", "ve"}).out, "never.jsonl\n");
  EXPECT_EQ(test({"--list", "-k", "*.mcap"}).out, "beside.mcap\n");
}

TEST_F(GkTestFinds, NothingToTestIsBadInput) {
  write("bare.jsonl", kTouched);
  EXPECT_EQ(test({}).code, 2);
  EXPECT_EQ(test({}).err, "gk: nothing to test was found\n");
  EXPECT_EQ(test({"--list"}).code, 2);
  EXPECT_THAT(test({"bare.jsonl"}).err, StartsWith("gk: bare.jsonl: nothing is expected of it: "));
  EXPECT_EQ(test({"no/where"}).err, "gk: no/where: no such file or folder\n");
  write("a.jsonl", kHolds);
  EXPECT_EQ(test({"-k", "nobody"}).err, "gk: nothing to test was found that is meant by nobody\n");
  write("a.expect.jsonl", "");
  EXPECT_EQ(test({"a.expect.jsonl"}).code, 2);
  EXPECT_EQ(test({"a.expect.jsonl"}).out, "");
}

TEST_F(GkTestTells, TheMarginOfWhatHolds) {
  write("a.jsonl", R"({"t":0.47,"expect":{"event":"FrontTactilTouched"}}
)" + kTouched + R"({"t":1,"expect":{"key":"FrontTactilTouched","above":0.75}}
)");
  EXPECT_THAT(test({"-v"}).out, StartsWith("a.jsonl: passed in 0."));
  EXPECT_THAT(test({"-v"}).out,
              AllOf(HasSubstr("  a.jsonl:1: FrontTactilTouched within 0.1 s of 0.470: "
                              "FrontTactilTouched 1.0 at 0.500 s, 0.070 s left\n"),
                    HasSubstr("  a.jsonl:4: FrontTactilTouched above 0.75 at 1.000 s, margin "
                              "0.25\n")));
  EXPECT_THAT(
      test({"--json"}).out,
      MatchesRegex(R"(\{"test":"a.jsonl","status":"passed","seconds":[0-9.e-]+,"expectations":\[)"
                   R"(\{"line":1,"holds":true,"margin_s":0.07,"text":"[^"]*"\},)"
                   R"(\{"line":4,"holds":true,"margin":0.25,"text":"[^"]*"\}\]\})"
                   "\n"
                   R"(\{"passed":1,"failed":0,"seconds":[0-9.e-]+,"shard":\[1,1\],"tests":1\})"
                   "\n"));
}

TEST_F(GkTestTells, ATerminalHowFarItHasCome) {
  write("hangs.jsonl", R"({"t":0.1,"call":"Misbehaves.hang"}
{"never":{"event":"X"}}
)");
  const std::string bar = "[" + std::string(40, ' ') + "]   0 %  0 of 1, 0 failed";
  TerminalProgram sut({GK_PROGRAM, "test", "--library", kMisbehaves, file("hangs.jsonl")}, 80, 24);
  sut.runUntil([&] { return sut.screen().text().find(bar) != std::string::npos; });
}

TEST_F(GkTestTells, TheSlowestTests) {
  write("a.jsonl", kHolds);
  write("b.jsonl", kHolds);
  EXPECT_THAT(test({"--slowest", "1"}).out,
              MatchesRegex(" +0\\.[0-9]+ s  [ab].jsonl\n2 passed, 0 failed in [0-9.]+ s\n"));
}

TEST_F(GkTestTells, GitHubWhereItGoesWrong) {
  write("50%,a:b.jsonl", kFails);
  setenv("GITHUB_ACTIONS", "true", 1);
  const ProgramResult result = test({});
  const ProgramResult json = test({"--json"});
  unsetenv("GITHUB_ACTIONS");
  const std::string annotation =
      "::error file=50%25%2Ca%3Ab.jsonl,line=3,title=50%25%2Ca%3Ab.jsonl failed::expected 3 of "
      "FrontTactilTouched, but 2\n";
  EXPECT_THAT(result.out, HasSubstr("\n" + annotation));
  EXPECT_THAT(json.out, Not(HasSubstr("::error")));
  EXPECT_THAT(json.err, HasSubstr(annotation));
}

TEST_F(GkTestTells, JUnitWhateverATestPrints) {
  write("bytes.jsonl", R"({"options":[],"stdout":"nothing"}
{"t":0.1,"call":"Misbehaves.print","args":["a]]>\u0000\uffff"]}
{"t":0.2,"end":true}
{"expect":{"event":"<&\">","count":1}}
)");
  write("ok.jsonl", kHolds);
  const ProgramResult result =
      test({"--library", kMisbehaves, "--junit", "out.xml", "bytes.jsonl"});
  EXPECT_EQ(result.code, 1);
  const std::string xml = readFile(file("out.xml"));
  EXPECT_THAT(xml, StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites tests=\"1\" "
                              "failures=\"1\" errors=\"0\" skipped=\"0\" time=\""));
  EXPECT_THAT(xml, HasSubstr("<testcase classname=\"gk\" name=\"bytes.jsonl\" time=\""));
  EXPECT_THAT(xml, HasSubstr("file=\"bytes.jsonl\" line=\"4\">"));
  EXPECT_THAT(xml, HasSubstr("message=\"expected 1 of &lt;&amp;&quot;&gt;, but 0\""));
  EXPECT_THAT(xml, HasSubstr("&lt;&amp;]]&gt;"));
  for (const char letter : xml) {
    EXPECT_TRUE(letter == '\n' || static_cast<unsigned char>(letter) >= 0x20) << int{letter};
  }
  EXPECT_THAT(xml, Not(HasSubstr("\xEF\xBF\xBF")));
  EXPECT_THAT(xml, Not(HasSubstr("\xFF")));
  EXPECT_THAT(xml, EndsWith("  </testsuite>\n</testsuites>\n"));

  EXPECT_EQ(test({"--junit", "no/where.xml", "ok.jsonl"}).code, 2);
}

TEST_F(GkTestGolden, WhatComesOutIsComparedWithTheExpectedLines) {
  write("a.csv", "time," + kTouch + "\n0,0\n0.5,1\n");
  write("a.expect.jsonl", R"({"options":["--only","event"]}
)");
  EXPECT_EQ(test({"--update", "a.csv"}).out.substr(0, 24), "updated a.expected.jsonl");
  EXPECT_EQ(test({}).code, 0);

  const std::string golden = readFile(file("a.expected.jsonl"));
  std::string other = golden;
  const std::string last = R"("FrontTactilTouched","value":1.0)";
  other.replace(other.find(last), last.size(), R"("FrontTactilTouched","value":0.5)");
  write("a.expected.jsonl", other);
  const ProgramResult result = test({});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out, HasSubstr("a.expected.jsonl:"));
  EXPECT_THAT(
      result.out,
      HasSubstr(R"(    - {"t":0.5,"kind":"event","name":"FrontTactilTouched","value":0.5})"));
  EXPECT_THAT(
      result.out,
      HasSubstr(R"(    + {"t":0.5,"kind":"event","name":"FrontTactilTouched","value":1.0})"));
  EXPECT_EQ(readFile(file("a.expected.jsonl.new")), golden);

  EXPECT_EQ(test({"--update"}).code, 0);
  EXPECT_EQ(readFile(file("a.expected.jsonl")), golden);
  EXPECT_FALSE(fs::exists(file("a.expected.jsonl.new")));
}

TEST_F(GkTestGolden, MoreAndFewerLinesAreDifferencesToo) {
  write("a.jsonl", R"({"t":0,"get":["a","b"]}
)");
  write("a.expect.jsonl", R"({"options":["--only","value"]}
)");
  const std::string first = R"({"t":0,"kind":"value","key":"a"}
)";
  write("a.expected.jsonl", first);
  EXPECT_THAT(test({}).out,
              HasSubstr("a.expected.jsonl:2: output: expected no more, but {\"t\":0,"));
  write("a.expected.jsonl", first + R"({"t":0,"kind":"value","key":"b"}
more
)");
  EXPECT_THAT(test({}).out, HasSubstr("a.expected.jsonl:3: output: expected more, but there was no "
                                      "more\n"));
}

TEST_F(GkTestGolden, ATestOfBothIsOneAndComparedWhateverTheExitCode) {
  write("a.jsonl", R"({"options":["--only","value"]}
{"t":0,"get":["a"]}
{"expect":{"event":"X","count":1}}
)");
  write("a.expected.jsonl", "other\n");
  const ProgramResult result = test({});
  EXPECT_THAT(result.out, AllOf(HasSubstr("a.jsonl:3: expected 1 of X, but 0\n"),
                                HasSubstr("a.expected.jsonl:1: output: expected other, but "),
                                HasSubstr("0 passed, 1 failed")));
}

TEST_F(GkTestGolden, UpdatesAreOfTheTestsThatAreMeantAndNewOnesOfNamedInputs) {
  write("a.jsonl", R"({"t":0,"get":["a"]}
)");
  write("b.jsonl", readFile(file("a.jsonl")));
  write("c.jsonl", kHolds);
  write("a.expected.jsonl", "old\n");
  write("b.expected.jsonl", "old\n");
  EXPECT_EQ(test({"--update", "-k", "a"}).code, 0);
  EXPECT_NE(readFile(file("a.expected.jsonl")), "old\n");
  EXPECT_EQ(readFile(file("b.expected.jsonl")), "old\n");

  EXPECT_EQ(test({"--update"}).code, 0);
  EXPECT_EQ(readFile(file("b.expected.jsonl")), readFile(file("a.expected.jsonl")));
  EXPECT_FALSE(fs::exists(file("c.expected.jsonl"))); // A folder brings no new ones.
  EXPECT_EQ(test({"--update", "c.jsonl"}).code, 0);
  EXPECT_TRUE(fs::exists(file("c.expected.jsonl")));
}

TEST_F(GkTestGolden, WhereOthersWorkIsTestedOnlyNamedInputsAreUpdated) {
  write("a.jsonl", R"({"t":0,"get":["a"]}
)");
  write("a.expected.jsonl", "old\n");
  setenv("CI", "true", 1);
  const ProgramResult refused = test({"--update"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err,
            "gk: --update: with CI set nothing is written anew but for inputs that are "
            "named as files\n");
  EXPECT_EQ(readFile(file("a.expected.jsonl")), "old\n");
  EXPECT_EQ(test({"--update", "a.jsonl"}).code, 0);
  EXPECT_NE(readFile(file("a.expected.jsonl")), "old\n");
  unsetenv("CI");
}

TEST_F(GkTestGolden, ARunWithoutOutputIsNotKept) {
  write("a.jsonl", "{\"t\":0,\"jump\":1}\n");
  write("a.expected.jsonl", "old\n");
  EXPECT_EQ(test({"--update"}).code, 2);
  EXPECT_EQ(readFile(file("a.expected.jsonl")), "old\n");
}

TEST_F(GkTestShards, TogetherAreAllTestsAndMergeJoinsThem) {
  for (const char* name : {"a", "b", "c", "d"}) {
    write(std::string(name) + ".jsonl", kHolds);
  }
  write("e.jsonl", kFails);
  EXPECT_EQ(test({"--list", "--shard", "1/3"}).out, "a.jsonl\nd.jsonl\n");
  std::vector<std::string> files;
  for (const char* shard : {"3", "1", "2"}) {
    const ProgramResult result = test({"--json", "--shard", std::string(shard) + "/3"});
    EXPECT_EQ(result.code, *shard == '2' ? 1 : 0);
    files.push_back(std::string(shard) + ".results");
    write(files.back(), result.out);
  }
  const ProgramResult merged = test({"merge", files[0], files[1], files[2]});
  EXPECT_EQ(merged.code, 1);
  EXPECT_THAT(merged.out, StartsWith("e.jsonl: failed\n"
                                     "e.jsonl:3: expected 3 of FrontTactilTouched, but 2\n"
                                     "4 passed, 1 failed in "));
  const ProgramResult json =
      test({"merge", "--json", "--junit", "out.xml", files[0], files[1], files[2]});
  EXPECT_THAT(json.out, StartsWith(R"({"test":"a.jsonl",)"));
  EXPECT_THAT(json.out, HasSubstr(R"({"passed":4,"failed":1,)"));
  EXPECT_THAT(json.out, EndsWith(R"("shard":[1,1],"tests":5})"
                                 "\n"));
  EXPECT_THAT(readFile(file("out.xml")), HasSubstr("<testsuites tests=\"5\" failures=\"1\""));
}

TEST_F(GkTestShards, AnEmptyShardPasses) {
  write("a.jsonl", kFails);
  const ProgramResult result = test({"--shard", "2/2"});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.out, StartsWith("0 passed, 0 failed"));
  for (const char* wrong : {"0/2", "3/2", "1", "a/b", "1/2/3", "-1/2", "/2"}) {
    EXPECT_EQ(test({"--shard", wrong}).code, 2) << wrong;
  }
}

TEST_F(GkTestShards, MissingDoubledAndForeignOnesAreBadInput) {
  for (const char* name : {"a", "b", "c"}) {
    write(std::string(name) + ".jsonl", kHolds);
  }
  write("1", test({"--json", "--shard", "1/2"}).out);
  write("2", test({"--json", "--shard", "2/2"}).out);
  write("other", test({"--json", "--shard", "2/2", "-k", "[bc]*"}).out);
  write("whole", test({"--json"}).out);
  write("d.jsonl", kHolds);
  fs::remove(file("b.jsonl"));
  write("foreign", test({"--json", "--shard", "2/2"}).out);
  write("cut", readFile(file("1")).substr(0, readFile(file("1")).find('\n') + 1));
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"merge", "1"}, "1: is one of 2 shards, and shard 2 is missing\n"},
      {{"merge", "1", "2", "1"}, "1: shard 1 of 2 is in 1 already\n"},
      {{"merge", "1", "other"},
       "other:2: is a shard of other tests: 2 of 2 with 2 tests, not of 2 with 3\n"},
      {{"merge", "1", "whole"},
       "whole:4: is a shard of other tests: 1 of 1 with 3 tests, not of 2 with 3\n"},
      {{"merge", "1", "foreign"}, "1: is a shard of other tests\n"},
      {{"merge", "cut"}, "cut: has no sum in its last line: the tests have not ended\n"},
      {{"merge", "a.jsonl"}, "a.jsonl:1: no line of `gk test --json`: \"passed\" is missing\n"},
      {{"merge", "nobody"}, "nobody: cannot be read: No such file or directory\n"},
  };
  for (const auto& [arguments, error] : cases) {
    const ProgramResult result = test(arguments);
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.err, error);
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(test({"merge"}).code, 2);
}

} // namespace
