#include "formats/mcap/ChunkLoader.h"

#include "formats/mcap/Bytes.h"
#include "formats/mcap/Crc.h"
#include "messages/json/JsonText.h"

#include <algorithm>
#include <utility>

namespace gk::formats::mcap {

DecodedChunk ChunkLoader::head(const RecordPlace& place) {
  const std::uint64_t count = std::min<std::uint64_t>(place.length, kLongestChunkHead);
  fSource.read(place.contentAt(), static_cast<std::size_t>(count), fHead);
  return decodeChunkHead(fHead, place.length);
}

std::string_view ChunkLoader::load(const RecordPlace& place) {
  if (fUnpacking.valid() && fAheadAt == place.offset) {
    std::swap(fPresent, fAhead);
    fUnpacking.get();
  } else {
    xRead(place, *fPresent);
    xUnpack(*fPresent);
  }
  return fPresent->records;
}

void ChunkLoader::loadAhead(const RecordPlace& place) {
  if (fUnpacking.valid()) {
    fUnpacking.wait();
  }
  if (fAhead == nullptr) {
    fAhead = std::make_unique<Chunk>();
  }
  fUnpacking = {};
  xRead(place, *fAhead);
  fAheadAt = place.offset;
  // Without a thread to be had it is unpacked by who loads it.
  fUnpacking = std::async(std::launch::async | std::launch::deferred,
                          [chunk = fAhead.get()] { xUnpack(*chunk); });
}

void ChunkLoader::xRead(const RecordPlace& place, Chunk& chunk) {
  const DecodedChunk decoded = head(place);
  chunk.head = decoded.head;
  const std::optional<Compression> compression = findCompression(chunk.head.compression);
  if (!compression) {
    throw messages::FormatError("its compression " + messages::quotedText(chunk.head.compression) +
                                " is unknown");
  }
  chunk.compression = *compression;
  if (chunk.head.compressedSize > fMaxChunk || chunk.head.uncompressedSize > fMaxChunk) {
    throw messages::FormatError("it is larger than " + std::to_string(fMaxChunk) + " bytes");
  }
  fSource.read(place.contentAt() + decoded.recordsAt,
               static_cast<std::size_t>(chunk.head.compressedSize), chunk.stored);
  if (chunk.stored.size() != chunk.head.compressedSize) {
    throw messages::FormatError("it is not whole");
  }
}

void ChunkLoader::xUnpack(Chunk& chunk) {
  chunk.decompressor.decompress(chunk.compression, chunk.stored,
                                static_cast<std::size_t>(chunk.head.uncompressedSize),
                                chunk.records);
  if (chunk.head.uncompressedCrc != 0 && chunk.head.uncompressedCrc != crcOf(chunk.records)) {
    throw messages::FormatError("its checksum is not that of its records");
  }
}

std::optional<InnerRecord> InnerRecords::next() {
  if (fPosition == fRecords.size()) {
    return std::nullopt;
  }
  ByteCursor cursor(fRecords.substr(fPosition));
  InnerRecord record;
  record.opcode = static_cast<Opcode>(cursor.number<std::uint8_t>());
  record.offset = fPosition;
  record.content = cursor.bytes(cursor.number<std::uint64_t>());
  fPosition += cursor.position();
  return record;
}

} // namespace gk::formats::mcap
