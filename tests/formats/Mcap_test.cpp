#include "formats/mcap/Bytes.h"
#include "formats/mcap/Crc.h"
#include "formats/mcap/Encode.h"
#include "formats/mcap/Verify.h"
#include "McapFiles.h"

#include <gmock/gmock.h>

#include <random>

namespace gk::formats::mcap {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class EachCompression : public testing::TestWithParam<Compression> {};

TEST_P(EachCompression, WhatIsWrittenIsRead) {
  const std::string file = makeFile(GetParam());
  MemorySource source(file);
  Reader reader(source);
  std::vector<std::string> seen;
  while (const std::optional<Item> item = reader.next()) {
    if (const auto* message = std::get_if<Message>(&*item)) {
      seen.push_back(reader.channel(message->channelId).topic + " " +
                     std::to_string(message->sequence) + " " + std::to_string(message->logTime) +
                     " " + std::string(message->data));
    } else if (const auto* metadata = std::get_if<Metadata>(&*item)) {
      seen.push_back("metadata " + metadata->name + " " + metadata->values.at("robot"));
    } else {
      const auto& attachment = std::get<Attachment>(*item);
      seen.push_back("attachment " + attachment.name + " " + std::string(attachment.data));
    }
  }
  EXPECT_THAT(seen, ElementsAre("metadata about test", R"(/first 1 1000 {"n":1})",
                                R"(/second 1 2000 {"n":2})", R"(/first 2 3000 {"n":3})",
                                R"(/first 3 4000 {"n":4})", R"(/second 2 5000 {"n":5})",
                                R"(/first 4 6000 {"n":6})", R"(/first 5 7000 {"n":7})",
                                R"(/second 3 8000 {"n":8})", R"(/first 6 9000 {"n":9})",
                                "attachment note.txt a note"));
  EXPECT_EQ(reader.library(), kTestLibrary);
  EXPECT_EQ(reader.schema(reader.channel(1).schemaId)->name, "count");
  EXPECT_EQ(reader.schema(reader.channel(2).schemaId), nullptr);
  EXPECT_EQ(reader.channel(1).metadata.at("unit"), "1");
  EXPECT_EQ(reader.problems().count(), 0U);
  EXPECT_FALSE(reader.isCut());
}

TEST_P(EachCompression, AWholeFileIsFoundInOrder) {
  const Verdict verdict = verdictOf(makeFile(GetParam()));
  EXPECT_EQ(verdict.problems.count(), 0U);
  EXPECT_FALSE(verdict.isCut);
  EXPECT_EQ(verdict.statistics.messageCount, 9U);
  EXPECT_EQ(verdict.statistics.chunkCount, 3U);
  EXPECT_EQ(verdict.statistics.channelMessageCounts.at(2), 3U);
}

TEST_P(EachCompression, AFileCutAnywhereGivesItsWholeChunks) {
  const std::string file = makeFile(GetParam());
  std::vector<std::size_t> chunkEnds;
  {
    MemorySource source(file);
    Problems problems;
    Scanner scanner(source, problems);
    while (const auto place = scanner.next()) {
      if (place->opcode == Opcode::Chunk) {
        chunkEnds.push_back(place->end());
      }
    }
  }
  ASSERT_THAT(chunkEnds, SizeIs(3));
  for (std::size_t length = kMagic.size(); length < file.size(); ++length) {
    const std::string_view cut = std::string_view(file).substr(0, length);
    const auto whole = static_cast<std::size_t>(std::count_if(
        chunkEnds.begin(), chunkEnds.end(), [length](std::size_t end) { return end <= length; }));
    MemorySource source(cut);
    Reader reader(source);
    ASSERT_EQ(messagesOf(reader), firstMessages(3 * whole)) << "cut at " << length;
    const Verdict verdict = verdictOf(cut);
    EXPECT_GT(verdict.problems.count(), 0U) << "cut at " << length;
  }
}

TEST_P(EachCompression, AFlippedByteIsFoundWhereverItIs) {
  const std::string file = makeFile(GetParam());
  for (std::size_t place = kMagic.size(); place < file.size(); ++place) {
    std::string flipped = file;
    flipped[place] = static_cast<char>(flipped[place] ^ 0x10);
    EXPECT_GT(verdictOf(flipped).problems.count(), 0U) << "flipped at " << place;
    messagesOf(flipped); // must come to an end
  }
}

INSTANTIATE_TEST_SUITE_P(Mcap, EachCompression,
                         testing::Values(Compression::None, Compression::Zstd, Compression::Lz4),
                         [](const auto& test) {
                           const std::string_view name = compressionName(test.param);
                           return name.empty() ? std::string("none") : std::string(name);
                         });

/// Where the records of a kind begin.
std::vector<RecordPlace> placesOf(const std::string& file, Opcode opcode) {
  MemorySource source(file);
  Problems problems;
  Scanner scanner(source, problems);
  std::vector<RecordPlace> places;
  while (const auto place = scanner.next()) {
    if (place->opcode == opcode) {
      places.push_back(*place);
    }
  }
  return places;
}

TEST(Mcap, ADamagedChunkIsNamedAndLeftOut) {
  std::string file = makeFile();
  const RecordPlace chunk = placesOf(file, Opcode::Chunk)[1];
  file[chunk.end() - 1] = static_cast<char>(file[chunk.end() - 1] ^ 1);
  MemorySource source(file);
  Reader reader(source);
  std::vector<std::string> expected = firstMessages(9);
  expected.erase(expected.begin() + 3, expected.begin() + 6);
  EXPECT_EQ(messagesOf(reader), expected);
  ASSERT_THAT(reader.problems().kept(), SizeIs(1));
  EXPECT_EQ(reader.problems().kept().front().offset, chunk.offset);
  EXPECT_THAT(reader.problems().kept().front().text, HasSubstr("chunk: "));
}

TEST(Mcap, BehindADamagedLengthReadingGoesOnWithTheNextIndexedChunk) {
  std::string file = makeFile();
  const RecordPlace chunk = placesOf(file, Opcode::Chunk)[1];
  file[chunk.offset + 7] = 0x7F;
  MemorySource source(file);
  Reader reader(source);
  std::vector<std::string> expected = firstMessages(9);
  expected.erase(expected.begin() + 3, expected.begin() + 6);
  EXPECT_EQ(messagesOf(reader), expected);
  EXPECT_EQ(reader.problems().kept().front().offset, chunk.offset);
}

/// The file with the first of its chunks damaged.
std::string withDamagedFirstChunk(std::string file) {
  const RecordPlace first = placesOf(file, Opcode::Chunk)[0];
  file[first.end() - 1] = static_cast<char>(file[first.end() - 1] ^ 1);
  return file;
}

TEST(Mcap, ChannelsOfADamagedChunkAreKnownFromTheSummary) {
  EXPECT_THAT(messagesOf(withDamagedFirstChunk(makeFile())), SizeIs(6));
}

TEST(Mcap, ChannelsOfADamagedChunkAreToldAgainInAFileWithoutASummary) {
  constexpr int chunks = 20;
  std::string file = withDamagedFirstChunk(makeFile(Compression::Zstd, chunks));
  file.erase(placesOf(file, Opcode::DataEnd)[0].offset);
  EXPECT_THAT(messagesOf(file), SizeIs(3 * (chunks - Writer::kRepeatChunks)));
}

/// A file with messages on two topics in turn, the first of which has chunks of its own.
std::string makeFileApart() {
  MemorySink sink;
  Writer writer(sink, {.library = kTestLibrary, .apart = "/apart"});
  const std::uint16_t apart = writer.addChannel("/apart", "json", 0);
  const std::uint16_t other = writer.addChannel("/other", "json", 0);
  for (std::uint64_t time = 0; time < 30; ++time) {
    const bool isApart = time % 3 != 0;
    writer.write(isApart ? apart : other, time, time, isApart ? "apart" : "other");
    if (time % 10 == 9) {
      writer.closeChunk();
    }
  }
  writer.finish();
  return sink.bytes();
}

TEST(Mcap, ATopicMayHaveChunksOfItsOwn) {
  const std::string file = makeFileApart();
  EXPECT_EQ(verdictOf(file).problems.count(), 0U);
  EXPECT_EQ(verdictOf(file).statistics.chunkCount, 6U);
  const std::vector<std::string> messages = messagesOf(file);
  EXPECT_THAT(messages, SizeIs(30));
  EXPECT_EQ(std::count(messages.begin(), messages.end(), "apart"), 20);
}

TEST(Mcap, ChunksWithoutAWantedChannelAreNotRead) {
  std::string file = makeFileApart();
  // Damaged ones are no matter to somebody who does not want what is in them.
  for (const RecordPlace& chunk : placesOf(file, Opcode::Chunk)) {
    MemorySource source(file);
    ChunkLoader loader(source);
    if (loader.load(chunk).find("other") != std::string_view::npos) {
      file[chunk.end() - 1] = static_cast<char>(file[chunk.end() - 1] ^ 1);
    }
  }
  const auto read = [&file](const char* topic) {
    MemorySource source(file);
    Reader reader(source);
    reader.want([topic](const Channel& channel) { return channel.topic == topic; });
    const std::size_t messages = messagesOf(reader).size();
    return std::pair(messages, reader.problems().count());
  };
  EXPECT_EQ(read("/apart"), std::pair(20UL, 1UL)); // the first chunk, before anything was known
  EXPECT_EQ(read("/other"), std::pair(0UL, 3UL));
}

TEST(Mcap, WhatIsNoRecordingIsRefused) {
  for (const std::string_view text : {"", "\x89MCAP0", "time,KEY\n0,1\n"}) {
    MemorySource source(text);
    EXPECT_THROW(Reader{source}, messages::FormatError);
  }
}

TEST(Mcap, UnknownRecordsAreSkipped) {
  const std::string file = makeFile();
  const RecordPlace chunk = placesOf(file, Opcode::Chunk)[0];
  std::string grown = file;
  std::string unknown("\x99");
  appendNumber(unknown, std::uint64_t{3});
  unknown += "abc";
  grown.insert(chunk.offset, unknown);
  EXPECT_EQ(messagesOf(grown), firstMessages(9));
}

TEST(Mcap, AChunkThatClaimsToBeHugeIsRefusedBeforeItIsRead) {
  std::string file(kMagic);
  appendHeader(file, "", "");
  appendChunkHead(file, {0, 0, std::uint64_t{1} << 40, 1, "zstd", 4});
  file += "abcd";
  MemorySource source(file);
  Reader reader(source);
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_THAT(reader.problems().kept().front().text, HasSubstr("larger than"));
}

TEST(Mcap, AMessageOfAnUnknownChannelIsNamed) {
  std::string file(kMagic);
  appendHeader(file, "", "");
  appendMessage(file, {7, 0, 0, 0, "x"});
  MemorySource source(file);
  Reader reader(source);
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_THAT(reader.problems().kept().front().text, HasSubstr("unknown channel 7"));
}

TEST(Mcap, AFileOfRandomBytesBehindTheMagicComesToAnEnd) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    std::string file(kMagic);
    for (int i = 0; i < 200; ++i) {
      file.push_back(static_cast<char>(random() % 16));
    }
    messagesOf(file);
    verdictOf(file);
  }
}

