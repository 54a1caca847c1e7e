#include "gk/GKBroker.h"

extern "C" GK_API int _createModule(boost::shared_ptr<GK::GKBroker>) {
  return 7;
}
