#include "app/fleet/FleetBook.h"
#include "app/fleet/FleetCards.h"
#include "app/fleet/FleetTable.h"
#include "app/fleet/SeenEvents.h"
#include "messages/json/Json.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

namespace gk::app {
namespace {

using messages::FleetPresence;
using messages::FleetState;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Robots that say what a test wants.
class FleetBookTest : public testing::Test {
protected:
  void online(const std::string& robot, FleetPresence presence = FleetPresence::Online) {
    sut.take("gk/v1/default/" + robot + "/connection",
             messages::connectionPayload({presence, "boot", 0}), now);
  }
  void say(const std::string& robot, const FleetState& state) {
    online(robot);
    sut.take("gk/v1/default/" + robot + "/state", messages::statePayload(state), now);
  }
  void raise(const std::string& robot, const std::string& event, std::int64_t time) {
    messages::FleetEvent one;
    one.name = event;
    one.value = GK::GKValue(1);
    one.time = time;
    one.bootId = "boot";
    one.seq = 1;
    sut.take("gk/v1/default/" + robot + "/event/" + event, messages::eventPayload(one), now);
  }
  std::string wordsOf(const std::string& robot) const {
    const auto named = sut.named(robot);
    return named.size() == 1 ? named.front()->words() : "there is none";
  }
  std::vector<std::string> order() const {
    std::vector<std::string> names;
    for (const FleetRobot* robot : sut.byUrgency()) {
      names.push_back(robot->name);
    }
    return names;
  }

