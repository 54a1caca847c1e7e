#include "devices/sim/Physics.h"

#include "devices/sim/EngineModel.h"
#include "gk/GKError.h"
#include "messages/keys/DeviceKeys.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <mujoco/mujoco.h>
#include <string>

namespace gk::devices {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// A bumper closes at this force, N.
constexpr double kBumperForce = 0.3;

/// Half angles of an emitter's cone, rad: the two cones overlap ahead.
constexpr double kConeHalfWidth = 0.52;
constexpr double kConeHalfHeight = 0.17;
constexpr int kRaysAcross = 9;
constexpr int kRaysUp = 3;
/// Sound that hits the floor at a larger angle from its normal (as cosine) does not come back.
constexpr double kEchoCosine = 0.64;
/// Direction in which an obstacle stands, seen from its emitter: within one cone only. rad.
constexpr double kObstacleBearing = 0.62;
/// Where obstacles are kept that are not there, m.
constexpr double kFarAway = 50.0;

constexpr const char* kSideNames[] = {"Left", "Right"};
constexpr const char* kSideLetters[] = {"L", "R"};
constexpr const char* kCellNames[] = {"FrontLeft", "FrontRight", "RearLeft", "RearRight"};

constexpr std::size_t at(Side side) {
  return static_cast<std::size_t>(side);
}

Vector vectorAt(const mjtNum* numbers) {
  return {numbers[0], numbers[1], numbers[2]};
}

} // namespace

/// The engine's model and state, and the places of what we ask it for.
struct Physics::Engine {
  struct Joint {
    int position; // in qpos
    int velocity; // in qvel
    int actuator;
    int joint;
    double limit; // N m
  };

  Engine();

  int find(int kind, const std::string& name) const {
    const int id = mj_name2id(model.get(), kind, name.c_str());
    if (id < 0) {
      throw GK::GKError("Physics", "Physics", "robot.xml has no " + name);
    }
    return id;
  }

  /// Sums up the forces on single geometries.
  void collectForces();
  /// What the inertial unit measures. `velocity`: of the torso's joint, when the step began.
  void measure(const std::array<mjtNum, 6>& velocity);
  std::array<mjtNum, 6> velocity() const;
  double lowestPoint(const mjData& pose) const;
  void pose(mjData& target, std::span<const double> angles, const Rotation& attitude) const;

  Model model = loadModel(Physics::kStep);
  Data data{mj_makeData(model.get())};
  /// For positions that are only asked for.
  Data scratch{mj_makeData(model.get())};

  std::vector<Joint> joints;
  int coupled = 0; // in qpos
  int torso = 0;
  std::vector<int> parts; // bodies of the robot
  std::array<std::array<int, kCells>, 2> cells{};
  std::array<std::array<int, 2>, 2> bumpers{};
  std::array<int, 2> feet{};
  std::array<int, 2> emitters{};
  std::array<int, 2> obstacles{}; // mocap
  std::array<int, 2> obstacleGeoms{};
  int inertialUnit = 0;
  Vector acceleration{};
  Vector rotationRate{};
  /// Force of the world on each geometry, N, world's axes.
  std::vector<Vector> forces;
  Vector pushForce{};
};

Physics::Engine::Engine() {
  const mjModel& m = *model;
  for (const std::string_view name : messages::jointNames()) {
    const int joint = find(mjOBJ_JOINT, std::string(name));
    const int actuator = find(mjOBJ_ACTUATOR, std::string(name));
    joints.push_back({m.jnt_qposadr[joint], m.jnt_dofadr[joint], actuator, joint,
                      m.actuator_forcerange[2 * actuator + 1]});
  }
  coupled = m.jnt_qposadr[find(mjOBJ_JOINT, std::string(messages::kCoupledJoint))];
  torso = find(mjOBJ_BODY, "Torso");
  for (int body = 1; body < m.nbody; ++body) {
    if (m.body_rootid[body] == torso) {
      parts.push_back(body);
    }
  }
  for (const Side side : kSides) {
    const std::string letter = kSideLetters[at(side)];
    const std::string name = kSideNames[at(side)];
    for (std::size_t cell = 0; cell < kCells; ++cell) {
      cells[at(side)][cell] = find(mjOBJ_GEOM, letter + kCellNames[cell] + "Cell");
    }
    for (const Side bumper : kSides) {
      bumpers[at(side)][at(bumper)] = find(mjOBJ_GEOM, letter + kSideNames[at(bumper)] + "Bumper");
    }
    feet[at(side)] = find(mjOBJ_BODY, letter + "Foot");
    emitters[at(side)] = find(mjOBJ_SITE, name + "Emitter");
    obstacles[at(side)] = m.body_mocapid[find(mjOBJ_BODY, name + "Obstacle")];
    obstacleGeoms[at(side)] = find(mjOBJ_GEOM, name + "Obstacle");
  }
  inertialUnit = find(mjOBJ_SITE, "InertialUnit");
  forces.resize(static_cast<std::size_t>(m.ngeom));
}

