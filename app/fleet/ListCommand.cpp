#include "app/fleet/FleetBook.h"
#include "app/fleet/FleetCommands.h"
#include "app/fleet/FleetLink.h"
#include "app/fleet/FleetTable.h"
#include "app/terminal/Screen.h"
#include "app/terminal/Table.h"
#include "formats/text/NamePattern.h"
#include "formats/text/Printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace gk::app {

namespace {

using Clock = std::chrono::steady_clock;

/// How long the broker has to tell what it keeps of the robots.
constexpr std::chrono::seconds kListTime{1};
/// All robots are looked at so often at most.
constexpr std::chrono::milliseconds kLookTurn{100};
/// A picture is redrawn so often at most.
constexpr std::chrono::milliseconds kRedrawTime{500};

/// What the broker keeps of every robot, and what is lost from now on.
std::vector<FleetSubscription> subscriptionsOf(const BrokerOptions& options) {
  const std::string site = siteFilter(options);
  std::vector<FleetSubscription> subscriptions;
  for (const char* kind :
       {messages::kConnectionTopic, messages::kFactsheetTopic, messages::kGapTopic}) {
    subscriptions.push_back({messages::fleetFilter(options.root, site, kind), 1});
  }
  subscriptions.push_back({messages::fleetFilter(options.root, site, messages::kStateTopic), 0});
  return subscriptions;
}

bool isWanted(const FleetRobot& robot, const std::vector<std::string>& patterns) {
  return patterns.empty() || std::ranges::any_of(patterns, [&robot](const std::string& pattern) {
           return formats::isMeant(robot.name, pattern);
         });
}

std::vector<const FleetRobot*> wantedOf(const FleetBook& book,
                                        const std::vector<std::string>& patterns) {
  std::vector<const FleetRobot*> robots = book.byUrgency();
  std::erase_if(robots, [&patterns](const FleetRobot* one) { return !isWanted(*one, patterns); });
  return robots;
}

std::string pictureOf(const std::vector<const FleetRobot*>& robots) {
  const std::string summary = fleetSummary(robots) + "\n";
  return robots.empty() ? summary : summary + fleetTable(robots, screenSize().columns);
}

int listRobots(const BrokerOptions& options, const std::vector<std::string>& patterns) {
  checkFleetNames(options);
  FleetBook book;
  FleetLink link(options, subscriptionsOf(options), {[&book](const messages::MqttMessage& message) {
                   book.take(message.topic, message.payload, Clock::now());
                 }});
  link.open();
  link.run([] { return false; }, Clock::now() + kListTime);
  link.close();
  const std::vector<const FleetRobot*> robots = wantedOf(book, patterns);
  if (options.isJson) {
    std::string text = "[";
    for (const FleetRobot* robot : robots) {
      text += (text.size() > 1 ? "," : "") + robot->json();
    }
    fmt::print("{}]\n", text);
  } else {
    fmt::print("{}", pictureOf(robots));
  }
  return kSuccess;
}

/// Shows robots as they change: a picture on a terminal, else a line whenever a robot's condition
/// is another one.
class FleetWatch {
public:
  FleetWatch(const BrokerOptions& options, std::vector<std::string> patterns, std::uint64_t count)
      : fIsJson(options.isJson), fPatterns(std::move(patterns)), fLeft(count) {}

  void take(const messages::MqttMessage& message) {
    const FleetRobot* robot = fBook.take(message.topic, message.payload, Clock::now());
    if (robot != nullptr) {
      xChanged(*robot);
    }
    fIsNew = true;
  }

  /// After each message. True when enough has been shown.
  bool refresh() {
    const Clock::time_point now = Clock::now();
    if (now - fLooked < kLookTurn) {
      return fIsEnough;
    }
    fLooked = now;
    for (const FleetRobot* robot : fBook.look(now)) {
      xChanged(*robot);
      fIsNew = true;
    }
    if (xIsPicture() && ((fIsNew && now - fDrawn >= kRedrawTime) || fPicture.isOutgrown())) {
      fPicture.draw(pictureOf(wantedOf(fBook, fPatterns)) + fAway);
      fDrawn = now;
      fIsNew = false;
    }
    return fIsEnough;
  }

  void tellAway(const std::string& why) {
    if (xIsPicture()) {
      fAway = why.empty() ? "" : "no broker: " + formats::printable(why) + "\n";
      fIsNew = true;
    } else if (!why.empty()) {
      fmt::print(stderr, "gk fleet: no broker, trying again: {}\n", formats::printable(why));
    }
  }

private:
  bool xIsPicture() const { return !fIsJson && isTerminal() && fLeft == 0; }

  void xChanged(const FleetRobot& robot) {
    if (xIsPicture() || fIsEnough || !isWanted(robot, fPatterns)) {
      return;
    }
    const std::string text =
        fIsJson ? robot.json()
                : formats::printable(robot.site + "/" + robot.name + "  " + robot.words());
    std::string& told = fTold[{robot.site, robot.name}];
    if (told == text) {
      return;
    }
    told = text;
    fmt::print("{}\n", text);
    std::fflush(stdout);
    fIsEnough = fLeft > 0 && --fLeft == 0;
  }

  const bool fIsJson;
  const std::vector<std::string> fPatterns;
  std::uint64_t fLeft;
  bool fIsEnough = false;
  FleetBook fBook;
  Picture fPicture;
  Clock::time_point fDrawn;
  Clock::time_point fLooked;
  bool fIsNew = true;
  std::string fAway;
  std::map<FleetBook::Key, std::string> fTold;
};

int watchRobots(const BrokerOptions& options, const std::vector<std::string>& patterns,
                std::uint64_t count) {
  checkFleetNames(options);
  FleetWatch watch(options, patterns, count);
  FleetLink link(options, subscriptionsOf(options),
                 {[&watch](const messages::MqttMessage& message) { watch.take(message); },
                  {},
                  [&watch](const std::string& why) { watch.tellAway(why); }});
  link.open();
  link.run([&watch] { return watch.refresh(); });
  link.close();
  return kSuccess;
}

} // namespace

void addFleetListCommand(const Command& program, const std::shared_ptr<BrokerOptions>& options) {
  const Command command =
      program.subcommand("list", "List the robots, those first that need somebody");
  auto patterns = std::make_shared<std::vector<std::string>>();
  command.option("ROBOT", *patterns, "Parts of their names, or patterns with * and ?").shows("");
  addJsonOption(command, *options);
  addBrokerOptions(command, *options);
  command.does([=] { return runFleet([&] { return listRobots(*options, *patterns); }); });
}

void addFleetWatchCommand(const Command& program, const std::shared_ptr<BrokerOptions>& options) {
  const Command command = program.subcommand("watch", "Show the robots as they change");
  auto patterns = std::make_shared<std::vector<std::string>>();
  auto count = std::make_shared<std::uint64_t>(0);
  command.option("ROBOT", *patterns, "Parts of their names, or patterns with * and ?").shows("");
  addJsonOption(command, *options);
  command.option("--count", *count, "Lines instead of a picture, and end after so many")
      .shows("N")
      .positive();
  addBrokerOptions(command, *options);
  command.does([=] { return runFleet([&] { return watchRobots(*options, *patterns, *count); }); });
}

} // namespace gk::app