TEST(Mcap, ChunksAreClosedWhenTheyAreFull) {
  MemorySink sink;
  Writer writer(sink,
                {.compression = Compression::None, .chunkSize = 1000, .library = kTestLibrary});
  const std::uint16_t channel = writer.addChannel("/x", "json", 0);
  for (int i = 0; i < 100; ++i) {
    writer.write(channel, 0, 0, std::string(69, 'x')); // 100 bytes each with its head
  }
  writer.finish();
  EXPECT_EQ(verdictOf(sink.bytes()).statistics.chunkCount, 10U);
}

TEST(Mcap, AnEmptyFileIsInOrder) {
  MemorySink sink;
  Writer writer(sink, {});
  writer.finish();
  const Verdict verdict = verdictOf(sink.bytes());
  EXPECT_THAT(verdict.problems.kept(), IsEmpty());
  EXPECT_EQ(verdict.statistics.messageCount, 0U);
}

TEST(Mcap, TheChecksumIsThatOfEveryZip) {
  EXPECT_EQ(crcOf("123456789"), 0xCBF43926U); // the check value of CRC-32/ISO-HDLC
  EXPECT_EQ(crcOf("6789", crcOf("12345")), 0xCBF43926U);
}

} // namespace
} // namespace gk::formats::mcap
