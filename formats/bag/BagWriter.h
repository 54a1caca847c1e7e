#pragma once

#include "formats/bag/BagMetadata.h"
#include "formats/files/OutputFolder.h"
#include "formats/mcap/Compression.h"
#include "formats/mcap/Sink.h"
#include "formats/mcap/Writer.h"
#include "messages/ros/Topic.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace gk::formats {

/// Writes a bag, as ROS 2 records them: a folder NAME with NAME_0.mcap and metadata.yaml in it. All
/// operations raise `OutputError`; without `finish` nothing is left of it. For one thread.
class BagWriter {
public:
  /// There must be nothing of the folder's name. `library`: name of the program that writes.
  BagWriter(const std::string& folder, mcap::Compression compression, std::string library);

  /// Time in nanoseconds since 1970. A topic is known by where it lies.
  void write(const messages::ros::Topic& topic, std::uint64_t time, std::string_view cdr);

  /// The bag is complete.
  void finish();

  std::uint64_t messages() const noexcept { return fMetadata.messages; }
  std::size_t topics() const noexcept { return fMetadata.topics.size(); }

private:
  struct Channel {
    std::uint16_t id;
    /// Its place in the metadata's topics.
    std::size_t place;
  };

  const Channel& xChannel(const messages::ros::Topic& topic);

  OutputFolder fFolder;
  mcap::FileSink fSink;
  mcap::Writer fWriter;
  BagMetadata fMetadata;
  std::map<const messages::ros::Topic*, Channel> fChannels;
  std::map<const messages::ros::Type*, std::uint16_t> fSchemas;
};

} // namespace gk::formats
