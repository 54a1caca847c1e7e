#include "runtime/host/FaultPlan.h"

#include "formats/lines/OperationNames.h"
#include "gk/DCM.h"
#include "gk/GKError.h"
#include "gk/GKMemory.h"
#include "gk/GKResourceManager.h"

#include <string>

namespace gk::runtime {

namespace {

using GK::GKOperation;

const char* moduleOf(GKOperation operation) {
  switch (operation) {
  case GKOperation::GetProxy:
    return "GKBroker";
  case GKOperation::DcmSet:
    return GK::DCM::kName;
  case GKOperation::EnableStateResource:
    return GK::GKResourceManager::kName;
  default:
    return GK::GKMemory::kName;
  }
}

/// Counts one use. True when it has to fail.
bool isDue(formats::FailAction& fault) {
  if (fault.after > 0) {
    --fault.after;
    return false;
  }
  if (fault.count > 0) {
    --fault.count;
    return true;
  }
  return fault.count == formats::FailAction::kForever;
}

} // namespace

void FaultPlan::add(const formats::FailAction& fault) {
  const std::lock_guard lock(fMutex);
  fFaults.push_back(fault);
}

void FaultPlan::before(GKOperation operation, std::string_view key) {
  bool mustFail = false;
  {
    const std::lock_guard lock(fMutex);
    for (formats::FailAction& fault : fFaults) {
      if (fault.operation == operation && (!fault.key || *fault.key == key)) {
        mustFail = isDue(fault) || mustFail;
      }
    }
  }
  if (mustFail) {
    throw GK::GKError(moduleOf(operation), std::string(formats::operationName(operation)),
                      "injected fault");
  }
}

} // namespace gk::runtime
