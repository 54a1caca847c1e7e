#include "formats/mcap/Verify.h"

#include "formats/mcap/ChunkLoader.h"
#include "formats/mcap/Crc.h"
#include "formats/mcap/Decode.h"
#include "messages/text/FormatError.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace gk::formats::mcap {

namespace {

/// Bytes that a checksum takes at once.
constexpr std::size_t kPiece = 1 << 20;

/// One check of one file.
class Check {
public:
  Check(Source& source, const Progress& progress)
      : fSource(source), fProgress(progress), fScanner(source, fVerdict.problems), fLoader(source) {
  }

  Verdict run() {
    while (const std::optional<RecordPlace> place = fScanner.next()) {
      try {
        xCheck(*place);
      } catch (const messages::FormatError& error) {
        xComplain(*place, error.what());
      }
      if (fProgress) {
        fProgress(fScanner.progress());
      }
    }
    fVerdict.isCut = fScanner.isCut();
    fVerdict.statistics.schemaCount = static_cast<std::uint16_t>(fSchemas.size());
    fVerdict.statistics.channelCount = static_cast<std::uint32_t>(fChannels.size());
    if (!fVerdict.isCut) {
      xCheckEnd();
    }
    return std::move(fVerdict);
  }

private:
  void xComplain(const RecordPlace& place, const std::string& text) {
    fVerdict.problems.add(place.offset, recordName(place.opcode) + ": " + text);
  }

  void xCheck(const RecordPlace& place) {
    if ((place.offset == kMagic.size()) != (place.opcode == Opcode::Header)) {
      xComplain(place, "a file begins with its header, and has one");
    }
    if (place.opcode != Opcode::MessageIndex) {
      xExpectNoIndex(place);
    }
    if (fDataEnd) {
      xCheckSummary(place);
    } else {
      xCheckData(place);
    }
  }

  void xCheckData(const RecordPlace& place) {
    Statistics& found = fVerdict.statistics;
    switch (place.opcode) {
    case Opcode::Chunk:
      ++found.chunkCount;
      fIsLastChunkBad = true;
      xCheckChunk(place);
      fIsLastChunkBad = false;
      break;
    case Opcode::MessageIndex:
      xCheckMessageIndex(place);
      break;
    case Opcode::Message:
      xCount(decodeMessage(fScanner.content(place)));
      break;
    case Opcode::Schema:
    case Opcode::Channel:
      xDefine(place.opcode, fScanner.content(place));
      break;
    case Opcode::Attachment: {
      ++found.attachmentCount;
      const std::string_view content = fScanner.content(place);
      const std::uint32_t crc = decodeAttachment(content).crc;
      if (crc != 0 && crc != crcOf(content.substr(0, content.size() - sizeof(crc)))) {
        throw messages::FormatError("its checksum is not that of its content");
      }
      break;
    }
    case Opcode::Metadata:
      ++found.metadataCount;
      decodeMetadata(fScanner.content(place));
      break;
    case Opcode::DataEnd:
      fDataEnd = place;
      xCheckDataCrc(decodeDataEnd(fScanner.content(place)), place);
      break;
    case Opcode::Footer:
      xComplain(place, "the data has no end");
      break;
    default:
      break;
    }
  }

  void xCheckChunk(const RecordPlace& place) {
    const DecodedChunk chunk = fLoader.head(place);
    if (chunk.recordsAt + chunk.head.compressedSize != place.length) {
      throw messages::FormatError("its records do not fill it");
    }
    InnerRecords records(fLoader.load(place));
    std::optional<std::pair<std::uint64_t, std::uint64_t>> times;
    while (const std::optional<InnerRecord> record = records.next()) {
      if (record->opcode != Opcode::Message) {
        xDefine(record->opcode, record->content);
        continue;
      }
      const Message message = decodeMessage(record->content);
      xCount(message);
      fExpected[message.channelId].push_back({message.logTime, record->offset});
      times = {times ? std::min(times->first, message.logTime) : message.logTime,
               times ? std::max(times->second, message.logTime) : message.logTime};
    }
    const auto said = std::pair(chunk.head.startTime, chunk.head.endTime);
    if (said != times.value_or(std::pair<std::uint64_t, std::uint64_t>())) {
      throw messages::FormatError("its times are not those of its messages");
    }
  }

