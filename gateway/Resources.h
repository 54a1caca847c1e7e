#pragma once

#include "gateway/Access.h"
#include "gateway/CallRunner.h"
#include "gateway/Counters.h"
#include "gateway/Http.h"
#include "gateway/Robot.h"
#include "gateway/RpcService.h"
#include "gk/GKClock.h"

#include <functional>
#include <memory>
#include <optional>
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
};

/// Answers requests: the resources, calls, status pages and the page's files. Which there are
/// stands in one table, from which the description for programs is made as well. Any thread.
class Resources {
  struct Exchange;

public:
  /// One row of the table.
  struct Route {
    std::string_view method;
    /// A last part in braces stands for one name, slashes included for "{key}".
    std::string_view path;
    std::string_view summary;
    void (Resources::*handler)(const Exchange&);
    /// Answered without token, and while there is no robot yet.
    bool isOpen = false;
    /// Name and text of each query parameter, in pairs.
    std::span<const std::pair<std::string_view, std::string_view>> query = {};
    std::string_view answerType = "application/json";
  };

  /// All must outlive the tasks of the runner, as must this.
  Resources(Access& access, CallRunner& runner, Counters& counters, HostFigures figures);

  /// `robot` is null while the host is starting or ending: then only health is told.
  void handle(std::shared_ptr<const Robot> robot, HttpRequest request, Respond respond);

  /// The rules that come before everything else, for requests and upgrades alike: nothing when the
  /// request may pass. `isOpen`: what it wants is shown to everybody on an allowed host.
  std::optional<HttpResponse> refuse(const HttpRequest& request, const Target& target, bool isOpen);

  static std::span<const Route> routes();

private:
  // One each for the table's rows.
  void xCall(const Exchange& exchange);
  void xHost(const Exchange& exchange);
  void xModules(const Exchange& exchange);
  void xModule(const Exchange& exchange);
  void xKeys(const Exchange& exchange);
  void xGetKey(const Exchange& exchange);
  void xPutKey(const Exchange& exchange);
  void xEvents(const Exchange& exchange);
  void xStatus(const Exchange& exchange);
  void xOpenApi(const Exchange& exchange);
  void xMetrics(const Exchange& exchange);
  void xAlive(const Exchange& exchange);
  void xReady(const Exchange& exchange);
  void xLogin(const Exchange& exchange);
  void xTicket(const Exchange& exchange);

  void xFile(const HttpRequest& request, const Target& target, const Respond& respond) const;
  /// Runs `work` in a task; it makes the response.
  void xInTask(const Exchange& exchange, GK::GKTask name, std::function<HttpResponse()> work);

  Access& fAccess;
  CallRunner& fRunner;
  Counters& fCounters;
  const HostFigures fFigures;
  RpcService fRpc;
};

} // namespace gk::gateway
