#include "formats/mcap/ChunkLoader.h"

#include "formats/mcap/Bytes.h"
#include "formats/mcap/Crc.h"
#include "messages/json/JsonText.h"

#include <algorithm>

namespace gk::formats::mcap {

DecodedChunk ChunkLoader::head(const RecordPlace& place) {
  const std::uint64_t count = std::min<std::uint64_t>(place.length, kLongestChunkHead);
  fSource.read(place.contentAt(), static_cast<std::size_t>(count), fStored);
  return decodeChunkHead(fStored, place.length);
}

std::string_view ChunkLoader::load(const RecordPlace& place) {
  const DecodedChunk chunk = head(place);
  const ChunkHead& head = chunk.head;
  const std::optional<Compression> compression = findCompression(head.compression);
  if (!compression) {
    throw messages::FormatError("its compression " + messages::quotedText(head.compression) +
                                " is unknown");
  }
  if (head.compressedSize > fMaxChunk || head.uncompressedSize > fMaxChunk) {
    throw messages::FormatError("it is larger than " + std::to_string(fMaxChunk) + " bytes");
  }
  fSource.read(place.contentAt() + chunk.recordsAt, static_cast<std::size_t>(head.compressedSize),
               fStored);
  if (fStored.size() != head.compressedSize) {
    throw messages::FormatError("it is not whole");
  }
  fDecompressor.decompress(*compression, fStored, static_cast<std::size_t>(head.uncompressedSize),
                           fRecords);
  if (head.uncompressedCrc != 0 && head.uncompressedCrc != crcOf(fRecords)) {
    throw messages::FormatError("its checksum is not that of its records");
  }
  return fRecords;
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
