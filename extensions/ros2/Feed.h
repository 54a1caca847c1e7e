#pragma once

#include "gk/GKObserver.h"
#include "gk/GKPriorityMutex.h"
#include "messages/notices/Backlog.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace gk::ros2 {

/// Takes what observers see from the threads that cause it, for one thread that publishes it.
/// Nobody waits: when too much is unread, the oldest goes and is counted.
class Feed : public GK::GKObserver {
public:
  static constexpr std::size_t kCapacity = 4096;

  /// A loop's last tick.
  struct Tick {
    std::string module;
    GK::GKMicros time = 0;
    /// Ticks so far.
    std::uint64_t number = 0;
  };
  struct TickTimes {
    /// Place of the loop among `ticks`.
    std::size_t loop = 0;
    GK::GKTickTimes times;
  };
  struct Batch {
    /// Events, micro-events and log lines, in their order.
    std::vector<GK::GKNotice> notices;
    /// All loops so far, in the order of their first ticks.
    std::vector<Tick> ticks;
    std::vector<TickTimes> times;
    bool isEnd = false;
  };

  explicit Feed(std::size_t capacity = kCapacity);

  void onNotice(const GK::GKNotice& notice) override;
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;
  void onTickTimes(const GK::GKTickTimes& times, const GK::GKTask& task) override;

  /// Puts what has come in since the last time into `batch`. Waits until there is something, but no
  /// longer than this.
  void take(Batch& batch, std::chrono::milliseconds patience);

  /// `take` tells from now on that it is over.
  void end();

  /// Notices that were dropped so far. Any thread.
  std::uint64_t dropped() const;

private:
  std::size_t xLoop(const GK::GKTask& task);

  mutable GK::GKPriorityMutex fMutex;
  std::condition_variable fWake;
  messages::Backlog<GK::GKNotice> fNotices;
  /// The rest of what is taken next.
  Batch fBatch;
  bool fIsNews = false;
};

} // namespace gk::ros2
