#include "devices/sim/Geometry.h"
#include "devices/sim/Postures.h"
#include "devices/sim/RobotModel.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/ros/RobotModel.h"
#include "messages/ros/Urdf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mujoco/mujoco.h>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

using gk::devices::kRobotModel;
using gk::messages::jointNames;
using gk::messages::kCoupledJoint;
using gk::messages::kCouplingJoint;
using namespace gk::messages::ros;

namespace {

struct ModelDeleter {
  void operator()(mjModel* model) const { mj_deleteModel(model); }
};
struct DataDeleter {
  void operator()(mjData* data) const { mj_deleteData(data); }
};
using EngineModel = std::unique_ptr<mjModel, ModelDeleter>;
using EngineData = std::unique_ptr<mjData, DataDeleter>;

/// What the physics engine makes of a robot's description.
EngineModel loaded(const std::string& text, const std::string& ending) {
  const auto place =
      std::filesystem::temp_directory_path() / ("gk-model-" + std::to_string(getpid()) + ending);
  std::ofstream(place) << text;
  std::array<char, 1000> error{};
  EngineModel model(
      mj_loadXML(place.c_str(), nullptr, error.data(), static_cast<int>(error.size())));
  std::filesystem::remove(place);
  EXPECT_NE(model, nullptr) << error.data();
  return model;
}

/// The simulated robot and what its URDF makes of it, side by side.
class RobotModelTest : public testing::Test {
protected:
  static void SetUpTestSuite() {
    fModel = new EngineModel(loaded(kRobotModel, ".xml"));
    // The engine would melt fixed links together and throw away what is only seen.
    std::string urdf = robotUrdf();
    const std::string tag = "<robot name=\"gk_robot\">";
    urdf.insert(urdf.find(tag) + tag.size(),
                "<mujoco><compiler fusestatic=\"false\" discardvisual=\"false\" "
                "balanceinertia=\"false\"/></mujoco>");
    fUrdf = new EngineModel(loaded(urdf, ".urdf"));
  }
  static void TearDownTestSuite() {
    delete fModel;
    delete fUrdf;
  }

  static const mjModel& model() { return **fModel; }
  static const mjModel& urdf() { return **fUrdf; }

  static int find(const mjModel& m, mjtObj kind, std::string_view name) {
    return mj_name2id(&m, kind, std::string(name).c_str());
  }

  /// The simulated robot's body that a link stands for; -1 for frames without one.
  static int bodyOf(const Link& link) {
    if (link.joint) {
      return model().jnt_bodyid[find(model(), mjOBJ_JOINT, link.joint->name)];
    }
    return link.name == "torso" ? find(model(), mjOBJ_BODY, "Torso") : -1;
  }

  /// The same for the engine's reading of the URDF.
  static int urdfBodyOf(std::string_view link) { return find(urdf(), mjOBJ_BODY, link); }

  static EngineModel* fModel;
  static EngineModel* fUrdf;
};
EngineModel* RobotModelTest::fModel = nullptr;
EngineModel* RobotModelTest::fUrdf = nullptr;

constexpr double kExact = 1e-9;
/// Limits are kept as floats.
constexpr double kFloat = 1e-6;

mjtGeom geomOf(Shape::Kind kind) {
  switch (kind) {
  case Shape::Kind::Box:
    return mjGEOM_BOX;
  case Shape::Kind::Sphere:
    return mjGEOM_SPHERE;
  case Shape::Kind::Ellipsoid:
    return mjGEOM_ELLIPSOID;
  case Shape::Kind::Cylinder:
    return mjGEOM_CYLINDER;
  case Shape::Kind::Capsule:
    break;
  }
  return mjGEOM_CAPSULE;
}

/// How many numbers of a shape's size the engine has.
std::size_t sizesOf(Shape::Kind kind) {
  return kind == Shape::Kind::Sphere                                     ? 1
         : kind == Shape::Kind::Cylinder || kind == Shape::Kind::Capsule ? 2
                                                                         : 3;
}

Vector at(const mjtNum* numbers) {
  return {numbers[0], numbers[1], numbers[2]};
}

void expectNear(const Vector& a, const Vector& b, double tolerance, const std::string& what) {
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_NEAR(a[i], b[i], tolerance) << what << " " << i;
  }
}

