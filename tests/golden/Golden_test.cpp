#include "formats/recording/TestFile.h"
#include "support/Gk.h"
#include "support/Golden.h"
#include "support/Program.h"

#include <gtest/gtest-spi.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <sstream>

// `gk test` runs every scenario under tests/scenarios and every recording under tests/recordings
// twice and compares what comes out with the file of expected lines beside it. What is left to do
// here is to see that none is passed over, and what it says of none: that a run tells nothing on
// standard error but what it sums up to, or the error that its options name. A scenario says in
// comments what else it tells before that:
//   # told: text                        a line of standard error, without "gk: "

namespace {

namespace fs = std::filesystem;
using gk::test::readFile;
using gk::test::runGk;

const fs::path kRoot = GK_SOURCE_DIR;
const fs::path kScenarios = kRoot / "tests" / "scenarios";
const fs::path kRecordings = kRoot / "tests" / "recordings";
const fs::path kTouched = kRoot / "examples" / "touched.jsonl";

/// What a replay says on standard error when nothing is odd.
constexpr const char* kSummary = "[0-9.]+ s, [0-9]+ ticks, [0-9]+ events in .*";

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// The inputs below a folder, sorted.
std::vector<fs::path> inputsBelow(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (gk::formats::isInputName(entry.path().string())) {
      files.push_back(entry.path());
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

std::vector<std::string> toldOf(const fs::path& input) {
  constexpr std::string_view beginning = "# told: ";
  std::vector<std::string> told;
  for (const std::string& line : linesOf(readFile(input))) {
    if (line.starts_with(beginning)) {
      told.push_back("gk: " + line.substr(beginning.size()));
    }
  }
  return told;
}

std::string testName(const testing::TestParamInfo<fs::path>& info) {
  std::string name = info.param.parent_path().filename().string() + "_" +
                     info.param.filename().stem().stem().string();
  std::replace_if(
      name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

class Input : public testing::TestWithParam<fs::path> {};

TEST_P(Input, TellsNothingElse) {
  const fs::path& file = GetParam();
  const gk::formats::FileOptions options = optionsOf(file.string());
  const gk::test::TemporaryFolder folder;
  const std::string out = folder.file("out.jsonl");
  const gk::test::ProgramResult result = runGk({"replay", "--out", out, file.string()});

  EXPECT_EQ(result.code, options.exit) << result.err;
  EXPECT_EQ(result.out, options.out ? *options.out + "\n" : "");
  EXPECT_EQ(fs::exists(out), options.exit != 2);
  std::vector<std::string> told = linesOf(result.err);
  ASSERT_FALSE(told.empty());
  if (options.error.empty()) {
    EXPECT_THAT(told.back(), testing::MatchesRegex(kSummary));
  } else {
    EXPECT_THAT(told.back(), testing::EndsWith(options.error));
  }
  told.pop_back();
  EXPECT_EQ(told, toldOf(file));
}

INSTANTIATE_TEST_SUITE_P(Scenarios, Input, testing::ValuesIn(inputsBelow(kScenarios)), testName);
INSTANTIATE_TEST_SUITE_P(Recordings, Input, testing::ValuesIn(inputsBelow(kRecordings)), testName);

TEST(GoldenFiles, AreWhatTwoRunsOfEachInputGive) {
  const gk::test::ProgramResult result = runGk(
      {"test", "--repeat", "2", kScenarios.string(), kRecordings.string(), kTouched.string()});
  EXPECT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, testing::MatchesRegex("[0-9]+ passed, 0 failed in [0-9.]+ s\n"));
}

TEST(GoldenFiles, AreThereForEveryScenarioAndRecording) {
  std::string expected;
  for (const fs::path& folder : {kRecordings, kScenarios}) {
    for (const fs::path& input : inputsBelow(folder)) {
      expected += input.string() + "\n";
      if (optionsOf(input.string()).exit != 2) {
        EXPECT_TRUE(fs::exists(gk::formats::goldenOf(input.string()))) << input;
      }
    }
  }
  const gk::test::ProgramResult list =
      runGk({"test", "--list", kScenarios.string(), kRecordings.string()});
  EXPECT_EQ(list.out, expected);
  EXPECT_GT(linesOf(list.out).size(), 250U);
}

TEST(Walk, StandsOnTheLeftAndOnTheRightFootInTurn) {
  const gk::test::ProgramResult walk =
      runGk({"replay", "--out", "-", "--only", "sample", "--sample",
             "leftFootContact,rightFootContact", (kRecordings / "feet_walk.csv").string()});
  ASSERT_EQ(walk.code, 0);
  std::size_t leftSteps = 0;
  std::size_t rightSteps = 0;
  std::string former;
  for (const std::string& line : linesOf(walk.out)) {
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

/// A file of expected output that says "old", and GK_UPDATE_GOLDEN as it was at the end.
struct GoldenFile : testing::Test {
  GoldenFile() { gk::test::writeFile(file, "old"); }
  ~GoldenFile() override {
    if (former) {
      setenv(kVariable, former->c_str(), 1);
    } else {
      unsetenv(kVariable);
    }
  }

  static constexpr const char* kVariable = "GK_UPDATE_GOLDEN";
  const std::optional<std::string> former = std::getenv(kVariable) != nullptr
                                                ? std::optional<std::string>(std::getenv(kVariable))
                                                : std::nullopt;
  const gk::test::TemporaryFolder folder;
  const fs::path file = folder.file("expected.jsonl");
};

TEST_F(GoldenFile, StaysAsItIsUnlessAnUpdateIsAskedFor) {
  for (const char* value : {"", "0", "no"}) {
    setenv(kVariable, value, 1);
    gk::test::updateGolden("new", file);
    EXPECT_EQ(readFile(file), "old") << value;
  }
  unsetenv(kVariable);
  gk::test::updateGolden("new", file);
  EXPECT_EQ(readFile(file), "old");
}

TEST_F(GoldenFile, FailsTheTestThatUpdatesIt) {
  setenv(kVariable, "1", 1);
  EXPECT_NONFATAL_FAILURE(gk::test::updateGolden("new", file), "updated");
  EXPECT_EQ(readFile(file), "new");
  gk::test::updateGolden("new", file); // It is what is expected now.
}

} // namespace
