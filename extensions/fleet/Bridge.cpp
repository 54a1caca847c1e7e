#include "extensions/fleet/Bridge.h"

#include "gk/GKClientCalls.h"
#include "gk/GKClock.h"
#include "gk/GKObserver.h"
#include "messages/text/WallTime.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>
#include <utility>

namespace gk::fleet {

namespace {

using messages::FleetPresence;
using messages::MqttMessage;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kIdleTurn{500};

constexpr seconds kFactsheetPause{1};
/// How long a host may take until it can carry calls out, and how often that is looked at.
constexpr seconds kStartPatience{10};
constexpr milliseconds kStartTurn{20};

/// Another one for each start: 128 random bits.
std::string newBootId() {
  std::random_device random;
  constexpr int kWords = 4;
  std::string id;
  for (int word = 0; word < kWords; ++word) {
    std::array<char, 9> digits{};
    std::snprintf(digits.data(), digits.size(), "%08x", static_cast<unsigned>(random()));
    id += digits.data();
  }
  return id;
}

} // namespace

std::int64_t Bridge::xWallMicros() {
  return messages::epochOf(GK::GKClock::instance().wallTime(), 0);
}

/// Where answers of calls wait for the bridge. It may outlive the bridge: calls do.
struct Bridge::Inbox {
  struct Answer {
    std::uint64_t number = 0;
    messages::FleetAnswer answer;
  };

  void put(Answer answer) {
    const std::lock_guard lock(mutex);
    answers.push_back(std::move(answer));
    if (wake) {
      wake();
    }
  }
  std::vector<Answer> take() {
    const std::lock_guard lock(mutex);
    return std::exchange(answers, {});
  }
  void close() {
    const std::lock_guard lock(mutex);
    wake = nullptr;
  }

