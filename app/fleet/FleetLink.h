#pragma once

#include "app/fleet/BrokerOptions.h"
#include "messages/mqtt/MqttClient.h"

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace gk::app {

/// A filter and the quality of service that is wanted of what it lets through.
struct FleetSubscription {
  std::string filter;
  int qos = 0;
};

/// What a command hears of the broker, each within `FleetLink::run`, which lets out what they
/// raise. All but `message` may be empty.
struct FleetHandlers {
  std::function<void(const messages::MqttMessage&)> message;
  /// The broker has taken a message, or refuses it: see `MqttHandlers::onPublished`.
  std::function<void(int id, int reason)> published = {};
  /// The connection is gone and will be tried again, or is back; the text is empty then.
  std::function<void(const std::string& why)> changed = {};
};

/// A connection to the broker that is subscribed to something, and comes back by itself once it has
/// been there. For one thread; `wake` from any.
class FleetLink {
public:
  using Clock = std::chrono::steady_clock;

  /// How long a broker has to answer, and how long it is left alone between two tries.
  static constexpr std::chrono::seconds kConnectTime{5};
  static constexpr std::chrono::seconds kRetryTime{1};

  FleetLink(const BrokerOptions& options, std::vector<FleetSubscription> subscriptions,
            FleetHandlers handlers);

  /// Returns once the broker has accepted all subscriptions. Raises `ClientError` that says why it
  /// has not.
  void open();

  /// Hears what comes until `isOver` says so, which is asked after each message and at least ten
  /// times a second, or until the time. After `open`.
  void run(const std::function<bool()>& isOver, std::optional<Clock::time_point> until = {});

  /// As `MqttClient::publish`.
  std::optional<int> publish(const messages::MqttMessage& message) {
    return fClient.publish(message);
  }
  void close() { fClient.close(std::chrono::seconds(1)); }
  void wake() const noexcept { fClient.wake(); }

private:
  // Within the client's `wait`, through which nothing may be raised.
  void xConnected();
  void xClosed(const std::string& why);
  void xSubscribed(int id, const std::vector<int>& reasons);

  void xRetry();
  void xTellChange();
  void xDispatch(const std::function<bool()>& isOver);
  bool xIsReady() const { return fIsAccepted && fAsked.empty(); }
  [[noreturn]] void xFail(const std::string& why) const;

  const std::string fBroker;
  const std::vector<FleetSubscription> fSubscriptions;
  const FleetHandlers fHandlers;
  messages::MqttClient fClient;
  /// Subscriptions that the broker has not answered yet, by their numbers.
  std::map<int, std::string> fAsked;
  /// What has come and is to be told.
  std::deque<messages::MqttMessage> fInbox;
  std::deque<std::pair<int, int>> fTaken;
  bool fIsAccepted = false;
  bool fIsToldAway = false;
  std::string fProblem;
  Clock::time_point fNextTry;
};

} // namespace gk::app
