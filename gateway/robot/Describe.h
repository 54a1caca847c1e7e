#pragma once

#include "gateway/figures/Counters.h"
#include "gateway/figures/RecordingFigures.h"
#include "gateway/figures/RunSource.h"
#include "gateway/robot/Robot.h"

#include <cstddef>
#include <string>
#include <vector>

/// The resources' JSON texts. Any thread.
namespace gk::gateway {

std::string describeModules(const Robot& robot);

/// Calls the module's `version`.
std::string describeModule(const Robot& robot, GK::GKModuleCore& module);

/// Which events to show, sorted by name.
struct EventPage {
  std::string after;
  /// The text ends behind the event that goes beyond so many bytes, and tells where to go on.
  std::size_t bytes = 0;
};
std::string describeEvents(const Robot& robot, const EventPage& page);

std::string describeKey(const std::string& key, const GK::GKValue& value);

/// Which keys to show.
struct KeyPage {
  std::string prefix;
  std::string contains;
  std::string after;
  std::size_t limit = 0;
  /// As for events.
  std::size_t bytes = 0;
};
std::string describeKeys(const Robot& robot, const KeyPage& page);

/// What there is to say about the host itself.
struct HostDescription {
  std::string version;
  /// Seconds since 1970.
  double startTime = 0;
  /// Another one for each process.
  std::string session;
  /// What is played in the place of a robot, as JSON; empty for a robot.
  std::string playback;
  /// Null where nobody says.
  const RunSource* source = nullptr;
  const Counters* counters = nullptr;
  std::size_t callsRunning = 0;
  /// Tells of the last minute and of each client as well.
  bool isVerbose = false;
};
std::string describeHost(const Robot& robot, const HostDescription& host);

/// Whether the host does what it is there for.
struct Readiness {
  /// Longest time between two ticks of a loop that is alive, in microseconds.
  static constexpr GK::GKMicros kLongestTick = 2'000'000;

  struct Condition {
    std::string text;
    bool isMet = false;
    /// A host that does not meet it is not ready.
    bool isVital = true;
  };
  std::vector<Condition> conditions;
  /// What matters about the robot, which changes nothing about its host's readiness.
  std::vector<std::string> matters;
  /// What modules tell of themselves that is fine.
  std::vector<std::string> told;

  bool isReady() const;
  /// A line for each condition, "[+] modules are loaded", for what modules tell, "[=] GKMine queue:
  /// 3 jobs", and for what matters, "[!] Fell onto its belly".
  std::string text() const;
};
/// `robot` is null while there is none, `recording` empty where nothing is recorded.
Readiness readinessOf(const Robot* robot, const Counters& counters,
                      const RecordingSource& recording);

} // namespace gk::gateway
