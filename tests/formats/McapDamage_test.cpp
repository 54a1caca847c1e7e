#include "formats/mcap/Encode.h"
#include "formats/mcap/Recover.h"
#include "formats/mcap/Verify.h"
#include "formats/text/InputError.h"
#include "McapFiles.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

// Each checksum by itself, what is saved of a damaged file, and files that change under the reader.

namespace gk::formats::mcap {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

RecordPlace placeOf(const std::string& file, Opcode opcode, std::size_t number = 0) {
  MemorySource source(file);
  Problems problems;
  Scanner scanner(source, problems);
  while (const auto place = scanner.next()) {
    if (place->opcode == opcode && number-- == 0) {
      return *place;
    }
  }
  ADD_FAILURE() << "there is no such record";
  return {};
}

/// Says that the checksum of four bytes at this place was not computed.
void forgetCrc(std::string& file, std::uint64_t place) {
  file.replace(place, 4, 4, '\0');
}

void forgetDataCrc(std::string& file) {
  forgetCrc(file, placeOf(file, Opcode::DataEnd).contentAt());
}

void flip(std::string& file, std::uint64_t place) {
  file[place] = static_cast<char>(file[place] ^ 1);
}

std::uint64_t readerProblemsOf(const std::string& file) {
  MemorySource source(file);
  Reader reader(source);
  messagesOf(reader);
  return reader.problems().count();
}

TEST(McapDamage, AnAttachmentIsCheckedByItsOwnChecksum) {
  std::string file = makeFile();
  forgetDataCrc(file);
  ASSERT_EQ(verdictOf(file).problems.count(), 0U);
  ASSERT_EQ(readerProblemsOf(file), 0U);
  const RecordPlace attachment = placeOf(file, Opcode::Attachment);
  flip(file, attachment.end() - 5); // the data's last byte
  const Verdict verdict = verdictOf(file);
  ASSERT_THAT(verdict.problems.kept(), SizeIs(1));
  EXPECT_EQ(verdict.problems.kept()[0].offset, attachment.offset);
  EXPECT_EQ(readerProblemsOf(file), 1U);
}

TEST(McapDamage, AChecksumThatWasNotComputedIsNotAWrongOne) {
  std::string file = makeFile(Compression::None);
  forgetDataCrc(file);
  constexpr std::uint64_t crcInChunk = 3 * 8;
  forgetCrc(file, placeOf(file, Opcode::Chunk, 1).contentAt() + crcInChunk);
  forgetCrc(file, placeOf(file, Opcode::Attachment).end() - 4);
  forgetCrc(file, file.size() - kMagic.size() - 4); // the summary's
  EXPECT_EQ(verdictOf(file).problems.count(), 0U);
  EXPECT_EQ(readerProblemsOf(file), 0U);
  EXPECT_EQ(messagesOf(file), firstMessages(9));
}

TEST(McapDamage, EachChecksumThatWasComputedIsHeeded) {
  const std::string good = makeFile(Compression::None);
  constexpr std::uint64_t crcInChunk = 3 * 8;
  const std::uint64_t places[] = {placeOf(good, Opcode::DataEnd).contentAt(),
                                  placeOf(good, Opcode::Chunk, 1).contentAt() + crcInChunk,
                                  placeOf(good, Opcode::Attachment).end() - 4,
                                  good.size() - kMagic.size() - 4};
  for (const std::uint64_t place : places) {
    std::string file = good;
    if (place != places[0]) {
      forgetDataCrc(file);
    }
    flip(file, place);
    EXPECT_GT(verdictOf(file).problems.count(), 0U) << "at " << place;
  }
}

TEST(McapDamage, RecoverTellsWhatItSavedAndWhatItLeftBehind) {
  std::string file = makeFile();
  {
    MemorySource source(file);
    MemorySink sink;
    const Recovered whole = recover(source, sink, Compression::Zstd);
    EXPECT_EQ(whole.messages, 9U);
    EXPECT_EQ(whole.metadata, 1U);
    EXPECT_EQ(whole.attachments, 1U);
    EXPECT_EQ(whole.problems.count(), 0U);
    EXPECT_FALSE(whole.isCut);
  }
  const RecordPlace chunk = placeOf(file, Opcode::Chunk, 1);
  flip(file, chunk.end() - 1);
  flip(file, placeOf(file, Opcode::Attachment).end() - 5);
  MemorySource source(file);
  MemorySink sink;
  const Recovered saved = recover(source, sink, Compression::None);
  EXPECT_EQ(saved.messages, 6U);
  EXPECT_EQ(saved.metadata, 1U);
  EXPECT_EQ(saved.attachments, 0U);
  EXPECT_EQ(saved.problems.count(), 2U);
  EXPECT_EQ(saved.problems.kept()[0].offset, chunk.offset);
  EXPECT_FALSE(saved.isCut);
  EXPECT_EQ(verdictOf(sink.bytes()).problems.count(), 0U);
  EXPECT_EQ(verdictOf(sink.bytes()).statistics.messageCount, 6U);
}

TEST(McapDamage, RecoverOfACutFileSaysSo) {
  const std::string file = makeFile();
  const std::string_view cut =
      std::string_view(file).substr(0, placeOf(file, Opcode::Chunk, 2).offset + 20);
  MemorySource source(cut);
  MemorySink sink;
  const Recovered saved = recover(source, sink, Compression::Zstd);
  EXPECT_TRUE(saved.isCut);
  EXPECT_EQ(saved.messages, 6U);
  EXPECT_EQ(saved.problems.count(), 1U);
}

/// A chunk of `records` that says it has `size` bytes of them.
std::string fileWithChunk(const std::string& records, std::uint64_t size) {
  std::string file(kMagic);
  appendHeader(file, "", "");
  appendChunkHead(file, {0, 0, size, 0, "", records.size()});
  return file + records;
}

std::string oneMessage() {
  std::string records;
  appendChannel(records, {1, 0, "/x", "json", {}});
  appendMessage(records, {1, 1, 0, 0, "{}"});
  return records;
}

TEST(McapDamage, AChunkThatClaimsMoreThanItHoldsIsNamedAndNotRead) {
  const std::string records = oneMessage();
  ASSERT_THAT(messagesOf(fileWithChunk(records, records.size())), SizeIs(1));
  for (const std::uint64_t wrong : {records.size() + 1, records.size() - 1}) {
    const std::string file = fileWithChunk(records, wrong);
    EXPECT_THAT(messagesOf(file), SizeIs(0));
    EXPECT_EQ(readerProblemsOf(file), 2U); // and it has no end
  }
}

TEST(McapDamage, ARecordThatIsLongerThanItsChunkEndsTheChunk) {
  std::string records = oneMessage();
  std::string last;
  appendMessage(last, {1, 2, 0, 0, "{\"more\":1}"});
  records += last.substr(0, last.size() - 1);
  const std::string file = fileWithChunk(records, records.size());
  EXPECT_THAT(messagesOf(file), SizeIs(1));
  EXPECT_EQ(readerProblemsOf(file), 2U);
}

/// All that a reader gives out and complains of.
std::vector<std::string> allOf(const std::string& file, bool isAhead) {
  MemorySource source(file);
  Reader reader(source);
  if (isAhead) {
    reader.readAhead();
  }
  std::vector<std::string> all = messagesOf(reader);
  for (const Problem& problem : reader.problems().kept()) {
    all.push_back(std::to_string(problem.offset) + ": " + problem.text);
  }
  return all;
}

TEST(McapDamage, ReadingAheadChangesNothingOfWhatIsReadAndTold) {
  std::mt19937 random(3);
  const std::string whole = makeFile(Compression::Zstd, 8);
  EXPECT_THAT(allOf(whole, true), SizeIs(24));
  for (int round = 0; round < 300; ++round) {
    std::string file = whole.substr(0, round % 3 == 0 ? random() % whole.size() : whole.size());
    if (file.size() <= kMagic.size()) {
      continue;
    }
    flip(file, kMagic.size() + random() % (file.size() - kMagic.size()));
    EXPECT_EQ(allOf(file, true), allOf(file, false));
  }
}

TEST(McapDamage, AReaderMayGoWhileAChunkIsReadAhead) {
  const std::string file = makeFile(Compression::Zstd, 3);
  for (int read = 0; read < 9; ++read) {
    MemorySource source(file);
    Reader reader(source);
    reader.readAhead();
    for (int i = 0; i < read; ++i) {
      EXPECT_TRUE(reader.next());
    }
  }
}

TEST(McapDamage, AFileThatShrinksWhileItIsReadIsReadAsFarAsItIsThere) {
  const gk::test::TemporaryFolder folder;
  const std::string path = folder.file("shrinking.mcap");
  const std::string file = makeFile(Compression::None, 200);
  gk::test::writeFile(path, file);
  FileSource source(path);
  Reader reader(source);
  ASSERT_NE(reader.next(), std::nullopt); // metadata
  ASSERT_NE(reader.next(), std::nullopt); // the first chunk is in memory
  std::filesystem::resize_file(path, placeOf(file, Opcode::Chunk, 150).offset + 30);
  EXPECT_THAT(messagesOf(reader), SizeIs(2 + 149 * 3));
  EXPECT_GT(reader.problems().count(), 0U);
}

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(McapDamage, NoDescriptorStaysOpen) {
  const gk::test::TemporaryFolder folder;
  const std::string path = folder.file("file.mcap");
  const std::ptrdiff_t before = openDescriptors();
  {
    FileSink sink(path);
    Writer writer(sink, {});
    writer.finish();
    sink.file().appear();
    const FileSource source(path);
    EXPECT_GT(openDescriptors(), before);
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_THROW(FileSource(folder.path()), InputError);
  EXPECT_EQ(openDescriptors(), before);
}

} // namespace
} // namespace gk::formats::mcap
