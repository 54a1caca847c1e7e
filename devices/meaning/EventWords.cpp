#include "devices/meaning/EventWords.h"

#include "messages/text/Numbers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <iterator>

namespace gk::devices {

namespace {

using enum Importance;

constexpr std::string_view kTouched = "1.0 when it is touched, 0.0 when it is let go";
constexpr std::string_view kBumper =
    "1.0 when the bumper is pressed, from the second touched tick within 50 ms on; 0.0 when it is "
    "let go";
constexpr std::string_view kNothing = "distance measured although nothing is in sight on that side";
constexpr std::string_view kContact = "1.0 with more than 0.4 kg on the foot, else 0.0";
constexpr std::string_view kWeight = "weight on the foot, the mean of ten ticks";

constexpr ValueWords kLeftBumper[] = {{"1", "Left foot bumped into something"},
                                      {"0", "Left foot bumper free again"}};
constexpr ValueWords kRightBumper[] = {{"1", "Right foot bumped into something"},
                                       {"0", "Right foot bumper free again"}};
constexpr ValueWords kChest[] = {{"1", "Chest button pressed"}, {"0", "Chest button let go"}};
constexpr ValueWords kHeadFront[] = {{"1", "Head touched in front"}, {"0", "Head let go in front"}};
constexpr ValueWords kHeadMiddle[] = {{"1", "Head touched in the middle"},
                                      {"0", "Head let go in the middle"}};
constexpr ValueWords kHeadRear[] = {{"1", "Head touched at the back"},
                                    {"0", "Head let go at the back"}};
constexpr ValueWords kRightBack[] = {{"1", "Right hand touched on its back"},
                                     {"0", "Right hand let go on its back"}};
constexpr ValueWords kRightLeft[] = {{"1", "Right hand touched on its left"},
                                     {"0", "Right hand let go on its left"}};
constexpr ValueWords kRightRight[] = {{"1", "Right hand touched on its right"},
                                      {"0", "Right hand let go on its right"}};
constexpr ValueWords kLeftBack[] = {{"1", "Left hand touched on its back"},
                                    {"0", "Left hand let go on its back"}};
constexpr ValueWords kLeftLeft[] = {{"1", "Left hand touched on its left"},
                                    {"0", "Left hand let go on its left"}};
constexpr ValueWords kLeftRight[] = {{"1", "Left hand touched on its right"},
                                     {"0", "Left hand let go on its right"}};

constexpr ValueWords kStiffness[] = {{"0", "All joints went slack"},
                                     {"1", "Some joints are stiff, some slack"},
                                     {"2", "All joints went stiff"},
                                     {"-1", "Stiffness is not known"}};
constexpr ValueWords kFloor[] = {{"true", "Feet on the floor"}, {"false", "Feet off the floor"}};
constexpr ValueWords kPoses[] = {{"Unknown", "In no pose that has a name", Ordinary},
                                 {"Stand", "Stands"},
                                 {"Sit", "Sits"},
                                 {"Crouch", "Crouches"},
                                 {"Knee", "Kneels"},
                                 {"Frog", "Squats like a frog"},
                                 {"Back", "Lies on its back", Alarming},
                                 {"Belly", "Lies on its belly", Alarming},
                                 {"Left", "Lies on its left side", Alarming},
                                 {"Right", "Lies on its right side", Alarming},
                                 {"HeadBack", "Is upside down", Alarming}};
constexpr ValueWords kCharging[] = {{"true", "Battery is charging"},
                                    {"false", "Battery is not charging"}};
constexpr ValueWords kFull[] = {{"true", "Battery is full"}, {"false", "Battery is not full"}};
constexpr ValueWords kDischarging[] = {{"true", "Battery is discharging"},
                                       {"false", "Battery is not discharging"}};
constexpr ValueWords kPlugged[] = {{"true", "Charger plugged in"}, {"false", "Charger pulled out"}};

constexpr EventWords kWords[] = {
    {"LeftBumperPressed", "touch", "", 2, Ordinary, kBumper, "Left foot bumper: {value}",
     kLeftBumper},
    {"RightBumperPressed", "touch", "", 2, Ordinary, kBumper, "Right foot bumper: {value}",
     kRightBumper},
    {"ChestButtonPressed", "touch", "", 2, Ordinary,
     "1.0 when the button is pressed, 0.0 when it is let go", "Chest button: {value}", kChest},
    {"FrontTactilTouched", "touch", "", 2, Ordinary, kTouched, "Head in front: {value}",
     kHeadFront},
    {"MiddleTactilTouched", "touch", "", 2, Ordinary, kTouched, "Head in the middle: {value}",
     kHeadMiddle},
    {"RearTactilTouched", "touch", "", 2, Ordinary, kTouched, "Head at the back: {value}",
     kHeadRear},
    {"HandRightBackTouched", "touch", "", 2, Ordinary, kTouched, "Back of the right hand: {value}",
     kRightBack},
    {"HandRightLeftTouched", "touch", "", 2, Ordinary, kTouched, "Left of the right hand: {value}",
     kRightLeft},
    {"HandRightRightTouched", "touch", "", 2, Ordinary, kTouched,
     "Right of the right hand: {value}", kRightRight},
    {"HandLeftBackTouched", "touch", "", 2, Ordinary, kTouched, "Back of the left hand: {value}",
     kLeftBack},
    {"HandLeftLeftTouched", "touch", "", 2, Ordinary, kTouched, "Left of the left hand: {value}",
     kLeftLeft},
    {"HandLeftRightTouched", "touch", "", 2, Ordinary, kTouched, "Right of the left hand: {value}",
     kLeftRight},
    {"BodyStiffnessChanged", "stiffness", "", 0, Notable,
     "0 all joints are off, 2 all are stiff, 1 something between, -1 unknown",
     "Stiffness of the body: {value}", kStiffness},
    {"HotJoinDetected", "temperatures", "", 0, Alarming,
     "error key of a motor board that has been too hot for a while",
     "Motor board {value} is too hot"},
    {"SonarLeftDetected", "sonar", "m", 2, Ordinary,
     "distance of an obstacle ahead, rather to the left", "Obstacle ahead to the left at {value}"},
    {"SonarRightDetected", "sonar", "m", 2, Ordinary,
     "distance of an obstacle ahead, rather to the right",
     "Obstacle ahead to the right at {value}"},
    {"SonarMiddleDetected", "sonar", "m", 2, Background,
     "distance of an obstacle ahead, the smaller of both sides'"},
    {"SonarLateralLeftDetected", "sonar", "m", 2, Ordinary, "distance of an obstacle to the left",
     "Obstacle on the left at {value}"},
    {"SonarLateralRightDetected", "sonar", "m", 2, Ordinary, "distance of an obstacle to the right",
     "Obstacle on the right at {value}"},
    {"SonarLeftNothingDetected", "sonar", "m", 2, Background, kNothing,
     "Nothing in sight on the left"},
    {"SonarRightNothingDetected", "sonar", "m", 2, Background, kNothing,
     "Nothing in sight on the right"},
    {"SonarNothingDetected", "sonar", "m", 2, Background,
     "the smaller distance although nothing is in sight", "Nothing in sight"},
    {"footContactChanged", "feet", "", 0, Notable, "whether the robot stands on the floor",
     "Feet on the floor: {value}", kFloor},
    {"footContact", "feet", "", 0, Background,
     "1.0 with more than 0.4 kg on both feet together, else 0.0"},
    {"leftFootContact", "feet", "", 0, Background, kContact},
    {"rightFootContact", "feet", "", 0, Background, kContact},
    {"leftFootTotalWeight", "feet", "kg", 2, Background, kWeight},
    {"rightFootTotalWeight", "feet", "kg", 2, Background, kWeight},
    {"robotPoseChanged", "pose", "", 0, Notable, "the pose that has lasted for half a second",
     "Pose {value}", kPoses},
    {"robotPose", "pose", "", 0, Background,
     "pose at this tick: 0 Unknown, 1 Stand, 2 Sit, 3 Crouch, 4 Knee, 5 Frog, 6 Back, 7 Belly, "
     "8 Left, 9 Right, 10 HeadBack"},
    {"robotPoseSince", "pose", "s", 2, Background, "how long the pose has lasted"},
    {"BatteryChargeChanged", "battery", "%", 0, Ordinary, "charge of the battery",
     "Battery at {value}"},
    {"BatteryChargingFlagChanged", "battery", "", 0, Ordinary,
     "whether the battery is being charged", "Battery is charging: {value}", kCharging},
    {"BatteryFullChargedFlagChanged", "battery", "", 0, Ordinary, "whether the battery is full",
     "Battery is full: {value}", kFull},
    {"BatteryDisChargingFlagChanged", "battery", "", 0, Ordinary,
     "whether the battery is being discharged", "Battery is discharging: {value}", kDischarging},
    {"BatteryChargeCellVoltageMinChanged", "battery", "", 0, Background,
     "lowest voltage of a cell, as the board tells it", "Lowest cell voltage is {value}"},
    {"BatteryPowerPluggedChanged", "battery", "", 0, Notable,
     "whether the charger is plugged in, judged by battery and motor currents",
     "Charger is plugged in: {value}", kPlugged},
    {"BatteryLevelChanged", "battery", "", 0, Background, "-1, once at the start",
     "Battery level is not told"},
};

/// The form in which `ValueWords` has it.
std::string plainText(const GK::GKValue& value) {
  std::string text;
  switch (value.type()) {
  case GK::GKValue::Type::Bool:
    return value.toBool() ? "true" : "false";
  case GK::GKValue::Type::Int:
    return std::to_string(value.toInt());
  case GK::GKValue::Type::Float:
    messages::appendFloat(text, value.toFloat());
    return text.ends_with(".0") ? text.substr(0, text.size() - 2) : text;
  case GK::GKValue::Type::String:
    return value.toString();
  default:
    return text;
  }
}

/// "Device/DeviceList/HeadBoard/Error" is the motor board "HeadBoard".
std::string shortName(std::string text) {
  constexpr std::string_view prefix = "Device/";
  if (text.starts_with(prefix)) {
    const std::size_t begin = text.find('/', prefix.size()) + 1;
    if (begin > 0) {
      return text.substr(begin, text.find('/', begin) - begin);
    }
  }
  return text;
}

std::string measuredText(const EventWords& words, const GK::GKValue& value) {
  const bool isNumber = value.type() == GK::GKValue::Type::Float && std::isfinite(value.toFloat());
  std::string text;
  if (isNumber) {
    std::array<char, 64> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value.toFloat(),
                                   std::chars_format::fixed, words.digits);
    text.assign(digits.data(), end.ptr);
  } else {
    text = shortName(plainText(value));
  }
  return words.unit.empty() ? text : text.append(" ").append(words.unit);
}

const ValueWords* wordsOf(const EventWords& words, const GK::GKValue& value) {
  const auto found = std::ranges::find(words.values, plainText(value), &ValueWords::value);
  return found != words.values.end() ? &*found : nullptr;
}

} // namespace

std::span<const EventWords> eventWords() {
  return kWords;
}

const EventWords* findEventWords(std::string_view name) {
  const auto* const found = std::ranges::find(kWords, name, &EventWords::name);
  return found != std::end(kWords) ? found : nullptr;
}

std::string eventSentence(std::string_view name, const GK::GKValue& value) {
  const EventWords* const words = findEventWords(name);
  if (words == nullptr) {
    return {};
  }
  if (const ValueWords* own = wordsOf(*words, value)) {
    return std::string(own->sentence);
  }
  constexpr std::string_view place = "{value}";
  std::string text(words->sentence);
  if (const std::size_t at = text.find(place); at != std::string::npos) {
    text.replace(at, place.size(), measuredText(*words, value));
  }
  return text;
}

Importance eventImportance(std::string_view name, const GK::GKValue& value) {
  const EventWords* const words = findEventWords(name);
  if (words == nullptr) {
    return Ordinary;
  }
  const ValueWords* const own = wordsOf(*words, value);
  return own != nullptr && own->importance ? *own->importance : words->importance;
}

} // namespace gk::devices
