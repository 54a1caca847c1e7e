#include "devices/sim/Battery.h"

#include <gtest/gtest.h>

using gk::devices::Battery;

namespace {

constexpr double kFrame = 0.02;

void advance(Battery& sut, double seconds, double motors, bool isPlugged) {
  for (double time = 0; time < seconds; time += kFrame) {
    sut.advance(kFrame, motors, isPlugged);
  }
}

} // namespace

TEST(Battery, GivesWhatBoardsAndMotorsDraw) {
  Battery sut;
  advance(sut, 60, 1.1, false);
  EXPECT_DOUBLE_EQ(sut.current(), -2.0); // 0.9 A of the boards
  EXPECT_NEAR(sut.charge(), 1 - 60 * 2.0 / Battery::kCapacity, 1e-5);
  EXPECT_EQ(sut.status(), Battery::kDischarging);
}

TEST(Battery, AFullOneIsOnlySparedByTheCharger) {
  Battery sut;
  sut.advance(kFrame, 1.0, true);
  EXPECT_EQ(sut.status(), Battery::kFullCharged);
  EXPECT_DOUBLE_EQ(sut.current(), 0);
}

TEST(Battery, ChargesUntilItIsFull) {
  Battery sut;
  advance(sut, 120, 2.0, false);
  sut.advance(kFrame, 1.0, true);
  EXPECT_EQ(sut.status(), Battery::kCharging);
  EXPECT_DOUBLE_EQ(sut.current(), Battery::kChargeLimit);
  advance(sut, 300, 1.0, true);
  EXPECT_EQ(sut.status(), Battery::kFullCharged);
  EXPECT_GE(sut.charge(), Battery::kFull);
}

TEST(Battery, GivesWhatTheChargerCannot) {
  Battery sut;
  sut.advance(kFrame, 10.0, true);
  EXPECT_DOUBLE_EQ(sut.current(), Battery::kChargerCurrent - Battery::kBoardCurrent - 10.0);
  EXPECT_EQ(sut.status() & Battery::kDischarging, 0);
}

TEST(Battery, EndsEmptyAndNotBelow) {
  Battery sut;
  advance(sut, Battery::kCapacity, 2.0, false);
  EXPECT_DOUBLE_EQ(sut.charge(), 0);
}

TEST(Battery, TheCellVoltageFollowsChargeAndCurrent) {
  Battery sut;
  advance(sut, 60, 0, false);
  const std::int32_t idle = sut.cellVoltage();
  advance(sut, 60, 6.0, false);
  const std::int32_t loaded = sut.cellVoltage();
  EXPECT_LT(loaded, idle);
  advance(sut, 60, 0, true);
  EXPECT_GT(sut.cellVoltage(), loaded);
  // Between an empty and a full cell, with a tenth of a volt for the load.
  EXPECT_GT(loaded, (Battery::kEmptyVoltage - 0.1) / Battery::kVoltageStep);
  EXPECT_LT(idle, Battery::kFullVoltage / Battery::kVoltageStep);
}
