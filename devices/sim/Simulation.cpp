#include "devices/sim/Simulation.h"

#include "devices/sim/Cells.h"
#include "messages/keys/DeviceKeys.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

namespace gk::devices {

namespace {

constexpr double kSecondsPerMicro = 1e-6;
constexpr double kFrameSeconds = static_cast<double>(Simulation::kFrame) * kSecondsPerMicro;
// Rounded at compile time. NOLINTNEXTLINE(bugprone-incorrect-roundings)
constexpr int kSteps = static_cast<int>(kFrameSeconds / Physics::kStep + 0.5);
/// Frames that the robot has to come to rest before anybody sees it.
constexpr int kFramesToRest = 60;

/// Current of a servo for each N m that it exerts, A.
constexpr double kCurrentPerTorque = 0.35;

// Standard deviations and step sizes of the sensors.
constexpr double kAngleNoise = 0.0008;                     // rad
constexpr double kAngleStep = 2 * std::numbers::pi / 4096; // rad, encoders of 12 bits
constexpr double kWeightNoise = 0.008;                     // kg
constexpr double kWeightStep = 0.01;                       // kg
constexpr double kAccelerationNoise = 0.06;                // m/s^2
constexpr double kAccelerationStep = 9.80665 / 256;        // m/s^2
constexpr double kRateNoise = 0.005;                       // rad/s
constexpr double kRateStep = 0.005;                        // rad/s
constexpr double kInclinationStep = 0.001;                 // rad
constexpr double kDistanceNoise = 0.003;                   // m
constexpr double kDistanceStep = 0.01;                     // m
constexpr double kCurrentNoise = 0.004;                    // A
constexpr double kCurrentStep = 0.002;                     // A
constexpr double kTemperatureStep = 1.0;                   // degC
constexpr double kChargeStep = 0.00001;                    // of a full battery
constexpr double kBatteryCurrentStep = 0.02;               // A
constexpr double kSpeedStep = 0.005;                       // m/s
/// How long a bumper's spring keeps its switch closed after the last contact, s.
constexpr double kBumperRelease = 0.1;
/// Nearest distance that an ultrasonic sensor tells, m.
constexpr double kShortestEcho = 0.05;
/// Emitters are on from this actuator value on; the orders are 68 and 32.
constexpr float kEmittersOn = 64.0F;

// The hoist under the keys' control.
constexpr double kHoistSpeed = 0.25; // m/s
constexpr double kHoistTake = 0.3;   // s
constexpr double kHoistLetGo = 0.1;  // s
/// Share of the way to upright that a hanging robot turns each frame.
constexpr double kHoistTurn = 0.06;

} // namespace

Simulation::Simulation(std::shared_ptr<GK::GKMemoryStore> store, const SimulationOptions& options)
    : fStore(store), fNoise(options.seed, options.isNoisy), fWorld(store),
      fPlayer(store, fPhysics, fHarness) {
  fObstacles.fill(std::numeric_limits<double>::infinity());
}

void Simulation::start() {
  fWorld.bind();
  fPlayer.bind();
  xBind();
  const GK::GKValue name = fStore->get(messages::kPostureKey).value_or(GK::GKValue());
  const Posture* posture =
      name.type() == GK::GKValue::Type::String ? findPosture(name.toString()) : nullptr;
  fWorld.takeOrder();
  fPlayer.place(posture != nullptr ? *posture : postures().front());
  for (int frame = 0; frame < kFramesToRest; ++frame) {
    xDrive();
    xSteps();
  }
  fInertia.align(fPhysics.acceleration());
  xWarm();
  xWriteAll();
}

void Simulation::xBind() {
  const auto find = [this](const std::string& key) { return fStore->find(key); };
  const auto sensor = [&find](const std::string& device) {
    return find(messages::deviceKey(device, "/Sensor/Value"));
  };
  for (std::size_t i = 0; i < messages::jointNames().size(); ++i) {
    const std::string_view name = messages::jointNames()[i];
    fJoints.push_back({find(messages::deviceKey(name, "/Position/Actuator/Value")),
                       find(messages::deviceKey(name, "/Hardness/Actuator/Value")),
                       find(messages::deviceKey(name, "/Position/Sensor/Value")),
                       find(messages::deviceKey(name, "/ElectricCurrent/Sensor/Value")),
                       find(messages::deviceKey(name, "/Temperature/Sensor/Value")),
                       Servo(kCurrentPerTorque * fPhysics.torqueLimit(i), fWorld.ambient())});
  }
  for (const messages::MotorBoard& board : messages::motorBoards()) {
    fBoards.push_back({find(messages::boardErrorKey(board.name)), {}});
    for (const std::string_view joint : board.joints) {
      const auto found = std::ranges::find(messages::jointNames(), joint);
      if (found != messages::jointNames().end()) {
        fBoards.back().joints.push_back(
            static_cast<std::size_t>(found - messages::jointNames().begin()));
      }
    }
  }
  constexpr const char* feet[] = {"LFoot/FSR/", "RFoot/FSR/"};
  constexpr const char* cells[] = {"FrontLeft", "FrontRight", "RearLeft", "RearRight"};
  constexpr const char* sides[] = {"Left", "Right"};
  for (std::size_t side = 0; side < kSides.size(); ++side) {
    for (std::size_t cell = 0; cell < kCells; ++cell) {
      fFeet[side].cells[cell] = sensor(std::string(feet[side]) + cells[cell]);
    }
    fFeet[side].total = sensor(std::string(feet[side]) + "TotalWeight");
    fDistances[side] = sensor(std::string("US/") + sides[side]);
  }
  constexpr const char* axes[] = {"X", "Y", "Z"};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    fAccelerations[axis] = sensor(std::string("InertialSensor/Acc") + axes[axis]);
    fRates[axis] = sensor(std::string("InertialSensor/Gyr") + axes[axis]);
  }
  fAngles = {sensor("InertialSensor/AngleX"), sensor("InertialSensor/AngleY")};
  for (const std::string_view touch : messages::touchSensors()) {
    fTouches.push_back(sensor(std::string(touch)));
  }
  fEmitters = find(messages::kEmitterKey);
  fCoupled = find(messages::deviceKey(messages::kCoupledJoint, "/Position/Sensor/Value"));
  fCharge = sensor("Battery/Charge");
  fCurrent = sensor("Battery/Current");
  fStatus = find(messages::deviceKey("Battery", "/Charge/Sensor/Status"));
  fCellVoltage = find(messages::deviceKey("Battery", "/Charge/Sensor/CellVoltageMin"));
  fMoving = find(messages::kMovingKey);
  fSpeed = find(messages::kSpeedKey);
}

