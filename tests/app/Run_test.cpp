#include "support/Gk.h"

#include <csignal>
#include <cstring>
#include <sstream>
#include <thread>

// The program as its users meet it: real time, signals, exit codes, one-line complaints.

namespace {

namespace fs = std::filesystem;
using gk::test::kData;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::runGk;
using gk::test::TemporaryFolder;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// One line, nothing else.
MATCHER(IsOneLine, "") {
  return !arg.empty() && arg.find('\n') == arg.size() - 1;
}

TEST(Gk, HelpNamesEveryCommandAndHelpOfOneItsOptions) {
  const ProgramResult all = runGk({"help"});
  EXPECT_EQ(all.code, 0);
  EXPECT_THAT(all.out, HasSubstr("run"));
  EXPECT_THAT(all.out, HasSubstr("replay"));
  EXPECT_EQ(runGk({"--help"}).code, 0);
  EXPECT_THAT(runGk({"help", "replay"}).out, HasSubstr("--sample"));
  EXPECT_THAT(runGk({"--version"}).out, StartsWith("gk "));
}

TEST(Gk, StandardOutputHoldsTheLinesOfARunAloneWhatModulesPrintGoesToStandardError) {
  const std::string scenario =
      GK_SOURCE_DIR "/tests/scenarios/pose/refused_first_resource_call_skips_the_second.jsonl";
  const ProgramResult result = runGk({"replay", "--out", "-", scenario});

  EXPECT_EQ(result.code, 0);
  std::istringstream lines(result.out);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_THAT(line, testing::AllOf(StartsWith("{"), EndsWith("}")));
  }
  EXPECT_GT(count, 10);
  EXPECT_THAT(result.err, HasSubstr("GKResourceManager::enableStateResource: injected fault\n"));
}

TEST(Gk, WrongOptionsGiveOneLineAndExitCodeTwo) {
  const std::vector<std::vector<std::string>> wrong = {
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
      {"run", "--speed", "0"},
      {"run", "--speed", "-2"},
      {"run", "--speed", "nan"},
      {"run", "--speed", "1001"},
      {"run", "--for", "-1"},
      {"run", "--for", "nan"},
      {"run", "--seed", "-1"},
      {"run", "--seed", "18446744073709551616"},
      {"replay", "--epoch", "99999999999999999999", kData + "feet_stand.csv"},
      {"replay", "--until", "nan", kData + "feet_stand.csv"},
      {"replay", "--library", "", kData + "feet_stand.csv"},
      {"replay", "--log-file", "/proc/nowhere/log", kData + "feet_stand.csv"},
      {"replay", "-j", "0", kData + "feet_stand.csv"},
      {"run", "--ros2", "--speed", "max"},
      {"run", "--ros2", "--lockstep"},
      {"run", "--ros2", "--ros-namespace", "9lives"},
      {"run", "--ros2", "--ros-interface", "no_such0"},
      {"run", "--ros-namespace", "lab"},
      {"play", "--ros2", kData + "feet_stand.csv"},
  };
  for (const auto& arguments : wrong) {
    const ProgramResult result = runGk(arguments);
    EXPECT_EQ(result.code, 2) << testing::PrintToString(arguments);
    EXPECT_THAT(result.err, IsOneLine()) << testing::PrintToString(arguments);
    EXPECT_THAT(result.err, StartsWith("gk: "));
  }
}

TEST(Gk, AWrongValueIsToldWithItsOption) {
  const std::string file = kData + "feet_stand.csv";
  EXPECT_THAT(runGk({"run", "--for", "nan"}).err, HasSubstr("--for: nan is no number"));
  EXPECT_THAT(runGk({"top", "--count", "0"}).err, HasSubstr("--count: 0 is no number above 0"));
  EXPECT_THAT(runGk({"run", "--speed", "fast"}).err,
              HasSubstr("--speed: fast is none of real, max and numbers from 0.001 to 1000"));
  EXPECT_THAT(runGk({"run", "--seed", "-1"}).err,
              HasSubstr("--seed: -1 is no whole number from 0"));
  EXPECT_THAT(runGk({"replay", "--epoch", "99999999999999999999", file}).err,
              HasSubstr("--epoch: 99999999999999999999 is no whole number"));
  EXPECT_THAT(runGk({"replay", "--library", "", file}).err,
              HasSubstr("--library: the value is empty"));
  EXPECT_THAT(runGk({"replay", "--log-file", "/proc/nowhere/log", file}).err,
              StartsWith("gk: --log-file: "));
  EXPECT_EQ(runGk({"run", "--ros2", "--lockstep"}).err,
            "gk: --ros2 needs real time, --lockstep has none\n");
  EXPECT_THAT(runGk({"run", "--ros2", "--ros-namespace", "9lives"}).err,
              HasSubstr("--ros-namespace: a ROS namespace is made of"));
}

