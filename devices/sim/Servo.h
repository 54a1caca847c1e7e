#pragma once

#include <cstdint>

namespace gk::devices {

/// What a joint's motor draws and how warm it gets: a winding that heats with the square of its
/// current and loses its heat to the surroundings.
class Servo {
public:
  /// Winding's rise in temperature at full torque, K/s.
  static constexpr double kStallHeating = 3.0;
  /// Time in which a winding's excess over the surroundings falls to 37 %, s.
  static constexpr double kCoolingTime = 45.0;
  /// What a motor is warmer than the surroundings when the robot is switched on, K.
  static constexpr double kStartExcess = 3.0;

  /// Temperatures at which the motor board reports 33, 34 and 35, degrees Celsius.
  static constexpr double kWarm = 75.0;
  static constexpr double kHot = 85.0;
  static constexpr double kTooHot = 95.0;
  /// A report ends when the temperature has fallen by this much below its limit, K.
  static constexpr double kHysteresis = 3.0;
  /// From `kTooHot` on the board lowers the torque, down to nothing at this temperature.
  static constexpr double kCutOff = 110.0;

  Servo(double stallCurrent, double ambient)
      : fStallCurrent(stallCurrent), fTemperature(ambient + kStartExcess) {}

  /// Lets `duration` (s) pass with the servo exerting this share of its largest torque (0 to 1).
  void advance(double duration, double load, double ambient);

  /// Amperes.
  double current() const noexcept { return fCurrent; }
  /// Degrees Celsius.
  double temperature() const noexcept { return fTemperature; }
  /// The share of its torque that the board allows the motor.
  double allowedShare() const noexcept;
  /// 0, or 33 to 35 for a temperature that is high, very high or too high.
  std::int32_t error() const noexcept { return fError; }

private:
  double fStallCurrent; // A
  double fTemperature;
  double fCurrent = 0;
  std::int32_t fError = 0;
};

} // namespace gk::devices
