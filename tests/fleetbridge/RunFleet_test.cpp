#include "fleetbridge/Broker.h"
#include "messages/fleet/FleetPayload.h"
#include "support/Gk.h"
#include "support/RunningHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <string>
#include <vector>

namespace gk::test {

namespace {

using messages::MqttMessage;
using testing::HasSubstr;

/// What a robot without values of its own is run with.
std::vector<std::string> fleetRun(const std::string& url, const TemporaryFolder& folder,
                                  const std::vector<std::string>& more = {}) {
  std::vector<std::string> arguments = {
      "--robot",      "none", "--fleet",   url,
      "--robot-name", "r1",   "--setting", "GKFleet/OutboxFile=" + folder.file("outbox.db")};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

MqttMessage fleetCall(const std::string& method, const std::string& params,
                      const std::string& correlation) {
  MqttMessage request{"gk/v1/default/r1/rpc/" + method, "{\"params\":" + params + "}", 1, false};
  request.responseTopic = "gk/v1/default/desk/answers";
  request.correlation = correlation;
  return request;
}

/// Calls a method over MQTT and gives the answer's payload.
std::string fleetAnswer(Operator& desk, const MqttMessage& request) {
  const auto answers = [&] { return desk.of(request.responseTopic); };
  const std::size_t before = answers().size();
  desk.publish(request);
  desk.until([&] { return answers().size() > before; });
  return answers().back().payload;
}

TEST(RunFleet, RobotTellsItsEventsAndIsCalled) {
  const Broker broker;
  const TemporaryFolder folder;
  Operator desk(broker.port());
  const RunningHost host(fleetRun(broker.url(), folder, {"--setting", "GKFleet/Calls=GKMemory"}));
  desk.until([&] { return !desk.of("gk/v1/default/r1/state").empty(); });
  EXPECT_EQ(fleetAnswer(desk, fleetCall("GKMemory/raiseEvent", R"(["MyEvent", 2.5])", "1")),
            R"({"result":null})");
  desk.until([&] { return !desk.of("gk/v1/default/r1/event/MyEvent").empty(); });
  const messages::FleetEvent event =
      messages::readEvent(desk.of("gk/v1/default/r1/event/MyEvent")[0].payload);
  EXPECT_EQ(event.value, GK::GKValue(2.5F));
  EXPECT_FALSE(event.isHistorical);

  // As over JSON-RPC.
  EXPECT_EQ(fleetAnswer(desk, fleetCall("GKMemory/getDate", "[]", "2")),
            R"({"error":{"code":-32601,"message":"there is no method GKMemory.getDate; did you )"
            R"(mean getData?","data":{"nearest":["getData"]}}})");
  EXPECT_THAT(fleetAnswer(desk, fleetCall("GKMemory/getData", R"(["Nowhere"])", "3")),
              HasSubstr(R"("code":-32000)"));
  EXPECT_THAT(fleetAnswer(desk, fleetCall("GKFsr/run", "[]", "4")), HasSubstr("calls are off"));

  // A call counts as one of a client.
  const ProgramResult figures =
      runProgram({"/usr/bin/curl", "-s", "http://" + host.address() + "/metrics"});
  EXPECT_THAT(figures.out, HasSubstr("method=\"GKMemory.raiseEvent\""));

  const auto sheet = messages::readFactsheet(desk.of("gk/v1/default/r1/factsheet").back().payload);
  EXPECT_EQ(sheet.page, "http://" + host.address() + "/");
  std::set<std::string> modules;
  for (const auto& module : sheet.modules) {
    modules.insert(module.name);
  }
  EXPECT_TRUE(modules.contains("GKFleet"));
}

TEST(RunFleet, HostThatListensNowhereIsCalledAsWell) {
  const Broker broker;
  const TemporaryFolder folder;
  Operator desk(broker.port());
  std::vector<std::string> arguments = {GK_PROGRAM, "run", "--no-listen"};
  const auto more = fleetRun(broker.url(), folder, {"--setting", "GKFleet/Calls=*"});
  arguments.insert(arguments.end(), more.begin(), more.end());
  Program program(arguments);
  desk.until([&] { return !desk.of("gk/v1/default/r1/state").empty(); });
  EXPECT_EQ(fleetAnswer(desk, fleetCall("GKMemory/insertData", R"(["Mine", 7])", "1")),
            R"({"result":null})");
  EXPECT_EQ(fleetAnswer(desk, fleetCall("GKMemory/getData", R"({"key":"Mine"})", "2")),
            R"({"result":7})");
  EXPECT_FALSE(messages::readFactsheet(desk.of("gk/v1/default/r1/factsheet").back().payload)
                   .page.has_value());
  kill(program.pid(), SIGTERM);
  EXPECT_EQ(program.wait().code, 0);
  desk.until([&] { return desk.of("gk/v1/default/r1/connection").size() == 2; });
  EXPECT_THAT(desk.of("gk/v1/default/r1/connection")[1].payload, HasSubstr("\"offline\""));
}

