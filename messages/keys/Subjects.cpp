#include "messages/keys/Subjects.h"

#include "messages/keys/DeviceKeys.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <utility>

namespace gk::messages {

namespace {

using Shape = SubjectField::Shape;

#define DEVICES "Device/SubDeviceList/"

constexpr std::string_view kJointTopic = "/joint_states";

/// How the varying part of a key becomes a field name.
enum class Style : unsigned char {
  AsIs, ///< "HeadYaw"
  Snake ///< "TotalWeight" becomes "total_weight"
};

/// Device keys of the form `before` + one word + `after` belong to `topic`, under the name `prefix`
/// + word + `suffix` + unit.
struct Rule {
  std::string_view before;
  std::string_view after;
  std::string_view topic;
  Style style;
  std::string_view prefix;
  std::string_view suffix;
};

/// The first rule that fits counts.
constexpr Rule kRules[] = {
    {DEVICES "Battery/Charge", "/Sensor/Value", "/battery", Style::Snake, "charge", "_ratio"},
    {DEVICES "Battery/Charge", "/Sensor/Status", "/battery", Style::Snake, "status", ""},
    {DEVICES "Battery/Charge", "/Sensor/CellVoltageMin", "/battery", Style::Snake,
     "cell_voltage_min", "_raw"},
    {DEVICES "Battery/", "/Sensor/Value", "/battery", Style::Snake, "", ""},
    {DEVICES "LFoot/FSR/", "/Sensor/Value", "/feet", Style::Snake, "left_", ""},
    {DEVICES "RFoot/FSR/", "/Sensor/Value", "/feet", Style::Snake, "right_", ""},
    {DEVICES "US/", "/Sensor/Value", "/sonar", Style::Snake, "", ""},
    {DEVICES "InertialSensor/", "/Sensor/Value", "/imu", Style::Snake, "", ""},
    {DEVICES "LFoot/Bumper/", "/Sensor/Value", "/touch", Style::Snake, "left_foot_bumper_", ""},
    {DEVICES "RFoot/Bumper/", "/Sensor/Value", "/touch", Style::Snake, "right_foot_bumper_", ""},
    {DEVICES "ChestBoard/", "/Sensor/Value", "/touch", Style::Snake, "chest_", ""},
    {DEVICES "Head/Touch/", "/Sensor/Value", "/touch", Style::Snake, "head_", ""},
    {DEVICES "LHand/Touch/", "/Sensor/Value", "/touch", Style::Snake, "left_hand_", ""},
    {DEVICES "RHand/Touch/", "/Sensor/Value", "/touch", Style::Snake, "right_hand_", ""},
    {DEVICES, "/Position/Sensor/Value", kJointTopic, Style::AsIs, "", ""},
    {DEVICES, "/Hardness/Actuator/Value", "/stiffness", Style::AsIs, "", "_ratio"},
    {DEVICES, "/Temperature/Sensor/Value", "/temperatures", Style::AsIs, "", ""},
    {DEVICES, "/ElectricCurrent/Sensor/Value", "/currents", Style::AsIs, "", ""},
    {"Device/DeviceList/", "/Error", "/temperatures", Style::AsIs, "", "_error"},
};

#undef DEVICES

/// What modules add: keys that are no device keys.
struct Extra {
  std::string_view topic;
  SubjectField field;
};

const std::vector<Extra>& extras() {
  static const std::vector<Extra> all = {
      {"/feet", {"contact", "footContact", Shape::Number, "1 when the robot stands on the floor"}},
      {"/feet", {"left_contact", "leftFootContact", Shape::Number, "1 when the foot is loaded"}},
      {"/feet", {"right_contact", "rightFootContact", Shape::Number, "1 when the foot is loaded"}},
      {"/feet",
       {"left_mean_weight_kg", "leftFootTotalWeight", Shape::Number, "mean of the last ticks"}},
      {"/feet",
       {"right_mean_weight_kg", "rightFootTotalWeight", Shape::Number, "mean of the last ticks"}},
      {"/sonar",
       {"middle_m", "SonarMiddleDetected", Shape::Number,
        "smaller distance when something was last ahead"}},
      {"/pose", {"name", "robotPoseChanged", Shape::Text, "the pose that has lasted"}},
      {"/pose", {"code", "robotPose", Shape::Number, "the pose of this tick, 0 for unknown"}},
      {"/pose", {"since_s", "robotPoseSince", Shape::Number, "how long the pose has lasted"}},
      {"/pose",
       {"is_stand", "Motion/IsStand", Shape::Number, "0 unless motion keeps the robot standing"}},
      {"/battery", {"charge_percent", "BatteryChargeChanged", Shape::Integer, "charge in percent"}},
      {"/battery",
       {"plugged", "BatteryPowerPluggedChanged", Shape::Boolean, "whether the charger is in"}},
      {"/stiffness",
       {"body", "BodyStiffnessChanged", Shape::Integer, "0 all off, 1 mixed, 2 all stiff"}},
  };
  return all;
}

/// Subjects in the order in which they are announced.
constexpr std::pair<std::string_view, std::string_view> kTitles[] = {
    {"/pose", "Posture of the body"},
    {"/feet", "Load on the feet"},
    {"/sonar", "Ultrasonic distances"},
    {"/imu", "Inclination of the body"},
    {"/touch", "Touch sensors, bumpers and buttons: 1 when pressed"},
    {"/battery", "Battery"},
    {"/stiffness", "Stiffness of the joints, 0 (off) to 1"},
    {"/temperatures", "Temperatures of the motors, errors of their boards"},
    {"/currents", "Currents of the motors"},
};

/// "TotalWeight" -> "total_weight", "AngleX" -> "angle_x".
std::string snake(std::string_view word) {
  std::string text;
  for (const char c : word) {
    if (std::isupper(static_cast<unsigned char>(c)) != 0) {
      if (!text.empty()) {
        text += '_';
      }
      text += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    } else {
      text += c;
    }
  }
  return text;
}

/// The word between the ends of a key, or nothing when the rule does not fit.
std::optional<std::string_view> wordOf(const Rule& rule, std::string_view key) {
  if (key.size() < rule.before.size() + rule.after.size() || !key.starts_with(rule.before) ||
      !key.ends_with(rule.after)) {
    return std::nullopt;
  }
  key.remove_prefix(rule.before.size());
  key.remove_suffix(rule.after.size());
  return key.find('/') == std::string_view::npos ? std::optional(key) : std::nullopt;
}

/// "rad/s" cannot stand in a name that people want to write without quotes.
std::string unitSuffix(std::string_view unit) {
  std::string text = unit.empty() ? "" : "_";
  for (const char c : unit) {
    text += c == '/' ? std::string("_per_") : std::string(1, c);
  }
  return text;
}

struct Placed {
  std::string_view topic;
  SubjectField field;
};

std::optional<Placed> place(const DeviceKey& key) {
  for (const Rule& rule : kRules) {
    const std::optional<std::string_view> word = wordOf(rule, key.name);
    if (!word) {
      continue;
    }
    SubjectField field;
    field.name = std::string(rule.prefix)
                     .append(rule.style == Style::Snake ? snake(*word) : std::string(*word))
                     .append(rule.suffix);
    if (rule.topic != kJointTopic) {
      field.name += unitSuffix(key.unit);
    }
    field.key = key.name;
    field.shape = key.type == KeyType::Int ? Shape::Integer : Shape::Number;
    field.meaning = key.meaning;
    return Placed{rule.topic, std::move(field)};
  }
  return std::nullopt;
}

/// "/joint_states" -> "JointStates".
std::string schemaNameOf(std::string_view topic) {
  std::string name = "gk.";
  bool isUpper = true;
  for (const char c : topic.substr(1)) {
    if (c == '_') {
      isUpper = true;
      continue;
    }
    name += isUpper ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
    isUpper = false;
  }
  return name;
}

std::vector<SubjectField> fieldsOf(std::string_view topic) {
  std::vector<SubjectField> fields;
  for (const Extra& extra : extras()) {
    if (extra.topic == topic) {
      fields.push_back(extra.field);
    }
  }
  for (const DeviceKey& key : simulatedKeys()) {
    if (std::optional<Placed> placed = place(key); placed && placed->topic == topic) {
      fields.push_back(std::move(placed->field));
    }
  }
  return fields;
}

} // namespace

const std::vector<Subject>& subjects() {
  static const std::vector<Subject> all = [] {
    std::vector<Subject> made;
    for (const auto& [topic, title] : kTitles) {
      made.push_back(
          {std::string(topic), schemaNameOf(topic), std::string(title), fieldsOf(topic)});
    }
    return made;
  }();
  return all;
}

const std::vector<SubjectField>& jointPositions() {
  static const std::vector<SubjectField> all = fieldsOf(kJointTopic);
  return all;
}

} // namespace gk::messages
