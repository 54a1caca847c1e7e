#include "gateway/figures/Counters.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace gk::gateway {

namespace {

/// The smallest limit that a share of all values stays within.
double quantile(const HistogramFigures& figures, double share) {
  if (figures.count == 0) {
    return 0;
  }
  for (const auto& [limit, upTo] : figures.buckets) {
    if (static_cast<double>(upTo) >= share * static_cast<double>(figures.count)) {
      return limit;
    }
  }
  return std::numeric_limits<double>::infinity();
}

} // namespace

void Histogram::add(double seconds) {
  const auto limit = std::ranges::lower_bound(kLimits, seconds);
  ++fCounts[static_cast<std::size_t>(limit - kLimits.begin())];
  fSum += seconds;
}

HistogramFigures Histogram::figures() const {
  HistogramFigures figures;
  for (std::size_t i = 0; i < kLimits.size(); ++i) {
    figures.count += fCounts[i];
    figures.buckets.emplace_back(kLimits[i], figures.count);
  }
  figures.count += fCounts.back();
  figures.sum = fSum;
  figures.p50 = quantile(figures, 0.5);
  figures.p99 = quantile(figures, 0.99);
  figures.p999 = quantile(figures, 0.999);
  return figures;
}

std::shared_ptr<Counters::Client> Counters::addClient() {
  auto client = std::make_shared<Client>();
  const std::lock_guard lock(fMutex);
  std::erase_if(fClients, [](const std::weak_ptr<Client>& one) { return one.expired(); });
  fClients.push_back(client);
  return client;
}

void Counters::nameClient(Client& client, std::string name) {
  const std::lock_guard lock(fMutex);
  client.name = std::move(name);
}

std::vector<Counters::ClientReport> Counters::clients() const {
  const std::lock_guard lock(fMutex);
  std::vector<ClientReport> reports;
  for (const std::weak_ptr<Client>& one : fClients) {
    if (const std::shared_ptr<Client> client = one.lock()) {
      reports.push_back({client->name, client->lostSamples.load(), client->lostEvents.load()});
    }
  }
  return reports;
}

void Counters::addResponse(unsigned status) {
  const std::lock_guard lock(fMutex);
  ++fResponses[status];
}

void Counters::addCall(const std::string& method, double seconds, bool isError) {
  const std::lock_guard lock(fMutex);
  CallHistogram& call = fCalls[method];
  call.duration.add(seconds);
  call.errors += isError ? 1 : 0;
}

void Counters::addLogLine(int level) {
  const std::lock_guard lock(fMutex);
  ++fLogLines[static_cast<std::size_t>(std::clamp(level, 0, 6))];
}

void Counters::setLoops(std::vector<NoticeQueue::Loop> loops) {
  const std::lock_guard lock(fMutex);
  fLoops = std::move(loops);
}

std::map<unsigned, std::uint64_t> Counters::responses() const {
  const std::lock_guard lock(fMutex);
  return fResponses;
}

std::map<std::string, Counters::Calls> Counters::calls() const {
  const std::lock_guard lock(fMutex);
  std::map<std::string, Calls> calls;
  for (const auto& [method, call] : fCalls) {
    calls[method] = {call.duration.figures(), call.errors};
  }
  return calls;
}

std::array<std::uint64_t, 7> Counters::logLines() const {
  const std::lock_guard lock(fMutex);
  return fLogLines;
}

std::vector<NoticeQueue::Loop> Counters::loops() const {
  const std::lock_guard lock(fMutex);
  return fLoops;
}

} // namespace gk::gateway