  FleetBook sut;
  FleetBook::Time now{std::chrono::hours(1)};
};

TEST_F(FleetBookTest, WhoNeedsSomebodyMostComesFirst) {
  FleetState state;
  say("well", state);
  online("away", FleetPresence::Offline);
  state.outbox.gaps = 1;
  say("gaps", state);
  state = {};
  state.outbox.backlog = FleetBook::kManyWaiting;
  say("backlog", state);
  state = {};
  state.charge = 0.05;
  say("battery", state);
  state = {};
  state.hottest = {"HeadYaw", 80};
  say("hot", state);
  state = {};
  state.pose = "Belly";
  say("fallen", state);
  online("lost", FleetPresence::Lost);
  EXPECT_THAT(order(),
              ElementsAre("lost", "fallen", "hot", "battery", "backlog", "gaps", "well", "away"));
  EXPECT_EQ(wordsOf("fallen"), "fell: Belly");
  EXPECT_EQ(wordsOf("hot"), "hot: HeadYaw 80 degC");
  EXPECT_EQ(wordsOf("battery"), "battery at 5 %");
  EXPECT_EQ(wordsOf("backlog"), "100 events wait");
  EXPECT_EQ(wordsOf("gaps"), "1 gap");
  EXPECT_EQ(wordsOf("well"), "well");
  EXPECT_EQ(wordsOf("away"), "offline");
}

TEST_F(FleetBookTest, ALowBatteryMattersUnlessItIsCharged) {
  FleetState state;
  state.charge = 0.21;
  say("r", state);
  EXPECT_EQ(wordsOf("r"), "well");
  state.charge = 0.2;
  say("r", state);
  EXPECT_EQ(wordsOf("r"), "battery at 20 %");
  EXPECT_EQ(sut.named("r").front()->level(), devices::Level::Warning);
  state.charge = 0.1;
  say("r", state);
  EXPECT_EQ(sut.named("r").front()->level(), devices::Level::Error);
  state.isPlugged = true;
  say("r", state);
  EXPECT_EQ(wordsOf("r"), "well");
}

TEST_F(FleetBookTest, HeatMattersFromWhatBoardsCallWarm) {
  FleetState state;
  state.hottest = {"HeadYaw", 74.9};
  say("r", state);
  EXPECT_EQ(wordsOf("r"), "well");
  state.hottest->temperature = 75;
  say("r", state);
  EXPECT_EQ(sut.named("r").front()->level(), devices::Level::Warning);
  state.hottest->temperature = 85;
  say("r", state);
  EXPECT_EQ(sut.named("r").front()->level(), devices::Level::Error);
}

TEST_F(FleetBookTest, FewEventsMayWaitForAMoment) {
  FleetState state;
  state.outbox.backlog = FleetBook::kManyWaiting - 1;
  state.outbox.oldest = FleetBook::kLongWaiting - 1;
  say("r", state);
  EXPECT_EQ(wordsOf("r"), "well");
  state.outbox.oldest = FleetBook::kLongWaiting;
  say("r", state);
  EXPECT_EQ(wordsOf("r"), "99 events wait");
}

TEST_F(FleetBookTest, ARobotThatSaysNothingIsSilentUntilItSpeaks) {
  say("r", {});
  now += FleetBook::kSilence - std::chrono::milliseconds(1);
  EXPECT_THAT(sut.look(now), IsEmpty());
  now += std::chrono::milliseconds(1);
  ASSERT_EQ(sut.look(now).size(), 1U);
  EXPECT_EQ(wordsOf("r"), "silent");
  EXPECT_THAT(sut.look(now), IsEmpty());
  say("r", {});
  EXPECT_EQ(wordsOf("r"), "well");
}

TEST_F(FleetBookTest, OfARobotThatWasSwitchedOffNothingElseMatters) {
  FleetState state;
  state.charge = 0.05;
  say("r", state);
  online("r", FleetPresence::Offline);
  now += 2 * FleetBook::kSilence;
  sut.look(now);
  EXPECT_EQ(wordsOf("r"), "offline");
}

TEST_F(FleetBookTest, EventsThatAreGivenUpAreCounted) {
  online("r");
  sut.take("gk/v1/default/r/gap", messages::gapPayload({"boot", 5, 9}), now);
  EXPECT_EQ(wordsOf("r"), "5 events lost");
}

TEST_F(FleetBookTest, WhatIsKeptBackIsNotTheLastEvent) {
  raise("r", "New", 2'000'000);
  raise("r", "Old", 1'000'000);
  EXPECT_EQ(sut.named("r").front()->lastEvent->name, "New");
}

TEST_F(FleetBookTest, WhatCannotBeReadChangesNothing) {
  online("r");
  EXPECT_EQ(sut.take("gk/v1/default/r/state", "{", now), nullptr);
  EXPECT_EQ(sut.take("gk/v1/default/r/connection", R"({"state":"asleep"})", now), nullptr);
  EXPECT_EQ(sut.take("gk/v1/default/other/state", "{", now), nullptr);
  EXPECT_EQ(wordsOf("other"), "there is none");
  EXPECT_EQ(sut.unreadable(), 3U);
  EXPECT_EQ(sut.take("gk/v1/default/r/rpc/GKBattery/getBatteryCharge", "{}", now), nullptr);
  EXPECT_EQ(sut.take("gk/v2/default/r/state", "{", now), nullptr);
  EXPECT_EQ(sut.unreadable(), 3U);
  EXPECT_EQ(wordsOf("r"), "well");
}

TEST_F(FleetBookTest, ARobotWhoseConnectionIsEmptiedIsForgotten) {
  online("r");
  sut.take("gk/v1/default/r/connection", "", now);
  EXPECT_EQ(wordsOf("r"), "there is none");
}

TEST_F(FleetBookTest, NoMoreRobotsThanOneCanLookAt) {
  for (std::size_t i = 0; i <= FleetBook::kMostRobots; ++i) {
    online(std::to_string(i));
  }
  EXPECT_EQ(sut.robots().size(), FleetBook::kMostRobots);
}

TEST_F(FleetBookTest, TheTableFitsItsColumnsAndMarksWhatMatters) {
  FleetState state;
  state.pose = "Belly";
  state.charge = 0.08;
  state.hottest = {"LShoulderPitch", 91};
  state.outbox.backlog = 12345;
  say("a-robot-with-a-name-that-is-longer-than-anybody-needs", state);
  raise("a-robot-with-a-name-that-is-longer-than-anybody-needs",
        "AnEventWithANameThatIsLongerThanAnybodyNeeds", 1);
  say("r2", {});
  const std::string table = fleetTable(sut.byUrgency(), 80);
  std::istringstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    // An ellipsis has three bytes.
    EXPECT_LE(line.size(), 86U) << line;
  }
  EXPECT_THAT(table, HasSubstr("Belly!"));
  EXPECT_THAT(table, HasSubstr("8 %!"));
  EXPECT_THAT(table, HasSubstr("12345!"));
  EXPECT_EQ(fleetSummary(sut.byUrgency()), "2 robots: 1 fallen, 1 well");
}

TEST_F(FleetBookTest, NamesOfAnybodyDoNothingToATerminal) {
  online("\x1b[2Jr");
  EXPECT_THAT(fleetTable(sut.byUrgency(), 80), Not(HasSubstr("\x1b")));
}

/// Names in what a page is sent.
std::vector<std::string> cardsIn(const std::string& answer) {
  std::vector<std::string> names;
  const boost::json::value value = messages::parseJson(answer);
  for (const boost::json::value& card : value.at("cards").as_array()) {
    names.emplace_back(card.at("robot").as_string());
  }
  return names;
}

TEST_F(FleetBookTest, APageIsSentWhatHasChanged) {
  FleetCards cards("s", "mqtt://broker:1883");
  online("a");
  online("b");
  cards.update(sut);
  EXPECT_THAT(cardsIn(cards.since({}, "")), ElementsAre("a", "b"));
  const std::uint64_t before = cards.version();
  cards.update(sut);
  EXPECT_EQ(cards.version(), before);
  online("b", FleetPresence::Lost);
  cards.update(sut);
  EXPECT_THAT(cardsIn(cards.since(before, "s")), ElementsAre("b"));
  EXPECT_THAT(cardsIn(cards.since(cards.version(), "s")), IsEmpty());
}

TEST_F(FleetBookTest, APageOfAProcessBeforeOrWithRobotsThatAreGoneIsSentEverything) {
  FleetCards cards("s", "mqtt://broker:1883");
  online("a");
  online("b");
  cards.update(sut);
  EXPECT_THAT(cardsIn(cards.since(cards.version(), "other")), ElementsAre("a", "b"));
  const std::uint64_t before = cards.version();
  sut.take("gk/v1/default/a/connection", "", now);
  cards.update(sut);
  EXPECT_THAT(cardsIn(cards.since(before, "s")), ElementsAre("b"));
  EXPECT_THAT(cards.since(before, "s"), HasSubstr(R"("all":true)"));
}

TEST_F(FleetBookTest, AMissingBrokerIsNews) {
  FleetCards cards("s", "mqtt://broker:1883");
  const std::uint64_t before = cards.version();
  cards.setTrouble("Connection refused");
  EXPECT_GT(cards.version(), before);
  EXPECT_THAT(cards.since(before, "s"), HasSubstr(R"("trouble":"Connection refused")"));
}

TEST_F(FleetBookTest, OnlyPagesOfTheWebAreLinked) {
  online("r");
  messages::FleetFactsheet factsheet;
  factsheet.page = "javascript:alert(1)";
  sut.take("gk/v1/default/r/factsheet", messages::factsheetPayload(factsheet), now);
  EXPECT_THAT(sut.named("r").front()->cardJson(), HasSubstr(R"("page":null)"));
  factsheet.page = "http://r:8090/";
  sut.take("gk/v1/default/r/factsheet", messages::factsheetPayload(factsheet), now);
  EXPECT_THAT(sut.named("r").front()->cardJson(), HasSubstr(R"("page":"http://r:8090/")"));
}

TEST(SeenEvents, OfTheSameBootAndNumberThereIsOne) {
  SeenEvents sut;
  EXPECT_TRUE(sut.isNew("r", "boot", 1));
  EXPECT_TRUE(sut.isNew("r", "boot", 2));
  EXPECT_TRUE(sut.isNew("r", "other boot", 1));
  EXPECT_TRUE(sut.isNew("r2", "boot", 1));
  EXPECT_FALSE(sut.isNew("r", "boot", 1));
}

} // namespace
} // namespace gk::app
