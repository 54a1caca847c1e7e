#include "app/fleet/FleetBook.h"

#include "devices/meaning/EventWords.h"
#include "messages/json/JsonWriter.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/FormatError.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>

namespace gk::app {

namespace {

using devices::Level;
using messages::FleetPresence;

constexpr double kPercent = 100;
constexpr double kMicrosPerSecond = 1e6;

/// Poses in which a robot lies.
constexpr std::array<std::string_view, 5> kLying = {"Back", "Belly", "Left", "Right", "HeadBack"};

bool isLying(const std::string& pose) {
  return std::ranges::find(kLying, pose) != kLying.end();
}

/// What a robot tells of its body.
void addOfBody(std::vector<FleetNeed>& needs, const messages::FleetState& state) {
  if (state.pose && isLying(*state.pose)) {
    needs.push_back({Urgency::Fallen, Level::Error, "fell: " + *state.pose});
  }
  if (state.hottest && state.hottest->temperature >= FleetBook::kWarm) {
    needs.push_back(
        {Urgency::Hot,
         state.hottest->temperature >= FleetBook::kHot ? Level::Error : Level::Warning,
         fmt::format("hot: {} {:.0f} degC", state.hottest->name, state.hottest->temperature)});
  }
  const bool isPlugged = state.isPlugged.value_or(false);
  if (state.charge && !isPlugged && *state.charge <= messages::kLowCharge) {
    needs.push_back({Urgency::LowBattery,
                     *state.charge <= messages::kEmptyCharge ? Level::Error : Level::Warning,
                     fmt::format("battery at {:.0f} %", kPercent * *state.charge)});
  }
}

/// What a robot tells of its events.
void addOfOutbox(std::vector<FleetNeed>& needs, const FleetRobot& robot) {
  if (robot.state) {
    const messages::FleetState::Outbox& outbox = robot.state->outbox;
    const bool isLong = outbox.oldest.value_or(0) >= FleetBook::kLongWaiting;
    if (outbox.backlog >= FleetBook::kManyWaiting || (outbox.backlog > 0 && isLong)) {
      needs.push_back(
          {Urgency::Backlog, Level::Warning, fmt::format("{} events wait", outbox.backlog)});
    }
    if (outbox.refused > 0) {
      needs.push_back({Urgency::Refused, Level::Error,
                       fmt::format("the broker refuses {} events", outbox.refused)});
    }
  }
  const std::uint64_t gaps = robot.state ? robot.state->outbox.gaps : 0;
  if (robot.givenUp > 0) {
    needs.push_back({Urgency::Gaps, Level::Warning, fmt::format("{} events lost", robot.givenUp)});
  } else if (gaps > 0) {
    needs.push_back(
        {Urgency::Gaps, Level::Warning, fmt::format("{} gap{}", gaps, gaps == 1 ? "" : "s")});
  }
}

std::vector<FleetNeed> needsOf(const FleetRobot& robot, FleetBook::Time now) {
  std::vector<FleetNeed> needs;
  const FleetPresence presence =
      robot.connection ? robot.connection->presence : FleetPresence::Online;
  if (presence == FleetPresence::Lost) {
    needs.push_back({Urgency::Lost, Level::Error, "lost"});
  } else if (presence == FleetPresence::Online && now - robot.heard >= FleetBook::kSilence) {
    needs.push_back({Urgency::Silent, Level::Error, "silent"});
  }
  // Of one that was switched off nobody knows more than that.
  if (presence != FleetPresence::Offline) {
    if (robot.state) {
      addOfBody(needs, *robot.state);
    }
    addOfOutbox(needs, robot);
  }
  std::ranges::stable_sort(needs, std::ranges::greater(), &FleetNeed::urgency);
  return needs;
}

/// Takes in what the topic's kind says. Raises `FormatError`.
void takeIn(FleetRobot& robot, const std::string& kind, std::string_view payload) {
  if (kind == messages::kConnectionTopic) {
    robot.connection = messages::readConnection(payload);
  } else if (kind == messages::kStateTopic) {
    robot.state = messages::readState(payload);
  } else if (kind == messages::kFactsheetTopic) {
    robot.factsheet = messages::readFactsheet(payload);
  } else if (kind == messages::kGapTopic) {
    const messages::FleetGap gap = messages::readGap(payload);
    robot.givenUp += gap.to >= gap.from ? gap.to - gap.from + 1 : 0;
  } else if (kind == messages::kEventTopic) {
    messages::FleetEvent event = messages::readEvent(payload);
    // What was kept back comes after what is new.
    if (!robot.lastEvent || event.time >= robot.lastEvent->time) {
      robot.lastEvent = std::move(event);
    }
  } else {
    throw messages::FormatError("it is of another kind");
  }
}

/// Only of these a robot comes to be known.
bool isKind(const std::string& kind) {
  constexpr std::array<std::string_view, 5> kinds = {
      messages::kConnectionTopic, messages::kStateTopic, messages::kFactsheetTopic,
      messages::kGapTopic, messages::kEventTopic};
  return std::ranges::find(kinds, kind) != kinds.end();
}

/// An address that a browser may be sent to: what robots tell is not to run anything.
bool isWebPage(const std::string& page) {
  return page.starts_with("http://") || page.starts_with("https://");
}

std::string secondsText(std::int64_t micros) {
  return fmt::format("{:.3f}", static_cast<double>(micros) / kMicrosPerSecond);
}

void writeNeeds(messages::JsonWriter& out, const std::vector<FleetNeed>& needs) {
  out.key("needs").beginArray();
  for (const FleetNeed& need : needs) {
    out.beginObject().key("level").integer(static_cast<int>(need.level));
    out.key("text").text(need.text).endObject();
  }
  out.endArray();
}

void writePresence(messages::JsonWriter& out, const FleetRobot& robot) {
  out.key("connection").optional(robot.connection, [&out](const auto& connection) {
    out.text(messages::presenceName(connection.presence));
  });
}

void writePage(messages::JsonWriter& out, const FleetRobot& robot) {
  const bool hasPage =
      robot.factsheet && robot.factsheet->page && isWebPage(*robot.factsheet->page);
  out.key("page");
  if (hasPage) {
    out.text(*robot.factsheet->page);
  } else {
    out.null();
  }
}

} // namespace

Urgency FleetRobot::urgency() const {
  if (!needs.empty()) {
    return needs.front().urgency;
  }
  return connection && connection->presence == FleetPresence::Offline ? Urgency::Away
                                                                      : Urgency::Well;
}

Level FleetRobot::level() const {
  Level worst = Level::Fine;
  for (const FleetNeed& need : needs) {
    worst = std::max(worst, need.level);
  }
  return worst;
}

std::string FleetRobot::words() const {
  if (needs.empty()) {
    return urgency() == Urgency::Away ? "offline" : "well";
  }
  std::string text;
  for (const FleetNeed& need : needs) {
    text += (text.empty() ? "" : ", ") + need.text;
  }
  return text;
}

std::string FleetRobot::json() const {
  std::string text;
  messages::JsonWriter out(text);
  out.beginObject().key("site").text(site).key("robot").text(name);
  writePresence(out, *this);
  out.key("level").integer(static_cast<int>(level()));
  writeNeeds(out, needs);
  out.key("version").optional(factsheet, [&out](const auto& sheet) { out.text(sheet.version); });
  writePage(out, *this);
  out.key("eventsGivenUp").unsignedInteger(givenUp);
  out.key("state").optional(state,
                            [&out](const auto& one) { out.raw(messages::statePayload(one)); });
  out.key("lastEvent").optional(lastEvent, [&out](const auto& event) {
    out.raw(messages::eventPayload(event));
  });
  out.endObject();
  return text;
}

std::string FleetRobot::cardJson() const {
  std::string text;
  messages::JsonWriter out(text);
  out.beginObject().key("site").text(site).key("robot").text(name);
  out.key("urgency").integer(static_cast<int>(urgency()));
  out.key("level").integer(static_cast<int>(level())).key("words").text(words());
  writePresence(out, *this);
  out.key("pose");
  if (state && state->pose) {
    out.text(*state->pose);
  } else {
    out.null();
  }
  out.key("charge").optional(state ? state->charge : std::nullopt, [&out](double charge) {
    out.integer(std::lround(kPercent * charge));
  });
  out.key("plugged").boolean(state && state->isPlugged.value_or(false));
  out.key("backlog").optional(state,
                              [&out](const auto& one) { out.unsignedInteger(one.outbox.backlog); });
  out.key("event").optional(lastEvent, [&out](const messages::FleetEvent& event) {
    std::string words = devices::eventSentence(event.name, event.value);
    if (words.empty()) {
      words = event.name + " ";
      messages::appendJson(words, event.value);
    }
    out.beginObject().key("name").text(event.name).key("words").text(words);
    out.key("time").raw(secondsText(event.time)).endObject();
  });
  writePage(out, *this);
  out.endObject();
  return text;
}

const FleetRobot* FleetBook::take(std::string_view topic, std::string_view payload, Time now) {
  const std::optional<messages::FleetTopic> parts = messages::parseFleetTopic(topic);
  if (!parts || !isKind(parts->kind)) {
    return nullptr;
  }
  const Key key(parts->site, parts->robot);
  if (payload.empty()) {
    if (parts->kind == messages::kConnectionTopic) {
      fRobots.erase(key);
    }
    return nullptr;
  }
  const auto known = fRobots.find(key);
  if (known == fRobots.end() && fRobots.size() >= kMostRobots) {
    return nullptr;
  }
  FleetRobot fresh;
  FleetRobot& taken = known != fRobots.end() ? known->second : fresh;
  try {
    takeIn(taken, parts->kind, payload);
  } catch (const messages::FormatError&) {
    ++fUnreadable;
    return nullptr;
  }
  FleetRobot& robot = fRobots.try_emplace(key, std::move(fresh)).first->second;
  robot.site = parts->site;
  robot.name = parts->robot;
  robot.heard = now;
  robot.needs = needsOf(robot, now);
  return &robot;
}

std::vector<const FleetRobot*> FleetBook::look(Time now) {
  std::vector<const FleetRobot*> changed;
  for (auto& [key, robot] : fRobots) {
    std::vector<FleetNeed> needs = needsOf(robot, now);
    if (needs != robot.needs) {
      robot.needs = std::move(needs);
      changed.push_back(&robot);
    }
  }
  return changed;
}

std::vector<const FleetRobot*> FleetBook::byUrgency() const {
  std::vector<const FleetRobot*> robots;
  robots.reserve(fRobots.size());
  for (const auto& [key, robot] : fRobots) {
    robots.push_back(&robot);
  }
  std::ranges::stable_sort(
      robots, [](const FleetRobot* a, const FleetRobot* b) { return a->urgency() > b->urgency(); });
  return robots;
}

std::vector<const FleetRobot*> FleetBook::named(std::string_view name) const {
  std::vector<const FleetRobot*> robots;
  for (const auto& [key, robot] : fRobots) {
    if (key.second == name) {
      robots.push_back(&robot);
    }
  }
  return robots;
}

} // namespace gk::app
