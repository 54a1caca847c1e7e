#include "devices/sim/EngineModel.h"

#include "devices/sim/RobotModel.h"
#include "gk/GKError.h"
#include "zu/log.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <span>
#include <string>
#include <tuple>
#include <vector>

namespace gk::devices {

namespace {

/// The engine would write its warnings to a file in the working folder.
void warn(const char* text) {
  zu::log::warning("simulation", "Physics") << text;
}

/// Puts rows of `width` numbers into another order.
template <class T>
void reorder(T* rows, std::span<const std::size_t> order, std::size_t width = 1) {
  const std::vector<T> before(rows, rows + order.size() * width);
  for (std::size_t row = 0; row < order.size(); ++row) {
    std::copy_n(before.begin() + static_cast<std::ptrdiff_t>(order[row] * width), width,
                rows + row * width);
  }
}

/// Contacts are solved in the order of their pairs, and the engine leaves open which of two pairs
/// of the same bodies comes first.
void sortPairs(mjModel& m) {
  std::vector<std::size_t> order(static_cast<std::size_t>(m.npair));
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::ranges::sort(order, {}, [&m](std::size_t pair) {
    return std::tuple(m.pair_signature[pair], m.pair_geom1[pair], m.pair_geom2[pair]);
  });
  reorder(m.pair_dim, order);
  reorder(m.pair_geom1, order);
  reorder(m.pair_geom2, order);
  reorder(m.pair_signature, order);
  reorder(m.pair_solref, order, mjNREF);
  reorder(m.pair_solimp, order, mjNIMP);
  reorder(m.pair_margin, order);
  reorder(m.pair_gap, order);
  constexpr std::size_t frictions = 5; // two of sliding, one of turning, two of rolling
  reorder(m.pair_friction, order, frictions);
}

} // namespace

Model loadModel(double step) {
  constexpr const char* name = "robot.xml";
  mju_user_warning = warn;
  const auto files = std::make_unique<mjVFS>();
  mj_defaultVFS(files.get());
  const std::size_t size = std::strlen(kRobotModel);
  mj_makeEmptyFileVFS(files.get(), name, static_cast<int>(size));
  std::memcpy(files->filedata[0], kRobotModel, size);
  std::array<char, 1000> error{};
  Model model(mj_loadXML(name, files.get(), error.data(), static_cast<int>(error.size())));
  mj_deleteVFS(files.get());
  if (model == nullptr) {
    throw GK::GKError("Physics", "Physics", std::string("robot.xml: ") + error.data());
  }
  model->opt.timestep = step;
  sortPairs(*model);
  return model;
}

} // namespace gk::devices
