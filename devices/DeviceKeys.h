#pragma once

#include "formats/KeyTypes.h"
#include "gk/GKValue.h"

#include <string>
#include <string_view>
#include <vector>

/// The memory keys that the device layer provides. This is the one place that lists them.
namespace gk::devices {

using formats::KeyType;

/// A key of the device layer.
struct DeviceKey {
  std::string name;
  /// `Float` or `Int`.
  KeyType type = KeyType::Float;
  /// "m", "kg", "rad", "A", "degC"; empty for pure numbers.
  std::string_view unit;
  /// What the key holds before anything was measured: a robot at rest without any contact.
  GK::GKValue start;
  /// What the value tells, in a few words.
  std::string_view meaning;
};

/// All device keys, sorted by name. Never changes; from any thread, as everything here.
const std::vector<DeviceKey>& deviceKeys();

/// The device key of this name, or null.
const DeviceKey* findDeviceKey(std::string_view name);

/// The type of a device key; `Any` for all other keys.
KeyType keyTypeOf(std::string_view name);

} // namespace gk::devices
