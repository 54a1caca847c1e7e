#include "modules/sonar/GKSonar.h"

#include "gk/GKBroker.h"
#include "gk/GKError.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

namespace GK {

namespace {

constexpr const char* kLogCategory = "motion.sonar";

constexpr const char* kActuatorKey = "US/Actuator/Value";
constexpr const char* kUpdateType = "ClearAll";
/// Values of the emitters' actuator.
constexpr float kReceptionOff = 32.0F;
constexpr float kReceptionOn = 68.0F;
/// Pause before the emitters are switched on, milliseconds.
constexpr unsigned int kActivationPause = 1000;
/// Offset of the DCM time of an order: now.
constexpr int kNow = 0;

/// Events repeat when the seconds counter has moved by more than this.
constexpr std::int32_t kGateSeconds = 1;

/// `a` - `b`, cut to 32 bits.
std::int32_t secondsBetween(std::int64_t a, std::int64_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

} // namespace

GKSonar::GKSonar(const boost::shared_ptr<GKBroker>& broker) : GKExtractor(broker, "GKSonar") {
  setModuleDescription("Deals with ultrasonic sensors.\n");

  functionName("_getFilteredValues", getName(),
               "Returns a vector with rightand left filtered sonar values (in this order). Theses "
               "valuesare the distances to the nearest detected obstacle.",
               0);
  getCurrentMethodDescription().result.type = GKConvert<std::vector<float>>::text();
  bindMethod(std::function<std::vector<float>()>([this] { return getFilteredValues(); }));
}

void GKSonar::init() {
  fMemoryProxy = getParentBroker()->getSpecialisedProxy<GKMemoryProxy>(GKMemory::kName);
  for (const char* event :
       {szKeyNameLeft, szKeyNameRight, szKeyNameFrontLeft, szKeyNameFrontRight,
        szKeyNameNothingDetected, szKeyNameMiddle, szKeyNameNothingLeft, szKeyNameNothingRight}) {
    fMemoryProxy->declareEvent(event, getName());
  }

  if (!getParentBroker()->isModulePresent(DCM::kName)) {
    zu::log::verbose(kLogCategory, "init") << getName() << " No DCM. Working in simulation mode.";
    return;
  }
  fDCM = boost::make_shared<DCMProxy>(getParentBroker());
  xBuildOrder();
  zu::os::gettimeofday(&fLastEventTime);
}

// The order

void GKSonar::xBuildOrder() {
  GKValue command;
  command.arraySetSize(2);
  command[0] = kReceptionOff;
  command[1] = fDCM->getTime(kNow);

  DCMOrderValue.arraySetSize(3);
  DCMOrderValue[0] = kActuatorKey;
  DCMOrderValue[1] = kUpdateType;
  DCMOrderValue[2].arrayPush(std::move(command));
}

void GKSonar::xSetCommand(float value) {
  GKValue& command = DCMOrderValue[2][0];
  command[0] = value;
  command[1] = fDCM->getTime(kNow);
}

void GKSonar::xStartDetection(int /*period*/, float /*precision*/) {
  xActivateReception();
  fDetectionActive.store(true, std::memory_order_relaxed);
}

void GKSonar::xStopDetection() {
  xDesactivateReception();
  fDetectionActive.store(false, std::memory_order_relaxed);
}

void GKSonar::xActivateReception() {
  if (!fDCM) {
    return;
  }
  // This command is never sent: the one below replaces it. The emitters stay as they are for the
  // length of the pause. Intended: one order, after the pause.
  xSetCommand(kReceptionOff);
  zu::os::msleep(kActivationPause);
  xSetCommand(kReceptionOn);
  try {
    fDCM->set(DCMOrderValue);
  } catch (const GKError&) {
    zu::log::error(kLogCategory, "xActivateReception")
        << getName() << "fDCM->set(DCMOrderValue) failed.";
  }
}

void GKSonar::xDesactivateReception() {
  if (!fDCM) {
    return;
  }
  xSetCommand(kReceptionOff);
  try {
    fDCM->set(DCMOrderValue);
  } catch (const GKError&) {
    // Without the full stop of the switch-on: each of the two lines keeps its own form.
    zu::log::error(kLogCategory, "xDesactivateReception")
        << getName() << "fDCM->set(DCMOrderValue) failed";
  }
}

// The tick. Hot path: allocates and looks up nothing until the gate opens.

void GKSonar::dataChanged(const float& left, const float& right) {
  if (!fDetectionActive.load(std::memory_order_relaxed)) {
    return;
  }
  xUpdateSonarBuffers(right, left);
  const bool moved = xShouldUpdateState();
  if (!moved && !fPeriodicEvents) {
    return;
  }
  xUpdateObstacleState();
  if (xShouldUpdateEvents()) {
    xRaiseSonarEvents();
  }
}

void GKSonar::xUpdateSonarBuffers(const float& right, const float& left) {
  fRightBuffer.push_back(right);
  fLeftBuffer.push_back(left);
  // Both buffers are filled together, so the size of one tells.
  if (fRightBuffer.size() > fBufferSize) {
    fRightBuffer.pop_front();
    fLeftBuffer.pop_front();
  }
}

bool GKSonar::xShouldUpdateState() {
  const float nearestRight = *std::min_element(fRightBuffer.begin(), fRightBuffer.end());
  const float nearestLeft = *std::min_element(fLeftBuffer.begin(), fLeftBuffer.end());
  const float filteredRight = fFilteredRight.load(std::memory_order_relaxed);
  const float filteredLeft = fFilteredLeft.load(std::memory_order_relaxed);
  if (std::fabs(nearestRight - filteredRight) > fUpdateThreshold ||
      std::fabs(nearestLeft - filteredLeft) > fUpdateThreshold) {
    // One side that moved brings the other one up to date.
    fFilteredRight.store(nearestRight, std::memory_order_relaxed);
    fFilteredLeft.store(nearestLeft, std::memory_order_relaxed);
    return true;
  }
  return false;
}

void GKSonar::xApplyDistanceFilter() {
  fRightDetected = fDetectionRange > fFilteredRight.load(std::memory_order_relaxed);
  fLeftDetected = fDetectionRange > fFilteredLeft.load(std::memory_order_relaxed);
}

void GKSonar::xUpdateObstacleState() {
  fPreviousObstacleState = fObstacleState;
  xApplyDistanceFilter();
  if (!fRightDetected && !fLeftDetected) {
    fObstacleState = ObstacleState::Nothing;
    return;
  }
  const float right = fFilteredRight.load(std::memory_order_relaxed);
  const float left = fFilteredLeft.load(std::memory_order_relaxed);
  // Ties go to the left.
  const bool rightIsNearer = left > right;
  if (fMiddleTolerance > std::fabs(right - left)) {
    fObstacleState = rightIsNearer ? ObstacleState::Right : ObstacleState::Left;
  } else {
    fObstacleState = rightIsNearer ? ObstacleState::LateralRight : ObstacleState::LateralLeft;
  }
}

bool GKSonar::xShouldUpdateEvents() {
  if (!fPeriodicEvents) {
    return fObstacleState != fPreviousObstacleState;
  }
  zu::os::timeval now;
  zu::os::gettimeofday(&now);
  // A clock that jumps back opens the gate as well as one that went on.
  const std::int32_t seconds = secondsBetween(fLastEventTime.tv_sec, now.tv_sec);
  if (seconds >= -kGateSeconds && seconds <= kGateSeconds) {
    return false;
  }
  zu::os::gettimeofday(&fLastEventTime);
  return true;
}

void GKSonar::xRaiseSonarEvents() {
  const float right = fFilteredRight.load(std::memory_order_relaxed);
  const float left = fFilteredLeft.load(std::memory_order_relaxed);
  const float nearest = left > right ? right : left;
  switch (fObstacleState) {
  case ObstacleState::LateralRight:
    // In the lateral states the far side is reported empty even when it detects something.
    fMemoryProxy->raiseEvent(szKeyNameNothingLeft, left);
    fMemoryProxy->raiseEvent(szKeyNameFrontRight, right);
    break;
  case ObstacleState::Right:
    fMemoryProxy->insertData(szKeyNameMiddle, nearest);
    fMemoryProxy->raiseEvent(szKeyNameRight, right);
    break;
  case ObstacleState::Left:
    fMemoryProxy->insertData(szKeyNameMiddle, nearest);
    fMemoryProxy->raiseEvent(szKeyNameLeft, left);
    break;
  case ObstacleState::LateralLeft:
    fMemoryProxy->raiseEvent(szKeyNameNothingRight, right);
    fMemoryProxy->raiseEvent(szKeyNameFrontLeft, left);
    break;
  case ObstacleState::Nothing:
    fMemoryProxy->raiseEvent(szKeyNameNothingRight, right);
    fMemoryProxy->raiseEvent(szKeyNameNothingLeft, left);
    fMemoryProxy->raiseEvent(szKeyNameNothingDetected, nearest);
    break;
  }
}

std::vector<float> GKSonar::getFilteredValues() const {
  return {fFilteredRight.load(std::memory_order_relaxed),
          fFilteredLeft.load(std::memory_order_relaxed)};
}

} // namespace GK
