#include "modules/robotpose/GKRobotPose.h"

#include "gk/GKBroker.h"
#include "gk/GKError.h"
#include "modules/shared/LegsVersion.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

#include <iostream>
#include <limits>

namespace GK {

namespace {

constexpr const char* kLogCategory = "motion.sensors.robotpose";
constexpr const char* kDeprecationCategory = "GKRobotPose";

/// A pose is announced when it has lasted longer than this, ticks.
constexpr std::int32_t kTemporisation = 25;

/// The input values start with one slot more than is ever read.
constexpr std::size_t kInitialInputs = 12;
constexpr std::size_t kOutputs = 2;

} // namespace

const std::string GKRobotPose::fExtractorKeyNamePoseChanged = "robotPoseChanged";
const std::string GKRobotPose::fFastAcessKeyNamePose = "robotPose";
const std::string GKRobotPose::fFastAcessKeyNameTime = "robotPoseSince";

GKRobotPose::GKRobotPose(const boost::shared_ptr<GKBroker>& broker)
    : GKModule(broker, "GKRobotPose"), fInputValues(kInitialInputs, 0.0F),
      fOutputValues(kOutputs, 0.0F), fPoseNames(xOfficialNames()),
      fMemoryFastAccessIn(boost::make_shared<GKMemoryFastAccess>()),
      fMemoryFastAccessOut(boost::make_shared<GKMemoryFastAccess>()) {
  setModuleDescription(
      "This module give the estimated Moku PoseDetects. \n.A MicroEvent is generated when the "
      "robot pose changed. A temporization of 500ms is apply before generated this MicroEvent.\n"
      "The GKMemory Key is " +
      fExtractorKeyNamePoseChanged +
      ", its a string corresponding to the actual robot Pose.\n"
      "Also some fast access Memory key are available : \n " +
      fFastAcessKeyNamePose +
      " An integer in relation with the actual pose(use getPoseNames() to have a relation between "
      "int and string)\n " +
      fFastAcessKeyNameTime +
      " A float corresponding to the time in second since the actual Pose is active.\n");
  xBindMethods();

  try {
    fMemoryProxy = getParentBroker()->getSpecialisedProxy<GKMemoryProxy>(GKMemory::kName);
  } catch (const GKError&) {
    zu::log::error(kLogCategory, "GKRobotPose")
        << getName() << "No GKMemory. robotPose set to \"Unknown\".";
    fActive = false;
  }
  try {
    fResourceManager = getParentBroker()->getProxy("GKResourceManager", 0);
  } catch (const GKError&) {
    zu::log::error(kLogCategory, "GKRobotPose") << getName() << "No resource manager found";
  }
  xCreateMapOfPose();
  if (fMemoryProxy) {
    xCheckLegs();
    xDeclareEvent();
    xConnectToMemory();
  }
}

void GKRobotPose::xBindMethods() {
  functionName("getPoseNames", getName(),
               "Get the full list of pose possibly return by this module.\n");
  setReturn("pPoseList", "A GKValue array of string containing the possible Poses.");
  bindMethod(&GKRobotPose::getPoseNames, this);

  functionName("getActualPoseAndTime", getName(),
               "Get the actual robot pose and the time since this pose was activate.");
  setReturn("pRobotPoseAndTime",
            "A GKValue array of size 2. With first a string of the robot pose and \n"
            "then a float with the time in second since this pose is activated.");
  bindMethod(&GKRobotPose::getActualPoseAndTime, this);
}

void GKRobotPose::xCheckLegs() {
  // Unguarded: a robot that cannot tell about its legs is not started.
  if (fMemoryProxy->getData(kLegsVersionKey).toInt() == kNoLegs) {
    zu::log::warning(kLogCategory, "GKRobotPose")
        << getName() << "No legs. robotPose is set to \"Unknown\".";
    fActive = false;
  }
}

void GKRobotPose::xDeclareEvent() {
  try {
    fMemoryProxy->declareEvent(fExtractorKeyNamePoseChanged, "GKRobotPose");
    xAnnounce(xNameOf(xCurrentPose()));
  } catch (const GKError&) {
    zu::log::error(kLogCategory, "GKRobotPose")
        << getName()
        << "Could not insert data in GKMemory. GKRobotPose Module will not create event.";
    fEventsEnabled = false;
  }
}

void GKRobotPose::xConnectToMemory() {
  const auto code = static_cast<float>(xConvertPoseToInt(xNameOf(xCurrentPose())));
  fMemoryProxy->insertData(fFastAcessKeyNamePose, code);
  fMemoryProxy->insertData(fFastAcessKeyNameTime, 0.0F);
  try {
    fMemoryFastAccessIn->ConnectToVariables(
        getParentBroker(),
        {"Device/SubDeviceList/InertialSensor/AngleX/Sensor/Value",
         "Device/SubDeviceList/InertialSensor/AngleY/Sensor/Value",
         "Device/SubDeviceList/LHipPitch/Position/Sensor/Value",
         "Device/SubDeviceList/RHipPitch/Position/Sensor/Value",
         "Device/SubDeviceList/LKneePitch/Position/Sensor/Value",
         "Device/SubDeviceList/RKneePitch/Position/Sensor/Value",
         "Device/SubDeviceList/LAnklePitch/Position/Sensor/Value",
         "Device/SubDeviceList/RAnklePitch/Position/Sensor/Value", "leftFootContact",
         "rightFootContact", "Motion/IsStand"},
        false);
    fMemoryFastAccessOut->ConnectToVariables(getParentBroker(),
                                             {fFastAcessKeyNamePose, fFastAcessKeyNameTime}, true);
  } catch (const GKError&) {
    zu::log::error(kLogCategory, "xConnectToMemory")
        << getName() << " Connection to GKMemory failed. Please check that DCM is running.";
  }
}

void GKRobotPose::xDeconnectToMemory() {
  // Once for each object, although the first call already stops the whole library.
  fMemoryFastAccessIn->StopAllAccess();
  fMemoryFastAccessOut->StopAllAccess();
}

void GKRobotPose::exit() {
  xDeconnectToMemory();
  GKModule::exit();
}

// Hot path: allocates and looks up nothing unless a pose is announced.
void GKRobotPose::updateRobotPose() {
  if (!fActive) {
    return;
  }
  fMemoryFastAccessIn->GetValues(fInputValues);
  fInputValues.resize(kSampleSize, 0.0F); // an unconnected sensor reads zero

  const Pose pose = xClassify(Sample(fInputValues.data(), kSampleSize));
  if (pose != xCurrentPose()) {
    fTickCounter = 0;
    fCurrentPose.store(pose, std::memory_order_relaxed);
  }
  if (fTickCounter < std::numeric_limits<std::int32_t>::max()) {
    ++fTickCounter;
  }

  const float since = static_cast<float>(fTickCounter) * fDt;
  fPoseSince.store(since, std::memory_order_relaxed);
  fOutputValues[0] = static_cast<float>(pose);
  fOutputValues[1] = since;
  fMemoryFastAccessOut->SetValues(fOutputValues);

  if (!fEventsEnabled || fTickCounter <= kTemporisation || pose == fAnnouncedPose) {
    return;
  }
  fAnnouncedPose = pose; // first: a refused event is not tried again
  try {
    xAnnounce(xNameOf(pose));
  } catch (const GKError&) {
    zu::log::error(kLogCategory, "updateRobotPose") << getName() << " Failed to insert Data.";
  }
}

void GKRobotPose::xAnnounce(const std::string& pose) {
  fMemoryProxy->raiseEvent(fExtractorKeyNamePoseChanged, pose);
  xActivateResource(pose);
}

void GKRobotPose::xActivateResource(const std::string& pose) {
  if (!fResourceManager) {
    return;
  }
  const auto enable = [this](const char* state, bool enabled) {
    fResourceManager->callVoid("enableStateResource", std::string(state), enabled);
  };
  try {
    if (pose == "Sit") {
      enable("Standing", false);
      enable("Sitting", true);
    } else if (pose == "Stand" || pose == "Crouch") {
      enable("Sitting", false);
      enable("Standing", true);
    } else {
      enable("Standing", false);
      enable("Sitting", false);
    }
  } catch (const GKError& error) {
    // Standard output and not the log; one write, so that lines of other threads stay whole.
    std::cout << error.toString() + "\n" << std::flush;
  }
}

GKValue GKRobotPose::getPoseNames() const {
  zu::log::warning(kDeprecationCategory, "getPoseNames")
      << "GKRobotPose is deprecated, please use"
      << "GKRobotPosture instead (getPostureFamilyList).";
  return GKConvert<std::vector<std::string>>::to(fPoseNames);
}

GKValue GKRobotPose::getActualPoseAndTime() const {
  zu::log::warning(kDeprecationCategory, "getActualPoseAndTime")
      << "GKRobotPose is deprecated, please use"
      << "GKRobotPosture instead (getPostureFamily).";
  GKValue result;
  result.arrayPush(xNameOf(xCurrentPose()));
  result.arrayPush(fPoseSince.load(std::memory_order_relaxed));
  return result;
}

const std::string& GKRobotPose::xNameOf(Pose pose) const {
  return fPoseNames[static_cast<std::size_t>(pose)];
}

} // namespace GK
