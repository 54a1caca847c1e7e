#include "runtime/report/ReportCollector.h"

#include "devices/DeviceKeys.h"
#include "formats/json/JsonValue.h"
#include "zu/log.h"

#include <algorithm>

namespace gk::runtime {

namespace {

using NamesAndKeys = std::vector<std::pair<std::string, std::string>>;

constexpr std::string_view kTemperatureTitle = "Joint temperatures";

NamesAndKeys temperatures() {
  NamesAndKeys keys;
  for (const std::string_view joint : devices::jointNames()) {
    keys.emplace_back(joint, devices::deviceKey(joint, "/Temperature/Sensor/Value"));
  }
  return keys;
}

} // namespace

ReportCollector::ReportCollector(std::shared_ptr<const GK::GKMemoryStore> store)
    : fStore(std::move(store)) {
  const auto sensor = [](const char* device) {
    return devices::deviceKey(device, "/Sensor/Value");
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
  if (notice.kind == GK::GKNotice::Kind::Event || notice.kind == GK::GKNotice::Kind::MicroEvent) {
    ReportData::Event& event = fData.events[notice.name];
    event.isMicro = notice.kind == GK::GKNotice::Kind::MicroEvent;
    event.lastValue.clear();
    formats::appendJson(event.lastValue, notice.value);
    if (event.raises.size() < kMostRaises) {
      event.raises.emplace_back(notice.time, event.lastValue);
    }
    ++event.count;
    ++fData.raises;
  } else if (notice.kind == GK::GKNotice::Kind::Log && notice.level <= zu::log::Warning) {
    ++(notice.level == zu::log::Warning ? fData.warnings : fData.errors);
    if (fData.log.size() < kMostLogLines) {
      fData.log.push_back({notice.time, notice.level, notice.name, notice.text});
    }
  }
}

void ReportCollector::onTick(GK::GKMicros time, const GK::GKTask&) {
  const std::lock_guard lock(fMutex);
  ++fData.ticks;
  fData.end = std::max(fData.end, time);
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

} // namespace gk::runtime
