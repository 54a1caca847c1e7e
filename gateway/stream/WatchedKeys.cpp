#include "gateway/stream/WatchedKeys.h"

#include "messages/json/SameValue.h"

#include <utility>

namespace gk::gateway {

void WatchedKey::xLook(const GK::GKMemoryStore& store) {
  if (fCell == nullptr) {
    fCell = store.find(fName);
  }
  GK::GKValue value = fCell != nullptr ? fCell->load() : GK::GKValue();
  if (!messages::isSameValue(value, fValue)) {
    fValue = std::move(value);
    ++fVersion;
  }
}

void WatchedKeys::open(std::shared_ptr<const GK::GKMemoryStore> store) {
  fStore = std::move(store);
}

std::shared_ptr<const WatchedKey> WatchedKeys::watch(const std::string& name) {
  if (std::shared_ptr<WatchedKey> known = fKeys[name].lock()) {
    return known;
  }
  const std::shared_ptr<WatchedKey> key(new WatchedKey(name), [this](WatchedKey* gone) {
    fKeys.erase(gone->fName);
    delete gone;
  });
  fKeys[name] = key;
  if (fStore != nullptr) {
    key->xLook(*fStore);
  }
  return key;
}

void WatchedKeys::refresh() {
  if (fStore == nullptr) {
    return;
  }
  for (const auto& [name, weak] : fKeys) {
    if (const std::shared_ptr<WatchedKey> key = weak.lock()) {
      key->xLook(*fStore);
    }
  }
}

} // namespace gk::gateway
