#pragma once

#include "devices/sim/Battery.h"
#include "devices/sim/Harness.h"
#include "devices/sim/InertialUnit.h"
#include "devices/sim/Noise.h"
#include "devices/sim/Physics.h"
#include "devices/sim/PosturePlayer.h"
#include "devices/sim/Servo.h"
#include "devices/sim/SimulationOptions.h"
#include "devices/sim/World.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace gk::devices {

/// The device layer of a robot that does not exist: reads the actuators' keys and those of the
/// world around it, moves a body by the laws of physics, and writes what its sensors would tell.
///
/// Time passes in frames. What was written by the end of a frame acts in it; what was measured
/// stands in the keys at the frame's end. It draws no conclusions: keys that modules write it never
/// touches.
///
/// For one thread, but for `admit`.
class Simulation {
public:
  /// Simulated time from one set of values to the next, microseconds.
  static constexpr GK::GKMicros kFrame = 20'000;
  /// What a frame may come late by before the robot's time is held up instead, microseconds.
  static constexpr GK::GKMicros kPatience = 200'000;

  Simulation(std::shared_ptr<GK::GKMemoryStore> store, const SimulationOptions& options);

  /// Puts the robot into the posture that its key names and writes the first values. After the
  /// start values were published, before any module is loaded.
  void start();

  /// When the next frame ends, microseconds since the clock started.
  GK::GKMicros next() const noexcept { return fNext; }

  /// Lets a frame pass; `now` is the time of the clock.
  void advance(GK::GKMicros now);

  /// Looks at a value that is about to be written to a key below `World::kPrefix`. Returns why it
  /// is refused, or nothing. From any thread.
  std::string admit(const std::string& key, const GK::GKValue& value) {
    return fWorld.admit(key, value);
  }

private:
  /// What belongs to one joint. Cells are null for keys that are not provided.
  struct Joint {
    GK::GKMemoryCell* target = nullptr;
    GK::GKMemoryCell* stiffness = nullptr;
    GK::GKMemoryCell* position = nullptr;
    GK::GKMemoryCell* current = nullptr;
    GK::GKMemoryCell* temperature = nullptr;
    Servo servo;
    double lastTarget = 0;
    double lastStiffness = 0;
    /// Sum of the squared load over the steps of a frame.
    double squaredLoad = 0;
  };
  struct Board {
    GK::GKMemoryCell* error = nullptr;
    std::vector<std::size_t> joints;
  };
  struct Foot {
    std::array<GK::GKMemoryCell*, kCells> cells{};
    GK::GKMemoryCell* total = nullptr;
  };

  void xBind();
  void xDrive();
  void xHoist();
  void xSteps();
  void xFeelBumpers();
  void xWarm();

  void xWriteJoints();
  void xWriteFeet();
  void xWriteTouches();
  void xWriteInertia();
  void xWriteSonar();
  void xWriteBattery();
  void xWriteAll();

  std::shared_ptr<GK::GKMemoryStore> fStore;
  Noise fNoise;
  Physics fPhysics;
  Harness fHarness;
  World fWorld;
  InertialUnit fInertia;
  PosturePlayer fPlayer;
  Battery fBattery;

  std::vector<Joint> fJoints;
  std::vector<Board> fBoards;
  std::array<Foot, 2> fFeet;
  std::array<double, 2> fObstacles{};
  /// In the order of `touchSensors`, which begins with the bumpers.
  std::vector<GK::GKMemoryCell*> fTouches;
  static constexpr std::size_t kBumpers = 4;
  /// How long each bumper's switch stays closed, s.
  std::array<double, kBumpers> fBumperTime{};
  std::array<GK::GKMemoryCell*, 2> fAngles{};
  std::array<GK::GKMemoryCell*, 3> fAccelerations{};
  std::array<GK::GKMemoryCell*, 3> fRates{};
  std::array<GK::GKMemoryCell*, 2> fDistances{};
  GK::GKMemoryCell* fEmitters = nullptr;
  GK::GKMemoryCell* fCoupled = nullptr;
  GK::GKMemoryCell* fCharge = nullptr;
  GK::GKMemoryCell* fCurrent = nullptr;
  GK::GKMemoryCell* fStatus = nullptr;
  GK::GKMemoryCell* fCellVoltage = nullptr;
  GK::GKMemoryCell* fMoving = nullptr;
  GK::GKMemoryCell* fSpeed = nullptr;

  Vector fAcceleration{};
  Vector fRate{};
  /// The hoist has the robot, as its keys ask for.
  bool fIsHoisted = false;
  Vector fHoistPlace{};
  Rotation fHoistAttitude = kNoRotation;

  GK::GKMicros fNext = kFrame;
};

} // namespace gk::devices