/// Where each link is, seen from the root, with the joints at these angles.
std::vector<Vector> placesAt(const std::vector<double>& angles) {
  namespace sim = gk::devices;
  const auto toSim = [](const Rotation& r) { return sim::Rotation{r[3], r[0], r[1], r[2]}; };
  std::vector<Vector> places;
  std::vector<sim::Rotation> attitudes;
  for (const Link& link : robotLinks()) {
    double angle = 0;
    if (link.joint) {
      const std::string_view moved =
          link.joint->mimics.empty() ? std::string_view(link.joint->name) : link.joint->mimics;
      angle = angles[static_cast<std::size_t>(std::ranges::find(jointNames(), moved) -
                                              jointNames().begin())];
    }
    if (places.empty()) {
      places.push_back(link.origin);
      attitudes.push_back(toSim(rotationOf(link, angle)));
      continue;
    }
    const sim::Rotation& carrier = attitudes[link.parent];
    using namespace gk::devices;
    places.push_back(places[link.parent] + rotate(carrier, link.origin));
    attitudes.push_back(carrier * toSim(rotationOf(link, angle)));
  }
  return places;
}

} // namespace

TEST_F(RobotModelTest, HasTheJointsOfTheSimulatedRobot) {
  std::set<std::string> ours;
  for (const Link& link : robotLinks()) {
    if (!link.joint) {
      continue;
    }
    const Joint& joint = *link.joint;
    ours.insert(joint.name);
    const int id = find(model(), mjOBJ_JOINT, joint.name);
    ASSERT_GE(id, 0) << joint.name;
    expectNear(joint.axis, at(model().jnt_axis + 3 * id), kExact, joint.name + " axis");
    expectNear({0, 0, 0}, at(model().jnt_pos + 3 * id), kExact, joint.name + " place");
    EXPECT_NEAR(joint.lower, model().jnt_range[2 * id], kFloat) << joint.name;
    EXPECT_NEAR(joint.upper, model().jnt_range[2 * id + 1], kFloat) << joint.name;
    const int servo = find(model(), mjOBJ_ACTUATOR,
                           joint.mimics.empty() ? std::string_view(joint.name) : joint.mimics);
    ASSERT_GE(servo, 0) << joint.name;
    EXPECT_NEAR(joint.effort, model().actuator_forcerange[2 * servo + 1], kExact) << joint.name;
  }
  std::set<std::string> theirs(jointNames().begin(), jointNames().end());
  theirs.insert(std::string(kCoupledJoint));
  EXPECT_EQ(ours, theirs);
  // All of the robot's joints but the one that lets it move about.
  EXPECT_EQ(static_cast<int>(ours.size()) + 1, model().njnt);
}

TEST_F(RobotModelTest, HangsEachLinkWhereTheSimulatedRobotDoes) {
  const auto& links = robotLinks();
  int bodies = 0;
  for (const Link& link : links) {
    const int body = bodyOf(link);
    if (body < 0 || link.name == "torso") {
      bodies += body < 0 ? 0 : 1;
      continue;
    }
    ++bodies;
    EXPECT_EQ(bodyOf(links[link.parent]), model().body_parentid[body]) << link.name;
    expectNear(link.origin, at(model().body_pos + 3 * body), kExact, link.name);
    EXPECT_NEAR(model().body_quat[4 * body], 1, kExact) << link.name;
  }
  // Besides them there are the world and two obstacles.
  EXPECT_EQ(bodies + 3, model().nbody);
}

TEST_F(RobotModelTest, HasTheShapesOfTheSimulatedRobot) {
  for (const Link& link : robotLinks()) {
    const int body = bodyOf(link);
    if (body < 0) {
      EXPECT_THAT(link.shapes, testing::IsEmpty()) << link.name;
      continue;
    }
    ASSERT_EQ(static_cast<int>(link.shapes.size()), model().body_geomnum[body]) << link.name;
    double mass = 0;
    for (std::size_t i = 0; i < link.shapes.size(); ++i) {
      const Shape& shape = link.shapes[i];
      const int geom = model().body_geomadr[body] + static_cast<int>(i);
      const std::string what = link.name + " shape " + std::to_string(i);
      EXPECT_EQ(geomOf(shape.kind), model().geom_type[geom]) << what;
      for (std::size_t k = 0; k < sizesOf(shape.kind); ++k) {
        EXPECT_NEAR(shape.size[k], model().geom_size[3 * geom + static_cast<int>(k)], kExact)
            << what;
      }
      expectNear(shape.centre, at(model().geom_pos + 3 * geom), kExact, what);
      // Where the long axis points to, either way round.
      std::array<mjtNum, 9> axes{};
      mju_quat2Mat(axes.data(), model().geom_quat + 4 * geom);
      EXPECT_NEAR(std::abs(shape.liesAlongX ? axes[2] : axes[8]), 1, kExact) << what;
      const bool isSolid = model().geom_contype[geom] + model().geom_conaffinity[geom] > 0;
      EXPECT_EQ(shape.isSolid, isSolid) << what;
      const char* name = mj_id2name(&model(), mjOBJ_GEOM, geom);
      EXPECT_EQ(shape.name, name != nullptr ? name : "") << what;
      mass += shape.mass;
    }
    EXPECT_NEAR(mass, model().body_mass[body], kExact) << link.name;
  }
}

