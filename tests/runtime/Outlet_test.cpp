#include "runtime/output/Outlet.h"
#include "support/Program.h"

#include <latch>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

using gk::formats::OutputError;
using gk::runtime::FileOutlet;
using gk::runtime::Outlet;
using gk::runtime::QueuedOutlet;
using gk::test::readFile;
using gk::test::TemporaryFolder;
using gk::test::writeFile;

TEST(FileOutlet, TheFileAppearsWithTheCommit) {
  const TemporaryFolder folder;
  const std::string path = folder.file("out");
  FileOutlet sut(path);
  sut.write("a line\n");
  sut.flush();
  EXPECT_FALSE(std::filesystem::exists(path));
  sut.commit();
  EXPECT_EQ(readFile(path), "a line\n");
}

TEST(FileOutlet, WithoutCommitAnEarlierFileStaysAndNothingIsLeftBehind) {
  const TemporaryFolder folder;
  const std::string path = folder.file("out");
  writeFile(path, "earlier\n");
  {
    FileOutlet sut(path);
    sut.write("a line\n");
  }
  EXPECT_EQ(readFile(path), "earlier\n");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()),
                          std::filesystem::directory_iterator()),
            1);
}

TEST(FileOutlet, AFolderThatIsNotThereIsNamed) {
  try {
    FileOutlet sut("/no/such/folder/out");
    FAIL();
  } catch (const OutputError& error) {
    EXPECT_STREQ(error.what(), "cannot write /no/such/folder/out: No such file or directory");
  }
}

TEST(FileOutlet, AFullDeviceIsToldAtTheCommitWithItsReasonHoweverMuchFollows) {
  FileOutlet sut("/dev/full");
  for (int i = 0; i < 3; ++i) {
    sut.write(std::string(100'000, 'x') + "\n");
    sut.flush();
  }
  try {
    sut.commit();
    FAIL();
  } catch (const OutputError& error) {
    EXPECT_STREQ(error.what(), "cannot write /dev/full: No space left on device");
  }
}

TEST(QueuedOutlet, InAHurryItEndsWithoutAReaderThatReads) {
  const TemporaryFolder folder;
  const std::string fifo = folder.file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int reader = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  {
    QueuedOutlet sut(std::make_unique<FileOutlet>(fifo));
    for (int i = 0; i < 100; ++i) {
      sut.write(std::string(10'000, 'x') + "\n");
    }
    sut.hurry();
    EXPECT_THROW(sut.commit(), OutputError);
  }
  close(reader);
}

class KeptOutlet : public Outlet {
public:
  explicit KeptOutlet(std::vector<std::string>& lines) : fLines(lines) {}

  void write(std::string_view line) override { fLines.emplace_back(line); }
  void flush() override {}

private:
  std::vector<std::string>& fLines;
};

TEST(QueuedOutlet, HeldLinesGoOutWithTheReleaseAndNotAtAllWithout) {
  std::vector<std::string> lines;
  {
    QueuedOutlet sut(std::make_unique<KeptOutlet>(lines));
    sut.hold();
    sut.write("refused\n");
  }
  EXPECT_TRUE(lines.empty());
  {
    QueuedOutlet sut(std::make_unique<KeptOutlet>(lines));
    sut.hold();
    sut.write("first\n");
    sut.release();
    sut.write("second\n");
    sut.flush();
    EXPECT_EQ(lines, (std::vector<std::string>{"first\n", "second\n"}));
  }
}

/// Blocks in its first write until it is let go.
class SlowOutlet : public Outlet {
public:
  SlowOutlet(std::vector<std::string>& lines, std::latch& isBlocked, std::latch& mayGoOn)
      : fLines(lines), fIsBlocked(isBlocked), fMayGoOn(mayGoOn) {}

  void write(std::string_view line) override {
    if (fLines.empty()) {
      fIsBlocked.count_down();
      fMayGoOn.wait();
    }
    fLines.emplace_back(line);
  }
  void flush() override {}

private:
  std::vector<std::string>& fLines;
  std::latch& fIsBlocked;
  std::latch& fMayGoOn;
};

TEST(QueuedOutlet, WhenItIsFullTheOldestLinesAreDroppedAndCounted) {
  std::vector<std::string> lines;
  std::latch isBlocked(1);
  std::latch mayGoOn(1);
  QueuedOutlet sut(std::make_unique<SlowOutlet>(lines, isBlocked, mayGoOn), 3);
  sut.write("first\n");
  isBlocked.wait();
  for (const char* line : {"1\n", "2\n", "3\n", "4\n", "5\n"}) {
    sut.write(line);
  }
  EXPECT_EQ(sut.dropped(), 2U);
  mayGoOn.count_down();
  sut.flush();
  EXPECT_THAT(lines, testing::ElementsAre("first\n", "3\n", "4\n", "5\n"));
}

TEST(QueuedOutlet, ThatIsNotFullLosesNothing) {
  const TemporaryFolder folder;
  const std::string path = folder.file("out");
  {
    QueuedOutlet sut(std::make_unique<FileOutlet>(path));
    for (int i = 0; i < 1000; ++i) {
      sut.write("line\n");
    }
    sut.commit();
    EXPECT_EQ(sut.dropped(), 0U);
  }
  EXPECT_EQ(readFile(path).size(), 5000U);
}

} // namespace
