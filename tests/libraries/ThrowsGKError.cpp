#include "gk/GKBroker.h"
#include "gk/GKError.h"

extern "C" GK_API int _createModule(boost::shared_ptr<GK::GKBroker>) {
  throw GK::GKError("Broken", "_createModule", "this one refuses");
}
