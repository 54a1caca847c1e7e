#pragma once

#include "gk/GKMemoryStore.h"
#include "gk/GKValue.h"
#include "messages/keys/DeviceKeys.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace gk::devices {

/// What provides the device keys where no machine does: every key given, with its start value, then
/// whatever is played into it.
///
/// For one thread until `publish`; afterwards `set` may be called from any thread.
class DeviceLayer {
public:
  explicit DeviceLayer(std::shared_ptr<GK::GKMemoryStore> store,
                       const std::vector<messages::DeviceKey>& keys = messages::deviceKeys());

  /// Before `publish`: gives the key this start value. Afterwards: writes it at once.
  void set(const std::string& key, const GK::GKValue& value);

  /// Leaves a key out, or all that begin as a pattern that ends in "*". Before `publish` only.
  void unset(const std::string& pattern);

  /// Writes all start values to the memory.
  void publish();

private:
  std::shared_ptr<GK::GKMemoryStore> fStore;
  std::map<std::string, GK::GKValue> fStart;
  bool fIsPublished = false;
};

} // namespace gk::devices
