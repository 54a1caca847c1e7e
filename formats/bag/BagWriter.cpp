#include "formats/bag/BagWriter.h"

#include "formats/files/OutputFile.h"

#include <algorithm>
#include <utility>

namespace gk::formats {

BagWriter::BagWriter(const std::string& folder, mcap::Compression compression, std::string library)
    : fFolder(folder), fSink(fFolder.place() + "/" + fFolder.name() + "_0.mcap"),
      fWriter(fSink, {.compression = compression,
                      .level = mcap::Compressor::kThorough,
                      .profile = "ros2",
                      .library = std::move(library)}) {
  fMetadata.file = fFolder.name() + "_0.mcap";
}

void BagWriter::write(const messages::ros::Topic& topic, std::uint64_t time, std::string_view cdr) {
  const Channel& channel = xChannel(topic);
  fWriter.write(channel.id, time, time, cdr);
  ++fMetadata.topics[channel.place].messages;
  fMetadata.begin = fMetadata.messages == 0 ? time : std::min(fMetadata.begin, time);
  fMetadata.end = std::max(fMetadata.end, time);
  ++fMetadata.messages;
}

const BagWriter::Channel& BagWriter::xChannel(const messages::ros::Topic& topic) {
  const auto [entry, isNew] = fChannels.try_emplace(&topic);
  if (isNew) {
    const auto [schema, isNewSchema] = fSchemas.try_emplace(topic.type);
    if (isNewSchema) {
      schema->second = fWriter.addSchema(topic.type->name, "ros2msg", topic.type->definition);
    }
    const std::uint16_t id =
        fWriter.addChannel(topic.name, "cdr", schema->second,
                           {{"offered_qos_profiles", offeredQosOf(topic.profile)},
                            {"topic_type_hash", topic.type->hash}});
    entry->second = {id, fMetadata.topics.size()};
    fMetadata.topics.push_back({topic.name, topic.type->name, topic.profile, 0});
  }
  return entry->second;
}

void BagWriter::finish() {
  fWriter.finish();
  fSink.sync();
  OutputFile text(fFolder.place() + "/metadata.yaml");
  text.write(bagMetadataText(fMetadata));
  text.sync();
  text.appear();
  fSink.file().appear();
  fFolder.appear();
}

} // namespace gk::formats
