#pragma once

#include "app/fleet/BrokerOptions.h"
#include "messages/mqtt/MqttClient.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace gk::app {

/// A filter and the quality of service that is wanted of what it lets through.
struct FleetSubscription {
  std::string filter;
  int qos = 0;
};

/// What a command hears of the broker, each within `FleetLink::run`. All but `message` may be
/// empty.
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
  /// has not, and `MqttError`.
  void open();

  /// Hears what comes until `isOver` says so, which is asked at least ten times a second, or until
  /// the time.
  void run(const std::function<bool()>& isOver, std::optional<Clock::time_point> until = {});

  /// As `MqttClient::publish`.
  std::optional<int> publish(const messages::MqttMessage& message) {
    return fClient.publish(message);
  }
  void close() { fClient.close(std::chrono::seconds(1)); }
  void wake() const noexcept { fClient.wake(); }

private:
  void xConnected();
  void xClosed(const std::string& why);
  void xSubscribed(int id, const std::vector<int>& reasons);
  bool xIsReady() const { return fIsAccepted && fAsked.empty(); }
  void xRetry();
  [[noreturn]] void xFail(const std::string& why) const;

  const std::string fBroker;
  const std::vector<FleetSubscription> fSubscriptions;
  const FleetHandlers fHandlers;
  messages::MqttClient fClient;
  /// Subscriptions that the broker has not answered yet, by their numbers.
  std::map<int, std::string> fAsked;
  bool fIsAccepted = false;
  bool fHasBeenReady = false;
  bool fIsToldAway = false;
  std::string fProblem;
  Clock::time_point fNextTry;
};

} // namespace gk::app
