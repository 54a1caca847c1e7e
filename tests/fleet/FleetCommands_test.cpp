#include "fleet/Robot.h"
#include "gateway/ServedHost.h"
#include "messages/fleet/FleetPayload.h"
#include "support/Gk.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// The commands of gk fleet against a broker, with robots that are played here.

namespace gk::app {
namespace {

using gk::test::Broker;
using gk::test::Program;
using gk::test::ProgramResult;
using gk::test::runGk;
using messages::FleetPresence;
using test::Robot;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class FleetCommands : public testing::Test {
protected:
  ProgramResult fleet(std::vector<std::string> words) const {
    words.insert(words.begin(), {"fleet", "--broker", broker.address()});
    return runGk(std::move(words));
  }
  void connected(const std::string& name, FleetPresence presence = FleetPresence::Online) {
    robot.say("gk/v1/default/" + name + "/connection",
              messages::connectionPayload({presence, "boot", 0}));
  }
  static std::string eventOf(std::uint64_t seq, bool isHistorical = false) {
    messages::FleetEvent event;
    event.name = "SonarLeftDetected";
    event.value = GK::GKValue(0.5F);
    event.time = 1'767'225'600'250'000;
    event.bootId = "boot";
    event.seq = seq;
    event.isHistorical = isHistorical;
    return messages::eventPayload(event);
  }

  Broker broker;
  Robot robot{broker};
};

TEST_F(FleetCommands, ListShowsTheUrgentFirst) {
  connected("r1");
  connected("r2", FleetPresence::Lost);
  messages::FleetState state;
  state.pose = "Stand";
  state.charge = 0.5;
  robot.say("gk/v1/default/r1/state", messages::statePayload(state));
  const ProgramResult list = fleet({"list"});
  EXPECT_EQ(list.code, 0) << list.err;
  EXPECT_THAT(list.out, StartsWith("2 robots: 1 lost, 1 well\n"));
  EXPECT_LT(list.out.find("r2"), list.out.find("r1"));
  EXPECT_THAT(list.out, AllOf(HasSubstr("lost!"), HasSubstr("Stand"), HasSubstr("50 %")));
  EXPECT_THAT(fleet({"list", "--json"}).out,
              AllOf(StartsWith(R"([{"site":"default","robot":"r2","connection":"lost","level":2,)"
                               R"("needs":[{"level":2,"text":"lost"}])"),
                    HasSubstr(R"("pose":"Stand")")));
}

TEST_F(FleetCommands, EventsComeOnceAndGapsAreTold) {
  const std::string topic = "gk/v1/default/r1/event/SonarLeftDetected";
  Program events({GK_PROGRAM, "fleet", "--broker", broker.address(), "events", "--json", "Sonar*",
                  "--count", "3"});
  // Until it is subscribed nobody gets what is said; the same again is shown once.
  events.runUntil([&] {
    robot.say(topic, eventOf(1), false);
    return !events.outSoFar().empty();
  });
  robot.say(topic, eventOf(1, true), false);
  robot.say("gk/v1/default/r1/gap", messages::gapPayload({"boot", 2, 4}), false);
  robot.say(topic, eventOf(5), false);
  const ProgramResult ended = events.wait();
  EXPECT_EQ(ended.code, 0) << ended.err;
  EXPECT_THAT(ended.out, testing::MatchesRegex("\\{\"site\":\"default\",\"robot\":\"r1\",\"event\":"
                                               "\\{\"name\":\"Sonar[^\n]*\"seq\":1,[^\n]*\n"
                                               "\\{\"site\":\"default\",\"robot\":\"r1\",\"gap\":"
                                               "\\{\"bootId\":\"boot\",\"from\":2,\"to\":4\\}\\}\n"
                                               "[^\n]*\"seq\":5,[^\n]*\n"));
}

TEST_F(FleetCommands, CallsAreAnsweredByTheRobot) {
  connected("r1");
  robot.listen("gk/v1/default/r1/rpc/+/+");
  std::string request;
  robot.answer = [&request](const messages::MqttMessage& message) {
    request = message.topic + " " + message.payload;
    messages::MqttMessage answer{message.responseTopic, R"({"result":87})", 1};
    answer.correlation = message.correlation;
    return answer;
  };
  Program call({GK_PROGRAM, "fleet", "call", "r1", "GKBattery.getBatteryCharge", "2", "x", "[1]",
                "--broker", broker.address()});
  robot.waitUntil([&] { return call.hasEnded(); });
  const ProgramResult result = call.wait();
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.out, "87\n");
  EXPECT_EQ(request, R"(gk/v1/default/r1/rpc/GKBattery/getBatteryCharge {"params":[2,"x",[1]]})");
}

TEST_F(FleetCommands, ARobotsErrorIsTheCallsError) {
  connected("r1");
  robot.listen("gk/v1/default/r1/rpc/+/+");
  robot.answer = [](const messages::MqttMessage& message) {
    messages::MqttMessage answer{message.responseTopic,
                                 R"({"error":{"code":-32601,"message":"calls are off"}})", 1};
    answer.correlation = message.correlation;
    return answer;
  };
  Program call({GK_PROGRAM, "fleet", "--broker", broker.address(), "call", "r1", "GKFsr.x"});
  robot.waitUntil([&] { return call.hasEnded(); });
  const ProgramResult result = call.wait();
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.err, "gk fleet: r1: calls are off\n");
}

