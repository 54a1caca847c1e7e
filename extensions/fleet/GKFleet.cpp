#include "extensions/fleet/GKFleet.h"

#include "extensions/fleet/Bridge.h"
#include "gk/GKBroker.h"
#include "gk/GKClock.h"
#include "gk/GKMemory.h"

#include <algorithm>
#include <utility>

namespace GK {

namespace {

constexpr const char* kName = "GKFleet";
/// An entry that waits longer than that while there is a connection is worth a look, in seconds.
constexpr double kLongWait = 60;

enum FleetLevel : int { kFine = 0, kWarning = 1, kError = 2 };

GKValue row(const char* name, const char* unit, GKValue value, FleetLevel level,
            const std::string& text) {
  GKValue row;
  row.arrayPush(GKValue(name));
  row.arrayPush(GKValue(unit));
  row.arrayPush(std::move(value));
  row.arrayPush(GKValue(static_cast<int>(level)));
  row.arrayPush(GKValue(text));
  return row;
}

GKValue countValue(std::uint64_t count) {
  constexpr std::uint64_t kMost = INT32_MAX;
  return {static_cast<int>(std::min(count, kMost))};
}

gk::messages::FleetFactsheet factsheetOf(const GKBroker& broker, const GKMemory& memory) {
  gk::messages::FleetFactsheet sheet;
  for (const auto& module : broker.getModules()) {
    gk::messages::FleetFactsheet::Module described{
        module->getName(), module->getModuleDescription(), {}, {}};
    for (const GKMethodDescription& method : module->getMethods()) {
      std::vector<std::string> params;
      for (const GKParamDescription& param : method.params) {
        params.push_back(param.name);
      }
      described.methods.push_back(
          {method.name, method.description, std::move(params), !method.result.type.empty()});
    }
    described.events = memory.getExtractorEvent(module->getName());
    sheet.modules.push_back(std::move(described));
  }
  return sheet;
}

} // namespace

GKFleet::GKFleet(const boost::shared_ptr<GKBroker>& broker) : GKModule(broker, kName) {
  setModuleDescription("Connects this robot with a fleet's broker: tells what it raises and how it "
                       "is, and carries out calls that come from there.");
  functionName("status", kName,
               "How it goes: an array of [name, unit, value, level, text] with level 0 for fine, 1 "
               "for a warning, 2 for an error");
  setReturn("rows", "connected, backlog, oldest_unsent, gaps, refused");
  bindMethod(&GKFleet::status, this);
}

GKFleet::~GKFleet() = default;

void GKFleet::init() {
  if (GKClock::instance().isVirtual()) {
    return;
  }
  const auto broker = getParentBroker();
  const auto memory = boost::dynamic_pointer_cast<GKMemory>(broker->findModule("GKMemory"));
  if (memory == nullptr) {
    throw GKError(kName, "init", "there is no GKMemory to read the settings from");
  }
  try {
    gk::fleet::BridgeSources sources;
    sources.store = memory->store();
    sources.factsheet = [broker = boost::weak_ptr<GKBroker>(broker),
                         memory = boost::weak_ptr<GKMemory>(memory), version = version()] {
      gk::messages::FleetFactsheet sheet;
      const auto host = broker.lock();
      const auto store = memory.lock();
      if (host != nullptr && store != nullptr) {
        sheet = factsheetOf(*host, *store);
      }
      sheet.version = version;
      return sheet;
    };
    sources.moduleCount = [broker = boost::weak_ptr<GKBroker>(broker)] {
      const auto host = broker.lock();
      return host != nullptr ? host->getModules().size() : 0;
    };
    fBridge = std::make_unique<gk::fleet::Bridge>(gk::fleet::readSettings(*memory->store()),
                                                  std::move(sources));
    fBridge->start();
  } catch (const std::runtime_error& error) {
    fBridge.reset();
    throw GKError(kName, "init", error.what());
  }
}

void GKFleet::exit() {
  if (fBridge != nullptr) {
    fBridge->stop();
  }
}

GKValue GKFleet::status() const {
  using gk::fleet::Bridge;
  const Bridge::Status status = fBridge != nullptr ? fBridge->status() : Bridge::Status();
  const double oldest = status.oldest.value_or(0);
  GKValue rows;
  rows.arrayPush(row("connected", "", GKValue(status.isConnected ? 1 : 0),
                     status.isConnected ? kFine : kWarning,
                     status.isConnected ? "Connected to the fleet's broker"
                     : status.connectionTrouble.empty()
                         ? "Not connected to the fleet's broker yet"
                         : "No connection to the fleet's broker: " + status.connectionTrouble));
  rows.arrayPush(
      row("backlog", "", countValue(status.backlog), status.outboxTrouble.empty() ? kFine : kError,
          status.outboxTrouble.empty() ? "Events that the broker has not taken yet"
                                       : "The outbox cannot be used: " + status.outboxTrouble));
  rows.arrayPush(row("oldest_unsent", "s", GKValue(static_cast<float>(oldest)),
                     status.isConnected && oldest > kLongWait ? kWarning : kFine,
                     "How long the oldest of them has waited"));
  rows.arrayPush(
      row("gaps", "", countValue(status.gaps), status.gaps > 0 ? kWarning : kFine,
          status.gaps > 0 ? "Events were given up: gaps tell which" : "No event was given up"));
  rows.arrayPush(row("refused", "", countValue(status.refused), status.refused > 0 ? kError : kFine,
                     status.refused > 0 ? "The broker refuses events: look at its access rules"
                                        : "The broker refuses nothing"));
  return rows;
}

} // namespace GK
