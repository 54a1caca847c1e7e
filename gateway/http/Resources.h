#pragma once

#include "gateway/http/Exchange.h"
#include "gateway/http/Http.h"

#include <memory>
#include <optional>

namespace gk::gateway {

/// Answers requests: the resources, calls, status pages and the page's files. Any thread.
class Resources {
public:
  /// All must outlive the tasks of the runner, as must this.
  Resources(Access& access, CallRunner& runner, Counters& counters, HostFigures figures,
            const VerdictWatch& verdict, Past& past);
  Resources(const Resources&) = delete;
  Resources& operator=(const Resources&) = delete;

  /// `robot` is null while the host is starting or ending: then only health is told.
  void handle(std::shared_ptr<const Robot> robot, HttpRequest request, Respond respond);

  /// The rules that come before everything else, for requests and upgrades alike: nothing when the
  /// request may pass. `isOpen`: what it wants is shown to everybody on an allowed host.
  std::optional<HttpResponse> refuse(const HttpRequest& request, const Target& target, bool isOpen);

private:
  const HostFigures fFigures;
  HostMethods fMethods;
  RpcService fRpc;
  const AnswerParts fParts;
};

} // namespace gk::gateway
