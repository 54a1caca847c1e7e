#include "app/ask/WatchView.h"

#include "app/terminal/Table.h"
#include "app/terminal/Units.h"
#include "formats/text/Printable.h"
#include "messages/json/JsonText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <utility>

namespace gk::app {

namespace {

namespace json = boost::json;

/// The key whose number stands for a pose, and what tells the names of poses.
constexpr std::string_view kPoseKey = "robotPose";
constexpr const char* kPoseNames = "GKRobotPose.getPoseNames";

/// What most keys of the device layer begin and end with.
constexpr std::string_view kDevices = "Device/SubDeviceList";
constexpr std::string_view kMeasured = "Sensor/Value";
constexpr std::string_view kLeftOut = "…";

/// A key in so many columns: what it shares with others goes first.
std::string shortKey(std::string key, std::size_t columns) {
  if (shownWidth(key) > columns && key.starts_with(kDevices)) {
    key.replace(0, kDevices.size(), kLeftOut);
  }
  if (shownWidth(key) > columns && key.ends_with(kMeasured)) {
    key.replace(key.size() - kMeasured.size(), kMeasured.size(), kLeftOut);
  }
  return cutLine(key, columns);
}

} // namespace

WatchView::WatchView(HostClient& client, const std::vector<json::value>& keys, bool isJson)
    : fIsJson(isJson) {
  fKeys.reserve(keys.size());
  for (const json::value& key : keys) {
    fKeys.push_back(textMember(key, "key"));
    fUnits[fKeys.back()] = textMember(key, "unit");
  }
  if (fIsJson) {
    return;
  }
  if (std::ranges::find(fKeys, kPoseKey) != fKeys.end()) {
    try {
      const json::value names = client.call(kPoseNames, "[]");
      for (const json::value& name : names.as_array()) {
        fPoses.emplace_back(name.as_string().c_str());
      }
    } catch (const std::exception&) {
      // Another module has such a key: then it is a number as any other.
      fPoses.clear();
    }
  }
  const double seconds = numberMember(client.getJson("/api/v1/host"), "t_s");
  fHostStart = Clock::now() -
               std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

void WatchView::show(const std::vector<json::value>& changed) {
  for (const json::value& one : changed) {
    fValues[textMember(one, "name")] = member(one, "value");
  }
  if (fIsJson) {
    xPrintJson(changed);
  } else if (isTerminal()) {
    xRedraw();
  } else {
    xPrintLines(changed);
  }
  std::fflush(stdout);
}

void WatchView::refresh() {
  if (fPicture.isOutgrown()) {
    xRedraw();
  }
}

void WatchView::xPrintJson(const std::vector<json::value>& changed) const {
  for (const json::value& one : changed) {
    const std::string name = textMember(one, "name");
    std::string text;
    messages::appendJsonString(text, name);
    fmt::print("{{{}:{}}}\n", text, valueText(fValues.at(name)));
  }
}

void WatchView::xPrintLines(const std::vector<json::value>& changed) const {
  for (const json::value& one : changed) {
    const std::string name = textMember(one, "name");
    fmt::print("{:10.3f}  {}  {}\n", xTime(), formats::printable(name),
               formats::printable(xText(name)));
  }
}

void WatchView::xRedraw() {
  std::vector<std::vector<std::string>> rows{{"KEY", "VALUE"}};
  std::size_t longest = 0;
  for (const std::string& key : fKeys) {
    rows.push_back({key, fValues.contains(key) ? xText(key) : "-"});
    longest = std::max(longest, shownWidth(formats::printable(rows.back()[1])));
  }
  // A narrow terminal shows what tells keys apart, and all of the values.
  constexpr std::size_t gap = 2;
  constexpr std::size_t least = 12;
  const std::size_t columns = screenSize().columns;
  const std::size_t room = columns > longest + gap + least ? columns - longest - gap : least;
  for (std::vector<std::string>& row : rows) {
    row[0] = shortKey(formats::printable(row[0]), room);
  }
  fPicture.draw(tableText(rows));
}

std::string WatchView::xText(const std::string& key) const {
  const json::value& value = fValues.at(key);
  const bool isPose = key == kPoseKey && !fPoses.empty();
  if (!value.is_double() && !value.is_int64()) {
    return valueText(value);
  }
  const double number =
      value.is_double() ? value.get_double() : static_cast<double>(value.get_int64());
  if (isPose && number >= 0 && number < static_cast<double>(fPoses.size())) {
    return fPoses[static_cast<std::size_t>(number)];
  }
  const auto unit = fUnits.find(key);
  const std::string name = unit != fUnits.end() ? unit->second : std::string();
  if (value.is_int64()) {
    return name.empty() ? valueText(value) : valueText(value) + " " + name;
  }
  return measureText(number, name);
}

double WatchView::xTime() const {
  return std::chrono::duration<double>(Clock::now() - fHostStart).count();
}

} // namespace gk::app
