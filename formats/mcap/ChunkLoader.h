#pragma once

#include "formats/mcap/Compression.h"
#include "formats/mcap/Decode.h"
#include "formats/mcap/Scanner.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace gk::formats::mcap {

/// Reads chunks into memory, one at a time, and checks them. For one thread.
class ChunkLoader {
public:
  /// Largest chunk that is taken, compressed or not.
  static constexpr std::uint64_t kMaxChunk = 256 << 20;

  explicit ChunkLoader(Source& source, std::uint64_t maxChunk = kMaxChunk)
      : fSource(source), fMaxChunk(maxChunk) {}

  /// The head of the chunk at this place. Raises `FormatError` for one that cannot be right.
  DecodedChunk head(const RecordPlace& place);

  /// The chunk's records, decompressed, with the right checksum. The view is good until the next
  /// call. Raises `FormatError` telling what is wrong.
  std::string_view load(const RecordPlace& place);

private:
  Source& fSource;
  const std::uint64_t fMaxChunk;
  Decompressor fDecompressor;
  std::string fStored;
  std::string fRecords;
};

/// One record in a chunk.
struct InnerRecord {
  Opcode opcode{};
  /// In the chunk, of the record's head.
  std::size_t offset = 0;
  std::string_view content;
};

/// Walks over the records of a loaded chunk.
class InnerRecords {
public:
  explicit InnerRecords(std::string_view records = {}) : fRecords(records) {}

  /// The next record, or nothing at the end. Raises `FormatError` when the next one is not whole.
  std::optional<InnerRecord> next();

private:
  std::string_view fRecords;
  std::size_t fPosition = 0;
};

} // namespace gk::formats::mcap
