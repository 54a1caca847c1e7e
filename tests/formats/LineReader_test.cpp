#include "formats/text/LineReader.h"
#include "TempFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

using namespace gk::formats;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::vector<std::string> linesOf(LineReader& sut) {
  std::vector<std::string> lines;
  while (const auto line = sut.next()) {
    lines.emplace_back(*line);
  }
  return lines;
}

std::vector<std::string> linesOf(const TempFile& file) {
  LineReader sut(file.path());
  return linesOf(sut);
}

/// The error that reading the whole file ends with.
InputError readErrorOf(const std::string& path) {
  try {
    LineReader sut(path);
    linesOf(sut);
  } catch (const InputError& error) {
    return error;
  }
  ADD_FAILURE() << "no error in " << path;
  return {path, 0, ""};
}

/// Lines that compress badly enough to fill several buffers.
std::string manyLines() {
  std::string text;
  unsigned state = 1;
  for (int i = 0; i < 50'000; ++i) {
    state = state * 1664525U + 1013904223U;
    text += std::to_string(state) + "," + std::to_string(i) + "\n";
  }
  return text;
}

} // namespace

TEST(LineReader, LinesComeInOrderWithTheirNumbers) {
  const TempFile file(".csv", "one\ntwo\n\nfour\n");
  LineReader sut(file.path());
  EXPECT_EQ(sut.line(), 0U);
  EXPECT_EQ(sut.next(), "one");
  EXPECT_EQ(sut.line(), 1U);
  EXPECT_EQ(sut.next(), "two");
  EXPECT_EQ(sut.next(), "");
  EXPECT_EQ(sut.next(), "four");
  EXPECT_EQ(sut.line(), 4U);
  EXPECT_EQ(sut.next(), std::nullopt);
  EXPECT_EQ(sut.next(), std::nullopt);
  EXPECT_EQ(sut.line(), 4U);
}

TEST(LineReader, TheLastLineNeedsNoEnd) {
  EXPECT_THAT(linesOf(TempFile(".csv", "one\ntwo")), ElementsAre("one", "two"));
}

TEST(LineReader, AnEmptyFileHasNoLines) {
  EXPECT_THAT(linesOf(TempFile(".csv", "")), ElementsAre());
  EXPECT_THAT(linesOf(TempFile::gzipped(".csv.gz", "")), ElementsAre());
}

TEST(LineReader, CarriageReturnsBelongToLineEnds) {
  EXPECT_THAT(linesOf(TempFile(".csv", "one\r\n\r\na\rb\r\nlast\r")),
              ElementsAre("one", "", "a\rb", "last"));
}

TEST(LineReader, AFileWhoseLinesEndWithThemAloneIsRefused) {
  const TempFile file(".csv", "time,a\r0,1\r0.02,2\r");
  EXPECT_EQ(readErrorOf(file.path()).what(),
            file.path() +
                ":1: a carriage return (CR) in the line: lines have to end with LF or CR LF");
}

TEST(LineReader, AByteOrderMarkIsDroppedAtTheBeginningOnly) {
  EXPECT_THAT(linesOf(TempFile(".csv", "\xEF\xBB\xBFone\n\xEF\xBB\xBFtwo\n")),
              ElementsAre("one", "\xEF\xBB\xBFtwo"));
}

TEST(LineReader, ZeroBytesArePartOfALine) {
  EXPECT_THAT(linesOf(TempFile(".csv", std::string_view("a\0b\nc\n", 6))),
              ElementsAre(std::string("a\0b", 3), "c"));
}

TEST(LineReader, LinesAcrossBuffersStayWhole) {
  const std::string text = manyLines();
  const TempFile plain(".csv", text);
  const TempFile packed = TempFile::gzipped(".csv.gz", text);
  for (const std::string& path : {plain.path(), packed.path()}) {
    LineReader sut(path);
    std::string all;
    while (const auto line = sut.next()) {
      all += *line;
      all += '\n';
    }
    EXPECT_TRUE(all == text) << path;
    EXPECT_EQ(sut.line(), 50'000U);
  }
}

TEST(LineReader, ALineMayHaveOneMebibyte) {
  const std::string longest(LineReader::kMaxLine, 'x');
  EXPECT_THAT(linesOf(TempFile(".csv", longest)), ElementsAre(longest));
  EXPECT_THAT(linesOf(TempFile(".csv", longest + "\n")), ElementsAre(longest));
  EXPECT_THAT(linesOf(TempFile(".csv", "\xEF\xBB\xBF" + longest + "\r\nb\n")),
              ElementsAre(longest, "b"));
  EXPECT_THAT(linesOf(TempFile(".csv", "a\n" + longest + "\r\n" + longest + "\n")),
              ElementsAre("a", longest, longest));
}

TEST(LineReader, ALineLongerThanOneMebibyteIsAnError) {
  const std::string tooLong(LineReader::kMaxLine + 1, 'x');
  for (const std::string& text :
       {tooLong, tooLong + "\n", tooLong + "\r\n", tooLong + tooLong + tooLong}) {
    const TempFile file(".csv", "a\n" + text);
    const InputError error = readErrorOf(file.path());
    EXPECT_EQ(error.getLine(), 2U);
    EXPECT_EQ(error.what(), file.path() + ":2: line is longer than 1048576 bytes");
  }
}

TEST(LineReader, AFileThatIsNotThereIsAnErrorOfNoLine) {
  const InputError error = readErrorOf("/nonexistent/file.csv");
  EXPECT_STREQ(error.what(), "/nonexistent/file.csv: cannot be read: No such file or directory");
  EXPECT_EQ(error.getFile(), "/nonexistent/file.csv");
  EXPECT_EQ(error.getLine(), 0U);
}

TEST(LineReader, ADirectoryIsAnError) {
  const std::string path = std::filesystem::temp_directory_path();
  EXPECT_EQ(readErrorOf(path).what(), path + ": cannot be read: is a directory");
}

TEST(LineReader, CutCompressedDataIsAnErrorWhereverItIsCut) {
  const std::string bytes = TempFile::gzipped(".csv.gz", manyLines()).bytes();
  // Within the header, the data, and the check at the end.
  for (const std::size_t size :
       {std::size_t{5}, bytes.size() / 2, bytes.size() - 6, bytes.size() - 1}) {
    const TempFile file(".csv.gz", std::string_view(bytes).substr(0, size));
    EXPECT_THAT(readErrorOf(file.path()).what(), HasSubstr("damaged or cut compressed data"))
        << size;
  }
}

TEST(LineReader, DamagedCompressedDataIsAnErrorBeyondTheGoodLines) {
  std::string bytes = TempFile::gzipped(".csv.gz", manyLines()).bytes();
  bytes[bytes.size() / 2] ^= 0x55;
  const InputError error = readErrorOf(TempFile(".csv.gz", bytes).path());
  EXPECT_THAT(error.what(), HasSubstr("damaged or cut compressed data"));
  EXPECT_GT(error.getLine(), 1000U);
}

TEST(LineReader, AWrongChecksumIsAnError) {
  std::string bytes = TempFile::gzipped(".csv.gz", "one\ntwo\n").bytes();
  bytes[bytes.size() - 8] ^= 0x01;
  EXPECT_THAT(readErrorOf(TempFile(".csv.gz", bytes).path()).what(),
              HasSubstr("damaged or cut compressed data"));
}
