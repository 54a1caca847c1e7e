#pragma once

#include "extensions/fleet/CallDesk.h"
#include "extensions/fleet/Courier.h"
#include "extensions/fleet/EventQueue.h"
#include "extensions/fleet/FleetSettings.h"
#include "extensions/fleet/HostLookup.h"
#include "extensions/fleet/Outbox.h"
#include "extensions/fleet/SeqRanges.h"
#include "extensions/fleet/StateReport.h"
#include "gk/GKMemoryStore.h"
#include "messages/fleet/FleetTopics.h"
#include "messages/mqtt/MqttClient.h"

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace gk::fleet {

/// What a bridge asks of the robot around it; all of it on the bridge's thread.
struct BridgeSources {
  std::shared_ptr<const GK::GKMemoryStore> store;
  /// What the robot is and can do.
  std::function<messages::FleetFactsheet()> factsheet;
  /// Modules that there are: with another number the factsheet is another one.
  std::function<std::size_t()> moduleCount;
};

/// Carries what a robot has to tell to the broker, and requests to the robot, on a thread of its
/// own. What is raised goes from a bounded queue into the outbox, and from there to the broker.
///
/// Made, started and stopped on one thread.
class Bridge {
public:
  struct Status {
    bool isConnected = false;
    std::uint64_t backlog = 0;
    std::optional<double> oldest; ///< seconds
    std::uint64_t gaps = 0;
    std::uint64_t refused = 0;
    /// Why there is no connection; why the outbox cannot be used.
    std::string connectionTrouble;
    std::string outboxTrouble;
  };

  /// Opens the outbox. Raises `OutboxError` when another process has it, and `MqttError` when the
  /// files for TLS are of no use.
  Bridge(FleetSettings settings, BridgeSources sources);
  ~Bridge();
  Bridge(const Bridge&) = delete;
  Bridge& operator=(const Bridge&) = delete;

  /// Observes what is raised from now on, and starts to connect.
  void start();
  /// Stores what is left, says farewell to the broker, and ends within half a second.
  void stop();

  const std::string& bootId() const noexcept { return fBootId; }
  /// Any thread.
  Status status() const;

private:
  using Time = std::chrono::steady_clock::time_point;
  struct Inbox;

  static constexpr const char* kCategory = "fleet";
  static constexpr std::chrono::milliseconds kFirstPause{250};
  /// What the end of the bridge may take of the host's.
  static constexpr std::chrono::milliseconds kFarewell{300};

  /// Microseconds since 1970, on the host's clock.
  static std::int64_t xWallMicros();

  messages::MqttOptions xMqttOptions() const;
  std::string xConnectionPayload(messages::FleetPresence presence) const;
  void xRun();
  void xTurn();
  void xFarewell();

  // Events into the outbox.
  void xTakeEvents();
  void xAddGap(const messages::FleetGap& gap);
  void xCommitIfDue(Time now);
  void xCommit(Time now);
  bool xTryCommit(const std::vector<Entry>& entries);
  void xRemoveAcknowledged();
  void xPassOnWithoutOutbox(std::vector<Entry> entries);
  void xOnOutboxTrouble(Time now, const SqliteError& error);
  void xReopen(Time now);
  void xUse(Outbox::Opened opened);
  void xCollectGivenUp();

  // The connection.
  void xConnectIfDue(Time now);
  void xRetryLater(Time now, const std::string& why);
  void xOnConnected(Time now);
  void xOnClosed(Time now);
  void xLookForAnother(Time now, const std::string& payload);
  void xPump(Time now);
  std::optional<int> xSendEntry(const Entry& entry, bool isHistorical);
  void xPublish(const messages::MqttMessage& message);
  void xOnPublished(int number, int reason);
  void xTellRefused(const std::string& topic, const std::string& why);

  // What is told besides.
  void xTellState(Time now);
  void xTellFactsheet(Time now);
  void xRunCall(std::uint64_t number, const std::string& module, const std::string& method,
                const std::string& params);
  void xRunEarlyCalls();
  void xTakeAnswers(Time now);
  messages::FleetState::Outbox xOutboxFigures();
  void xUpdateStatus();
  /// Makes sure that the thread turns again at this time.
  void xWakeAt(Time time) { fNextTurn = std::min(fNextTurn, time); }

  const FleetSettings fSettings;
  const BridgeSources fSources;
  const messages::FleetTopics fTopics;
  const std::string fBootId;
  boost::shared_ptr<EventQueue> fQueue;
  std::shared_ptr<Inbox> fInbox;

  std::unique_ptr<Outbox> fOutbox;
  std::string fOutboxTrouble;
  Time fOutboxRetry{};
  Time fLastCommit{};
  std::optional<Time> fLastLossTold;
  /// Raised and not committed yet; the next number.
  std::vector<Entry> fPending;
  std::uint64_t fNextSeq = 1;
  /// What nobody has been told yet that it is lost, by boots; what of this boot is in the outbox.
  std::map<std::string, SeqRanges> fGaps;
  SeqRanges fUnsettled;
  std::uint64_t fGapCount = 0;

  std::unique_ptr<messages::MqttClient> fClient;
  HostLookup fLookup;
  Time fNextConnect{};
  std::chrono::milliseconds fPause;
  std::string fConnectionTrouble;
  std::int64_t fConnectedSince = 0;
  /// The broker has taken this robot's word that it is there.
  bool fHasToldPresence = false;
  int fRpcSubscription = 0;
  // What the client's handlers leave for the turn.
  bool fIsNewConnection = false;
  bool fIsClosed = false;
  int fCloseReason = 0;
  std::string fCloseText;
  std::vector<messages::MqttMessage> fRequests;
  /// Topics of what was published besides entries, until it is acknowledged.
  std::map<int, std::string> fOthers;
  std::set<std::string> fToldTopics;
  std::set<std::string> fToldRequests;

  Courier fCourier;
  CallDesk fDesk;
  struct EarlyCall {
    std::uint64_t number = 0;
    std::string module;
    std::string method;
    std::string params;
  };
  Time fStarted{};
  std::vector<EarlyCall> fEarlyCalls;
  StateReport fState;
  std::string fFactsheet;
  bool fIsFactsheetDue = true;
  std::size_t fModules = 0;
  Time fNextFactsheet{};
  Time fNextTurn{};

  mutable std::mutex fStatusMutex;
  Status fStatus;
  std::atomic<bool> fIsStopping{false};
  std::thread fThread;
};

} // namespace gk::fleet