void Simulation::advance(GK::GKMicros now) {
  fNext += kFrame;
  if (now - fNext > kPatience) {
    // Too late to catch up: the machine was busy or asleep.
    fNext = now + kFrame;
  }
  fWorld.read();
  if (const Posture* posture = fWorld.takeOrder()) {
    fPlayer.order(*posture);
    fIsHoisted = false;
  }
  fPlayer.advance(kFrameSeconds, fInertia);
  xHoist();
  for (const Side side : kSides) {
    const double distance = fWorld.obstacle(side);
    // Once put, an obstacle stays where it is.
    if (std::exchange(fObstacles[static_cast<std::size_t>(side)], distance) != distance) {
      fPhysics.placeObstacle(side, distance);
    }
  }
  fPhysics.push(fWorld.push());
  xDrive();
  xSteps();
  xWarm();
  xWriteAll();
}

void Simulation::xDrive() {
  for (std::size_t i = 0; i < fJoints.size(); ++i) {
    Joint& joint = fJoints[i];
    joint.lastTarget = numberIn(joint.target, joint.lastTarget);
    joint.lastStiffness = std::clamp(numberIn(joint.stiffness, joint.lastStiffness), 0.0, 1.0);
    fPhysics.drive(i, joint.lastTarget, joint.lastStiffness * joint.servo.allowedShare());
  }
}

void Simulation::xHoist() {
  if (fPlayer.isMoving()) {
    return;
  }
  if (!fWorld.isHeld()) {
    if (std::exchange(fIsHoisted, false)) {
      fHarness.grip(0, kHoistLetGo);
    }
    return;
  }
  if (!std::exchange(fIsHoisted, true)) {
    const TorsoState torso = fPhysics.torso();
    fHoistPlace = torso.position;
    fHoistAttitude = torso.attitude;
    fHarness.grip(1, kHoistTake);
  }
  const double way = fWorld.hoistHeight() - fHoistPlace[2];
  constexpr double reach = kHoistSpeed * kFrameSeconds;
  fHoistPlace[2] += std::clamp(way, -reach, reach);
  fHoistAttitude = between(fHoistAttitude, kNoRotation, kHoistTurn);
  fHarness.guide(fHoistPlace, fHoistAttitude);
}

void Simulation::xSteps() {
  for (Joint& joint : fJoints) {
    joint.squaredLoad = 0;
  }
  for (int step = 0; step < kSteps; ++step) {
    fHarness.apply(fPhysics, Physics::kStep);
    fPhysics.step();
    xFeelBumpers();
    fAcceleration = fPhysics.acceleration();
    fRate = fPhysics.rotationRate();
    for (std::size_t axis = 0; axis < 3; ++axis) {
      fAcceleration[axis] += fNoise.of(kAccelerationNoise);
      fRate[axis] += fNoise.of(kRateNoise);
    }
    fInertia.measure(fAcceleration, fRate, Physics::kStep);
    for (std::size_t i = 0; i < fJoints.size(); ++i) {
      const double load = fPhysics.torque(i) / fPhysics.torqueLimit(i);
      fJoints[i].squaredLoad += load * load / kSteps;
    }
  }
}

