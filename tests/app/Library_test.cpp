#include "gk/GKVersion.h"
#include "support/Environment.h"
#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Libraries that cannot be loaded: one line that names the file and the reason, exit code 1, and
// whatever had come up goes down in order.

namespace {

using gk::test::Environment;
using gk::test::ProgramResult;
using gk::test::runGk;
using gk::test::runProgram;
using gk::test::TemporaryFolder;

std::string library(const std::string& name) {
  return GK_TEST_LIBRARIES "/lib" + name + ".so";
}

ProgramResult runWith(const std::string& path) {
  return runProgram(
      {GK_PROGRAM, "run", "--for", "10", "--only", "event", "--out", "-", "--library", path});
}

struct Failure {
  std::string path;
  std::string reason;
};

class BadLibrary : public testing::TestWithParam<Failure> {};

TEST_P(BadLibrary, IsNamedWithItsReason) {
  const ProgramResult result = runWith(GetParam().path);
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err, "gk: cannot load " + GetParam().path + ": " + GetParam().reason + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Each, BadLibrary,
    testing::Values(
        Failure{library("NoEntry"), "it has no entry _createModule"},
        Failure{library("ThrowsGKError"), "Broken::_createModule: this one refuses"},
        Failure{library("ThrowsException"), "this one is illogical"},
        Failure{library("ThrowsInt"), "_createModule threw something that is no exception class"},
        Failure{library("ReturnsSeven"), "_createModule returned 7"},
        Failure{GK_SOURCE_DIR "/README.md", "it is no ELF file"},
        Failure{GK_SOURCE_DIR "/tests", "it is no file"},
        Failure{"no/such/library.so", "No such file or directory"},
        Failure{library("MissingSymbol"),
                "it needs GK::countWings(std::__cxx11::basic_string<char, "
                "std::char_traits<char>, std::allocator<char> > const&), which neither "
                "the platform nor a library that it is linked with has"},
        Failure{library("NoNote"),
                "no note of a module platform: build it with gk_add_module_library"},
        Failure{
            library("OtherPlatformNote"),
            "it was built for another platform: expected " GK_PLATFORM_ABI
            ", found 0.1 (version 0.1.7); build it anew with the platform " GK_PLATFORM_VERSION},
        Failure{library("OtherStringsNote"),
                "it was built for another C++ library: expected libstdc++, found "
                "libstdc++ with old strings; build it anew with the compiler options "
                "of the platform"}));

TEST(MisfitLibrary, OfSizesThatDoNotFitIsRefusedThoughItsPlatformDoes) {
  EXPECT_THAT(runWith(library("OtherSizesNote")).err,
              testing::MatchesRegex("gk: cannot load .*: its modules and values have other sizes: "
                                    "expected [0-9]+ and [0-9]+ bytes, found 8 and .*\n"));
}

TEST(MisfitLibrary, ThatIsCutOffAnywhereIsRefusedInOneLine) {
  const TemporaryFolder folder;
  const std::string whole = gk::test::readFile(library("NoNote"));
  for (std::size_t size = 0; size < whole.size(); size = size * 2 + 7) {
    gk::test::writeFile(folder.file("cut.so"), whole.substr(0, size));
    const ProgramResult result = runGk({"library", "check", folder.file("cut.so")});
    EXPECT_EQ(result.code, 1) << size;
    EXPECT_THAT(result.err, testing::MatchesRegex("gk: cannot load [^\n]*\n")) << size;
  }
}

TEST(MisfitLibrary, OfAnotherMachineOrOfAnotherKindIsNamedSo) {
  const TemporaryFolder folder;
  std::string whole = gk::test::readFile(library("NoNote"));
  constexpr std::size_t kind = 16;
  constexpr std::size_t machine = 18;
  std::string other = whole;
  ++other[machine];
  gk::test::writeFile(folder.file("other.so"), other);
  EXPECT_THAT(runWith(folder.file("other.so")).err,
              testing::EndsWith("it is for another machine than this one\n"));
  whole[kind] = 1; // a file that is still to be linked
  gk::test::writeFile(folder.file("object.so"), whole);
  EXPECT_THAT(runWith(folder.file("object.so")).err,
              testing::EndsWith("it is no shared library\n"));
}

TEST(LibraryCheck, TellsWhatALibraryFitsWithoutLoadingIt) {
  const ProgramResult good = runGk({"library", "check", GK_LIBRARY});
  EXPECT_EQ(good.code, 0);
  EXPECT_EQ(good.out, GK_LIBRARY " fits: platform " GK_PLATFORM_ABI
                                 " (built with " GK_PLATFORM_VERSION "), libstdc++\n");

  const ProgramResult bad = runGk({"library", "check", library("OtherPlatformNote")});
  EXPECT_EQ(bad.code, 1);
  EXPECT_EQ(bad.out, "");

  const ProgramResult absent = runGk({"library", "check", "no/such/library.so"});
  EXPECT_EQ(absent.code, 2);
  EXPECT_EQ(absent.err, "gk: there is no file no/such/library.so\n");
}

/// Names of the modules of a run with these libraries, in the order in which they were made.
std::string linesOf(std::vector<std::string> more, const std::string& input) {
  more.insert(more.begin(), {"replay", "--only", "event", "--out", "-"});
  more.push_back(input);
  const ProgramResult result = runGk(std::move(more));
  EXPECT_EQ(result.code, 0) << result.err;
  return result.out;
}

const std::string kWall = gk::test::kData + "us_wallrobot.csv";

TEST(NamedLibrary, IsLookedForInTheFoldersOfTheEnvironmentAndThenBesideTheProgram) {
  const Environment folders("GK_LIBRARY_PATH", "/no/such/folder:" GK_TEST_LIBRARIES);
  EXPECT_THAT(linesOf({"--library", "gksensors", "--library", "Echo"}, kWall),
              testing::HasSubstr("\"Echo\""));
}

TEST(NamedLibrary, ThatIsNowhereIsToldWithTheFoldersThatWereSearched) {
  const Environment folders("GK_LIBRARY_PATH", "/no/such/folder");
  const ProgramResult result = runWith("Nowhere");
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err,
              testing::MatchesRegex("gk: cannot load Nowhere: there is no libNowhere.so in "
                                    "/no/such/folder, .*gksensors/modules.*\n"));
}

