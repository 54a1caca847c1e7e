#include "devices/meaning/Verdict.h"

#include "messages/json/JsonWriter.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/Numbers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace gk::devices {

/// In the order of their weight, for what is equally bad.
enum class Verdict::Rule : std::uint8_t {
  LoopStuck,
  Fallen,
  Lying,
  Hot,
  KeysStale,
  RecordingStopped,
  BatteryLow,
  OffFloor,
  RecordingLost,
  ViewerLoses
};

namespace {

/// What a rule says. Braces stand for what it is about.
struct RuleText {
  std::string_view subject;
  std::string_view text;
  std::string_view advice;
};

/// In the order of the rules.
constexpr RuleText kRules[] = {
    {"loop", "{} has stopped ticking", "Look at the log for what hangs, then start the host anew"},
    {"pose", "Fell {}", "Stand it up"},
    {"pose", "Lies {}", "Stand it up"},
    {"temperatures", "{}", "Take its stiffness off and let it cool down"},
    {"keys", "No fresh values from the robot",
     "Look at its device layer, or give the host a robot or a recording"},
    {"disk", "The recording stands still: {}",
     "Make room on the disk: it then goes on in a new file by itself"},
    {"battery", "Battery at {} %", "Plug the charger in"},
    {"feet", "Off the floor", "Set it down before it moves"},
    {"recording", "The recording lacks {}", "The disk was too slow or full: record to another one"},
    {"clients", "Viewers have lost {} events", "One reads too slowly: gk top shows which"},
};

constexpr std::string_view kPoseKey = "robotPoseChanged";
constexpr std::string_view kFloorKey = "footContactChanged";
constexpr std::string_view kPluggedKey = "BatteryPowerPluggedChanged";
constexpr std::string_view kChargeKey = "Device/SubDeviceList/Battery/Charge/Sensor/Value";
constexpr std::string_view kTemperature = "/Temperature/Sensor/Value";

/// How a pose is lain in; empty for poses that nobody falls into.
std::string_view lyingIn(std::string_view pose) {
  constexpr std::pair<std::string_view, std::string_view> lying[] = {{"Back", "on its back"},
                                                                     {"Belly", "on its belly"},
                                                                     {"Left", "on its left side"},
                                                                     {"Right", "on its right side"},
                                                                     {"HeadBack", "upside down"}};
  const auto* const found =
      std::ranges::find(lying, pose, &std::pair<std::string_view, std::string_view>::first);
  return found != std::end(lying) ? found->second : std::string_view();
}

std::optional<std::string> textOf(const GK::GKMemoryStore& store, std::string_view key) {
  const std::optional<GK::GKValue> value = store.get(key);
  return value && value->type() == GK::GKValue::Type::String ? std::optional(value->toString())
                                                             : std::nullopt;
}

std::optional<bool> boolOf(const GK::GKMemoryStore& store, std::string_view key) {
  const std::optional<GK::GKValue> value = store.get(key);
  return value && value->type() == GK::GKValue::Type::Bool ? std::optional(value->toBool())
                                                           : std::nullopt;
}

std::optional<float> numberOf(const GK::GKMemoryStore& store, std::string_view key) {
  const std::optional<GK::GKValue> value = store.get(key);
  const bool isNumber = value && (value->type() == GK::GKValue::Type::Float ||
                                  value->type() == GK::GKValue::Type::Int);
  return isNumber && std::isfinite(value->toFloat()) ? std::optional(value->toFloat())
                                                     : std::nullopt;
}

std::string wholeText(float value) {
  char digits[64];
  const auto end =
      std::to_chars(std::begin(digits), std::end(digits), value, std::chars_format::fixed, 0);
  return {std::begin(digits), end.ptr};
}

} // namespace

