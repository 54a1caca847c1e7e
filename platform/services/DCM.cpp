#include "gk/DCM.h"

#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "gk/GKObserver.h"
#include "gk/GKOperationHook.h"

namespace GK {

namespace {

constexpr const char* kActuatorPrefix = "Device/SubDeviceList/";

[[noreturn]] void refuse(const std::string& why) {
  throw GKError(DCM::kName, "set", why);
}

bool isNumber(const GKValue& value) {
  return value.type() == GKValue::Type::Float || value.type() == GKValue::Type::Int;
}

/// The value that an order leaves behind. Raises `GKError` when the order's shape is wrong.
float latestValue(const GKValue& order) {
  if (order.size() != 3 || order[0].type() != GKValue::Type::String ||
      order[1].type() != GKValue::Type::String || order[2].size() == 0) {
    refuse("an order is [key, update type, [[value, time], ...]]");
  }
  const GKValue* latest = nullptr;
  for (const GKValue& command : order[2].toArray()) {
    if (command.size() != 2 || !isNumber(command[0]) || command[1].type() != GKValue::Type::Int) {
      refuse("a command of " + order[0].toString() + " is [value, time in ms]");
    }
    if (latest == nullptr || command[1].toInt() >= (*latest)[1].toInt()) {
      latest = &command;
    }
  }
  return (*latest)[0].toFloat();
}

} // namespace

DCM::DCM(const boost::shared_ptr<GKBroker>& broker, std::shared_ptr<GKMemoryStore> store)
    : GKModule(broker, kName), fStore(std::move(store)) {
  setModuleDescription("Takes orders for the robot's actuators.");

  functionName("getTime", kName, "Gets the time of orders.");
  addParam("offset", "Milliseconds to add.");
  setReturn("time", "Milliseconds since the platform started, plus the offset.");
  bindMethod(&DCM::getTime, static_cast<const DCM*>(this));

  functionName("set", kName, "Sends an order to an actuator.");
  addParam("order", "Array of key, update type and commands, each an array of value and time.");
  bindMethod(&DCM::xSet, this);
}

int DCM::getTime(const int& offset) const {
  const GKMicros milliseconds = GKClock::instance().elapsed() / 1000 + offset;
  return static_cast<int>(static_cast<std::uint32_t>(milliseconds));
}

void DCM::set(const GKValue& order, GKCaller caller) {
  if (caller == GKCaller::Module) {
    GKOperationHook::check(GKOperation::DcmSet, {});
  }
  const GKValue value = latestValue(order);
  const std::string key = kActuatorPrefix + order[0].toString();
  const bool isNew = fGate != nullptr && caller != GKCaller::Module && fStore->find(key) == nullptr;
  GKValue room;
  fStore->set(key, GKWriteGate::ask(fGate, kName, "set",
                                    {GKWrite::Kind::Order, caller, key, &value, {}, isNew}, room));
  GKObserverList::instance().show(GKNotice::Kind::Order, [&](GKNotice& notice) {
    notice.caller = caller;
    notice.value = order;
  });
}

void DCM::xSet(const GKValue& order) {
  set(order, GKCallerScope::current());
}

} // namespace GK
