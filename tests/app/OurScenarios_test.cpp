#include "formats/recording/TestFile.h"
#include "support/Gk.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

// `gk test` runs our own scenarios and recordings (the tests `Scenarios.*`). Here it is seen that
// it passes none of them over, and that a run says nothing odd that none of them speaks of.

namespace {

namespace fs = std::filesystem;
using gk::test::runGk;

const fs::path kTests = fs::path(GK_SOURCE_DIR) / "tests";

/// The inputs of both folders, sorted.
std::vector<std::string> inputs() {
  std::vector<std::string> files;
  for (const char* folder : {"recordings", "scenarios"}) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(kTests / folder)) {
      if (gk::formats::isInputName(entry.path().string())) {
        files.push_back(entry.path().string());
      }
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

/// What the file, or the one beside it, wants for its run.
gk::formats::FileOptions optionsOf(const std::string& input) {
  if (gk::formats::isScenarioName(input)) {
    if (const auto options = gk::formats::readTestFile(input, false).options) {
      return *options;
    }
  }
  const std::string beside = gk::formats::companionOf(input);
  return fs::exists(beside)
             ? gk::formats::readTestFile(beside, true).options.value_or(gk::formats::FileOptions())
             : gk::formats::FileOptions();
}

TEST(OurScenarios, AreAllFoundAndHaveTheirGoldenFiles) {
  std::string expected;
  for (const std::string& input : inputs()) {
    expected += input + "\n";
    if (optionsOf(input).exit != 2) {
      EXPECT_TRUE(fs::exists(gk::formats::goldenOf(input))) << input;
    }
  }
  const auto list =
      runGk({"test", "--list", (kTests / "scenarios").string(), (kTests / "recordings").string()});
  EXPECT_EQ(list.out, expected);
  EXPECT_GT(std::count(list.out.begin(), list.out.end(), '\n'), 250);
}

TEST(OurScenarios, SayNothingElseOnStandardError) {
  const std::string sum = "[0-9.]+ s, [0-9]+ ticks, [0-9]+ events in [^\n]*\n";
  for (const std::string& input : inputs()) {
    const gk::formats::FileOptions options = optionsOf(input);
    const auto result = runGk({"replay", "--quiet", input});
    EXPECT_EQ(result.code, options.exit) << input;
    if (options.exit != 0) {
      EXPECT_THAT(result.err, testing::EndsWith(options.error + "\n")) << input;
      EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    } else {
      const std::string told = options.error.empty() ? "" : options.error + "\n";
      ASSERT_TRUE(result.err.starts_with(told)) << input << ": " << result.err;
      EXPECT_THAT(result.err.substr(told.size()), testing::MatchesRegex(sum)) << input;
    }
  }
}

TEST(OurRecordings, WalkOnTheLeftAndOnTheRightFootInTurn) {
  const auto walk =
      runGk({"replay", "--out", "-", "--only", "sample", "--sample",
             "leftFootContact,rightFootContact", (kTests / "recordings/feet_walk.csv").string()});
  ASSERT_EQ(walk.code, 0);
  std::size_t leftSteps = 0;
  std::size_t rightSteps = 0;
  std::string former;
  std::istringstream lines(walk.out);
  for (std::string line; std::getline(lines, line);) {
    const std::string values = line.substr(line.find("\"values\""));
    if (values != former) {
      leftSteps += values.find("\"leftFootContact\":1.0,\"rightFootContact\":0.0") != values.npos;
      rightSteps += values.find("\"leftFootContact\":0.0,\"rightFootContact\":1.0") != values.npos;
      former = values;
    }
  }
  // Two minutes at about a step a second, of which the mean over ten ticks hides some.
  EXPECT_GT(leftSteps, 50U);
  EXPECT_GT(rightSteps, 50U);
}

} // namespace
