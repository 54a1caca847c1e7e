#include "app/fleet/FleetCommands.h"
#include "app/fleet/FleetLink.h"
#include "app/fleet/SeenEvents.h"
#include "devices/meaning/EventWords.h"
#include "formats/text/NamePattern.h"
#include "formats/text/Printable.h"
#include "messages/fleet/FleetPayload.h"
#include "messages/fleet/FleetTopics.h"
#include "messages/json/JsonValue.h"
#include "messages/json/JsonWriter.h"
#include "messages/text/FormatError.h"
#include "messages/text/WallTime.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

struct EventsOptions {
  std::vector<std::string> names;
  std::vector<std::string> robots;
  /// 0 for no end.
  std::uint64_t count = 0;
};

/// Without patterns all are.
bool isAmong(const std::vector<std::string>& patterns, const std::string& name) {
  return patterns.empty() || std::ranges::any_of(patterns, [&name](const std::string& pattern) {
           return formats::isMeant(name, pattern);
         });
}

/// "12:30:24.123", of the robot's clock.
std::string timeText(std::int64_t micros) {
  constexpr std::int64_t perSecond = 1'000'000;
  constexpr std::int64_t perMilli = 1'000;
  std::string text = messages::wallTimeText(micros);
  const std::size_t time = text.find('T');
  if (time == std::string::npos) {
    return text;
  }
  return fmt::format("{}.{:03}", text.substr(time + 1, 8), micros % perSecond / perMilli);
}

/// An object of JSON with the robot before what else is in it.
std::string withRobot(const messages::FleetTopic& topic, const char* kind,
                      const std::string& payload) {
  std::string text;
  messages::JsonWriter out(text);
  out.beginObject().key("site").text(topic.site).key("robot").text(topic.robot);
  out.key(kind).raw(payload).endObject();
  return text;
}

/// Prints what matters of events and gaps.
class EventsView {
public:
  EventsView(const BrokerOptions& options, const EventsOptions& wanted)
      : fIsJson(options.isJson), fWanted(wanted) {}

  void take(const messages::MqttMessage& message) {
    const auto topic = messages::parseFleetTopic(message.topic);
    if (fIsEnough || !topic || !isAmong(fWanted.robots, topic->robot)) {
      return;
    }
    try {
      if (topic->kind == messages::kEventTopic) {
        xTakeEvent(*topic, messages::readEvent(message.payload));
      } else if (topic->kind == messages::kGapTopic) {
        xTakeGap(*topic, messages::readGap(message.payload));
      }
    } catch (const messages::FormatError& error) {
      fmt::print(stderr, "gk fleet: {}: {}\n", formats::printable(message.topic),
                 formats::printable(error.what()));
    }
  }

  bool isEnough() const { return fIsEnough; }

private:
  void xTakeEvent(const messages::FleetTopic& topic, const messages::FleetEvent& event) {
    if (!isAmong(fWanted.names, event.name) ||
        !fSeen.isNew(topic.site + "/" + topic.robot, event.bootId, event.seq)) {
      return;
    }
    if (fIsJson) {
      xPrint(withRobot(topic, "event", messages::eventPayload(event)));
      return;
    }
    std::string value;
    messages::appendJson(value, event.value);
    const std::string words = devices::eventSentence(event.name, event.value);
    xPrint(formats::printable(fmt::format(
        "{}{}  {}  {}", timeText(event.time), event.isHistorical ? " late" : "", topic.robot,
        words.empty() ? event.name + "  " + value : words + "  (" + event.name + ")")));
  }

  /// Whoever asks for some events alone is told of gaps all the same: they may be among them.
  void xTakeGap(const messages::FleetTopic& topic, const messages::FleetGap& gap) {
    if (fIsJson) {
      xPrint(withRobot(topic, "gap", messages::gapPayload(gap)));
    } else {
      xPrint(formats::printable(fmt::format("{}  lost for good: events {} to {} of boot {}",
                                            topic.robot, gap.from, gap.to, gap.bootId)));
    }
  }

  void xPrint(const std::string& line) {
    fmt::print("{}\n", line);
    std::fflush(stdout);
    fIsEnough = ++fShown == fWanted.count;
  }

  const bool fIsJson;
  const EventsOptions fWanted;
  SeenEvents fSeen;
  std::uint64_t fShown = 0;
  bool fIsEnough = false;
};

int showFleetEvents(const BrokerOptions& options, const EventsOptions& wanted) {
  checkFleetNames(options);
  const std::string site = siteFilter(options);
  EventsView view(options, wanted);
  FleetLink link(
      options,
      {{messages::fleetFilter(options.root, site, std::string(messages::kEventTopic) + "/+"), 1},
       {messages::fleetFilter(options.root, site, messages::kGapTopic), 1}},
      {[&view](const messages::MqttMessage& message) { view.take(message); },
       {},
       [](const std::string& why) {
         if (!why.empty()) {
           fmt::print(stderr,
                      "gk fleet: no broker, trying again; what is sent meanwhile is not "
                      "shown: {}\n",
                      formats::printable(why));
         }
       }});
  link.open();
  link.run([&view] { return view.isEnough(); });
  link.close();
  return kSuccess;
}

} // namespace

void addFleetEventsCommand(const Command& program, const std::shared_ptr<BrokerOptions>& options) {
  const Command command = program.subcommand("events", "Show the robots' events as they come");
  auto wanted = std::make_shared<EventsOptions>();
  command.option("PATTERN", wanted->names, "Parts of their names, or patterns with * and ?")
      .shows("");
  addJsonOption(command, *options);
  command
      .option("--robot", wanted->robots, "Of robots with this in their names alone, or a pattern")
      .shows("ROBOT")
      .onceEach();
  command.option("--count", wanted->count, "End after so many events").shows("N").positive();
  addBrokerOptions(command, *options);
  command.does([=] { return runFleet([&] { return showFleetEvents(*options, *wanted); }); });
}

} // namespace gk::app
