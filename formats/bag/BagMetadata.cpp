#include "formats/bag/BagMetadata.h"

#include "messages/json/JsonText.h"

#include <string_view>

namespace gk::formats {

namespace {

/// The longest time that the format knows, for what never ends.
constexpr std::string_view kForever = "\n    sec: 9223372036\n    nsec: 854775807\n";

/// A text in double quotes: what JSON escapes, YAML reads in the same way.
std::string quoted(std::string_view text) {
  std::string out;
  messages::appendJsonString(out, text);
  return out;
}

std::string number(std::string_view name, std::uint64_t value) {
  return std::string(name).append(": ").append(std::to_string(value)).append("\n");
}

} // namespace

std::string offeredQosOf(messages::ros::Profile profile) {
  const messages::ros::Qos qos = messages::ros::qosOf(profile);
  // Kept are the last ones, sent is reliably, alive is who is there.
  std::string text = "- history: 1\n";
  text += "  " + number("depth", qos.depth);
  text += "  reliability: 1\n";
  text += qos.isTransientLocal ? "  durability: 1\n" : "  durability: 2\n";
  text += "  deadline:" + std::string(kForever);
  text += "  lifespan:";
  text += qos.lifespan == 0 ? std::string(kForever)
                            : "\n    " + number("sec", qos.lifespan) + "    nsec: 0\n";
  text += "  liveliness: 1\n";
  text += "  liveliness_lease_duration:" + std::string(kForever);
  text += "  avoid_ros_namespace_conventions: false\n";
  return text;
}

std::string bagMetadataText(const BagMetadata& metadata) {
  const std::string duration = number("nanoseconds", metadata.end - metadata.begin);
  const std::string begin = number("nanoseconds_since_epoch", metadata.begin);
  std::string text = "rosbag2_bagfile_information:\n  version: 5\n  storage_identifier: mcap\n";
  text += "  duration:\n    " + duration;
  text += "  starting_time:\n    " + begin;
  text += "  " + number("message_count", metadata.messages);
  text += "  topics_with_message_count:\n";
  for (const BagMetadata::Topic& topic : metadata.topics) {
    text += "    - topic_metadata:\n";
    text += "        name: " + topic.name + "\n";
    text += "        type: " + topic.type + "\n";
    text += "        serialization_format: cdr\n";
    text += "        offered_qos_profiles: " + quoted(offeredQosOf(topic.profile)) + "\n";
    text += "      " + number("message_count", topic.messages);
  }
  // What is compressed is inside of the file, where readers find out by themselves.
  text += "  compression_format: \"\"\n  compression_mode: \"\"\n";
  text += "  relative_file_paths:\n    - " + quoted(metadata.file) + "\n";
  text += "  files:\n    - path: " + quoted(metadata.file) + "\n";
  text += "      starting_time:\n        " + begin;
  text += "      duration:\n        " + duration;
  text += "      " + number("message_count", metadata.messages);
  return text;
}

} // namespace gk::formats
