#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The topics by which robots and their operators meet: ROOT/v1/SITE/ROBOT/KIND[/...].
namespace gk::messages {

inline constexpr const char* kFleetVersion = "v1";
inline constexpr const char* kFleetRoot = "gk";
inline constexpr const char* kFleetSite = "default";

inline constexpr const char* kConnectionTopic = "connection";
inline constexpr const char* kFactsheetTopic = "factsheet";
inline constexpr const char* kStateTopic = "state";
inline constexpr const char* kEventTopic = "event";
inline constexpr const char* kGapTopic = "gap";
inline constexpr const char* kRpcTopic = "rpc";

/// Whether `text` can be a level: letters, digits, "_", "-" and ".", 1 to 128 of them.
bool isTopicLevel(std::string_view text);
/// A level made of any name: bytes that no level holds become "_", what is too long is cut.
std::string topicLevel(std::string_view name);

/// The topics of one robot.
class FleetTopics {
public:
  /// Raises `FormatError` for what is no level.
  FleetTopics(const std::string& root, const std::string& site, const std::string& robot);

  std::string connection() const { return fRobot + kConnectionTopic; }
  std::string factsheet() const { return fRobot + kFactsheetTopic; }
  std::string state() const { return fRobot + kStateTopic; }
  std::string gap() const { return fRobot + kGapTopic; }
  /// `name` is any event's.
  std::string event(std::string_view name) const;
  std::string rpc(std::string_view module, std::string_view method) const;
  /// The filter for all requests to this robot.
  std::string rpcFilter() const;

  /// Whether an answer may be sent to this topic: below this robot's site, without wildcards.
  bool isAnswerTopic(std::string_view topic) const;

private:
  std::string fSite;
  std::string fRobot;
};

/// The parts of a topic of ours.
struct FleetTopic {
  std::string root;
  std::string site;
  std::string robot;
  /// "connection", "event", ...
  std::string kind;
  /// What follows: the event's name as a level, the module and the method.
  std::vector<std::string> rest;
};

/// Nothing for a topic that is none of ours: too few levels, or another version.
std::optional<FleetTopic> parseFleetTopic(std::string_view topic);

/// The filter for this kind of message of all robots of a site: "gk/v1/default/+/state". `kind` may
/// be followed by more levels ("event/+") or be "#" for everything. `site` may be "+".
std::string fleetFilter(const std::string& root, const std::string& site, const std::string& kind);

} // namespace gk::messages
