#include "modules/sensors/GKSensors.h"

#include "gk/GKBroker.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKProxy.h"
#include "modules/battery/GKBattery.h"
#include "modules/fsr/GKFsr.h"
#include "modules/robotpose/GKRobotPose.h"
#include "modules/sensors/SensorKeys.h"
#include "modules/sonar/GKSonar.h"
#include "zu/log.h"

namespace GK {

namespace {

constexpr const char* kModuleName = "GKSensors";

/// The module's subscription to itself.
constexpr const char* kOwnSubscriber = "sensors";
constexpr int kOwnPeriod = 20; // ms
constexpr float kOwnPrecision = 0.0F;

/// A last value that no sensor delivers, so that the first tick publishes every sensor.
constexpr float kNeverPublished = -5.0F;

} // namespace

GKSensors::GKSensors(const boost::shared_ptr<GKBroker>& broker) : GKExtractor(broker, kModuleName) {
  setModuleDescription("Deals with bumpers and chest button. \n Activate the events : \"" +
                       szKeyNameRightBumper + "\", \"" + szKeyNameLeftBumper + "\", \"" +
                       szKeyNameChestButton + "\".");

  functionName("run", getName(), "Monitors sensors.");
  bindMethod(&GKSensors::run, this);
}

GKSensors::~GKSensors() {
  if (fFastAccess) {
    fFastAccess->StopAllAccess();
  }
}

void GKSensors::init() {
  fMemoryProxy = getParentBroker()->getSpecialisedProxy<GKMemoryProxy>(GKMemory::kName);

  // The stiffness event is not declared: it is only ever raised in the lightweight form.
  for (const std::string* event :
       {&strHeatEvent, &szKeyNameRightBumper, &szKeyNameLeftBumper, &szKeyNameChestButton,
        &szKeyNameTactilFront, &szKeyNameTactilMiddle, &szKeyNameTactilRear,
        &szKeyNameTactilHandRightBack, &szKeyNameTactilHandRightLeft,
        &szKeyNameTactilHandRightRight, &szKeyNameTactilHandLeftBack, &szKeyNameTactilHandLeftLeft,
        &szKeyNameTactilHandLeftRight}) {
    fMemoryProxy->declareEvent(*event, getName());
  }

  // The two bumper keys exist before the first press.
  fMemoryProxy->insertData(szKeyNameRightBumper, 0);
  fMemoryProxy->insertData(szKeyNameLeftBumper, 0);

  fFastAccess = std::make_unique<GKMemoryFastAccess>();
  fValues.assign(kSensorCount, 0.0F);
  fLastValues.assign(kSensorCount, kNeverPublished);

  fStiffnessState = kStiffnessUnknown;
  fMemoryProxy->raiseMicroEvent(szKeyNameEventStiffnessChanged, fStiffnessState);

  fDetectionOn = true;
  subscribe(kOwnSubscriber, kOwnPeriod, kOwnPrecision);
}

void GKSensors::exit() {
  fDetectionOn = false;
  // Waits for a tick that is running, whose lock this is.
  const GKCriticalSection tick(fMutex);
}

void GKSensors::xStartDetection(int period, float precision) {
  xUpdateParameters(period, precision);
  fDetectionOn = true;
  getParentBroker()->getProxy(getName(), 0)->postCall("run");
}

void GKSensors::xUpdateParameters(int period, float) {
  if (period < kMinimumPeriod) {
    zu::log::warning(kSensorsLogCategory, "xUpdateParameters")
        << getName() << " the period of GKSensors extractor can't be less than 20 ms";
    period = kMinimumPeriod;
  }
  fPeriod = period;
}

void GKSensors::xStopDetection() {
  fDetectionOn = false;
}

} // namespace GK
