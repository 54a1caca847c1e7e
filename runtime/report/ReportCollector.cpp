#include "runtime/report/ReportCollector.h"

#include "devices/meaning/EventWords.h"
#include "messages/json/JsonValue.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/notices/Raise.h"
#include "zu/log.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <functional>

namespace gk::runtime {

namespace {

using NamesAndKeys = std::vector<std::pair<std::string, std::string>>;

constexpr std::string_view kTemperatureTitle = "Joint temperatures";
constexpr std::string_view kPoseEvent = "robotPoseChanged";

/// What has the key's start value all the time was written by nobody.
bool isMeasuredAs(const std::string& key, const Trace& trace) {
  const messages::DeviceKey* const device = messages::findDeviceKey(key);
  const bool isStart = device != nullptr && device->start.type() == GK::GKValue::Type::Float &&
                       trace.most() == device->start.toFloat();
  return !trace.isEmpty() && !(trace.isConstant() && isStart);
}

NamesAndKeys temperatures() {
  NamesAndKeys keys;
  for (const std::string_view joint : messages::jointNames()) {
    keys.emplace_back(joint, messages::deviceKey(joint, "/Temperature/Sensor/Value"));
  }
  return keys;
}

} // namespace

ReportCollector::ReportCollector(std::shared_ptr<const GK::GKMemoryStore> store)
    : fStore(std::move(store)) {
  const auto sensor = [](const char* device) {
    return messages::deviceKey(device, "/Sensor/Value");
  };
  xAddPlot("Feet", "kg",
           {{"left", sensor("LFoot/FSR/TotalWeight")}, {"right", sensor("RFoot/FSR/TotalWeight")}});
  xAddPlot("Sonar", "m", {{"left", sensor("US/Left")}, {"right", sensor("US/Right")}});
  xAddPlot(
      "Inclination", "rad",
      {{"about x", sensor("InertialSensor/AngleX")}, {"about y", sensor("InertialSensor/AngleY")}});
  xAddPlot("Battery charge", "", {{"charge", sensor("Battery/Charge")}});
  xAddPlot("Battery current", "A", {{"current", sensor("Battery/Current")}});
  xAddPlot(std::string(kTemperatureTitle), "degC", temperatures());
  // Only now do traces stay where they are.
  std::size_t next = 0;
  for (ReportData::Plot& plot : fData.plots) {
    for (ReportData::Series& series : plot.series) {
      fSources[next++].trace = &series.trace;
    }
  }
}

void ReportCollector::xAddPlot(const std::string& title, const std::string& unit,
                               const NamesAndKeys& namesAndKeys) {
  ReportData::Plot plot{title, unit, {}};
  for (const auto& [name, key] : namesAndKeys) {
    plot.series.push_back({name, {}});
    fSources.push_back({key, nullptr, nullptr});
  }
  fData.plots.push_back(std::move(plot));
}

void ReportCollector::onNotice(const GK::GKNotice& notice) {
  const std::lock_guard lock(fMutex);
  fData.end = std::max(fData.end, notice.time);
  fVerdict.onNotice(notice);
  if (messages::isRaise(notice)) {
    xAddRaise(notice);
  } else if (notice.kind == GK::GKNotice::Kind::Log && notice.level <= zu::log::Warning) {
    ++(notice.level == zu::log::Warning ? fData.warnings : fData.errors);
    if (fData.log.size() < kMostLogLines) {
      fData.log.push_back({notice.time, notice.level, notice.name, notice.text});
    }
  }
}

void ReportCollector::xAddRaise(const GK::GKNotice& notice) {
  ReportData::Event& event = fData.events[notice.name];
  event.isMicro = notice.kind == GK::GKNotice::Kind::MicroEvent;
  event.lastValue.clear();
  messages::appendJson(event.lastValue, notice.value);
  const int importance = static_cast<int>(devices::eventImportance(notice.name, notice.value));
  event.importance = std::max(event.importance, importance);
  if (event.raises.size() < kMostRaises) {
    event.raises.emplace_back(notice.time, event.lastValue);
    std::string words = devices::eventSentence(notice.name, notice.value);
    auto known = std::find_if(event.words.begin(), event.words.end(),
                              [&words](const auto& one) { return one.first == words; });
    if (!words.empty() && known == event.words.end() && event.words.size() < kMostWords) {
      known = event.words.insert(event.words.end(), {std::move(words), importance});
    }
    if (known != event.words.end()) {
      event.said.resize(event.raises.size() - 1, event.words.size());
      event.said.push_back(static_cast<std::size_t>(known - event.words.begin()));
    }
  }
  ++event.count;
  ++fData.raises;
  if (notice.name == kPoseEvent && notice.value.type() == GK::GKValue::Type::String) {
    if (!fPose.empty()) {
      fData.poses[fPose] += notice.time - fPoseTime;
    }
    fPose = notice.value.toString();
    fPoseTime = notice.time;
  }
}

void ReportCollector::xLook(GK::GKMicros time) {
  if (time < fNextLook) {
    return;
  }
  fNextLook = time + kLookTime;
  for (const devices::Matter& matter : fVerdict.look(time, fStore.get(), {})) {
    // Its text may tell another number by now, such as a temperature.
    const auto goesOn = [&matter](const ReportData::Matter& known) {
      return known.since == matter.since && known.subject == matter.subject;
    };
    const auto known = std::ranges::find_if(fData.matters, goesOn);
    if (known != fData.matters.end()) {
      known->until = time;
      continue;
    }
    ++fData.matterCount;
    if (fData.matters.size() < kMostMatters) {
      fData.matters.push_back(
          {matter.since, time, matter.text, matter.subject, matter.level == devices::Level::Error});
    }
  }
}

void ReportCollector::onTick(GK::GKMicros time, const GK::GKTask&) {
  const std::lock_guard lock(fMutex);
  ++fData.ticks;
  fData.end = std::max(fData.end, time);
  xLook(time);
  for (Source& source : fSources) {
    if (source.cell == nullptr) {
      source.cell = fStore->find(source.key);
    }
    if (source.cell == nullptr) {
      continue;
    }
    const GK::GKValue value = source.cell->load();
    if (value.type() == GK::GKValue::Type::Float || value.type() == GK::GKValue::Type::Int) {
      source.trace->add(time, value.toFloat());
    }
  }
}

ReportData ReportCollector::take() {
  const std::lock_guard lock(fMutex);
  if (!fPose.empty()) {
    fData.poses[fPose] += fData.end - fPoseTime;
  }
  std::size_t source = 0;
  for (ReportData::Plot& plot : fData.plots) {
    bool isMeasured = false;
    for (const ReportData::Series& series : plot.series) {
      isMeasured = isMeasuredAs(fSources[source++].key, series.trace) || isMeasured;
    }
    if (!isMeasured) {
      fData.absent.push_back(plot.title);
      plot.series.clear();
    }
  }
  for (ReportData::Plot& plot : fData.plots) {
    if (plot.title == kTemperatureTitle) {
      std::stable_sort(plot.series.begin(), plot.series.end(),
                       [](const ReportData::Series& left, const ReportData::Series& right) {
                         return left.trace.most() > right.trace.most();
                       });
      plot.series.resize(std::min(plot.series.size(), kHottestJoints));
    }
    std::erase_if(plot.series,
                  [](const ReportData::Series& series) { return series.trace.isEmpty(); });
  }
  std::erase_if(fData.plots, [](const ReportData::Plot& plot) { return plot.series.empty(); });
  return std::move(fData);
}

namespace {

std::string secondsOf(GK::GKMicros time) {
  constexpr double perSecond = 1e6;
  constexpr GK::GKMicros minute = 60'000'000;
  return time < 2 * minute ? fmt::format("{:.1f} s", static_cast<double>(time) / perSecond)
                           : fmt::format("{} min {:02} s", time / minute,
                                         time % minute / static_cast<GK::GKMicros>(perSecond));
}

} // namespace

std::vector<std::string> storyOf(const ReportData& data) {
  constexpr std::size_t most = 3;
  std::vector<std::string> story;
  std::vector<std::pair<GK::GKMicros, std::string>> poses;
  for (const auto& [pose, time] : data.poses) {
    if (pose != "Unknown" && time > 0) {
      poses.emplace_back(time, pose);
    }
  }
  std::ranges::sort(poses, std::greater());
  std::string text = fmt::format("{} and {} events", secondsOf(data.end), data.raises);
  for (std::size_t i = 0; i < std::min(poses.size(), most); ++i) {
    text += fmt::format("{} {} for {}", i == 0 ? "; pose" : ",", poses[i].second,
                        secondsOf(poses[i].first));
  }
  if (poses.size() > most) {
    text += fmt::format(" and {} more", poses.size() - most);
  }
  story.push_back(text + ".");
  if (data.matters.empty()) {
    story.emplace_back("Nothing happened that somebody should have done something about.");
  } else {
    text.clear();
    std::vector<ReportData::Matter> matters = data.matters;
    std::stable_partition(matters.begin(), matters.end(),
                          [](const ReportData::Matter& matter) { return matter.isError; });
    for (std::size_t i = 0; i < std::min(matters.size(), most); ++i) {
      const ReportData::Matter& matter = matters[i];
      text += fmt::format("{}{} at {}, for {}", text.empty() ? "" : "; ", matter.text,
                          secondsOf(matter.since), secondsOf(matter.until - matter.since));
    }
    if (data.matterCount > most) {
      text += fmt::format("; and {} more", data.matterCount - most);
    }
    story.push_back(text + ".");
  }
  if (!data.absent.empty()) {
    story.push_back(fmt::format("Not measured: {}.", fmt::join(data.absent, ", ")));
  }
  return story;
}

} // namespace gk::runtime
