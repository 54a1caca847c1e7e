#pragma once

#include <cmath>
#include <cstdint>

namespace gk::devices {

/// The errors of real sensors: seeded, the same on every machine, and silent when switched off.
class Noise {
public:
  Noise(std::uint64_t seed, bool isOn) : fState(seed), fIsOn(isOn) {}

  /// An error of this standard deviation, nearly normally distributed and never above six of them.
  double of(double deviation) {
    if (!fIsOn) {
      return 0;
    }
    // The sum of twelve evenly distributed numbers has the variance 1.
    double sum = -6;
    for (int i = 0; i < 12; ++i) {
      sum += xEven();
    }
    return deviation * sum;
  }

  /// The value as a sensor with this step size tells it.
  double inSteps(double value, double step) const {
    return fIsOn ? std::round(value / step) * step : value;
  }

  /// The same for a counter, which tells a step when it is over.
  double inWholeSteps(double value, double step) const {
    return fIsOn ? std::floor(value / step) * step : value;
  }

private:
  /// From 0 to 1. SplitMix64: G. Steele, D. Lea, C. Flood, "Fast splittable pseudorandom number
  /// generators", 2014.
  double xEven() {
    std::uint64_t mixed = (fState += 0x9e3779b97f4a7c15U);
    mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
    return static_cast<double>((mixed ^ (mixed >> 31U)) >> 11U) * 0x1p-53;
  }

  std::uint64_t fState;
  bool fIsOn;
};

} // namespace gk::devices
