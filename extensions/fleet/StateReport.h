#pragma once

#include "extensions/fleet/EventQueue.h"
#include "gk/GKMemoryStore.h"
#include "messages/fleet/FleetPayload.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace gk::fleet {

/// What a robot is like, and when that is worth telling: when something has changed, at most once a
/// second, and otherwise every half a minute. For one thread; does not tell the time itself.
class StateReport {
public:
  using Time = std::chrono::steady_clock::time_point;

  /// Puts together what is known of the robot. `loops`: since `now` of the last state taken.
  void look(Time now, const GK::GKMemoryStore& store);

  /// Whether the state differs from the one that was told last in something that matters, or has
  /// not been told for long.
  bool isDue(Time now, const messages::FleetState::Outbox& outbox) const;
  /// When it will be due if nothing changes.
  Time nextDue() const;

  /// The state, which counts as told now, but for the boot and the times.
  messages::FleetState take(Time now, const std::vector<EventQueue::Loop>& loops,
                            const messages::FleetState::Outbox& outbox);
  /// The next one is due at once: somebody else listens.
  void forget() { fTold.reset(); }

private:
  /// What a change of matters.
  static std::string xGist(const messages::FleetState& state);

  messages::FleetState fState;
  std::optional<std::string> fTold;
  Time fTime{};
  std::optional<Time> fLoopsSince;
};

} // namespace gk::fleet
