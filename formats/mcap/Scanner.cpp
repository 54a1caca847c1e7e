#include "formats/mcap/Scanner.h"

#include "formats/mcap/Bytes.h"
#include "formats/mcap/Decode.h"
#include "messages/text/FormatError.h"

#include <algorithm>
#include <array>
#include <utility>

namespace gk::formats::mcap {

void Problems::add(std::uint64_t offset, std::string text) {
  ++fCount;
  if (fKept.size() < kKept) {
    fKept.push_back({offset, std::move(text)});
  }
}

std::string recordName(Opcode opcode) {
  constexpr std::array<const char*, 16> names{"",           "header",           "footer",
                                              "schema",     "channel",          "message",
                                              "chunk",      "message index",    "chunk index",
                                              "attachment", "attachment index", "statistics",
                                              "metadata",   "metadata index",   "summary offset",
                                              "data end"};
  const auto number = static_cast<std::size_t>(opcode);
  return number > 0 && number < names.size() ? names[number]
                                             : "record of kind " + std::to_string(number);
}

Scanner::Scanner(Source& source, Problems& problems)
    : fSource(source), fProblems(problems), fPosition(kMagic.size()) {
  fSource.read(0, kMagic.size(), fHead);
  if (fHead != kMagic) {
    throw messages::FormatError("it does not begin as an MCAP file does");
  }
}

std::optional<RecordPlace> Scanner::at(std::uint64_t offset) {
  fSource.read(offset, kRecordHead, fHead);
  if (fHead.size() < kRecordHead) {
    return std::nullopt;
  }
  ByteCursor cursor(fHead);
  RecordPlace place;
  place.opcode = static_cast<Opcode>(cursor.number<std::uint8_t>());
  place.offset = offset;
  place.length = cursor.number<std::uint64_t>();
  const std::uint64_t room = fSource.size() - offset - kRecordHead;
  return place.length <= room && place.opcode != Opcode{} ? std::optional(place) : std::nullopt;
}

std::optional<RecordPlace> Scanner::next() {
  while (!fIsAtEnd) {
    const std::optional<RecordPlace> place = at(fPosition);
    if (!place) {
      fIsAtEnd = !xResume();
      continue;
    }
    fPosition = place->end();
    if (place->opcode == Opcode::Chunk) {
      fChunksDone = place->end();
    }
    fIsAtEnd = place->opcode == Opcode::Footer;
    return place;
  }
  return std::nullopt;
}

/// Finds where to go on after a head that cannot be right. False when there is no such place.
bool Scanner::xResume() {
  const std::uint64_t left = fSource.size() - std::min(fSource.size(), fPosition);
  const std::optional<Footer> end = footer();
  if (!end) {
    fIsCut = true;
    fProblems.add(fPosition, left == 0
                                 ? "the file ends without a footer: it was cut off"
                                 : "the file ends in the middle of a record: it was cut off, " +
                                       std::to_string(left) + " bytes are lost");
    return false;
  }
  fIsBroken = true;
  // What is broken here is not to be found again.
  const std::uint64_t from = fPosition == fChunksDone ? fChunksDone + 1 : fChunksDone;
  const std::optional<std::uint64_t> chunk = xNextIndexedChunk(from);
  fProblems.add(fPosition, "there is no record where one must be; " +
                               (chunk ? "going on with the chunk at byte " + std::to_string(*chunk)
                                      : std::string("nothing readable follows")));
  if (!chunk) {
    return false;
  }
  fPosition = *chunk;
  // What lies there may be no chunk: it is not to be come back to.
  fChunksDone = *chunk + 1;
  return true;
}

std::optional<Footer> Scanner::footer() {
  if (fSource.size() < kMagic.size() + kFileTail) {
    return std::nullopt;
  }
  std::string tail;
  fSource.read(fSource.size() - kFileTail, kFileTail, tail);
  if (tail.size() < kFileTail) {
    return std::nullopt; // the file has been cut meanwhile
  }
  ByteCursor cursor(tail);
  if (cursor.number<std::uint8_t>() != static_cast<std::uint8_t>(Opcode::Footer) ||
      cursor.number<std::uint64_t>() != kFooterContent || !tail.ends_with(kMagic)) {
    return std::nullopt;
  }
  return decodeFooter(cursor.bytes(kFooterContent));
}

/// The first chunk at or behind `from` of which the summary tells.
std::optional<std::uint64_t> Scanner::xNextIndexedChunk(std::uint64_t from) {
  const std::optional<Footer> end = footer();
  std::optional<std::uint64_t> chunk;
  if (!end || end->summaryStart == 0) {
    return chunk;
  }
  std::optional<RecordPlace> place = at(end->summaryStart);
  while (place && place->opcode != Opcode::Footer) {
    if (place->opcode == Opcode::ChunkIndex && place->length <= kMaxRecord) {
      try {
        const std::uint64_t offset = decodeChunkIndex(content(*place)).offset;
        if (offset >= from && offset < fSource.size() && (!chunk || offset < *chunk)) {
          chunk = offset;
        }
      } catch (const messages::FormatError&) {
        // An index that is damaged as well helps nobody.
        return chunk;
      }
    }
    place = at(place->end());
  }
  return chunk;
}

std::string_view Scanner::content(const RecordPlace& place, std::uint64_t most) {
  const std::uint64_t count = std::min(place.length, most);
  if (place.length > kMaxRecord && most == kMaxRecord) {
    throw messages::FormatError("it is longer than " + std::to_string(kMaxRecord) + " bytes");
  }
  fSource.read(place.contentAt(), static_cast<std::size_t>(count), fContent);
  return fContent;
}

double Scanner::progress() const noexcept {
  const auto size = static_cast<double>(fSource.size());
  return size > 0 ? static_cast<double>(fPosition) / size : 1.0;
}

} // namespace gk::formats::mcap
