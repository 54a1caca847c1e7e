#include "messages/ros/Diagnostics.h"

#include "messages/keys/DeviceKeys.h"
#include "messages/ros/Types.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace gk::messages::ros {

namespace {

constexpr GK::GKMicros kSecond = 1'000'000;
/// A tick of a loop that takes longer than this hangs.
constexpr GK::GKMicros kLongestTick = kSecond;

/// Bits of the battery's status that mean that it is not being used up.
constexpr std::uint32_t kPlugged = 0x40 | 0x80;

std::string decimal(double value, int digits) {
  std::array<char, 64> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                 std::chars_format::fixed, digits);
  return {text.data(), end.ptr};
}

DiagnosticStatus status(std::string_view what) {
  DiagnosticStatus made;
  made.name = std::string("gk: ").append(what);
  made.message = "OK";
  made.hardware_id = "gk";
  return made;
}

/// Monitors want the worst.
void worsen(DiagnosticStatus& status, std::byte level, std::string message) {
  if (level > status.level) {
    status.level = level;
    status.message = std::move(message);
  }
}

bool isHeat(int error) {
  return error >= kFirstHeatError && error <= kLastHeatError;
}

std::byte levelOf(int error) {
  return error == 0                 ? DiagnosticStatus::kOk
         : error == kFirstHeatError ? DiagnosticStatus::kWarn
                                    : DiagnosticStatus::kError;
}

} // namespace

Diagnostics::Diagnostics(std::vector<Topic>& topics)
    : fTopic(topics.size()), fCharge(deviceKey("Battery/Charge", "/Sensor/Value")),
      fCurrent(deviceKey("Battery/Current", "/Sensor/Value")),
      fStatus(deviceKey("Battery", "/Charge/Sensor/Status")) {
  topics.push_back({"/diagnostics", &typeOf<DiagnosticArray>(), Profile::Stream, true});
  for (const MotorBoard& board : motorBoards()) {
    std::string joints(board.joints[0]);
    if (!board.joints[1].empty()) {
      joints.append(", ").append(board.joints[1]);
    }
    fBoards.push_back(
        {std::string(board.name), std::move(joints), KeyCell(boardErrorKey(board.name))});
  }
  for (const std::string_view joint : jointNames()) {
    fMotors.push_back({std::string(joint), KeyCell(deviceKey(joint, "/Temperature/Sensor/Value"))});
  }
}

void Diagnostics::lookForKeys(const GK::GKMemoryStore& store) {
  for (KeyCell* key : {&fCharge, &fCurrent, &fStatus}) {
    key->lookFor(store);
  }
  for (Board& board : fBoards) {
    board.error.lookFor(store);
  }
  for (Motor& motor : fMotors) {
    motor.temperature.lookFor(store);
  }
}

Diagnostics::Loop& Diagnostics::xLoop(std::string_view module) {
  const auto found = std::ranges::find(fLoops, module, &Loop::module);
  if (found != fLoops.end()) {
    return *found;
  }
  Loop loop;
  loop.module = module;
  fLoops.push_back(std::move(loop));
  return fLoops.back();
}

void Diagnostics::ofTick(GK::GKMicros time, std::string_view module, std::uint64_t number) {
  Loop& loop = xLoop(module);
  if (loop.ticks == 0) {
    loop.toldTicks = number;
    loop.toldTime = time;
  }
  loop.ticks = number;
  loop.last = time;
}

void Diagnostics::ofTickTimes(const GK::GKTickTimes& times, std::string_view module) {
  Loop& loop = xLoop(module);
  loop.hasTimes = true;
  if (times.end - times.begin > times.pause) {
    ++loop.overruns;
    ++loop.newOverruns;
  }
  loop.lateness = std::max(loop.lateness, times.lateness);
}

void Diagnostics::send(GK::GKMicros time, const Outlet& out) {
  if (!out.wants(fTopic)) {
    return;
  }
  fMessage.header.stamp = out.stamp();
  fMessage.status.clear();
  for (Loop& loop : fLoops) {
    fMessage.status.push_back(xLoopStatus(loop, time));
  }
  xAddBattery();
  xAddBoards();
  xAddHeat();
  out.send(fTopic, fMessage);
}