void Verdict::onNotice(const GK::GKNotice& notice) {
  if (notice.name == kPoseKey && notice.value.type() == GK::GKValue::Type::String) {
    const std::string& pose = notice.value.toString();
    if (pose == fPose) {
      return;
    }
    // On its way from one pose to another the robot is in none for a while.
    if (!fPose.empty() && fPose != "Unknown") {
      fWasUpright = lyingIn(fPose).empty();
    }
    fPose = pose;
    fPoseTime = notice.time;
  } else if (notice.name == kFloorKey && notice.value.type() == GK::GKValue::Type::Bool) {
    fOffFloor = notice.value.toBool() ? std::nullopt : std::optional(notice.time);
  }
}

const std::vector<Matter>& Verdict::look(GK::GKMicros now, const GK::GKMemoryStore* store,
                                         const HostCondition& host) {
  fFound.clear();
  fBefore = std::exchange(fNow, {});
  xLookAtLoops(now, host);
  if (store != nullptr) {
    xLookAtPose(now, *store);
    xLookAtHeat(now, *store);
    xLookAtBattery(now, *store);
  }
  xLookAtKeys(now, host);
  xLookAtRecording(now, host);
  xLookAtClients(now, host);
  std::ranges::stable_sort(fFound, [](const auto& a, const auto& b) {
    return a.second.level != b.second.level ? a.second.level > b.second.level : a.first < b.first;
  });
  fMatters.clear();
  for (auto& [rule, matter] : fFound) {
    fMatters.push_back(std::move(matter));
  }
  return fMatters;
}

void Verdict::xApplies(Rule rule, Level level, GK::GKMicros since, std::string_view what) {
  const RuleText& words = kRules[static_cast<std::size_t>(rule)];
  Matter matter{since, level, std::string(words.text), std::string(words.advice),
                std::string(words.subject)};
  if (const std::size_t at = matter.text.find("{}"); at != std::string::npos) {
    matter.text.replace(at, 2, what);
  }
  // Of what has several a loop is told from another by its name; all else is one and the same.
  const std::pair key(rule, rule == Rule::LoopStuck ? std::string(what) : std::string());
  const auto before = fBefore.find(key);
  matter.since = before != fBefore.end() ? std::min(before->second, since) : since;
  fNow[key] = matter.since;
  fFound.emplace_back(rule, std::move(matter));
}

void Verdict::xLookAtLoops(GK::GKMicros now, const HostCondition& host) {
  for (const HostCondition::Loop& loop : host.loops) {
    if (now - loop.last > kLongestSilence) {
      xApplies(Rule::LoopStuck, Level::Error, loop.last, loop.module);
    }
  }
}

void Verdict::xLookAtPose(GK::GKMicros now, const GK::GKMemoryStore& store) {
  if (const std::optional<std::string> pose = textOf(store, kPoseKey); pose && *pose != fPose) {
    // Announced before anybody listened, or time went elsewhere.
    fPose = *pose;
    fPoseTime = now;
    fWasUpright = false;
  }
  const std::string_view how = lyingIn(fPose);
  if (!how.empty()) {
    const bool isOnto = how.starts_with("on ");
    const std::string fell = isOnto ? "onto" + std::string(how.substr(2)) : std::string(how);
    xApplies(fWasUpright ? Rule::Fallen : Rule::Lying, Level::Error, fPoseTime,
             fWasUpright ? std::string_view(fell) : how);
    return;
  }
  const bool isOnFeet = fPose == "Stand" || fPose == "Crouch";
  if (isOnFeet && boolOf(store, kFloorKey) == std::optional(false)) {
    xApplies(Rule::OffFloor, Level::Warning, fOffFloor.value_or(now));
  }
}

