#pragma once

#include "messages/ros/Topic.h"

#include <cstdint>
#include <string>
#include <vector>

namespace gk::formats {

/// What a bag holds, as its metadata.yaml tells it.
struct BagMetadata {
  struct Topic {
    std::string name;
    /// "sensor_msgs/msg/Range".
    std::string type;
    messages::ros::Profile profile = messages::ros::Profile::Stream;
    std::uint64_t messages = 0;
  };

  /// Name of the one file in the bag's folder.
  std::string file;
  std::vector<Topic> topics;
  /// Nanoseconds since 1970 of the first and the last message.
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  std::uint64_t messages = 0;
};

/// How messages of a topic were offered, as bags of all releases tell it: YAML with numbers. (Newer
/// releases write words, which the older ones do not read.)
std::string offeredQosOf(messages::ros::Profile profile);

/// The text of metadata.yaml, version 5: the one that all releases since 2022 read.
std::string bagMetadataText(const BagMetadata& metadata);

} // namespace gk::formats
