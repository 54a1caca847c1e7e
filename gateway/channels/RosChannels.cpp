#include "gateway/channels/RosChannels.h"

#include <string>
#include <utility>

namespace gk::gateway {

namespace ros = messages::ros;

RosChannels::RosChannels(Channels& channels, std::shared_ptr<const GK::GKMemoryStore> store,
                         const GK::GKWallTime& wall, GK::GKMicros elapsed)
    : fMapper(std::move(store), wall, elapsed) {
  for (const ros::Topic& topic : fMapper.topics()) {
    const bool isQueue = topic.profile == ros::Profile::Log || topic.name == "/events";
    const std::uint32_t id = channels.add({0, std::string(kPrefix).append(topic.name),
                                           topic.type->name, topic.type->definition,
                                           isQueue ? Flow::Queue : Flow::Latest, "cdr", "ros2msg"});
    fFirst = fFirst == 0 ? id : fFirst;
  }
}

bool RosChannels::xIsAnyWanted(const Channels::IsWanted& isWanted) const {
  for (std::size_t topic = 0; topic < fMapper.topics().size(); ++topic) {
    if (isWanted(xChannel(topic))) {
      return true;
    }
  }
  return false;
}

template <class Make> std::vector<ChannelMessage>
RosChannels::xMake(const Channels::IsWanted& isWanted, const Make& make) {
  std::vector<ChannelMessage> made;
  if (xIsAnyWanted(isWanted)) {
    make(
        [&](const ros::Sample& sample) {
          made.push_back({xChannel(sample.topic), sample.time, std::string(sample.cdr)});
        },
        [&](std::size_t topic) { return isWanted(xChannel(topic)); });
  }
  return made;
}

std::vector<ChannelMessage> RosChannels::ofNotice(const GK::GKNotice& notice,
                                                  const Channels::IsWanted& isWanted) {
  return xMake(isWanted, [&](const ros::Sink& sink, const ros::IsWanted& isTopicWanted) {
    fMapper.ofNotice(notice, sink, isTopicWanted);
  });
}

std::vector<ChannelMessage> RosChannels::ofTick(GK::GKMicros time, std::string_view module,
                                                std::uint64_t number,
                                                const Channels::IsWanted& isWanted) {
  return xMake(isWanted, [&](const ros::Sink& sink, const ros::IsWanted& isTopicWanted) {
    fMapper.ofTick(time, module, number, sink, isTopicWanted);
  });
}

std::optional<ChannelMessage> RosChannels::latched(std::uint32_t channel, GK::GKMicros time) {
  if (channel < fFirst) {
    return std::nullopt;
  }
  std::optional<ChannelMessage> found;
  fMapper.latched(channel - fFirst, time, [&](const ros::Sample& sample) {
    found = ChannelMessage{channel, sample.time, std::string(sample.cdr)};
  });
  return found;
}

} // namespace gk::gateway
