#include "app/fleet/FleetTable.h"

#include "app/terminal/Screen.h"
#include "app/terminal/Table.h"
#include "formats/text/Printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <map>
#include <utility>

namespace gk::app {

namespace {

constexpr const char* kNothing = "-";
/// Most columns of a robot's name, and the least that its condition gets.
constexpr std::size_t kNameWidth = 24;
constexpr std::size_t kLeastCondition = 16;
constexpr std::size_t kGap = 2;

/// Marks what there is to say of this kind of need.
std::string marked(std::string text, const FleetRobot& robot, Urgency urgency) {
  const bool isNeed = std::ranges::any_of(
      robot.needs, [urgency](const FleetNeed& need) { return need.urgency == urgency; });
  return isNeed ? std::move(text) + "!" : std::move(text);
}

std::string chargeText(const FleetRobot& robot) {
  constexpr double percent = 100;
  if (!robot.state || !robot.state->charge) {
    return kNothing;
  }
  const bool isPlugged = robot.state->isPlugged.value_or(false);
  return marked(fmt::format("{:.0f} %{}", percent * *robot.state->charge, isPlugged ? " +" : ""),
                robot, Urgency::LowBattery);
}

std::string backlogText(const FleetRobot& robot) {
  return robot.state ? marked(std::to_string(robot.state->outbox.backlog), robot, Urgency::Backlog)
                     : std::string(kNothing);
}

/// The name, with the site where there are several.
std::string nameText(const FleetRobot& robot, bool hasSites) {
  const std::string name = hasSites ? robot.site + "/" + robot.name : robot.name;
  return cutLine(formats::printable(name), kNameWidth);
}

const char* summaryWord(Urgency urgency) {
  switch (urgency) {
  case Urgency::Lost:
    return "lost";
  case Urgency::Silent:
    return "silent";
  case Urgency::Fallen:
    return "fallen";
  case Urgency::Hot:
    return "hot";
  case Urgency::LowBattery:
    return "low on battery";
  case Urgency::Backlog:
    return "behind with events";
  case Urgency::Refused:
    return "refused by the broker";
  case Urgency::Gaps:
    return "with gaps";
  case Urgency::Well:
    return "well";
  case Urgency::Away:
    return "offline";
  }
  return "";
}

} // namespace

std::string fleetTable(const std::vector<const FleetRobot*>& robots, std::size_t columns) {
  const bool hasSites = std::ranges::any_of(
      robots, [&robots](const FleetRobot* one) { return one->site != robots.front()->site; });
  std::vector<std::vector<std::string>> rows{
      {"ROBOT", "CONDITION", "POSE", "BATTERY", "BACKLOG", "LAST EVENT"}};
  for (const FleetRobot* robot : robots) {
    const std::string pose = robot->state && robot->state->pose
                                 ? cutLine(formats::printable(*robot->state->pose), 9)
                                 : kNothing;
    const bool isTrouble = !robot->needs.empty();
    rows.push_back({nameText(*robot, hasSites), robot->words() + (isTrouble ? "!" : ""),
                    marked(pose, *robot, Urgency::Fallen), chargeText(*robot), backlogText(*robot),
                    robot->lastEvent ? formats::printable(robot->lastEvent->name) : ""});
  }
  const bool hasEvents =
      std::ranges::any_of(robots, [](const FleetRobot* one) { return one->lastEvent.has_value(); });
  if (!hasEvents) {
    for (auto& row : rows) {
      row.pop_back();
    }
  }
  // The columns of numbers are narrow: what is left is the condition's, and the last event's.
  constexpr std::size_t conditionColumn = 1;
  std::size_t others = 0;
  for (std::size_t i = 0; i < rows.front().size(); ++i) {
    std::size_t widest = 0;
    for (const auto& row : rows) {
      widest = std::max(widest, shownWidth(row[i]));
    }
    const bool isLast = hasEvents && i + 1 == rows.front().size();
    others +=
        i == conditionColumn ? 0 : (isLast ? std::min<std::size_t>(widest, 20) : widest) + kGap;
  }
  const std::size_t room = std::max(columns > others ? columns - others : 0, kLeastCondition);
  std::string text;
  for (auto& row : rows) {
    const bool isTrouble = row[conditionColumn].ends_with('!');
    if (shownWidth(row[conditionColumn]) > room) {
      row[conditionColumn] = cutLine(row[conditionColumn], room - 1) + (isTrouble ? "!" : "");
    }
  }
  const std::string table = tableText(rows);
  for (std::size_t begin = 0; begin < table.size();) {
    const std::size_t end = table.find('\n', begin);
    text += cutLine(table.substr(begin, end - begin), columns) + "\n";
    begin = end + 1;
  }
  return text;
}

std::string fleetSummary(const std::vector<const FleetRobot*>& robots) {
  std::map<Urgency, std::size_t, std::greater<>> counts;
  for (const FleetRobot* robot : robots) {
    ++counts[robot->urgency()];
  }
  std::string text = fmt::format("{} robot{}", robots.size(), robots.size() == 1 ? "" : "s");
  for (const auto& [urgency, count] : counts) {
    text += fmt::format("{}{} {}", urgency == counts.begin()->first ? ": " : ", ", count,
                        summaryWord(urgency));
  }
  return text;
}

} // namespace gk::app
