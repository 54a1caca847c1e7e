#include "gk/GKMemory.h"

#include "gk/GKBroker.h"
#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "gk/GKOperationHook.h"
#include "platform/services/GKDelivery.h"
#include "platform/values/GKNameHash.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

namespace GK {

namespace {

/// Only what modules do can be made to fail.
void check(GKCaller caller, GKOperation operation, const std::string& key) {
  if (caller == GKCaller::Module) {
    GKOperationHook::check(operation, key);
  }
}

struct Subscription {
  std::string module;
  std::shared_ptr<GKDelivery> delivery;
  GKDelivery::Callback* callback;
};

/// One event. Never removed, so that a raise needs one look-up without a lock.
struct Event {
  explicit Event(GKMemoryCell& place) : cell(place) {}

  GKMemoryCell& cell;
  /// Guards what follows, and keeps value, deliveries and observers in one order.
  std::mutex mutex;
  std::string owner;
  std::uint64_t count = 0;
  GKMicros time = 0;
  std::vector<Subscription> subscriptions;
};

} // namespace

struct GKMemory::State {
  State() { events.max_load_factor(kNamesPerBucket); }

  Event& event(GKMemoryStore& store, const std::string& name) {
    const auto found = events.find(std::string_view(name));
    if (found != events.end()) {
      return found->second;
    }
    return events
        .emplace(std::piecewise_construct, std::forward_as_tuple(name),
                 std::forward_as_tuple(store.cell(name)))
        .first->second;
  }

  /// Any thread.
  bool isEvent(const std::string& name) const {
    return events.find(std::string_view(name)) != events.end();
  }

  NameMap<Event> events;

