#include "messages/json/Json.h"
#include "ServedHost.h"

#include <boost/json/object.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace gk::gateway {
namespace {

using test::Answer;
using test::ask;
using test::call;
using test::ServedHost;
using test::Socket;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

const std::string kTouchKey = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value";

TEST(Gateway, CallsAreAnsweredWithTheirResult) {
  ServedHost sut;
  EXPECT_EQ(call(sut, "Probe.echo", R"([{"float":"nan"}])"),
            R"({"jsonrpc":"2.0","id":1,"result":{"float":"nan"}})");
  EXPECT_EQ(call(sut, "Probe.echo", R"([[1,1.0,true,null,"x"]])"),
            R"({"jsonrpc":"2.0","id":1,"result":[1,1.0,true,null,"x"]})");
  EXPECT_EQ(call(sut, "Probe.nothing", "[]"), R"({"jsonrpc":"2.0","id":1,"result":null})");
}

TEST(Gateway, ParametersCanBeNamed) {
  ServedHost sut;
  EXPECT_THAT(call(sut, "Probe.join", R"({"right":"b","left":"a"})"),
              HasSubstr(R"("result":"ab")"));
  EXPECT_THAT(call(sut, "Probe.join", R"({"left":"a"})"), HasSubstr(R"("result":"a")"));
  EXPECT_THAT(call(sut, "Probe.join", R"({"rihgt":"b","left":"a"})"),
              AllOf(HasSubstr("-32602"), HasSubstr("takes (left, right) or (left)")));
}

TEST(Gateway, ErrorsOfMethodsComeWithTheirParts) {
  ServedHost sut;
  EXPECT_EQ(call(sut, "Probe.fail", "[]"),
            R"({"jsonrpc":"2.0","id":1,"error":{"code":-32000,)"
            R"("message":"Probe::fail: it was asked to",)"
            R"("data":{"module":"Probe","method":"fail","description":"it was asked to"}}})");
  EXPECT_THAT(call(sut, "Probe.failOtherwise", "[]"),
              AllOf(HasSubstr("-32603"), HasSubstr("something else")));
  EXPECT_THAT(call(sut, "Probe.join", "[1]"), HasSubstr("Parameter type is int instead of string"));
}

TEST(Gateway, UnknownNamesSuggestTheNearest) {
  ServedHost sut;
  EXPECT_THAT(call(sut, "Prob.echo", "[1]"),
              AllOf(HasSubstr("-32601"), HasSubstr("did you mean Probe?"),
                    HasSubstr(R"("nearest":["Probe"])")));
  EXPECT_THAT(call(sut, "Probe.ehco", "[1]"),
              AllOf(HasSubstr("-32601"), HasSubstr("did you mean echo?")));
  EXPECT_THAT(ask(sut, "GET", "/api/v1/modules/Prob").body, HasSubstr("did you mean Probe?"));
  EXPECT_THAT(ask(sut, "GET", "/api/v1/memory/Motion/IsStnd").body,
              HasSubstr("did you mean Motion/IsStand?"));
}

TEST(Gateway, ABatchRunsInOrderAndNotificationsAreSilent) {
  ServedHost sut;
  const Answer answer =
      ask(sut, "POST", "/rpc",
          R"([{"jsonrpc":"2.0","id":1,"method":"GKMemory.insertData","params":["Mine",1]},)"
          R"({"jsonrpc":"2.0","method":"GKMemory.insertData","params":["Mine",2]},)"
          R"({"jsonrpc":"2.0","id":3,"method":"GKMemory.getData","params":["Mine"]}])");
  EXPECT_EQ(answer.body, R"([{"jsonrpc":"2.0","id":1,"result":null},)"
                         R"({"jsonrpc":"2.0","id":3,"result":2}])");
}

TEST(Gateway, NothingButNotificationsHasNoContent) {
  ServedHost sut;
  const Answer one =
      ask(sut, "POST", "/rpc", R"({"jsonrpc":"2.0","method":"Probe.echo","params":[1]})");
  EXPECT_EQ(one.status, 204);
  EXPECT_EQ(one.body, "");
  EXPECT_EQ(ask(sut, "POST", "/rpc", R"([{"jsonrpc":"2.0","method":"Probe.nope"}])").status, 204);
}

TEST(Gateway, ACallThatTakesItsTimeHoldsNobodyUp) {
  ServedHost sut;
  Socket patient(sut.port());
  const std::string body = R"({"jsonrpc":"2.0","id":9,"method":"Probe.wait"})";
  patient.send("POST /rpc HTTP/1.1\r\nHost: " + sut.name() +
               "\r\nContent-Type: application/json\r\nContent-Length: " +
               std::to_string(body.size()) + "\r\n\r\n" + body);
  sut.probe->awaitWaiting(1);
  EXPECT_THAT(call(sut, "Probe.echo", "[5]"), HasSubstr(R"("result":5)"));
  EXPECT_EQ(ask(sut, "GET", "/livez").status, 200);
  sut.probe->release();
  EXPECT_EQ(patient.readAnswer().body, R"({"jsonrpc":"2.0","id":9,"result":null})");
}

TEST(Gateway, AClientThatHangsUpDuringItsCallIsForgotten) {
  ServedHost sut;
  const std::string body = R"({"jsonrpc":"2.0","id":9,"method":"Probe.wait"})";
  {
    Socket impatient(sut.port());
    impatient.send("POST /rpc HTTP/1.1\r\nHost: " + sut.name() +
                   "\r\nContent-Type: application/json\r\nContent-Length: " +
                   std::to_string(body.size()) + "\r\n\r\n" + body);
    sut.probe->awaitWaiting(1);
  }
  sut.probe->release();
  // Only the connection that asks is left in the end.
  std::string metrics;
  do {
    metrics = ask(sut, "GET", "/metrics").body;
  } while (metrics.find("\ngk_connections 1\n") == std::string::npos);
  EXPECT_THAT(metrics, HasSubstr("\ngk_rpc_running 0\n"));
}

TEST(Gateway, AShutdownDoesNotWaitForClients) {
  auto sut = std::make_unique<ServedHost>();
  Socket patient(sut->port());
  const std::string body = R"({"jsonrpc":"2.0","id":9,"method":"Probe.wait"})";
  patient.send("POST /rpc HTTP/1.1\r\nHost: " + sut->name() +
               "\r\nContent-Type: application/json\r\nContent-Length: " +
               std::to_string(body.size()) + "\r\n\r\n" + body);
  sut->probe->awaitWaiting(1);
  sut.reset();
  EXPECT_TRUE(patient.isEnded());
}

TEST(Gateway, ModulesAreListedAndDescribed) {
  ServedHost sut;
  const std::string modules = ask(sut, "GET", "/api/v1/modules").body;
  EXPECT_THAT(modules, HasSubstr(R"({"name":"Probe","description":"Answers tests.","methods":7,)"
                                 R"("isExtractor":false})"));
  const std::string probe = ask(sut, "GET", "/api/v1/modules/Probe").body;
  EXPECT_THAT(
      probe,
      HasSubstr(R"({"name":"echo","module":"Probe","description":"Gives back what it gets.",)"
                R"("params":[{"name":"value","type":"value",)"
                R"("description":"Anything."}],"result":{"name":"value",)"
                R"("type":"value","description":"The same."}})"));
  EXPECT_THAT(probe,
              HasSubstr(R"({"name":"nothing","module":"Probe","description":"Returns nothing.",)"
                        R"("params":[],"result":null})"));
  EXPECT_THAT(probe, HasSubstr(R"("events":["ProbeEvent"])"));
  EXPECT_EQ(ask(sut, "GET", "/api/v1/modules/None").status, 404);
}

TEST(Gateway, KeysAreReadWithTheirUnit) {
  ServedHost sut;
  EXPECT_EQ(ask(sut, "GET", "/api/v1/memory/Device/SubDeviceList/US/Left/Sensor/Value").body,
            R"({"key":"Device/SubDeviceList/US/Left/Sensor/Value","type":"float","value":2.55,)"
            R"("unit":"m","meaning":"ultrasonic distance"})");
  sut.store->set("Mine/A key", "text");
  EXPECT_EQ(ask(sut, "GET", "/api/v1/memory/Mine/A%20key").body,
            R"({"key":"Mine/A key","type":"string","value":"text"})");
  EXPECT_EQ(ask(sut, "GET", "/api/v1/memory/None").status, 404);
}

TEST(Gateway, KeysAreWrittenAndTheTableDecidesAboutTheType) {
  ServedHost sut;
  EXPECT_THAT(ask(sut, "PUT", "/api/v1/memory/" + kTouchKey, "1").body,
              HasSubstr(R"("value":1.0)"));
  EXPECT_EQ(sut.store->get(kTouchKey), GK::GKValue(1.0F));
  EXPECT_THAT(call(sut, "GKMemory.insertData", "[\"" + kTouchKey + "\",0]"), HasSubstr("null"));
  EXPECT_EQ(sut.store->get(kTouchKey), GK::GKValue(0.0F));
  EXPECT_EQ(ask(sut, "PUT", "/api/v1/memory/Mine", "1").status, 200);
  EXPECT_EQ(sut.store->get("Mine"), GK::GKValue(1));
}

TEST(Gateway, ValuesThatDoNotFitLeaveTheKeyAlone) {
  ServedHost sut;
  for (const char* body : {"\"x\"", "true", "null", "[1]", "{}", "1 2", ""}) {
    EXPECT_EQ(ask(sut, "PUT", "/api/v1/memory/" + kTouchKey, body).status, 400) << body;
  }
  EXPECT_THAT(call(sut, "GKMemory.insertData", "[\"" + kTouchKey + "\",\"x\"]"),
              HasSubstr("-32602"));
  EXPECT_EQ(sut.store->get(kTouchKey), GK::GKValue(0.0F));
}

TEST(Gateway, AWriteThatTheGateRefusesIsABadRequestWithItsReason) {
  ServedHost sut;
  const Answer refusal = ask(sut, "PUT", "/api/v1/memory/" + std::string(257, 'k'), "1");
  EXPECT_EQ(refusal.status, 400);
  EXPECT_THAT(refusal.body, HasSubstr("a name has 1 to 256 bytes, not 257"));
  EXPECT_FALSE(sut.store->get(std::string(257, 'k')).has_value());
  EXPECT_EQ(ask(sut, "PUT", "/api/v1/memory/" + std::string(256, 'k'), "1").status, 200);
}

TEST(Gateway, DeviceKeysKeepTheirTypeByWhateverWayTheyAreWritten) {
  ServedHost sut;
  for (const char* method : {"insertData", "raiseEvent", "raiseMicroEvent"}) {
    const std::string name = std::string("GKMemory.") + method;
    EXPECT_THAT(call(sut, name, "[\"" + kTouchKey + "\",1]"), HasSubstr("result"));
    EXPECT_EQ(sut.store->get(kTouchKey), GK::GKValue(1.0F)) << method;
    EXPECT_THAT(call(sut, name, "[\"" + kTouchKey + "\",\"text\"]"),
                AllOf(HasSubstr("-32602"), HasSubstr(kTouchKey + ": takes a float, not")));
    sut.store->set(kTouchKey, 0.0F);
  }
  EXPECT_THAT(call(sut, "DCM.set", R"([["RobotConfig","Merge",[["x",0]]]])"), HasSubstr("error"));
}

TEST(Gateway, ServicesAreNoTargetsOfClientsSubscriptions) {
  ServedHost sut;
  for (const char* service : {"GKMemory", "DCM", "GKResourceManager"}) {
    const std::string method = service == std::string("GKMemory") ? "raiseEvent" : "set";
    EXPECT_THAT(call(sut, "GKMemory.subscribeToEvent",
                     std::string(R"(["L",")") + service + "\",\"" + method + "\"]"),
                HasSubstr("error"))
        << service;
  }
  EXPECT_THAT(call(sut, "GKMemory.subscribeToEvent", R"(["L","GKMemory","raiseEvent"])"),
              HasSubstr("GKMemory is a service of the host"));
  EXPECT_THAT(call(sut, "GKMemory.subscribeToEvent", R"(["L","Probe","join"])"),
              HasSubstr(R"("result":null)"));
}

TEST(Gateway, ADeliveryThatFeedsItselfEndsWithTheHost) {
  ServedHost sut;
  // What only a module can ask for.
  sut.memory->subscribeToEvent("L", GK::GKMemory::kName, "raiseEvent");
  sut.raise("L", 1.0F);
  // The test ends, although the delivery never would.
}

TEST(Gateway, WhatClientsMakeIsLimited) {
  devices::ClientLimits limits;
  limits.keys = 3;
  limits.events = 2;
  limits.values = 100;
  ServedHost sut({}, limits);
  for (const char* key : {"a", "b", "c", "a"}) {
    EXPECT_EQ(ask(sut, "PUT", std::string("/api/v1/memory/") + key, "1").status, 200) << key;
  }
  const Answer refusal = ask(sut, "PUT", "/api/v1/memory/d", "1");
  EXPECT_EQ(refusal.status, 400);
  EXPECT_THAT(refusal.body, HasSubstr("d: clients have made 3 keys"));
  for (const char* event : {"E1", "E2", "ProbeEvent"}) {
    EXPECT_THAT(call(sut, "GKMemory.raiseEvent", "[\"" + std::string(event) + "\",1]"),
                HasSubstr("result"))
        << event;
  }
  EXPECT_THAT(call(sut, "GKMemory.raiseEvent", R"(["E3",1])"),
              HasSubstr("E3: clients have made 2 events"));
  EXPECT_EQ(ask(sut, "PUT", "/api/v1/memory/a", "\"" + std::string(101, 'v') + "\"").status, 400);
  EXPECT_EQ(ask(sut, "PUT", "/api/v1/memory/a", "\"" + std::string(100, 'v') + "\"").status, 200);
}

TEST(Gateway, AnAnswerThatWouldBeTooLargeIsCutIntoPagesOrRefused) {
  GatewayOptions options;
  options.limits.answer = 1000;
  ServedHost sut(std::move(options));
  const std::string value(300, 'v');
  for (const char* key : {"P/a", "P/b", "P/c", "P/d", "P/e"}) {
    sut.store->set(key, value);
    sut.raise(key, value);
  }
  std::size_t pages = 0;
  std::size_t keys = 0;
  for (std::string after = "P/"; !after.empty(); ++pages) {
    const std::string page = ask(sut, "GET", "/api/v1/memory?prefix=P/&after=" + after).body;
    EXPECT_LT(page.size(), 1500U);
    for (std::size_t place = 0; (place = page.find("\"key\":", place)) != std::string::npos;
         ++place) {
      ++keys;
    }
    const std::size_t next = page.find("\"next\":\"");
    after = next == std::string::npos ? "" : page.substr(next + 8, 3);
  }
  EXPECT_EQ(keys, 5U);
  EXPECT_EQ(pages, 2U);
  const std::string events = ask(sut, "GET", "/api/v1/events?after=P/").body;
  EXPECT_THAT(events,
              AllOf(HasSubstr("P/a"), Not(HasSubstr("P/e")), HasSubstr(R"("next":"P/c"})")));
  EXPECT_THAT(ask(sut, "GET", "/api/v1/events?after=P/c").body,
              AllOf(HasSubstr("P/e"), HasSubstr(R"("next":null})")));
  EXPECT_THAT(call(sut, "Probe.echo", "[\"" + std::string(2000, 'x') + "\"]"),
              AllOf(HasSubstr("-32002"), HasSubstr("larger than 1000 bytes")));
}

TEST(Gateway, KeysComeInPages) {
  ServedHost sut;
  for (const char* key : {"P/a", "P/b", "P/c"}) {
    sut.store->set(key, 1);
  }
  const std::string first = ask(sut, "GET", "/api/v1/memory?prefix=P/&limit=2").body;
  EXPECT_THAT(first, AllOf(HasSubstr("P/a"), HasSubstr("P/b"), Not(HasSubstr("P/c"))));
  EXPECT_THAT(first, HasSubstr(R"("next":"P/b"})"));
  const std::string second = ask(sut, "GET", "/api/v1/memory?prefix=P/&limit=2&after=P/b").body;
  EXPECT_EQ(second, R"({"keys":[{"key":"P/c","type":"int","value":1}],"next":null})");
  for (const char* limit : {"0", "10001", "x", "-1", "1.5"}) {
    EXPECT_EQ(ask(sut, "GET", std::string("/api/v1/memory?limit=") + limit).status, 400) << limit;
  }
}

TEST(Gateway, EventsTellOwnerCountAndLastValue) {
  ServedHost sut;
  EXPECT_THAT(ask(sut, "GET", "/api/v1/events").body,
              HasSubstr(R"({"name":"ProbeEvent","owner":"Probe","count":0,"value":null,)"
                        R"("t_s":null})"));
  sut.raise("ProbeEvent", 1);
  sut.raise("ProbeEvent", 2.5F);
  EXPECT_THAT(ask(sut, "GET", "/api/v1/events").body,
              HasSubstr(R"("owner":"Probe","count":2,"value":2.5,"t_s":)"));
}

TEST(Gateway, StatusPagesAreTheModulesOwnAndRunNothing) {
  ServedHost sut;
  const Answer page = ask(sut, "GET", "/status/Probe");
  EXPECT_EQ(page.body, "<html><body>Probe's page</body></html>");
  EXPECT_EQ(page.headers.at("content-type"), "text/html; charset=utf-8");
  EXPECT_THAT(page.headers.at("content-security-policy"),
              AllOf(HasSubstr("default-src 'none'"), HasSubstr("sandbox")));
  EXPECT_EQ(ask(sut, "GET", "/status/None").status, 404);
}

/// A tick is known once something that comes after it has been seen.
void tickUntilKnown(ServedHost& host) {
  host.tick();
  Socket socket(host.port());
  socket.upgrade("/ws", host.name());
  host.raise("Later", 1);
  socket.readText("/event/Later");
}

TEST(Gateway, ItIsReadyWhileLoopsTick) {
  ServedHost sut;
  EXPECT_EQ(ask(sut, "GET", "/livez").status, 200);
  EXPECT_EQ(ask(sut, "GET", "/readyz").status, 503);
  tickUntilKnown(sut);
  const Answer ready = ask(sut, "GET", "/readyz?verbose");
  EXPECT_EQ(ready.status, 200);
  EXPECT_THAT(ready.body, HasSubstr("[+] Probe keeps ticking"));
}

TEST(Gateway, MetricsAreInPrometheusTextFormat) {
  ServedHost sut;
  sut.raise("ProbeEvent", 1);
  call(sut, "Probe.echo", "[1]");
  const Answer metrics = ask(sut, "GET", "/metrics");
  EXPECT_EQ(metrics.headers.at("content-type"), "text/plain; version=0.0.4; charset=utf-8");
  EXPECT_THAT(metrics.body, HasSubstr("\ngk_events_total{name=\"ProbeEvent\"} 1\n"));
  EXPECT_THAT(metrics.body, HasSubstr("gk_build_info{version=\"1.2.3\"} 1\n"));
  EXPECT_THAT(metrics.body,
              HasSubstr("gk_rpc_duration_seconds_bucket{method=\"Probe.echo\",le=\"+Inf\"} 1\n"));
  EXPECT_THAT(metrics.body, HasSubstr("\ngk_battery_charge_ratio 1\n"));
  EXPECT_THAT(metrics.body, HasSubstr("gk_joint_temperature_celsius{joint=\"HeadYaw\"} 30\n"));
  EXPECT_EQ(metrics.body.back(), '\n');
}

TEST(Gateway, ARecordingInTroubleIsToldWhileClientsAreServed) {
  GatewayOptions options;
  options.recording = [] { return RecordingFigures{"the disk is full", 2, 1000, 3, 4}; };
  ServedHost sut(std::move(options));
  tickUntilKnown(sut);
  const Answer ready = ask(sut, "GET", "/readyz?verbose");
  EXPECT_EQ(ready.status, 200);
  EXPECT_THAT(ready.body, HasSubstr("[-] the run is recorded: the disk is full\nok\n"));
  const std::string metrics = ask(sut, "GET", "/metrics").body;
  EXPECT_THAT(metrics, HasSubstr("\ngk_recording_ok 0\n"));
  EXPECT_THAT(metrics, HasSubstr("\ngk_recording_files 2\n"));
  EXPECT_THAT(metrics, HasSubstr("\ngk_recording_bytes_total 1000\n"));
  EXPECT_THAT(metrics, HasSubstr("\ngk_recording_lost_total{kind=\"blocks\"} 3\n"));
  EXPECT_THAT(metrics, HasSubstr("\ngk_recording_lost_total{kind=\"messages\"} 4\n"));
}

TEST(Gateway, WithoutARecordingNothingIsToldOfOne) {
  ServedHost sut;
  EXPECT_THAT(ask(sut, "GET", "/metrics").body, Not(HasSubstr("gk_recording")));
  EXPECT_THAT(ask(sut, "GET", "/readyz?verbose").body, Not(HasSubstr("record")));
}

TEST(Gateway, TheDescriptionNamesEveryRouteAndMethod) {
  ServedHost sut;
  const boost::json::value api = messages::parseJson(ask(sut, "GET", "/openapi.json").body);
  EXPECT_EQ(api.at("openapi").as_string(), "3.1.0");
  const auto& paths = api.at("paths").as_object();
  for (const char* path : {"/rpc", "/api/v1/modules", "/api/v1/modules/{name}", "/api/v1/memory",
                           "/api/v1/memory/{key}", "/api/v1/events", "/status/{name}", "/metrics",
                           "/livez", "/readyz", "/openapi.json"}) {
    EXPECT_TRUE(paths.contains(path)) << path;
  }
  EXPECT_TRUE(paths.at("/api/v1/memory/{key}").as_object().contains("put"));
  // What checkers of such documents ask for.
  EXPECT_EQ(api.at("info").at("license").at("identifier").as_string(), "Apache-2.0");
  EXPECT_EQ(api.at("servers").as_array().at(0).at("url").as_string(), "/");
  for (const auto& [path, operations] : paths) {
    for (const auto& [method, operation] : operations.as_object()) {
      EXPECT_TRUE(operation.at("responses").as_object().contains("4XX")) << path << " " << method;
    }
  }
  EXPECT_THAT(ask(sut, "GET", "/openapi.json").body, HasSubstr(R"("const":"Probe.join")"));
}

TEST(Gateway, WhatIsDescribedIsAnswered) {
  ServedHost sut;
  const boost::json::value api = messages::parseJson(ask(sut, "GET", "/openapi.json").body);
  for (const auto& [path, operations] : api.at("paths").as_object()) {
    if (!operations.as_object().contains("get")) {
      continue;
    }
    std::string target(path);
    if (const std::size_t brace = target.find('{'); brace != std::string::npos) {
      target = target.substr(0, brace) + (target.ends_with("{key}") ? "Motion/IsStand" : "Probe");
    }
    const int status = ask(sut, "GET", target).status;
    EXPECT_EQ(status, target == "/readyz" ? 503 : 200) << target;
  }
}

TEST(Gateway, HeadIsGetWithoutItsBody) {
  ServedHost sut;
  const Answer head = ask(sut, "HEAD", "/livez");
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.headers.at("content-length"), "3");
  Socket socket(sut.port());
  socket.send("HEAD /livez HTTP/1.1\r\nHost: " + sut.name() +
              "\r\n\r\nGET /livez HTTP/1.1\r\nHost: " + sut.name() + "\r\n\r\n");
  EXPECT_EQ(socket.readAnswer(false).status, 200);
  EXPECT_EQ(socket.readAnswer().body, "ok\n");
}