TEST(NamedLibrary, WithAPlusComesBesidesOurs) {
  const Environment folders("GK_LIBRARY_PATH", GK_TEST_LIBRARIES);
  const std::string lines = linesOf({"--library", "+Echo"}, kWall);
  EXPECT_THAT(lines, testing::HasSubstr("\"Echo\""));
  EXPECT_THAT(lines, testing::HasSubstr("\"SonarLeftDetected\""));
}

TEST(NamedLibrary, OfAFileIsReplacedByANameAndKeptByAPlus) {
  const TemporaryFolder folder;
  const std::string file = folder.file("file.jsonl");
  gk::test::writeFile(file, "{\"options\": [\"--library\", \"" + library("Echo") +
                                "\"]}\n"
                                "{\"t\": 0, \"call\": \"GKSonar.getOutputNames\"}\n"
                                "{\"t\": 0, \"call\": \"Echo.onEvent\", \"args\": [\"\", 1]}\n");
  const auto resultsOf = [&file](std::vector<std::string> more) {
    more.insert(more.begin(), {"replay", "--only", "result", "--out", "-"});
    more.push_back(file);
    return runGk(std::move(more)).out;
  };
  EXPECT_THAT(resultsOf({}), testing::HasSubstr("Echo.onEvent"));
  EXPECT_THAT(resultsOf({}), testing::Not(testing::HasSubstr("GKSonar")));
  EXPECT_THAT(resultsOf({"--library", "gksensors"}),
              testing::AllOf(testing::HasSubstr("GKSonar"),
                             testing::Not(testing::HasSubstr("Echo.onEvent"))));
  EXPECT_THAT(resultsOf({"--library", "+gksensors"}),
              testing::AllOf(testing::HasSubstr("GKSonar"), testing::HasSubstr("Echo.onEvent")));
}

