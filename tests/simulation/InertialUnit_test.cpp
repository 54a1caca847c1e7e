#include "devices/sim/InertialUnit.h"
#include "devices/sim/Physics.h"

#include <gtest/gtest.h>

using namespace gk::devices;

namespace {

constexpr double kStep = Physics::kStep;
constexpr double kDegree = M_PI / 180;

/// What is measured at rest after this turn from upright.
Vector accelerationAfter(const Rotation& turn) {
  const Rotation up = inverse(turn) * Rotation{0, 0, 0, Physics::kGravity} * turn;
  return {up[1], up[2], up[3]};
}

InertialUnit alignedAfter(const Rotation& turn) {
  InertialUnit sut;
  sut.align(accelerationAfter(turn));
  return sut;
}

} // namespace

TEST(InertialUnit, UprightIsNoInclination) {
  const InertialUnit sut = alignedAfter(kNoRotation);
  EXPECT_NEAR(sut.angleX(), 0, 1e-12);
  EXPECT_NEAR(sut.angleY(), 0, 1e-12);
}

TEST(InertialUnit, LeaningAheadIsPositiveYAndToTheRightPositiveX) {
  for (const double angle : {-170.0, -90.0, -30.0, 10.0, 90.0, 135.0, 179.0}) {
    const InertialUnit ahead = alignedAfter(rotation({0, 1, 0}, angle * kDegree));
    EXPECT_NEAR(ahead.angleY(), angle * kDegree, 1e-6);
    EXPECT_NEAR(ahead.angleX(), 0, 1e-6);
    const InertialUnit aside = alignedAfter(rotation({1, 0, 0}, angle * kDegree));
    EXPECT_NEAR(aside.angleX(), angle * kDegree, 1e-6);
    EXPECT_NEAR(aside.angleY(), 0, 1e-6);
  }
}

TEST(InertialUnit, TheHeadingDoesNotMatter) {
  const Rotation lean = rotation({0, 1, 0}, 40 * kDegree);
  const InertialUnit sut = alignedAfter(rotation({0, 0, 1}, 2.0) * lean);
  EXPECT_NEAR(sut.angleY(), 40 * kDegree, 1e-6);
  EXPECT_NEAR(sut.angleX(), 0, 1e-6);
}

TEST(InertialUnit, AQuickTurnIsFollowedByTheGyroscope) {
  // A quarter turn ahead within half a second, while the acceleration is that of free fall.
  InertialUnit sut;
  constexpr int steps = 100;
  for (int i = 0; i < steps; ++i) {
    sut.measure({0, 0, 0}, {0, 90 * kDegree / (steps * kStep), 0}, kStep);
  }
  EXPECT_NEAR(sut.angleY(), 90 * kDegree, 0.02);
}

TEST(InertialUnit, GravityPutsAWrongDirectionRight) {
  InertialUnit sut = alignedAfter(rotation({0, 1, 0}, 30 * kDegree));
  for (double time = 0; time < 5 * InertialUnit::kCorrectionTime; time += kStep) {
    sut.measure({0, 0, Physics::kGravity}, {0, 0, 0}, kStep);
  }
  EXPECT_NEAR(sut.angleY(), 0, 30 * kDegree * std::exp(-4.9));
}

TEST(InertialUnit, ABlowTellsNothingAboutGravity) {
  InertialUnit sut;
  for (int i = 0; i < 20; ++i) {
    sut.measure({5 * Physics::kGravity, 0, 0}, {0, 0, 0}, kStep);
  }
  EXPECT_NEAR(sut.angleY(), 0, 1e-12);
}
