#include "StepCounter.h"

#include "gk/GKBroker.h"
#include "gk/GKModuleLibrary.h"
#include "gk/GKProxy.h"
#include "zu/os.h"

#include <string>

namespace {

constexpr const char* kStep = "StepTaken";
constexpr int kPeriod = 20; // ms

/// Shares of the whole weight between which a foot is neither in the air nor carries the robot.
constexpr float kInTheAir = 0.1F;
constexpr float kCarries = 0.4F;
/// Below it the robot is not on the floor, kg.
constexpr float kLeastWeight = 0.4F;

} // namespace

StepCounter::StepCounter(const boost::shared_ptr<GK::GKBroker>& broker)
    : GKExtractor(broker, "StepCounter") {
  setModuleDescription("Counts the robot's steps.");

  functionName("getSteps", getName(), "Gets the number of steps so far.");
  setReturn("steps", "Number of steps.");
  bindMethod(&StepCounter::getSteps, static_cast<const StepCounter*>(this));

  functionName("run", getName(), "The module's loop. Not for others.");
  addParam("number", "Which loop it is.");
  bindMethod(&StepCounter::run, this);
}

void StepCounter::init() {
  fMemory = getParentBroker()->getSpecialisedProxy<GK::GKMemoryProxy>("GKMemory");
  fMemory->declareEvent(kStep, getName());
  fFeet.ConnectToVariables(getParentBroker(),
                           {"Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value",
                            "Device/SubDeviceList/RFoot/FSR/TotalWeight/Sensor/Value"},
                           false);
}

int StepCounter::getSteps() const {
  return fSteps.load();
}

void StepCounter::xStartDetection(int period, float) {
  fPeriod = period;
  // The loop is a task of its own: this returns at once.
  getParentBroker()->getProxy(getName(), 0)->postCall("run", ++fLoop);
}

void StepCounter::xUpdateParameters(int period, float) {
  fPeriod = period;
}

void StepCounter::xStopDetection() {
  ++fLoop;
}

int StepCounter::getDefaultPeriod() {
  return kPeriod;
}

void StepCounter::run(const int& number) {
  const auto broker = getParentBroker();
  while (!broker->isExiting() && fLoop.load() == number) {
    tick();
    zu::os::msleep(static_cast<unsigned int>(fPeriod.load()));
  }
}

void StepCounter::tick() {
  fFeet.GetValues(fWeights);
  const float sum = fWeights[0] + fWeights[1];
  if (!(sum > kLeastWeight)) {
    return; // Lifted: what the feet do then are no steps.
  }
  for (std::size_t foot = 0; foot < fIsInTheAir.size(); ++foot) {
    const float share = fWeights[foot] / sum;
    if (share < kInTheAir) {
      fIsInTheAir[foot] = true;
    } else if (share > kCarries && fIsInTheAir[foot]) {
      fIsInTheAir[foot] = false;
      fMemory->raiseEvent(kStep, ++fSteps);
    }
  }
}

GK_MODULE_LIBRARY(StepCounter)
