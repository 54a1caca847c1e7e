#include "support/Gk.h"
#include "support/RunningHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

// `gk record`: a running host's messages in a file.

namespace {

using gk::test::kTouch;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runGk;
using gk::test::RunningHost;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class RecordStream : public testing::Test {
protected:
  /// Touches the robot until the recording, which is flushed in between, shows it.
  void touchUntilSeen(const RunningHost& host) {
    for (int i = 0; cat().find("FrontTactilTouched") == std::string::npos; ++i) {
      ASSERT_EQ(host.gk({"set", kTouch, std::to_string(i % 2)}).code, 0);
    }
  }

  std::string cat(std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"recording", "cat", fFile});
    return std::filesystem::exists(fFile) ? runGk(options).out : std::string();
  }

  const TemporaryFolder fFolder;
  const std::string fFile = fFolder.file("night.mcap");
};

TEST_F(RecordStream, WhatAHostTellsIsOnTheDiskWhileItGoesOnAndWholeAtTheEnd) {
  const RunningHost host;
  Program record({GK_PROGRAM, "record", fFile, "--host", host.address()});
  touchUntilSeen(host);
  kill(record.pid(), SIGINT);
  const ProgramResult result = record.wait();
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.err, ContainsRegex("recorded .*night.mcap: [0-9]+ messages, [0-9]+ bytes\n"));
  EXPECT_EQ(runGk({"recording", "verify", fFile}).code, 0);
  EXPECT_THAT(runGk({"recording", "info", fFile}).out,
              AllOf(HasSubstr("/events"), HasSubstr("/event/FrontTactilTouched"),
                    HasSubstr("/joint_states"), HasSubstr(host.address()),
                    Not(HasSubstr("/ros2/"))));
  EXPECT_THAT(cat({"--topic", "/events"}),
              AllOf(HasSubstr(R"("name":"FrontTactilTouched")"), Not(HasSubstr("/joint_states"))));
}

/// Where the text beside a name begins in its line.
std::size_t columnBeside(const std::string& text, const std::string& name) {
  const std::size_t line = text.find("\n  " + name + " ") + 1;
  return text.find_first_not_of(' ', line + 2 + name.size()) - line;
}

TEST_F(RecordStream, InfoKeepsItsColumnsHoweverLongTheNamesAre) {
  const RunningHost host;
  Program record({GK_PROGRAM, "record", fFile, "--host", host.address()});
  touchUntilSeen(host);
  kill(record.pid(), SIGTERM);
  EXPECT_EQ(record.wait().code, 0);
  const std::string info = runGk({"recording", "info", fFile}).out;
  ASSERT_THAT(info, HasSubstr("\n  gk.stream.version "));
  EXPECT_EQ(columnBeside(info, "chunks"), columnBeside(info, "gk.stream.version")) << info;
}

TEST_F(RecordStream, OnlyTheTopicsThatAreAskedForAreKept) {
  const RunningHost host;
  Program record({GK_PROGRAM, "record", fFile, "--topic", "/event/Front*", "--json", "--host",
                  host.address()});
  touchUntilSeen(host);
  kill(record.pid(), SIGTERM);
  const ProgramResult result = record.wait();
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.out, AllOf(StartsWith(R"({"file":")" + fFile), HasSubstr(R"("messages":)")));
  const std::string info = runGk({"recording", "info", fFile}).out;
  EXPECT_THAT(info, AllOf(HasSubstr("/event/FrontTactilTouched"), Not(HasSubstr("/joint_states")),
                          Not(HasSubstr("/events"))));
}

TEST_F(RecordStream, RosMessagesAreKeptWhereTheyAreAskedFor) {
  const RunningHost host;
  Program record({GK_PROGRAM, "record", fFile, "--topic", "/ros2/touch/*", "--topic", "/event/*",
                  "--host", host.address()});
  touchUntilSeen(host);
  kill(record.pid(), SIGTERM);
  EXPECT_EQ(record.wait().code, 0);
  EXPECT_EQ(runGk({"recording", "verify", fFile}).code, 0);
  EXPECT_THAT(runGk({"recording", "info", fFile}).out,
              AllOf(HasSubstr("/ros2/touch/head_front"), Not(HasSubstr("/ros2/joint_states"))));
}

TEST_F(RecordStream, TheRecordingIsCompleteWhenTheHostEnds) {
  RunningHost host;
  Program record({GK_PROGRAM, "record", fFile, "--host", host.address()});
  touchUntilSeen(host);
  kill(host.program().pid(), SIGINT);
  EXPECT_EQ(host.program().wait().code, 0);
  const ProgramResult result = record.wait();
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, AllOf(HasSubstr("recorded "), EndsWith("gk: the host has ended\n")));
  EXPECT_EQ(runGk({"recording", "verify", fFile}).code, 0);
}

TEST_F(RecordStream, AnOldRecordingSurvivesAHostThatIsNotThere) {
  writeFile(fFile, "old");
  // Nobody listens at a port of which the number is one.
  const ProgramResult result = runGk({"record", fFile, "--overwrite", "--host", "127.0.0.1:1"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, StartsWith("gk: no host answers at 127.0.0.1:1"));
  EXPECT_EQ(readFile(fFile), "old");
}

TEST_F(RecordStream, AnOldRecordingIsReplacedOnlyOnRequest) {
  writeFile(fFile, "old");
  const RunningHost host;
  const ProgramResult refused = host.gk({"record", fFile, "--for", "0.2"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err, "gk: " + fFile + " exists already; " + fFolder.file("night-2.mcap") +
                             " is free, --overwrite replaces it\n");
  EXPECT_EQ(readFile(fFile), "old");
  EXPECT_EQ(host.gk({"record", fFile, "--for", "0.2", "--overwrite"}).code, 0);
  EXPECT_EQ(runGk({"recording", "verify", fFile}).code, 0);
}

TEST_F(RecordStream, AFileThatCannotBeWrittenIsNamed) {
  const RunningHost host;
  const std::string file = fFolder.file("nowhere/night.mcap");
  const ProgramResult result = host.gk({"record", file});
  EXPECT_EQ(result.code, 2);
  EXPECT_THAT(result.err, AllOf(StartsWith("gk: "), HasSubstr(file)));
  EXPECT_EQ(std::ranges::count(result.err, '\n'), 1);
  const ProgramResult misnamed = host.gk({"record", fFolder.file("night.csv")});
  EXPECT_EQ(misnamed.code, 2);
  EXPECT_THAT(misnamed.err, HasSubstr("night.csv does not end in .mcap"));
}

TEST_F(RecordStream, ItEndsByItselfAfterTheGivenTime) {
  const RunningHost host;
  const ProgramResult result = host.gk({"record", fFile, "--for", "0.5"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(runGk({"recording", "verify", fFile}).code, 0);
}

} // namespace
