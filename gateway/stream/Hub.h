#pragma once

#include "gateway/figures/NoticeQueue.h"
#include "gateway/past/Past.h"
#include "gateway/robot/VerdictWatch.h"
#include "gateway/stream/Offer.h"
#include "gateway/stream/StreamSession.h"

#include <boost/container/flat_set.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace gk::gateway {

/// Passes what happens in the host on to all clients of the WebSocket protocol. For one thread.
class Hub {
public:
  /// See `Offer`. `verdict` and `past` are kept up to date from here on, and outlive the hub.
  Hub(CallRunner& runner, Counters& counters, std::string version, std::string session,
      Offer::Post post, VerdictWatch& verdict, Past& past, Playback* playback = nullptr);

  /// From now on there is a robot to tell about. Clients that are there already learn about it.
  void open(std::shared_ptr<const Robot> robot);
  /// The robot goes; clients are to be sent away before.
  void close();

  const Offer& offer() const noexcept { return fOffer; }

  /// A new client, which is told what is offered as soon as there is a robot, and forgotten when it
  /// is let go of. The hub must outlive it. `wake` is called when there may be something to send.
  std::shared_ptr<StreamSession> join(const StreamSession::Limits& limits,
                                      std::function<void()> wake);

  /// Takes in what has happened and passes it on to the clients. True where a loop has ticked.
  bool process(const NoticeQueue::Batch& batch);

  /// The clock of the run that is played has been changed, and the memory is as of then.
  void onPlayback(Playback::Change change);

  /// To be called ten times a second: tells the clock, watched parameters, and reports of losses.
  void refresh();

private:
  void xDeliver(std::vector<ChannelMessage> messages);
  /// Tells what is so from now on.
  void xTellTick(GK::GKMicros time, const std::string& module, std::uint64_t ticks);
  void xTellState(std::uint32_t channel, std::string payload);
  void xCheckVerdict();
  void xTellPlayback(bool didSeek);
  /// Tells all clients of channels that have appeared since this was last called.
  void xAnnounceNew();
  void xCheckWatched();
  void xCheckDevices();

  Offer fOffer;
  VerdictWatch& fVerdict;
  Past& fPast;
  std::uint32_t fVerdictChannel = 0;
  std::uint32_t fPlaybackChannel = 0;
  unsigned fRefreshes = 0;
  boost::container::flat_set<StreamSession*> fSessions;
  std::size_t fAnnounced = 0;
  /// Ticks of each loop that have been passed on.
  std::map<std::string, std::uint64_t> fTicks;
  /// What is being delivered.
  std::vector<Delivery> fDeliveries;
  /// Values of all device keys when they were last looked at.
  std::vector<GK::GKValue> fDevices;
};

} // namespace gk::gateway
