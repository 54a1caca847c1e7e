#pragma once

#include "gk/GKObserver.h"
#include "gk/GKValue.h"
#include "messages/text/FormatError.h"

#include <boost/json/value.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What robots and their operators tell each other, as JSON. Times are microseconds since 1970; in
/// the payloads they are seconds with milliseconds. Every `read...` raises `FormatError` for what
/// is no such payload, and passes over members that it does not know. Any thread.
namespace gk::messages {

enum class FleetPresence : std::uint8_t {
  Online,
  Offline, ///< ended in order
  Lost     ///< gone without a word: what the broker tells in its place
};

struct FleetConnection {
  FleetPresence presence = FleetPresence::Offline;
  /// Another one each time that the robot's program starts.
  std::string bootId;
  /// When this was so; for `Lost`, when the connection began.
  std::int64_t time = 0;
};
std::string_view presenceName(FleetPresence presence);
std::string connectionPayload(const FleetConnection& connection);
FleetConnection readConnection(std::string_view payload);

/// An event or micro-event that a robot raised. `bootId` and `seq` together name it.
struct FleetEvent {
  std::string name;
  GK::GKNotice::Kind kind = GK::GKNotice::Kind::Event;
  GK::GKValue value;
  std::int64_t time = 0;
  /// Microseconds since the robot's host started.
  std::int64_t uptime = 0;
  std::string bootId;
  /// From 1 on, without gaps for each `bootId`.
  std::uint64_t seq = 0;
  /// Raised before the connection by which it came, or by an earlier process.
  bool isHistorical = false;
};
std::string eventPayload(const FleetEvent& event);
/// The same in two steps, for whoever only knows when it is sent whether it is historical.
std::string eventBody(const FleetEvent& event);
std::string eventPayload(std::string_view body, bool isHistorical);
FleetEvent readEvent(std::string_view payload);

/// Events that nobody will ever get, both ends included.
struct FleetGap {
  std::string bootId;
  std::uint64_t from = 0;
  std::uint64_t to = 0;
};
std::string gapPayload(const FleetGap& gap);
FleetGap readGap(std::string_view payload);

/// How a robot is. What is not known is absent, and null in the payload.
struct FleetState {
  struct Loop {
    std::string module;
    std::uint64_t ticks = 0;
    /// Ticks a second, the longest time that one began late or worked (seconds), and how many
    /// worked longer than the pause after them, all since the last state.
    double rate = 0;
    double lateness = 0;
    double work = 0;
    std::uint64_t overruns = 0;
  };
  struct Joint {
    std::string name;
    double temperature = 0; ///< degrees Celsius
  };
  struct Outbox {
    /// Events and gaps that the broker has not acknowledged, and their bytes.
    std::uint64_t backlog = 0;
    std::uint64_t bytes = 0;
    /// How old the oldest of them is, in seconds.
    std::optional<double> oldest;
    /// Gaps told since the robot's host started.
    std::uint64_t gaps = 0;
    /// Events that the broker refuses; they are among the backlog.
    std::uint64_t refused = 0;
  };

  std::string bootId;
  std::int64_t time = 0;
  std::int64_t uptime = 0;
  std::optional<std::string> pose;
  std::optional<bool> isOnFloor;
  /// 0 to 1.
  std::optional<double> charge;
  std::optional<bool> isPlugged;
  /// "off", "partial" or "on".
  std::optional<std::string> stiffness;
  std::optional<Joint> hottest;
  std::vector<Loop> loops;
  Outbox outbox;
};
std::string statePayload(const FleetState& state);
FleetState readState(std::string_view payload);

/// What a robot is and can do.
struct FleetFactsheet {
  struct Method {
    std::string name;
    std::string description;
    /// Names of the parameters.
    std::vector<std::string> params;
    bool hasResult = false;
  };
  struct Module {
    std::string name;
    std::string description;
    std::vector<Method> methods;
    std::vector<std::string> events;
  };

  std::string name;
  std::string version;
  /// Where its page is; absent when it has none that can be reached.
  std::optional<std::string> page;
  /// Modules whose methods may be called from here; "*" for all.
  std::vector<std::string> calls;
  std::vector<Module> modules;
};
std::string factsheetPayload(const FleetFactsheet& factsheet);
FleetFactsheet readFactsheet(std::string_view payload);

/// A request's parameters: an array, or an object with their names.
std::string requestPayload(const boost::json::value& params);
/// Null where the request has none.
boost::json::value readRequest(std::string_view payload);

/// How a call ended. The codes are those of JSON-RPC and the gateway's.
struct FleetAnswer {
  struct Error {
    int code = 0;
    std::string message;
    /// JSON; empty for none.
    std::string data;
  };
  /// JSON; "null" for a method without result.
  std::string result;
  std::optional<Error> error;
};
std::string answerPayload(const FleetAnswer& answer);
FleetAnswer readAnswer(std::string_view payload);

} // namespace gk::messages
