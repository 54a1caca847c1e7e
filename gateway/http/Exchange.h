#pragma once

#include "gateway/figures/Counters.h"
#include "gateway/figures/RecordingFigures.h"
#include "gateway/figures/RunSource.h"
#include "gateway/http/Access.h"
#include "gateway/http/Http.h"
#include "gateway/past/Past.h"
#include "gateway/past/Playback.h"
#include "gateway/robot/CallRunner.h"
#include "gateway/robot/ModuleStatus.h"
#include "gateway/robot/Robot.h"
#include "gateway/robot/RpcService.h"
#include "gateway/robot/VerdictWatch.h"

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace gk::gateway {

/// Figures of the server that the resources show.
struct HostFigures {
  std::string version;
  /// Wall time at which the gateway started, in seconds since 1970.
  double startTime = 0;
  /// Most bytes of an answer.
  std::size_t answer = 16U << 20U;
  RecordingSource recording;
  /// Tells this process from one before it at the same address.
  std::string session;
  /// What is played in the place of a robot; null for a robot.
  std::shared_ptr<Playback> playback;
  /// What modules tell of themselves; empty where nobody asks them.
  StatusSource status;
  /// Null where nobody says.
  std::shared_ptr<const RunSource> source;
};

struct Route;

/// What answers are made from besides the robot. All outlives the tasks of the runner.
struct AnswerParts {
  Access& access;
  CallRunner& runner;
  Counters& counters;
  RpcService& rpc;
  const VerdictWatch& verdict;
  Past& past;
  const HostFigures& figures;
  std::span<const Route> routes;
};

/// One request on its way through a handler.
struct Exchange {
  const AnswerParts& parts;
  /// Null while the host is starting or ending; only open routes are asked then.
  std::shared_ptr<const Robot> robot;
  const HttpRequest& request;
  const Target& target;
  /// What stands for the braces of the route's path.
  std::string name;
  Respond respond;
};

/// One row of the table of resources.
struct Route {
  std::string_view method;
  /// A last part in braces stands for one name, slashes included for "{key}".
  std::string_view path;
  std::string_view summary;
  void (*handler)(const Exchange&);
  /// Answered without token, and while there is no robot yet.
  bool isOpen = false;
  /// Name and text of each query parameter, in pairs.
  std::span<const std::pair<std::string_view, std::string_view>> query = {};
  std::string_view answerType = "application/json";
};

} // namespace gk::gateway
