#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"
#include "gk/GKModuleLibrary.h"

#include <string>
#include <unistd.h>
#include <vector>

// Tells how it is, as the setting "Does" wants it: well by itself; "hang" never returns, "raise"
// raises an error, "lie" returns something else.

namespace {

class TellsStatus : public GK::GKModule {
public:
  explicit TellsStatus(const boost::shared_ptr<GK::GKBroker>& broker)
      : GKModule(broker, "TellsStatus") {
    functionName("status", getName(), "How it is.");
    setReturn("rows", "Of name, unit, value, level and text.");
    bindMethod(&TellsStatus::status, this);
  }

  GK::GKValue status() {
    GK::GKMemoryProxy memory(getParentBroker()->getProxy("GKMemory", 0));
    const std::string key = "Settings/TellsStatus/Does";
    const std::string does = memory.hasKey(key) ? memory.getData(key).toString() : "";
    while (does == "hang") {
      pause();
    }
    if (does == "raise") {
      throw GK::GKError("TellsStatus", "status", "it was asked to");
    }
    if (does == "lie") {
      return 42;
    }
    using Row = std::vector<GK::GKValue>;
    return Row{Row{"queue", "jobs", 12, 0, ""}, Row{"link", "", false, 2, "no cable"}};
  }
};

} // namespace

GK_MODULE_LIBRARY(TellsStatus)
