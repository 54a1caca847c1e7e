#include "extensions/fleet/CallDesk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace gk::fleet {

namespace {

using messages::MqttMessage;
using std::chrono::minutes;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct CallDeskTest : testing::Test {
  CallDeskTest()
      : sut(messages::FleetTopics("gk", "hall", "r1"),
            {[](const std::string& module) { return module == "GKFsr"; },
             [this](std::uint64_t number, const std::string& module, const std::string& method,
                    const std::string& params) {
               last = number;
               run.push_back(module + "." + method + params);
             },
             [this](const MqttMessage& answer) { answers.push_back(answer); },
             [this](const std::string& text) { told.push_back(text); }}) {}

  static MqttMessage request(const std::string& id, const std::string& module = "GKFsr") {
    MqttMessage message{"gk/v1/hall/r1/rpc/" + module + "/getWeight", R"({"params":[1]})", 1,
                        false};
    message.responseTopic = "gk/v1/hall/desk/answers";
    message.correlation = id;
    return message;
  }

  CallDesk::Time now{seconds(1000)};
  std::uint64_t last = 0;
  std::vector<std::string> run;
  std::vector<MqttMessage> answers;
  std::vector<std::string> told;
  CallDesk sut;
};

messages::FleetAnswer deskAnswer(const std::string& result) {
  messages::FleetAnswer answer;
  answer.result = result;
  return answer;
}

TEST_F(CallDeskTest, AnswerGoesWhereItIsWantedWithItsCorrelation) {
  sut.onRequest(now, request("a"));
  EXPECT_THAT(run, ElementsAre("GKFsr.getWeight[1]"));
  EXPECT_THAT(answers, IsEmpty());
  sut.onAnswer(now, last, deskAnswer("2.5"));
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answers[0].topic, "gk/v1/hall/desk/answers");
  EXPECT_EQ(answers[0].payload, R"({"result":2.5})");
  EXPECT_EQ(answers[0].correlation, "a");
  EXPECT_EQ(answers[0].qos, 1);
}

TEST_F(CallDeskTest, RequestThatComesAgainIsAnsweredAgainWithoutBeingRun) {
  sut.onRequest(now, request("a"));
  sut.onRequest(now, request("a")); // while it is running
  EXPECT_EQ(run.size(), 1U);
  sut.onAnswer(now, last, deskAnswer("1"));
  EXPECT_EQ(answers.size(), 1U);
  now += minutes(4);
  sut.onRequest(now, request("a"));
  EXPECT_EQ(run.size(), 1U);
  ASSERT_EQ(answers.size(), 2U);
  EXPECT_EQ(answers[1].payload, answers[0].payload);
  now += minutes(1);
  sut.onRequest(now, request("a"));
  EXPECT_EQ(run.size(), 2U);
}

TEST_F(CallDeskTest, RequestsWithoutCorrelationAreRunEachTime) {
  MqttMessage message = request("");
  message.correlation.reset();
  sut.onRequest(now, message);
  sut.onAnswer(now, last, deskAnswer("1"));
  sut.onRequest(now, message);
  EXPECT_EQ(run.size(), 2U);
  EXPECT_EQ(answers.size(), 1U);
}

TEST_F(CallDeskTest, ModulesThatAreNotAllowedAreOff) {
  sut.onRequest(now, request("a", "GKSonar"));
  EXPECT_THAT(run, IsEmpty());
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answers[0].payload, R"({"error":{"code":-32601,"message":"calls are off"}})");
}

TEST_F(CallDeskTest, AnswersLeaveTheSiteForNobody) {
  MqttMessage message = request("a");
  message.responseTopic = "gk/v1/hall2/desk";
  sut.onRequest(now, message);
  message.responseTopic = "";
  sut.onRequest(now, message);
  message.responseTopic = "gk/v1/hall/#";
  sut.onRequest(now, message);
  EXPECT_THAT(run, IsEmpty());
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_EQ(told.size(), 3U);
}

TEST_F(CallDeskTest, WhatABrokerHasKeptIsNotRun) {
  MqttMessage message = request("a");
  message.isRetained = true;
  sut.onRequest(now, message);
  EXPECT_THAT(run, IsEmpty());
}

TEST_F(CallDeskTest, NobodyIsAnsweredAfterTheDeadline) {
  MqttMessage message = request("a");
  message.expiry = 5;
  sut.onRequest(now, message);
  sut.onAnswer(now + seconds(5), last, deskAnswer("1"));
  EXPECT_THAT(answers, IsEmpty());
  message.correlation = "b";
  sut.onRequest(now, message);
  sut.onAnswer(now + seconds(3), last, deskAnswer("1"));
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answers[0].expiry, 2U);
}

TEST_F(CallDeskTest, WhatIsNoRequestIsAnsweredSo) {
  MqttMessage message = request("a");
  message.payload = "{\"params\":";
  sut.onRequest(now, message);
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_THAT(answers[0].payload, HasSubstr("-32600"));
}

TEST_F(CallDeskTest, OnlySoManyAnswersAreKept) {
  for (std::size_t call = 0; call <= CallDesk::kMost; ++call) {
    sut.onRequest(now, request(std::to_string(call)));
    sut.onAnswer(now, last, deskAnswer("1"));
  }
  run.clear();
  sut.onRequest(now, request("1"));
  EXPECT_THAT(run, IsEmpty());
  sut.onRequest(now, request("0"));
  EXPECT_EQ(run.size(), 1U);
}

} // namespace

} // namespace gk::fleet
