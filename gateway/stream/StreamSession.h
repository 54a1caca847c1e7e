#pragma once

#include "gateway/stream/ClientMessage.h"
#include "gateway/stream/ClientQueue.h"
#include "gateway/stream/Offer.h"

#include <boost/container/flat_map.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace gk::gateway {

/// A message of a channel on its way to all who have subscribed to it.
struct Delivery {
  const Channel* channel = nullptr;
  /// Nanoseconds since 1970.
  std::uint64_t time = 0;
  std::shared_ptr<const std::string> payload;
};

/// One client of the WebSocket protocol, without its socket: takes the client's messages, and gives
/// the frames that are to be sent, within a fixed budget. For the offer's thread.
class StreamSession : public std::enable_shared_from_this<StreamSession> {
public:
  struct Limits {
    ClientQueue::Limits queue;
    /// Parameters that one client may watch.
    std::size_t watched = 1024;
    /// Calls of one client that have not returned.
    std::size_t calls = 32;
    /// Bytes of a name that is watched, and of one answer.
    std::size_t name = 256;
    std::size_t answer = 2U << 20U;
  };

  /// `wake` is called when there may be something to send.
  StreamSession(Offer& offer, Limits limits, std::function<void()> wake);
  ~StreamSession();

  /// Who the client is, for people who look at the host.
  void setName(std::string name);

  void onText(std::string_view text);
  void onBinary(std::string_view bytes);

  /// The next frame to send, if there is one.
  std::optional<Frame> next();

  /// True once the client has left too much unread and is to be sent away.
  bool isOverrun() const noexcept { return fIsOverrun; }

  // For the hub.

  /// There is a robot now, or there are more channels than before: the client is told as it reads.
  void announce();
  void deliver(std::span<const Delivery> messages);
  void tellTime(const std::shared_ptr<const std::string>& frame);
  /// Looks whether watched parameters have changed.
  void checkWatched();
  /// Looks whether something was lost.
  void checkDrops();
  /// The clock of a run that is played has been changed. Who does not know of playing is greeted
  /// anew where time went back.
  void onPlayback(const PlaybackState& state, Playback::Change change);

private:
  using Clock = std::chrono::steady_clock;

  struct Watched {
    std::shared_ptr<const WatchedKey> key;
    /// The key's version that was told to the client last.
    std::uint64_t told = 0;
  };

  void xHandle(const SubscribeMessage& message);
  void xHandle(const UnsubscribeMessage& message);
  void xHandle(const GetParametersMessage& message);
  void xHandle(const SetParametersMessage& message);
  void xHandle(const WatchParametersMessage& message);
  void xHandle(const ServiceCallMessage& message);
  void xHandle(const PlaybackControlMessage& message);

  template <class Parse> void xRead(const Parse& parse);
  /// The next piece of what the host offers that the client has not been told of.
  std::optional<Frame> xNextAnnouncement();
  /// Watched parameters that have changed, as many as make one message.
  std::optional<Frame> xNextChanges();
  void xSubscribe(std::uint32_t subscription, std::uint64_t channel);
  void xWatch(const std::string& name);
  void xAnswer(std::string text, bool isBinary = false);
  void xComplain(StatusLevel level, std::string_view text) { xAnswer(statusMessage(level, text)); }
  void xTellPlayback(const PlaybackState& state, bool didSeek, std::string_view requestId);
  void xFinish(const ServiceCallMessage& call, const CallOutcome& outcome);
  ParameterText xParameter(const std::string& name) const;
  std::string xLossText() const;

  Offer& fOffer;
  const Limits fLimits;
  const std::function<void()> fWake;
  const std::shared_ptr<Counters::Client> fFigures;
  ClientQueue fQueue;
  bool fIsOverrun = false;
  /// How much of the offer the client has been told of. What is offered is not kept waiting in the
  /// queue: each piece is made when the client has taken the one before.
  bool fIsGreeted = false;
  /// It has asked for what only runs that are played have: once for their state, or in the
  /// protocol's own way.
  bool fKnowsPlayback = false;
  bool fHasPlaybackFrames = false;
  std::size_t fChannelsTold = 0;
  std::size_t fServicesTold = 0;
  /// Subscription of each channel, and the other way round.
  boost::container::flat_map<std::uint32_t, std::uint32_t> fByChannel;
  std::map<std::uint32_t, std::uint32_t> fBySubscription;
  std::vector<Watched> fWatched;
  bool fHasChanges = false;
  std::size_t fCallsRunning = 0;

  /// Messages lost since the client was last free of losses, by channel.
  ClientQueue::Drops fLost;
  /// When something was lost, or told to be lost, for the last time: until it is told it stays.
  Clock::time_point fLastLoss;
  bool fHasLossToTell = false;
  bool fIsLossTold = false;
};

} // namespace gk::gateway