/// Sets all that a position consists of.
void Physics::Engine::pose(mjData& target, std::span<const double> angles,
                           const Rotation& attitude) const {
  for (std::size_t joint = 0; joint < joints.size(); ++joint) {
    target.qpos[joints[joint].position] = angles[joint];
    if (messages::jointNames()[joint] == messages::kCouplingJoint) {
      target.qpos[coupled] = angles[joint];
    }
  }
  std::ranges::copy(Vector{0, 0, 0}, target.qpos);
  std::ranges::copy(attitude, target.qpos + 3);
  mj_kinematics(model.get(), &target);
}

double Physics::Engine::lowestPoint(const mjData& pose) const {
  const mjModel& m = *model;
  double lowest = kInfinity;
  for (int geom = 0; geom < m.ngeom; ++geom) {
    const bool isPart = m.body_rootid[m.geom_bodyid[geom]] == torso;
    if (!isPart || m.geom_conaffinity[geom] == 0) {
      continue;
    }
    const mjtNum* size = m.geom_size + 3 * geom;
    // The geometry's axes, as they rise.
    const mjtNum* rise = pose.geom_xmat + 9 * geom + 6;
    double extent = size[0];
    switch (m.geom_type[geom]) {
    case mjGEOM_BOX:
      extent =
          std::abs(rise[0]) * size[0] + std::abs(rise[1]) * size[1] + std::abs(rise[2]) * size[2];
      break;
    case mjGEOM_CAPSULE:
      extent += std::abs(rise[2]) * size[1];
      break;
    case mjGEOM_CYLINDER:
      extent = std::abs(rise[2]) * size[1] + std::sqrt(1 - rise[2] * rise[2]) * size[0];
      break;
    default:
      break;
    }
    lowest = std::min(lowest, pose.geom_xpos[3 * geom + 2] - extent);
  }
  return lowest;
}

void Physics::Engine::collectForces() {
  std::ranges::fill(forces, Vector{});
  for (int i = 0; i < data->ncon; ++i) {
    const mjContact& contact = data->contact[i];
    if (contact.efc_address < 0) {
      continue;
    }
    std::array<mjtNum, 6> wrench{};
    mj_contactForce(model.get(), data.get(), i, wrench.data());
    Vector force{};
    mju_rotVecMatT(force.data(), wrench.data(), contact.frame);
    // The contact's force acts on the second geometry; its opposite on the first one.
    Vector& first = forces[static_cast<std::size_t>(contact.geom1)];
    Vector& second = forces[static_cast<std::size_t>(contact.geom2)];
    first = first - force;
    second = second + force;
  }
}

std::array<mjtNum, 6> Physics::Engine::velocity() const {
  std::array<mjtNum, 6> velocity{};
  std::copy_n(data->qvel + model->body_dofadr[torso], velocity.size(), velocity.begin());
  return velocity;
}

