#include "support/Golden.h"
#include "support/Program.h"

#include <gtest/gtest-spi.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <sstream>

// Replays every scenario under tests/scenarios and every recording under data, and compares what
// comes out with the file of expected lines beside it, line by line.
//
// A scenario says in comments what is special about it:
//   # options: --subscribe GKSonar     more options for the replay; file names are relative to the
//                                       scenario's folder
//   # exit: 2                           the exit code, 0 without
//   # error: 7: unknown action          what the one line of standard error ends in; without, that
//                                       is what the run sums up to
//   # told: text                        lines of standard error before that, without "gk: "
//   # stdout: text                      lines that a module prints on standard output
// NAME.expected.jsonl holds the expected lines; without it the replay must leave no output.
//
// With GK_UPDATE_GOLDEN=1 the expected files are written anew, and the tests of those that were
// different fail.

namespace {

namespace fs = std::filesystem;
using gk::test::readFile;

const fs::path kRoot = GK_SOURCE_DIR;
const fs::path kScenarios = kRoot / "tests" / "scenarios";
const fs::path kRecordings = kRoot / "data";
constexpr const char* kExpectedEnding = ".expected.jsonl";

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

/// What the comments of a scenario say.
struct Directions {
  std::vector<std::string> options;
  int exit = 0;
  std::string error;
  std::vector<std::string> told;
  std::string out;
};

Directions directionsOf(const fs::path& scenario) {
  Directions directions;
  for (const std::string& line : linesOf(readFile(scenario))) {
    const auto rest = [&line](const std::string& word) -> std::optional<std::string> {
      const std::string beginning = "# " + word + ": ";
      return line.starts_with(beginning) ? std::optional(line.substr(beginning.size()))
                                         : std::nullopt;
    };
    if (const auto options = rest("options")) {
      std::istringstream words(*options);
      for (std::string word; words >> word;) {
        directions.options.push_back(word);
      }
    } else if (const auto code = rest("exit")) {
      directions.exit = std::stoi(*code);
    } else if (const auto error = rest("error")) {
      directions.error = *error;
    } else if (const auto told = rest("told")) {
      directions.told.push_back("gk: " + *told);
    } else if (const auto out = rest("stdout")) {
      directions.out += *out + "\n";
    }
  }
  return directions;
}

struct Replay {
  gk::test::ProgramResult program;
  std::optional<std::string> output;
};

Replay replay(const fs::path& file, const std::vector<std::string>& options) {
  const gk::test::TemporaryFolder folder;
  const std::string out = folder.file("out.jsonl");
  std::vector<std::string> arguments = {GK_PROGRAM, "replay", "--out", out};
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.push_back(file.filename().string());
  Replay result;
  result.program = gk::test::runProgram(std::move(arguments), file.parent_path());
  if (fs::exists(out)) {
    result.output = readFile(out);
  }
  return result;
}

void compareLines(const std::string& actual, const fs::path& expectedFile) {
  gk::test::updateGolden(actual, expectedFile);
  ASSERT_TRUE(fs::exists(expectedFile)) << expectedFile;
  const std::vector<std::string> actualLines = linesOf(actual);
  const std::vector<std::string> expectedLines = linesOf(readFile(expectedFile));
  for (std::size_t i = 0; i < std::min(actualLines.size(), expectedLines.size()); ++i) {
    ASSERT_EQ(actualLines[i], expectedLines[i]) << expectedFile.filename() << ":" << i + 1;
  }
  EXPECT_EQ(actualLines.size(), expectedLines.size()) << expectedFile.filename();
}

/// Files below `folder` with one of the endings, sorted, without their expected output.
std::vector<fs::path> filesBelow(const fs::path& folder, const std::vector<std::string>& endings) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    const bool isWanted = std::any_of(endings.begin(), endings.end(),
                                      [&](const std::string& one) { return name.ends_with(one); });
    if (isWanted && !name.ends_with(kExpectedEnding)) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string testName(const testing::TestParamInfo<fs::path>& info) {
  std::string name = info.param.parent_path().filename().string() + "_" +
                     info.param.filename().stem().stem().string();
  std::replace_if(
      name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

class Scenario : public testing::TestWithParam<fs::path> {};

TEST_P(Scenario, GivesTheExpectedLines) {
  const fs::path& file = GetParam();
  const Directions directions = directionsOf(file);
  const Replay result = replay(file, directions.options);

  EXPECT_EQ(result.program.code, directions.exit) << result.program.err;
  EXPECT_EQ(result.program.out, directions.out);
  std::vector<std::string> told = linesOf(result.program.err);
  ASSERT_FALSE(told.empty());
  if (directions.error.empty()) {
    EXPECT_THAT(told.back(), testing::MatchesRegex(kSummary));
  } else {
    EXPECT_THAT(told.back(), testing::EndsWith(directions.error));
  }
  told.pop_back();
  EXPECT_EQ(told, directions.told);
  const fs::path expected =
      file.parent_path() / (file.filename().stem().stem().string() + kExpectedEnding);
  if (directions.exit == 2) {
    EXPECT_FALSE(result.output.has_value());
  } else {
    ASSERT_TRUE(result.output.has_value());
    compareLines(*result.output, expected);
  }
}

INSTANTIATE_TEST_SUITE_P(Golden, Scenario,
                         testing::ValuesIn(filesBelow(kScenarios, {".jsonl", ".csv", ".gz"})),
                         testName);

class Recording : public testing::TestWithParam<fs::path> {};

TEST_P(Recording, GivesTheExpectedEventsTwice) {
  std::vector<std::string> options = {"--only", "event,micro,resource,order,log"};
  if (GetParam().filename().string().starts_with("us_")) {
    options.insert(options.end(), {"--subscribe", "GKSonar"});
  }
  const Replay first = replay(GetParam(), options);
  ASSERT_EQ(first.program.code, 0) << first.program.err;
  EXPECT_THAT(linesOf(first.program.err), testing::ElementsAre(testing::MatchesRegex(kSummary)));
  ASSERT_TRUE(first.output.has_value());
  EXPECT_EQ(replay(GetParam(), options).output, first.output);
  compareLines(*first.output, kRoot / "tests" / "recordings" /
                                  (GetParam().filename().stem().string() + kExpectedEnding));
}

TEST(Walk, StandsOnTheLeftAndOnTheRightFootInTurn) {
  const Replay walk = replay(kRecordings / "feet_walk.csv",
                             {"--only", "sample", "--sample", "leftFootContact,rightFootContact"});
  ASSERT_TRUE(walk.output.has_value());
  std::size_t leftSteps = 0;
  std::size_t rightSteps = 0;
  std::string former;
  for (const std::string& line : linesOf(*walk.output)) {
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

INSTANTIATE_TEST_SUITE_P(Golden, Recording, testing::ValuesIn(filesBelow(kRecordings, {".csv"})),
                         testName);

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
