#include "gk/GKError.h"
#include "support/PlatformFixture.h"
#include "support/TestPlatform.h"
#include "zu/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <locale>
#include <string>
#include <unistd.h>

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace GK {
namespace {

using test::TestPlatform;
using zu::log::LogStream;

/// Writes to a file in a folder of its own; the console is silent.
class LogTest : public testing::Test {
protected:
  LogTest()
      : folder(std::filesystem::temp_directory_path() /
               ("gk_log_test." + std::to_string(getpid()) + "." +
                testing::UnitTest::GetInstance()->current_test_info()->name())) {
    std::filesystem::create_directory(folder);
  }
  ~LogTest() override {
    zu::log::setFile("", 0);
    zu::log::setConsoleLevel(zu::log::Info);
    std::filesystem::remove_all(folder);
  }

  std::string file() const { return folder / "gk.log"; }

  /// Ends the file and gives its lines.
  std::vector<std::string> writtenLines() const {
    zu::log::setFile("", 0);
    std::ifstream in(file());
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
    }
    return lines;
  }

  std::filesystem::path folder;
  TestPlatform platform{TestPlatform::kNoServices};
};

void writeOneOfEach() {
  for (int level = zu::log::Fatal; level <= zu::log::Debug; ++level) {
    LogStream(level, "test", "f") << level;
  }
}

TEST_F(LogTest, LevelsHaveNumbersAndNames) {
  std::vector<std::string> names;
  for (int level = 0; level <= 7; ++level) {
    names.emplace_back(zu::log::levelName(level));
  }

  EXPECT_THAT(names, ElementsAre("unknown", "fatal", "error", "warning", "info", "verbose", "debug",
                                 "unknown"));
}

TEST_F(LogTest, ObserversSeeLevelCategoryFunctionAndText) {
  platform.sleep(5);
  zu::log::warning("motion.sonar", "init") << "GKSonar" << 3 << ' ' << 1.5;

  const std::vector<GKNotice> notices = platform.recorder->all();
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_EQ(notices[0].kind, GKNotice::Kind::Log);
  EXPECT_EQ(notices[0].level, 3);
  EXPECT_EQ(notices[0].name, "motion.sonar");
  EXPECT_EQ(notices[0].owner, "init");
  EXPECT_EQ(notices[0].text, "GKSonar3 1.5");
  EXPECT_EQ(notices[0].time, 5000);
}

TEST_F(LogTest, ShortFormsHaveTheirLevels) {
  zu::log::fatal("c", "f") << "a";
  zu::log::error("c", "f") << "b";
  zu::log::warning("c", "f") << "c";
  zu::log::info("c", "f") << "d";
  zu::log::verbose("c", "f") << "e";
  zu::log::debug("c", "f") << "f";

  EXPECT_THAT(platform.recorder->logLines(),
              ElementsAre("1 c f: a", "2 c f: b", "3 c f: c", "4 c f: d", "5 c f: e", "6 c f: f"));
}

/// Writes numbers as people do who group digits and have a decimal comma.
class GroupedNumbers : public std::numpunct<char> {
protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(LogTest, NumbersAreWrittenAlikeWhateverTheProcessesLocale) {
  const std::locale former =
      std::locale::global(std::locale(std::locale::classic(), new GroupedNumbers));
  zu::log::info("c", "f") << 1234567 << " " << 1.5;
  std::locale::global(former);

  EXPECT_THAT(platform.recorder->logLines(), ElementsAre("4 c f: 1234567 1.5"));
}

TEST_F(LogTest, LineGoesOutWhenTheStreamEnds) {
  {
    LogStream sut(zu::log::Info, "c", "f");
    sut << "half";
    EXPECT_THAT(platform.recorder->logLines(), IsEmpty());
    sut << " and half";
  }
  EXPECT_THAT(platform.recorder->logLines(), ElementsAre("4 c f: half and half"));
}

TEST_F(LogTest, OneFinalNewlineIsDropped) {
  zu::log::info("c", "f") << "plain";
  zu::log::info("c", "f") << "one\n";
  zu::log::info("c", "f") << "two\n\n";
  zu::log::info("c", "f") << "in\nside";
  zu::log::info("c", "f") << "\n";
  zu::log::info("c", "f");

  EXPECT_THAT(platform.recorder->logLines(),
              ElementsAre("4 c f: plain", "4 c f: one", "4 c f: two\n", "4 c f: in\nside",
                          "4 c f: ", "4 c f: "));
}

TEST_F(LogTest, ObserversSeeEveryLevelWhateverTheConsoleShows) {
  zu::log::setConsoleLevel(0);

  writeOneOfEach();

  EXPECT_EQ(platform.recorder->logLines().size(), 6u);
}

TEST_F(LogTest, ConsoleIsStandardErrorUpToItsLevel) {
  zu::log::setConsoleLevel(zu::log::Info);

  testing::internal::CaptureStderr();
  writeOneOfEach();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "fatal test f: 1\nerror test f: 2\nwarning test f: 3\ninfo test f: 4\n");

  zu::log::setConsoleLevel(zu::log::Debug);
  testing::internal::CaptureStderr();
  writeOneOfEach();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              EndsWith("info test f: 4\nverbose test f: 5\ndebug test f: 6\n"));
}

