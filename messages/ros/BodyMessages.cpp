#include "messages/ros/BodyMessages.h"

#include "messages/keys/DeviceKeys.h"
#include "messages/ros/Types.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

namespace gk::messages::ros {

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// The ultrasonic sensors: their reach, and the full width of their cones.
constexpr float kLeastRange = 0.25F;
constexpr float kConeWidth = 1.04F;
/// Emitters are on from this actuator value on; the orders are 68 and 32.
constexpr float kEmittersOn = 64.0F;

/// Standard gravity: what a kilogram weighs, N.
constexpr double kNewtons = 9.80665;
/// A foot with less on it carries nothing, kg.
constexpr double kLeastLoad = 0.1;

// Bits of the battery's status.
constexpr std::uint32_t kDischarging = 0x20;
constexpr std::uint32_t kFullCharged = 0x40;
constexpr std::uint32_t kCharging = 0x80;

KeyCell sensor(std::string_view device, std::string_view part = {}) {
  return KeyCell(deviceKey(std::string(device).append(part), "/Sensor/Value"));
}

template <class M> std::size_t addTopic(std::vector<Topic>& topics, std::string name,
                                        Profile profile, bool isGlobal = false) {
  topics.push_back({std::move(name), &typeOf<M>(), profile, isGlobal});
  return topics.size() - 1;
}

template <std::size_t N> std::array<KeyCell, N> axes(const char* quantity) {
  const auto key = [quantity](const char* axis) {
    return sensor(std::string("InertialSensor/").append(quantity).append(axis));
  };
  if constexpr (N == 2) {
    return {key("X"), key("Y")};
  } else {
    return {key("X"), key("Y"), key("Z")};
  }
}

/// All of them as numbers, or nothing.
template <std::size_t N>
std::optional<std::array<double, N>> numbersOf(const std::array<KeyCell, N>& keys) {
  std::array<double, N> numbers{};
  for (std::size_t i = 0; i < N; ++i) {
    const std::optional<float> number = keys[i].finite();
    if (!number) {
      return std::nullopt;
    }
    numbers[i] = *number;
  }
  return numbers;
}

/// Takes over what was measured, or marks that it was not.
void put(Vector3& target, Imu::Covariance& covariance,
         const std::optional<std::array<double, 3>>& measured) {
  covariance[0] = measured ? 0 : -1;
  const std::array<double, 3> numbers = measured.value_or(std::array<double, 3>{});
  target = {numbers[0], numbers[1], numbers[2]};
}

/// The one turn, about a level axis, that tilts the robot from upright.
Quaternion tilted(double x, double y) {
  const double angle = std::hypot(x, y);
  const double share = angle > 0 ? std::sin(angle / 2) / angle : 0;
  return {x * share, y * share, 0, std::cos(angle / 2)};
}

float rangeOf(float distance) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  if (std::isnan(distance)) {
    return distance;
  }
  return distance >= kNoEcho ? infinity : distance < kLeastRange ? -infinity : distance;
}

std::uint8_t statusOf(std::optional<std::int32_t> bits) {
  if (!bits) {
    return BatteryState::kStatusUnknown;
  }
  const auto status = static_cast<std::uint32_t>(*bits);
  return (status & kFullCharged) != 0   ? BatteryState::kFull
         : (status & kCharging) != 0    ? BatteryState::kCharging
         : (status & kDischarging) != 0 ? BatteryState::kDischarging
                                        : BatteryState::kNotCharging;
}

void put(Transform& target, const Link& link, double angle) {
  const Rotation turned = rotationOf(link, angle);
  target.translation = {link.origin[0], link.origin[1], link.origin[2]};
  target.rotation = {turned[0], turned[1], turned[2], turned[3]};
}

TransformStamped frameOf(const Link& link) {
  TransformStamped frame;
  frame.header.frame_id = robotLinks()[link.parent].name;
  frame.child_frame_id = link.name;
  put(frame.transform, link, 0);
  return frame;
}

