#include "support/Program.h"

#include <csignal>
#include <thread>

// The program as its users meet it: real time, signals, exit codes, one-line complaints.

namespace {

namespace fs = std::filesystem;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::runProgram;
using gk::test::TemporaryFolder;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kData = GK_SOURCE_DIR "/data/";

ProgramResult gk(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), GK_PROGRAM);
  return runProgram(std::move(arguments));
}

/// One line, nothing else.
MATCHER(IsOneLine, "") {
  return !arg.empty() && arg.find('\n') == arg.size() - 1;
}

TEST(Gk, HelpNamesEveryCommandAndHelpOfOneItsOptions) {
  const ProgramResult all = gk({"help"});
  EXPECT_EQ(all.code, 0);
  EXPECT_THAT(all.out, HasSubstr("run"));
  EXPECT_THAT(all.out, HasSubstr("replay"));
  EXPECT_EQ(gk({"--help"}).code, 0);
  EXPECT_THAT(gk({"help", "replay"}).out, HasSubstr("--sample"));
  EXPECT_THAT(gk({"--version"}).out, StartsWith("gk "));
}

TEST(Gk, WrongOptionsGiveOneLineAndExitCodeTwo) {
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"nonsense"},
      {"help", "nonsense"},
      {"replay"},
      {"replay", "--nonsense", kData + "feet_stand.csv"},
      {"replay", "--only", "event,nonsense", kData + "feet_stand.csv"},
      {"replay", "--without", "Nonsense", kData + "feet_stand.csv"},
      {"replay", "--epoch", "1.5", kData + "feet_stand.csv"},
      {"replay", "--until", "-1", kData + "feet_stand.csv"},
      {"replay", "--out", "/no/such/folder/out.jsonl", kData + "feet_stand.csv"},
      {"run", "--speed", "fast"},
      {"run", "--for", "-1"},
  };
  for (const auto& arguments : wrong) {
    const ProgramResult result = gk(arguments);
    EXPECT_EQ(result.code, 2) << testing::PrintToString(arguments);
    EXPECT_THAT(result.err, IsOneLine()) << testing::PrintToString(arguments);
    EXPECT_THAT(result.err, StartsWith("gk: "));
  }
}

TEST(Gk, MalformedInputLeavesAnEarlierOutputUntouched) {
  const TemporaryFolder folder;
  const std::string out = folder.file("out.jsonl");
  gk::test::writeFile(out, "earlier\n");
  gk::test::writeFile(folder.file("bad.jsonl"), "{\"t\":0,\"set\":{}}\n{\"t\":1,\"jump\":true}\n");
  const ProgramResult result = gk({"replay", "--out", out, folder.file("bad.jsonl")});
  EXPECT_EQ(result.code, 2);
  EXPECT_THAT(result.err, IsOneLine());
  EXPECT_THAT(result.err, StartsWith(folder.file("bad.jsonl") + ":2: "));
  EXPECT_EQ(gk::test::readFile(out), "earlier\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 2);
}

TEST(Gk, ARunThatSucceedsReplacesAnEarlierOutput) {
  const TemporaryFolder folder;
  const std::string out = folder.file("out.jsonl");
  gk::test::writeFile(out, "earlier\n");
  EXPECT_EQ(gk({"replay", "--out", out, kData + "feet_stand.csv"}).code, 0);
  EXPECT_THAT(gk::test::readFile(out), StartsWith("{\"t\":0,"));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
}

TEST(Gk, OutputToADeviceLeavesTheDevice) {
  EXPECT_EQ(gk({"replay", "--out", "/dev/null", kData + "feet_stand.csv"}).code, 0);
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST(Gk, AnUnreadableFileIsNamedWithExitCodeTwo) {
  const TemporaryFolder folder;
  for (const std::string& path : {folder.file("missing.csv"), folder.path().string() + "/.csv"}) {
    const ProgramResult result = gk({"replay", path});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.err, IsOneLine());
    EXPECT_THAT(result.err, StartsWith(path + ":1: "));
  }
}

TEST(Gk, AnAbsentLibraryIsNamedWithExitCodeOne) {
  const ProgramResult result = gk({"run", "--for", "1", "--library", "no-such-library.so"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, IsOneLine());
  EXPECT_THAT(result.err, StartsWith("gk: cannot load no-such-library.so: "));
}

TEST(GkRun, EndsByItselfAfterTheGivenTime) {
  const ProgramResult result = gk({"run", "--for", "0.1", "--out", "-"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("\"name\":\"LeftBumperPressed\""));
  EXPECT_THAT(result.out, EndsWith("\n"));
}

TEST(GkRun, OnTheVirtualClockATimeLimitCountsVirtualSeconds) {
  const ProgramResult result =
      gk({"run", "--speed", "max", "--until", "3600", "--loop", kData + "imu_fall_forward.csv"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.err, StartsWith("3600.000 s, 180001 ticks, "));
}

class GkRunSignal : public testing::TestWithParam<int> {};

TEST_P(GkRunSignal, EndsCleanly) {
  Program program({GK_PROGRAM, "run", "--out", "-", "--loop", kData + "us_wallrobot.csv"});
  // The first tick has come when this line is there.
  while (program.outSoFar().find("HandLeftRightTouched\",\"value\"") == std::string::npos) {
    std::this_thread::yield();
  }
  kill(program.pid(), GetParam());
  const ProgramResult result = program.wait();
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.err, IsOneLine());
  EXPECT_THAT(result.err, EndsWith(" times real time\n"));
}

INSTANTIATE_TEST_SUITE_P(Both, GkRunSignal, testing::Values(SIGINT, SIGTERM));

} // namespace
