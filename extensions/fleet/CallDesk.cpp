#include "extensions/fleet/CallDesk.h"

#include "messages/json/JsonText.h"

#include <boost/json/serialize.hpp>

#include <algorithm>
#include <utility>

namespace gk::fleet {

namespace {

using messages::FleetAnswer;
using messages::MqttMessage;

// Codes of JSON-RPC 2.0.
constexpr int kBadRequest = -32600;
constexpr int kNoMethod = -32601;

FleetAnswer errorAnswer(int code, std::string message) {
  FleetAnswer answer;
  answer.error = {code, std::move(message), {}};
  return answer;
}

} // namespace

void CallDesk::onRequest(Time now, const MqttMessage& request) {
  xForget(now);
  const auto topic = messages::parseFleetTopic(request.topic);
  constexpr std::size_t kLevels = 2;
  if (!topic || topic->kind != messages::kRpcTopic || topic->rest.size() != kLevels ||
      request.isRetained) {
    return; // what a broker has kept is nobody's wish of now
  }
  if (!fTopics.isAnswerTopic(request.responseTopic)) {
    fHandlers.tell(request.responseTopic.empty()
                       ? "a request without a response topic is not run"
                       : "a request whose answer should go to " +
                             messages::quotedText(request.responseTopic) +
                             ", which is outside of this site, is not run");
    return;
  }
  Call call{request.topic, request.responseTopic, request.correlation, std::nullopt, {}, {}, {}};
  if (request.expiry) {
    call.deadline = now + std::chrono::seconds(*request.expiry);
  }
  if (request.correlation) {
    call.key = request.topic + '\0' + request.responseTopic + '\0' + *request.correlation;
    if (const auto known = fByKey.find(call.key); known != fByKey.end()) {
      Call& former = fCalls.at(known->second);
      former.deadline = call.deadline;
      if (!former.answer.empty()) {
        xAnswer(now, former);
      }
      return;
    }
  }
  const std::uint64_t number = ++fNumber;
  if (!call.key.empty()) {
    fByKey.emplace(call.key, number);
  }
  fCalls.emplace(number, std::move(call));
  const std::string& module = topic->rest[0];
  if (!fHandlers.isAllowed(module)) {
    xFinish(now, number, errorAnswer(kNoMethod, "calls are off"));
    return;
  }
  if (request.payload.size() > kMostRequest) {
    xFinish(now, number, errorAnswer(kBadRequest, "the request is too large"));
    return;
  }
  try {
    const boost::json::value params = messages::readRequest(request.payload);
    fHandlers.run(number, module, topic->rest[1],
                  params.is_null() ? std::string() : boost::json::serialize(params));
  } catch (const messages::FormatError& error) {
    xFinish(now, number, errorAnswer(kBadRequest, error.what()));
  }
}

void CallDesk::onAnswer(Time now, std::uint64_t number, const FleetAnswer& answer) {
  if (fCalls.contains(number)) {
    xFinish(now, number, answer);
  }
}

void CallDesk::xFinish(Time now, std::uint64_t number, const FleetAnswer& answer) {
  Call& call = fCalls.at(number);
  call.answer = messages::answerPayload(answer);
  call.until = now + kKept;
  xAnswer(now, call);
  if (call.key.empty()) {
    fCalls.erase(number); // it cannot be told from another one
    return;
  }
  fAnswered.push_back(number);
  fBytes += call.answer.size();
  xForget(now);
}

void CallDesk::xAnswer(Time now, const Call& call) {
  if (call.deadline && now >= *call.deadline) {
    return;
  }
  MqttMessage message{call.responseTopic, call.answer, 1, false};
  message.correlation = call.correlation;
  if (call.deadline) {
    message.expiry = static_cast<std::uint32_t>(
        std::chrono::ceil<std::chrono::seconds>(*call.deadline - now).count());
  }
  fHandlers.send(message);
}

void CallDesk::xForget(Time now) {
  while (!fAnswered.empty() && (fAnswered.size() > kMost || fBytes > kMostAnswers ||
                                fCalls.at(fAnswered.front()).until <= now)) {
    xErase(fAnswered.front());
    fAnswered.pop_front();
  }
}

void CallDesk::xErase(std::uint64_t number) {
  const auto call = fCalls.find(number);
  fBytes -= call->second.answer.size();
  fByKey.erase(call->second.key);
  fCalls.erase(call);
}

} // namespace gk::fleet