/// The hottest joint of all boards that report heat stands for them.
void Verdict::xLookAtHeat(GK::GKMicros now, const GK::GKMemoryStore& store) {
  std::size_t boards = 0;
  int worst = 0;
  std::string hottest;
  float temperature = 0;
  for (const messages::MotorBoard& board : messages::motorBoards()) {
    const std::optional<float> error = numberOf(store, messages::boardErrorKey(board.name));
    if (!error || *error < messages::kFirstHeatError || *error > messages::kLastHeatError) {
      continue;
    }
    ++boards;
    worst = std::max(worst, static_cast<int>(*error));
    for (const std::string_view joint : board.joints) {
      const std::optional<float> measured =
          joint.empty() ? std::nullopt : numberOf(store, messages::deviceKey(joint, kTemperature));
      if (measured && (hottest.empty() || *measured > temperature)) {
        hottest = joint;
        temperature = *measured;
      }
    }
    if (hottest.empty()) {
      hottest = board.name;
    }
  }
  if (boards == 0) {
    return;
  }
  std::string text = hottest + (temperature > 0 ? " is hot: " + wholeText(temperature) + " degC"
                                                : std::string(" is hot"));
  if (boards > 1) {
    text += ", and " + std::to_string(boards - 1) + " more motor board" + (boards > 2 ? "s" : "");
  }
  xApplies(Rule::Hot, worst > messages::kFirstHeatError ? Level::Error : Level::Warning, now, text);
}

void Verdict::xLookAtKeys(GK::GKMicros now, const HostCondition& host) {
  if (host.deviceChange && now - *host.deviceChange >= kFreshness) {
    xApplies(Rule::KeysStale, Level::Error, *host.deviceChange);
  }
}

void Verdict::xLookAtRecording(GK::GKMicros now, const HostCondition& host) {
  if (!host.recordingTrouble.empty()) {
    xApplies(Rule::RecordingStopped, Level::Error, now, host.recordingTrouble);
  }
  std::string lost;
  if (host.lostBlocks > 0) {
    lost = std::to_string(host.lostBlocks) + " blocks of the run";
  }
  if (host.lostMessages > 0) {
    lost += (lost.empty() ? "" : " and ") + std::to_string(host.lostMessages) + " messages";
  }
  if (!lost.empty()) {
    xApplies(Rule::RecordingLost, Level::Warning, now, lost);
  }
}

void Verdict::xLookAtBattery(GK::GKMicros now, const GK::GKMemoryStore& store) {
  const std::optional<float> charge = numberOf(store, kChargeKey);
  if (!charge || boolOf(store, kPluggedKey).value_or(false)) {
    fBattery = Level::Fine;
    return;
  }
  const auto isBelow = [&](float limit, Level level) {
    return *charge <= limit + (fBattery >= level ? kChargeStep : 0.0F);
  };
  fBattery = isBelow(messages::kEmptyCharge, Level::Error)   ? Level::Error
             : isBelow(messages::kLowCharge, Level::Warning) ? Level::Warning
                                                             : Level::Fine;
  if (fBattery != Level::Fine) {
    constexpr float percent = 100;
    xApplies(Rule::BatteryLow, fBattery, now, wholeText(percent * *charge));
  }
}

void Verdict::xLookAtClients(GK::GKMicros now, const HostCondition& host) {
  if (host.lostEvents > std::exchange(fLostEvents, host.lostEvents)) {
    fLastLoss = now;
  }
  if (fLastLoss && now - *fLastLoss < kLossMemory) {
    xApplies(Rule::ViewerLoses, Level::Warning, *fLastLoss, std::to_string(host.lostEvents));
  }
}

std::string verdictJson(const std::vector<Matter>& matters) {
  std::string text;
  messages::JsonWriter json(text);
  json.beginArray();
  for (const Matter& matter : matters) {
    std::string since;
    messages::appendSeconds(since, matter.since);
    json.beginObject().key("since").raw(since);
    json.key("level").integer(static_cast<int>(matter.level)).key("text").text(matter.text);
    json.key("advice").text(matter.advice).key("subject").text(matter.subject).endObject();
  }
  json.endArray();
  return text;
}

} // namespace gk::devices
