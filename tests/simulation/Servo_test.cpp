#include "devices/sim/Servo.h"

#include <gtest/gtest.h>

using gk::devices::Servo;

namespace {

constexpr double kAmbient = 27.0;
constexpr double kFrame = 0.02;

/// Lets `seconds` pass at this load.
void advance(Servo& sut, double seconds, double load) {
  for (double time = 0; time < seconds; time += kFrame) {
    sut.advance(kFrame, load, kAmbient);
  }
}

} // namespace

TEST(Servo, AnIdleServoDrawsNothingAndCoolsToTheRoom) {
  Servo sut(2.0, kAmbient);
  EXPECT_DOUBLE_EQ(sut.temperature(), kAmbient + Servo::kStartExcess);
  advance(sut, 10 * Servo::kCoolingTime, 0);
  EXPECT_DOUBLE_EQ(sut.current(), 0);
  EXPECT_NEAR(sut.temperature(), kAmbient, 0.01);
  EXPECT_EQ(sut.error(), 0);
}

TEST(Servo, HeatsWithTheSquareOfItsCurrent) {
  Servo half(2.0, kAmbient - Servo::kStartExcess);
  Servo full(2.0, kAmbient - Servo::kStartExcess);
  half.advance(kFrame, 0.5, kAmbient);
  full.advance(kFrame, 1.0, kAmbient);
  EXPECT_DOUBLE_EQ(half.current(), 1.0);
  EXPECT_DOUBLE_EQ(full.current(), 2.0);
  EXPECT_NEAR((full.temperature() - kAmbient) / (half.temperature() - kAmbient), 4.0, 1e-6);
}

TEST(Servo, ReportsEachLimitAsItIsReached) {
  Servo sut(2.0, kAmbient);
  std::int32_t former = 0;
  while (sut.error() < 35) {
    sut.advance(kFrame, 1.0, kAmbient);
    if (sut.error() != former) {
      EXPECT_EQ(sut.error(), former == 0 ? 33 : former + 1);
      former = sut.error();
    }
    const double limit = former == 0 ? Servo::kWarm : former == 33 ? Servo::kHot : Servo::kTooHot;
    EXPECT_TRUE(sut.temperature() < limit || former == 35);
  }
}

TEST(Servo, ReportsHeatUntilItHasCooledBelowTheLimit) {
  Servo sut(2.0, kAmbient);
  while (sut.error() == 0) {
    sut.advance(kFrame, 1.0, kAmbient);
  }
  while (sut.error() != 0) {
    EXPECT_GE(sut.temperature(), Servo::kWarm - Servo::kHysteresis);
    sut.advance(kFrame, 0.0, kAmbient);
  }
  EXPECT_LT(sut.temperature(), Servo::kWarm - Servo::kHysteresis);
}

TEST(Servo, LosesItsTorqueBeforeItBurns) {
  Servo sut(2.0, kAmbient);
  EXPECT_DOUBLE_EQ(sut.allowedShare(), 1.0);
  for (double time = 0; time < 600; time += kFrame) {
    sut.advance(kFrame, sut.allowedShare(), kAmbient);
  }
  EXPECT_GT(sut.temperature(), Servo::kTooHot);
  EXPECT_LT(sut.temperature(), Servo::kCutOff);
  EXPECT_LT(sut.allowedShare(), 1.0);
  EXPECT_EQ(sut.error(), 35);
}
