#pragma once

#include "devices/sim/Physics.h"
#include "devices/sim/Postures.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKValue.h"
#include "messages/keys/DeviceKeys.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace gk::devices {

/// What people around the robot do, as the keys below "Simulation/" say it.
class World {
public:
  static constexpr const char* kPrefix = messages::kWorldPrefix;

  explicit World(std::shared_ptr<GK::GKMemoryStore> store);

  /// Looks at a value that somebody is about to write to a key below `kPrefix`. Returns why it is
  /// refused, or nothing; takes note of ordered postures. From any thread.
  std::string admit(const std::string& key, const GK::GKValue& value);

  /// Finds the keys. After they were published.
  void bind();
  /// Takes over what the keys say now. What does not fit leaves things as they were.
  void read();

  /// The posture ordered since the last call, or null.
  const Posture* takeOrder();

  bool isHeld() const noexcept { return fIsHeld; }
  double hoistHeight() const noexcept { return fHoistHeight; } ///< m
  Vector push() const noexcept { return fPush; }               ///< N
  /// Infinity for none, m.
  double obstacle(Side side) const noexcept;
  bool isPlugged() const noexcept { return fIsPlugged; }
  double ambient() const noexcept { return fAmbient; } ///< degrees Celsius
  /// In the order of `touchSensors`.
  bool isTouched(std::size_t sensor) const noexcept { return fTouches[sensor]; }

private:
  struct Quantity {
    std::string key;
    double* value;
    GK::GKMemoryCell* cell = nullptr;
  };
  struct Switch {
    std::string key;
    bool* value;
    GK::GKMemoryCell* cell = nullptr;
  };

  std::shared_ptr<GK::GKMemoryStore> fStore;
  bool fIsHeld = false;
  double fHoistHeight = 0;
  Vector fPush{};
  std::array<double, 2> fObstacles{};
  bool fIsPlugged = false;
  double fAmbient = 0;
  std::unique_ptr<bool[]> fTouches;
  std::vector<Quantity> fQuantities;
  std::vector<Switch> fSwitches;
  /// An order not yet taken.
  std::atomic<const Posture*> fOrder{nullptr};
};

} // namespace gk::devices
