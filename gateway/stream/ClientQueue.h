#pragma once

#include "gateway/channels/Channels.h"

#include <boost/container/devector.hpp>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace gk::gateway {

/// One frame on its way to a client. The body is shared by all clients that get it.
struct Frame {
  bool isBinary = false;
  std::string head;
  std::shared_ptr<const std::string> body;

  std::size_t size() const noexcept { return head.size() + (body != nullptr ? body->size() : 0); }
};

/// What waits for one client, within a fixed budget however slowly the client reads.
///
/// Order of delivery: answers and announcements, then events in their order, then samples, of which
/// only the newest of each channel waits. Over budget samples go first, then the oldest events;
/// both are counted by channel. Answers are never dropped: too many of them mean that the client is
/// to be given up. For one thread.
class ClientQueue {
public:
  struct Limits {
    /// Bytes of everything that waits.
    std::size_t bytes = 4U << 20U;
    /// Events that wait.
    std::size_t events = 4096;
    /// Answers and announcements that wait.
    std::size_t answers = 1024;
  };
  /// Dropped messages by channel.
  using Drops = std::map<std::uint32_t, std::uint64_t>;

  explicit ClientQueue(Limits limits) : fLimits(limits) {}

  /// False when the client has left too many unread.
  [[nodiscard]] bool addAnswer(Frame frame);
  void addEvent(std::uint32_t channel, Frame frame);
  /// Replaces the channel's sample that waits, which then counts as dropped. Drops nothing else for
  /// it: a sample for which there is no room counts as dropped itself.
  void setSample(std::uint32_t channel, Frame frame);
  /// Forgets what waits of a channel.
  void forget(std::uint32_t channel);

  bool hasAnswers() const noexcept { return !fAnswers.empty(); }
  bool hasEvents() const noexcept { return !fEvents.empty(); }

  /// Takes the next frame out.
  std::optional<Frame> take();

  /// What has been dropped since this was last asked for.
  Drops takeDrops();
  bool hasDrops() const noexcept { return !fDrops.empty(); }

  std::size_t bytes() const noexcept { return fBytes; }

private:
  struct Waiting {
    std::uint32_t channel;
    Frame frame;
  };

  void xDrop(std::uint32_t channel, std::size_t bytes);
  using Samples = boost::container::devector<Waiting>;

  void xDropSample(Samples::iterator sample);
  void xDropOldestEvent();
  /// Drops samples, then the oldest events, until `bytes` more fit. False, and nothing is dropped,
  /// where the answers leave no room for them.
  bool xMakeRoom(std::size_t bytes);

  const Limits fLimits;
  std::deque<Frame> fAnswers;
  std::deque<Waiting> fEvents;
  /// In the order in which the channels' turns come. One of each channel: so few that looking
  /// through them costs less than an index.
  Samples fSamples;
  Drops fDrops;
  std::size_t fBytes = 0;
  std::size_t fAnswerBytes = 0;
};

} // namespace gk::gateway