/// As the engine's own sensors do, but for the torso alone: they would have the accelerations of
/// all bodies, and the forces between them.
void Physics::Engine::measure(const std::array<mjtNum, 6>& velocity) {
  const mjModel& m = *model;
  mjData& d = *data;
  const int first = m.body_dofadr[torso];
  const int count = m.body_dofnum[torso];
  // What stands still rises against gravity.
  mjtNum* torsos = d.cacc + 6 * torso;
  mju_zero(d.cacc, 6);
  mju_scl3(d.cacc + 3, m.opt.gravity, -1);
  std::array<mjtNum, 6> part{};
  mju_mulMatTVec(part.data(), d.cdof_dot + 6 * first, velocity.data(), count, 6);
  mju_add(torsos, d.cacc, part.data(), 6);
  mju_mulMatTVec(part.data(), d.cdof + 6 * first, d.qacc + first, count, 6);
  mju_addTo(torsos, part.data(), 6);
  mj_objectAcceleration(&m, &d, mjOBJ_SITE, inertialUnit, part.data(), 1);
  acceleration = vectorAt(part.data() + 3);
  mj_objectVelocity(&m, &d, mjOBJ_SITE, inertialUnit, part.data(), 1);
  rotationRate = vectorAt(part.data());
}

Physics::Physics() : fEngine(std::make_unique<Engine>()) {}
Physics::~Physics() = default;

void Physics::place(std::span<const double> angles, const Rotation& attitude) {
  const double height = restHeight(angles, attitude);
  mj_resetData(fEngine->model.get(), fEngine->data.get());
  fEngine->pose(*fEngine->data, angles, attitude);
  fEngine->data->qpos[2] = height;
  placeObstacle(Side::Left, kInfinity);
  placeObstacle(Side::Right, kInfinity);
  mj_forward(fEngine->model.get(), fEngine->data.get());
  fEngine->collectForces();
  fEngine->measure(fEngine->velocity());
}

double Physics::restHeight(std::span<const double> angles, const Rotation& attitude) {
  fEngine->pose(*fEngine->scratch, angles, attitude);
  return -fEngine->lowestPoint(*fEngine->scratch);
}

void Physics::step() {
  mjData& d = *fEngine->data;
  mj_step1(fEngine->model.get(), &d);
  const int torso = fEngine->torso;
  const Vector chest = vectorAt(d.xipos + 3 * torso);
  mj_applyFT(fEngine->model.get(), &d, fEngine->pushForce.data(), nullptr, chest.data(), torso,
             d.qfrc_applied);
  const std::array<mjtNum, 6> velocity = fEngine->velocity();
  mj_step2(fEngine->model.get(), &d);
  mju_zero(d.qfrc_applied, fEngine->model->nv);
  fEngine->collectForces();
  fEngine->measure(velocity);
}

void Physics::drive(std::size_t joint, double target, double share) {
  const Engine::Joint& place = fEngine->joints[joint];
  fEngine->data->ctrl[place.actuator] = target;
  mjtNum* range = fEngine->model->actuator_forcerange + 2 * place.actuator;
  range[0] = -share * place.limit;
  range[1] = share * place.limit;
}

double Physics::angle(std::size_t joint) const {
  return fEngine->data->qpos[fEngine->joints[joint].position];
}

double Physics::coupledAngle() const {
  return fEngine->data->qpos[fEngine->coupled];
}

double Physics::torque(std::size_t joint) const {
  return fEngine->data->actuator_force[fEngine->joints[joint].actuator];
}

double Physics::torqueLimit(std::size_t joint) const {
  return fEngine->joints[joint].limit;
}

std::array<double, 2> Physics::range(std::size_t joint) const {
  const mjtNum* range = fEngine->model->jnt_range + 2 * fEngine->joints[joint].joint;
  return {range[0], range[1]};
}

TorsoState Physics::torso() const {
  const mjData& d = *fEngine->data;
  const int torso = fEngine->torso;
  const mjtNum* attitude = d.xquat + 4 * torso;
  TorsoState state;
  state.position = vectorAt(d.xpos + 3 * torso);
  state.attitude = {attitude[0], attitude[1], attitude[2], attitude[3]};
  // The free joint turns about the torso's axes.
  mju_rotVecQuat(state.rotation.data(), d.qvel + 3, attitude);
  double mass = 0;
  for (const int part : fEngine->parts) {
    std::array<mjtNum, 6> motion{};
    mj_objectVelocity(fEngine->model.get(), &d, mjOBJ_BODY, part, motion.data(), 0);
    const double partMass = fEngine->model->body_mass[part];
    state.velocity = state.velocity + partMass * vectorAt(motion.data() + 3);
    mass += partMass;
  }
  state.velocity = (1 / mass) * state.velocity;
  return state;
}

