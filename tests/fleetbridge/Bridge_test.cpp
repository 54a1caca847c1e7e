#include "extensions/fleet/Bridge.h"
#include "fleetbridge/Broker.h"
#include "fleetbridge/WatchedDisk.h"
#include "gk/GKClientCalls.h"
#include "gk/GKObserver.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace gk::fleet {

namespace {

using messages::FleetEvent;
using messages::MqttMessage;
using test::Broker;
using test::Network;
using test::Operator;
using testing::Contains;
using testing::HasSubstr;

const std::string kRobot = "gk/v1/default/r1/";

/// Lines of the log.
class FleetLog : public GK::GKObserver {
public:
  void onNotice(const GK::GKNotice& notice) override {
    if (notice.kind == GK::GKNotice::Kind::Log) {
      const std::lock_guard lock(fMutex);
      fLines.push_back(notice.text);
    }
  }
  std::vector<std::string> lines() const {
    const std::lock_guard lock(fMutex);
    return fLines;
  }

private:
  mutable std::mutex fMutex;
  std::vector<std::string> fLines;
};

void raiseFleetEvents(int count, const std::string& name = "Event") {
  for (int index = 0; index < count; ++index) {
    GK::GKNotice notice;
    notice.kind = GK::GKNotice::Kind::Event;
    notice.name = name;
    notice.value = GK::GKValue(index);
    GK::GKObserverList::instance().notify(std::move(notice));
  }
}

struct BridgeTest : testing::Test {
  BridgeTest() {
    zu::log::setConsoleLevel(0);
    GK::GKObserverList::instance().add(log);
  }
  ~BridgeTest() override { GK::GKObserverList::instance().remove(log); }

  FleetSettings settings(const std::string& url) const {
    FleetSettings settings;
    settings.broker = messages::parseBrokerAddress(url);
    settings.root = "gk";
    settings.site = "default";
    settings.robot = "r1";
    settings.outbox.file = folder.file("outbox.db");
    settings.backlogRate = 100000;
    return settings;
  }

  std::unique_ptr<Bridge> startBridge(FleetSettings with) const {
    auto bridge = std::make_unique<Bridge>(std::move(with),
                                           BridgeSources{std::make_shared<GK::GKMemoryStore>(),
                                                         [] {
                                                           messages::FleetFactsheet sheet;
                                                           sheet.version = "1";
                                                           sheet.modules = {{"GKFsr", "", {}, {}}};
                                                           return sheet;
                                                         },
                                                         [] { return std::size_t{1}; }});
    bridge->start();
    return bridge;
  }

  /// The events that an operator got, the first time that each came, in order.
  static std::vector<FleetEvent> eventsOf(const Operator& desk) {
    std::vector<FleetEvent> events;
    std::set<std::pair<std::string, std::uint64_t>> seen;
    for (const MqttMessage& message : desk.of(kRobot + "event/")) {
      const FleetEvent event = messages::readEvent(message.payload);
      if (seen.emplace(event.bootId, event.seq).second) {
        events.push_back(event);
      }
    }
    return events;
  }

  template <class Condition> static void waitFor(const Condition& holds) {
    const auto end = std::chrono::steady_clock::now() + test::kPatience;
    while (!holds()) {
      ASSERT_LT(std::chrono::steady_clock::now(), end);
      std::this_thread::yield();
    }
  }

  bool isLogged(const std::string& text) const {
    return std::ranges::any_of(log->lines(), [&text](const std::string& line) {
      return line.find(text) != std::string::npos;
    });
  }

