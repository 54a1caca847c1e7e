#include "formats/files/OutputFile.h"
#include "formats/files/PartFiles.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>

// The one way in which a file that a user has named comes to be.

namespace {

namespace fs = std::filesystem;
using gk::formats::nextFreeName;
using gk::formats::OutputError;
using gk::formats::OutputFile;
using gk::test::readFile;
using gk::test::TemporaryFolder;
using gk::test::writeFile;
using testing::HasSubstr;

using Kind = OutputError::Kind;

class OutputFileTest : public testing::Test {
protected:
  std::string file(const std::string& name) const { return fFolder.file(name); }

  std::ptrdiff_t count() const {
    return std::distance(fs::directory_iterator(fFolder.path()), fs::directory_iterator());
  }

  /// The error that `work` raises.
  template <class Work> static OutputError errorOf(const Work& work) {
    try {
      work();
    } catch (const OutputError& error) {
      return error;
    }
    ADD_FAILURE() << "nothing was raised";
    return {Kind::Write, ""};
  }

  const TemporaryFolder fFolder;
};

TEST_F(OutputFileTest, WhatIsKnownAtTheEndIsWrittenOverTheBeginning) {
  OutputFile sut(file("out"));
  sut.write("0000 lines");
  sut.writeOver("12");
  sut.write(" more");
  sut.appear();
  EXPECT_EQ(readFile(file("out")), "1200 lines more");
}

TEST_F(OutputFileTest, AnEarlierFileIsUntouchedUntilTheNewOneAppears) {
  writeFile(file("out"), "earlier");
  OutputFile sut(file("out"));
  sut.write("new");
  EXPECT_EQ(readFile(file("out")), "earlier");
  sut.appear();
  EXPECT_EQ(readFile(file("out")), "new");
  sut.write("er");
  EXPECT_EQ(readFile(file("out")), "newer");
  EXPECT_EQ(count(), 1);
}

TEST_F(OutputFileTest, OfAFileThatNeverAppearsNothingIsLeft) {
  { OutputFile(file("out")).write("new"); }
  EXPECT_EQ(count(), 0);
}

TEST_F(OutputFileTest, TheNewFileHasTheModeOfTheEarlierOne) {
  writeFile(file("out"), "earlier");
  fs::permissions(file("out"), fs::perms(0640));
  OutputFile sut(file("out"));
  sut.appear();
  EXPECT_EQ(fs::status(file("out")).permissions(), fs::perms(0640));
}

TEST_F(OutputFileTest, ASymbolicLinkStaysAndItsTargetIsReplaced) {
  fs::create_directory(file("folder"));
  writeFile(file("folder/real"), "earlier");
  fs::create_symlink("folder/real", file("link"));
  OutputFile sut(file("link"));
  sut.write("new");
  sut.appear();
  EXPECT_TRUE(fs::is_symlink(file("link")));
  EXPECT_EQ(readFile(file("folder/real")), "new");
}

TEST_F(OutputFileTest, ASymbolicLinkToNothingGetsItsTarget) {
  fs::create_symlink("later", file("link"));
  OutputFile sut(file("link"));
  sut.appear();
  EXPECT_TRUE(fs::is_symlink(file("link")));
  EXPECT_TRUE(fs::is_regular_file(file("later")));
}

TEST_F(OutputFileTest, AnInputIsRefusedByWhateverNameItHas) {
  writeFile(file("in"), "input");
  fs::create_symlink("in", file("symbolic"));
  fs::create_hard_link(file("in"), file("hard"));
  for (const std::string name : {"in", "./in", "symbolic", "hard"}) {
    SCOPED_TRACE(name);
    const std::string path = fFolder.path().string() + "/" + name;
    const OutputError error = errorOf([&] {
      OutputFile(path, {{file("other"), file("in")}, false});
    });
    EXPECT_EQ(error.kind(), Kind::Name);
    EXPECT_EQ(error.what(), "cannot write " + path + ": it is the file being read");
  }
  EXPECT_EQ(readFile(file("in")), "input");
}

TEST_F(OutputFileTest, AnEarlierFileThatHasToStayIsRefusedWithTheNextFreeName) {
  writeFile(file("run.mcap"), "earlier");
  writeFile(file("run-2.mcap"), "earlier");
  const OutputError error = errorOf([&] { OutputFile(file("run.mcap"), {{}, true}); });
  EXPECT_EQ(error.kind(), Kind::Exists);
  EXPECT_EQ(error.what(), file("run.mcap") + " exists already; " + file("run-3.mcap") +
                              " is free, --overwrite replaces it");
}

TEST_F(OutputFileTest, AFileThatCameUpMeanwhileIsNotReplacedWhereItHasToStay) {
  OutputFile sut(file("run.mcap"), {{}, true});
  writeFile(file("run.mcap"), "another's");
  EXPECT_EQ(errorOf([&] { sut.appear(); }).kind(), Kind::Exists);
  EXPECT_EQ(readFile(file("run.mcap")), "another's");
}

TEST_F(OutputFileTest, AFileThatIsBeingWrittenIsNotReplaced) {
  OutputFile first(file("run.mcap"));
  first.appear();
  const OutputError error = errorOf([&] { OutputFile(file("run.mcap")); });
  EXPECT_EQ(error.kind(), Kind::Exists);
  EXPECT_THAT(error.what(), HasSubstr("is being written"));
}

TEST_F(OutputFileTest, TwoOutputsCannotHaveOneName) {
  const OutputFile first(file("out"));
  EXPECT_EQ(errorOf([&] { OutputFile(file("out")); }).kind(), Kind::Name);
}

TEST_F(OutputFileTest, WhatAKilledProcessOfTheSameNumberLeftIsReplaced) {
  writeFile(file("out") + ".part" + std::to_string(getpid()), "stale");
  OutputFile sut(file("out"));
  sut.write("new");
  sut.appear();
  EXPECT_EQ(readFile(file("out")), "new");
}

TEST_F(OutputFileTest, AFullDiskIsAnErrorOfTheWriteThatMeetsIt) {
  OutputFile sut("/dev/full");
  const OutputError error = errorOf([&] { sut.write("x"); });
  EXPECT_EQ(error.kind(), Kind::Write);
  EXPECT_STREQ(error.what(), "cannot write /dev/full: No space left on device");
}

TEST_F(OutputFileTest, AFolderAndWhatLiesInNoFolderAreNamed) {
  EXPECT_EQ(errorOf([&] { OutputFile(fFolder.path().string()); }).kind(), Kind::Name);
  const OutputError error = errorOf([] { OutputFile("/no/such/folder/out"); });
  EXPECT_EQ(error.kind(), Kind::Name);
  EXPECT_STREQ(error.what(), "cannot write /no/such/folder/out: No such file or directory");
}

TEST_F(OutputFileTest, SomebodyInAHurryDoesNotWaitForAReaderThatDoesNotRead) {
  const std::string fifo = file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int reader = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  OutputFile sut(fifo);
  sut.hurry();
  const std::string piece(4096, 'x');
  const OutputError error = errorOf([&] {
    for (int i = 0; i < 1000; ++i) {
      sut.write(piece);
    }
  });
  EXPECT_THAT(error.what(), HasSubstr("its reader does not read"));
  close(reader);
}

TEST_F(OutputFileTest, PartFilesCanBeRemovedInAHandlerOfASignal) {
  const OutputFile first(file("first"));
  OutputFile second(file("second"));
  second.appear();
  gk::formats::removePartFiles();
  EXPECT_EQ(count(), 1);
  EXPECT_TRUE(fs::exists(file("second")));
}

TEST_F(OutputFileTest, TheNextFreeNameKeepsFolderAndEnding) {
  EXPECT_EQ(nextFreeName(file("a.b.mcap")), file("a.b-2.mcap"));
  EXPECT_EQ(nextFreeName(file("a.mcap"), 5), file("a-5.mcap"));
}

} // namespace
