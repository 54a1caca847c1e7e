#include "extensions/fleet/Bridge.h"

#include "gk/GKClientCalls.h"
#include "gk/GKClock.h"
#include "gk/GKObserver.h"
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

constexpr const char* kCategory = "fleet";

/// Events are on the disk so soon after they were raised, with some time left for the disk.
constexpr milliseconds kJoinedFor{80};
/// What is acknowledged may wait longer: at worst it is sent twice.
constexpr milliseconds kAcknowledgedFor{500};
constexpr std::size_t kMostAcknowledged = 500;

constexpr milliseconds kFirstPause{250};
constexpr milliseconds kLongestPause{30000};
constexpr seconds kTakenOverPause{60};
constexpr milliseconds kLookupTurn{20};
constexpr milliseconds kIdleTurn{500};

constexpr seconds kOutboxPause{1};
constexpr seconds kLossPause{60};
constexpr seconds kFactsheetPause{1};
/// How long a host may take until it can carry calls out, and how often that is looked at.
constexpr seconds kStartPatience{10};
constexpr milliseconds kStartTurn{20};
/// What the end of the bridge may take of the host's.
constexpr milliseconds kFarewell{300};

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

std::int64_t wallMicros() {
  constexpr std::int64_t kMicrosPerSecond = 1'000'000;
  const GK::GKWallTime wall = GK::GKClock::instance().wallTime();
  return wall.seconds * kMicrosPerSecond + wall.microseconds;
}

