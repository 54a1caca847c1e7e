#pragma once

#include <memory>
#include <mujoco/mujoco.h>

namespace gk::devices {

struct ModelDeleter {
  void operator()(mjModel* model) const { mj_deleteModel(model); }
};
struct DataDeleter {
  void operator()(mjData* data) const { mj_deleteData(data); }
};
using Model = std::unique_ptr<mjModel, ModelDeleter>;
using Data = std::unique_ptr<mjData, DataDeleter>;

/// The robot and its world as the physics engine knows them, with steps of so many seconds. Raises
/// `GKError`.
Model loadModel(double step);

} // namespace gk::devices
