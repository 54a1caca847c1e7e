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
  /// Most bytes of the reply.
  std::size_t most = 0;
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
    if (text.size() > most) {
      text.resize(before);
      appendRpcError(
          text, call.id,
          {kTooLarge,
           "with this result the answer is larger than " + std::to_string(most) + " bytes",
           {}});
    }
  }
};

void RpcService::handle(std::shared_ptr<const Robot> robot, const std::string& body, Reply reply) {
  auto progress = std::make_shared<Progress>();
  progress->robot = std::move(robot);
  progress->request = parseRpcRequest(body);
  progress->reply = std::move(reply);
  progress->most = fAnswer;
  xNext(progress);
}

void RpcService::xNext(const std::shared_ptr<Progress>& progress) {
  while (progress->next < progress->request.calls.size()) {
    const RpcCall& call = progress->request.calls[progress->next++];
    if (!call.error) {
      xCall(progress, call);
      return;
    }
    progress->add(call, {std::nullopt, call.error, {}});
  }
  std::string& text = progress->text;
  progress->reply(progress->request.isBatch && !text.empty() ? "[" + text + "]" : std::move(text));
}

void RpcService::xCallHost(const std::shared_ptr<Progress>& progress, const RpcCall& call) {
  const auto done = [this, progress, &call](const CallOutcome& outcome) {
    progress->add(call, outcome);
    xNext(progress);
  };
  if (const HostMethods::Method* method = fHost->find(call.module, call.method)) {
    (*method)(call.params, done);
  } else {
    done({std::nullopt, fHost->noSuchMethod(call.module, call.method), {}});
  }
}

void RpcService::xCall(const std::shared_ptr<Progress>& progress, const RpcCall& call) {
  if (fHost != nullptr && fHost->hasModule(call.module)) {
    xCallHost(progress, call);
    return;
  }
  auto resolved = progress->robot->resolve(call.module, call.method, call.params);
  if (auto* error = std::get_if<RpcError>(&resolved)) {
    progress->add(call, {std::nullopt, std::move(*error), {}});
    xNext(progress);
    return;
  }
  const auto start = std::chrono::steady_clock::now();
  const auto done = [this, progress, &call, start](const CallOutcome& outcome) {
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    fCounters.addCall(call.module + "." + call.method, taken.count(), outcome.error.has_value());
    progress->add(call, outcome);
    xNext(progress);
  };
  if (!fRunner.start(std::get<BoundCall>(std::move(resolved)), done)) {
    progress->add(call, {std::nullopt, busyError(), {}});
    xNext(progress);
  }
}

} // namespace gk::gateway
