#include "app/ask/EventMeanings.h"

#include <algorithm>
#include <iterator>

namespace gk::app {

namespace {

constexpr std::string_view kTouched = "1.0 when it is touched, 0.0 when it is let go";
constexpr std::string_view kBumper =
    "1.0 when the bumper is pressed, from the second touched tick within 50 ms on; 0.0 when it is "
    "let go";
constexpr std::string_view kNothing = "distance measured although nothing is in sight on that side";
constexpr std::string_view kContact = "1.0 with more than 0.4 kg on the foot, else 0.0";
constexpr std::string_view kWeight = "weight on the foot, the mean of ten ticks";

constexpr Meaning kMeanings[] = {
    {"LeftBumperPressed", "", kBumper},
    {"RightBumperPressed", "", kBumper},
    {"ChestButtonPressed", "", "1.0 when the button is pressed, 0.0 when it is let go"},
    {"FrontTactilTouched", "", kTouched},
    {"MiddleTactilTouched", "", kTouched},
    {"RearTactilTouched", "", kTouched},
    {"HandRightBackTouched", "", kTouched},
    {"HandRightLeftTouched", "", kTouched},
    {"HandRightRightTouched", "", kTouched},
    {"HandLeftBackTouched", "", kTouched},
    {"HandLeftLeftTouched", "", kTouched},
    {"HandLeftRightTouched", "", kTouched},
    {"BodyStiffnessChanged", "",
     "0 all joints are off, 2 all are stiff, 1 something between, -1 unknown"},
    {"HotJoinDetected", "", "error key of a motor board that has been too hot for a while"},
    {"SonarLeftDetected", "m", "distance of an obstacle ahead, rather to the left"},
    {"SonarRightDetected", "m", "distance of an obstacle ahead, rather to the right"},
    {"SonarMiddleDetected", "m", "distance of an obstacle ahead, the smaller of both sides'"},
    {"SonarLateralLeftDetected", "m", "distance of an obstacle to the left"},
    {"SonarLateralRightDetected", "m", "distance of an obstacle to the right"},
    {"SonarLeftNothingDetected", "m", kNothing},
    {"SonarRightNothingDetected", "m", kNothing},
    {"SonarNothingDetected", "m", "the smaller distance although nothing is in sight"},
    {"footContactChanged", "", "whether the robot stands on the floor"},
    {"footContact", "", "1.0 with more than 0.4 kg on both feet together, else 0.0"},
    {"leftFootContact", "", kContact},
    {"rightFootContact", "", kContact},
    {"leftFootTotalWeight", "kg", kWeight},
    {"rightFootTotalWeight", "kg", kWeight},
    {"robotPoseChanged", "", "the pose that has lasted for half a second"},
    {"robotPose", "",
     "pose at this tick: 0 Unknown, 1 Stand, 2 Sit, 3 Crouch, 4 Knee, 5 Frog, 6 Back, 7 Belly, "
     "8 Left, 9 Right, 10 HeadBack"},
    {"robotPoseSince", "s", "how long the pose has lasted"},
    {"BatteryChargeChanged", "%", "charge of the battery"},
    {"BatteryChargingFlagChanged", "", "whether the battery is being charged"},
    {"BatteryFullChargedFlagChanged", "", "whether the battery is full"},
    {"BatteryDisChargingFlagChanged", "", "whether the battery is being discharged"},
    {"BatteryChargeCellVoltageMinChanged", "", "lowest voltage of a cell, as the board tells it"},
    {"BatteryPowerPluggedChanged", "",
     "whether the charger is plugged in, judged by battery and motor currents"},
    {"BatteryLevelChanged", "", "-1, once at the start"},
};

} // namespace

const Meaning* meaningOf(std::string_view name) {
  const auto* const found = std::ranges::find(kMeanings, name, &Meaning::name);
  return found != std::end(kMeanings) ? found : nullptr;
}

} // namespace gk::app