  void xDefine(Opcode opcode, std::string_view content) {
    if (opcode == Opcode::Schema) {
      xKeep(fSchemas, decodeSchema(content).id, content);
    } else if (opcode == Opcode::Channel) {
      xKeep(fChannels, decodeChannel(content).id, content);
    }
  }

  void xKeep(std::map<std::uint16_t, std::string>& known, std::uint16_t id,
             std::string_view content) {
    const auto [entry, isNew] = known.try_emplace(id, content);
    if (!isNew && entry->second != content) {
      throw messages::FormatError("number " + std::to_string(id) + " is given to two of them");
    }
    fDefinitionBytes += isNew ? content.size() : 0;
    if (fDefinitionBytes > kMaxDefinitions) {
      throw messages::FormatError("the file defines too much");
    }
  }

  void xCount(const Message& message) {
    if (!fChannels.contains(message.channelId)) {
      throw messages::FormatError("a message has the unknown channel " +
                                  std::to_string(message.channelId));
    }
    Statistics& found = fVerdict.statistics;
    const bool isFirst = found.messageCount++ == 0;
    found.startTime = isFirst ? message.logTime : std::min(found.startTime, message.logTime);
    found.endTime = isFirst ? message.logTime : std::max(found.endTime, message.logTime);
    ++found.channelMessageCounts[message.channelId];
  }

  void xCheckMessageIndex(const RecordPlace& place) {
    fHasIndexes = true;
    MessageIndex index = decodeMessageIndex(fScanner.content(place));
    if (fIsLastChunkBad) {
      return;
    }
    const auto byOffset = [](const MessageIndex::Entry& left, const MessageIndex::Entry& right) {
      return left.offset < right.offset;
    };
    std::sort(index.entries.begin(), index.entries.end(), byOffset);
    const auto expected = fExpected.find(index.channelId);
    const auto isSame = [](const MessageIndex::Entry& left, const MessageIndex::Entry& right) {
      return left.offset == right.offset && left.logTime == right.logTime;
    };
    if (expected == fExpected.end() ||
        !std::equal(index.entries.begin(), index.entries.end(), expected->second.begin(),
                    expected->second.end(), isSame)) {
      fExpected.erase(index.channelId);
      throw messages::FormatError("it does not tell where the messages of the chunk before it are");
    }
    fExpected.erase(expected);
  }

  /// Indexes may be left out altogether, but not some of them.
  void xExpectNoIndex(const RecordPlace& place) {
    if (!fExpected.empty() && fHasIndexes && !fIsLastChunkBad) {
      fVerdict.problems.add(place.offset, "the chunk before it lacks message indexes");
    }
    fExpected.clear();
  }

  void xCheckDataCrc(std::uint32_t said, const RecordPlace& place) {
    if (said != 0 && !fScanner.isBroken() && said != xCrc(0, place.offset)) {
      throw messages::FormatError(
          "the checksum of all data differs: something between the header and here "
          "has changed");
    }
  }