TEST(Gateway, OtherMethodsAndPathsAreNotThere) {
  ServedHost sut;
  const Answer wrong = ask(sut, "DELETE", "/api/v1/memory/Mine");
  EXPECT_EQ(wrong.status, 405);
  EXPECT_EQ(wrong.headers.at("allow"), "GET, PUT");
  EXPECT_EQ(ask(sut, "GET", "/rpc").status, 405);
  EXPECT_EQ(ask(sut, "GET", "/nothing").status, 404);
  EXPECT_EQ(ask(sut, "POST", "/nothing").status, 404);
  EXPECT_EQ(ask(sut, "GET", "/api/v1/modules/").status, 404);
  EXPECT_EQ(ask(sut, "GET", "/status/Probe/more").status, 404);
}

TEST(Gateway, AConnectionServesManyRequests) {
  ServedHost sut;
  Socket socket(sut.port());
  for (int i = 0; i < 3; ++i) {
    socket.send("GET /livez HTTP/1.1\r\nHost: " + sut.name() + "\r\n\r\n");
    EXPECT_EQ(socket.readAnswer().body, "ok\n");
  }
  socket.send("GET /livez HTTP/1.1\r\nHost: " + sut.name() + "\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(socket.readAnswer().body, "ok\n");
  EXPECT_TRUE(socket.isEnded());
}

TEST(Gateway, RequestsThatComeTogetherAreAnsweredInTheirOrder) {
  ServedHost sut;
  Socket socket(sut.port());
  const std::string host = " HTTP/1.1\r\nHost: " + sut.name() + "\r\n";
  const std::string body = R"({"jsonrpc":"2.0","id":7,"method":"Probe.echo","params":[5]})";
  socket.send("GET /livez" + host + "\r\nPOST /rpc" + host +
              "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
              "\r\n\r\n" + body + "GET /nowhere" + host + "\r\nGET /livez" + host + "\r\n");
  EXPECT_EQ(socket.readAnswer().body, "ok\n");
  EXPECT_EQ(socket.readAnswer().body, R"({"jsonrpc":"2.0","id":7,"result":5})");
  EXPECT_EQ(socket.readAnswer().status, 404);
  EXPECT_EQ(socket.readAnswer().body, "ok\n");
}

TEST(Gateway, ABodyMayComeInPieces) {
  ServedHost sut;
  Socket socket(sut.port());
  const std::string body = R"({"jsonrpc":"2.0","id":7,"method":"Probe.echo","params":[5]})";
  socket.send("POST /rpc HTTP/1.1\r\nHost: " + sut.name() +
              "\r\nContent-Type: application/json\r\nContent-Length: " +
              std::to_string(body.size()) + "\r\n\r\n" + body.substr(0, 10));
  // The host has looked at that when it answers somebody else.
  EXPECT_EQ(ask(sut, "GET", "/livez").status, 200);
  socket.send(body.substr(10));
  EXPECT_EQ(socket.readAnswer().body, R"({"jsonrpc":"2.0","id":7,"result":5})");
}

TEST(Gateway, AnAnswerLargerThanTheConnectionHoldsArrivesWhole) {
  ServedHost sut;
  constexpr int keys = 150;
  for (int i = 0; i < keys; ++i) {
    sut.store->set("Large/" + std::to_string(1000 + i), std::string(60'000, 'x'));
  }
  Socket socket(sut.port(), 65536);
  const std::string request =
      "GET /api/v1/memory?prefix=Large/&limit=1000 HTTP/1.1\r\nHost: " + sut.name() + "\r\n\r\n";
  socket.send(request + request);
  const std::string first = socket.readAnswer().body;
  EXPECT_GT(first.size(), keys * 60'000U);
  EXPECT_THAT(first, AllOf(HasSubstr("Large/1149"), EndsWith(R"("next":null})")));
  EXPECT_TRUE(socket.readAnswer().body == first);
}

TEST(Gateway, ClientsThatWaitForLeaveToSendGetIt) {
  ServedHost sut;
  Socket socket(sut.port());
  const std::string body = R"({"jsonrpc":"2.0","id":1,"method":"Probe.nothing"})";
  socket.send("POST /rpc HTTP/1.1\r\nHost: " + sut.name() +
              "\r\nContent-Type: application/json\r\nExpect: 100-continue\r\nContent-Length: " +
              std::to_string(body.size()) + "\r\n\r\n");
  EXPECT_EQ(socket.readAnswer().status, 100);
  socket.send(body);
  EXPECT_EQ(socket.readAnswer().status, 200);
}

TEST(Gateway, WhileThereIsNoRobotOnlyHealthIsTold) {
  ServedHost sut;
  sut.gateway->close();
  GatewayOptions options;
  options.access.address = {"127.0.0.1", 0};
  sut.gateway = std::make_unique<Gateway>(std::move(options));
  EXPECT_EQ(ask(sut, "GET", "/livez").status, 200);
  EXPECT_EQ(ask(sut, "GET", "/readyz").status, 503);
  EXPECT_EQ(ask(sut, "GET", "/api/v1/modules").status, 503);
  EXPECT_EQ(ask(sut, "POST", "/rpc", "{}").status, 503);
}

TEST(Gateway, AHostWithoutMemoryServesItsModules) {
  zu::log::setConsoleLevel(0);
  const auto manager = boost::make_shared<GK::GKBrokerManager>();
  const auto broker = boost::make_shared<GK::GKBroker>("test", manager);
  boost::make_shared<test::Probe>(broker)->initModule();
  GatewayOptions options;
  options.access.address = {"127.0.0.1", 0};
  Gateway sut(std::move(options));
  sut.open(broker);
  Socket socket(sut.port());
  const std::string host = "127.0.0.1:" + std::to_string(sut.port());
  for (const auto& [target, status] :
       std::initializer_list<std::pair<const char*, int>>{{"/api/v1/modules", 200},
                                                          {"/api/v1/events", 200},
                                                          {"/api/v1/memory", 200},
                                                          {"/api/v1/memory/Motion/IsStand", 404},
                                                          {"/metrics", 200},
                                                          {"/api/v1/host", 200}}) {
    socket.send(std::string("GET ") + target + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
    EXPECT_EQ(socket.readAnswer().status, status) << target;
  }
  socket.send("PUT /api/v1/memory/Mine HTTP/1.1\r\nHost: " + host +
              "\r\nContent-Type: application/json\r\nContent-Length: 1\r\n\r\n1");
  EXPECT_EQ(socket.readAnswer().status, 404);
  sut.close();
  broker->shutdown();
}

TEST(Gateway, TheHostTellsWhatItShows) {
  const auto source = std::make_shared<RunSource>();
  GatewayOptions options;
  options.source = source;
  const test::ServedHost sut(std::move(options));
  const auto told = [&] { return test::ask(sut, "GET", "/api/v1/host").body; };
  EXPECT_THAT(told(), HasSubstr(R"("source":{"kind":"robot"})"));
  source->kind = RunSource::Kind::Recording;
  source->file = "fall.csv";
  EXPECT_THAT(told(),
              HasSubstr(R"("source":{"kind":"recording","file":"fall.csv","isEnded":false})"));
  source->end = 1'500'000;
  EXPECT_THAT(told(), HasSubstr(R"("isEnded":true,"end_s":1.5})"));
}

} // namespace
} // namespace gk::gateway
