#pragma once

#include "devices/meaning/Verdict.h"
#include "messages/fleet/FleetPayload.h"
#include "messages/fleet/FleetTopics.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gk::app {

/// Why a robot wants somebody's attention, the more urgent the later. One that is offline in order
/// wants less than one that is well.
enum class Urgency : std::uint8_t {
  Away,
  Well,
  Gaps,
  Refused,
  Backlog,
  LowBattery,
  Hot,
  Fallen,
  Silent,
  Lost
};

/// Something about a robot that somebody should know.
struct FleetNeed {
  Urgency urgency = Urgency::Well;
  devices::Level level = devices::Level::Fine;
  /// "lost", "fell: Belly", "battery at 8 %".
  std::string text;

  bool operator==(const FleetNeed&) const = default;
};

/// What is known of one robot.
struct FleetRobot {
  using Time = std::chrono::steady_clock::time_point;

  std::string site;
  std::string name;
  std::optional<messages::FleetConnection> connection;
  std::optional<messages::FleetState> state;
  std::optional<messages::FleetFactsheet> factsheet;
  /// The newest one that has come.
  std::optional<messages::FleetEvent> lastEvent;
  /// Events that nobody will ever get, told since we listen.
  std::uint64_t givenUp = 0;
  /// When something of it came last, by our own clock.
  Time heard;
  /// Worst first; empty for one that is well.
  std::vector<FleetNeed> needs;

  Urgency urgency() const;
  devices::Level level() const;
  /// The needs in one line: "lost, battery at 8 %"; "well" or "offline" without any.
  std::string words() const;
  /// Both as JSON: everything that is known, and what a card of the page shows.
  std::string json() const;
  std::string cardJson() const;
};

/// All robots, as their messages tell. For one thread at a time.
class FleetBook {
public:
  /// Robots beyond so many are not looked at: anybody who may write to the broker can make them up.
  static constexpr std::size_t kMostRobots = 10'000;
  /// A robot says at least every 30 s how it is: one that does not for so long is stuck, or its
  /// clock stands.
  static constexpr std::chrono::seconds kSilence{75};
  /// Events that wait at a robot, and for how many seconds the oldest has, before somebody should
  /// look.
  static constexpr std::uint64_t kManyWaiting = 100;
  static constexpr double kLongWaiting = 30;
  /// What motor boards call warm and hot, degrees Celsius.
  static constexpr double kWarm = 75;
  static constexpr double kHot = 85;

  using Time = FleetRobot::Time;
  /// Site and name.
  using Key = std::pair<std::string, std::string>;

  /// Takes a message in; returns the robot that it is about, or null for one that is none of ours
  /// or cannot be read. An empty message about the connection forgets the robot.
  const FleetRobot* take(std::string_view topic, std::string_view payload, Time now);

  /// Looks who has fallen silent, or is not any more. Returns the robots for which that is new.
  std::vector<const FleetRobot*> look(Time now);

  const std::map<Key, FleetRobot>& robots() const noexcept { return fRobots; }
  /// The most urgent first; those that are equally urgent by site and name.
  std::vector<const FleetRobot*> byUrgency() const;
  /// The robots of this name, of all sites.
  std::vector<const FleetRobot*> named(std::string_view name) const;

  /// Messages that could not be read so far.
  std::uint64_t unreadable() const noexcept { return fUnreadable; }

private:
  std::map<Key, FleetRobot> fRobots;
  std::uint64_t fUnreadable = 0;
};

} // namespace gk::app