void Physics::carry(const Vector& linear, const Vector& angular) {
  mjData& d = *fEngine->data;
  const Vector centre = vectorAt(d.subtree_com + 3 * fEngine->torso);
  for (const int part : fEngine->parts) {
    const Vector arm = vectorAt(d.xipos + 3 * part) - centre;
    const Vector force = fEngine->model->body_mass[part] * (linear + cross(angular, arm));
    std::ranges::copy(force, d.xfrc_applied + 6 * part);
  }
}

void Physics::push(const Vector& force) {
  fEngine->pushForce = force;
}

Vector Physics::acceleration() const {
  return fEngine->acceleration;
}

Vector Physics::rotationRate() const {
  return fEngine->rotationRate;
}

double Physics::cellForce(Side foot, Cell cell) const {
  const int geom = fEngine->cells[at(foot)][static_cast<std::size_t>(cell)];
  const mjtNum* axes = fEngine->data->xmat + 9 * fEngine->feet[at(foot)];
  const Vector up = {axes[2], axes[5], axes[8]};
  return std::max(0.0, dot(fEngine->forces[static_cast<std::size_t>(geom)], up));
}

bool Physics::isBumperPressed(Side foot, Side bumper) const {
  const int geom = fEngine->bumpers[at(foot)][at(bumper)];
  return length(fEngine->forces[static_cast<std::size_t>(geom)]) > kBumperForce;
}

double Physics::echo(Side emitter) const {
  const mjModel& m = *fEngine->model;
  const mjData& d = *fEngine->data;
  const mjtNum* place = d.site_xpos + 3 * fEngine->emitters[at(emitter)];
  const mjtNum* axes = d.site_xmat + 9 * fEngine->emitters[at(emitter)];
  double nearest = kInfinity;
  for (int across = 0; across < kRaysAcross; ++across) {
    for (int up = 0; up < kRaysUp; ++up) {
      const double yaw = kConeHalfWidth * (2.0 * across / (kRaysAcross - 1) - 1);
      const double pitch = kConeHalfHeight * (2.0 * up / (kRaysUp - 1) - 1);
      const Vector local = {std::cos(pitch) * std::cos(yaw), std::cos(pitch) * std::sin(yaw),
                            std::sin(pitch)};
      Vector ray{};
      mju_rotVecMat(ray.data(), local.data(), axes);
      for (const int geom : fEngine->obstacleGeoms) {
        const double hit =
            mju_rayGeom(d.geom_xpos + 3 * geom, d.geom_xmat + 9 * geom, m.geom_size + 3 * geom,
                        place, ray.data(), m.geom_type[geom]);
        if (hit >= 0) {
          nearest = std::min(nearest, hit);
        }
      }
      if (-ray[2] > kEchoCosine) {
        nearest = std::min(nearest, place[2] / -ray[2]);
      }
    }
  }
  return nearest;
}

void Physics::placeObstacle(Side side, double distance) {
  mjData& d = *fEngine->data;
  mjtNum* place = d.mocap_pos + 3 * fEngine->obstacles[at(side)];
  const double outward = side == Side::Left ? 1 : -1;
  if (!std::isfinite(distance)) {
    place[0] = 0;
    place[1] = outward * kFarAway;
    return;
  }
  // Upright beside the robot, whatever the torso does: only its heading counts.
  const mjtNum* emitter = d.site_xpos + 3 * fEngine->emitters[at(side)];
  const mjtNum* axes = d.xmat + 9 * fEngine->torso;
  const double bearing = std::atan2(axes[3], axes[0]) + outward * kObstacleBearing;
  const double reach = distance + fEngine->model->geom_size[3 * fEngine->obstacleGeoms[at(side)]];
  place[0] = emitter[0] + reach * std::cos(bearing);
  place[1] = emitter[1] + reach * std::sin(bearing);
}

double Physics::speed() const {
  double fastest = 0;
  for (const int part : fEngine->parts) {
    std::array<mjtNum, 6> motion{};
    mj_objectVelocity(fEngine->model.get(), fEngine->data.get(), mjOBJ_BODY, part, motion.data(),
                      0);
    fastest = std::max(fastest, length(vectorAt(motion.data() + 3)));
  }
  return fastest;
}

} // namespace gk::devices
