#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// `gk new module`. That what it writes builds and passes its tests is tried with an installed
// platform (tests/authors_test.sh).

namespace {

namespace fs = std::filesystem;
using gk::test::ProgramResult;
using gk::test::readFile;
using gk::test::runGk;
using gk::test::runProgram;
using gk::test::TemporaryFolder;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(NewModule, WritesAProjectAndSaysHowToGoOn) {
  const TemporaryFolder folder;
  const std::string project = folder.file("deep/GKMine");
  const ProgramResult result = runGk({"new", "module", "GKMine", project});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.out,
              AllOf(HasSubstr("cd " + project + "\n"),
                    HasSubstr("cmake -B build && cmake --build build && ctest --test-dir build\n"),
                    HasSubstr("--library +build/libGKMine.so\n")));
  std::size_t files = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(project)) {
    EXPECT_THAT(entry.path().string(), Not(HasSubstr("MODULE_NAME")));
    if (entry.is_regular_file()) {
      EXPECT_THAT(readFile(entry.path()), Not(HasSubstr("MODULE_NAME"))) << entry.path();
      ++files;
    }
  }
  EXPECT_EQ(files, 7U);
  EXPECT_THAT(readFile(project + "/GKMine.cpp"), HasSubstr("GK_MODULE_LIBRARY(GKMine)"));
}

TEST(NewModule, StandsInAFolderOfItsNameWhenNoneIsGiven) {
  const TemporaryFolder folder;
  const ProgramResult result = runProgram(
      {"/usr/bin/env", "-C", folder.path().string(), GK_PROGRAM, "new", "module", "A1_"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_TRUE(fs::exists(folder.path() / "A1_" / "A1_.cpp"));
}

TEST(NewModule, LeavesAFolderAloneThatIsNotEmpty) {
  const TemporaryFolder folder;
  gk::test::writeFile(folder.file("mine.txt"), "mine");
  const ProgramResult result = runGk({"new", "module", "GKMine", folder.path().string()});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err, "gk: " + folder.path().string() + " is there already, and not empty\n");
  EXPECT_FALSE(fs::exists(folder.path() / "CMakeLists.txt"));
  EXPECT_EQ(runGk({"new", "module", "GKMine", folder.file("mine.txt")}).code, 1);
}

TEST(NewModule, TellsOfAFolderThatCannotBeWritten) {
  const ProgramResult result = runGk({"new", "module", "GKMine", "/proc/no/such"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, testing::StartsWith("gk: cannot write /proc/no/such/"));
}

TEST(NewModule, TakesNamesThatAClassCanHave) {
  const TemporaryFolder folder;
  const std::string project = folder.file("project");
  for (const char* name : {"9Lives", "GK-Mine", "GK Mine", "../GKMine", "Größe", ""}) {
    const ProgramResult result = runGk({"new", "module", name, project});
    EXPECT_EQ(result.code, 2) << name;
    EXPECT_THAT(result.err, HasSubstr("is no identifier")) << name;
  }
  for (const char* name : {"class", "test", "GK"}) {
    const ProgramResult result = runGk({"new", "module", name, project});
    EXPECT_EQ(result.code, 2) << name;
    EXPECT_THAT(result.err, HasSubstr("means something else already")) << name;
  }
  EXPECT_EQ(runGk({"new", "module"}).code, 2);
  EXPECT_FALSE(fs::exists(project));
}

} // namespace
