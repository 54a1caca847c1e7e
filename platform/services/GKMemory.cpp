#include "gk/GKMemory.h"

#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "gk/GKError.h"
#include "platform/services/GKMemoryState.h"

#include <boost/container/small_vector.hpp>

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

namespace GK {

GKMemory::GKMemory(const boost::shared_ptr<GKBroker>& broker, std::shared_ptr<GKMemoryStore> store)
    : GKModule(broker, kName), fStore(std::move(store)), fState(std::make_unique<GKMemoryState>()) {
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

void GKMemory::exit() {
  {
    const std::lock_guard lock(fState->mutex);
    for (const auto& [module, delivery] : fState->deliveries) {
      delivery->endWaiting();
    }
  }
  GKModule::exit();
}

void GKMemory::xCheck(GKCaller caller, GKOperation operation, const std::string& key) {
  if (caller == GKCaller::Module) {
    GKOperationHook::check(operation, key);
  }
}

bool GKMemory::hasKey(const std::string& key) const {
  return fStore->find(key) != nullptr;
}

GKValue GKMemory::getData(const std::string& key, GKCaller caller) const {
  xCheck(caller, GKOperation::GetData, key);
  const GKMemoryCell* cell = fStore->find(key);
  if (cell == nullptr) {
    throw GKError(kName, "getData", "there is no key " + key);
  }
  return cell->load();
}

void* GKMemory::getDataPtr(const std::string& key, GKCaller caller) const {
  xCheck(caller, GKOperation::GetDataPtr, key);
  GKMemoryCell* cell = fStore->find(key);
  if (cell == nullptr) {
    throw GKError(kName, "getDataPtr", "there is no key " + key);
  }
  return cell->address();
}

void GKMemory::insertData(const std::string& key, const GKValue& value, GKCaller caller) {
  xCheck(caller, GKOperation::InsertData, key);
  GKValue room;
  const GKValue& stored = xAdmit("insertData", {GKWrite::Kind::Data, caller, key, &value}, room);
  fStore->set(key, stored);
  GKObserverList::instance().show(GKNotice::Kind::Insert, [&](GKNotice& notice) {
    notice.caller = caller;
    notice.name = key;
    notice.value = stored;
  });
}

void GKMemory::raiseEvent(const std::string& event, const GKValue& value, GKCaller caller) {
  xCheck(caller, GKOperation::RaiseEvent, event);
  GKValue room;
  xRaise(GKNotice::Kind::Event, event,
         xAdmit("raiseEvent", {GKWrite::Kind::Event, caller, event, &value}, room));
}

void GKMemory::raiseMicroEvent(const std::string& event, const GKValue& value, GKCaller caller) {
  xCheck(caller, GKOperation::RaiseMicroEvent, event);
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
  GKMemoryState::Event& entry = fState->event(*fStore, event);
  // Deliveries that stand still. On a clock with turns a task can be started with the turn only:
  // whoever has it must not wait for this event meanwhile.
  struct Start {
    std::shared_ptr<GKDelivery> delivery;
    const GKDelivery::Callback* callback;
    GKDelivery::Call call;
  };
  constexpr std::size_t kUsualStarts = 4;
  boost::container::small_vector<Start, kUsualStarts> starts;
  {
    const std::lock_guard lock(entry.mutex);
    entry.cell.store(value);
    ++entry.count;
    const std::optional<GKMicros> seen =
        GKObserverList::instance().show(kind, [&](GKNotice& notice) {
          notice.name = event;
          notice.value = value;
        });
    // Reading the precise clock would be half of what a raise costs.
    entry.time = seen ? *seen : GKClock::instance().elapsedRoughly();
    for (const GKMemoryState::Subscription& subscription : entry.subscriptions) {
      const GKDelivery::Call call = subscription.delivery->add(*subscription.callback, value);
      if (call != GKDelivery::Call::Nobody) {
        starts.push_back({subscription.delivery, subscription.callback, call});
      }
    }
  }
  for (const Start& start : starts) {
    start.delivery->start(*start.callback, start.call);
  }
}

std::vector<std::string> GKMemory::getExtractorEvent(const std::string& owner) const {
  const std::lock_guard lock(fState->mutex);
  const auto found = fState->declared.find(owner);
  return found != fState->declared.end() ? found->second : std::vector<std::string>();
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
  fState->events.forEach([&events](std::string_view name, GKMemoryState::Event& entry) {
    const std::lock_guard lock(entry.mutex);
    if (!entry.owner.empty() || entry.count > 0) {
      const GKValue value = entry.count > 0 ? entry.cell.load() : GKValue();
      events.push_back({std::string(name), entry.owner, entry.count, value, entry.time});
    }
  });
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
