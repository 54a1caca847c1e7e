#include "gk/GKExtractor.h"

#include "gk/GKBroker.h"
#include "gk/GKMemory.h"
#include "gk/GKMutex.h"
#include "gk/GKProxy.h"
#include "sdk/extractor/GKExtractorParameters.h"
#include "zu/log.h"

#include <algorithm>
#include <locale>
#include <map>
#include <mutex>
#include <sstream>
#include <utility>

namespace GK {

namespace {

constexpr const char* kLogCategory = "core.extractor";

/// What the current values are while nobody is subscribed.
constexpr int kNoPeriod = -1;
constexpr float kNoPrecision = -1.0F;

/// Smallest period that `subscribe` takes, in milliseconds.
constexpr int kMinimumPeriod = 1;

constexpr int kDefaultPeriod = 30; // ms
constexpr float kDefaultPrecision = 0.0F;

using Table = std::map<std::string, GKExtractorParameters>;

} // namespace

struct GKExtractor::Record {
  /// Guards the whole record and is held while a hook runs.
  boost::shared_ptr<GKMutex> mutex = GKMutex::createGKMutex();

  /// Guards the table alone, for those who look at it without `mutex`: the status page must not
  /// wait for a hook that takes its time. Held for single accesses, never while a hook runs.
  /// Whoever holds `mutex` needs this one only to change the table.
  std::mutex tableMutex;
  Table subscribers;

  int currentPeriod = kNoPeriod;
  float currentPrecision = kNoPrecision;

  /// The entry of `name`, made when there is none. Needs both locks.
  GKExtractorParameters& entry(const std::string& name) { return subscribers[name]; }

  void set(const std::string& name, int period, float precision) {
    const std::lock_guard<std::mutex> lock(tableMutex);
    entry(name) = {period, precision};
  }

  /// The parameters of `name`, which becomes a subscriber by being asked for.
  GKExtractorParameters findOrCreate(const std::string& name) {
    const std::lock_guard<std::mutex> lock(tableMutex);
    return entry(name);
  }

  bool erase(const std::string& name) {
    const std::lock_guard<std::mutex> lock(tableMutex);
    return subscribers.erase(name) != 0;
  }