/// The link that a joint turns.
const std::string& frameOf(std::string_view joint) {
  return std::ranges::find_if(
             robotLinks(),
             [joint](const Link& link) { return link.joint && link.joint->name == joint; })
      ->name;
}

} // namespace

BodyMessages::BodyMessages(std::vector<Topic>& topics, bool isTf)
    : fCoupledPosition(deviceKey(kCoupledJoint, "/Position/Sensor/Value")),
      fJointTopic(addTopic<JointState>(topics, "/joint_states", Profile::Stream)), fIsTf(isTf),
      fImuTopic(addTopic<Imu>(topics, "/imu/data", Profile::Stream)), fAngles(axes<2>("Angle")),
      fRates(axes<3>("Gyr")), fAccelerations(axes<3>("Acc")), fEmitter(kEmitterKey),
      fBatteryTopic(addTopic<BatteryState>(topics, "/battery_state", Profile::Latched)),
      fCharge(sensor("Battery/Charge")), fCurrent(sensor("Battery/Current")),
      fStatus(deviceKey("Battery", "/Charge/Sensor/Status")) {
  fPositions.reserve(jointNames().size());
  for (const std::string_view joint : jointNames()) {
    fPositions.emplace_back(deviceKey(joint, "/Position/Sensor/Value"));
    Motor motor{
        addTopic<Temperature>(topics, std::string("/temperature/").append(joint), Profile::Latched),
        KeyCell(deviceKey(joint, "/Temperature/Sensor/Value")),
        {}};
    motor.message.header.frame_id = frameOf(joint);
    fMotors.push_back(std::move(motor));
  }
  fImu.header.frame_id = kImuFrame;
  fBattery.header.frame_id = kRootFrame;
  fBattery.voltage = fBattery.temperature = kNaN;
  fBattery.charge = fBattery.capacity = fBattery.design_capacity = kNaN;
  fBattery.present = true;

  constexpr std::array<std::string_view, 2> sides = {"Left", "Right"};
  constexpr std::array<std::string_view, 2> sonarTopics = {"/sonar/left", "/sonar/right"};
  constexpr std::array<std::string_view, 2> footTopics = {"/l_foot/", "/r_foot/"};
  for (std::size_t side = 0; side < sides.size(); ++side) {
    Sonar sonar{addTopic<Range>(topics, std::string(sonarTopics[side]), Profile::Stream),
                sensor("US/", sides[side]),
                {}};
    sonar.message.header.frame_id = kSonarFrames[side];
    sonar.message.field_of_view = kConeWidth;
    sonar.message.min_range = kLeastRange;
    sonar.message.max_range = kNoEcho;
    fSonars.push_back(std::move(sonar));

    const std::string device = std::string(sides[side].substr(0, 1)).append("Foot/FSR/");
    const std::string topic(footTopics[side]);
    Foot foot{addTopic<WrenchStamped>(topics, topic + "wrench", Profile::Stream),
              addTopic<PointStamped>(topics, topic + "cop", Profile::Stream),
              {},
              sensor(device, "TotalWeight"),
              {},
              {}};
    for (const std::string_view cell : kForceCells) {
      foot.cells.push_back(sensor(device, cell));
    }
    foot.wrench.header.frame_id = foot.pressure.header.frame_id = kSoleFrames[side];
    fFeet.push_back(std::move(foot));
  }

  if (!fIsTf) {
    return;
  }
  fFramesTopic = addTopic<TFMessage>(topics, "/tf", Profile::Burst, true);
  fFixedTopic = addTopic<TFMessage>(topics, "/tf_static", Profile::Latched, true);
  const auto position = [this](std::string_view joint) -> const KeyCell* {
    const auto found = std::ranges::find(jointNames(), joint);
    return found != jointNames().end()
               ? &fPositions[static_cast<std::size_t>(found - jointNames().begin())]
               : &fCoupledPosition;
  };
  for (std::size_t i = 1; i < robotLinks().size(); ++i) {
    const Link& link = robotLinks()[i];
    if (link.joint) {
      fFrames.push_back({i, position(link.joint->name),
                         link.joint->mimics.empty() ? nullptr : position(link.joint->mimics)});
    } else {
      fFixed.transforms.push_back(frameOf(link));
    }
  }
}

