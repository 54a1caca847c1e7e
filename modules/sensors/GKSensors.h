#pragma once

#include "gk/GKExtractor.h"
#include "gk/GKMemoryFastAccess.h"
#include "gk/GKMemoryPlace.h"
#include "gk/GKMutex.h"
#include "gk/GKTime.h"
#include "modules/sensors/SensorKeys.h"

#include <boost/container/flat_map.hpp>
#include <boost/shared_ptr.hpp>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace GK {

class GKBattery;
class GKFsr;
class GKMemoryProxy;
class GKRobotPose;
class GKSonar;

/// Owns the library's one periodic loop. Each tick turns touch sensors, bumpers and the chest
/// button into events, watches joint stiffness and motor-board temperatures, and drives `GKSonar`,
/// `GKFsr`, `GKRobotPose` and `GKBattery`, which must be present in the same broker.
///
/// The module subscribes to itself, so the loop runs whether or not anybody else does.
class GKSensors : public GKExtractor {
public:
  explicit GKSensors(const boost::shared_ptr<GKBroker>& broker);

  /// Stops fast access for all modules of the library.
  ~GKSensors() override;

  /// Stops the loop: returns when a tick that was running has ended, and at most one more tick
  /// follows. May be called from any thread but the loop's.
  void exit() override;

  /// Declares the events, publishes the start values and subscribes to itself, which starts the
  /// loop. Raises `GKError` when the memory service is not there or refuses.
  void init() override;

  /// The loop: ticks until detection is switched off or the broker is going down. Returns at once
  /// when detection is off or a loop is running already; even then it looks its siblings up.
  ///
  /// Raises `GKError` when a sibling or the error key of a motor board is not there; in the latter
  /// case no loop of this module ever starts again.
  void run();

private:
  /// Single steps of the loop, for tests and benchmarks.
  friend class GKSensorsPeer;

  static constexpr int kMinimumPeriod = 20; // ms

  /// Starts the loop in a task of the platform.
  void xStartDetection(int period, float precision) override;
  /// Sets the pause between ticks, in milliseconds; less than 20 becomes 20 with a warning.
  void xUpdateParameters(int period, float precision) override;
  void xStopDetection() override;

  // The loop.
  /// Makes the caller the one loop. False when there is one, or when detection is off.
  bool xEnterLoop();
  /// Ticks for as long as the loop may run.
  void xTickOn();
  /// Ends the loop. True when it is to go on: somebody has switched detection on since it looked
  /// last, and has found it running still.
  bool xLeaveLoop();
  void xFindSiblings();
  template <class T> void xFindSibling(const char* name, boost::shared_ptr<T>& sibling);
  void xBindStiffness();
  void xBindBoards();
  void xConnectToMemory();
  void xTick();
  void xExtractEvents();

  // Touch, bumpers and chest button.
  void xExtractBumper();
  void xExtractChest();
  void xExtractTactilHead();
  void xExtractTactilHand();
  void xPublishIfChanged(std::size_t index, float value, const std::string& event);

  // Stiffness and temperature.
  void xExtractTemperature();
  bool xFindHotBoard();
  void xReportHeat();
  void xLogTemperature(GKMemoryProxy& memory, const std::string& key) const;
  void xExtractStiffness();
  int xBodyStiffness() const;

  // One sibling's update each, for whoever wants a single one. Intended: the tick makes the same
  // four calls by itself.
  void xExtractSonar();
  void xExtractFSR();
  void xExtractRobotPose();
  void xExtractBattery();

  /// The tick lock: held for the whole of each tick. Also guards the sibling pointers.
  boost::shared_ptr<GKMutex> fMutex = GKMutex::createGKMutex();

  /// Intended: nothing counts with this one.
  RTCount fCounter;
  /// Confirms presses. Both feet share it: a press on one confirms the other.
  RTCount fBumperCounter;

  /// Error key of a motor board -> its error word.
  boost::container::flat_map<std::string, GKMemoryPlace<int>> fBoardErrorPtrs;
  /// Error key of a motor board -> temperature keys of its joints; the second one may be empty.
  std::map<std::string, std::pair<std::string, std::string>> fBoardTemperatureKeys;

  std::unique_ptr<GKMemoryFastAccess> fFastAccess;
  /// By `SensorIndex`: the values of this tick, and those published last.
  std::vector<float> fValues;
  std::vector<float> fLastValues;

  boost::shared_ptr<GKMemoryProxy> fMemoryProxy;

  /// Pause between ticks in milliseconds, at least 20.
  std::atomic<int> fPeriod = kMinimumPeriod;
  /// The loop may run.
  std::atomic<bool> fDetectionOn = false;
  /// A loop is inside `run`. Hands what the loop owns from one loop's thread to the next one's.
  /// Written before the other one is read by a loop that leaves, and after it by who starts one: in
  /// the one order that all threads agree on, one of the two sees the other.
  std::atomic<bool> fLoopRunning = false;

  boost::shared_ptr<GKSonar> fSonar;
  boost::shared_ptr<GKFsr> fFsr;
  boost::shared_ptr<GKRobotPose> fRobotPose;
  boost::shared_ptr<GKBattery> fBattery;

  /// Per joint, in the same order: the largest stiffness and the present one.
  std::vector<GKMemoryPlace<float>> fHardnessMaxPtrs;
  std::vector<GKMemoryPlace<float>> fHardnessValuePtrs;
  /// Body stiffness published last, a `BodyStiffness`.
  int fStiffnessState = kStiffnessUnknown;

  /// Ticks of the present temperature interval, and those of them that saw heat.
  std::uint64_t fTemperatureTicks = 0;
  std::uint64_t fHotTicks = 0;
  /// A heat alarm has been raised and the heat has not ended since.
  bool fHotReported = false;
  /// Error code and error key of the hot board seen last.
  int fHotError = 0;
  std::string fHotBoard;
};

} // namespace GK