DiagnosticStatus Diagnostics::xLoopStatus(Loop& loop, GK::GKMicros time) const {
  DiagnosticStatus told = status("loop of " + loop.module);
  told.values.push_back({"ticks", std::to_string(loop.ticks)});
  if (loop.last > loop.toldTime && loop.ticks > loop.toldTicks) {
    const double seconds =
        static_cast<double>(loop.last - loop.toldTime) / static_cast<double>(kSecond);
    told.values.push_back(
        {"rate (Hz)", decimal(static_cast<double>(loop.ticks - loop.toldTicks) / seconds, 1)});
  }
  if (loop.hasTimes) {
    constexpr double microsAMilli = 1000;
    told.values.push_back({"overruns", std::to_string(loop.overruns)});
    told.values.push_back(
        {"largest lateness (ms)", decimal(static_cast<double>(loop.lateness) / microsAMilli, 3)});
  }
  if (loop.newOverruns > 0) {
    worsen(told, DiagnosticStatus::kWarn,
           std::to_string(loop.newOverruns) + " ticks took too long");
  }
  if (time - loop.last > kLongestTick) {
    worsen(told, DiagnosticStatus::kError, "has stopped ticking");
  }
  loop.toldTicks = loop.ticks;
  loop.toldTime = loop.last;
  loop.newOverruns = 0;
  loop.lateness = 0;
  return told;
}

void Diagnostics::xAddBattery() {
  const std::optional<float> charge = fCharge.finite();
  if (!charge) {
    return;
  }
  constexpr double percent = 100;
  DiagnosticStatus told = status("battery");
  told.values.push_back({"charge (%)", decimal(percent * *charge, 0)});
  if (const std::optional<float> current = fCurrent.finite()) {
    told.values.push_back({"current (A)", decimal(*current, 2)});
  }
  const auto bits = static_cast<std::uint32_t>(fStatus.integer().value_or(0));
  if ((bits & kPlugged) == 0 && *charge <= kLowCharge) {
    const bool isEmpty = *charge <= kEmptyCharge;
    worsen(told, isEmpty ? DiagnosticStatus::kError : DiagnosticStatus::kWarn,
           isEmpty ? "nearly empty" : "low");
  }
  fMessage.status.push_back(std::move(told));
}

void Diagnostics::xAddBoards() {
  for (const Board& board : fBoards) {
    const std::optional<std::int32_t> found = board.error.integer();
    if (!found) {
      continue;
    }
    const int error = *found;
    DiagnosticStatus told = status("motor board " + board.name);
    told.values.push_back({"joints", board.joints});
    told.values.push_back({"error", std::to_string(error)});
    worsen(told, levelOf(error),
           isHeat(error) ? "hot: error " + std::to_string(error)
                         : "error " + std::to_string(error));
    fMessage.status.push_back(std::move(told));
  }
}

/// The boards say whether what the motors measure is too much.
void Diagnostics::xAddHeat() {
  DiagnosticStatus told = status("heat");
  const Motor* hottest = nullptr;
  float most = 0;
  for (const Motor& motor : fMotors) {
    const std::optional<float> temperature = motor.temperature.finite();
    if (!temperature) {
      continue;
    }
    told.values.push_back({motor.joint + " (degC)", decimal(*temperature, 1)});
    if (hottest == nullptr || *temperature > most) {
      hottest = &motor;
      most = *temperature;
    }
  }
  if (hottest == nullptr) {
    return;
  }
  told.message = hottest->joint + " is the warmest: " + decimal(most, 0) + " degC";
  for (const Board& board : fBoards) {
    const int error = board.error.integer().value_or(0);
    if (isHeat(error)) {
      worsen(told, levelOf(error), hottest->joint + " is hot: " + decimal(most, 0) + " degC");
    }
  }
  fMessage.status.push_back(std::move(told));
}

} // namespace gk::messages::ros
