#include "gk/GKBroker.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKProxy.h"
#include "modules/battery/GKBattery.h"
#include "modules/fsr/GKFsr.h"
#include "modules/robotpose/GKRobotPose.h"
#include "modules/sensors/GKSensors.h"
#include "modules/sensors/SensorKeys.h"
#include "modules/sonar/GKSonar.h"
#include "zu/log.h"
#include "zu/os.h"

#include <boost/pointer_cast.hpp>

namespace GK {

void GKSensors::run() {
  xFindSiblings();
  if (!xEnterLoop()) {
    return;
  }
  do {
    xBindStiffness();
    // An error of this one leaves the module marked as running: without its boards it stays off.
    xBindBoards();
    xConnectToMemory();
    xTickOn();
  } while (xLeaveLoop());
}

bool GKSensors::xEnterLoop() {
  return fDetectionOn && !fLoopRunning.exchange(true);
}

void GKSensors::xTickOn() {
  const boost::shared_ptr<GKBroker> broker = getParentBroker();
  while (!broker->isExiting() && fDetectionOn) {
    xTick();
    zu::os::msleep(static_cast<unsigned int>(fPeriod));
  }
}

bool GKSensors::xLeaveLoop() {
  fLoopRunning = false;
  const boost::shared_ptr<GKBroker> broker = getParentBroker();
  return broker != nullptr && !broker->isExiting() && xEnterLoop();
}

void GKSensors::xFindSiblings() {
  xFindSibling("GKSonar", fSonar);
  xFindSibling("GKFsr", fFsr);
  xFindSibling("GKRobotPose", fRobotPose);
  xFindSibling("GKBattery", fBattery);
}

template <class T> void GKSensors::xFindSibling(const char* name, boost::shared_ptr<T>& sibling) {
  boost::shared_ptr<T> found =
      boost::dynamic_pointer_cast<T>(getParentBroker()->getProxy(name, 0)->getModule());
  // A loop may be ticking while somebody calls `run` once more.
  const GKCriticalSection lock(fMutex);
  sibling = std::move(found);
}

// Does not start from empty lists: after a stop and a new start every joint stands there twice,
// which does not change the body's state.
void GKSensors::xBindStiffness() {
  const boost::shared_ptr<GKBroker> broker = getParentBroker();
  for (const char* joint : kStiffnessJoints) {
    const std::string prefix = hardnessPrefix(joint);
    void* max = nullptr;
    void* value = nullptr;
    try {
      max = GKMemoryFastAccess::getDataPtr(broker, prefix + "Max", true);
      value = GKMemoryFastAccess::getDataPtr(broker, prefix + "Value", true);
    } catch (...) {
      continue; // Not every robot has all joints.
    }
    fHardnessMaxPtrs.emplace_back(max);
    fHardnessValuePtrs.emplace_back(value);
  }
}

void GKSensors::xBindBoards() {
  const boost::shared_ptr<GKBroker> broker = getParentBroker();
  for (const MotorBoard& board : kMotorBoards) {
    const std::string key = boardErrorKey(board.name);
    fBoardErrorPtrs.emplace(key,
                            GKMemoryPlace<int>(GKMemoryFastAccess::getDataPtr(broker, key, true)));
    fBoardTemperatureKeys[key] = {temperatureKey(board.firstJoint),
                                  temperatureKey(board.secondJoint)};
  }
}

void GKSensors::xConnectToMemory() {
  const std::vector<std::string> keys(kEventKeys.begin(), kEventKeys.end());
  try {
    fFastAccess->ConnectToVariables(getParentBroker(), keys, false);
  } catch (...) {
    zu::log::error(kSensorsLogCategory, "run")
        << getName() << " Connection to GKMemory failed. Please check that DCM is running";
  }
}

void GKSensors::xTick() {
  const GKCriticalSection tick(fMutex);
  try {
    xExtractEvents();
  } catch (...) {
    zu::log::error(kSensorsLogCategory, "run") << getName() << " Connection to GKMemory failed.";
  }
}

// The hot path, from here to the siblings: where nothing changes it allocates nothing, looks up
// nothing and takes no lock.
void GKSensors::xExtractEvents() {
  fFastAccess->GetValues(fValues);
  // What could not be connected reads as 0.
  fValues.resize(kSensorCount, 0.0F);

  xExtractBumper();
  xExtractChest();
  xExtractTactilHead();
  xExtractTactilHand();
  xExtractTemperature();
  xExtractStiffness();

  fSonar->dataChanged(fValues[kSonarLeft], fValues[kSonarRight]);
  fFsr->updateFootContact();
  // Reads the foot contact that was just written.
  fRobotPose->updateRobotPose();
  fBattery->updatePowerPlugged();
}

void GKSensors::xExtractSonar() {
  fSonar->dataChanged(fValues[kSonarLeft], fValues[kSonarRight]);
}

void GKSensors::xExtractFSR() {
  fFsr->updateFootContact();
}

void GKSensors::xExtractRobotPose() {
  fRobotPose->updateRobotPose();
}

void GKSensors::xExtractBattery() {
  fBattery->updatePowerPlugged();
}

} // namespace GK
