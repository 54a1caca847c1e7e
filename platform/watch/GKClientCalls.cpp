#include "gk/GKClientCalls.h"

#include <mutex>
#include <utility>

namespace GK {

namespace {

struct InstalledCalls {
  std::mutex mutex;
  std::shared_ptr<GKClientCalls> calls;
};

InstalledCalls& installedCalls() {
  static InstalledCalls installed;
  return installed;
}

} // namespace

GKClientCalls::~GKClientCalls() = default;

std::shared_ptr<GKClientCalls> GKClientCalls::instance() {
  InstalledCalls& installed = installedCalls();
  const std::lock_guard lock(installed.mutex);
  return installed.calls;
}

void GKClientCalls::install(std::shared_ptr<GKClientCalls> calls) {
  InstalledCalls& installed = installedCalls();
  const std::lock_guard lock(installed.mutex);
  // The former one ends outside of the lock.
  installed.calls.swap(calls);
}

} // namespace GK
