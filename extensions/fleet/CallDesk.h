#pragma once

#include "messages/fleet/FleetPayload.h"
#include "messages/fleet/FleetTopics.h"
#include "messages/mqtt/MqttMessage.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace gk::fleet {

/// Takes requests that come over MQTT and gives their answers back. A request that comes again,
/// with the same correlation data for the same answer topic, gets the same answer again and is not
/// run again. For one thread; does not tell the time itself.
class CallDesk {
public:
  using Time = std::chrono::steady_clock::time_point;

  /// How long an answer is kept for requests that come again, and how many.
  static constexpr std::chrono::minutes kKept{5};
  static constexpr std::size_t kMost = 1024;
  /// Bytes of a request, and of all answers that are kept.
  static constexpr std::size_t kMostRequest = std::size_t{1} << 20U;
  static constexpr std::size_t kMostAnswers = std::size_t{32} << 20U;

  struct Handlers {
    std::function<bool(const std::string& module)> isAllowed;
    /// Runs the call; its end is told by `onAnswer` with this number. `params` is JSON.
    std::function<void(std::uint64_t number, const std::string& module, const std::string& method,
                       const std::string& params)>
        run;
    std::function<void(const messages::MqttMessage& answer)> send;
    /// A request was not run, for people; the same text again and again.
    std::function<void(const std::string& text)> tell;
  };

  CallDesk(messages::FleetTopics topics, Handlers handlers)
      : fTopics(std::move(topics)), fHandlers(std::move(handlers)) {}

  void onRequest(Time now, const messages::MqttMessage& request);
  void onAnswer(Time now, std::uint64_t number, const messages::FleetAnswer& answer);

private:
  struct Call {
    std::string topic;
    std::string responseTopic;
    std::optional<std::string> correlation;
    /// Nobody waits for the answer any more.
    std::optional<Time> deadline;
    /// How it is found again; empty when it has no correlation data.
    std::string key;
    /// Empty while it is running.
    std::string answer;
    Time until{};
  };

  void xAnswer(Time now, const Call& call);
  void xFinish(Time now, std::uint64_t number, const messages::FleetAnswer& answer);
  /// Forgets answers that are too old or too many.
  void xForget(Time now);
  void xErase(std::uint64_t number);

  const messages::FleetTopics fTopics;
  const Handlers fHandlers;
  std::uint64_t fNumber = 0;
  std::map<std::uint64_t, Call> fCalls;
  std::map<std::string, std::uint64_t> fByKey;
  /// Answered calls, the oldest answer first, and their bytes.
  std::deque<std::uint64_t> fAnswered;
  std::size_t fBytes = 0;
};

} // namespace gk::fleet
