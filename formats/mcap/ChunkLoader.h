#pragma once

#include "formats/mcap/Compression.h"
#include "formats/mcap/Decode.h"
#include "formats/mcap/Scanner.h"

#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace gk::formats::mcap {

/// Reads chunks into memory, one at a time, and checks them. For one thread, which may have the
/// next chunk unpacked by another one meanwhile.
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

  /// `load` is likely to be asked for this chunk next: it is read now and unpacked by a thread of
  /// its own. Raises what `load` raises; what is wrong with the records only that tells.
  void loadAhead(const RecordPlace& place);

private:
  struct Chunk {
    ChunkHead head;
    Compression compression{};
    std::string stored;
    std::string records;
    Decompressor decompressor;
  };

  /// Decompresses and checks what has been read.
  static void xUnpack(Chunk& chunk);
  void xRead(const RecordPlace& place, Chunk& chunk);

  Source& fSource;
  const std::uint64_t fMaxChunk;
  std::string fHead;
  std::unique_ptr<Chunk> fPresent = std::make_unique<Chunk>();
  /// The chunk ahead, and where it lies. Its thread ends before the memory that it works on.
  std::unique_ptr<Chunk> fAhead;
  std::uint64_t fAheadAt = 0;
  std::future<void> fUnpacking;
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
