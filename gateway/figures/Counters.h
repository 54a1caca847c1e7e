#pragma once

#include "gateway/figures/LoopFigures.h"
#include "gateway/figures/NoticeQueue.h"
#include "gk/GKTime.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace gk::gateway {

/// A histogram that is filled as time goes on. For one thread at a time.
class Histogram {
public:
  /// Upper limits in seconds: from quick look-ups to calls that take their time.
  static constexpr std::array<double, 10> kLimits = {0.0001, 0.0005, 0.001, 0.005, 0.01,
                                                     0.05,   0.1,    0.5,   1.0,   5.0};

  void add(double seconds);
  HistogramFigures figures() const;

private:
  std::array<std::uint64_t, kLimits.size() + 1> fCounts{};
  double fSum = 0;
};

/// What the gateway counts. Any thread.
class Counters {
public:
  std::atomic<std::uint64_t> connections{0};
  std::atomic<std::uint64_t> webSocketClients{0};
  std::atomic<std::uint64_t> webSocketMessages{0};
  std::atomic<std::uint64_t> droppedSamples{0};
  std::atomic<std::uint64_t> droppedEvents{0};
  /// Clients that were given up because they did not read.
  std::atomic<std::uint64_t> abandonedClients{0};
  /// Requests and upgrades that were turned away for their host, origin or token.
  std::atomic<std::uint64_t> refusals{0};

  /// A client of the WebSocket protocol: counted as long as somebody holds it.
  struct Client {
    std::atomic<std::uint64_t> lostSamples{0};
    std::atomic<std::uint64_t> lostEvents{0};
    /// Guarded by the counters.
    std::string name;
  };
  std::shared_ptr<Client> addClient();
  /// Who it is, for people.
  void nameClient(Client& client, std::string name);

  struct ClientReport {
    std::string name;
    std::uint64_t lostSamples = 0;
    std::uint64_t lostEvents = 0;
  };
  /// In the order in which they came.
  std::vector<ClientReport> clients() const;

  void addResponse(unsigned status);
  void addCall(const std::string& method, double seconds, bool isError);
  void addLogLine(int level);
  void setLoops(std::vector<NoticeQueue::Loop> loops);
  /// A device key has changed at this time.
  void setDeviceChange(GK::GKMicros time) { fDeviceChange.store(time, std::memory_order_relaxed); }

  struct Calls {
    HistogramFigures duration;
    std::uint64_t errors = 0;
  };
  std::map<unsigned, std::uint64_t> responses() const;
  std::map<std::string, Calls> calls() const;
  std::array<std::uint64_t, 7> logLines() const;
  std::vector<NoticeQueue::Loop> loops() const;
  /// When a device key changed last, in microseconds since the start; -1 if none ever has.
  GK::GKMicros deviceChange() const { return fDeviceChange.load(std::memory_order_relaxed); }

private:
  struct CallHistogram {
    Histogram duration;
    std::uint64_t errors = 0;
  };

  mutable std::mutex fMutex;
  std::map<unsigned, std::uint64_t> fResponses;
  std::map<std::string, CallHistogram> fCalls;
  /// By level.
  std::array<std::uint64_t, 7> fLogLines{};
  std::vector<NoticeQueue::Loop> fLoops;
  std::vector<std::weak_ptr<Client>> fClients;
  std::atomic<GK::GKMicros> fDeviceChange{-1};
};

} // namespace gk::gateway
