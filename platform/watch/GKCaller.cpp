#include "gk/GKCaller.h"

namespace GK {

namespace {

thread_local GKCaller tCaller = GKCaller::Module;

} // namespace

GKCallerScope::GKCallerScope(GKCaller caller) noexcept : fFormer(tCaller) {
  tCaller = caller;
}
GKCallerScope::~GKCallerScope() {
  tCaller = fFormer;
}
GKCaller GKCallerScope::current() noexcept {
  return tCaller;
}

} // namespace GK