  std::mutex mutex;
  std::vector<Answer> answers;
  std::function<void()> wake;
};

Bridge::Bridge(FleetSettings settings, BridgeSources sources)
    : fSettings(std::move(settings)), fSources(std::move(sources)),
      fTopics(fSettings.root, fSettings.site, fSettings.robot), fBootId(newBootId()),
      fInbox(std::make_shared<Inbox>()), fPause(kFirstPause),
      fCourier(
          fBootId, {.backlogRate = fSettings.backlogRate},
          [this](const Entry& entry, bool isHistorical) { return xSendEntry(entry, isHistorical); },
          [this](const Entry& entry, const std::string& why) {
            xTellRefused(entry.isGap() ? fTopics.gap() : fTopics.event(entry.level), why);
          }),
      fDesk(fTopics,
            {[this](const std::string& module) { return fSettings.isAllowed(module); },
             [this](std::uint64_t number, const std::string& module, const std::string& method,
                    const std::string& params) { xRunCall(number, module, method, params); },
             [this](const MqttMessage& answer) { xPublish(answer); },
             [this](const std::string& text) {
               if (fToldRequests.size() < CallDesk::kMost && fToldRequests.insert(text).second) {
                 zu::log::warning(kCategory, "call") << text;
               }
             }}) {
  if (fSettings.tls) {
    const messages::MqttTlsContext check(*fSettings.tls, fSettings.broker.host);
  }
  try {
    xUse(Outbox::open(fSettings.outbox));
  } catch (const SqliteError& error) {
    xOnOutboxTrouble(steady_clock::now(), error);
  }
}

Bridge::~Bridge() {
  stop();
}

messages::MqttOptions Bridge::xMqttOptions() const {
  messages::MqttOptions options;
  options.host = fSettings.broker.host;
  options.port = fSettings.broker.port;
  options.tls = fSettings.tls;
  options.clientId = "gk-" + fSettings.site + "-" + fSettings.robot;
  options.user = fSettings.user;
  options.password = fSettings.password;
  options.keepAlive = fSettings.keepAlive;
  options.will =
      MqttMessage{fTopics.connection(), xConnectionPayload(FleetPresence::Lost), 1, true};
  return options;
}

std::string Bridge::xConnectionPayload(FleetPresence presence) const {
  return messages::connectionPayload({presence, fBootId, xWallMicros()});
}

void Bridge::start() {
  messages::MqttHandlers handlers;
  handlers.onConnected = [this] { fIsNewConnection = true; };
  handlers.onClosed = [this](int reason, const std::string& text) {
    fIsClosed = true;
    fCloseReason = reason;
    fCloseText = text;
  };
  handlers.onMessage = [this](const MqttMessage& message) {
    // What was kept of this robot before it has told anything itself is its own former life.
    if (message.topic != fTopics.connection() || fHasToldPresence) {
      fRequests.push_back(message);
    }
  };
  handlers.onPublished = [this](int number, int reason) { xOnPublished(number, reason); };
  handlers.onSubscribed = [this](int number, const std::vector<int>& reasons) {
    if (number == fRpcSubscription && !reasons.empty() &&
        reasons.front() >= messages::kMqttRefused) {
      xTellRefused(fTopics.rpcFilter(), messages::mqttReasonText(reasons.front()));
    }
  };
  fClient = std::make_unique<messages::MqttClient>(xMqttOptions(), std::move(handlers));
  fInbox->wake = [this] { fClient->wake(); };
  fQueue = boost::make_shared<EventQueue>([this] { fClient->wake(); });
  GK::GKObserverList::instance().add(fQueue);
  fStarted = steady_clock::now();
  fThread = std::thread([this] { xRun(); });
}

void Bridge::stop() {
  if (!fThread.joinable()) {
    return;
  }
  GK::GKObserverList::instance().remove(fQueue);
  fIsStopping = true;
  fClient->wake();
  fThread.join();
  fInbox->close();
  fClient.reset();
}

void Bridge::xRun() {
  while (!fIsStopping) {
    xTurn();
    const Time now = steady_clock::now();
    fClient->wait(std::clamp(std::chrono::ceil<milliseconds>(fNextTurn - now), milliseconds(0),
                             milliseconds(kIdleTurn)));
  }
  xFarewell();
}

void Bridge::xTurn() {
  const Time now = steady_clock::now();
  fNextTurn = now + kIdleTurn;
  if (std::exchange(fIsClosed, false)) {
    xOnClosed(now);
  }
  xTakeEvents();
  if (std::exchange(fIsNewConnection, false) && fClient->isConnected()) {
    xOnConnected(now);
  }
  xConnectIfDue(now);
  xReopen(now);
  xCommitIfDue(now);
  for (const MqttMessage& message : std::exchange(fRequests, {})) {
    if (message.topic == fTopics.connection()) {
      xLookForAnother(now, message.payload);
    } else {
      fDesk.onRequest(now, message);
    }
  }
  xRunEarlyCalls();
  xTakeAnswers(now);
  xPump(now);
  if (fClient->isConnected()) {
    xTellFactsheet(now);
    xTellState(now);
  }
  xUpdateStatus();
}

void Bridge::xFarewell() {
  const Time end = steady_clock::now() + kFarewell;
  xTakeEvents();
  xCommit(steady_clock::now());
  if (fClient->isConnected()) {
    xPump(steady_clock::now());
    xPublish({fTopics.connection(), xConnectionPayload(FleetPresence::Offline), 1, true});
    while (fClient->isConnected() && !(fOthers.empty() && fCourier.isIdle()) &&
           steady_clock::now() < end) {
      fClient->wait(std::chrono::ceil<milliseconds>(end - steady_clock::now()));
      xPump(steady_clock::now());
    }
  }
  fClient->close(kFarewell / 3);
  fCourier.onClosed();
  xCollectGivenUp();
  xCommit(steady_clock::now());
}
void Bridge::xTellState(Time now) {
  // At most so often is it looked at all.
  if (now < fState.nextDue()) {
    xWakeAt(fState.nextDue());
    return;
  }
  fState.look(now, *fSources.store);
  const messages::FleetState::Outbox figures = xOutboxFigures();
  if (!fState.isDue(now, figures)) {
    xWakeAt(now + kFactsheetPause);
    return;
  }
  messages::FleetState state = fState.take(now, fQueue->takeLoops(), figures);
  state.bootId = fBootId;
  state.time = xWallMicros();
  state.uptime = GK::GKClock::instance().elapsed();
  xPublish({fTopics.state(), messages::statePayload(state), 0, true});
}

void Bridge::xTellFactsheet(Time now) {
  const std::size_t modules = fSources.moduleCount();
  fIsFactsheetDue = fIsFactsheetDue || std::exchange(fModules, modules) != modules;
  if (!fIsFactsheetDue) {
    return;
  }
  if (now < fNextFactsheet) {
    xWakeAt(fNextFactsheet);
    return;
  }
  fIsFactsheetDue = false;
  fNextFactsheet = now + kFactsheetPause;
  messages::FleetFactsheet factsheet = fSources.factsheet();
  factsheet.name = fSettings.robot;
  factsheet.calls = fSettings.calls;
  if (!fSettings.page.empty()) {
    factsheet.page = fSettings.page;
  }
  std::string payload = messages::factsheetPayload(factsheet);
  if (payload != fFactsheet) {
    fFactsheet = std::move(payload);
    xPublish({fTopics.factsheet(), fFactsheet, 1, true});
  }
}

void Bridge::xRunCall(std::uint64_t number, const std::string& module, const std::string& method,
                      const std::string& params) {
  const std::shared_ptr<GK::GKClientCalls> calls = GK::GKClientCalls::instance();
  const Time now = steady_clock::now();
  if (calls == nullptr && now < fStarted + kStartPatience) {
    fEarlyCalls.push_back({number, module, method, params});
    xWakeAt(now + kStartTurn);
    return;
  }
  if (calls == nullptr) {
    constexpr int kInternal = -32603;
    messages::FleetAnswer answer;
    answer.error = {kInternal, "this host carries no calls out", {}};
    fInbox->put({number, std::move(answer)});
    return;
  }
  calls->call(module, method, params, [inbox = fInbox, number](const GK::GKClientAnswer& given) {
    messages::FleetAnswer answer;
    if (given.isError()) {
      answer.error = {given.code, given.message, given.data};
    } else {
      answer.result = given.result;
    }
    inbox->put({number, std::move(answer)});
  });
}

/// The host loads this library before it can carry calls out.
void Bridge::xRunEarlyCalls() {
  for (const EarlyCall& call : std::exchange(fEarlyCalls, {})) {
    xRunCall(call.number, call.module, call.method, call.params);
  }
}

void Bridge::xTakeAnswers(Time now) {
  for (const Inbox::Answer& answer : fInbox->take()) {
    fDesk.onAnswer(now, answer.number, answer.answer);
  }
}

messages::FleetState::Outbox Bridge::xOutboxFigures() {
  messages::FleetState::Outbox figures;
  figures.gaps = fGapCount;
  figures.refused = fCourier.refusedCount();
  if (fOutbox == nullptr) {
    return figures;
  }
  // What was acknowledged since the last commit has left it.
  const std::size_t acknowledged = fCourier.acknowledged().size();
  figures.backlog = fOutbox->count() - std::min<std::uint64_t>(acknowledged, fOutbox->count());
  figures.bytes = fOutbox->bytes();
  if (figures.backlog > 0) {
    constexpr double kMicrosPerSecond = 1e6;
    try {
      if (const std::optional<std::int64_t> oldest = fOutbox->oldest()) {
        figures.oldest =
            std::max(0.0, static_cast<double>(xWallMicros() - *oldest) / kMicrosPerSecond);
      }
    } catch (const SqliteError& error) {
      xOnOutboxTrouble(steady_clock::now(), error);
    }
  }
  return figures;
}

void Bridge::xUpdateStatus() {
  const messages::FleetState::Outbox figures = xOutboxFigures();
  const std::lock_guard lock(fStatusMutex);
  fStatus = {fClient->isConnected() && fConnectedSince > 0,
             figures.backlog,
             figures.oldest,
             figures.gaps,
             figures.refused,
             fConnectionTrouble,
             fOutboxTrouble};
}

Bridge::Status Bridge::status() const {
  const std::lock_guard lock(fStatusMutex);
  return fStatus;
}

} // namespace gk::fleet
