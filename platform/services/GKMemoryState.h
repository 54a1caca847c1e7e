#pragma once

#include "gk/GKMemoryStore.h"
#include "gk/GKPriorityMutex.h"
#include "gk/GKTime.h"
#include "platform/services/GKDelivery.h"
#include "platform/services/GKNameTable.h"
#include "platform/time/GKQuickMutex.h"

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace GK {

/// The events of the memory service, and who wants them.
struct GKMemoryState {
  struct Subscription {
    std::string module;
    std::shared_ptr<GKDelivery> delivery;
    GKDelivery::Callback* callback = nullptr;
  };

  /// One event. Never removed, so that a raise needs one look-up without a lock.
  struct Event {
    explicit Event(GKMemoryCell& place) : cell(place) {}

    GKMemoryCell& cell;
    /// Guards what follows, and keeps value, deliveries and observers in one order.
    GKQuickMutex mutex;
    std::string owner;
    std::uint64_t count = 0;
    GKMicros time = 0;
    std::vector<Subscription> subscriptions;
  };

  /// What a module wants of the events that another one has declared.
  struct Use {
    std::set<std::string> events;
    /// The module has been subscribed to the other one, which is an extractor.
    bool isSubscribed = false;
  };

  /// The event of this name, made when there is none.
  Event& event(GKMemoryStore& store, std::string_view name) {
    Event* known = events.find(name);
    if (known != nullptr) {
      return *known;
    }
    return events.get(name, store.cell(name));
  }

  /// Any thread.
  bool isEvent(const std::string& name) const { return events.find(name) != nullptr; }

  GKNameTable<Event> events;

  /// Guards what follows. Never held while an event's mutex is being waited for by its holder.
  GKPriorityMutex mutex;
  std::map<std::string, std::vector<std::string>> declared;
  std::map<std::string, std::shared_ptr<GKDelivery>> deliveries;
  /// By owner of the events, and module that has subscribed to them.
  std::map<std::pair<std::string, std::string>, Use> uses;
};

} // namespace GK
