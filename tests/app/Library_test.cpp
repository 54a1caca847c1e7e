#include "support/Program.h"

// Libraries that cannot be loaded: one line that names the file and the reason, exit code 1, and
// whatever had come up goes down in order.

namespace {

using gk::test::ProgramResult;
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
    testing::Values(Failure{library("NoEntry"), "it has no entry _createModule"},
                    Failure{library("ThrowsGKError"), "Broken::_createModule: this one refuses"},
                    Failure{library("ThrowsException"), "this one is illogical"},
                    Failure{library("ThrowsInt"),
                            "_createModule threw something that is no exception class"},
                    Failure{library("ReturnsSeven"), "_createModule returned 7"},
                    Failure{GK_SOURCE_DIR "/README.md", "invalid ELF header"},
                    Failure{"no/such/library.so",
                            "cannot open shared object file: No such file or directory"}));

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
