#include "formats/mcap/Decode.h"

#include "formats/mcap/Bytes.h"
#include "messages/text/FormatError.h"

namespace gk::formats::mcap {

namespace {

StringMap decodeStrings(ByteCursor& cursor) {
  ByteCursor entries(cursor.text());
  StringMap map;
  while (!entries.isAtEnd()) {
    std::string key(entries.text());
    map.insert_or_assign(std::move(key), std::string(entries.text()));
  }
  return map;
}

std::map<std::uint16_t, std::uint64_t> decodeCounts(ByteCursor& cursor) {
  ByteCursor entries(cursor.text());
  std::map<std::uint16_t, std::uint64_t> map;
  while (!entries.isAtEnd()) {
    const auto key = entries.number<std::uint16_t>();
    map.insert_or_assign(key, entries.number<std::uint64_t>());
  }
  return map;
}

} // namespace

void endTooEarly() {
  throw messages::FormatError("it ends too early");
}

Schema decodeSchema(std::string_view content) {
  ByteCursor cursor(content);
  Schema schema;
  schema.id = cursor.number<std::uint16_t>();
  schema.name = cursor.text();
  schema.encoding = cursor.text();
  schema.data = cursor.text();
  if (schema.id == 0) {
    throw messages::FormatError("a schema's number is not 0");
  }
  return schema;
}

Channel decodeChannel(std::string_view content) {
  ByteCursor cursor(content);
  Channel channel;
  channel.id = cursor.number<std::uint16_t>();
  channel.schemaId = cursor.number<std::uint16_t>();
  channel.topic = cursor.text();
  channel.messageEncoding = cursor.text();
  channel.metadata = decodeStrings(cursor);
  return channel;
}

Message decodeMessage(std::string_view content) {
  ByteCursor cursor(content);
  Message message;
  message.channelId = cursor.number<std::uint16_t>();
  message.sequence = cursor.number<std::uint32_t>();
  message.logTime = cursor.number<std::uint64_t>();
  message.publishTime = cursor.number<std::uint64_t>();
  message.data = cursor.bytes(cursor.left());
  return message;
}

DecodedChunk decodeChunkHead(std::string_view content, std::uint64_t length) {
  ByteCursor cursor(content);
  DecodedChunk chunk;
  chunk.head.startTime = cursor.number<std::uint64_t>();
  chunk.head.endTime = cursor.number<std::uint64_t>();
  chunk.head.uncompressedSize = cursor.number<std::uint64_t>();
  chunk.head.uncompressedCrc = cursor.number<std::uint32_t>();
  chunk.head.compression = cursor.text();
  chunk.head.compressedSize = cursor.number<std::uint64_t>();
  chunk.recordsAt = cursor.position();
  if (chunk.recordsAt > length || chunk.head.compressedSize > length - chunk.recordsAt) {
    throw messages::FormatError("its records are said to be longer than the chunk");
  }
  return chunk;
}

MessageIndex decodeMessageIndex(std::string_view content) {
  ByteCursor cursor(content);
  MessageIndex index;
  index.channelId = cursor.number<std::uint16_t>();
  ByteCursor entries(cursor.text());
  index.entries.reserve(entries.left() / 16);
  while (!entries.isAtEnd()) {
    const auto logTime = entries.number<std::uint64_t>();
    index.entries.push_back({logTime, entries.number<std::uint64_t>()});
  }
  return index;
}

ChunkIndex decodeChunkIndex(std::string_view content) {
  ByteCursor cursor(content);
  ChunkIndex index;
  index.startTime = cursor.number<std::uint64_t>();
  index.endTime = cursor.number<std::uint64_t>();
  index.offset = cursor.number<std::uint64_t>();
  index.length = cursor.number<std::uint64_t>();
  index.messageIndexOffsets = decodeCounts(cursor);
  index.messageIndexLength = cursor.number<std::uint64_t>();
  index.compression = cursor.text();
  index.compressedSize = cursor.number<std::uint64_t>();
  index.uncompressedSize = cursor.number<std::uint64_t>();
  return index;
}

Attachment decodeAttachment(std::string_view content) {
  ByteCursor cursor(content);
  Attachment attachment;
  attachment.logTime = cursor.number<std::uint64_t>();
  attachment.createTime = cursor.number<std::uint64_t>();
  attachment.name = cursor.text();
  attachment.mediaType = cursor.text();
  attachment.data = cursor.bytes(cursor.number<std::uint64_t>());
  attachment.crc = cursor.number<std::uint32_t>();
  return attachment;
}

Statistics decodeStatistics(std::string_view content) {
  ByteCursor cursor(content);
  Statistics statistics;
  statistics.messageCount = cursor.number<std::uint64_t>();
  statistics.schemaCount = cursor.number<std::uint16_t>();
  statistics.channelCount = cursor.number<std::uint32_t>();
  statistics.attachmentCount = cursor.number<std::uint32_t>();
  statistics.metadataCount = cursor.number<std::uint32_t>();
  statistics.chunkCount = cursor.number<std::uint32_t>();
  statistics.startTime = cursor.number<std::uint64_t>();
  statistics.endTime = cursor.number<std::uint64_t>();
  statistics.channelMessageCounts = decodeCounts(cursor);
  return statistics;
}

Metadata decodeMetadata(std::string_view content) {
  ByteCursor cursor(content);
  Metadata metadata;
  metadata.name = cursor.text();
  metadata.values = decodeStrings(cursor);
  return metadata;
}

std::uint32_t decodeDataEnd(std::string_view content) {
  return ByteCursor(content).number<std::uint32_t>();
}

Footer decodeFooter(std::string_view content) {
  ByteCursor cursor(content);
  Footer footer;
  footer.summaryStart = cursor.number<std::uint64_t>();
  footer.summaryOffsetStart = cursor.number<std::uint64_t>();
  footer.summaryCrc = cursor.number<std::uint32_t>();
  if (!cursor.isAtEnd()) {
    throw messages::FormatError("it is longer than a footer");
  }
  return footer;
}

} // namespace gk::formats::mcap