TEST(Gk, MalformedInputLeavesAnEarlierOutputUntouched) {
  const TemporaryFolder folder;
  const std::string out = folder.file("out.jsonl");
  gk::test::writeFile(out, "earlier\n");
  gk::test::writeFile(folder.file("bad.jsonl"), "{\"t\":0,\"set\":{}}\n{\"t\":1,\"jump\":true}\n");
  const ProgramResult result = runGk({"replay", "--out", out, folder.file("bad.jsonl")});
  EXPECT_EQ(result.code, 2);
  EXPECT_THAT(result.err, IsOneLine());
  EXPECT_THAT(result.err, StartsWith(folder.file("bad.jsonl") + ":2: "));
  EXPECT_EQ(gk::test::readFile(out), "earlier\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 2);
}

TEST(Gk, JobsReplayEachFileByItselfAsOneRunWouldAndShowALineForEach) {
  const TemporaryFolder folder;
  const std::string fall = kData + "imu_fall_forward.csv";
  const std::string feet = kData + "feet_stand.csv";
  const ProgramResult jobs = runGk({"replay", "-j", "2", "--out", folder.path(), fall, feet});
  EXPECT_EQ(jobs.code, 0) << jobs.err;
  EXPECT_THAT(jobs.out, HasSubstr(fall + ": 15.000 s, 751 ticks, "));
  EXPECT_THAT(jobs.out, HasSubstr(feet + ": 60.000 s, 3001 ticks, "));
  EXPECT_EQ(std::count(jobs.out.begin(), jobs.out.end(), '\n'), 2);
  for (const std::string& file : {fall, feet}) {
    const std::string output = folder.file(fs::path(file).filename().string() + ".jsonl");
    EXPECT_EQ(gk::test::readFile(output), runGk({"replay", "--out", "-", file}).out);
  }
}

TEST(Gk, JobsGoOnAfterAMalformedFileAndEndWithItsExitCode) {
  const TemporaryFolder folder;
  gk::test::writeFile(folder.file("bad.csv"), "time,a\n0,x\n");
  const std::string good = kData + "feet_stand.csv";
  const ProgramResult jobs = runGk({"replay", "-j", "1", folder.file("bad.csv"), good});
  EXPECT_EQ(jobs.code, 2);
  EXPECT_THAT(jobs.out,
              StartsWith(folder.file("bad.csv") + ": " + folder.file("bad.csv") + ":2: "));
  EXPECT_THAT(jobs.out, HasSubstr(good + ": 60.000 s"));
}

TEST(Gk, JobsNeedAFolderAndDistinctNamesForTheirOutput) {
  const TemporaryFolder folder;
  const std::string file = kData + "feet_stand.csv";
  const ProgramResult noFolder = runGk({"replay", "-j", "2", "--out", "no/folder", file});
  EXPECT_EQ(noFolder.code, 2);
  EXPECT_THAT(noFolder.err, IsOneLine());
  const ProgramResult same = runGk({"replay", "-j", "2", "--out", folder.path(), file, file});
  EXPECT_EQ(same.code, 2);
  EXPECT_THAT(same.err, HasSubstr("feet_stand.csv"));
}

TEST(Gk, RealtimeRunsOrSaysInOneLineWhatIsNotPermitted) {
  const ProgramResult result = runGk({"run", "--realtime", "--no-listen", "--for", "3"});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, HasSubstr("GKSensors: "));
  for (std::size_t at = 0; (at = result.err.find("gk: ", at)) != std::string::npos; ++at) {
    EXPECT_THAT(result.err.substr(at), StartsWith("gk: --realtime: "));
  }
}

