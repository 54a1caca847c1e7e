#include "devices/DeviceLayer.h"
#include "devices/sim/Simulation.h"
#include "messages/keys/DeviceKeys.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

using namespace gk::devices;
using namespace gk::messages;
using GK::GKValue;

namespace {

constexpr double kUprightLimit = 0.1; // rad

/// A simulated robot and its keys, without modules.
class Robot {
public:
  explicit Robot(const SimulationOptions& options = {}, const std::string& unset = {})
      : fSimulation(fStore, options) {
    DeviceLayer layer(fStore, simulatedKeys());
    if (!unset.empty()) {
      layer.unset(unset);
    }
    layer.publish();
    fSimulation.start();
  }

  /// Writes as a client would; what is refused fails the test.
  void set(const std::string& key, const GKValue& value) {
    if (key.starts_with(World::kPrefix)) {
      EXPECT_EQ(fSimulation.admit(key, value), "");
    }
    fStore->set(key, value);
  }

  void pass(double seconds) {
    for (double time = 0; time < seconds; time += 0.02) {
      fSimulation.advance(fSimulation.next());
    }
  }

  /// Until the posture player has done its work and a little longer.
  void moveTo(const char* posture) {
    set(kPostureKey, posture);
    do {
      pass(0.02);
    } while (fStore->get(kMovingKey)->toBool());
    pass(0.5);
  }

  void setStiffness(float stiffness) {
    for (const std::string_view joint : jointNames()) {
      set(deviceKey(joint, "/Hardness/Actuator/Value"), stiffness);
    }
  }

  double number(const std::string& key) const { return fStore->get(key)->toFloat(); }
  double sensor(const std::string& device) const {
    return number(deviceKey(device, "/Sensor/Value"));
  }
  double weight() const {
    return sensor("LFoot/FSR/TotalWeight") + sensor("RFoot/FSR/TotalWeight");
  }
  double lean() const {
    return std::hypot(sensor("InertialSensor/AngleX"), sensor("InertialSensor/AngleY"));
  }
  std::vector<GKValue> all() const {
    std::vector<GKValue> values;
    for (const DeviceKey& key : simulatedKeys()) {
      values.push_back(*fStore->get(key.name));
    }
    return values;
  }

  GK::GKMemoryStore& store() { return *fStore; }
  Simulation& simulation() { return fSimulation; }

private:
  std::shared_ptr<GK::GKMemoryStore> fStore = std::make_shared<GK::GKMemoryStore>();
  Simulation fSimulation;
};

} // namespace

TEST(Simulation, TheRobotStandsStiffBeforeAnythingElseHappens) {
  const Robot sut;
  EXPECT_EQ(sut.number(kIsStandKey), 1.0);
  EXPECT_EQ(sut.number(deviceKey("LKneePitch", "/Hardness/Actuator/Value")), 1.0);
  EXPECT_NEAR(sut.weight(), 4.5, 0.2);
  EXPECT_LT(sut.lean(), kUprightLimit);
  EXPECT_EQ(sut.number(kSpeedKey) < 0.02, true);
  EXPECT_EQ(sut.sensor("US/Left"), 2.55F);
  EXPECT_GT(sut.number(deviceKey("LKneePitch", "/ElectricCurrent/Sensor/Value")), 0);
}

TEST(Simulation, KeepsEveryKeysType) {
  Robot sut;
  sut.pass(0.1);
  for (const DeviceKey& key : simulatedKeys()) {
    EXPECT_EQ(sut.store().get(key.name)->type(), key.start.type()) << key.name;
  }
}

TEST(Simulation, WritesNothingButKeysOfTheTable) {
  Robot sut;
  sut.set(kPushXKey, 30.0F);
  sut.pass(2);
  for (const std::string& name : sut.store().keys()) {
    EXPECT_NE(findDeviceKey(name), nullptr) << name;
  }
}

