#include "devices/sim/Geometry.h"

#include <gtest/gtest.h>

using namespace gk::devices;

namespace {

constexpr double kTolerance = 1e-9;

void expectSame(const Rotation& a, const Rotation& b) {
  EXPECT_LT(length(rotationVector(a * inverse(b))), kTolerance);
}

} // namespace

TEST(Geometry, ALeanTellsHeadingAndTilt) {
  const Lean lean = leanOf(rotation({0, 0, 1}, 2.0) * rotation({0, 1, 0}, 1.5));
  EXPECT_NEAR(lean.heading, 2.0, kTolerance);
  EXPECT_NEAR(lean.tilt[0], 0, kTolerance);
  EXPECT_NEAR(lean.tilt[1], 1.5, kTolerance);
  EXPECT_NEAR(lean.tilt[2], 0, kTolerance);
}

TEST(Geometry, EveryAttitudeIsALean) {
  const Rotation attitudes[] = {kNoRotation, rotation({1, 0, 0}, -1.6), rotation({0, 1, 0}, 2.7),
                                rotation({0.6, 0, 0.8}, 1.0), rotation({0, 0, 1}, -3.0)};
  for (const Rotation& attitude : attitudes) {
    expectSame(attitudeOf(leanOf(attitude)), attitude);
  }
}

TEST(Geometry, BetweenBeginsAndEndsWhereItIsToldTo) {
  const Rotation a = rotation({0.6, 0, 0.8}, 1.0);
  const Rotation b = rotation({0, 1, 0}, -1.5);
  expectSame(between(a, b, 0), a);
  expectSame(between(a, b, 1), b);
}

TEST(Geometry, WhoIsPickedUpFromTheSideNeverLeansAhead) {
  const Rotation onTheSide = rotation({0, 0, 1}, 0.7) * rotation({1, 0, 0}, 1.5);
  for (double share = 0; share < 1; share += 0.1) {
    const Lean lean = leanOf(between(onTheSide, kNoRotation, share));
    EXPECT_NEAR(lean.tilt[0], 1.5 * (1 - share), kTolerance);
    EXPECT_NEAR(lean.tilt[1], 0, kTolerance);
  }
}

TEST(Geometry, TurnsTheShortWayRound) {
  const Rotation middle = between(rotation({0, 0, 1}, 3.0), rotation({0, 0, 1}, -3.0), 0.5);
  EXPECT_NEAR(std::abs(leanOf(middle).heading), M_PI, kTolerance);
}
