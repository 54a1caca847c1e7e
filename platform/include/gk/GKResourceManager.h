#pragma once

#include "gk/GKMemoryStore.h"
#include "gk/GKModule.h"
#include "gk/GKPriorityMutex.h"
#include "gk/GKWriteGate.h"

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace GK {

/// The resource manager, module "GKResourceManager": which states ("Standing", "Sitting", ...) the
/// robot is in.
///
/// Bound methods: `enableStateResource`, `getEnabledStateResources`. May be called from any thread.
class GK_API GKResourceManager : public GKModule {
public:
  GKResourceManager(const boost::shared_ptr<GKBroker>& broker,
                    std::shared_ptr<GKMemoryStore> store);

  static constexpr const char* kName = "GKResourceManager";

  /// Keeps the state and writes it as a bool under "ResourceManager/State/" + `name`.
  void enableStateResource(const std::string& name, const bool& enabled);

  /// Names of the enabled states, sorted.
  std::vector<std::string> getEnabledStateResources() const;

  /// As `GKMemory::setGate`.
  void setGate(std::shared_ptr<GKWriteGate> gate) { fGate = std::move(gate); }

private:
  void xAdmit(const std::string& key, const GKValue& value) const;

  std::shared_ptr<GKMemoryStore> fStore;
  std::shared_ptr<GKWriteGate> fGate;
  mutable GKPriorityMutex fMutex;
  std::set<std::string> fEnabled;
};

} // namespace GK