  Table snapshot() {
    const std::lock_guard<std::mutex> lock(tableMutex);
    return subscribers;
  }
};

GKExtractor::GKExtractor(const boost::shared_ptr<GKBroker>& broker, const std::string& name)
    : GKModule(broker, name), fRecord(std::make_unique<Record>()) {
  xBindSubscription();
  xBindQueries();
}

GKExtractor::~GKExtractor() = default;

void GKExtractor::subscribe(const std::string& name, const int& period, const float& precision) {
  int usedPeriod = period;
  if (usedPeriod < kMinimumPeriod) {
    usedPeriod = kMinimumPeriod;
    zu::log::warning(kLogCategory, "subscribe")
        << getName() << " requested period is too small; subscribe with period = " << usedPeriod
        << " ms.\n";
  }

  const GKCriticalSection lock(fRecord->mutex);
  if (fRecord->subscribers.empty()) {
    // The hook comes first: when it fails, nobody is subscribed.
    xStartDetection(usedPeriod, precision);
    fRecord->currentPrecision = precision;
    fRecord->currentPeriod = usedPeriod;
    fRecord->set(name, usedPeriod, precision);
    return;
  }

  if (fRecord->subscribers.contains(name)) {
    zu::log::warning(kLogCategory, "subscribe")
        << getName() << " the module is already subscribed: will just update the parameters.\n";
  }
  fRecord->set(name, usedPeriod, precision);
  xUpdateParameters();
  zu::log::info(kLogCategory, "subscribe")
      << getName() << " received subscribe from " << name << "\n";
}

void GKExtractor::subscribe(const std::string& name) {
  const float precision = getDefaultPrecision();
  const int period = getDefaultPeriod();
  subscribe(name, period, precision);
}

void GKExtractor::updatePeriod(const std::string& name, const int& period) {
  const GKCriticalSection lock(fRecord->mutex);
  const auto found = fRecord->subscribers.find(name);
  if (found == fRecord->subscribers.end()) {
    throw GKError(kClassName, "updateParam: unknown module name: ", name);
  }
  fRecord->set(name, period, found->second.precision);
  xUpdateParameters();
}

void GKExtractor::updatePrecision(const std::string& name, const float& precision) {
  const GKCriticalSection lock(fRecord->mutex);
  const auto found = fRecord->subscribers.find(name);
  if (found == fRecord->subscribers.end()) {
    throw GKError(kClassName, "updateParam: unknown module name: ", name);
  }
  fRecord->set(name, found->second.period, precision);
  xUpdateParameters();
}

void GKExtractor::unsubscribe(const std::string& name) {
  const GKCriticalSection lock(fRecord->mutex);
  if (!fRecord->erase(name)) {
    zu::log::warning(kLogCategory, "unsubscribe")
        << getName() << " received unsubscribe from non-subscribed module " << name << "\n";
    throw GKError(kClassName, "received unsubscribe from non-subscribed module: ", name);
  }

  if (fRecord->subscribers.empty()) {
    xStopDetection();
    fRecord->currentPrecision = kNoPrecision;
    fRecord->currentPeriod = kNoPeriod;
  } else {
    xUpdateParameters();
  }
  zu::log::info(kLogCategory, "unsubscribe")
      << getName() << " received unsubscribe from " << name << "\n";
}

void GKExtractor::xUpdateParameters() {
  const Table& subscribers = fRecord->subscribers;
  if (subscribers.empty()) {
    throw GKError(getName(), "xUpdateParameters", "no module subscribed");
  }
  GKExtractorParameters current = subscribers.begin()->second;
  for (const auto& [name, parameters] : subscribers) {
    current.period = std::min(current.period, parameters.period);
    if (parameters.precision > current.precision) {
      current.precision = parameters.precision;
    }
  }
  fRecord->currentPeriod = current.period;
  fRecord->currentPrecision = current.precision;
  xUpdateParameters(current.period, current.precision);
}

void GKExtractor::xUpdateParameters(int, float) {}

int GKExtractor::getCurrentPeriod() {
  const GKCriticalSection lock(fRecord->mutex);
  return fRecord->currentPeriod;
}

float GKExtractor::getCurrentPrecision() {
  const GKCriticalSection lock(fRecord->mutex);
  return fRecord->currentPrecision;
}

int GKExtractor::getMyPeriod(const std::string& name) {
  const GKCriticalSection lock(fRecord->mutex);
  return fRecord->findOrCreate(name).period;
}

float GKExtractor::getMyPrecision(const std::string& name) {
  const GKCriticalSection lock(fRecord->mutex);
  return fRecord->findOrCreate(name).precision;
}

int GKExtractor::getDefaultPeriod() {
  return kDefaultPeriod;
}

float GKExtractor::getDefaultPrecision() {
  return kDefaultPrecision;
}

GKValue GKExtractor::getSubscribersInfo() {
  GKValue::Array info;
  for (const auto& [name, parameters] : fRecord->snapshot()) {
    info.emplace_back(GKValue::Array{name, parameters.period, parameters.precision});
  }
  return GKValue(std::move(info));
}

std::vector<std::string> GKExtractor::getOutputNames() {
  return getParentBroker()
      ->getProxy(GKMemory::kName, 0)
      ->call<std::vector<std::string>>("getExtractorEvent", getName());
}

std::string GKExtractor::httpGet() {
  std::ostringstream page;
  page.imbue(std::locale::classic());

  // The headings are opened twice and never closed; readers of the page rely on its exact text.
  page << "<html><body><h3>Subscribed Modules<h3>";
  const Table subscribers = fRecord->snapshot();
  if (subscribers.empty()) {
    page << "None<br />";
  } else {
    page << "<table id=\"subscribersdetails\" class=\"memory\">"
            "<tr><th>Name</th><th>parameters</th></tr>\n";
    for (const auto& [name, parameters] : subscribers) {
      page << "\n<tr><th align=\"left\">" << name << "</th><td>\n"
           << parameters.period << " " << static_cast<double>(parameters.precision)
           << "</td></tr>\n";
    }
    page << "</table>";
  }

  page << "<h3>Events generated by extractor.<h3>";
  const std::vector<std::string> events = getOutputNames();
  page << "<h6>";
  for (const std::string& event : events) {
    page << event << "<br />";
  }
  page << "</h6></body></html>";
  return page.str();
}

} // namespace GK
