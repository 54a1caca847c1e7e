#include "messages/fleet/BrokerAddress.h"
#include "messages/fleet/FleetPayload.h"
#include "messages/fleet/FleetTopics.h"

#include <boost/json/parse.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>

namespace gk::messages {

namespace {

using testing::HasSubstr;

/// What is said of a text that is not taken.
std::string fleetComplaint(const std::function<void()>& work) {
  try {
    work();
  } catch (const FormatError& error) {
    return error.what();
  }
  return "nothing";
}

constexpr std::int64_t kFleetTime = 1'790'000'000'123'000;

FleetEvent fleetEvent() {
  FleetEvent event;
  event.name = "robotPoseChanged";
  event.value = GK::GKValue("Stand");
  event.time = kFleetTime;
  event.uptime = 1'500'000;
  event.bootId = "b1";
  event.seq = 7;
  return event;
}

TEST(BrokerAddress, PortComesFromTheSchemeUnlessItIsGiven) {
  EXPECT_EQ(parseBrokerAddress("mqtt://broker").url(), "mqtt://broker:1883");
  EXPECT_EQ(parseBrokerAddress("mqtts://broker").url(), "mqtts://broker:8883");
  EXPECT_EQ(parseBrokerAddress("mqtt://10.0.0.1:65535/").url(), "mqtt://10.0.0.1:65535");
  EXPECT_EQ(parseBrokerAddress("mqtts://[::1]:99").url(), "mqtts://[::1]:99");
}

TEST(BrokerAddress, SchemeMayBeMissingOnlyWhereThatIsSaid) {
  EXPECT_EQ(parseBrokerAddress("broker:77", true).url(), "mqtt://broker:77");
  EXPECT_THAT(fleetComplaint([] { parseBrokerAddress("broker:77"); }), HasSubstr("mqtt://HOST"));
  EXPECT_THAT(fleetComplaint([] { parseBrokerAddress("http://broker", true); }),
              HasSubstr("mqtt://HOST"));
}

TEST(BrokerAddress, EachSlipIsNamed) {
  const auto complaint = [](const char* text) {
    return fleetComplaint([text] { parseBrokerAddress(text); });
  };
  EXPECT_THAT(complaint("mqtt://"), HasSubstr("no host"));
  EXPECT_THAT(complaint("mqtt://h:0"), HasSubstr("1 to 65535"));
  EXPECT_THAT(complaint("mqtt://h:65536"), HasSubstr("1 to 65535"));
  EXPECT_THAT(complaint("mqtt://h:1x"), HasSubstr("1 to 65535"));
  EXPECT_THAT(complaint("mqtt://me:secret@h"), HasSubstr("user and password"));
  EXPECT_THAT(complaint("mqtt://[::1"), HasSubstr("\"]\""));
  EXPECT_THAT(complaint("mqtt://h/topic"), HasSubstr("no host"));
}

TEST(FleetTopics, StandBelowRootVersionSiteAndRobot) {
  const FleetTopics topics("gk", "hall", "robot7");
  EXPECT_EQ(topics.connection(), "gk/v1/hall/robot7/connection");
  EXPECT_EQ(topics.event("robotPoseChanged"), "gk/v1/hall/robot7/event/robotPoseChanged");
  EXPECT_EQ(topics.rpc("GKSonar", "subscribe"), "gk/v1/hall/robot7/rpc/GKSonar/subscribe");
  EXPECT_EQ(fleetFilter("gk", "hall", "event/+"), "gk/v1/hall/+/event/+");
}

TEST(FleetTopics, OddCharactersOfANameBecomeUnderscores) {
  EXPECT_EQ(topicLevel("My/Event+#$ \xC3\xA4.1-x"), "My_Event______.1-x");
  EXPECT_EQ(topicLevel(""), "_");
  EXPECT_EQ(topicLevel(std::string(200, 'a')).size(), 128U);
}

TEST(FleetTopics, NamesOfLevelsAreTakenAsTheyAreOrNotAtAll) {
  EXPECT_THAT(fleetComplaint([] { FleetTopics("gk", "a/b", "r"); }), HasSubstr("site: \"a/b\""));
  EXPECT_THAT(fleetComplaint([] { FleetTopics("gk", "s", ""); }), HasSubstr("robot: \"\""));
  EXPECT_TRUE(isTopicLevel(std::string(128, 'a')));
  EXPECT_FALSE(isTopicLevel(std::string(129, 'a')));
}

TEST(FleetTopics, AnswersStayBelowTheSite) {
  const FleetTopics topics("gk", "hall", "robot7");
  EXPECT_TRUE(topics.isAnswerTopic("gk/v1/hall/desk/answers"));
  EXPECT_FALSE(topics.isAnswerTopic("gk/v1/hall/"));
  EXPECT_FALSE(topics.isAnswerTopic("gk/v1/hall2/desk"));
  EXPECT_FALSE(topics.isAnswerTopic("gk/v1/hall/+/answers"));
  EXPECT_FALSE(topics.isAnswerTopic("elsewhere"));
}

TEST(FleetTopics, AreReadBackIntoTheirParts) {
  const auto topic = parseFleetTopic("gk/v1/hall/robot7/rpc/GKSonar/subscribe");
  ASSERT_TRUE(topic.has_value());
  EXPECT_EQ(topic->site, "hall");
  EXPECT_EQ(topic->robot, "robot7");
  EXPECT_EQ(topic->kind, "rpc");
  EXPECT_THAT(topic->rest, testing::ElementsAre("GKSonar", "subscribe"));
  EXPECT_FALSE(parseFleetTopic("gk/v2/hall/robot7/state").has_value());
  EXPECT_FALSE(parseFleetTopic("gk/v1/hall/robot7").has_value());
}

TEST(FleetPayload, EventHasTheMembersOfTheGatewaysChannelAndItsOwn) {
  EXPECT_EQ(eventPayload(fleetEvent()),
            R"({"name":"robotPoseChanged","t_s":1.5,"kind":"event","value":"Stand",)"
            R"("time":1790000000.123,"uptime":1.5,"bootId":"b1","seq":7,"historical":false})");
}

TEST(FleetPayload, EventIsReadBackAsItWas) {
  FleetEvent event = fleetEvent();
  event.kind = GK::GKNotice::Kind::MicroEvent;
  event.value = GK::GKValue(std::numeric_limits<float>::infinity());
  event.isHistorical = true;
  const FleetEvent read = readEvent(eventPayload(event));
  EXPECT_EQ(read.name, event.name);
  EXPECT_EQ(read.kind, event.kind);
  EXPECT_EQ(read.value, event.value);
  EXPECT_EQ(read.time, event.time);
  EXPECT_EQ(read.uptime, event.uptime);
  EXPECT_EQ(read.bootId, event.bootId);
  EXPECT_EQ(read.seq, event.seq);
  EXPECT_TRUE(read.isHistorical);
}

TEST(FleetPayload, WhatIsNoPayloadIsRefusedByItsMember) {
  EXPECT_THAT(fleetComplaint([] { readEvent("[]"); }), HasSubstr("object"));
  EXPECT_THAT(fleetComplaint([] { readEvent(R"({"name":1})"); }), HasSubstr("\"name\""));
  EXPECT_THAT(fleetComplaint([] { readGap(R"({"bootId":"b","from":-1,"to":2})"); }),
              HasSubstr("\"from\""));
  EXPECT_THAT(fleetComplaint([] { readConnection(R"({"state":"?","bootId":"b","time":1})"); }),
              HasSubstr("\"state\""));
  EXPECT_THAT(
      fleetComplaint([] { readConnection(R"({"state":"lost","bootId":"b","time":1e300})"); }),
      HasSubstr("time"));
}

TEST(FleetPayload, StateTellsWhatIsNotKnownAsNull) {
  FleetState state;
  state.bootId = "b1";
  state.time = kFleetTime;
  EXPECT_EQ(statePayload(state),
            R"({"bootId":"b1","time":1790000000.123,"uptime":0,"pose":null,"footContact":null,)"
            R"("battery":{"charge":null,"plugged":null},"stiffness":null,"hottest":null,)"
            R"("loops":[],"outbox":{"backlog":0,"bytes":0,"oldest_s":null,"gaps":0,"refused":0}})");
}

TEST(FleetPayload, StateIsReadBackAsItWas) {
  FleetState state;
  state.bootId = "b1";
  state.pose = "Sit";
  state.isOnFloor = true;
  state.charge = 0.5;
  state.isPlugged = false;
  state.stiffness = "on";
  state.hottest = {"HeadYaw", 41.5};
  state.loops = {{"GKSensors", 50, 50.0, 0.001, 0.002, 3}};
  state.outbox = {4, 5, 6.5, 7, 8};
  EXPECT_EQ(statePayload(readState(statePayload(state))), statePayload(state));
}

TEST(FleetPayload, FactsheetIsReadBackAsItWas) {
  FleetFactsheet sheet;
  sheet.name = "robot7";
  sheet.version = "1";
  sheet.page = "http://robot7:8090/";
  sheet.calls = {"*"};
  sheet.modules = {{"GKFsr", "Feet", {{"run", "Runs", {"period"}, true}}, {"footContact"}}};
  EXPECT_EQ(factsheetPayload(readFactsheet(factsheetPayload(sheet))), factsheetPayload(sheet));
}

TEST(FleetPayload, CallsAndAnswersAreReadBackAsTheyWere) {
  EXPECT_EQ(readRequest(requestPayload(boost::json::parse("[1,\"a\"]"))),
            boost::json::parse("[1,\"a\"]"));
  EXPECT_TRUE(readRequest("{}").is_null());
  EXPECT_THAT(fleetComplaint([] { readRequest(R"({"params":3})"); }), HasSubstr("\"params\""));
  EXPECT_EQ(answerPayload({}), R"({"result":null})");
  EXPECT_EQ(readAnswer(R"({"result":[1]})").result, "[1]");
  const std::string refused =
      R"({"error":{"code":-32000,"message":"m","data":{"module":"GKMemory"}}})";
  EXPECT_EQ(answerPayload(readAnswer(refused)), refused);
}

} // namespace

} // namespace gk::messages