TEST(SeveralLibraries, OneBeforeOursGetsEventsThatOursDeclaresLater) {
  EXPECT_THAT(linesOf({"--library", library("Echo"), "--library", "gksensors"}, kWall),
              testing::HasSubstr("\"Echo\""));
}

TEST(Recording, IsRepeatedWithItsLibrariesAndSettings) {
  const Environment folders("GK_LIBRARY_PATH", GK_TEST_LIBRARIES);
  const TemporaryFolder folder;
  const std::string recording = folder.file("run.mcap");
  const ProgramResult run = runGk({"run", "--speed", "max", "--until", "2", "--library", "+Echo",
                                   "--setting", "Echo/Value=0.25", "--record", recording, kWall});
  ASSERT_EQ(run.code, 0) << run.err;
  const std::string repeated = linesOf({}, recording);
  EXPECT_THAT(repeated, testing::HasSubstr("\"name\":\"Echo\",\"value\":0.25"));
  EXPECT_THAT(repeated, testing::HasSubstr("\"SonarLeftDetected\""));
  EXPECT_THAT(linesOf({"--setting", "Echo/Value=7"}, recording),
              testing::HasSubstr("\"name\":\"Echo\",\"value\":7"));
  // What it did is missed then.
  const ProgramResult other =
      runGk({"replay", "--only", "event", "--out", "-", "--library", "gksensors", recording});
  EXPECT_EQ(other.code, 1);
  EXPECT_THAT(other.out, testing::Not(testing::HasSubstr("\"Echo\"")));
}

TEST(Watch, ReplaysAnewWhenAFileOrALibraryChanges) {
  const TemporaryFolder folder;
  const std::string input = folder.file("s.jsonl");
  const std::string mine = folder.file("libmine.so");
  const auto replaceMine = [&folder, &mine](const std::string& name) {
    std::filesystem::copy_file(library(name), folder.file("new.so"));
    std::filesystem::rename(folder.file("new.so"), mine);
  };
  replaceMine("Echo");
  gk::test::writeFile(input, "{\"t\": 0, \"get\": [\"first\"]}\n");
  gk::test::Program sut({"/usr/bin/env", "--default-signal=INT", GK_PROGRAM, "replay", "--watch",
                         "--out", "-", "--only", "value,result,error", "--library", mine, input});
  const auto runsUntil = [&sut](const std::string& text) {
    sut.runUntil([&] { return sut.outSoFar().find(text) != std::string::npos; });
  };
  runsUntil("\"first\"");
  gk::test::writeFile(input, "{\"t\": 0, \"get\": [\"second\"]}\n");
  runsUntil("\"second\"");
  EXPECT_THAT(sut.errSoFar(), testing::HasSubstr("gk: s.jsonl changed\n"));
  gk::test::writeFile(input, "{\"t\": 0, \"call\": \"Listener.getCount\"}\n");
  runsUntil("\"kind\":\"error\"");
  replaceMine("Listener");
  runsUntil("\"call\":\"Listener.getCount\",\"value\":0");
  EXPECT_THAT(sut.errSoFar(), testing::HasSubstr("gk: libmine.so changed\n"));
  kill(sut.pid(), SIGINT);
  EXPECT_EQ(sut.wait().code, 128 + SIGINT);
}