TEST(Simulation, KeysThatAreNotProvidedStayAway) {
  Robot sut({}, "Device/SubDeviceList/H*");
  sut.pass(0.1);
  EXPECT_EQ(sut.store().find(deviceKey("HeadYaw", "/Hardness/Actuator/Value")), nullptr);
  EXPECT_NEAR(sut.weight(), 4.5, 0.2);
}

TEST(Simulation, ATouchIsThereInTheSameFrame) {
  Robot sut;
  for (const std::string_view touch : touchSensors()) {
    sut.set(touchKey(touch), true);
    sut.pass(0.02);
    EXPECT_EQ(sut.sensor(std::string(touch)), 1.0) << touch;
    sut.set(touchKey(touch), false);
    sut.pass(0.02);
    EXPECT_EQ(sut.sensor(std::string(touch)), 0.0) << touch;
  }
}

TEST(Simulation, HearsObstaclesWhileTheEmittersAreOn) {
  Robot sut;
  sut.set(kRightObstacleKey, 0.6F);
  sut.pass(0.1);
  EXPECT_EQ(sut.sensor("US/Right"), 2.55F);
  sut.set(kEmitterKey, 68.0F);
  sut.pass(0.1);
  EXPECT_NEAR(sut.sensor("US/Right"), 0.6, 0.03);
  EXPECT_EQ(sut.sensor("US/Left"), 2.55F);
  sut.set(kEmitterKey, 32.0F);
  sut.pass(0.02);
  EXPECT_EQ(sut.sensor("US/Right"), 2.55F);
}

TEST(Simulation, TheHoistLiftsTheRobotAndLetsItDown) {
  Robot sut;
  sut.set(kHoistHeightKey, 0.45F);
  sut.set(kHoistHoldKey, true);
  sut.pass(1.5);
  EXPECT_LT(sut.weight(), 0.2);
  sut.set(kHoistHeightKey, 0.3F);
  sut.pass(1.0);
  sut.set(kHoistHoldKey, false);
  sut.pass(1.0);
  EXPECT_NEAR(sut.weight(), 4.5, 0.2);
  EXPECT_LT(sut.lean(), kUprightLimit);
  EXPECT_EQ(sut.number(kIsStandKey), 1.0);
}

TEST(Simulation, ARobotThatIsDroppedFalls) {
  Robot sut;
  sut.set(kHoistHeightKey, 1.0F);
  sut.set(kHoistHoldKey, true);
  sut.pass(4);
  sut.setStiffness(0);
  sut.set(kHoistHoldKey, false);
  sut.pass(3);
  EXPECT_GT(sut.lean(), 1.0);
}

TEST(Simulation, APushedRobotFallsAndNobodyKeepsItStanding) {
  Robot sut;
  sut.set(kPushXKey, 30.0F);
  sut.pass(0.3);
  sut.set(kPushXKey, 0.0F);
  sut.pass(2);
  EXPECT_GT(sut.sensor("InertialSensor/AngleY"), 1.2);
  EXPECT_EQ(sut.number(kIsStandKey), 0.0);
  EXPECT_EQ(sut.sensor("LFoot/Bumper/Left"), 1.0);
}

TEST(Simulation, AStandingRobotWithoutStiffnessCollapses) {
  Robot sut;
  sut.setStiffness(0);
  sut.pass(3);
  EXPECT_EQ(sut.number(kIsStandKey), 0.0);
  EXPECT_LT(sut.weight(), 4.0);
  EXPECT_EQ(sut.number(deviceKey("LKneePitch", "/ElectricCurrent/Sensor/Value")) < 0.05, true);
}

TEST(Simulation, StandsUpAgainWhateverHappened) {
  Robot sut;
  for (const char* posture : {"Belly", "HeadBack", "Left"}) {
    sut.moveTo(posture);
    EXPECT_GT(sut.lean(), 1.0) << posture;
    EXPECT_EQ(sut.number(kIsStandKey), 0.0) << posture;
    sut.moveTo("Stand");
    EXPECT_LT(sut.lean(), kUprightLimit) << posture;
    EXPECT_NEAR(sut.weight(), 4.5, 0.2) << posture;
    EXPECT_EQ(sut.number(kIsStandKey), 1.0) << posture;
  }
}

