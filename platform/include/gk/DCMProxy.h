#pragma once

#include "gk/DCM.h"
#include "gk/GKBroker.h"
#include "gk/GKProxy.h"

#include <boost/shared_ptr.hpp>

namespace GK {

/// The DCM as modules use it. Semantics and errors are those of `DCM`.
class GK_API DCMProxy {
public:
  /// Raises `GKError` when `proxy` is not one of "DCM".
  explicit DCMProxy(const boost::shared_ptr<GKProxy>& proxy);
  /// Raises `GKError` when the broker has no module "DCM".
  explicit DCMProxy(const boost::shared_ptr<GKBroker>& broker);

  int getTime(int offset) const { return fDCM->getTime(offset); }
  void set(const GKValue& order);

private:
  boost::shared_ptr<DCM> fDCM;
};

} // namespace GK