TEST_F(RobotModelTest, HasTheFramesOfTheSimulatedSensors) {
  const std::pair<std::string_view, const char*> frames[] = {{kImuFrame, "InertialUnit"},
                                                             {kSonarFrames[0], "LeftEmitter"},
                                                             {kSonarFrames[1], "RightEmitter"}};
  for (const auto& [frame, name] : frames) {
    const Link& link = robotLinks()[linkNamed(frame)];
    const int site = find(model(), mjOBJ_SITE, name);
    ASSERT_GE(site, 0);
    expectNear(link.origin, at(model().site_pos + 3 * site), kExact, link.name);
    const Rotation turn = rotationOf(link, 0);
    const mjtNum* quat = model().site_quat + 4 * site;
    EXPECT_NEAR(turn[3], quat[0], kExact) << link.name;
    expectNear({turn[0], turn[1], turn[2]}, at(quat + 1), kExact, link.name);
  }
}

TEST_F(RobotModelTest, SolesLieWhereTheForceCellsTouchTheFloor) {
  for (const std::size_t foot : {0U, 1U}) {
    const Link& sole = robotLinks()[linkNamed(kSoleFrames[foot])];
    for (std::size_t cell = 0; cell < kForceCells.size(); ++cell) {
      const std::string name = (foot == 0 ? "L" : "R") + std::string(kForceCells[cell]) + "Cell";
      const int geom = find(model(), mjOBJ_GEOM, name);
      ASSERT_GE(geom, 0) << name;
      const Vector place = at(model().geom_pos + 3 * geom);
      EXPECT_NEAR(place[2] - model().geom_size[3 * geom], sole.origin[2], kExact) << name;
      EXPECT_NEAR(place[0] - sole.origin[0], cellPlaces(foot)[cell][0], kExact) << name;
      EXPECT_NEAR(place[1] - sole.origin[1], cellPlaces(foot)[cell][1], kExact) << name;
    }
  }
}

TEST_F(RobotModelTest, UrdfIsReadAsTheSimulatedRobot) {
  const auto& links = robotLinks();
  for (std::size_t i = 1; i < links.size(); ++i) {
    const Link& link = links[i];
    const int body = urdfBodyOf(link.name);
    ASSERT_GT(body, 0) << link.name;
    EXPECT_EQ(urdf().body_parentid[body], urdfBodyOf(links[link.parent].name)) << link.name;
    if (!link.joint) {
      continue;
    }
    const int joint = find(urdf(), mjOBJ_JOINT, link.joint->name);
    ASSERT_GE(joint, 0) << link.joint->name;
    EXPECT_EQ(urdf().jnt_bodyid[joint], body);
    EXPECT_EQ(urdf().jnt_type[joint], mjJNT_HINGE);
    const int original = find(model(), mjOBJ_JOINT, link.joint->name);
    expectNear(at(urdf().jnt_axis + 3 * joint), at(model().jnt_axis + 3 * original), kExact,
               link.joint->name);
    for (const int end : {0, 1}) {
      EXPECT_NEAR(urdf().jnt_range[2 * joint + end], model().jnt_range[2 * original + end], kFloat)
          << link.joint->name;
    }
  }
  EXPECT_EQ(urdf().njnt, model().njnt - 1);
}

TEST_F(RobotModelTest, UrdfHasTheMassesOfTheSimulatedRobot) {
  const EngineData theirs(mj_makeData(&model()));
  const EngineData ours(mj_makeData(&urdf()));
  mj_forward(&model(), theirs.get());
  mj_forward(&urdf(), ours.get());
  for (const Link& link : robotLinks()) {
    const int body = bodyOf(link);
    if (body < 0) {
      continue;
    }
    const int mine = urdfBodyOf(link.name);
    EXPECT_NEAR(urdf().body_mass[mine], model().body_mass[body], kExact) << link.name;
    expectNear(at(urdf().body_ipos + 3 * mine), at(model().body_ipos + 3 * body), kExact,
               link.name + " centre");
    // The main axes may be named in another order.
    Vector moments = at(model().body_inertia + 3 * body);
    Vector read = at(urdf().body_inertia + 3 * mine);
    std::ranges::sort(moments);
    std::ranges::sort(read);
    for (std::size_t i = 0; i < moments.size(); ++i) {
      EXPECT_NEAR(read[i], moments[i], 1e-3 * moments[i]) << link.name << " moment " << i;
    }
  }
}

