#include "devices/DeviceLayer.h"

#include <string_view>
#include <utility>

namespace gk::devices {

DeviceLayer::DeviceLayer(std::shared_ptr<GK::GKMemoryStore> store,
                         const std::vector<messages::DeviceKey>& keys)
    : fStore(std::move(store)) {
  for (const messages::DeviceKey& key : keys) {
    fStart.emplace(key.name, key.start);
  }
}

void DeviceLayer::set(const std::string& key, const GK::GKValue& value) {
  if (fIsPublished) {
    fStore->set(key, value);
  } else {
    fStart.insert_or_assign(key, value);
  }
}

void DeviceLayer::unset(const std::string& pattern) {
  if (!pattern.ends_with('*')) {
    fStart.erase(pattern);
    return;
  }
  const std::string_view beginning(pattern.data(), pattern.size() - 1);
  std::erase_if(fStart, [&](const auto& entry) { return entry.first.starts_with(beginning); });
}

void DeviceLayer::publish() {
  for (const auto& [key, value] : fStart) {
    fStore->set(key, value);
  }
  fStart.clear();
  fIsPublished = true;
}

} // namespace gk::devices
