#include "FallAlarm.h"

#include "gk/GKBroker.h"
#include "gk/GKModuleLibrary.h"
#include "gk/GKProxy.h"
#include "zu/os.h"

#include <set>

namespace {

constexpr const char* kAlarm = "FallAlarm";
constexpr const char* kPose = "robotPoseChanged";
constexpr const char* kFeet = "footContactChanged";
constexpr const char* kQuiet = "Settings/FallAlarm/QuietSeconds";
constexpr float kQuietSeconds = 2.0F;

bool isLying(const std::string& pose) {
  static const std::set<std::string> lying = {"Back", "Belly", "Left", "Right", "HeadBack"};
  return lying.count(pose) > 0;
}

} // namespace

FallAlarm::FallAlarm(const boost::shared_ptr<GK::GKBroker>& broker)
    : GKModule(broker, "FallAlarm") {
  setModuleDescription("Tells that the robot has fallen, and that it is up again.");

  functionName("isFallen", getName(), "Tells whether the robot has fallen and is not up yet.");
  setReturn("isFallen", "True while it lies, and a while longer.");
  bindMethod(&FallAlarm::isFallen, static_cast<const FallAlarm*>(this));

  functionName("onPose", getName(), "Takes the event robotPoseChanged.");
  addParam("event", "Name of the event.");
  addParam("pose", "Name of the pose.");
  bindMethod(&FallAlarm::onPose, this);

  functionName("onFeet", getName(), "Takes the event footContactChanged.");
  addParam("event", "Name of the event.");
  addParam("isOnFloor", "True: the feet touch the floor.");
  bindMethod(&FallAlarm::onFeet, this);

  functionName("settle", getName(), "Waits whether the robot stays up. Not for others.");
  addParam("change", "What was the last to happen.");
  bindMethod(&FallAlarm::settle, this);
}

void FallAlarm::init() {
  fMemory = getParentBroker()->getSpecialisedProxy<GK::GKMemoryProxy>("GKMemory");
  const float seconds =
      fMemory->hasKey(kQuiet) ? fMemory->getData(kQuiet).toFloat() : kQuietSeconds;
  fQuietMilliseconds = static_cast<unsigned int>(seconds * 1000.0F);
  fMemory->declareEvent(kAlarm, getName());
  fMemory->subscribeToEvent(kPose, getName(), "onPose");
  fMemory->subscribeToEvent(kFeet, getName(), "onFeet");
}

void FallAlarm::exit() {
  fMemory->unsubscribeToEvent(kPose, getName());
  fMemory->unsubscribeToEvent(kFeet, getName());
}

bool FallAlarm::isFallen() const {
  const std::lock_guard<std::mutex> lock(fMutex);
  return fIsFallen;
}

void FallAlarm::onPose(const std::string&, const GK::GKValue& pose) {
  if (pose.toString() == "Unknown") {
    return; // On its way from one pose to another.
  }
  {
    const std::lock_guard<std::mutex> lock(fMutex);
    fIsUp = !isLying(pose.toString());
  }
  xJudge();
}

void FallAlarm::onFeet(const std::string&, const GK::GKValue& isOnFloor) {
  {
    const std::lock_guard<std::mutex> lock(fMutex);
    fIsOnFeet = isOnFloor.toBool();
  }
  xJudge();
}

void FallAlarm::xJudge() {
  bool isNew = false;
  bool mayBeOver = false;
  int change = 0;
  {
    const std::lock_guard<std::mutex> lock(fMutex);
    change = ++fChange;
    isNew = !fIsUp && !fIsFallen;
    fIsFallen = fIsFallen || isNew;
    mayBeOver = fIsFallen && fIsUp && fIsOnFeet;
  }
  if (isNew) {
    fMemory->raiseEvent(kAlarm, true);
  }
  if (mayBeOver) {
    getParentBroker()->getProxy(getName(), 0)->postCall("settle", change);
  }
}

void FallAlarm::settle(const int& change) {
  zu::os::msleep(fQuietMilliseconds);
  {
    const std::lock_guard<std::mutex> lock(fMutex);
    if (change != fChange) {
      return;
    }
    fIsFallen = false;
  }
  fMemory->raiseEvent(kAlarm, false);
}

GK_MODULE_LIBRARY(FallAlarm)
