#include "gk/GKModuleLibrary.h"

#include <string>

namespace GK {
/// A function that no platform has.
GK_API int countWings(const std::string& robot);
} // namespace GK

namespace {

class Winged : public GK::GKModule {
public:
  explicit Winged(const boost::shared_ptr<GK::GKBroker>& broker) : GKModule(broker, "Winged") {}
  void init() override { GK::countWings("robot"); }
};

} // namespace

GK_MODULE_LIBRARY(Winged)
