#include "app/session/RecordOptions.h"

#include "formats/run/RunFile.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>
#include <filesystem>
#include <utility>

namespace gk::app {

namespace {

struct Unit {
  const char* name;
  double factor;
};

constexpr Unit kSizes[] = {{"kB", 1e3}, {"MB", 1e6}, {"GB", 1e9}};
/// In microseconds.
constexpr Unit kDurations[] = {{"s", 1e6}, {"min", 60e6}, {"h", 3600e6}};

/// "10MB" in bytes, "10min" in microseconds; nothing for anything else. The number is at least 1.
template <std::size_t N>
std::optional<std::int64_t> amountOf(const std::string& text, const Unit (&units)[N]) {
  constexpr double most = 1e15;
  for (const Unit& unit : units) {
    const std::string_view name = unit.name;
    if (!text.ends_with(name)) {
      continue;
    }
    const std::optional<double> number =
        messages::parseDouble(std::string_view(text).substr(0, text.size() - name.size()));
    if (number && *number >= 1 && *number * unit.factor <= most) {
      return static_cast<std::int64_t>(std::llround(*number * unit.factor));
    }
  }
  return std::nullopt;
}

std::string checkSplit(const std::string& text) {
  return amountOf(text, kSizes) || amountOf(text, kDurations)
             ? std::string()
             : text + " is no size (kB, MB, GB) and no time (s, min, h)";
}

/// Without the folders, which say nothing on another machine.
std::string namesOf(const std::vector<std::string>& files) {
  std::string names;
  for (const std::string& file : files) {
    names += (names.empty() ? "" : ",") + std::filesystem::path(file).filename().string();
  }
  return names;
}

std::string robotText(const std::optional<devices::SimulationOptions>& simulation) {
  return simulation ? fmt::format("sim, seed {}, {}", simulation->seed,
                                  simulation->isNoisy ? "noisy" : "exact")
                    : std::string("none");
}

std::string speedText(const runtime::HostOptions& host) {
  if (host.isVirtual) {
    return "max";
  }
  return host.speed == 1.0 ? "real" : messages::doubleText(host.speed);
}

} // namespace

std::string checkRecordingName(const std::string& name) {
  return name.ends_with(".mcap") ? std::string() : name + " does not end in .mcap";
}

Option addOverwriteFlag(const Command& command, bool& isOverwriting) {
  return command.flag("--overwrite", isOverwriting, "Replace an earlier recording of this name");
}

void addRecordOptions(const Command& command, RecordOptions& options) {
  command.section("Recording");
  const Option file = command.option("--record", options.file, "Record the run to this file")
                          .checked(checkRecordingName)
                          .shows("FILE.mcap");
  addOverwriteFlag(command, options.isOverwriting).needs(file);
  const Option split =
      command
          .option("--record-split", options.split,
                  "Begin a new file after this size or time, such as 100MB or 10min")
          .checked(checkSplit)
          .shows("SIZE|TIME")
          .needs(file);
  const Option on = command
                        .option("--record-on", options.on,
                                "Record only around events of this name, * for anything")
                        .shows("EVENT")
                        .needs(file)
                        .excludes(split);
  command
      .option("--record-last", options.last,
              "With --record-on: begin so many seconds before the event")
      .within(1.0, 86400.0)
      .shows("SECONDS")
      .needs(on);
  command
      .option("--record-after", options.after,
              "With --record-on: go on for so many seconds after the event")
      .within(0.0, 86400.0)
      .shows("SECONDS")
      .showsDefault()
      .needs(on);
  command
      .option("--record-patience", options.patience,
              "How long a call may keep the loops waiting before they go on without an exact "
              "replay")
      .within(0.001, 3600.0)
      .shows("SECONDS")
      .showsDefault()
      .needs(file);
}

std::optional<runtime::RecorderOptions> recorderOptions(const RecordOptions& options,
                                                        const runtime::HostOptions& host) {
  constexpr double defaultBefore = 30.0;
  if (options.file.empty()) {
    return std::nullopt;
  }
  runtime::RecorderOptions recorder;
  recorder.path = options.file;
  if (const auto size = amountOf(options.split, kSizes)) {
    recorder.splitSize = static_cast<std::uint64_t>(*size);
  }
  recorder.splitTime = amountOf(options.split, kDurations);
  if (!options.on.empty()) {
    recorder.around = {options.on, *messages::toMicros(options.last.value_or(defaultBefore)),
                       *messages::toMicros(options.after)};
  }
  recorder.isOverwriting = options.isOverwriting;
  recorder.inputs = inputFiles(host);
  recorder.mustKeepAll = host.isVirtual;
  recorder.library = "gksensors " GK_VERSION;
  recorder.about = {{"version", recorder.library},
                    {formats::kClockMember, formats::kTurnsClock},
                    {formats::kWithoutMember, fmt::format("{}", fmt::join(host.without, ","))},
                    {"speed", speedText(host)},
                    {"robot", robotText(host.simulation)},
                    {"limits", devices::limitsText(host.limits)},
                    {"loop", host.isLoop ? "true" : "false"},
                    {"realtime_priority", std::to_string(host.loopPriority)},
                    {"files", namesOf(host.files)},
                    {"libraries", namesOf(host.libraries)},
                    {"subscribe", fmt::format("{}", fmt::join(host.subscribe, ","))}};
  if (host.until) {
    recorder.about.emplace("until_us", std::to_string(*host.until));
  }
  return recorder;
}

} // namespace gk::app
