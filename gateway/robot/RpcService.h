#pragma once

#include "gateway/figures/Counters.h"
#include "gateway/robot/CallRunner.h"
#include "gateway/robot/HostMethods.h"
#include "gateway/robot/Robot.h"
#include "gateway/robot/RpcRequest.h"

#include <functional>
#include <memory>
#include <string>

namespace gk::gateway {

/// Carries out JSON-RPC requests. The requests of a batch run one after the other, in their order,
/// each in a task of its own. Any thread.
class RpcService {
public:
  /// Takes the reply's text; empty when there is nothing to reply. On the thread of the last call,
  /// or on that of `handle`.
  using Reply = std::function<void(std::string)>;

  /// All must outlive the calls' tasks, as must the service itself. `answer`: most bytes of a
  /// reply. `host`: methods of the host itself, which go before modules of their names; may be
  /// null.
  RpcService(CallRunner& runner, Counters& counters, std::size_t answer,
             const HostMethods* host = nullptr)
      : fRunner(runner), fCounters(counters), fAnswer(answer), fHost(host) {}

  void handle(std::shared_ptr<const Robot> robot, const std::string& body, Reply reply);

  /// Carries out one call. `done` is called once, at once or in the task of the call. `params`: an
  /// array, an object, or null.
  void call(const Robot& robot, const std::string& module, const std::string& method,
            const boost::json::value& params, CallRunner::Done done);

  /// Most bytes of a reply, and the error of one with more.
  std::size_t most() const noexcept { return fAnswer; }
  RpcError tooLarge() const;

private:
  struct Progress;

  void xNext(const std::shared_ptr<Progress>& progress);

  CallRunner& fRunner;
  Counters& fCounters;
  const std::size_t fAnswer;
  const HostMethods* const fHost;
};

} // namespace gk::gateway
