#include "gk/GKOperationHook.h"

#include <atomic>

namespace GK {

namespace {

std::shared_ptr<GKOperationHook>& owner() {
  static std::shared_ptr<GKOperationHook> hook;
  return hook;
}

std::atomic<GKOperationHook*> installed{nullptr};

} // namespace

GKOperationHook::~GKOperationHook() = default;

void GKOperationHook::install(std::shared_ptr<GKOperationHook> hook) {
  installed.store(hook.get(), std::memory_order_release);
  owner() = std::move(hook);
}

void GKOperationHook::check(GKOperation operation, std::string_view key) {
  if (GKOperationHook* hook = installed.load(std::memory_order_acquire)) {
    hook->before(operation, key);
  }
}

} // namespace GK
