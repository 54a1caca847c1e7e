#include "support/Gk.h"
#include "support/RunningHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>

// No file is lost, nothing is left behind, and no error of writing goes unsaid.

namespace {

namespace fs = std::filesystem;
using gk::test::kData;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runGk;
using gk::test::RunningHost;
using gk::test::runProgram;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string kFull = "standard output: No space left on device\n";

/// A line for the shell in which "gk" is the program.
std::vector<std::string> shell(const std::string& line) {
  return {"/bin/sh", "-c", "gk() { exec " GK_PROGRAM " \"$@\"; }; " + line};
}

class Files : public testing::Test {
protected:
  std::string file(const std::string& name) const { return fFolder.file(name); }

  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(fFolder.path())) {
      found.push_back(entry.path().filename().string());
    }
    return found;
  }

  const TemporaryFolder fFolder;
};

TEST_F(Files, AnInputIsNeverWrittenOver) {
  const std::string in = file("in.csv");
  fs::copy_file(kData + "feet_stand.csv", in);
  fs::create_symlink("in.csv", file("link.csv"));
  fs::create_hard_link(in, file("hard.csv"));
  const std::string before = readFile(in);
  for (const std::string& name : {in, file("link.csv"), file("hard.csv"), file("./in.csv")}) {
    for (const std::string option : {"--out", "--report", "--log-file"}) {
      const ProgramResult result = runGk({"replay", in, option, name});
      EXPECT_EQ(result.code, 2) << option << " " << name;
      EXPECT_THAT(result.err, HasSubstr("it is the file being read"));
    }
    EXPECT_EQ(runGk({"recording", "convert", in, name}).code, 2);
  }
  EXPECT_EQ(readFile(in), before);
}

TEST_F(Files, ARecordingIsNeitherReplacedByItsReplayNorByItsRecovery) {
  const std::string run = file("run.mcap");
  ASSERT_EQ(runGk({"run", "--speed", "max", "--until", "2", "--record", run}).code, 0);
  const std::string before = readFile(run);
  EXPECT_EQ(runGk({"replay", run, "--out", run}).code, 2);
  EXPECT_EQ(runGk({"replay", run, "--report", run}).code, 2);
  EXPECT_EQ(
      runGk({"run", run, "--speed", "max", "--until", "1", "--record", run, "--overwrite"}).code,
      2);
  EXPECT_EQ(runGk({"recording", "recover", run, run, "--overwrite"}).code, 2);
  EXPECT_EQ(readFile(run), before);
}

TEST_F(Files, AnEarlierRecordingIsRefusedWithTheNextFreeNameAndReplacedOnRequest) {
  const std::string run = file("run.mcap");
  writeFile(run, "earlier");
  const std::vector<std::string> record = {"run", "--speed",  "max", "--until",
                                           "1",   "--record", run};
  const ProgramResult refused = runGk(record);
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err, "gk: " + run + " exists already; " + file("run-2.mcap") +
                             " is free, --overwrite replaces it\n");
  EXPECT_EQ(readFile(run), "earlier");
  std::vector<std::string> overwrite = record;
  overwrite.emplace_back("--overwrite");
  EXPECT_EQ(runGk(overwrite).code, 0);
  EXPECT_EQ(runGk({"recording", "verify", run}).code, 0);
  EXPECT_EQ(runGk({"recording", "recover", run, run + "-2.mcap"}).code, 0);
  EXPECT_EQ(runGk({"recording", "recover", run, run + "-2.mcap"}).code, 1);
}

TEST_F(Files, PartsOfAnEarlierRecordingThatAreLeftAreNamed) {
  const std::string run = file("run.mcap");
  for (const char* part : {"run-002.mcap", "run-003.mcap", "run-005.mcap"}) {
    writeFile(file(part), "earlier");
  }
  const std::vector<std::string> record = {"run",   "--speed",    "max", "--until",
                                           "1",     "--record",   run,   "--record-split",
                                           "10min", "--overwrite"};
  const ProgramResult result = runGk(record);
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err,
              HasSubstr("recorded " + file("run-001.mcap") + "\ngk: " + file("run-002.mcap") +
                        ", " + file("run-003.mcap") + " are of an earlier recording\n"));
  EXPECT_EQ(readFile(file("run-002.mcap")), "earlier");
}