TEST_F(FleetCommands, WhoCannotAnswerIsNamed) {
  connected("r1", FleetPresence::Lost);
  connected("r2");
  EXPECT_EQ(fleet({"call", "r1", "GKFsr.x"}).err, "gk fleet: r1 is lost\n");
  const ProgramResult unknown = fleet({"call", "r11", "GKFsr.x"});
  EXPECT_EQ(unknown.code, 2);
  EXPECT_EQ(unknown.err, "gk fleet: there is no robot r11; did you mean r1 or r2?\n");
  const ProgramResult deaf = fleet({"call", "r2", "GKFsr.x"});
  EXPECT_EQ(deaf.code, 1);
  EXPECT_EQ(deaf.err, "gk fleet: r2 does not listen for requests\n");
}

TEST_F(FleetCommands, WatchTellsWhenARobotsConditionChanges) {
  connected("r1");
  Program watch({GK_PROGRAM, "fleet", "--broker", broker.address(), "watch", "--count", "2"});
  watch.runUntil([&] { return !watch.outSoFar().empty(); });
  connected("r1", FleetPresence::Lost);
  const ProgramResult ended = watch.wait();
  EXPECT_EQ(ended.out, "default/r1  well\ndefault/r1  lost\n");
}

TEST_F(FleetCommands, ServeShowsTheRobotsUntilItIsEnded) {
  connected("r1", FleetPresence::Lost);
  Program serve(
      {GK_PROGRAM, "fleet", "serve", "--broker", broker.address(), "--listen", "127.0.0.1:0"});
  const std::string before = "the fleet's page is at http://127.0.0.1:";
  serve.runUntil([&] { return serve.errSoFar().ends_with("/\n"); });
  const std::string told = serve.errSoFar();
  const std::string port = told.substr(told.find(before) + before.size());
  std::string cards;
  serve.runUntil([&] {
    gateway::test::Socket socket(static_cast<std::uint16_t>(std::stoi(port)));
    socket.send("GET /api/v1/fleet HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(std::stoi(port)) +
                "\r\n\r\n");
    cards = socket.readAnswer().body;
    return cards.find("\"words\":\"lost\"") != std::string::npos;
  });
  EXPECT_THAT(cards, HasSubstr(R"("robot":"r1")"));
  kill(serve.pid(), SIGTERM);
  EXPECT_EQ(serve.wait().code, 0);
}

TEST(FleetOptions, WhatIsWrongIsSaidInOneLine) {
  const std::string address = "127.0.0.1:" + std::to_string(gk::test::freePort());
  const ProgramResult nobody = runGk({"fleet", "--broker", address, "list"});
  EXPECT_EQ(nobody.code, 1);
  EXPECT_EQ(nobody.err, "gk fleet: " + address + ": Connection refused\n");
  EXPECT_EQ(runGk({"fleet", "--broker", "http://x", "list"}).code, 2);
  EXPECT_EQ(runGk({"fleet", "--site", "a/b", "list"}).code, 2);
  EXPECT_EQ(runGk({"fleet", "list", "--cert", "x"}).err,
            "gk fleet: --cert and --key belong together\n");
  EXPECT_THAT(runGk({"fleet", "lst"}).err, HasSubstr("did you mean list?"));
}

TEST(FleetOptions, APasswordFileIsOnesOwn) {
  const gk::test::TemporaryFolder folder;
  const std::string file = folder.file("login");
  gk::test::writeFile(file, "fleet:secret\n");
  std::filesystem::permissions(file, std::filesystem::perms(0644));
  const ProgramResult open = runGk({"fleet", "--password-file", file, "list"});
  EXPECT_EQ(open.code, 2);
  EXPECT_THAT(open.err, HasSubstr("its mode must be 0600"));
  std::filesystem::permissions(file, std::filesystem::perms(0600));
  gk::test::writeFile(file, "secret\n");
  EXPECT_THAT(runGk({"fleet", "--password-file", file, "list"}).err,
              HasSubstr("the first line must be USER:PASSWORD"));
}

TEST(FleetProgram, WhereItIsMissingOneLineTellsThePackage) {
  const gk::test::TemporaryFolder folder;
  std::filesystem::create_directory(folder.file("bin"));
  std::filesystem::copy_file(GK_PROGRAM, folder.file("bin/gk"));
  const ProgramResult missing =
      gk::test::runProgram({"/usr/bin/env", "LD_LIBRARY_PATH=" GK_LIBRARY_FOLDER,
                            folder.file("bin/gk"), "fleet", "list"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_EQ(missing.err, "gk: gk fleet is in a package of its own, which is not installed: "
                         "gksensors-fleet\n");
}

} // namespace
} // namespace gk::app