TEST_F(RobotModelTest, UrdfDrawsTheShapesOfTheModel) {
  // What the format has no shape for is made of others: 1 for each shape, 3 for a capsule.
  for (const Link& link : robotLinks()) {
    const int body = urdfBodyOf(link.name);
    std::vector<std::pair<int, Vector>> expected;
    for (const Shape& shape : link.shapes) {
      const int type = shape.kind == Shape::Kind::Capsule     ? mjGEOM_CYLINDER
                       : shape.kind == Shape::Kind::Ellipsoid ? mjGEOM_SPHERE
                                                              : geomOf(shape.kind);
      for (int copy = shape.isSolid ? 0 : 1; copy < 2; ++copy) {
        expected.emplace_back(type, shape.centre);
        if (shape.kind == Shape::Kind::Capsule) {
          for (const double end : {-shape.size[1], shape.size[1]}) {
            Vector centre = shape.centre;
            centre[shape.liesAlongX ? 0 : 2] += end;
            expected.emplace_back(mjGEOM_SPHERE, centre);
          }
        }
      }
    }
    ASSERT_EQ(static_cast<std::size_t>(urdf().body_geomnum[body]), expected.size()) << link.name;
    for (const auto& [type, centre] : expected) {
      bool isThere = false;
      for (int i = 0; i < urdf().body_geomnum[body]; ++i) {
        const int geom = urdf().body_geomadr[body] + i;
        const Vector place = at(urdf().geom_pos + 3 * geom);
        isThere = isThere || (urdf().geom_type[geom] == type &&
                              gk::devices::length(gk::devices::operator-(place, centre)) < 1e-6);
      }
      EXPECT_TRUE(isThere) << link.name << " " << type;
    }
  }
}

TEST_F(RobotModelTest, StandsAsTheSimulationInAllPostures) {
  constexpr double millimetre = 0.001;
  const EngineData theirs(mj_makeData(&model()));
  const EngineData ours(mj_makeData(&urdf()));
  ASSERT_EQ(gk::devices::postures().size(), 10U);
  for (const gk::devices::Posture& posture : gk::devices::postures()) {
    const auto set = [&](const mjModel& m, mjData& d) {
      for (std::size_t i = 0; i < jointNames().size(); ++i) {
        d.qpos[m.jnt_qposadr[find(m, mjOBJ_JOINT, jointNames()[i])]] = posture.angles[i];
      }
      // What mimics another joint goes with it.
      d.qpos[m.jnt_qposadr[find(m, mjOBJ_JOINT, kCoupledJoint)]] =
          d.qpos[m.jnt_qposadr[find(m, mjOBJ_JOINT, kCouplingJoint)]];
      mj_kinematics(&m, &d);
    };
    set(model(), *theirs);
    set(urdf(), *ours);
    const std::vector<Vector> places = placesAt(posture.angles);
    const Vector torso = at(theirs->xpos + 3 * find(model(), mjOBJ_BODY, "Torso"));
    for (std::size_t i = 0; i < robotLinks().size(); ++i) {
      const Link& link = robotLinks()[i];
      const std::string what = std::string(posture.name) + " " + link.name;
      // The transforms that are sent, and the description, have the same frames.
      expectNear(places[i], at(ours->xpos + 3 * urdfBodyOf(link.name)), millimetre / 10, what);
      if (const int body = bodyOf(link); body >= 0) {
        const Vector place = at(theirs->xpos + 3 * body);
        expectNear(places[i], gk::devices::operator-(place, torso), millimetre, what);
      }
    }
  }
}

TEST_F(RobotModelTest, UrdfCouplesTheHips) {
  EXPECT_THAT(robotUrdf(),
              testing::HasSubstr("<mimic joint=\"LHipYawPitch\" multiplier=\"1\" offset=\"0\"/>"));
  EXPECT_EQ(robotUrdf().find("<mimic"), robotUrdf().rfind("<mimic"));
}