std::string countText(std::uint64_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace

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
  return messages::connectionPayload({presence, fBootId, wallMicros()});
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

void Bridge::xTakeEvents() {
  EventQueue::Taken taken = fQueue->take();
  fIsFactsheetDue = fIsFactsheetDue || taken.isDeclared;
  if (taken.events.empty()) {
    return;
  }
  const std::int64_t clockStart = wallMicros() - GK::GKClock::instance().elapsed();
  for (EventQueue::Event& event : taken.events) {
    if (event.seq > fNextSeq) {
      zu::log::error(kCategory, "take") << countText(event.seq - fNextSeq, "event")
                                        << " came faster than they could be stored, and are lost";
      xAddGap({fBootId, fNextSeq, event.seq - 1});
    }
    fNextSeq = event.seq + 1;
    const std::int64_t time = clockStart + event.time;
    fPending.push_back({fBootId, event.seq, event.seq, time, messages::topicLevel(event.name),
                        messages::eventBody({event.name, event.kind, std::move(event.value), time,
                                             event.time, fBootId, event.seq, false})});
  }
}

void Bridge::xAddGap(const messages::FleetGap& gap) {
  ++fGapCount;
  fGaps[gap.bootId].add(gap.from, gap.to);
}

void Bridge::xCommitIfDue(Time now) {
  const std::size_t acknowledged = fCourier.acknowledged().size();
  if (fPending.empty() && fGaps.empty() && acknowledged == 0) {
    return;
  }
  const bool isMuch = acknowledged >= kMostAcknowledged;
  const bool isLate = !fPending.empty() || isMuch;
  const Time due = fLastCommit + (isLate ? kJoinedFor : kAcknowledgedFor);
  if (now < due) {
    xWakeAt(due);
    return;
  }
  xCommit(now);
}

void Bridge::xCommit(Time now) {
  fLastCommit = now;
  std::vector<Entry> entries;
  for (const auto& [boot, ranges] : fGaps) {
    for (const auto& [from, to] : ranges.ranges()) {
      entries.push_back(gapEntry({boot, from, to}, wallMicros()));
    }
  }
  entries.insert(entries.end(), std::make_move_iterator(fPending.begin()),
                 std::make_move_iterator(fPending.end()));
  fPending.clear();
  bool isDone = false;
  try {
    isDone = xTryCommit(entries);
  } catch (const SqliteError& error) {
    xOnOutboxTrouble(now, error);
    xRemoveAcknowledged();
  }
  if (!isDone) {
    xPassOnWithoutOutbox(std::move(entries));
  }
  xCollectGivenUp();
}

/// False where the outbox cannot be used at present.
bool Bridge::xTryCommit(const std::vector<Entry>& entries) {
  if (fOutbox == nullptr || steady_clock::now() < fOutboxRetry) {
    return false;
  }
  const Outbox::Committed committed =
      fOutbox->commit(fCourier.acknowledged(), entries, fCourier.onItsWay());
  fCourier.acknowledged().clear();
  for (const std::uint64_t seq : fCourier.takeSettled()) {
    fUnsettled.remove(seq, seq);
  }
  if (!std::exchange(fOutboxTrouble, {}).empty()) {
    zu::log::info(kCategory, "store") << "the outbox can be used again";
  }
  fGaps.clear();
  const bool hasGap = std::ranges::any_of(entries, &Entry::isGap);
  for (const Entry& entry : entries) {
    if (!entry.isGap()) {
      fUnsettled.add(entry.from, entry.to);
    }
  }
  for (const messages::FleetGap& gap : committed.givenUp) {
    ++fGapCount;
    if (gap.bootId == fBootId) {
      fUnsettled.remove(gap.from, gap.to);
    }
  }
  if (!committed.givenUp.empty() &&
      (!fLastLossTold || fLastCommit >= *fLastLossTold + kLossPause)) {
    fLastLossTold = fLastCommit;
    zu::log::error(kCategory, "store") << "the outbox has reached its " << fSettings.outbox.bytes
                                       << " bytes: the oldest events are given up";
  }
  if (committed.isRearranged || hasGap) {
    // Gaps may have been merged, and places have changed: everything is read from there.
    fCourier.rescan(fOutbox->nextId());
    return true;
  }
  std::int64_t id = committed.firstId;
  for (const Entry& entry : entries) {
    fCourier.add({id++, entry});
  }
  return true;
}

/// Where nothing more can be stored, what goes out makes room.
void Bridge::xRemoveAcknowledged() {
  if (fOutbox == nullptr || fCourier.acknowledged().empty()) {
    return;
  }
  try {
    fOutbox->commit(fCourier.acknowledged(), {}, fCourier.onItsWay());
    fCourier.acknowledged().clear();
  } catch (const SqliteError&) { // NOLINT(bugprone-empty-catch): that has been told
  }
}

void Bridge::xPassOnWithoutOutbox(std::vector<Entry> entries) {
  const bool isConnected = fClient != nullptr && fClient->isConnected();
  for (Entry& entry : entries) {
    if (isConnected) {
      if (entry.isGap()) {
        fGaps.erase(entry.bootId);
      }
      fCourier.add({0, std::move(entry)});
    } else if (!entry.isGap()) {
      xAddGap({entry.bootId, entry.from, entry.to});
    }
  }
}

void Bridge::xCollectGivenUp() {
  for (const messages::FleetGap& gap : fCourier.takeGivenUp()) {
    xAddGap(gap);
  }
}

void Bridge::xOnOutboxTrouble(Time now, const SqliteError& error) {
  fOutboxRetry = now + kOutboxPause;
  if (fOutboxTrouble.empty()) {
    fOutboxTrouble = error.what();
    zu::log::error(kCategory, "store")
        << error.what() << ": until that is mended, events that cannot be sent at once are lost";
  }
  if (error.isDamage() && fOutbox != nullptr) {
    fOutbox.reset();
    fCourier.forgetOutbox();
    for (const auto& [from, to] : fUnsettled.ranges()) {
      xAddGap({fBootId, from, to});
    }
    fUnsettled.clear();
  }
}

/// An outbox that could not be opened, or was damaged, is opened anew.
void Bridge::xReopen(Time now) {
  if (fOutbox != nullptr || now < fOutboxRetry) {
    return;
  }
  try {
    xUse(Outbox::open(fSettings.outbox));
  } catch (const SqliteError& error) {
    xOnOutboxTrouble(now, error);
  } catch (const OutboxError&) {
    fOutboxRetry = now + kOutboxPause;
  }
}

void Bridge::xUse(Outbox::Opened opened) {
  fOutbox = std::move(opened.outbox);
  if (!opened.aside.empty()) {
    zu::log::error(kCategory, "store")
        << "the outbox was damaged: it was put aside as " << opened.aside
        << ", and what could not be read of it is lost";
  }
  for (const messages::FleetGap& gap : opened.lost) {
    if (gap.bootId != fBootId) {
      xAddGap(gap);
    }
  }
  fCourier.rescan(fOutbox->nextId());
}

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
  fConnectedSince = wallMicros();
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
  state.time = wallMicros();
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
            std::max(0.0, static_cast<double>(wallMicros() - *oldest) / kMicrosPerSecond);
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
