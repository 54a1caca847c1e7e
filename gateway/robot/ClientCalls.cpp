#include "gateway/robot/ClientCalls.h"

#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"

#include <utility>

namespace gk::gateway {

namespace {

GK::GKClientAnswer clientAnswer(const CallOutcome& outcome, const RpcService& service) {
  GK::GKClientAnswer answer;
  if (outcome.error) {
    answer = {{}, outcome.error->code, outcome.error->message, outcome.error->data};
  } else if (!outcome.json.empty()) {
    answer.result = outcome.json;
  } else if (outcome.result) {
    messages::appendJson(answer.result, *outcome.result);
  } else {
    answer.result = "null";
  }
  if (!answer.isError() && answer.result.size() > service.most()) {
    const RpcError error = service.tooLarge();
    answer = {{}, error.code, error.message, error.data};
  }
  return answer;
}

} // namespace

void ClientCalls::call(const std::string& module, const std::string& method,
                       const std::string& params, Done done) {
  std::shared_ptr<const Robot> robot;
  {
    const std::lock_guard lock(fMutex);
    robot = fRobot;
  }
  if (robot == nullptr) {
    done({{}, kTooManyCalls, "the host is ending", {}});
    return;
  }
  boost::json::value values;
  try {
    if (!params.empty()) {
      values = messages::parseJson(params);
    }
  } catch (const messages::FormatError& error) {
    done({{}, kParseError, error.what(), {}});
    return;
  }
  fService.call(*robot, module, method, values,
                [&service = fService, done = std::move(done)](const CallOutcome& outcome) {
                  done(clientAnswer(outcome, service));
                });
}

void ClientCalls::close() {
  const std::lock_guard lock(fMutex);
  fRobot.reset();
}

void OwnCalls::open(boost::shared_ptr<GK::GKBroker> broker, CarryOut carryOut, Outside outside) {
  auto robot = std::make_shared<Robot>(std::move(broker), LoopSource(), carryOut);
  fRunner.setCarryOut(std::move(carryOut));
  fRunner.setOutside(std::move(outside));
  fCalls = std::make_shared<ClientCalls>(fService, std::move(robot));
  GK::GKClientCalls::install(fCalls);
}

void OwnCalls::close() {
  if (fCalls != nullptr) {
    GK::GKClientCalls::install(nullptr);
    fRunner.close();
    fCalls->close();
    fCalls.reset();
  }
}

} // namespace gk::gateway
