#pragma once

#include "formats/mcap/Records.h"

#include <string_view>

/// The contents of records, read from bytes. Every function takes a record's content without its
/// head and raises `FormatError` when it does not hold what it should; bytes behind it are left
/// alone where the format lets records grow.
namespace gk::formats::mcap {

Schema decodeSchema(std::string_view content);
Channel decodeChannel(std::string_view content);
/// The data points into `content`.
Message decodeMessage(std::string_view content);

/// A chunk's head and where in its content the records begin.
struct DecodedChunk {
  ChunkHead head;
  std::size_t recordsAt = 0;
};

/// `content` may end after the chunk's head; `length` is the whole content's length, which the
/// chunk's records must fill.
DecodedChunk decodeChunkHead(std::string_view content, std::uint64_t length);

/// Longest head of a chunk that is read: of a compression with a name of up to 64 bytes.
constexpr std::size_t kLongestChunkHead = 8 + 8 + 8 + 4 + 4 + 64 + 8;

MessageIndex decodeMessageIndex(std::string_view content);
ChunkIndex decodeChunkIndex(std::string_view content);
Attachment decodeAttachment(std::string_view content);
Statistics decodeStatistics(std::string_view content);
Metadata decodeMetadata(std::string_view content);
std::uint32_t decodeDataEnd(std::string_view content);
Footer decodeFooter(std::string_view content);

} // namespace gk::formats::mcap