TEST_F(LogTest, LevelZeroSilencesTheConsole) {
  zu::log::setConsoleLevel(0);

  testing::internal::CaptureStderr();
  writeOneOfEach();

  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(LogTest, FileGetsLinesUpToItsLevelWithTheirTime) {
  zu::log::setFile(file(), zu::log::Verbose);

  writeOneOfEach();

  const std::vector<std::string> lines = writtenLines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_THAT(lines[0],
              testing::MatchesRegex("[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9.]+[-+][0-9:]+ "
                                    "fatal test f: 1"));
  EXPECT_THAT(lines[4], EndsWith(" verbose test f: 5"));
}

TEST_F(LogTest, TextIsWrittenAsItIs) {
  zu::log::setFile(file(), zu::log::Info);

  zu::log::info("c", "f") << "{} %s {0} %v";

  EXPECT_THAT(writtenLines(), ElementsAre(EndsWith("info c f: {} %s {0} %v")));
}

TEST_F(LogTest, PlaceOfTheStatementIsWrittenWhenGiven) {
  zu::log::setFile(file(), zu::log::Info);

  LogStream(zu::log::Info, "c", "f", "GKSonar.cpp", 12) << "text";

  EXPECT_THAT(writtenLines(), ElementsAre(EndsWith("info c f: text (GKSonar.cpp:12)")));
}

TEST_F(LogTest, FileIsAppendedTo) {
  for (const char* text : {"first", "second"}) {
    zu::log::setFile(file(), zu::log::Info);
    zu::log::info("c", "f") << text;
    zu::log::setFile("", 0);
  }

  EXPECT_THAT(writtenLines(), ElementsAre(EndsWith("first"), EndsWith("second")));
}

TEST_F(LogTest, InfoIsOnDiskAtOnce) {
  zu::log::setFile(file(), zu::log::Info);

  zu::log::info("c", "f") << "text";

  std::ifstream in(file());
  const std::string content(std::istreambuf_iterator<char>(in), {});
  EXPECT_THAT(content, EndsWith("info c f: text\n"));
}

TEST_F(LogTest, EmptyPathEndsTheFile) {
  zu::log::setFile(file(), zu::log::Info);
  zu::log::setFile("", 0);

  zu::log::error("c", "f") << "text";

  EXPECT_THAT(writtenLines(), IsEmpty());
}

TEST_F(LogTest, FileThatCannotBeWrittenIsAnErrorThatNamesIt) {
  const std::string path = folder; // A folder is no file.

  EXPECT_THAT(test::errorOf([&] { zu::log::setFile(path, zu::log::Info); }),
              test::IsError("log", "setFile", HasSubstr(path)));
  EXPECT_NO_THROW(zu::log::info("c", "f") << "goes on");
}

} // namespace
} // namespace GK
