#pragma once

#include "formats/lines/Action.h"
#include "gk/GKOperationHook.h"

#include <mutex>
#include <string_view>
#include <vector>

namespace gk::runtime {

/// Makes operations of the platform fail as a scenario says. All operations from any thread.
class FaultPlan : public GK::GKOperationHook {
public:
  /// From now on counts the uses that `fault` is about.
  void add(const formats::FailAction& fault);

  /// Raises `GKError` ("injected fault") when a fault is due. Every fault concerned counts the use.
  void before(GK::GKOperation operation, std::string_view key) override;

private:
  std::mutex fMutex;
  std::vector<formats::FailAction> fFaults;
};

} // namespace gk::runtime
