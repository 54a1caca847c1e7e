#include "formats/mcap/Writer.h"

#include "formats/mcap/Bytes.h"
#include "formats/mcap/Crc.h"
#include "formats/mcap/Encode.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>

namespace gk::formats::mcap {

namespace {

constexpr std::size_t kMostIds = std::numeric_limits<std::uint16_t>::max();

} // namespace

/// Bytes that wait for the end of the file in a temporary one, or in memory where there can be
/// none.
class Writer::Spill {
public:
  Spill() : fFile(std::tmpfile()) {}
  ~Spill() {
    if (fFile != nullptr) {
      std::fclose(fFile);
    }
  }
  Spill(const Spill&) = delete;
  Spill& operator=(const Spill&) = delete;

  void add(std::string_view bytes) {
    if (fFile == nullptr) {
      fMemory += bytes;
    } else if (std::fwrite(bytes.data(), 1, bytes.size(), fFile) != bytes.size()) {
      throw OutputError(OutputError::Kind::Write, "cannot write a temporary file");
    }
  }

  /// Gives everything to `take`, piece by piece.
  template <class Take> void drain(const Take& take) {
    take(fMemory);
    if (fFile == nullptr) {
      return;
    }
    std::rewind(fFile);
    char buffer[1 << 16];
    std::size_t read = 0;
    while ((read = std::fread(buffer, 1, sizeof(buffer), fFile)) > 0) {
      take(std::string_view(buffer, read));
    }
    if (std::ferror(fFile) != 0) {
      throw OutputError(OutputError::Kind::Write, "cannot read a temporary file");
    }
  }

private:
  std::FILE* fFile;
  std::string fMemory;
};

Writer::Writer(Sink& sink, Options options)
    : fSink(sink), fChunkSize(options.chunkSize), fApartTopic(std::move(options.apart)),
      fCompressor(options.compression, options.level), fChunkIndexes(std::make_unique<Spill>()) {
  std::string start(kMagic);
  appendHeader(start, options.profile, options.library);
  xWrite(start);
}

Writer::~Writer() = default;

void Writer::xWrite(std::string_view bytes) {
  fSink.write(bytes);
  fCrc = crcOf(bytes, fCrc);
  fOffset += bytes.size();
}

std::uint16_t Writer::addSchema(std::string name, std::string encoding, std::string data) {
  if (fSchemas.size() == kMostIds) {
    throw messages::FormatError("a file cannot have more than 65535 schemas");
  }
  const auto id = static_cast<std::uint16_t>(fSchemas.size() + 1);
  fSchemas.push_back({id, std::move(name), std::move(encoding), std::move(data)});
  return id;
}

std::uint16_t Writer::addChannel(std::string topic, std::string messageEncoding,
                                 std::uint16_t schema, StringMap metadata) {
  if (fChannels.size() == kMostIds) {
    throw messages::FormatError("a file cannot have more than 65535 channels");
  }
  const auto id = static_cast<std::uint16_t>(fChannels.size() + 1);
  fChannels.push_back(
      {id, schema, std::move(topic), std::move(messageEncoding), std::move(metadata)});
  fNextSequence.push_back(1);
  return id;
}

void Writer::write(std::uint16_t channel, std::uint64_t logTime, std::uint64_t publishTime,
                   std::string_view data) {
  write({channel, fNextSequence[channel - 1U]++, logTime, publishTime, data});
}

void Writer::write(const Message& message) {
  const bool isApart = fChannels[message.channelId - 1U].topic == fApartTopic;
  OpenChunk& chunk = isApart ? fApart : fShared;
  const bool isFirst = chunk.isEmpty();
  chunk.start = isFirst ? message.logTime : std::min(chunk.start, message.logTime);
  chunk.end = isFirst ? message.logTime : std::max(chunk.end, message.logTime);
  MessageIndex& index = chunk.indexes[message.channelId];
  index.channelId = message.channelId;
  index.entries.push_back({message.logTime, chunk.messages.size()});
  appendMessage(chunk.messages, message);
  xCountTime(message.logTime);
  ++fStatistics.channelMessageCounts[message.channelId];
  if (chunk.messages.size() >= fChunkSize) {
    xClose(chunk);
  }
}

void Writer::xCountTime(std::uint64_t time) {
  const bool isFirst = fStatistics.messageCount++ == 0;
  fStatistics.startTime = isFirst ? time : std::min(fStatistics.startTime, time);
  fStatistics.endTime = isFirst ? time : std::max(fStatistics.endTime, time);
}

/// A channel, behind its schema, unless they have been told of.
void Writer::xDefine(const Channel& channel) {
  if (!fToldChannels.insert(channel.id).second) {
    return;
  }
  if (channel.schemaId != 0 && fToldSchemas.insert(channel.schemaId).second) {
    appendSchema(fRecords, fSchemas[channel.schemaId - 1U]);
  }
  appendChannel(fRecords, channel);
}

void Writer::xAppendDefinitions(const OpenChunk& chunk) {
  if (fStatistics.chunkCount % kRepeatChunks == 0) {
    fToldSchemas.clear();
    for (const std::uint16_t id : std::exchange(fToldChannels, {})) {
      xDefine(fChannels[id - 1U]);
    }
  }
  for (const auto& [id, index] : chunk.indexes) {
    xDefine(fChannels[id - 1U]);
  }
}

void Writer::closeChunk() {
  const bool isApartFirst = fApart.start <= fShared.start;
  xClose(isApartFirst ? fApart : fShared);
  xClose(isApartFirst ? fShared : fApart);
}

void Writer::xClose(OpenChunk& chunk) {
  if (chunk.isEmpty()) {
    return;
  }
  fRecords.clear();
  xAppendDefinitions(chunk);
  const std::size_t preamble = fRecords.size();
  fRecords += chunk.messages;
  fCompressor.compress(fRecords, fCompressed);

  ChunkHead head;
  head.startTime = chunk.start;
  head.endTime = chunk.end;
  head.uncompressedSize = fRecords.size();
  head.uncompressedCrc = crcOf(fRecords);
  head.compression = compressionName(fCompressor.compression());
  head.compressedSize = fCompressed.size();

  ChunkIndex index;
  index.startTime = head.startTime;
  index.endTime = head.endTime;
  index.offset = fOffset;
  index.compression = head.compression;
  index.compressedSize = head.compressedSize;
  index.uncompressedSize = head.uncompressedSize;
  fHead.clear();
  appendChunkHead(fHead, head);
  xWrite(fHead);
  xWrite(fCompressed);
  index.length = fOffset - index.offset;
  xWriteMessageIndexes(chunk, index, preamble);

  std::string record;
  appendChunkIndex(record, index);
  fChunkIndexes->add(record);
  ++fStatistics.chunkCount;
  chunk.messages.clear();
  chunk.indexes.clear();
}

void Writer::xWriteMessageIndexes(OpenChunk& chunk, ChunkIndex& index, std::size_t preamble) {
  const std::uint64_t start = fOffset;
  for (auto& [id, messages] : chunk.indexes) {
    for (MessageIndex::Entry& entry : messages.entries) {
      entry.offset += preamble;
    }
    index.messageIndexOffsets[id] = fOffset;
    fHead.clear();
    appendMessageIndex(fHead, messages);
    xWrite(fHead);
  }
  index.messageIndexLength = fOffset - start;
}

void Writer::addMetadata(const Metadata& metadata) {
  closeChunk();
  std::string record;
  appendMetadata(record, metadata);
  appendMetadataIndex(fMetadataIndexes, metadata.name, fOffset, record.size());
  ++fStatistics.metadataCount;
  xWrite(record);
}

void Writer::addAttachment(const Attachment& attachment) {
  closeChunk();
  std::string record;
  appendAttachment(record, attachment);
  appendAttachmentIndex(fAttachmentIndexes, attachment, fOffset, record.size());
  ++fStatistics.attachmentCount;
  xWrite(record);
}

void Writer::finish() {
  closeChunk();
  std::string bytes;
  appendDataEnd(bytes, fCrc);
  xWrite(bytes);

  // From here on the running checksum is the summary's.
  const std::uint64_t summaryStart = fOffset;
  fCrc = 0;
  std::string offsets;
  const auto writeGroup = [&](Opcode group, const auto& fill) {
    const std::uint64_t start = fOffset;
    fill();
    if (fOffset > start) {
      appendSummaryOffset(offsets, group, start, fOffset - start);
    }
  };
  const auto writeRecords = [&](const auto& records, const auto& append) {
    for (const auto& record : records) {
      bytes.clear();
      append(bytes, record);
      xWrite(bytes);
    }
  };
  fStatistics.schemaCount = static_cast<std::uint16_t>(fSchemas.size());
  fStatistics.channelCount = static_cast<std::uint32_t>(fChannels.size());
  writeGroup(Opcode::Schema, [&] { writeRecords(fSchemas, appendSchema); });
  writeGroup(Opcode::Channel, [&] { writeRecords(fChannels, appendChannel); });
  writeGroup(Opcode::Statistics,
             [&] { writeRecords(std::vector<Statistics>{fStatistics}, appendStatistics); });
  writeGroup(Opcode::ChunkIndex,
             [&] { fChunkIndexes->drain([this](std::string_view piece) { xWrite(piece); }); });
  writeGroup(Opcode::AttachmentIndex, [&] { xWrite(fAttachmentIndexes); });
  writeGroup(Opcode::MetadataIndex, [&] { xWrite(fMetadataIndexes); });

  const std::uint64_t offsetStart = fOffset;
  xWrite(offsets);
  bytes.clear();
  appendFooterHead(bytes, {summaryStart, offsetStart, 0});
  xWrite(bytes);
  bytes.clear();
  appendNumber(bytes, fCrc);
  bytes += kMagic;
  xWrite(bytes);
  fSink.sync();
}

} // namespace gk::formats::mcap
