#include "gk/GKMemoryProxy.h"
#include "modules/sensors/GKSensors.h"
#include "modules/sensors/SensorKeys.h"

// Part of every tick: allocates only when an event is raised.
namespace GK {

namespace {

/// A press counts once it was seen twice within this time.
constexpr GKTime kPressConfirmation = {0, 0, 0, 0, 50}; // 50 ms
constexpr int kCountOfConfirmedPress = 2;

/// A bumper value above this one is a touch.
constexpr float kBumperReleased = 0.0F;

struct FootBumper {
  SensorIndex right;
  SensorIndex left;
  /// Where the foot's published state is kept.
  SensorIndex state;
  const std::string* event;
};

constexpr FootBumper kFootBumpers[] = {
    {kLeftFootRightBumper, kLeftFootLeftBumper, kLeftFootRightBumper, &szKeyNameLeftBumper},
    {kRightFootRightBumper, kRightFootLeftBumper, kRightFootRightBumper, &szKeyNameRightBumper},
};

struct TouchSensor {
  SensorIndex index;
  const std::string* event;
};

constexpr TouchSensor kHeadSensors[] = {
    {kHeadFront, &szKeyNameTactilFront},
    {kHeadMiddle, &szKeyNameTactilMiddle},
    {kHeadRear, &szKeyNameTactilRear},
};

constexpr TouchSensor kHandSensors[] = {
    {kRightHandBack, &szKeyNameTactilHandRightBack},
    {kRightHandLeft, &szKeyNameTactilHandRightLeft},
    {kRightHandRight, &szKeyNameTactilHandRightRight},
    {kLeftHandBack, &szKeyNameTactilHandLeftBack},
    {kLeftHandLeft, &szKeyNameTactilHandLeftLeft},
    {kLeftHandRight, &szKeyNameTactilHandLeftRight},
};

} // namespace

void GKSensors::xExtractBumper() {
  for (const FootBumper& foot : kFootBumpers) {
    const bool isTouched =
        fValues[foot.right] > kBumperReleased || fValues[foot.left] > kBumperReleased;
    // A release is told at once, a press when it is confirmed. Both feet share the counter.
    if (isTouched && fBumperCounter.tic(kPressConfirmation) < kCountOfConfirmedPress) {
      continue;
    }
    xPublishIfChanged(foot.state, isTouched ? 1.0F : 0.0F, *foot.event);
  }
}

void GKSensors::xExtractChest() {
  xPublishIfChanged(kChestButton, fValues[kChestButton], szKeyNameChestButton);
}

void GKSensors::xExtractTactilHead() {
  for (const TouchSensor& sensor : kHeadSensors) {
    xPublishIfChanged(sensor.index, fValues[sensor.index], *sensor.event);
  }
}

void GKSensors::xExtractTactilHand() {
  for (const TouchSensor& sensor : kHandSensors) {
    xPublishIfChanged(sensor.index, fValues[sensor.index], *sensor.event);
  }
}

// Any change counts, without a threshold; a value that is not a number differs from itself and is
// published on each tick.
void GKSensors::xPublishIfChanged(std::size_t index, float value, const std::string& event) {
  if (value != fLastValues[index]) {
    // Kept first: a raise that fails is not repeated.
    fLastValues[index] = value;
    fMemoryProxy->raiseEvent(event, value);
  }
}

} // namespace GK