void Simulation::xFeelBumpers() {
  std::size_t bumper = 0;
  for (const Side foot : kSides) {
    for (const Side side : kSides) {
      double& time = fBumperTime[bumper++];
      time = fPhysics.isBumperPressed(foot, side) ? kBumperRelease
                                                  : std::max(0.0, time - Physics::kStep);
    }
  }
}

void Simulation::xWarm() {
  double motors = 0;
  for (Joint& joint : fJoints) {
    joint.servo.advance(kFrameSeconds, std::sqrt(joint.squaredLoad), fWorld.ambient());
    motors += joint.servo.current();
  }
  fBattery.advance(kFrameSeconds, motors, fWorld.isPlugged());
}

void Simulation::xWriteAll() {
  xWriteJoints();
  xWriteFeet();
  xWriteTouches();
  xWriteInertia();
  xWriteSonar();
  xWriteBattery();
  if (fMoving != nullptr) {
    fMoving->store(fPlayer.isMoving());
  }
  put(fSpeed, fNoise.inSteps(fPhysics.speed(), kSpeedStep));
}

void Simulation::xWriteJoints() {
  const auto measured = [this](double angle) {
    return fNoise.inSteps(angle + fNoise.of(kAngleNoise), kAngleStep);
  };
  for (std::size_t i = 0; i < fJoints.size(); ++i) {
    const Joint& joint = fJoints[i];
    put(joint.position, measured(fPhysics.angle(i)));
    const double current = joint.servo.current() + fNoise.of(kCurrentNoise);
    put(joint.current, std::max(0.0, fNoise.inSteps(current, kCurrentStep)));
    put(joint.temperature, fNoise.inSteps(joint.servo.temperature(), kTemperatureStep));
  }
  put(fCoupled, measured(fPhysics.coupledAngle()));
  for (const Board& board : fBoards) {
    std::int32_t error = 0;
    for (const std::size_t joint : board.joints) {
      error = std::max(error, fJoints[joint].servo.error());
    }
    putInt(board.error, error);
  }
}

void Simulation::xWriteFeet() {
  for (const Side side : kSides) {
    const Foot& foot = fFeet[static_cast<std::size_t>(side)];
    double total = 0;
    for (std::size_t cell = 0; cell < kCells; ++cell) {
      const double weight = fPhysics.cellForce(side, static_cast<Cell>(cell)) / Physics::kGravity;
      const double measured =
          std::max(0.0, fNoise.inSteps(weight + fNoise.of(kWeightNoise), kWeightStep));
      put(foot.cells[cell], measured);
      total += measured;
    }
    put(foot.total, total);
  }
}

void Simulation::xWriteTouches() {
  for (std::size_t i = 0; i < fTouches.size(); ++i) {
    const bool isPressed = i < kBumpers && fBumperTime[i] > 0;
    put(fTouches[i], isPressed || fWorld.isTouched(i) ? 1.0 : 0.0);
  }
}

void Simulation::xWriteInertia() {
  put(fAngles[0], fNoise.inSteps(fInertia.angleX(), kInclinationStep));
  put(fAngles[1], fNoise.inSteps(fInertia.angleY(), kInclinationStep));
  for (std::size_t axis = 0; axis < 3; ++axis) {
    put(fAccelerations[axis], fNoise.inSteps(fAcceleration[axis], kAccelerationStep));
    put(fRates[axis], fNoise.inSteps(fRate[axis], kRateStep));
  }
}

void Simulation::xWriteSonar() {
  const bool isOn = numberIn(fEmitters, 0) >= kEmittersOn;
  for (const Side side : kSides) {
    double distance = messages::kNoEcho;
    if (isOn) {
      const double echo = fPhysics.echo(side);
      if (echo < messages::kNoEcho) {
        distance = std::clamp(fNoise.inSteps(echo + fNoise.of(kDistanceNoise), kDistanceStep),
                              kShortestEcho, static_cast<double>(messages::kNoEcho));
      }
    }
    put(fDistances[static_cast<std::size_t>(side)], distance);
  }
}

void Simulation::xWriteBattery() {
  put(fCharge, fNoise.inWholeSteps(fBattery.charge(), kChargeStep));
  put(fCurrent, fNoise.inSteps(fBattery.current(), kBatteryCurrentStep));
  putInt(fStatus, fBattery.status());
  putInt(fCellVoltage, fBattery.cellVoltage());
}

} // namespace gk::devices
