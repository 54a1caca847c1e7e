#pragma once

#include "gk/GKMemoryStore.h"
#include "gk/GKModule.h"
#include "gk/GKObserver.h"
#include "gk/GKWriteGate.h"

#include <memory>
#include <utility>

namespace GK {

/// The device communication manager, module "DCM": takes orders for actuators.
///
/// An order is an array of three: the actuator's key below "Device/SubDeviceList/" (string), how
/// the order joins those pending (string), and the commands, a non-empty array of [value (float or
/// int), DCM time in milliseconds (int)].
///
/// Bound methods: `getTime`, `set`. May be called from any thread.
class GK_API DCM : public GKModule {
public:
  DCM(const boost::shared_ptr<GKBroker>& broker, std::shared_ptr<GKMemoryStore> store);

  static constexpr const char* kName = "DCM";

  /// Milliseconds since the platform started, plus `offset`.
  int getTime(const int& offset) const;

  /// Writes the value of the command with the latest time (among equals the last) to the actuator's
  /// key and shows the order to the observers. Raises `GKError` when the order's shape is wrong;
  /// then nothing is written.
  void set(const GKValue& order, GKCaller caller);

  /// As `GKMemory::setGate`.
  void setGate(std::shared_ptr<GKWriteGate> gate) { fGate = std::move(gate); }

private:
  void xSet(const GKValue& order);

  std::shared_ptr<GKMemoryStore> fStore;
  std::shared_ptr<GKWriteGate> fGate;
};

} // namespace GK
