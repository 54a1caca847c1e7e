#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

// gk replay --columns: what a user sees of it.

namespace {

namespace fs = std::filesystem;
using gk::test::kData;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runGk;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::HasSubstr;

struct Columns : testing::Test {
  ProgramResult replay(const std::string& file, const std::string& keys) const {
    return runGk({"replay", "-q", file, "--sample", keys, "--columns", table});
  }

  const TemporaryFolder folder;
  const std::string table = folder.file("table.npy");
};

TEST_F(Columns, HaveARowForEachTickBesideOtherOutput) {
  const std::string lines = folder.file("lines.jsonl");
  const ProgramResult result = runGk({"replay", kData + "feet_stand.csv", "--sample", "robotPose",
                                      "--columns", table, "--out", lines, "--only", "sample"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(readFile(table), HasSubstr("('robotPose', '<f4'), ], 'fortran_order': False, "
                                         "'shape': (3001,)"));
  EXPECT_EQ(std::ranges::count(readFile(lines), '\n'), 3001);
}

TEST_F(Columns, AreThinnedAsSamplesAre) {
  EXPECT_EQ(runGk({"replay", "-q", kData + "feet_stand.csv", "--sample", "robotPose", "--from", "1",
                   "--count", "7", "--columns", table})
                .code,
            0);
  EXPECT_THAT(readFile(table), HasSubstr("'shape': (7,)"));
}

TEST_F(Columns, OfATextAreAFailureWithItsKeyThatLeavesNothing) {
  const ProgramResult result = replay(kData + "feet_stand.csv", "robotPoseChanged");
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot write " + table +
                                    ": at 0.000 s robotPoseChanged is no number but: string"));
  EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(Columns, OfMalformedInputAreNotThere) {
  const std::string bad = folder.file("bad.csv");
  writeFile(bad, "time,Motion/IsStand\n0,1\n1,x\n");
  EXPECT_EQ(replay(bad, "robotPose").code, 2);
  EXPECT_FALSE(fs::exists(table));
}

TEST_F(Columns, NeverReplaceAnInput) {
  const std::string input = folder.file("in.csv");
  fs::copy_file(kData + "feet_stand.csv", input);
  fs::create_hard_link(input, table);
  const ProgramResult result = replay(input, "robotPose");
  EXPECT_EQ(result.code, 2);
  EXPECT_THAT(result.err, HasSubstr("it is the file being read"));
  EXPECT_EQ(readFile(input), readFile(kData + "feet_stand.csv"));
}

TEST_F(Columns, NeedKeysAndOneRun) {
  const std::string input = kData + "feet_stand.csv";
  const ProgramResult keyless = runGk({"replay", input, "--columns", table});
  EXPECT_EQ(keyless.code, 2);
  EXPECT_EQ(keyless.err, "gk: --columns: needs --sample, which names the keys\n");
  const ProgramResult jobs =
      runGk({"replay", "-j", "2", input, "--sample", "robotPose", "--columns", table});
  EXPECT_EQ(jobs.code, 2);
  EXPECT_THAT(jobs.err, HasSubstr("--columns: is of one run"));
  EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(Columns, TakeTheKeysThatAFileNames) {
  const std::string input = folder.file("run.jsonl");
  writeFile(input, "{\"options\": [\"--sample\", \"robotPose\"]}\n{\"t\": 0.1, \"end\": true}\n");
  EXPECT_EQ(runGk({"replay", "-q", input, "--columns", table}).code, 0);
  EXPECT_THAT(readFile(table), HasSubstr("('robotPose', '<f4')"));
}

} // namespace
