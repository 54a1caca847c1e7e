#include "formats/mcap/Encode.h"

#include "formats/mcap/Bytes.h"
#include "formats/mcap/Crc.h"

namespace gk::formats::mcap {

namespace {

/// A record being appended: its length is filled in when it is complete.
class Record {
public:
  Record(std::string& out, Opcode opcode) : fOut(out) {
    fOut.push_back(static_cast<char>(opcode));
    fLengthAt = fOut.size();
    appendNumber(fOut, std::uint64_t{0});
  }
  ~Record() {
    const std::uint64_t content = fOut.size() - fLengthAt - sizeof(std::uint64_t);
    std::string length;
    appendNumber(length, content);
    fOut.replace(fLengthAt, length.size(), length);
  }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

private:
  std::string& fOut;
  std::size_t fLengthAt;
};

/// Appends a map: its length in bytes, then what `append` makes of each entry.
template <class Map, class Append>
void appendMap(std::string& out, const Map& map, const Append& append) {
  std::string entries;
  for (const auto& [key, value] : map) {
    append(entries, key, value);
  }
  appendText(out, entries);
}

void appendStrings(std::string& out, const StringMap& map) {
  appendMap(out, map, [](std::string& entries, const std::string& key, const std::string& value) {
    appendText(entries, key);
    appendText(entries, value);
  });
}

void appendCounts(std::string& out, const std::map<std::uint16_t, std::uint64_t>& map) {
  appendMap(out, map, [](std::string& entries, std::uint16_t key, std::uint64_t value) {
    appendNumber(entries, key);
    appendNumber(entries, value);
  });
}

} // namespace

void appendHeader(std::string& out, std::string_view profile, std::string_view library) {
  const Record record(out, Opcode::Header);
  appendText(out, profile);
  appendText(out, library);
}

void appendSchema(std::string& out, const Schema& schema) {
  const Record record(out, Opcode::Schema);
  appendNumber(out, schema.id);
  appendText(out, schema.name);
  appendText(out, schema.encoding);
  appendText(out, schema.data);
}

void appendChannel(std::string& out, const Channel& channel) {
  const Record record(out, Opcode::Channel);
  appendNumber(out, channel.id);
  appendNumber(out, channel.schemaId);
  appendText(out, channel.topic);
  appendText(out, channel.messageEncoding);
  appendStrings(out, channel.metadata);
}

void appendMessage(std::string& out, const Message& message) {
  out.push_back(static_cast<char>(Opcode::Message));
  appendNumber(out, static_cast<std::uint64_t>(kMessageHead + message.data.size()));
  appendNumber(out, message.channelId);
  appendNumber(out, message.sequence);
  appendNumber(out, message.logTime);
  appendNumber(out, message.publishTime);
  out += message.data;
}

void appendChunkHead(std::string& out, const ChunkHead& head) {
  out.push_back(static_cast<char>(Opcode::Chunk));
  const std::uint64_t content = 8 + 8 + 8 + 4 + 4 + head.compression.size() + 8;
  appendNumber(out, content + head.compressedSize);
  appendNumber(out, head.startTime);
  appendNumber(out, head.endTime);
  appendNumber(out, head.uncompressedSize);
  appendNumber(out, head.uncompressedCrc);
  appendText(out, head.compression);
  appendNumber(out, head.compressedSize);
}

void appendMessageIndex(std::string& out, const MessageIndex& index) {
  const Record record(out, Opcode::MessageIndex);
  appendNumber(out, index.channelId);
  appendNumber(out, static_cast<std::uint32_t>(index.entries.size() * 16));
  for (const MessageIndex::Entry& entry : index.entries) {
    appendNumber(out, entry.logTime);
    appendNumber(out, entry.offset);
  }
}

void appendChunkIndex(std::string& out, const ChunkIndex& index) {
  const Record record(out, Opcode::ChunkIndex);
  appendNumber(out, index.startTime);
  appendNumber(out, index.endTime);
  appendNumber(out, index.offset);
  appendNumber(out, index.length);
  appendCounts(out, index.messageIndexOffsets);
  appendNumber(out, index.messageIndexLength);
  appendText(out, index.compression);
  appendNumber(out, index.compressedSize);
  appendNumber(out, index.uncompressedSize);
}

void appendAttachment(std::string& out, const Attachment& attachment) {
  const Record record(out, Opcode::Attachment);
  const std::size_t start = out.size();
  appendNumber(out, attachment.logTime);
  appendNumber(out, attachment.createTime);
  appendText(out, attachment.name);
  appendText(out, attachment.mediaType);
  appendNumber(out, static_cast<std::uint64_t>(attachment.data.size()));
  out += attachment.data;
  appendNumber(out, crcOf(std::string_view(out).substr(start)));
}

void appendAttachmentIndex(std::string& out, const Attachment& attachment, std::uint64_t offset,
                           std::uint64_t length) {
  const Record record(out, Opcode::AttachmentIndex);
  appendNumber(out, offset);
  appendNumber(out, length);
  appendNumber(out, attachment.logTime);
  appendNumber(out, attachment.createTime);
  appendNumber(out, static_cast<std::uint64_t>(attachment.data.size()));
  appendText(out, attachment.name);
  appendText(out, attachment.mediaType);
}

void appendStatistics(std::string& out, const Statistics& statistics) {
  const Record record(out, Opcode::Statistics);
  appendNumber(out, statistics.messageCount);
  appendNumber(out, statistics.schemaCount);
  appendNumber(out, statistics.channelCount);
  appendNumber(out, statistics.attachmentCount);
  appendNumber(out, statistics.metadataCount);
  appendNumber(out, statistics.chunkCount);
  appendNumber(out, statistics.startTime);
  appendNumber(out, statistics.endTime);
  appendCounts(out, statistics.channelMessageCounts);
}

void appendMetadata(std::string& out, const Metadata& metadata) {
  const Record record(out, Opcode::Metadata);
  appendText(out, metadata.name);
  appendStrings(out, metadata.values);
}

void appendMetadataIndex(std::string& out, std::string_view name, std::uint64_t offset,
                         std::uint64_t length) {
  const Record record(out, Opcode::MetadataIndex);
  appendNumber(out, offset);
  appendNumber(out, length);
  appendText(out, name);
}

void appendSummaryOffset(std::string& out, Opcode group, std::uint64_t start,
                         std::uint64_t length) {
  const Record record(out, Opcode::SummaryOffset);
  appendNumber(out, static_cast<std::uint8_t>(group));
  appendNumber(out, start);
  appendNumber(out, length);
}

void appendDataEnd(std::string& out, std::uint32_t crc) {
  const Record record(out, Opcode::DataEnd);
  appendNumber(out, crc);
}

void appendFooterHead(std::string& out, const Footer& footer) {
  out.push_back(static_cast<char>(Opcode::Footer));
  appendNumber(out, std::uint64_t{kFooterContent});
  appendNumber(out, footer.summaryStart);
  appendNumber(out, footer.summaryOffsetStart);
}

} // namespace gk::formats::mcap
