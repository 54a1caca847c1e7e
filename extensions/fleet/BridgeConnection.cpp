#include "extensions/fleet/Bridge.h"
#include "zu/log.h"

#include <algorithm>
#include <random>
#include <utility>

// The connection to the broker, and what goes over it.

namespace gk::fleet {

namespace {

using messages::FleetPresence;
using messages::MqttMessage;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kLongestPause{30000};
constexpr seconds kTakenOverPause{60};
constexpr milliseconds kLookupTurn{20};

} // namespace

void Bridge::xConnectIfDue(Time now) {
  if (fClient->isConnected() || fClient->isConnecting()) {
    return;
  }
  if (!fLookup.isRunning()) {
    if (now < fNextConnect) {
      xWakeAt(fNextConnect);
      return;
    }
    fLookup.start(fSettings.broker.host);
  }
  const std::optional<std::string> trouble = fLookup.poll();
  if (!trouble) {
    xWakeAt(now + kLookupTurn);
    return;
  }
  if (!trouble->empty()) {
    xRetryLater(now, fSettings.broker.host + ": " + *trouble);
    return;
  }
  try {
    fConnectedSince = 0;
    fClient->connect();
  } catch (const messages::MqttError& error) {
    xRetryLater(now, error.what());
  }
}

void Bridge::xRetryLater(Time now, const std::string& why) {
  if (std::exchange(fConnectionTrouble, why) != why) {
    zu::log::warning(kCategory, "connect")
        << "no connection to " << fSettings.broker.url() << ": " << why;
  }
  // Robots that lost their broker together do not come back at the same moment.
  static thread_local std::minstd_rand random{std::random_device()()};
  std::uniform_real_distribution<double> spread(0.8, 1.2);
  fNextConnect = now + std::chrono::duration_cast<milliseconds>(fPause * spread(random));
  fPause = std::min(fPause * 2, kLongestPause);
  xWakeAt(fNextConnect);
}

void Bridge::xOnConnected(Time now) {
  fPause = kFirstPause;
  fConnectionTrouble.clear();
  fConnectedSince = xWallMicros();
  zu::log::info(kCategory, "connect") << "connected to " << fSettings.broker.url() << " as "
                                      << fSettings.site << "/" << fSettings.robot;
  fCourier.onConnected(now, fNextSeq, fOutbox != nullptr ? fOutbox->nextId() : 1);
  // First, so that it tells what was kept there before this connection.
  fClient->subscribe(fTopics.connection(), 1);
  fRpcSubscription = fClient->subscribe(fTopics.rpcFilter(), 1).value_or(0);
  xPublish({fTopics.connection(), xConnectionPayload(FleetPresence::Online), 1, true});
  fFactsheet.clear();
  fIsFactsheetDue = true;
  fNextFactsheet = now;
  fState.forget();
}

void Bridge::xOnClosed(Time now) {
  fOthers.clear();
  fCourier.onClosed();
  xCollectGivenUp();
  fIsNewConnection = false;
  fRequests.clear();
  if (fCloseReason == messages::kMqttSessionTakenOver) {
    fConnectionTrouble = "another client calls itself " + fSettings.site + "/" + fSettings.robot;
    zu::log::error(kCategory, "connect")
        << fConnectionTrouble << " and has taken the connection over: trying again in a minute";
    fNextConnect = now + kTakenOverPause;
    return;
  }
  xRetryLater(now, fCloseText);
}

/// Not every broker says who ends a connection. But once this robot has told that it is there,
/// nobody else may have told that under its name when it comes back.
void Bridge::xLookForAnother(Time now, const std::string& payload) {
  if (!fClient->isConnected()) {
    return;
  }
  try {
    const messages::FleetConnection told = messages::readConnection(payload);
    if (told.bootId == fBootId || told.presence != FleetPresence::Online) {
      return;
    }
  } catch (const messages::FormatError&) {
    return; // nothing of ours
  }
  fClient->close(kFarewell / 3);
  fCloseReason = messages::kMqttSessionTakenOver;
  xOnClosed(now);
}

void Bridge::xPump(Time now) {
  try {
    if (const std::optional<Time> next = fCourier.pump(now, fOutbox.get())) {
      xWakeAt(*next);
    }
  } catch (const SqliteError& error) {
    xOnOutboxTrouble(now, error);
  }
  xCollectGivenUp();
}

std::optional<int> Bridge::xSendEntry(const Entry& entry, bool isHistorical) {
  if (entry.isGap()) {
    return fClient->publish({fTopics.gap(), entry.body, 1, false});
  }
  return fClient->publish(
      {fTopics.event(entry.level), messages::eventPayload(entry.body, isHistorical), 1, false});
}

void Bridge::xPublish(const MqttMessage& message) {
  try {
    const std::optional<int> number = fClient->publish(message);
    if (number && message.qos > 0) {
      fOthers.insert_or_assign(*number, message.topic);
    }
  } catch (const messages::MqttError& error) {
    xTellRefused(message.topic, error.what());
  }
}

void Bridge::xOnPublished(int number, int reason) {
  if (const auto other = fOthers.find(number); other != fOthers.end()) {
    if (reason >= messages::kMqttRefused) {
      xTellRefused(other->second, messages::mqttReasonText(reason));
    } else if (other->second == fTopics.connection()) {
      fHasToldPresence = true;
    }
    fOthers.erase(other);
    return;
  }
  fCourier.onPublished(number, reason);
}

void Bridge::xTellRefused(const std::string& topic, const std::string& why) {
  if (!why.empty() && fToldTopics.size() < CallDesk::kMost && fToldTopics.insert(topic).second) {
    zu::log::error(kCategory, "send") << "the broker refuses " << topic << ": " << why;
  }
}

} // namespace gk::fleet
