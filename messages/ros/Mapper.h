#pragma once

#include "gk/GKClock.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKObserver.h"
#include "gk/GKTime.h"
#include "messages/ros/Topic.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// The robot as ROS 2 sees it: topics, message types and messages, the same for live topics,
/// recordings and viewers.
namespace gk::messages::ros {

struct MapperOptions {
  /// Most samples of a topic a second, above 0. Things that happen are told at once in any case.
  double rate = 50;
  /// Whether "/tf" and "/tf_static" are made.
  bool isTf = true;
};

/// Makes messages from device keys, events, log lines and ticks.
///
/// For one thread at a time; whoever is an observer calls it from there, or later in the same
/// order. Times may go back where a run is played that is over. A steady tick looks up nothing and
/// allocates next to nothing.
class Mapper {
public:
  using Sink = ros::Sink;
  using IsWanted = ros::IsWanted;

  /// `store`: whose keys are told; not null. `wall` and `elapsed` are one moment on the clock, for
  /// the times of messages.
  Mapper(std::shared_ptr<const GK::GKMemoryStore> store, const GK::GKWallTime& wall,
         GK::GKMicros elapsed, const MapperOptions& options = {});
  ~Mapper();
  Mapper(const Mapper&) = delete;
  Mapper& operator=(const Mapper&) = delete;

  /// All topics that there may be; never changes. Those whose keys are not there stay silent.
  const std::vector<Topic>& topics() const noexcept;

  /// The place of the topic of this name (without a namespace); `topics().size()` when there is
  /// none.
  std::size_t find(std::string_view name) const noexcept;

  /// From here on `wall` and `elapsed` say what the clock shows: after somebody has set it.
  void setClock(const GK::GKWallTime& wall, GK::GKMicros elapsed);

  /// What never changes: the robot's description and its fixed frames. To be called once, before
  /// anything else is told; again only for who has missed it.
  void ofStart(GK::GKMicros time, const Sink& sink, const IsWanted& isWanted = {});

  /// The messages that an event or a log line makes. All other notices make none.
  void ofNotice(const GK::GKNotice& notice, const Sink& sink, const IsWanted& isWanted = {});

  /// The messages that the end of a tick makes, from the keys of this moment: latched ones first
  /// and when they have changed, then those that are due. `module`: whose loop; `number`: its ticks
  /// so far.
  void ofTick(GK::GKMicros time, std::string_view module, std::uint64_t number, const Sink& sink,
              const IsWanted& isWanted = {});

  /// How a tick of a module's loop went, for the diagnostics. Where it is never called they tell
  /// ticks and their rate only.
  void ofTickTimes(const GK::GKTickTimes& times, std::string_view module);

  /// The message that a latched topic has at this moment, for who comes late; none where there is
  /// nothing to tell yet, and none of other topics.
  void latched(std::size_t topic, GK::GKMicros time, const Sink& sink);

private:
  class Impl;
  std::unique_ptr<Impl> fImpl;
};

} // namespace gk::messages::ros
