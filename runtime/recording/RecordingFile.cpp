#include "runtime/recording/RecordingFile.h"

#include "formats/run/RunFile.h"
#include "messages/text/WallTime.h"

#include <utility>

namespace gk::runtime {

RecordingFile::RecordingFile(const std::string& path, const formats::OutputFileOptions& options,
                             const std::string& library, std::size_t chunkSize)
    : fSink(path, options), fWriter(fSink, {.chunkSize = chunkSize,
                                            .level = formats::mcap::Compressor::kThorough,
                                            .library = library,
                                            .apart = formats::kRunTopic}) {}

void RecordingFile::begin(std::int64_t epoch, const formats::mcap::StringMap& about) {
  fHasBegun = true;
  fEpoch = epoch;
  formats::mcap::StringMap values = about;
  values.emplace("start", messages::wallTimeText(epoch));
  fWriter.addMetadata({formats::kRunMetadata, std::move(values)});
  fRunChannel = fWriter.addChannel(formats::kRunTopic, formats::kRunEncoding, 0);
}

std::uint64_t RecordingFile::xNanoseconds(GK::GKMicros time) const {
  return messages::nanosecondsSince1970(fEpoch, time);
}

void RecordingFile::write(const RunBlock& block) {
  const std::uint64_t time = xNanoseconds(block.time);
  fWriter.write(fRunChannel, time, time, block.data);
}

void RecordingFile::write(const RecordedMessage& message) {
  const std::uint64_t time = xNanoseconds(message.time);
  fWriter.write(xChannel(*message.channel), time, time, message.payload);
}

std::uint16_t RecordingFile::xChannel(const RecordedChannel& channel) {
  const auto [entry, isNew] = fChannels.try_emplace(&channel);
  if (isNew) {
    const auto [schema, isNewSchema] = fSchemas.try_emplace(channel.schemaName);
    if (isNewSchema) {
      schema->second = fWriter.addSchema(channel.schemaName, "jsonschema", channel.schema);
    }
    entry->second = fWriter.addChannel(channel.topic, "json", schema->second);
  }
  return entry->second;
}

void RecordingFile::flush() {
  fWriter.closeChunk();
  fSink.sync();
}

void RecordingFile::finish(const RecordingLosses& losses) {
  fWriter.addMetadata({formats::kLossMetadata,
                       {{"run_blocks", std::to_string(losses.blocks)},
                        {"messages", std::to_string(losses.messages)},
                        {"overlaps", std::to_string(losses.overlaps)}}});
  fWriter.finish();
}

} // namespace gk::runtime
