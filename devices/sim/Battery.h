#pragma once

#include <cstdint>

namespace gk::devices {

/// A lithium battery of six cells, its charger and their status word.
class Battery {
public:
  static constexpr double kCapacity = 1.4 * 3600; ///< C
  /// What computer and boards draw beside the motors, A.
  static constexpr double kBoardCurrent = 0.9;
  /// What the charger gives at most, and what of it may flow into the battery, A.
  static constexpr double kChargerCurrent = 5.5;
  static constexpr double kChargeLimit = 3.2;
  /// From this charge on the battery counts as full while it is plugged in.
  static constexpr double kFull = 0.995;
  /// Voltage of a cell at rest, empty and full, V; in between it is taken as a line.
  static constexpr double kEmptyVoltage = 3.4;
  static constexpr double kFullVoltage = 4.15;
  static constexpr double kCellResistance = 0.015; ///< ohm
  /// Time constant of the voltage measurement, s.
  static constexpr double kVoltageSmoothing = 4.0;
  /// The raw cell voltage counts in steps of this, V.
  static constexpr double kVoltageStep = 0.01;

  /// Bits of the status word.
  static constexpr std::int32_t kDischarging = 0x20;
  static constexpr std::int32_t kFullCharged = 0x40;
  static constexpr std::int32_t kCharging = 0x80;

  /// Lets `duration` (s) pass while the motors draw `motors` (A).
  void advance(double duration, double motors, bool isPlugged);

  /// 0 (empty) to 1.
  double charge() const noexcept { return fCharge; }
  /// Into the battery, A; negative while it is drawn from.
  double current() const noexcept { return fCurrent; }
  std::int32_t status() const noexcept { return fStatus; }
  /// Voltage of the weakest cell in steps of `kVoltageStep`.
  std::int32_t cellVoltage() const noexcept;

private:
  double fCharge = 1.0;
  double fCurrent = -kBoardCurrent;
  double fVoltage = kFullVoltage - kBoardCurrent * kCellResistance;
  std::int32_t fStatus = kDischarging;
};

} // namespace gk::devices
