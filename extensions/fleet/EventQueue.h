#pragma once

#include "gk/GKObserver.h"
#include "gk/GKPriorityMutex.h"
#include "messages/notices/Backlog.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace gk::fleet {

/// Takes events and figures of the loops from the threads that cause them, at once, for the
/// bridge's thread. Nobody waits: when too much is unread, the oldest events go, and their numbers
/// are missing in what is taken next.
class EventQueue : public GK::GKObserver {
public:
  static constexpr std::size_t kCapacity = 16384;

  struct Event {
    /// From 1 on, in the order in which they were raised.
    std::uint64_t seq = 0;
    GK::GKNotice::Kind kind = GK::GKNotice::Kind::Event;
    /// Microseconds since the host's clock started.
    GK::GKMicros time = 0;
    std::string name;
    GK::GKValue value;
  };
  /// How a module's loop went since that was taken last; times in microseconds.
  struct Loop {
    std::string module;
    std::uint64_t ticks = 0;
    std::uint64_t overruns = 0;
    GK::GKMicros lateness = 0;
    GK::GKMicros work = 0;
  };
  struct Taken {
    std::vector<Event> events;
    /// The number that the next event will get.
    std::uint64_t nextSeq = 1;
    /// Events were declared.
    bool isDeclared = false;
  };

  /// `wake` is called on the thread that raised something, once for each `take`: it must be quick.
  explicit EventQueue(std::function<void()> wake, std::size_t capacity = kCapacity)
      : fWake(std::move(wake)), fEvents(capacity) {}

  void onNotice(const GK::GKNotice& notice) override;
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;
  void onTickTimes(const GK::GKTickTimes& times, const GK::GKTask& task) override;

  // On the bridge's thread.
  Taken take();
  std::vector<Loop> takeLoops();

private:
  Loop& xLoop(const std::string& module);

  const std::function<void()> fWake;
  GK::GKPriorityMutex fMutex;
  messages::Backlog<Event> fEvents;
  std::uint64_t fNextSeq = 1;
  bool fIsDeclared = false;
  bool fIsAwake = false;
  std::vector<Loop> fLoops;
};

} // namespace gk::fleet
