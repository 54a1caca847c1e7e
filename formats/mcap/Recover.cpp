#include "formats/mcap/Recover.h"

#include "formats/mcap/Reader.h"
#include "formats/mcap/Writer.h"

#include <map>
#include <memory>

namespace gk::formats::mcap {

namespace {

/// Copies items, giving schemas and channels new numbers as they come up.
class Copier {
public:
  Copier(const Reader& reader, Sink& sink, Compression compression)
      : fReader(reader), fWriter(sink, {compression, Writer::kChunkSize, reader.library()}) {}

  void operator()(const Message& message) {
    Message copy = message;
    copy.channelId = xChannel(message.channelId);
    fWriter.write(copy);
  }
  void operator()(const Metadata& metadata) { fWriter.addMetadata(metadata); }
  void operator()(const Attachment& attachment) { fWriter.addAttachment(attachment); }

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

} // namespace

Recovered recover(Source& source, Sink& sink, Compression compression, const Progress& progress) {
  Recovered result;
  Reader reader(source);
  // Begun with the first item: only then the program's name is known.
  std::unique_ptr<Copier> copier;
  while (const std::optional<Item> item = reader.next()) {
    if (copier == nullptr) {
      copier = std::make_unique<Copier>(reader, sink, compression);
    }
    result.messages += std::holds_alternative<Message>(*item) ? 1 : 0;
    result.attachments += std::holds_alternative<Attachment>(*item) ? 1 : 0;
    result.metadata += std::holds_alternative<Metadata>(*item) ? 1 : 0;
    std::visit(*copier, *item);
    if (progress) {
      progress(reader.progress());
    }
  }
  if (copier == nullptr) {
    copier = std::make_unique<Copier>(reader, sink, compression);
  }
  copier->finish();
  result.problems = reader.problems();
  result.isCut = reader.isCut();
  return result;
}

} // namespace gk::formats::mcap
