#include "devices/sim/Noise.h"

#include <gtest/gtest.h>

using gk::devices::Noise;

TEST(Noise, HasTheDeviationAskedForAndNoBias) {
  Noise sut(7, true);
  constexpr int count = 10000;
  double sum = 0;
  double squares = 0;
  for (int i = 0; i < count; ++i) {
    const double error = sut.of(0.5);
    sum += error;
    squares += error * error;
  }
  EXPECT_NEAR(sum / count, 0, 0.02);
  EXPECT_NEAR(std::sqrt(squares / count), 0.5, 0.02);
}

TEST(Noise, TheSeedDecides) {
  Noise one(1, true);
  Noise same(1, true);
  Noise other(2, true);
  const double first = one.of(1);
  EXPECT_EQ(first, same.of(1));
  EXPECT_NE(first, other.of(1));
  EXPECT_NE(first, one.of(1));
}

TEST(Noise, RoundsToTheSensorsSteps) {
  EXPECT_DOUBLE_EQ(Noise(1, true).inSteps(0.449, 0.01), 0.45);
}

TEST(Noise, SwitchedOffSensorsAreExact) {
  Noise sut(1, false);
  EXPECT_EQ(sut.of(1), 0);
  EXPECT_EQ(sut.inSteps(0.449, 0.01), 0.449);
}