void BodyMessages::lookForKeys(const GK::GKMemoryStore& store) {
  const auto look = [&store](auto& keys) {
    for (KeyCell& key : keys) {
      key.lookFor(store);
    }
  };
  look(fPositions);
  fCoupledPosition.lookFor(store);
  look(fAngles);
  look(fRates);
  look(fAccelerations);
  for (Sonar& sonar : fSonars) {
    sonar.distance.lookFor(store);
  }
  for (KeyCell* key : {&fCharge, &fCurrent, &fStatus}) {
    key->lookFor(store);
  }
  for (Foot& foot : fFeet) {
    look(foot.cells);
    foot.total.lookFor(store);
  }
  for (Motor& motor : fMotors) {
    motor.temperature.lookFor(store);
  }
}

void BodyMessages::sendStreams(const GK::GKMemoryStore& store, const Outlet& out) {
  xSendJoints(out);
  if (fIsTf) {
    xSendFrames(out);
  }
  xSendImu(out);
  xSendRanges(store, out);
  if (out.wants(fBatteryTopic)) {
    xSendBattery(out);
  }
  xSendFeet(out);
}

void BodyMessages::sendTemperatures(const Outlet& out) {
  for (std::size_t joint = 0; joint < fMotors.size(); ++joint) {
    if (out.wants(fMotors[joint].topic)) {
      xSendTemperature(joint, out);
    }
  }
}

void BodyMessages::sendFixedFrames(const Outlet& out) {
  if (!fIsTf || !out.wants(fFixedTopic)) {
    return;
  }
  for (TransformStamped& frame : fFixed.transforms) {
    frame.header.stamp = out.stamp();
  }
  out.send(fFixedTopic, fFixed);
}

void BodyMessages::sendLatched(std::size_t topic, const Outlet& out) {
  if (topic == fBatteryTopic) {
    xSendBattery(out);
  } else if (fIsTf && topic == fFixedTopic) {
    sendFixedFrames(out);
  } else {
    const auto motor = std::ranges::find(fMotors, topic, &Motor::topic);
    if (motor != fMotors.end()) {
      xSendTemperature(static_cast<std::size_t>(motor - fMotors.begin()), out);
    }
  }
}

void BodyMessages::xSendJoints(const Outlet& out) {
  if (!out.wants(fJointTopic)) {
    return;
  }
  std::size_t count = 0;
  for (std::size_t i = 0; i < fPositions.size(); ++i) {
    const std::optional<float> position = fPositions[i].number();
    if (!position) {
      continue;
    }
    if (count == fJoints.name.size()) {
      fJoints.name.emplace_back();
      fJoints.position.emplace_back();
    }
    fJoints.name[count] = jointNames()[i];
    fJoints.position[count] = *position;
    ++count;
  }
  fJoints.name.resize(count);
  fJoints.position.resize(count);
  if (count > 0) {
    fJoints.header.stamp = out.stamp();
    out.send(fJointTopic, fJoints);
  }
}

void BodyMessages::xSendFrames(const Outlet& out) {
  if (!out.wants(fFramesTopic)) {
    return;
  }
  std::size_t count = 0;
  for (const Frame& frame : fFrames) {
    std::optional<float> angle = frame.position->finite();
    if (!angle && frame.instead != nullptr) {
      angle = frame.instead->finite();
    }
    if (!angle) {
      continue;
    }
    if (count == fTurned.transforms.size()) {
      fTurned.transforms.emplace_back();
    }
    const Link& link = robotLinks()[frame.link];
    TransformStamped& transform = fTurned.transforms[count++];
    transform.header.stamp = out.stamp();
    transform.header.frame_id = robotLinks()[link.parent].name;
    transform.child_frame_id = link.name;
    put(transform.transform, link, *angle);
  }
  fTurned.transforms.resize(count);
  if (count > 0) {
    out.send(fFramesTopic, fTurned);
  }
}