TEST(Config, GivesOptionsThatTheCommandLineReplaces) {
  const TemporaryFolder folder;
  const std::string config = folder.file("gk.conf");
  gk::test::writeFile(config, "# of a test\n"
                              "library = [\"" +
                                  library("Echo") +
                                  "\", \"gksensors\"]\n"
                                  "only = \"event\"\n"
                                  "until = 2.5\n"
                                  "realtime = true\n"
                                  "listen = \"127.0.0.1:0\"\n"
                                  "[settings]\n"
                                  "\"Echo/Value\" = 3\n");
  const auto outOf = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"replay", "--config", config, "--out", "-"});
    more.push_back(kWall);
    const ProgramResult result = runGk(std::move(more));
    EXPECT_EQ(result.code, 0) << result.err;
    return result.out + result.err;
  };
  EXPECT_THAT(outOf({}), testing::AllOf(testing::HasSubstr("\"Echo\",\"value\":3"),
                                        testing::Not(testing::HasSubstr("\"kind\":\"log\"")),
                                        testing::HasSubstr("2.500 s")));
  EXPECT_THAT(outOf({"--until", "2"}), testing::HasSubstr("2.000 s"));
  EXPECT_THAT(outOf({"--setting", "Echo/Value=4"}), testing::HasSubstr("\"Echo\",\"value\":4"));
  EXPECT_THAT(outOf({"--library", "gksensors"}), testing::Not(testing::HasSubstr("\"Echo\"")));

  gk::test::writeFile(config, "library = \"" + library("Echo") + "\"\n" +
                                  "[settings.Echo]\nValue = \"5\"\n");
  EXPECT_THAT(outOf({"--library", "+gksensors"}), testing::HasSubstr("\"Echo\",\"value\":5"));
}

TEST(Config, ThatIsWrongIsNamedWithWhatIsWrong) {
  const TemporaryFolder folder;
  const std::string config = folder.file("gk.conf");
  const auto errorOf = [&config](const std::string& text) {
    gk::test::writeFile(config, text);
    const ProgramResult result = runGk({"run", "--config", config, "--for", "0"});
    EXPECT_EQ(result.code, 2);
    return result.err;
  };
  EXPECT_EQ(errorOf("spede = 2\n"),
            "gk: " + config + ": gk run has no option spede; did you mean seed or speed?\n");
  EXPECT_THAT(errorOf("speed = \"fast\"\n"),
              testing::StartsWith("gk: " + config + ": --speed: fast is none of"));
  EXPECT_EQ(errorOf("loop = 3\n"), "gk: " + config + ": loop: 3 is none of true, false\n");
  EXPECT_EQ(errorOf("[run]\nspeed = 2\n"),
            "gk: " + config +
                ": there is no section [run]; options come first, and then [settings]\n");
  EXPECT_EQ(runGk({"run", "--config", folder.file("none")}).err,
            "gk: " + folder.file("none") + ": cannot be read\n");
}

TEST(PartialLibrary, WhatCameUpGoesDownInReverseOrderAndOnce) {
  const ProgramResult result = runWith(library("Partial"));
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, testing::HasSubstr("Second::init: half way"));
  EXPECT_THAT(result.out, testing::MatchesRegex("[^\n]*\"FirstIsUp\"[^\n]*\n"
                                                "[^\n]*\"SecondExits\"[^\n]*\n"
                                                "[^\n]*\"FirstExits\"[^\n]*\n"));
}

TEST(PartialLibrary, OneAfterOursLeavesOursGoingDownInOrder) {
  const ProgramResult result =
      runProgram({GK_PROGRAM, "run", "--for", "10", "--only", "event", "--out", "-", "--library",
                  GK_LIBRARY, "--library", library("ThrowsInt")});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out, testing::HasSubstr("\"BatteryLevelChanged\""));
}

TEST(StartFailure, OutputUntilThenStaysAndNothingIsPlayed) {
  const TemporaryFolder folder;
  gk::test::writeFile(folder.file("s.jsonl"), "{\"t\":0,\"get\":[\"robotPose\"]}\n");
  const std::string out = folder.file("out.jsonl");
  const ProgramResult result = runProgram({GK_PROGRAM, "replay", "--library", library("Partial"),
                                           "--out", out, folder.file("s.jsonl")});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(gk::test::readFile(out), testing::HasSubstr("\"FirstIsUp\""));
  EXPECT_THAT(gk::test::readFile(out), testing::Not(testing::HasSubstr("robotPose")));
}

} // namespace
