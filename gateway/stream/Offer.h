#pragma once

#include "gateway/figures/Counters.h"
#include "gateway/robot/CallRunner.h"
#include "gateway/robot/Robot.h"
#include "gateway/stream/Channels.h"
#include "gateway/stream/ServerMessage.h"
#include "gateway/stream/WatchedKeys.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace gk::gateway {

/// What a client of the WebSocket protocol can have: channels to subscribe to, services to call,
/// and the robot behind both. For one thread; `post` brings work back to it.
class Offer {
public:
  /// Runs work later on the thread of the offer. May be called on any thread.
  using Post = std::function<void(std::function<void()>)>;

  /// All must outlive the tasks of the runner.
  Offer(CallRunner& runner, Counters& counters, std::string version, Post post);

  void open(std::shared_ptr<const Robot> robot);
  void close();

  /// Null while there is none.
  const std::shared_ptr<const Robot>& robot() const noexcept { return fRobot; }
  /// Null without a robot.
  Channels* channels() const noexcept { return fChannels.get(); }
  const std::vector<Service>& services() const noexcept { return fServices; }
  WatchedKeys& watches() noexcept { return fWatches; }
  std::string serverInfo() const;
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
  const Post fPost;
  std::shared_ptr<const Robot> fRobot;
  std::unique_ptr<Channels> fChannels;
  std::string fSessionId;
  std::vector<Service> fServices;
  WatchedKeys fWatches;
  /// Subscriptions by channel id.
  std::vector<std::uint32_t> fSubscribers;
};

} // namespace gk::gateway
