#include "gk/DCMProxy.h"

#include "gk/GKCaller.h"
#include "gk/GKError.h"
#include "gk/GKProxy.h"

namespace GK {

DCMProxy::DCMProxy(const boost::shared_ptr<GKBroker>& broker)
    : DCMProxy(broker->getProxy(DCM::kName, 0)) {}

DCMProxy::DCMProxy(const boost::shared_ptr<GKProxy>& proxy)
    : fDCM(boost::dynamic_pointer_cast<DCM>(proxy->getModule())) {
  if (fDCM == nullptr) {
    throw GKError("DCMProxy", "DCMProxy", "the module is not the device communication manager");
  }
}

void DCMProxy::set(const GKValue& order) {
  fDCM->set(order, GKCaller::Module);
}

} // namespace GK