  test::TemporaryFolder folder;
  boost::shared_ptr<FleetLog> log = boost::make_shared<FleetLog>();
};

/// Every message is what the schemas in docs/fleet/ say.
void expectSchemas(const std::vector<MqttMessage>& messages) {
  std::string lines;
  for (const MqttMessage& message : messages) {
    const auto topic = messages::parseFleetTopic(message.topic);
    ASSERT_TRUE(topic.has_value()) << message.topic;
    std::string kind = topic->kind;
    if (kind == messages::kRpcTopic) {
      kind = "request";
    } else if (topic->robot == "desk") {
      kind = "answer";
    }
    lines += kind + " " + message.payload + "\n";
  }
  const test::TemporaryFolder folder;
  test::writeFile(folder.file("messages"), lines);
  const test::ProgramResult result =
      test::runProgram({GK_PYTHON, GK_SOURCE_DIR "/tests/fleetbridge/check_schemas.py",
                        GK_SOURCE_DIR "/docs/fleet", folder.file("messages")});
  EXPECT_EQ(result.code, 0) << result.out << result.err;
}

TEST_F(BridgeTest, TellsAllThatARobotHasToTell) {
  const Broker broker;
  Operator desk(broker.port());
  auto sut = startBridge(settings(broker.url()));
  desk.until([&] { return !desk.of(kRobot + "state").empty(); });
  raiseFleetEvents(300);
  raiseFleetEvents(1, "Odd/Name #1");
  desk.until([&] { return eventsOf(desk).size() == 301; });
  sut->stop();
  desk.until([&] { return desk.of(kRobot + "connection").size() == 2; });

  const std::vector<FleetEvent> events = eventsOf(desk);
  for (std::size_t index = 0; index < events.size(); ++index) {
    EXPECT_EQ(events[index].seq, index + 1);
    EXPECT_EQ(events[index].bootId, sut->bootId());
    EXPECT_FALSE(events[index].isHistorical);
  }
  EXPECT_EQ(desk.of(kRobot + "event/").size(), 301U);
  EXPECT_EQ(desk.of(kRobot + "event/Odd_Name__1").size(), 1U);
  EXPECT_EQ(events.back().name, "Odd/Name #1");
  const auto connections = desk.of(kRobot + "connection");
  EXPECT_EQ(messages::readConnection(connections[0].payload).presence,
            messages::FleetPresence::Online);
  EXPECT_EQ(messages::readConnection(connections[1].payload).presence,
            messages::FleetPresence::Offline);
  EXPECT_EQ(messages::readFactsheet(desk.of(kRobot + "factsheet").at(0).payload).name, "r1");
  EXPECT_EQ(desk.of(kRobot + "gap").size(), 0U);
  expectSchemas(desk.messages());

  // What is kept is what somebody needs who comes later.
  Operator later(broker.port());
  later.until([&] { return later.messages().size() == 3; });
  for (const MqttMessage& message : later.messages()) {
    EXPECT_TRUE(message.isRetained) << message.topic;
  }
}

TEST_F(BridgeTest, BrokerTellsThatARobotIsLost) {
  const Broker broker;
  Operator desk(broker.port());
  Network network(broker.port());
  const auto sut = startBridge(settings(network.url()));
  desk.until([&] { return !desk.of(kRobot + "connection").empty(); });
  network.setOpen(false);
  desk.until([&] { return desk.of(kRobot + "connection").size() == 2; });
  const MqttMessage lost = desk.of(kRobot + "connection")[1];
  EXPECT_EQ(messages::readConnection(lost.payload).presence, messages::FleetPresence::Lost);
  EXPECT_EQ(messages::readConnection(lost.payload).bootId, sut->bootId());
  expectSchemas({lost});
}

TEST_F(BridgeTest, WhatHappenedDuringAnOutageComesAfterwardsAsHistorical) {
  Broker broker;
  Network network(broker.port());
  auto desk = std::make_unique<Operator>(broker.port());
  const auto sut = startBridge(settings(network.url()));
  raiseFleetEvents(5);
  desk->until([&] { return eventsOf(*desk).size() == 5; });
  waitFor([&] { return sut->status().backlog == 0; });

  network.setOpen(false);
  desk.reset();
  broker.stop();
  waitFor([&] { return !sut->status().isConnected; });
  raiseFleetEvents(40);
  waitFor([&] { return sut->status().backlog == 40; });
  EXPECT_NE(sut->status().connectionTrouble, "");
  broker.start();
  desk = std::make_unique<Operator>(broker.port());
  network.setOpen(true);
  desk->until([&] { return eventsOf(*desk).size() == 40; });
  raiseFleetEvents(1);
  desk->until([&] { return eventsOf(*desk).size() == 41; });
  for (const FleetEvent& event : eventsOf(*desk)) {
    EXPECT_EQ(event.isHistorical, event.seq <= 45) << event.seq;
  }
  EXPECT_EQ(desk->of(kRobot + "gap").size(), 0U);
  expectSchemas(desk->messages());
}

TEST_F(BridgeTest, NextProcessTellsWhatTheFormerOneCouldNot) {
  const Broker broker;
  auto former = startBridge(settings("mqtt://127.0.0.1:" + std::to_string(test::freePort())));
  raiseFleetEvents(20);
  former->stop();
  const std::string formerBoot = former->bootId();
  former.reset();

  Operator desk(broker.port());
  const auto sut = startBridge(settings(broker.url()));
  desk.until([&] { return eventsOf(desk).size() == 20; });
  const std::vector<FleetEvent> events = eventsOf(desk);
  for (std::size_t index = 0; index < events.size(); ++index) {
    EXPECT_EQ(events[index].bootId, formerBoot);
    EXPECT_EQ(events[index].seq, index + 1);
    EXPECT_TRUE(events[index].isHistorical);
  }
}

TEST_F(BridgeTest, ConnectionsThatAreCutAgainAndAgainLoseNothing) {
  const Broker broker;
  Operator desk(broker.port());
  Network network(broker.port());
  network.setBytes(20000);
  const auto sut = startBridge(settings(network.url()));
  raiseFleetEvents(300);
  desk.until([&] {
    if (network.cuts() >= 2) {
      network.setBytes(-1);
    }
    return eventsOf(desk).size() == 300;
  });
  EXPECT_GE(network.cuts(), 2);
  std::set<std::uint64_t> numbers;
  for (const FleetEvent& event : eventsOf(desk)) {
    EXPECT_EQ(event.bootId, sut->bootId());
    numbers.insert(event.seq);
  }
  EXPECT_EQ(*numbers.rbegin(), 300U);
  EXPECT_EQ(desk.of(kRobot + "gap").size(), 0U);
  waitFor([&] { return sut->status().backlog == 0; });
}

TEST_F(BridgeTest, WhatTheBrokerRefusesIsToldOnceAndKept) {
  const test::TemporaryFolder rules;
  test::writeFile(rules.file("acl"), "topic readwrite gk/v1/default/r1/event/Fine\n"
                                     "topic readwrite gk/v1/default/r1/state\n");
  const Broker broker("allow_anonymous true\nacl_file " + rules.file("acl") + "\n");
  Operator desk(broker.port());
  const auto sut = startBridge(settings(broker.url()));
  raiseFleetEvents(3, "Secret");
  raiseFleetEvents(2, "Fine");
  desk.until([&] { return eventsOf(desk).size() == 2; });
  waitFor([&] { return sut->status().refused == 3 && sut->status().backlog == 3; });
  const auto lines = log->lines();
  EXPECT_EQ(
      std::ranges::count(lines, "the broker refuses gk/v1/default/r1/event/Secret: not authorized"),
      1);
}

TEST_F(BridgeTest, SessionTakenOverIsToldAndNotFoughtFor) {
  const Broker broker;
  Operator desk(broker.port());
  const auto sut = startBridge(settings(broker.url()));
  desk.until([&] { return !desk.of(kRobot + "connection").empty(); });
  messages::MqttOptions options;
  options.clientId = "gk-default-r1";
  Operator other(broker.port(), "gk/#", options);
  // As a robot of the same name does.
  other.publish({kRobot + "connection",
                 messages::connectionPayload({messages::FleetPresence::Online, "another", 0}), 1,
                 true});
  waitFor([&] { return isLogged("has taken the connection over: trying again in a minute"); });
  waitFor([&] { return !sut->status().isConnected; });
  EXPECT_THAT(sut->status().connectionTrouble, HasSubstr("another client"));
}

TEST_F(BridgeTest, WhatItsFormerLifeLeftAtTheBrokerHoldsNothingUp) {
  const Broker broker;
  Operator desk(broker.port());
  desk.publish({kRobot + "connection",
                messages::connectionPayload({messages::FleetPresence::Online, "former", 0}), 1,
                true});
  desk.until([&] { return !desk.of(kRobot + "connection").empty(); });
  const auto sut = startBridge(settings(broker.url()));
  // Once it has connected, both what was kept and the answer to its own greeting are there.
  desk.until([&] { return desk.of(kRobot + "connection").size() == 2; });
  for (std::size_t round = 1; round <= 3; ++round) {
    raiseFleetEvents(1);
    desk.until([&] { return eventsOf(desk).size() == round; });
  }
  EXPECT_TRUE(sut->status().isConnected);
  EXPECT_FALSE(isLogged("taken the connection over"));
}

TEST_F(BridgeTest, FullDiskLetsLiveEventsGoOnAndTellsTheRestAsAGap) {
  test::WatchedDisk disk;
  const Broker broker;
  Operator desk(broker.port());
  Network network(broker.port());
  FleetSettings with = settings(network.url());
  with.outbox.vfs = test::WatchedDisk::kName;
  std::atomic<bool> isFull{false};
  disk.full = [&isFull] { return isFull.load(); };
  auto sut = startBridge(with);
  raiseFleetEvents(2);
  desk.until([&] { return eventsOf(desk).size() == 2; });
  waitFor([&] { return sut->status().backlog == 0; });
  isFull = true;
  raiseFleetEvents(3);
  desk.until([&] { return eventsOf(desk).size() == 5; });
  EXPECT_TRUE(isLogged("until that is mended, events that cannot be sent at once are lost"));
  EXPECT_NE(sut->status().outboxTrouble, "");

  network.setOpen(false);
  waitFor([&] { return !sut->status().isConnected; });
  raiseFleetEvents(4);
  waitFor([&] { return sut->status().gaps > 0; });
  network.setOpen(true);
  desk.until([&] { return !desk.of(kRobot + "gap").empty(); });
  const messages::FleetGap gap = messages::readGap(desk.of(kRobot + "gap")[0].payload);
  EXPECT_EQ(gap.bootId, sut->bootId());
  // The last of those that came may not have been acknowledged yet when the network went.
  EXPECT_GE(gap.from, 3U);
  EXPECT_LE(gap.from, 6U);
  EXPECT_EQ(gap.to, 9U);
  expectSchemas(desk.of(kRobot + "gap"));

  isFull = false;
  waitFor([&] {
    raiseFleetEvents(1);
    return isLogged("the outbox can be used again");
  });
  waitFor([&] { return sut->status().outboxTrouble.empty(); });
  sut->stop();
}

TEST_F(BridgeTest, DamagedOutboxIsPutAsideAndWhatItHeldIsAGap) {
  const Broker broker;
  auto former = startBridge(settings("mqtt://127.0.0.1:" + std::to_string(test::freePort())));
  raiseFleetEvents(500);
  former->stop();
  const std::string formerBoot = former->bootId();
  former.reset();
  std::string content = test::readFile(folder.file("outbox.db"));
  const std::size_t page = 4096;
  content.replace(content.size() / page / 2 * page, page, page, '\xFF');
  test::writeFile(folder.file("outbox.db"), content);

  Operator desk(broker.port());
  const auto sut = startBridge(settings(broker.url()));
  EXPECT_TRUE(isLogged("it was put aside as " + folder.file("outbox.db.damaged-")));
  desk.until([&] { return !desk.of(kRobot + "gap").empty(); });
  const messages::FleetGap gap = messages::readGap(desk.of(kRobot + "gap")[0].payload);
  EXPECT_EQ(gap.bootId, formerBoot);
  EXPECT_EQ(gap.from, 1U);
  EXPECT_EQ(gap.to, 500U);
  raiseFleetEvents(1);
  desk.until([&] { return eventsOf(desk).size() == 1; });
}

TEST_F(BridgeTest, OutboxBelongsToOneProcess) {
  const auto first = startBridge(settings("mqtt://127.0.0.1:1"));
  EXPECT_THROW(startBridge(settings("mqtt://127.0.0.1:1")), OutboxError);
}

/// Answers at once, and counts.
struct CountedCalls : GK::GKClientCalls {
  void call(const std::string& module, const std::string& method, const std::string& params,
            Done done) override {
    ++count;
    if (method == "fail") {
      done({{}, -32000, "it failed", R"({"module":"GKFsr"})"});
    } else {
      done({"\"" + module + "." + method + " " + std::to_string(params.size()) + "\"", 0, {}, {}});
    }
  }
  std::atomic<int> count{0};
};

TEST_F(BridgeTest, CallsAreCarriedOutOnceAndAnsweredAsOftenAsTheyCome) {
  const Broker broker;
  Operator desk(broker.port());
  const auto calls = std::make_shared<CountedCalls>();
  GK::GKClientCalls::install(calls);
  FleetSettings with = settings(broker.url());
  with.calls = {"GKFsr"};
  const auto sut = startBridge(with);
  desk.until([&] { return !desk.of(kRobot + "state").empty(); });
  MqttMessage request{kRobot + "rpc/GKFsr/weight", R"({"params":[1]})", 1, false};
  request.responseTopic = "gk/v1/default/desk/answers";
  request.correlation = std::string("\0\xFF", 2);
  const auto answers = [&] { return desk.of(request.responseTopic); };
  desk.publish(request);
  desk.until([&] { return answers().size() == 1; });
  desk.publish(request);
  desk.until([&] { return answers().size() == 2; });
  EXPECT_EQ(calls->count, 1);
  EXPECT_EQ(answers()[0].payload, R"({"result":"GKFsr.weight 3"})");
  EXPECT_EQ(answers()[1].payload, answers()[0].payload);
  EXPECT_EQ(answers()[1].correlation, request.correlation);

  request.correlation = "2";
  request.topic = kRobot + "rpc/GKFsr/fail";
  desk.publish(request);
  desk.until([&] { return answers().size() == 3; });
  EXPECT_EQ(answers()[2].payload,
            R"({"error":{"code":-32000,"message":"it failed","data":{"module":"GKFsr"}}})");
  request.topic = kRobot + "rpc/GKSonar/subscribe";
  desk.publish(request);
  desk.until([&] { return answers().size() == 4; });
  EXPECT_EQ(answers()[3].payload, R"({"error":{"code":-32601,"message":"calls are off"}})");
  EXPECT_EQ(calls->count, 2);
  expectSchemas(desk.messages());
  GK::GKClientCalls::install(nullptr);
}

} // namespace

} // namespace gk::fleet