TEST(Gk, ARunInRealTimeEndsWithTheFiguresOfItsLoop) {
  const ProgramResult result = runGk({"run", "--for", "0.3", kData + "feet_stand.csv"});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, HasSubstr("GKSensors: "));
  EXPECT_THAT(result.err, testing::ContainsRegex(
                              "GKSensors: [0-9]+ ticks, [0-9]+ of them longer than the pause "
                              "after them\n"
                              "  worked      half within [0-9.]+ m?s, 99 % within "
                              "[0-9.]+ m?s, 99.9 % within [0-9.]+ m?s, longest [0-9.]+ m?s\n"
                              "  began late  half within "));
}

TEST(Gk, ARunThatSucceedsReplacesAnEarlierOutput) {
  const TemporaryFolder folder;
  const std::string out = folder.file("out.jsonl");
  gk::test::writeFile(out, "earlier\n");
  EXPECT_EQ(runGk({"replay", "--out", out, kData + "feet_stand.csv"}).code, 0);
  EXPECT_THAT(gk::test::readFile(out), StartsWith("{\"t\":0,"));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
}

TEST(Gk, OutputToADeviceLeavesTheDevice) {
  EXPECT_EQ(runGk({"replay", "--out", "/dev/null", kData + "feet_stand.csv"}).code, 0);
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST(Gk, AnUnreadableFileIsNamedWithExitCodeTwo) {
  const TemporaryFolder folder;
  for (const std::string& path : {folder.file("missing.csv"), folder.path().string() + "/.csv"}) {
    const ProgramResult result = runGk({"replay", path});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.err, IsOneLine());
    EXPECT_THAT(result.err, StartsWith(path + ": cannot be read: "));
  }
}

TEST(Gk, AnAbsentLibraryIsNamedWithExitCodeOne) {
  const ProgramResult result = runGk({"run", "--for", "1", "--library", "no-such-library.so"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, IsOneLine());
  EXPECT_THAT(result.err, StartsWith("gk: cannot load no-such-library.so: "));
}

TEST(GkRun, EndsByItselfAfterTheGivenTime) {
  const ProgramResult result = runGk({"run", "--robot", "none", "--for", "0.1", "--out", "-"});
  EXPECT_EQ(result.code, 0) << result.err;
  // The start comes first, however much of the time it takes.
  EXPECT_THAT(result.out, HasSubstr(R"("kind":"declare","event":"LeftBumperPressed")"));
  EXPECT_THAT(result.out, EndsWith("\n"));
}

TEST(GkRun, OnTheVirtualClockATimeLimitCountsVirtualSeconds) {
  const ProgramResult result =
      runGk({"run", "--speed", "max", "--until", "3600", "--loop", kData + "imu_fall_forward.csv"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.err, StartsWith("3600.000 s, 180001 ticks, "));
}

class GkRunSignal : public testing::TestWithParam<int> {
protected:
  GkRunSignal() {
    // The first tick has come when this line is there.
    fProgram.runUntil([this] {
      return fProgram.outSoFar().find("HandLeftRightTouched\",\"value\"") != std::string::npos;
    });
  }

  Program fProgram{{GK_PROGRAM, "run", "--out", "-", "--loop", kData + "us_wallrobot.csv"}};
};

TEST_P(GkRunSignal, EndsCleanly) {
  kill(fProgram.pid(), GetParam());
  const ProgramResult result = fProgram.wait();
  EXPECT_EQ(result.code, 0) << result.err;
  // Who ended it, its figures and no complaint.
  EXPECT_THAT(result.err, HasSubstr("\nended by SIG" + std::string(sigabbrev_np(GetParam())) +
                                    " (process " + std::to_string(getpid()) + ")\n"));
  EXPECT_THAT(result.err, HasSubstr(" times real time\n"));
  EXPECT_THAT(result.err, Not(HasSubstr("gk: ")));
}

TEST_P(GkRunSignal, EndsCleanlyWhenOneWishComesSeveralTimes) {
  for (int i = 0; i < 20; ++i) {
    kill(fProgram.pid(), GetParam());
    std::this_thread::yield();
  }
  const ProgramResult result = fProgram.wait();
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr(" times real time\n"));
}

INSTANTIATE_TEST_SUITE_P(Each, GkRunSignal, testing::Values(SIGINT, SIGTERM, SIGHUP));

} // namespace
