#pragma once

#include "gk/GKObserver.h"
#include "gk/GKPriorityMutex.h"
#include "messages/notices/Backlog.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace gk::gateway {

/// Takes what observers see from the threads that cause it, at once, for one thread that looks at
/// it in its own time. Nobody waits: when too much is unread, the oldest notices go and are
/// counted.
class NoticeQueue : public GK::GKObserver {
public:
  static constexpr std::size_t kCapacity = 16384;

  /// What is known of a module's loop.
  struct Loop {
    std::string module;
    /// End of its last tick, in microseconds since the clock started.
    GK::GKMicros time = 0;
    std::uint64_t ticks = 0;
  };
  struct Batch {
    std::vector<GK::GKNotice> notices;
    /// More is waiting than was taken.
    bool isMore = false;
    /// All loops so far, in the order of their first ticks.
    std::vector<Loop> loops;
  };

  /// `wake` is called on the thread that caused something, once for each batch: it must be quick.
  explicit NoticeQueue(std::function<void()> wake, std::size_t capacity = kCapacity);

  void onNotice(const GK::GKNotice& notice) override;
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;

  /// What waits, in the order in which it happened, and no more than `most` notices of it. Allows
  /// the next wake; where there is more, it is for the caller to come back.
  Batch take(std::size_t most = kCapacity);

  /// Notices that were dropped so far.
  std::uint64_t dropped() const;

private:
  void xWake();

  const std::function<void()> fWake;
  mutable GK::GKPriorityMutex fMutex;
  messages::Backlog<GK::GKNotice> fNotices;
  std::vector<Loop> fLoops;
  bool fIsAwake = false;
};

} // namespace gk::gateway
