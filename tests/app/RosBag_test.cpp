#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

// What other programs read in a bag is tested with them, in tests/mcap.

namespace {

namespace fs = std::filesystem;
using gk::test::kData;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runGk;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class RosBag : public testing::Test {
protected:
  std::string file(const std::string& name) const { return fFolder.file(name); }

  std::vector<std::string> names(const std::string& folder) const {
    std::vector<std::string> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
      found.push_back(entry.path().filename().string());
    }
    return found;
  }

  static ProgramResult convert(const std::string& from, const std::string& to,
                               std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {"recording", "convert", from, to, "--to", "ros2"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runGk(arguments);
  }

  const TemporaryFolder fFolder;
};

TEST_F(RosBag, IsARecordingThatIsAsItShouldBe) {
  const ProgramResult made = convert(kData + "imu_fall_forward.csv", file("fall"));
  EXPECT_EQ(made.code, 0);
  EXPECT_THAT(made.out, HasSubstr("/fall: "));
  EXPECT_THAT(names(file("fall")), UnorderedElementsAre("metadata.yaml", "fall_0.mcap"));
  const ProgramResult verified = runGk({"recording", "verify", file("fall/fall_0.mcap")});
  EXPECT_EQ(verified.code, 0);
  EXPECT_THAT(verified.out, HasSubstr(" 0 problems"));
}

TEST_F(RosBag, OfTheSameRecordingIsTheSame) {
  fs::create_directory(file("a"));
  fs::create_directory(file("b"));
  convert(kData + "feet_stand.csv", file("a/run"));
  convert(kData + "feet_stand.csv", file("b/run"));
  EXPECT_TRUE(readFile(file("a/run/run_0.mcap")) == readFile(file("b/run/run_0.mcap")));
  EXPECT_EQ(readFile(file("a/run/metadata.yaml")), readFile(file("b/run/metadata.yaml")));
}

TEST_F(RosBag, NeedsANewFolder) {
  fs::create_directory(file("old"));
  const ProgramResult exists = convert(kData + "feet_stand.csv", file("old"));
  EXPECT_EQ(exists.code, 1);
  EXPECT_THAT(exists.err, HasSubstr("old exists already; "));
  const ProgramResult over = convert(kData + "feet_stand.csv", file("old"), {"--overwrite"});
  EXPECT_EQ(over.code, 2);
  EXPECT_THAT(over.err, HasSubstr("--overwrite replaces files"));
  EXPECT_THAT(names(file("old")), IsEmpty());
}

TEST_F(RosBag, OfBadInputNothingIsMade) {
  writeFile(file("bad.csv"), "time,Device/SubDeviceList/US/Left/Sensor/Value\n0,1\n1,x\n");
  const ProgramResult bad = convert(file("bad.csv"), file("bag"));
  EXPECT_EQ(bad.code, 2);
  EXPECT_THAT(bad.err, HasSubstr("bad.csv:3: "));
  EXPECT_EQ(convert(file("missing.mcap"), file("bag")).code, 2);
  EXPECT_THAT(names(fFolder.path()), UnorderedElementsAre("bad.csv"));
}

TEST_F(RosBag, OtherKindsAreRefused) {
  const ProgramResult other =
      runGk({"recording", "convert", kData + "feet_stand.csv", file("bag"), "--to", "ros1"});
  EXPECT_EQ(other.code, 2);
  EXPECT_THAT(other.err, HasSubstr("--to"));
}

} // namespace
