#pragma once

#include "formats/mcap/Reader.h"
#include "formats/mcap/Writer.h"

#include <cstdint>
#include <map>
#include <string>

namespace gk::formats::mcap {

/// Copies items of one file into another, giving schemas and channels new numbers as they come up.
/// Raises `OutputError`, and `FormatError` as the writer does. For one thread.
class Copier {
public:
  /// `reader` and `sink` outlive the copier. Its first item has been read. The topic `apart` gets
  /// chunks of its own.
  Copier(const Reader& reader, Sink& sink, Compression compression, const std::string& apart)
      : fReader(reader), fWriter(sink, {.compression = compression,
                                        .level = Compressor::kThorough,
                                        .library = reader.library(),
                                        .apart = apart}) {}

  void operator()(const Message& message) {
    Message copy = message;
    copy.channelId = xChannel(message.channelId);
    fWriter.write(copy);
  }
  void operator()(const Metadata& metadata) { fWriter.addMetadata(metadata); }
  void operator()(const Attachment& attachment) { fWriter.addAttachment(attachment); }

  /// Where other items are written, between those that are copied.
  Writer& writer() noexcept { return fWriter; }

  void finish() { fWriter.finish(); }

private:
  std::uint16_t xChannel(std::uint16_t id) {
    const auto [entry, isNew] = fChannels.try_emplace(id);
    if (isNew) {
      const Channel& channel = fReader.channel(id);
      entry->second = fWriter.addChannel(channel.topic, channel.messageEncoding,
                                         xSchema(channel.schemaId), channel.metadata);
    }
    return entry->second;
  }

  std::uint16_t xSchema(std::uint16_t id) {
    const Schema* schema = id != 0 ? fReader.schema(id) : nullptr;
    if (schema == nullptr) {
      return 0;
    }
    const auto [entry, isNew] = fSchemas.try_emplace(id);
    if (isNew) {
      entry->second = fWriter.addSchema(schema->name, schema->encoding, schema->data);
    }
    return entry->second;
  }

  const Reader& fReader;
  Writer fWriter;
  std::map<std::uint16_t, std::uint16_t> fChannels;
  std::map<std::uint16_t, std::uint16_t> fSchemas;
};

} // namespace gk::formats::mcap
