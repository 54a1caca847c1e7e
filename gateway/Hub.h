#pragma once

#include "gateway/CallRunner.h"
#include "gateway/Channels.h"
#include "gateway/ClientQueue.h"
#include "gateway/Counters.h"
#include "gateway/NoticeQueue.h"
#include "gateway/Robot.h"
#include "gateway/ServerMessage.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace gk::gateway {

class StreamSession;

/// Whether nothing has changed. Unlike for `==`, NaN is the same as NaN: it is no news.
bool isSameValue(const GK::GKValue& left, const GK::GKValue& right);

/// What all clients of the WebSocket protocol share: the channels with what comes in on them, the
/// services, and the clients themselves. For one thread; `post` brings work back to it.
class Hub {
public:
  /// Runs work later on the hub's thread. May be called on any thread.
  using Post = std::function<void(std::function<void()>)>;

  /// All must outlive the tasks of the runner.
  Hub(CallRunner& runner, Counters& counters, std::string version, Post post);
  ~Hub();

  /// From now on there is a robot to tell about. Clients that are there already learn about it.
  void open(std::shared_ptr<const Robot> robot);
  /// The robot goes; clients are to be sent away before.
  void close();
  const std::shared_ptr<const Robot>& robot() const noexcept { return fRobot; }

  /// Takes in what has happened and passes it on to the clients.
  void process(const NoticeQueue::Batch& batch);

  /// To be called ten times a second: the clock, watched parameters, and reports of losses.
  void refresh();

  void add(StreamSession& session);
  void remove(StreamSession& session);

  // For sessions.

  const Channels* channels() const noexcept { return fChannels.get(); }
  const std::vector<Service>& services() const noexcept { return fServices; }
  std::string serverInfo() const;
  Counters& counters() noexcept { return fCounters; }
  CallRunner& runner() noexcept { return fRunner; }
  const Post& post() const noexcept { return fPost; }
  void addSubscriber(std::uint32_t channel);
  void removeSubscriber(std::uint32_t channel);

private:
  void xDeliver(const std::vector<ChannelMessage>& messages);
  /// Tells all clients of channels that have appeared since this was last called.
  void xAdvertiseNew();
  void xCheckDevices();

  CallRunner& fRunner;
  Counters& fCounters;
  const std::string fVersion;
  const Post fPost;
  std::shared_ptr<const Robot> fRobot;
  std::unique_ptr<Channels> fChannels;
  std::string fSessionId;
  std::vector<Service> fServices;
  std::set<StreamSession*> fSessions;
  std::size_t fAdvertised = 0;
  /// Subscriptions by channel id.
  std::vector<std::uint32_t> fSubscribers;
  /// Ticks of each loop that have been passed on.
  std::map<std::string, std::uint64_t> fTicks;
  /// Values of all device keys when they were last looked at.
  std::vector<GK::GKValue> fDevices;
};

} // namespace gk::gateway