TEST(Simulation, AnOrderOnTheWayReplacesTheOneBefore) {
  Robot sut;
  sut.set(kPostureKey, "Belly");
  sut.pass(1);
  sut.moveTo("Sit");
  EXPECT_LT(sut.lean(), 0.6);
  EXPECT_NEAR(sut.sensor("LHipPitch/Position"), -1.57, 0.1);
}

TEST(Simulation, StartsInThePostureAskedForBeforeLoading) {
  const auto store = std::make_shared<GK::GKMemoryStore>();
  DeviceLayer layer(store, simulatedKeys());
  layer.set(kPostureKey, "Back");
  layer.publish();
  Simulation sut(store, {});
  sut.start();
  EXPECT_LT(store->get(deviceKey("InertialSensor/AngleY", "/Sensor/Value"))->toFloat(), -1.2F);
}

TEST(Simulation, AJointAgainstItsStopGetsHotAndCoolsDown) {
  Robot sut;
  const std::string error = boardErrorKey("HeadBoard");
  sut.set(deviceKey("HeadYaw", "/Position/Actuator/Value"), 3.0F);
  sut.pass(20);
  EXPECT_EQ(sut.store().get(error)->toInt(), 33);
  EXPECT_GE(sut.number(deviceKey("HeadYaw", "/Temperature/Sensor/Value")), 74);
  sut.pass(20);
  EXPECT_GE(sut.store().get(error)->toInt(), 34);
  sut.set(deviceKey("HeadYaw", "/Position/Actuator/Value"), 0.0F);
  sut.pass(40);
  EXPECT_EQ(*sut.store().get(error), GKValue(0));
}

TEST(Simulation, TheRoomWarmsTheRobot) {
  Robot sut;
  const std::string temperature = deviceKey("LHand", "/Temperature/Sensor/Value");
  EXPECT_NEAR(sut.number(temperature), 30, 1);
  sut.set(kAmbientKey, 40.0F);
  sut.pass(120);
  EXPECT_NEAR(sut.number(temperature), 40, 1.5);
}

TEST(Simulation, TheChargerShowsInTheStatusWord) {
  Robot sut;
  const std::string status = deviceKey("Battery", "/Charge/Sensor/Status");
  EXPECT_EQ(*sut.store().get(status), GKValue(0x20));
  EXPECT_LT(sut.sensor("Battery/Current"), 0);
  sut.set(kChargerKey, true);
  sut.pass(0.02);
  EXPECT_EQ(*sut.store().get(status), GKValue(0x40));
  EXPECT_EQ(sut.sensor("Battery/Current"), 0);
}

TEST(Simulation, TheSeedDecidesAboutTheNoiseAndNothingElse) {
  const auto valuesAfter = [](const SimulationOptions& options) {
    Robot robot(options);
    robot.set(kPushYKey, 30.0F);
    robot.pass(1);
    return robot.all();
  };
  EXPECT_EQ(valuesAfter({.seed = 1}), valuesAfter({.seed = 1}));
  EXPECT_NE(valuesAfter({.seed = 1}), valuesAfter({.seed = 2}));
  EXPECT_EQ(valuesAfter({.seed = 1, .isNoisy = false}), valuesAfter({.seed = 2, .isNoisy = false}));
}

TEST(Simulation, ATimeThatIsTooLateIsNotCaughtUpWith) {
  Robot sut;
  Simulation& simulation = sut.simulation();
  const GK::GKMicros late = simulation.next() + Simulation::kFrame + Simulation::kPatience;
  simulation.advance(late);
  EXPECT_EQ(simulation.next(), late - Simulation::kPatience);
  simulation.advance(late + 1'000'000);
  EXPECT_EQ(simulation.next(), late + 1'000'000 + Simulation::kFrame);
}
