#pragma once

#include "gateway/channels/Channels.h"
#include "gk/GKClock.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKObserver.h"
#include "messages/ros/Mapper.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace gk::gateway {

/// The robot's ROS 2 messages as channels for live viewers, below `kPrefix`. Nothing is made of
/// what nobody wants. For one thread at a time, as channels are.
class RosChannels {
public:
  static constexpr std::string_view kPrefix = "/ros2";

  /// Adds a channel for each topic. `wall` and `elapsed` are one moment on the clock.
  RosChannels(Channels& channels, std::shared_ptr<const GK::GKMemoryStore> store,
              const GK::GKWallTime& wall, GK::GKMicros elapsed);

  std::vector<ChannelMessage> ofNotice(const GK::GKNotice& notice,
                                       const Channels::IsWanted& isWanted);
  /// `number`: ticks of the module's loop so far.
  std::vector<ChannelMessage> ofTick(GK::GKMicros time, std::string_view module,
                                     std::uint64_t number, const Channels::IsWanted& isWanted);

  /// What who subscribes now is told first: the last message of latched topics; nothing of others.
  std::optional<ChannelMessage> latched(std::uint32_t channel, GK::GKMicros time);

private:
  /// The channel of a topic by its place.
  std::uint32_t xChannel(std::size_t topic) const noexcept {
    return fFirst + static_cast<std::uint32_t>(topic);
  }
  bool xIsAnyWanted(const Channels::IsWanted& isWanted) const;
  template <class Make>
  std::vector<ChannelMessage> xMake(const Channels::IsWanted& isWanted, const Make& make);

  messages::ros::Mapper fMapper;
  std::uint32_t fFirst = 0;
};

} // namespace gk::gateway