void BodyMessages::xSendImu(const Outlet& out) {
  if (!out.wants(fImuTopic)) {
    return;
  }
  const auto angles = numbersOf(fAngles);
  const auto rates = numbersOf(fRates);
  const auto accelerations = numbersOf(fAccelerations);
  if (!angles && !rates && !accelerations) {
    return;
  }
  fImu.header.stamp = out.stamp();
  fImu.orientation = angles ? tilted((*angles)[0], (*angles)[1]) : Quaternion{};
  fImu.orientation_covariance[0] = angles ? 0 : -1;
  put(fImu.angular_velocity, fImu.angular_velocity_covariance, rates);
  put(fImu.linear_acceleration, fImu.linear_acceleration_covariance, accelerations);
  out.send(fImuTopic, fImu);
}

void BodyMessages::xSendRanges(const GK::GKMemoryStore& store, const Outlet& out) {
  // The key comes with the first order to the emitters; the next tick already tells what it says.
  fEmitter.lookFor(store);
  if (fEmitter.number().value_or(kEmittersOn) < kEmittersOn) {
    return;
  }
  for (Sonar& sonar : fSonars) {
    const std::optional<float> distance = sonar.distance.number();
    if (distance && out.wants(sonar.topic)) {
      sonar.message.header.stamp = out.stamp();
      sonar.message.range = rangeOf(*distance);
      out.send(sonar.topic, sonar.message);
    }
  }
}

void BodyMessages::xSendBattery(const Outlet& out) {
  const std::optional<float> charge = fCharge.number();
  const std::optional<float> current = fCurrent.number();
  if (!charge && !current) {
    return;
  }
  fBattery.header.stamp = out.stamp();
  fBattery.percentage = charge.value_or(kNaN);
  fBattery.current = current.value_or(kNaN);
  fBattery.power_supply_status = statusOf(fStatus.integer());
  out.send(fBatteryTopic, fBattery);
}

void BodyMessages::xSendFeet(const Outlet& out) {
  for (std::size_t side = 0; side < fFeet.size(); ++side) {
    Foot& foot = fFeet[side];
    // Load in kg, and its moments about the sole's x and y axes as lever times load.
    double load = 0;
    double aside = 0;
    double ahead = 0;
    bool hasCells = true;
    for (std::size_t i = 0; i < foot.cells.size(); ++i) {
      const std::optional<float> weight = foot.cells[i].finite();
      hasCells = hasCells && weight.has_value();
      const double kilograms = weight.value_or(0.0F);
      load += kilograms;
      ahead += kilograms * cellPlaces(side)[i][0];
      aside += kilograms * cellPlaces(side)[i][1];
    }
    if (!hasCells) {
      const std::optional<float> total = foot.total.finite();
      if (!total) {
        continue;
      }
      load = *total;
      ahead = aside = 0;
    }
    if (out.wants(foot.wrenchTopic)) {
      foot.wrench.header.stamp = out.stamp();
      foot.wrench.wrench.force.z = kNewtons * load;
      foot.wrench.wrench.torque.x = kNewtons * aside;
      foot.wrench.wrench.torque.y = -kNewtons * ahead;
      out.send(foot.wrenchTopic, foot.wrench);
    }
    if (hasCells && load >= kLeastLoad && out.wants(foot.pressureTopic)) {
      foot.pressure.header.stamp = out.stamp();
      foot.pressure.point = {ahead / load, aside / load, 0};
      out.send(foot.pressureTopic, foot.pressure);
    }
  }
}

void BodyMessages::xSendTemperature(std::size_t joint, const Outlet& out) {
  Motor& motor = fMotors[joint];
  if (const std::optional<float> temperature = motor.temperature.number()) {
    motor.message.header.stamp = out.stamp();
    motor.message.temperature = *temperature;
    out.send(motor.topic, motor.message);
  }
}

} // namespace gk::messages::ros
