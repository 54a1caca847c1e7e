#include "gateway/robot/RpcService.h"

#include <chrono>
#include <utility>

namespace gk::gateway {

namespace {

RpcError busyError() {
  return {kTooManyCalls, "too many calls are running", {}};
}

} // namespace

/// How far a request has come.
struct RpcService::Progress {
  std::shared_ptr<const Robot> robot;
  RpcRequest request;
  Reply reply;
  std::size_t next = 0;
  /// Knows how large the reply may be.
  const RpcService* service = nullptr;
  /// The replies so far, with commas between them.
  std::string text;

  void add(const RpcCall& call, const CallOutcome& outcome) {
    if (call.isNotification()) {
      return;
    }
    if (!text.empty()) {
      text += ',';
    }
    const std::size_t before = text.size();
    if (outcome.error) {
      appendRpcError(text, call.id, *outcome.error);
    } else if (!outcome.json.empty()) {
      appendRpcResult(text, call.id, outcome.json);
    } else {
      appendRpcResult(text, call.id, outcome.result ? &*outcome.result : nullptr);
    }
    if (text.size() > service->most()) {
      text.resize(before);
      appendRpcError(text, call.id, service->tooLarge());
    }
  }
};

void RpcService::handle(std::shared_ptr<const Robot> robot, const std::string& body, Reply reply) {
  auto progress = std::make_shared<Progress>();
  progress->robot = std::move(robot);
  progress->request = parseRpcRequest(body);
  progress->reply = std::move(reply);
  progress->service = this;
  xNext(progress);
}

void RpcService::xNext(const std::shared_ptr<Progress>& progress) {
  while (progress->next < progress->request.calls.size()) {
    const RpcCall& call = progress->request.calls[progress->next++];
    if (!call.error) {
      this->call(*progress->robot, call.module, call.method, call.params,
                 [this, progress, &call](const CallOutcome& outcome) {
                   progress->add(call, outcome);
                   xNext(progress);
                 });
      return;
    }
    progress->add(call, {std::nullopt, call.error, {}});
  }
  std::string& text = progress->text;
  progress->reply(progress->request.isBatch && !text.empty() ? "[" + text + "]" : std::move(text));
}

RpcError RpcService::tooLarge() const {
  return {kTooLarge,
          "with this result the answer is larger than " + std::to_string(fAnswer) + " bytes",
          {}};
}

void RpcService::call(const Robot& robot, const std::string& module, const std::string& method,
                      const boost::json::value& params, CallRunner::Done done) {
  if (fHost != nullptr && fHost->hasModule(module)) {
    if (const HostMethods::Method* found = fHost->find(module, method)) {
      (*found)(params, std::move(done));
    } else {
      done({std::nullopt, fHost->noSuchMethod(module, method), {}});
    }
    return;
  }
  auto resolved = robot.resolve(module, method, params);
  if (auto* error = std::get_if<RpcError>(&resolved)) {
    done({std::nullopt, std::move(*error), {}});
    return;
  }
  const auto start = std::chrono::steady_clock::now();
  const auto counted = [this, name = module + "." + method, start, done](CallOutcome outcome) {
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    fCounters.addCall(name, taken.count(), outcome.error.has_value());
    done(std::move(outcome));
  };
  if (!fRunner.start(std::get<BoundCall>(std::move(resolved)), counted)) {
    done({std::nullopt, busyError(), {}});
  }
}

} // namespace gk::gateway
