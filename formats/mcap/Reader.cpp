#include "formats/mcap/Reader.h"

#include "formats/mcap/Bytes.h"
#include "formats/mcap/Crc.h"
#include "formats/mcap/Decode.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace gk::formats::mcap {

namespace {

/// Adds a definition. Raises `FormatError` when its number stands for something else already.
/// True when it was new.
template <class T> bool define(std::map<std::uint16_t, T>& known, T definition, const char* what) {
  const auto entry = known.find(definition.id);
  if (entry == known.end()) {
    known.emplace(definition.id, std::move(definition));
    return true;
  }
  if (!(entry->second == definition)) {
    throw messages::FormatError(std::string(what) + " " + std::to_string(definition.id) +
                                " is defined in two ways");
  }
  return false;
}

} // namespace

Reader::Reader(Source& source, std::uint64_t maxChunk)
    : fSource(source), fScanner(source, fProblems), fLoader(source, maxChunk) {}

const Schema* Reader::schema(std::uint16_t id) const {
  const auto found = fSchemas.find(id);
  return found != fSchemas.end() ? &found->second : nullptr;
}

std::optional<Item> Reader::next() {
  while (true) {
    if (std::optional<Item> item = xNextInner()) {
      fItemOffset = fChunkOffset;
      return item;
    }
    const std::optional<RecordPlace> place = fScanner.next();
    if (!place || place->opcode == Opcode::DataEnd) {
      // Behind the data nothing new comes, but the file may still turn out to be cut off.
      while (place && fScanner.next()) {
      }
      return std::nullopt;
    }
    try {
      if (std::optional<Item> item = xTake(*place)) {
        fItemOffset = place->offset;
        return item;
      }
    } catch (const messages::FormatError& error) {
      fProblems.add(place->offset, recordName(place->opcode) + ": " + error.what());
    }
  }
}

std::optional<Item> Reader::xTake(const RecordPlace& place) {
  switch (place.opcode) {
  case Opcode::Header: {
    ByteCursor cursor(fScanner.content(place));
    fProfile = cursor.text();
    fLibrary = cursor.text();
    return std::nullopt;
  }
  case Opcode::Schema:
  case Opcode::Channel:
    xDefine(place.opcode, fScanner.content(place), place.offset);
    return std::nullopt;
  case Opcode::Message:
    return xTakeMessage(fScanner.content(place), place.offset);
  case Opcode::Chunk:
    xLoadChunk(place);
    return std::nullopt;
  case Opcode::Metadata:
    return decodeMetadata(fScanner.content(place));
  case Opcode::Attachment: {
    const std::string_view content = fScanner.content(place);
    Attachment attachment = decodeAttachment(content);
    const std::string_view covered = content.substr(0, content.size() - sizeof(attachment.crc));
    if (attachment.crc != 0 && attachment.crc != crcOf(covered)) {
      throw messages::FormatError("its checksum is not that of its content");
    }
    return attachment;
  }
  default:
    return std::nullopt;
  }
}

void Reader::xLoadChunk(const RecordPlace& place) {
  ++fChunks;
  fInner = InnerRecords();
  if (fWanted && !xMayHoldWanted(place)) {
    return;
  }
  fInner = InnerRecords(fLoader.load(place));
  fChunkOffset = place.offset;
  if (fIsReadingAhead) {
    xLoadAhead(place);
  }
}

/// The chunk behind this one that is going to be loaded, as far as can be seen from here. What
/// cannot be read is told where it is come to.
void Reader::xLoadAhead(const RecordPlace& chunk) {
  try {
    std::optional<RecordPlace> place = fScanner.at(chunk.end());
    while (place && place->opcode != Opcode::DataEnd) {
      if (place->opcode == Opcode::Chunk && (!fWanted || xMayHoldWanted(*place))) {
        fLoader.loadAhead(*place);
        return;
      }
      place = fScanner.at(place->end());
    }
  } catch (const std::runtime_error&) { // NOLINT(bugprone-empty-catch)
  }
}

/// By the indexes behind the chunk: one for each of its channels.
bool Reader::xMayHoldWanted(const RecordPlace& chunk) {
  std::optional<RecordPlace> index = fScanner.at(chunk.end());
  if (fWantedChannels.empty() || !index || index->opcode != Opcode::MessageIndex) {
    return true;
  }
  constexpr std::uint64_t idSize = sizeof(std::uint16_t);
  for (; index && index->opcode == Opcode::MessageIndex; index = fScanner.at(index->end())) {
    if (index->length < idSize ||
        fWantedChannels.contains(
            ByteCursor(fScanner.content(*index, idSize)).number<std::uint16_t>())) {
      return true;
    }
  }
  return false;
}

void Reader::xReadSummary() {
  const std::optional<Footer> footer = fScanner.footer();
  if (!footer || footer->summaryStart == 0) {
    return;
  }
  for (std::optional<RecordPlace> place = fScanner.at(footer->summaryStart);
       place && (place->opcode == Opcode::Schema || place->opcode == Opcode::Channel);
       place = fScanner.at(place->end())) {
    // A message may lie in the scanner's memory.
    std::string content;
    fSource.read(place->contentAt(), std::min(place->length, Scanner::kMaxRecord), content);
    xDefine(place->opcode, content, place->offset);
  }
}

std::optional<Item> Reader::xNextInner() {
  try {
    while (const std::optional<InnerRecord> record = fInner.next()) {
      if (record->opcode == Opcode::Message) {
        if (std::optional<Item> item = xTakeMessage(record->content, fChunkOffset)) {
          return item;
        }
      } else {
        xDefine(record->opcode, record->content, fChunkOffset);
      }
    }
  } catch (const messages::FormatError& error) {
    fProblems.add(fChunkOffset, std::string("chunk: a record in it: ") + error.what());
    fInner = InnerRecords();
  }
  return std::nullopt;
}

void Reader::xDefine(Opcode opcode, std::string_view content, std::uint64_t offset) {
  try {
    bool isNew = false;
    if (fDefinitionBytes > kMaxDefinitions) {
      throw messages::FormatError("the file defines too much");
    }
    if (opcode == Opcode::Schema) {
      isNew = define(fSchemas, decodeSchema(content), "schema");
    } else if (opcode == Opcode::Channel) {
      Channel channel = decodeChannel(content);
      if (channel.schemaId != 0 && schema(channel.schemaId) == nullptr) {
        throw messages::FormatError("channel " + std::to_string(channel.id) +
                                    " has an unknown schema");
      }
      if (fWanted && fWanted(channel)) {
        fWantedChannels.insert(channel.id);
      }
      isNew = define(fChannels, std::move(channel), "channel");
    }
    fDefinitionBytes += isNew ? content.size() : 0;
  } catch (const messages::FormatError& error) {
    fProblems.add(offset, recordName(opcode) + ": " + error.what());
  }
}

std::optional<Item> Reader::xTakeMessage(std::string_view content, std::uint64_t offset) {
  const Message message = decodeMessage(content);
  if (!fChannels.contains(message.channelId) && !std::exchange(fIsSummaryRead, true)) {
    // Where the chunk that told of it is damaged.
    xReadSummary();
  }
  if (!fChannels.contains(message.channelId)) {
    fProblems.add(offset, "message of the unknown channel " + std::to_string(message.channelId));
    return std::nullopt;
  }
  if (fWanted && !fWantedChannels.contains(message.channelId)) {
    return std::nullopt;
  }
  return message;
}

} // namespace gk::formats::mcap
