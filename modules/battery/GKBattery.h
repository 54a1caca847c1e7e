#pragma once

#include "gk/GKMemoryFastAccess.h"
#include "gk/GKMemoryPlace.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"

#include <boost/circular_buffer.hpp>
#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace GK {

/// Follows the battery: charge, status flags, cell voltage, and whether the power is plugged in.
///
/// The sensor loop drives it through `updatePowerPlugged`. Each change is an event. Without memory
/// service, or when its keys are not there, the module does nothing.
class GKBattery : public GKModule {
public:
  /// Power plugged in or out (bool).
  static const std::string fEventPowerPlugged;
  /// Minimum cell voltage, raw (int).
  static const std::string fEventChargeCellVoltageMin;
  /// Charge in percent (int). Not declared, although it is the event that tells the charge.
  static const std::string fCharge;
  /// Charging, fully charged, discharging (bool).
  static const std::string fEventCharging;
  static const std::string fEventFullCharged;
  static const std::string fEventDisCharging;
  /// Raised once with -1 when the module connects, and never again (int).
  static const std::string fEventBatteryLevel;

  explicit GKBattery(const boost::shared_ptr<GKBroker>& broker);

  /// Charge of this moment in percent, cut to an int; 0 when the module does nothing. Any thread.
  int getBatteryCharge();

  /// Logs the two values. Kept for older callers: the plug decision does not use them. Any thread.
  void _setResistanceValue(const float& positive, const float& negative);

  /// One tick. Sensor loop's thread only. A `GKError` of a refused event leaves from here; the
  /// change counts as announced.
  void updatePowerPlugged();

private:
  friend class GKBatteryPeer;

  void xBindMethods();
  void xConnectToMemory();
  /// Nothing to do: others' fast access is not the battery's to stop.
  void xDeconnectToMemory() {}

  void xUpdateCharge();
  void xUpdateFlags();
  void xUpdateFlag(bool& flag, bool present, const std::string& event);
  void xUpdateCellVoltage();
  /// Takes one sample of the currents; returns what tells whether the power is plugged in.
  float xUpdateScore();
  void xDecidePowerPlugged(float score);
  float xReadMotorSample();

  /// Joint currents of the latest tick, ampere.
  std::vector<float> fCurrentValues;
  /// Last samples, oldest first; empty until the first tick.
  boost::circular_buffer<float> fMotorWindow;
  boost::circular_buffer<float> fBatteryWindow;
  float fMotorMean = 0.0F;
  float fBatteryMean = 0.0F;
  bool fPowerPlugged = false;
  bool fCharging = false;
  bool fDisCharging = false;
  bool fFullCharged = false;
  /// As announced last.
  std::int32_t fChargePercent = 0;
  std::int32_t fCellVoltageMin = 0;
  std::int32_t fBatteryLevel = -1;
  /// False when memory is missing or the connection failed; settled at construction.
  bool fActive = true;
  /// True once the first plug decision is taken.
  bool fPlugDecided = false;
  /// Where memory keeps the values; nowhere until connected.
  GKMemoryPlace<float> fChargeValue;
  GKMemoryPlace<std::int32_t> fStatusValue;
  GKMemoryPlace<std::int32_t> fCellVoltageValue;
  GKMemoryPlace<float> fBatteryCurrentValue;
  /// Empty without memory service.
  boost::shared_ptr<GKMemoryProxy> fMemoryProxy;
  boost::shared_ptr<GKMemoryFastAccess> fCurrentAccess;
  /// Ticks so far.
  std::int32_t fTickCount = 0;
};

} // namespace GK