  /// Guards what follows. Never held while an event's mutex is being waited for by its holder.
  std::mutex mutex;
  std::map<std::string, std::vector<std::string>> declared;
  std::map<std::string, std::shared_ptr<GKDelivery>> deliveries;
  /// (extractor, module) -> the extractor's events that the module has subscribed to.
  std::map<std::pair<std::string, std::string>, std::set<std::string>> uses;
};

GKMemory::GKMemory(boost::shared_ptr<GKBroker> broker, std::shared_ptr<GKMemoryStore> store)
    : GKModule(std::move(broker), kName), fStore(std::move(store)),
      fState(std::make_unique<State>()) {
  setModuleDescription("Named values and named events of the robot.");

  functionName("getData", kName, "Gets the value of a memory key.");
  addParam("key", "Name of the memory key.");
  setReturn("value", "The key's value.");
  bindMethod(&GKMemory::xGetData, this);

  functionName("insertData", kName, "Creates or replaces the value of a memory key.");
  addParam("key", "Name of the memory key.");
  addParam("value", "The new value.");
  bindMethod(&GKMemory::xInsertData, this);

  functionName("declareEvent", kName, "Lists an event under the module that raises it.");
  addParam("event", "Name of the event.");
  addParam("owner", "Name of the module that raises it.");
  bindMethod(&GKMemory::xDeclareEvent, this);

  functionName("raiseEvent", kName, "Raises an event.");
  addParam("event", "Name of the event.");
  addParam("value", "Value of the event.");
  bindMethod(&GKMemory::xRaiseEvent, this);

  functionName("raiseMicroEvent", kName, "Raises an event in its lightweight form.");
  addParam("event", "Name of the event.");
  addParam("value", "Value of the event.");
  bindMethod(&GKMemory::xRaiseMicroEvent, this);

  functionName("getExtractorEvent", kName, "Gets the names of the events that a module declared.");
  addParam("owner", "Name of the module.");
  setReturn("events", "Names in the order of declaration.");
  bindMethod(&GKMemory::getExtractorEvent, static_cast<const GKMemory*>(this));

  functionName("subscribeToEvent", kName,
               "Has a method called with name and value each time an event is raised.");
  addParam("event", "Name of the event.");
  addParam("module", "Name of the module to call.");
  addParam("method", "Name of its method.");
  bindMethod(&GKMemory::subscribeToEvent, this);

  functionName("unsubscribeToEvent", kName, "Ends a subscription to an event.");
  addParam("event", "Name of the event.");
  addParam("module", "Name of the module that had subscribed.");
  bindMethod(&GKMemory::unsubscribeToEvent, this);

  functionName("getDataList", kName, "Gets the names of the memory keys that contain a text.");
  addParam("pattern", "The text; empty for all keys.");
  setReturn("keys", "Names in alphabetical order.");
  bindMethod(&GKMemory::getDataList, static_cast<const GKMemory*>(this));

  functionName("getEventList", kName, "Gets the names of all events.");
  setReturn("events", "Names in alphabetical order.");
  bindMethod(&GKMemory::xGetEventList, static_cast<const GKMemory*>(this));
}

GKMemory::~GKMemory() = default;

GKValue GKMemory::getData(const std::string& key, GKCaller caller) const {
  check(caller, GKOperation::GetData, key);
  const GKMemoryCell* cell = fStore->find(key);
  if (cell == nullptr) {
    throw GKError(kName, "getData", "there is no key " + key);
  }
  return cell->load();
}

void* GKMemory::getDataPtr(const std::string& key, GKCaller caller) const {
  check(caller, GKOperation::GetDataPtr, key);
  GKMemoryCell* cell = fStore->find(key);
  if (cell == nullptr) {
    throw GKError(kName, "getDataPtr", "there is no key " + key);
  }
  return cell->address();
}

void GKMemory::insertData(const std::string& key, const GKValue& value, GKCaller caller) {
  check(caller, GKOperation::InsertData, key);
  GKValue room;
  const GKValue& stored = xAdmit("insertData", {GKWrite::Kind::Data, caller, key, &value}, room);
  fStore->set(key, stored);
  GKObserverList::instance().show(GKNotice::Kind::Insert, [&](GKNotice& notice) {
    notice.caller = caller;
    notice.name = key;
    notice.value = stored;
  });
}

void GKMemory::declareEvent(const std::string& event, const std::string& owner, GKCaller caller) {
  check(caller, GKOperation::DeclareEvent, event);
  GKValue none;
  xAdmit("declareEvent", {GKWrite::Kind::Declaration, caller, event, nullptr, owner}, none);
  Event& entry = fState->event(*fStore, event);
  {
    const std::scoped_lock lock(fState->mutex, entry.mutex);
    if (caller != GKCaller::Module && !entry.owner.empty() && entry.owner != owner) {
      throw GKError(kName, "declareEvent", event + " is declared by " + entry.owner);
    }
    if (entry.owner != owner) {
      std::vector<std::string>& former = fState->declared[entry.owner];
      former.erase(std::remove(former.begin(), former.end(), event), former.end());
      fState->declared[owner].push_back(event);
      entry.owner = owner;
    }
  }
  GKObserverList::instance().show(GKNotice::Kind::Declare, [&](GKNotice& notice) {
    notice.caller = caller;
    notice.name = event;
    notice.owner = owner;
  });
}

void GKMemory::raiseEvent(const std::string& event, const GKValue& value, GKCaller caller) {
  check(caller, GKOperation::RaiseEvent, event);
  GKValue room;
  xRaise(GKNotice::Kind::Event, event,
         xAdmit("raiseEvent", {GKWrite::Kind::Event, caller, event, &value}, room));
}

void GKMemory::raiseMicroEvent(const std::string& event, const GKValue& value, GKCaller caller) {
  check(caller, GKOperation::RaiseMicroEvent, event);
  GKValue room;
  xRaise(GKNotice::Kind::MicroEvent, event,
         xAdmit("raiseMicroEvent", {GKWrite::Kind::Event, caller, event, &value}, room));
}

const GKValue& GKMemory::xAdmit(const char* method, GKWrite write, GKValue& room) const {
  // What modules do pays for no look-up.
  if (fGate != nullptr && write.caller != GKCaller::Module) {
    write.isNew = write.kind == GKWrite::Kind::Data ? fStore->find(write.name) == nullptr
                                                    : !fState->isEvent(write.name);
  }
  return GKWriteGate::ask(fGate, kName, method, write, room);
}

void GKMemory::xRaise(GKNotice::Kind kind, const std::string& event, const GKValue& value) {
  Event& entry = fState->event(*fStore, event);
  const std::lock_guard lock(entry.mutex);
  entry.cell.store(value);
  ++entry.count;
  const std::optional<GKMicros> seen = GKObserverList::instance().show(kind, [&](GKNotice& notice) {
    notice.name = event;
    notice.value = value;
  });
  // Reading the precise clock would be half of what a raise costs.
  entry.time = seen ? *seen : GKClock::instance().elapsedRoughly();
  for (const Subscription& subscription : entry.subscriptions) {
    subscription.delivery->deliver(*subscription.callback, value);
  }
}

std::vector<std::string> GKMemory::getExtractorEvent(const std::string& owner) const {
  const std::lock_guard lock(fState->mutex);
  const auto found = fState->declared.find(owner);
  return found != fState->declared.end() ? found->second : std::vector<std::string>();
}

namespace {

/// The number of arguments of an event callback: name and value.
constexpr std::size_t kCallbackArguments = 2;

/// The module if it is an extractor, that is, if others can subscribe to it by name; else empty.
boost::shared_ptr<GKModuleCore> findExtractor(const GKModuleCore& service,
                                              const std::string& name) {
  const boost::shared_ptr<GKBroker> broker = service.getParentBroker();
  boost::shared_ptr<GKModuleCore> module =
      broker != nullptr && !name.empty() ? broker->findModule(name) : nullptr;
  return module != nullptr && module->findMethod("subscribe", 1) != nullptr ? module : nullptr;
}

void callExtractor(GKModuleCore& extractor, const char* method, const std::string& subscriber) {
  const GKCallerScope scope(GKCaller::Platform);
  extractor.callMethod(method, {subscriber});
}

} // namespace

void GKMemory::subscribeToEvent(const std::string& event, const std::string& module,
                                const std::string& method) {
  const boost::shared_ptr<GKBroker> broker = getParentBroker();
  const boost::shared_ptr<GKModuleCore> target =
      broker != nullptr ? broker->findModule(module) : nullptr;
  if (target == nullptr) {
    throw GKError(kName, "subscribeToEvent", "there is no module " + module);
  }
  if (target->findMethod(method, kCallbackArguments) == nullptr) {
    throw GKError(kName, "subscribeToEvent",
                  module + " has no method " + method + " that takes an event's name and value");
  }
  GKValue none;
  xAdmit("subscribeToEvent",
         {GKWrite::Kind::Subscription, GKCallerScope::current(), event, nullptr, module}, none);
  Event& entry = fState->event(*fStore, event);
  bool isFirst = false;
  std::string owner;
  {
    const std::scoped_lock lock(fState->mutex, entry.mutex);
    std::shared_ptr<GKDelivery>& delivery = fState->deliveries[module];
    if (delivery == nullptr) {
      delivery = std::make_shared<GKDelivery>(target);
    }
    GKDelivery::Callback& callback = delivery->callback(event, method);
    for (Subscription& known : entry.subscriptions) {
      if (known.module == module) {
        known.callback = &callback;
        return;
      }
    }
    entry.subscriptions.push_back({module, delivery, &callback});
    owner = entry.owner;
    std::set<std::string>& used = fState->uses[{owner, module}];
    isFirst = used.empty();
    used.insert(event);
  }
  const boost::shared_ptr<GKModuleCore> extractor = findExtractor(*this, owner);
  if (isFirst && extractor != nullptr) {
    // Outside of the locks: an extractor may take its time to start.
    try {
      callExtractor(*extractor, "subscribe", module);
    } catch (...) {
      xForget(event, module);
      throw;
    }
  }
}

void GKMemory::unsubscribeToEvent(const std::string& event, const std::string& module) {
  const std::string abandoned = xForget(event, module);
  const boost::shared_ptr<GKModuleCore> extractor = findExtractor(*this, abandoned);
  if (extractor != nullptr) {
    callExtractor(*extractor, "unsubscribe", module);
  }
}

std::string GKMemory::xForget(const std::string& event, const std::string& module) {
  Event& entry = fState->event(*fStore, event);
  const std::scoped_lock lock(fState->mutex, entry.mutex);
  const auto found =
      std::find_if(entry.subscriptions.begin(), entry.subscriptions.end(),
                   [&module](const Subscription& known) { return known.module == module; });
  if (found == entry.subscriptions.end()) {
    throw GKError(kName, "unsubscribeToEvent", module + " has not subscribed to " + event);
  }
  entry.subscriptions.erase(found);
  for (auto use = fState->uses.begin(); use != fState->uses.end(); ++use) {
    if (use->first.second == module && use->second.erase(event) != 0 && use->second.empty()) {
      std::string owner = use->first.first;
      fState->uses.erase(use);
      return owner;
    }
  }
  return {};
}

std::vector<std::string> GKMemory::getDataList(const std::string& pattern) const {
  std::vector<std::string> names = fStore->keys();
  names.erase(std::remove_if(names.begin(), names.end(),
                             [&pattern](const std::string& name) {
                               return name.find(pattern) == std::string::npos;
                             }),
              names.end());
  return names;
}

std::vector<GKEventInfo> GKMemory::getEvents() const {
  std::vector<GKEventInfo> events;
  for (auto& [name, entry] : fState->events) {
    const std::lock_guard lock(entry.mutex);
    if (!entry.owner.empty() || entry.count > 0) {
      const GKValue value = entry.count > 0 ? entry.cell.load() : GKValue();
      events.push_back({name, entry.owner, entry.count, value, entry.time});
    }
  }
  std::sort(events.begin(), events.end(), [](const GKEventInfo& left, const GKEventInfo& right) {
    return left.name < right.name;
  });
  return events;
}

GKValue GKMemory::xGetData(const std::string& key) {
  return getData(key, GKCallerScope::current());
}

void GKMemory::xInsertData(const std::string& key, const GKValue& value) {
  insertData(key, value, GKCallerScope::current());
}

void GKMemory::xDeclareEvent(const std::string& event, const std::string& owner) {
  declareEvent(event, owner, GKCallerScope::current());
}

void GKMemory::xRaiseEvent(const std::string& event, const GKValue& value) {
  raiseEvent(event, value, GKCallerScope::current());
}

void GKMemory::xRaiseMicroEvent(const std::string& event, const GKValue& value) {
  raiseMicroEvent(event, value, GKCallerScope::current());
}

std::vector<std::string> GKMemory::xGetEventList() const {
  std::vector<std::string> names;
  for (const GKEventInfo& event : getEvents()) {
    names.push_back(event.name);
  }
  return names;
}

} // namespace GK
