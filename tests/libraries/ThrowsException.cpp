#include "gk/GKBroker.h"

#include <stdexcept>

namespace {

/// Its type disappears with the library.
class Own : public std::logic_error {
public:
  using std::logic_error::logic_error;
};

} // namespace

extern "C" GK_API int _createModule(boost::shared_ptr<GK::GKBroker>) {
  throw Own("this one is illogical");
}
