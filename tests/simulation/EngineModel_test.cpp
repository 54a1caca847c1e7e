#include "devices/sim/EngineModel.h"
#include "devices/sim/Physics.h"
#include "devices/sim/Postures.h"
#include "devices/sim/RobotModel.h"
#include "messages/keys/DeviceKeys.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <mujoco/mujoco.h>
#include <random>
#include <string>
#include <string_view>
#include <vector>

// What we leave out of the engine's work must not be missed.

namespace gk::devices {
namespace {

/// A contact, as far as it decides what follows.
using Contact = std::array<double, 12>;

/// What the engine finds with this way of looking, in its order.
std::vector<Contact> contactsOf(mjModel& model, mjData& data, mjtCollision way) {
  model.opt.collision = way;
  mj_collision(&model, &data);
  std::vector<Contact> contacts;
  for (int i = 0; i < data.ncon; ++i) {
    const mjContact& one = data.contact[i];
    contacts.push_back({static_cast<double>(one.geom1), static_cast<double>(one.geom2),
                        static_cast<double>(one.dim), one.dist, one.pos[0], one.pos[1], one.pos[2],
                        one.friction[0], one.friction[2], one.friction[3], one.solref[0],
                        one.solref[1]});
  }
  return contacts;
}

TEST(EngineModel, NamesAllPairsOfAPartAndTheWorldThatCanMeet) {
  const Model model = loadModel(Physics::kStep);
  const Data data(mj_makeData(model.get()));
  std::mt19937 random(7);
  std::uniform_real_distribution<double> any(-1, 1);
  std::size_t found = 0;
  for (int round = 0; round < 500; ++round) {
    mj_resetData(model.get(), data.get());
    for (int i = 0; i < model->nq; ++i) {
      data->qpos[i] += any(random);
    }
    data->qpos[2] = 0.1 + 0.1 * any(random);
    for (int i = 0; i < 3 * model->nmocap; ++i) {
      data->mocap_pos[i] = data->qpos[i % 3] + 0.2 * any(random);
    }
    mju_normalize4(data->qpos + 3);
    mj_kinematics(model.get(), data.get());
    mj_comPos(model.get(), data.get());
    // Among themselves the parts meet by what is named alone.
    const std::vector<Contact> all = contactsOf(*model, *data, mjCOL_DYNAMIC);
    std::vector<Contact> named = contactsOf(*model, *data, mjCOL_PAIR);
    std::erase_if(named, [&model](const Contact& contact) {
      return model->geom_contype[static_cast<int>(contact[0])] == 0 &&
             model->geom_contype[static_cast<int>(contact[1])] == 0;
    });
    ASSERT_EQ(named, all) << "round " << round;
    found += all.size();
  }
  EXPECT_GT(found, 1000U);
}

/// The engine with its own sensors at the place of the inertial unit.
Model modelWithSensors() {
  std::string text = kRobotModel;
  text.insert(text.find("</mujoco>"), "<sensor><accelerometer site=\"InertialUnit\"/>"
                                      "<gyro site=\"InertialUnit\"/></sensor>");
  const auto files = std::make_unique<mjVFS>();
  mj_defaultVFS(files.get());
  mj_makeEmptyFileVFS(files.get(), "sensors.xml", static_cast<int>(text.size()));
  std::memcpy(files->filedata[0], text.data(), text.size());
  std::array<char, 1000> error{};
  Model model(mj_loadXML("sensors.xml", files.get(), error.data(), static_cast<int>(error.size())));
  mj_deleteVFS(files.get());
  EXPECT_NE(model, nullptr) << error.data();
  model->opt.timestep = Physics::kStep;
  return model;
}

TEST(EngineModel, TheInertialUnitMeasuresWhatTheEnginesSensorsWould) {
  Physics sut;
  const Posture& posture = postures().front();
  sut.place(posture.angles, posture.attitude());

  const Model model = modelWithSensors();
  const Data data(mj_makeData(model.get()));
  const TorsoState torso = sut.torso();
  std::ranges::copy(torso.position, data->qpos);
  std::ranges::copy(torso.attitude, data->qpos + 3);
  const auto put = [&](std::string_view joint, double angle) {
    const int id = mj_name2id(model.get(), mjOBJ_JOINT, std::string(joint).c_str());
    data->qpos[model->jnt_qposadr[id]] = angle;
  };
  for (std::size_t joint = 0; joint < messages::jointNames().size(); ++joint) {
    put(messages::jointNames()[joint], sut.angle(joint));
  }
  put(messages::kCoupledJoint, sut.coupledAngle());

  // Servos without orders pull to the middle: the robot moves all joints at once.
  double fastest = 0;
  for (int step = 0; step < 100; ++step) {
    sut.step();
    mj_step1(model.get(), data.get());
    mj_step2(model.get(), data.get());
    for (std::size_t axis = 0; axis < 3; ++axis) {
      ASSERT_NEAR(sut.acceleration()[axis], data->sensordata[axis], 1e-6) << step;
      ASSERT_NEAR(sut.rotationRate()[axis], data->sensordata[3 + axis], 1e-6) << step;
      fastest = std::max(fastest, std::abs(sut.rotationRate()[axis]));
    }
  }
  EXPECT_GT(fastest, 0.1);
}

} // namespace
} // namespace gk::devices
