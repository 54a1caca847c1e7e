#include "devices/sim/Physics.h"
#include "devices/sim/Postures.h"
#include "messages/keys/DeviceKeys.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

using namespace gk::devices;
using namespace gk::messages;

namespace {

constexpr double kMass = 4.5; // kg

std::size_t jointOf(std::string_view name) {
  return static_cast<std::size_t>(std::ranges::find(jointNames(), name) - jointNames().begin());
}

/// A robot put down in a posture that its servos keep with this share of their torque.
struct PhysicsTest : testing::Test {
  void place(const char* posture, double share = 1) {
    const Posture& goal = *findPosture(posture);
    sut.place(goal.angles, goal.attitude());
    for (std::size_t joint = 0; joint < goal.angles.size(); ++joint) {
      sut.drive(joint, goal.angles[joint], share);
    }
  }

  void pass(double seconds) {
    for (double time = 0; time < seconds; time += Physics::kStep) {
      sut.step();
    }
  }

  double weight(Side foot) const {
    double sum = 0;
    for (std::size_t cell = 0; cell < kCells; ++cell) {
      sum += sut.cellForce(foot, static_cast<Cell>(cell)) / Physics::kGravity;
    }
    return sum;
  }

  Physics sut;
};

} // namespace

TEST_F(PhysicsTest, TheModelsLimitsAreThoseOfTheTable) {
  for (std::size_t joint = 0; joint < jointNames().size(); ++joint) {
    const DeviceKey* key =
        findDeviceKey(deviceKey(jointNames()[joint], "/Position/Actuator/Value"));
    ASSERT_NE(key, nullptr);
    EXPECT_NEAR(sut.range(joint)[0], key->range->least, 1e-6) << jointNames()[joint];
    EXPECT_NEAR(sut.range(joint)[1], key->range->most, 1e-6) << jointNames()[joint];
  }
}

TEST_F(PhysicsTest, EveryPostureLiesWithinTheLimits) {
  for (const Posture& posture : postures()) {
    for (std::size_t joint = 0; joint < jointNames().size(); ++joint) {
      EXPECT_GE(posture.angles[joint], sut.range(joint)[0] - 0.04) << jointNames()[joint];
      EXPECT_LE(posture.angles[joint], sut.range(joint)[1] + 0.04) << jointNames()[joint];
    }
  }
}

TEST_F(PhysicsTest, AStandingRobotHasItsWholeWeightOnItsFeet) {
  place("Stand");
  pass(2);
  EXPECT_NEAR(weight(Side::Left), kMass / 2, 0.1);
  EXPECT_NEAR(weight(Side::Right), kMass / 2, 0.1);
  EXPECT_LT(sut.speed(), 0.01);
  const Vector up = sut.acceleration();
  EXPECT_NEAR(length(up), Physics::kGravity, 0.1);
  EXPECT_NEAR(up[2], Physics::kGravity, 0.1);
}

TEST_F(PhysicsTest, ALimpRobotCollapses) {
  place("Stand", 0);
  const double height = sut.torso().position[2];
  pass(3);
  EXPECT_LT(sut.torso().position[2], height / 2);
}

TEST_F(PhysicsTest, ServosExertNoMoreThanTheirShareOfTorque) {
  place("Stand");
  const std::size_t knee = jointOf("LKneePitch");
  sut.drive(knee, 2.0, 0.25);
  double most = 0;
  for (int i = 0; i < 50; ++i) {
    sut.step();
    most = std::max(most, std::abs(sut.torque(knee)));
  }
  EXPECT_NEAR(most, 0.25 * sut.torqueLimit(knee), 1e-9);
}

TEST_F(PhysicsTest, OneMotorTurnsBothHips) {
  place("Back");
  const std::size_t hip = jointOf("LHipYawPitch");
  sut.drive(hip, -0.5, 1);
  pass(2);
  EXPECT_NEAR(sut.angle(hip), -0.5, 0.1);
  EXPECT_NEAR(sut.coupledAngle(), sut.angle(hip), 0.02);
}

TEST_F(PhysicsTest, APushTurnsTheRobotOver) {
  place("Stand");
  sut.push({30, 0, 0});
  pass(0.4);
  sut.push({});
  pass(2);
  EXPECT_LT(sut.torso().position[2], 0.1);
  EXPECT_LT(weight(Side::Left) + weight(Side::Right), 0.1);
  EXPECT_TRUE(sut.isBumperPressed(Side::Left, Side::Left));
  EXPECT_TRUE(sut.isBumperPressed(Side::Right, Side::Right));
}

TEST_F(PhysicsTest, ARobotThatIsCarriedWeighsNothing) {
  place("Stand");
  pass(1);
  sut.carry({0, 0, Physics::kGravity}, {});
  pass(1);
  EXPECT_LT(weight(Side::Left) + weight(Side::Right), 0.1);
  EXPECT_LT(sut.speed(), 0.2);
}

TEST_F(PhysicsTest, AnObstacleIsHeardOnItsSideAtItsDistance) {
  place("Stand");
  pass(1);
  EXPECT_TRUE(std::isinf(sut.echo(Side::Left)));
  sut.placeObstacle(Side::Left, 0.5);
  sut.step();
  EXPECT_NEAR(sut.echo(Side::Left), 0.5, 0.005);
  EXPECT_TRUE(std::isinf(sut.echo(Side::Right)));
  sut.placeObstacle(Side::Left, std::numeric_limits<double>::infinity());
  sut.step();
  EXPECT_TRUE(std::isinf(sut.echo(Side::Left)));
}

TEST_F(PhysicsTest, TheFloorIsHeardOnlyWhenTheChestFacesIt) {
  place("Belly");
  pass(1);
  EXPECT_LT(sut.echo(Side::Left), 0.2);
  place("Crouch");
  pass(1);
  EXPECT_TRUE(std::isinf(sut.echo(Side::Left)));
}

TEST_F(PhysicsTest, TheSameCallsGiveTheSameNumbers) {
  const auto fall = [this] {
    place("Stand");
    sut.push({0, 25, 0});
    pass(0.5);
    sut.push({});
    pass(2);
    return sut.torso().attitude;
  };
  const Rotation first = fall();
  EXPECT_EQ(fall(), first);
}
