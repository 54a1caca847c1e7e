#pragma once

#include "gateway/channels/Channels.h"
#include "gateway/channels/RosChannels.h"
#include "gateway/figures/Counters.h"
#include "gateway/past/Playback.h"
#include "gateway/robot/CallRunner.h"
#include "gateway/robot/Robot.h"
#include "gateway/stream/ServerMessage.h"
#include "gateway/stream/WatchedKeys.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gk::gateway {

/// The channel that tells where the clock of a run that is played stands.
inline constexpr std::string_view kPlaybackTopic = "/playback";

/// What a client of the WebSocket protocol can have: channels to subscribe to, services to call,
/// and the robot behind both. For one thread; `post` brings work back to it.
class Offer {
public:
  /// Runs work later on the thread of the offer. May be called on any thread.
  using Post = std::function<void(std::function<void()>)>;

  /// All must outlive the tasks of the runner.
  /// `playback`: what is played in the place of a robot; null for a robot.
  Offer(CallRunner& runner, Counters& counters, std::string version, std::string session, Post post,
        Playback* playback = nullptr);

  void open(std::shared_ptr<const Robot> robot);
  void close();

  /// Null while there is none.
  const std::shared_ptr<const Robot>& robot() const noexcept { return fRobot; }
  /// Null without a robot.
  Channels* channels() const noexcept { return fChannels.get(); }
  /// Those of them that are ROS messages. Null without a memory.
  RosChannels* rosChannels() const noexcept { return fRosChannels.get(); }
  const std::vector<Service>& services() const noexcept { return fServices; }
  WatchedKeys& watches() noexcept { return fWatches; }
  std::string serverInfo() const;
  Playback* playback() const noexcept { return fPlayback; }
  /// Time has gone back: whoever does not know of playing begins anew.
  void beginSession() { ++fSessions; }

  /// What is so now, on a channel that says when it changes: who subscribes later is told it first.
  struct State {
    std::uint64_t time = 0;
    std::shared_ptr<const std::string> payload;
  };
  void setState(std::uint32_t channel, State state) { fStates[channel] = std::move(state); }
  /// Null for all other channels.
  const State* state(std::uint32_t channel) const;

  Counters& counters() const noexcept { return fCounters; }
  CallRunner& runner() const noexcept { return fRunner; }
  const Post& post() const noexcept { return fPost; }

  void addSubscriber(std::uint32_t channel);
  void removeSubscriber(std::uint32_t channel);
  bool hasSubscriber(std::uint32_t channel) const {
    return channel < fSubscribers.size() && fSubscribers[channel] > 0;
  }

private:
  CallRunner& fRunner;
  Counters& fCounters;
  const std::string fVersion;
  /// Tells this process from one before it at the same address.
  const std::string fSessionId;
  std::uint64_t fSessions = 0;
  const Post fPost;
  Playback* const fPlayback;
  std::shared_ptr<const Robot> fRobot;
  std::unique_ptr<Channels> fChannels;
  std::unique_ptr<RosChannels> fRosChannels;
  std::vector<Service> fServices;
  WatchedKeys fWatches;
  std::map<std::uint32_t, State> fStates;
  /// Subscriptions by channel id.
  std::vector<std::uint32_t> fSubscribers;
};

} // namespace gk::gateway
