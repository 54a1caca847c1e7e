#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// The MCAP container format, version 0 (mcap.dev): what its records hold. All numbers in a
/// file are little-endian; times are nanoseconds since 1970.
namespace gk::formats::mcap {

/// First and last bytes of a file.
constexpr std::string_view kMagic("\x89MCAP0\r\n", 8);

enum class Opcode : std::uint8_t {
  Header = 0x01,
  Footer = 0x02,
  Schema = 0x03,
  Channel = 0x04,
  Message = 0x05,
  Chunk = 0x06,
  MessageIndex = 0x07,
  ChunkIndex = 0x08,
  Attachment = 0x09,
  AttachmentIndex = 0x0A,
  Statistics = 0x0B,
  Metadata = 0x0C,
  MetadataIndex = 0x0D,
  SummaryOffset = 0x0E,
  DataEnd = 0x0F
};

/// Opcode and length in front of every record's content.
constexpr std::size_t kRecordHead = 9;
constexpr std::size_t kFooterContent = 20;
/// Footer record and final magic: where the way to the summary lies, seen from the file's end.
constexpr std::size_t kFileTail = kRecordHead + kFooterContent + kMagic.size();

using StringMap = std::map<std::string, std::string>;

struct Schema {
  std::uint16_t id = 0;
  std::string name;
  std::string encoding;
  std::string data;

  bool operator==(const Schema&) const = default;
};

struct Channel {
  std::uint16_t id = 0;
  /// 0 for a channel without a schema.
  std::uint16_t schemaId = 0;
  std::string topic;
  std::string messageEncoding;
  StringMap metadata;

  bool operator==(const Channel&) const = default;
};

/// A message; `data` points into the buffer that it was read from or is to be written from.
struct Message {
  std::uint16_t channelId = 0;
  std::uint32_t sequence = 0;
  std::uint64_t logTime = 0;
  std::uint64_t publishTime = 0;
  std::string_view data;
};

/// A chunk without its records.
struct ChunkHead {
  std::uint64_t startTime = 0;
  std::uint64_t endTime = 0;
  std::uint64_t uncompressedSize = 0;
  /// CRC-32 of the uncompressed records; 0 when not computed.
  std::uint32_t uncompressedCrc = 0;
  /// "", "zstd" or "lz4".
  std::string compression;
  std::uint64_t compressedSize = 0;
};

struct ChunkIndex {
  std::uint64_t startTime = 0;
  std::uint64_t endTime = 0;
  /// Place of the chunk's record in the file and its length with its head.
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
  /// Channel to the place of its message index.
  std::map<std::uint16_t, std::uint64_t> messageIndexOffsets;
  std::uint64_t messageIndexLength = 0;
  std::string compression;
  std::uint64_t compressedSize = 0;
  std::uint64_t uncompressedSize = 0;
};

struct MessageIndex {
  struct Entry {
    std::uint64_t logTime = 0;
    /// Place of the message's record in the uncompressed chunk.
    std::uint64_t offset = 0;
  };

  std::uint16_t channelId = 0;
  std::vector<Entry> entries;
};

struct Attachment {
  std::uint64_t logTime = 0;
  std::uint64_t createTime = 0;
  std::string name;
  std::string mediaType;
  std::string_view data;
  /// CRC-32 of all that comes before it in the record; 0 when not computed.
  std::uint32_t crc = 0;
};

struct Statistics {
  std::uint64_t messageCount = 0;
  std::uint16_t schemaCount = 0;
  std::uint32_t channelCount = 0;
  std::uint32_t attachmentCount = 0;
  std::uint32_t metadataCount = 0;
  std::uint32_t chunkCount = 0;
  std::uint64_t startTime = 0;
  std::uint64_t endTime = 0;
  std::map<std::uint16_t, std::uint64_t> channelMessageCounts;
};

struct Metadata {
  std::string name;
  StringMap values;
};

struct Footer {
  /// 0 when there is no summary.
  std::uint64_t summaryStart = 0;
  std::uint64_t summaryOffsetStart = 0;
  /// CRC-32 from the summary's start up to here; 0 when not computed.
  std::uint32_t summaryCrc = 0;
};

} // namespace gk::formats::mcap