  std::uint32_t xCrc(std::uint64_t begin, std::uint64_t end) {
    std::string piece;
    std::uint32_t crc = 0;
    while (begin < end) {
      fSource.read(begin, static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, end - begin)),
                   piece);
      if (piece.empty()) {
        break;
      }
      crc = crcOf(piece, crc);
      begin += piece.size();
    }
    return crc;
  }

  void xCheckSummary(const RecordPlace& place) {
    switch (place.opcode) {
    case Opcode::Schema:
    case Opcode::Channel:
      xDefine(place.opcode, fScanner.content(place));
      break;
    case Opcode::Statistics:
      xCheckStatistics(decodeStatistics(fScanner.content(place)));
      break;
    case Opcode::ChunkIndex:
      ++fChunkIndexes;
      xCheckChunkIndex(decodeChunkIndex(fScanner.content(place)));
      break;
    case Opcode::Footer:
      xCheckFooter(decodeFooter(fScanner.content(place)), place);
      break;
    default:
      break;
    }
  }

  void xCheckStatistics(const Statistics& said) {
    const Statistics& found = fVerdict.statistics;
    const auto expect = [](std::uint64_t one, std::uint64_t other, const char* what) {
      if (one != other) {
        throw messages::FormatError("it tells of " + std::to_string(one) + " " + what +
                                    " where there are " + std::to_string(other));
      }
    };
    expect(said.messageCount, found.messageCount, "messages");
    expect(said.chunkCount, found.chunkCount, "chunks");
    expect(said.attachmentCount, found.attachmentCount, "attachments");
    expect(said.metadataCount, found.metadataCount, "metadata records");
    if (said.startTime != found.startTime || said.endTime != found.endTime) {
      throw messages::FormatError("its times are not those of the messages");
    }
    for (const auto& [channel, count] : found.channelMessageCounts) {
      const auto entry = said.channelMessageCounts.find(channel);
      expect(entry != said.channelMessageCounts.end() ? entry->second : 0, count,
             ("messages of channel " + std::to_string(channel)).c_str());
    }
  }

  void xCheckChunkIndex(const ChunkIndex& index) {
    const RecordPlace chunk{Opcode::Chunk, index.offset, index.length - kRecordHead};
    if (index.length < kRecordHead || index.offset > fSource.size() ||
        index.length > fSource.size() - index.offset) {
      throw messages::FormatError("it points out of the file");
    }
    fSource.read(index.offset, 1, fByte);
    if (fByte.empty() || static_cast<Opcode>(fByte.front()) != Opcode::Chunk) {
      throw messages::FormatError("there is no chunk at byte " + std::to_string(index.offset));
    }
    const ChunkHead head = fLoader.head(chunk).head;
    if (head.startTime != index.startTime || head.endTime != index.endTime ||
        head.compression != index.compression || head.compressedSize != index.compressedSize ||
        head.uncompressedSize != index.uncompressedSize) {
      throw messages::FormatError("it tells something else than the chunk at byte " +
                                  std::to_string(index.offset));
    }
  }

  void xCheckFooter(const Footer& footer, const RecordPlace& place) {
    if (footer.summaryStart != 0) {
      if (footer.summaryStart != fDataEnd->end()) {
        throw messages::FormatError("the summary does not begin behind the data");
      }
      constexpr std::uint64_t crcSize = 4;
      if (footer.summaryCrc != 0 &&
          footer.summaryCrc != xCrc(footer.summaryStart, place.end() - crcSize)) {
        throw messages::FormatError("the summary's checksum is not that of the summary");
      }
      if (fChunkIndexes != 0 && fChunkIndexes != fVerdict.statistics.chunkCount) {
        throw messages::FormatError("the summary does not tell of all chunks");
      }
    }
    if (place.end() + kMagic.size() != fSource.size()) {
      throw messages::FormatError("something follows behind the end");
    }
  }

  void xCheckEnd() {
    if (!fScanner.footer()) {
      fVerdict.problems.add(fSource.size() - std::min<std::uint64_t>(fSource.size(), kFileTail),
                            "the file does not end as an MCAP file does");
    }
  }

  Source& fSource;
  const Progress& fProgress;
  Verdict fVerdict;
  Scanner fScanner;
  ChunkLoader fLoader;
  /// By number: contents of the records that defined them.
  std::map<std::uint16_t, std::string> fSchemas;
  std::map<std::uint16_t, std::string> fChannels;
  /// By channel: what the indexes behind the last chunk must tell.
  std::map<std::uint16_t, std::vector<MessageIndex::Entry>> fExpected;
  /// The file has message indexes: all chunks need them.
  bool fHasIndexes = false;
  bool fIsLastChunkBad = false;
  std::optional<RecordPlace> fDataEnd;
  std::uint64_t fDefinitionBytes = 0;
  std::uint64_t fChunkIndexes = 0;
  std::string fByte;
};

} // namespace

Verdict verify(Source& source, const Progress& progress) {
  return Check(source, progress).run();
}

} // namespace gk::formats::mcap
