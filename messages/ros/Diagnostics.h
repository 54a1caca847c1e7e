#pragma once

#include "gk/GKObserver.h"
#include "messages/ros/KeyCell.h"
#include "messages/ros/Topic.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace gk::messages::ros {

/// How loops, battery, motor boards and motors are getting on, for monitors.
class Diagnostics {
public:
  /// Appends its topic.
  explicit Diagnostics(std::vector<Topic>& topics);

  void lookForKeys(const GK::GKMemoryStore& store);

  /// A loop's tick has ended, its `number`th.
  void ofTick(GK::GKMicros time, std::string_view module, std::uint64_t number);
  /// How it went.
  void ofTickTimes(const GK::GKTickTimes& times, std::string_view module);

  /// Tells everything; what is told of loops begins anew.
  void send(GK::GKMicros time, const Outlet& out);

private:
  struct Loop {
    std::string module;
    std::uint64_t ticks = 0;
    GK::GKMicros last = 0;
    /// As they were when it was told of last.
    std::uint64_t toldTicks = 0;
    GK::GKMicros toldTime = 0;
    /// In real time only: since the start, and since it was told of last.
    bool hasTimes = false;
    std::uint64_t overruns = 0;
    std::uint64_t newOverruns = 0;
    GK::GKMicros lateness = 0;
  };
  struct Board {
    std::string name;
    std::string joints;
    KeyCell error;
  };
  struct Motor {
    std::string joint;
    KeyCell temperature;
  };

  Loop& xLoop(std::string_view module);
  DiagnosticStatus xLoopStatus(Loop& loop, GK::GKMicros time) const;
  void xAddBattery();
  void xAddBoards();
  void xAddHeat();

  std::size_t fTopic;
  std::vector<Loop> fLoops;
  KeyCell fCharge;
  KeyCell fCurrent;
  KeyCell fStatus;
  std::vector<Board> fBoards;
  std::vector<Motor> fMotors;
  DiagnosticArray fMessage;
};

} // namespace gk::messages::ros