TEST(RunFleet, KilledProcessLosesNothingThatWasStored) {
  const Broker broker;
  const TemporaryFolder folder;
  Network network(broker.port());
  network.setOpen(false);
  {
    // Without modules that have something to tell themselves.
    RunningHost host(fleetRun(network.url(), folder, {"--library", "gkfleet"}));
    for (const char* value : {"1", "2", "3"}) {
      ASSERT_EQ(host.gk({"call", "GKMemory.raiseEvent", "MyEvent", value}).code, 0);
    }
    std::string status;
    host.program().runUntil([&] {
      status = host.gk({"call", "GKFleet.status", "--json"}).out;
      return status.find(R"(["backlog","",3,)") != std::string::npos;
    });
    EXPECT_THAT(status, HasSubstr(R"(["connected","",0,1,"No connection to the fleet's broker)"));
  } // SIGKILL
  Operator desk(broker.port());
  const RunningHost host(fleetRun(broker.url(), folder));
  const auto events = [&] { return desk.of("gk/v1/default/r1/event/MyEvent"); };
  desk.until([&] { return events().size() == 3; });
  for (std::size_t index = 0; index < 3; ++index) {
    const messages::FleetEvent event = messages::readEvent(events()[index].payload);
    EXPECT_EQ(event.value, GK::GKValue(static_cast<int>(index + 1)));
    EXPECT_TRUE(event.isHistorical);
  }
}

TEST(RunFleet, RecordingOfARunInAFleetNeedsNoFleet) {
  const Broker broker;
  const TemporaryFolder folder;
  std::vector<std::string> arguments = {"run", "--no-listen", "--for",
                                        "0.3", "--record",    folder.file("run.mcap")};
  const auto more = fleetRun(broker.url(), folder);
  arguments.insert(arguments.end(), more.begin(), more.end());
  const ProgramResult run = runGk(arguments);
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(runGk({"recording", "info", folder.file("run.mcap")}).out,
              testing::Not(HasSubstr("gkfleet")));
  EXPECT_EQ(runGk({"replay", folder.file("run.mcap"), "--out", folder.file("out.jsonl")}).code, 0);
}

TEST(RunFleet, InVirtualTimeTheModuleDoesNothing) {
  const TemporaryFolder folder;
  writeFile(folder.file("a.jsonl"), "{\"t\": 1, \"call\": \"GKFleet.status\"}\n");
  const ProgramResult result =
      runGk({"replay", folder.file("a.jsonl"), "--library", "+gkfleet", "--out", "-"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("Not connected to the fleet's broker yet"));
}

TEST(RunFleet, WhatIsOfNoUseEndsItWithOneLine) {
  const TemporaryFolder folder;
  const auto complaint = [](std::vector<std::string> arguments, int code) {
    arguments.insert(arguments.begin(), "run");
    const ProgramResult result = runGk(std::move(arguments));
    EXPECT_EQ(result.code, code) << result.err;
    return result.err;
  };
  EXPECT_THAT(complaint({"--fleet", "broker"}, 2), HasSubstr("mqtt://HOST[:PORT]"));
  EXPECT_THAT(complaint({"--fleet", "mqtt://h", "--robot-name", "a b"}, 2),
              HasSubstr("--robot-name"));
  EXPECT_THAT(complaint({"--robot-name", "r1"}, 2), HasSubstr("--fleet"));
  EXPECT_EQ(complaint({"--fleet", "mqtt://h", "--speed", "max"}, 2),
            "gk: --fleet needs real time, --speed max has none\n");
  EXPECT_EQ(complaint({"--fleet", "mqtt://h", "--lockstep"}, 2),
            "gk: --fleet needs real time, --lockstep has none\n");
  EXPECT_THAT(complaint(fleetRun("mqtt://127.0.0.1:1", folder,
                                 {"--no-listen", "--setting", "GKFleet/KeepAlive=1"}),
                        1),
              HasSubstr("Settings/GKFleet/KeepAlive: a number from 5 to 3600 is wanted"));
  const RunningHost host(fleetRun("mqtt://127.0.0.1:1", folder));
  EXPECT_THAT(complaint(fleetRun("mqtt://127.0.0.1:1", folder, {"--no-listen"}), 1),
              HasSubstr("another process has this outbox"));
}

} // namespace

} // namespace gk::test
