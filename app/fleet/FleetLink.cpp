#include "app/fleet/FleetLink.h"

#include "app/client/HostAddress.h"

#include <algorithm>

namespace gk::app {

namespace {

constexpr std::chrono::milliseconds kTurn{100};

} // namespace

FleetLink::FleetLink(const BrokerOptions& options, std::vector<FleetSubscription> subscriptions,
                     FleetHandlers handlers)
    : fBroker(options.broker), fSubscriptions(std::move(subscriptions)),
      fHandlers(std::move(handlers)),
      fClient(mqttOptions(options),
              {[this] { xConnected(); },
               [this](int /*reason*/, const std::string& why) { xClosed(why); },
               [this](const messages::MqttMessage& message) { fInbox.push_back(message); },
               [this](int id, int reason) { fTaken.emplace_back(id, reason); },
               [this](int id, const std::vector<int>& reasons) { xSubscribed(id, reasons); }}) {}

void FleetLink::xFail(const std::string& why) const {
  throw ClientError(fBroker + ": " + why);
}

void FleetLink::open() {
  const Clock::time_point limit = Clock::now() + kConnectTime;
  try {
    fClient.connect();
  } catch (const messages::MqttError& error) {
    xFail(error.what());
  }
  while (!xIsReady()) {
    fClient.wait(kTurn);
    if (!fProblem.empty()) {
      xFail(fProblem);
    }
    if (Clock::now() >= limit) {
      xFail("the broker does not answer");
    }
  }
}

void FleetLink::run(const std::function<bool()>& isOver, std::optional<Clock::time_point> until) {
  while (true) {
    xTellChange();
    xDispatch(isOver);
    const Clock::time_point now = Clock::now();
    if (isOver() || (until && now >= *until)) {
      return;
    }
    if (!fClient.isConnected() && !fClient.isConnecting() && now >= fNextTry) {
      xRetry();
    }
    const auto left = until ? std::chrono::ceil<std::chrono::milliseconds>(*until - now) : kTurn;
    fClient.wait(std::min(left, kTurn));
  }
}

void FleetLink::xTellChange() {
  const bool isAway = !fProblem.empty();
  // A connection that is not subscribed yet is none.
  if (isAway == fIsToldAway || !(isAway || xIsReady())) {
    return;
  }
  fIsToldAway = isAway;
  if (fHandlers.changed) {
    fHandlers.changed(fProblem);
  }
}

void FleetLink::xDispatch(const std::function<bool()>& isOver) {
  while (!fTaken.empty()) {
    const auto [id, reason] = fTaken.front();
    fTaken.pop_front();
    if (fHandlers.published) {
      fHandlers.published(id, reason);
    }
  }
  while (!fInbox.empty() && !isOver()) {
    const messages::MqttMessage message = std::move(fInbox.front());
    fInbox.pop_front();
    fHandlers.message(message);
  }
}

void FleetLink::xRetry() {
  fNextTry = Clock::now() + kRetryTime;
  try {
    fClient.connect();
  } catch (const messages::MqttError& error) {
    xClosed(error.what());
  }
}

void FleetLink::xConnected() {
  fIsAccepted = true;
  fProblem.clear();
  fAsked.clear();
  for (const FleetSubscription& subscription : fSubscriptions) {
    if (const std::optional<int> id = fClient.subscribe(subscription.filter, subscription.qos)) {
      fAsked[*id] = subscription.filter;
    }
  }
}

void FleetLink::xClosed(const std::string& why) {
  fIsAccepted = false;
  fAsked.clear();
  fProblem = why;
  fNextTry = Clock::now() + kRetryTime;
}

void FleetLink::xSubscribed(int id, const std::vector<int>& reasons) {
  const auto asked = fAsked.find(id);
  if (asked == fAsked.end()) {
    return;
  }
  const auto refused =
      std::ranges::find_if(reasons, [](int reason) { return reason >= messages::kMqttRefused; });
  if (refused != reasons.end()) {
    fProblem = "the broker refuses " + asked->second + ": " + messages::mqttReasonText(*refused);
    return;
  }
  fAsked.erase(asked);
}

} // namespace gk::app