TEST_F(Files, AStartThatFailsReplacesNothingAndLeavesNothing) {
  const std::string run = file("run.mcap");
  writeFile(run, "earlier");
  const ProgramResult result =
      runGk({"run", "--for", "1", "--record", run, "--overwrite", "--library", "no-such.so"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(readFile(run), "earlier");
  EXPECT_EQ(
      runGk({"run", "--for", "1", "--record", file("b.mcap"), "--library", "no-such.so"}).code, 1);
  EXPECT_THAT(names(), testing::ElementsAre("run.mcap"));
}

TEST_F(Files, ARecordingThatIsBeingWrittenIsNotReplaced) {
  const std::string run = file("run.mcap");
  RunningHost host({"--robot", "none", "--record", run});
  const ProgramResult second =
      runGk({"run", "--no-listen", "--for", "1", "--record", run, "--overwrite"});
  EXPECT_EQ(second.code, 1);
  EXPECT_EQ(second.err, "gk: cannot write " + run + ": it is being written by another program\n");
  kill(host.program().pid(), SIGINT);
  EXPECT_EQ(host.program().wait().code, 0);
  EXPECT_EQ(runGk({"recording", "verify", run}).code, 0);
}

class FilesSignal : public Files, public testing::WithParamInterface<int> {};

TEST_P(FilesSignal, LeavesNothingOfAnUnfinishedOutput) {
  Program program({GK_PROGRAM, "replay", "--until", "1000000000", "--out", file("out.jsonl"),
                   "--report", file("report.html"), kData + "feet_stand.csv"});
  program.runUntil([this] { return names().size() >= 2; });
  kill(program.pid(), GetParam());
  EXPECT_EQ(program.wait().code, 128 + GetParam());
  EXPECT_THAT(names(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Each, FilesSignal, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_F(Files, AFullStandardOutputIsALineAndAFailure) {
  const std::string run = file("run.mcap");
  ASSERT_EQ(runGk({"run", "--speed", "max", "--until", "5", "--record", run}).code, 0);
  const std::vector<std::string> commands = {"replay --out - " + kData + "feet_stand.csv",
                                             "replay " + kData + "feet_stand.csv",
                                             "run --no-listen --for 0.3 --out -",
                                             "recording cat " + run,
                                             "recording info " + run,
                                             "help run",
                                             "run --keys"};
  for (const std::string& command : commands) {
    const ProgramResult result = runProgram(shell("gk " + command + " > /dev/full"));
    EXPECT_EQ(result.code, 1) << command;
    EXPECT_THAT(result.err, HasSubstr("gk: cannot write " + kFull)) << command;
  }
}

TEST_F(Files, AFullDiskUnderAReportIsToldAsSuch) {
  fs::create_symlink("/dev/full", file("report.html"));
  const ProgramResult result =
      runGk({"replay", "--report", file("report.html"), kData + "feet_stand.csv"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr("report.html: No space left on device\n"));
}

TEST_F(Files, WhatTheLauncherHasClosedIsNotMistakenForAFile) {
  const std::string run = file("run.mcap");
  for (const std::string closed : {">&-", "2>&-", "<&-", ">&- 2>&-", "<&- >&- 2>&-"}) {
    SCOPED_TRACE(closed);
    const std::string line =
        "gk run --no-listen --for 0.3 --record " + run + " --overwrite " + closed;
    EXPECT_EQ(runProgram(shell(line)).code, 0);
    EXPECT_EQ(runGk({"recording", "verify", run}).code, 0);
    EXPECT_EQ(runProgram(shell("gk replay --out " + file("out") + " " + run + " " + closed)).code,
              0);
    EXPECT_THAT(readFile(file("out")), StartsWith("{\"t\":0,"));
  }
}

TEST_F(Files, AReaderThatGoesAwayEndsTheOutputAndNotTheHost) {
  const std::string run = file("run.mcap");
  const ProgramResult result =
      runProgram({"/bin/sh", "-c",
                  "(" GK_PROGRAM " run --no-listen --for 1 --out - --sample "
                  "Device/SubDeviceList/US/Left/Sensor/Value --record " +
                      run + "; echo $? > " + file("code") + ") | head -n 1"});
  EXPECT_EQ(readFile(file("code")), "1\n");
  EXPECT_THAT(result.err, HasSubstr("gk: cannot write standard output: Broken pipe\n"));
  EXPECT_EQ(runGk({"recording", "verify", run}).code, 0);
  EXPECT_THAT(runGk({"recording", "info", run}).out,
              testing::ContainsRegex("length +(1\\.|0\\.9)"));
}

/// Whether a program ends within a time in which one that hangs does not.
bool endsSoon(const Program& program) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  while (!program.hasEnded() && std::chrono::steady_clock::now() < limit) {
    std::this_thread::yield();
  }
  return program.hasEnded();
}

class FilesReader : public Files, public testing::WithParamInterface<const char*> {};

TEST_P(FilesReader, ThatDoesNotReadKeepsNoHostFromEnding) {
  const std::string fifo = file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  // It is full from the beginning.
  const int reader = open(fifo.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
  fcntl(reader, F_SETPIPE_SZ, 4096);
  const std::string page(4096, '\n');
  ASSERT_EQ(write(reader, page.data(), page.size()), 4096);
  const std::string run = file("run.mcap");
  Program program(shell("gk run --no-listen --speed " + std::string(GetParam()) + " --record " +
                        run + " --out - > " + fifo));
  // The recording tells that there are lines.
  const auto size = [&run] {
    std::error_code error;
    const std::uintmax_t bytes = fs::file_size(run, error);
    return error ? 0 : bytes;
  };
  constexpr std::uintmax_t onlyBegun = 1000;
  program.runUntil([&] { return size() >= onlyBegun; });
  kill(program.pid(), SIGTERM);
  ASSERT_TRUE(endsSoon(program));
  const ProgramResult result = program.wait();
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err,
              HasSubstr("gk: cannot write standard output: its reader does not read\n"));
  close(reader);
}

INSTANTIATE_TEST_SUITE_P(InEachTime, FilesReader, testing::Values("real", "max"));

TEST_F(Files, AFullDiskUnderARecordingIsToldAtOnceAndFoundByTheDoctor) {
  // Room for a file's beginning and for no more.
  Program program(shell("ulimit -f 4; gk run --listen 127.0.0.1:0 --record " + file("run.mcap") +
                        " > /dev/null"));
  constexpr std::string_view before = "listening at http://";
  std::string text;
  program.runUntil([&] {
    text = program.errSoFar();
    return text.find("File too large") != std::string::npos &&
           text.find(before) != std::string::npos;
  });
  const std::size_t place = text.find(before) + before.size();
  const std::string address = text.substr(place, text.find('/', place) - place);
  EXPECT_THAT(runGk({"doctor", "--host", address}).out,
              HasSubstr("NO  the run is recorded: cannot write " + file("run.mcap")));
  kill(program.pid(), SIGTERM);
  EXPECT_EQ(program.wait().code, 1);
  EXPECT_THAT(names(), testing::ElementsAre("run.mcap"));
}

TEST_F(Files, ARecordingThatMayNotGrowGoesOnInPartsThatAreRepeatedTogether) {
  // Blocks of 512 bytes.
  const ProgramResult run =
      runProgram(shell("ulimit -f 48; gk run --no-listen --for 5 --record " + file("run.mcap")));
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.err, AllOf(HasSubstr("gk: cannot write " + file("run.mcap") + ": File too large"),
                             HasSubstr("gk: the recording goes on in " + file("run-002.mcap"))));
  const ProgramResult replay =
      runGk({"replay", "--out", "-", file("run.mcap"), file("run-002.mcap")});
  EXPECT_EQ(replay.code, 1);
  EXPECT_THAT(replay.err, HasSubstr("blocks of the recorded run are missing"));
}

} // namespace
