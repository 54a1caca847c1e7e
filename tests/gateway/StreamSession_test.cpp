#include "gateway/stream/Hub.h"
#include "Probe.h"
#include "support/TestPlatform.h"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>

// The protocol frame by frame, in virtual time: every byte is known.

namespace gk::gateway {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// A client of a platform with one module and one device key.
class StreamSessionTest : public testing::Test {
protected:
  StreamSessionTest() {
    probe->initModule();
    platform.set("Device/SubDeviceList/US/Left/Sensor/Value", 0.5F);
    platform.memory().declareEvent("ProbeEvent", "Probe", GK::GKCaller::Module);
    hub.open(std::make_shared<const Robot>(platform.broker()));
  }
  ~StreamSessionTest() override {
    GK::GKObserverList::instance().remove(notices);
    sut.reset();
    hub.close();
    probe.reset();
    platform.shutdown();
  }

  void connect(StreamSession::Limits limits = {}) {
    sut = hub.join(limits, [] {});
  }
  /// Connects and leaves the greeting behind.
  void connectAndForget(StreamSession::Limits limits = {}) {
    connect(limits);
    received();
  }

  /// All frames that are to be sent, as the client sees them.
  std::vector<std::string> received() {
    std::vector<std::string> frames;
    while (std::optional<Frame> frame = sut->next()) {
      frames.push_back(frame->head + (frame->body != nullptr ? *frame->body : ""));
    }
    return frames;
  }

  std::uint32_t channel(const char* topic) const { return hub.offer().channels()->find(topic)->id; }
  void subscribe(std::uint32_t subscription, std::uint32_t to) {
    sut->onText(R"({"op":"subscribe","subscriptions":[{"id":)" + std::to_string(subscription) +
                R"(,"channelId":)" + std::to_string(to) + "}]}");
  }
  std::uint32_t service(const std::string& name) const {
    for (const Service& one : hub.offer().services()) {
      if (one.name == name) {
        return one.id;
      }
    }
    return 0;
  }
  void callService(const std::string& name, const std::string& payload) {
    std::string frame("\x02", 1);
    frame += static_cast<char>(service(name));
    frame += std::string("\0\0\0\x09\0\0\0\x04\0\0\0json", 15);
    sut->onBinary(frame + payload);
  }

  /// Everything that has happened reaches the hub.
  void process() { hub.process(notices->take()); }
  void tick() {
    GK::GKObserverList::instance().notifyTick({"Probe", "run"});
    process();
  }
  void raise(const GK::GKValue& value) {
    platform.memory().raiseEvent("ProbeEvent", value, GK::GKCaller::Module);
    process();
  }
  /// Lets tasks run, then does what they left to the hub.
  void runTasks() {
    platform.sleep(10);
    while (!posted.empty()) {
      posted.front()();
      posted.pop_front();
    }
  }

  GK::test::TestPlatform platform;
  boost::shared_ptr<test::Probe> probe = boost::make_shared<test::Probe>(platform.broker());
  boost::shared_ptr<NoticeQueue> notices = [] {
    auto queue = boost::make_shared<NoticeQueue>([] {});
    GK::GKObserverList::instance().add(queue);
    return queue;
  }();
  CallRunner runner{4};
  Counters counters;
  std::deque<std::function<void()>> posted;
  VerdictWatch verdict{counters, {}};
  Past past{{}};
  Hub hub{runner,
          counters,
          "1.2.3",
          "1767225600.0",
          [this](std::function<void()> work) { posted.push_back(std::move(work)); },
          verdict,
          past};
  std::shared_ptr<StreamSession> sut;
};

TEST_F(StreamSessionTest, GreetsWithServerInfoThenChannelsThenServices) {
  connect();
  const std::vector<std::string> frames = received();
  ASSERT_EQ(frames.size(), 3U);
  EXPECT_EQ(frames[0], R"({"op":"serverInfo","name":"gksensors",)"
                       R"("capabilities":["time","services","parameters","parametersSubscribe"],)"
                       R"("supportedEncodings":["json"],"metadata":{"version":"1.2.3"},)"
                       R"("sessionId":"1767225600.0"})");
  EXPECT_THAT(frames[1], HasSubstr(R"({"op":"advertise","channels":[{"id":1,"topic":"/events",)"
                                   R"("encoding":"json","schemaName":"gk.Events","schema":"{)"));
  EXPECT_THAT(frames[1], HasSubstr(R"("schemaEncoding":"jsonschema"})"));
  EXPECT_THAT(frames[2],
              HasSubstr(R"("name":"Probe.join","type":"Probe.join","request":{"encoding":"json",)"
                        R"("schemaName":"Probe.join_Request","schemaEncoding":"jsonschema",)"
                        R"("schema":"{\"type\":\"object\",\"properties\":{\"left\":)"
                        R"({\"type\":\"string\",\"description\":\"First text.\"},\"right\":)"
                        R"({\"type\":\"string\",\"description\":\"Second text.\"}},)"
                        R"(\"required\":[\"left\"]}"},)"
                        R"("response":{"encoding":"json","schemaName":"Probe.join_Response",)"
                        R"("schemaEncoding":"jsonschema","schema":"{\"type\":\"object\",)"
                        R"(\"properties\":{\"result\":{\"type\":\"string\"}}}"}})"));
}

TEST_F(StreamSessionTest, ManyChannelsAreAnnouncedAHundredAtATime) {
  for (int i = 0; i < 250; ++i) {
    platform.memory().declareEvent("E" + std::to_string(i), "Probe", GK::GKCaller::Module);
  }
  process();
  connect();
  const std::size_t count = hub.offer().channels()->all().size();
  EXPECT_EQ(received().size(), 1 + (count + 99) / 100 + 1);
}

TEST_F(StreamSessionTest, AnEventIsAMessageByteByByte) {
  connectAndForget();
  subscribe(5, channel("/event/ProbeEvent"));
  raise(true);
  // Operation, subscription 5, 1767225600 s in nanoseconds, payload.
  EXPECT_THAT(received(),
              ElementsAre(std::string("\x01\x05\x00\x00\x00\x00\x00\xfa\xed\x51\x72\x86\x18", 13) +
                          R"({"t_s":0,"kind":"event","value":true})"));
}

TEST_F(StreamSessionTest, MicroEventsAndLogLinesAreTold) {
  connectAndForget();
  subscribe(1, channel("/events"));
  subscribe(2, channel("/log"));
  platform.memory().raiseMicroEvent("ProbeEvent", 1, GK::GKCaller::Module);
  zu::log::warning("test.category", "function") << "text";
  process();
  const std::vector<std::string> frames = received();
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(frames[0].substr(13), R"({"name":"ProbeEvent","t_s":0,"kind":"micro","value":1})");
  EXPECT_EQ(frames[1].substr(13),
            R"({"timestamp":{"sec":1767225600,"nsec":0},"level":3,"message":"text",)"
            R"("name":"test.category","file":"function","line":0})");
}

TEST_F(StreamSessionTest, SamplesComeWithTicksAndOnlyToSubscribers) {
  connectAndForget();
  subscribe(1, channel("/sonar"));
  platform.sleep(20);
  tick();
  ASSERT_EQ(received(),
            (std::vector<std::string>{
                std::string("\x01\x01\x00\x00\x00\x00\x2d\x2b\xef\x51\x72\x86\x18", 13) +
                R"({"left_m":0.5})"}));
  tick();
  EXPECT_EQ(received().size(), 1U);
  sut->onText(R"({"op":"unsubscribe","subscriptionIds":[1]})");
  tick();
  EXPECT_THAT(received(), IsEmpty());
}

TEST_F(StreamSessionTest, ANewEventOpensAChannelForThoseWhoAreThere) {
  connectAndForget();
  platform.memory().declareEvent("Fresh", "Probe", GK::GKCaller::Module);
  process();
  EXPECT_THAT(received(), ElementsAre(AllOf(HasSubstr(R"("op":"advertise")"),
                                            HasSubstr(R"("topic":"/event/Fresh")"))));
}

TEST_F(StreamSessionTest, WhoLetsTheHubLookLearnsWhetherALoopHasTicked) {
  EXPECT_FALSE(hub.process(notices->take()));
  platform.memory().raiseEvent("ProbeEvent", 1, GK::GKCaller::Module);
  EXPECT_FALSE(hub.process(notices->take()));
  GK::GKObserverList::instance().notifyTick({"Probe", "run"});
  EXPECT_TRUE(hub.process(notices->take()));
  EXPECT_FALSE(hub.process(notices->take()));
}

TEST_F(StreamSessionTest, TheClockIsTold) {
  connectAndForget();
  hub.refresh();
  EXPECT_THAT(received(), ElementsAre(std::string("\x02\x00\x00\xfa\xed\x51\x72\x86\x18", 9)));
}

TEST_F(StreamSessionTest, WrongSubscriptionsAreComplainedAbout) {
  connectAndForget();
  subscribe(1, 9999);
  EXPECT_THAT(received(),
              ElementsAre(R"({"op":"status","level":2,"message":"there is no channel 9999"})"));
  subscribe(1, channel("/events"));
  subscribe(1, channel("/log"));
  subscribe(2, channel("/events"));
  EXPECT_THAT(received(), ElementsAre(HasSubstr(R"("level":1)"), HasSubstr(R"("level":1)")));
  sut->onText(R"({"op":"unsubscribe","subscriptionIds":[77]})");
  EXPECT_THAT(received(), ElementsAre(HasSubstr("there is no subscription 77")));
}

TEST_F(StreamSessionTest, WhatIsNoMessageIsAnsweredWithAStatus) {
  connectAndForget();
  sut->onText("nonsense");
  sut->onBinary("");
  EXPECT_THAT(received(), ElementsAre(HasSubstr(R"("level":2)"), HasSubstr("too short")));
}

TEST_F(StreamSessionTest, ServicesAnswerWithTheCallsNumber) {
  connectAndForget();
  callService("Probe.echo", R"({"value":[1,2.5]})");
  EXPECT_THAT(received(), IsEmpty());
  runTasks();
  EXPECT_THAT(received(),
              ElementsAre(std::string("\x03", 1) + static_cast<char>(service("Probe.echo")) +
                          std::string("\0\0\0\x09\0\0\0\x04\0\0\0json", 15) +
                          R"({"result":[1,2.5]})"));
}

TEST_F(StreamSessionTest, ServicesThatCannotBeCalledFail) {
  connectAndForget();
  callService("Probe.echo", "{}");
  callService("Probe.echo", "nonsense");
  callService("Probe.echo", "5");
  callService("Probe.nope", "{}");
  EXPECT_THAT(received(),
              ElementsAre(HasSubstr("takes (value)"), HasSubstr("column 1"),
                          HasSubstr("an object or an array"), HasSubstr("no such service")));
  callService("Probe.fail", "{}");
  runTasks();
  EXPECT_THAT(received(), ElementsAre(HasSubstr("Probe::fail: it was asked to")));
}

TEST_F(StreamSessionTest, ACallThatReturnsAfterItsClientHasGoneIsForgotten) {
  connectAndForget();
  callService("Probe.echo", R"({"value":1})");
  sut.reset();
  runTasks();
  EXPECT_EQ(runner.running(), 0U);
}

TEST_F(StreamSessionTest, CallsOfOneClientAreLimited) {
  StreamSession::Limits limits;
  limits.calls = 2;
  connectAndForget(limits);
  for (int i = 0; i < 3; ++i) {
    callService("Probe.nothing", "{}");
  }
  EXPECT_THAT(received(), ElementsAre(HasSubstr("too many calls")));
  runTasks();
  EXPECT_EQ(received().size(), 2U);
}

TEST_F(StreamSessionTest, ParametersAreMemoryKeysByName) {
  connectAndForget();
  sut->onText(
      R"({"op":"getParameters","parameterNames":["Device/SubDeviceList/US/Left/Sensor/Value","None"],"id":"q"})");
  EXPECT_THAT(received(),
              ElementsAre(R"({"op":"parameterValues","parameters":[)"
                          R"({"name":"Device/SubDeviceList/US/Left/Sensor/Value",)"
                          R"("value":0.5,"type":"float64"},{"name":"None"}],"id":"q"})"));
}

TEST_F(StreamSessionTest, AllParametersAreTheConfigurationOnly) {
  platform.set("RobotConfig/Body/Device/Legs/Version", 3);
  connectAndForget();
  sut->onText(R"({"op":"getParameters","parameterNames":[]})");
  EXPECT_THAT(received(),
              ElementsAre(AllOf(HasSubstr(R"("RobotConfig/Body/Device/Legs/Version","value":3})"),
                                Not(HasSubstr("Device/SubDeviceList")))));
}

TEST_F(StreamSessionTest, ParametersCanBeSetWithTheTypeOfTheKey) {
  connectAndForget();
  sut->onText(R"({"op":"setParameters","id":"s","parameters":[{"name":"Motion/IsStand","value":1},)"
              R"({"name":"Mine","value":1},{"name":"MyFloat","value":1,"type":"float64"}]})");
  EXPECT_THAT(received(),
              ElementsAre(R"({"op":"parameterValues","parameters":[)"
                          R"({"name":"Motion/IsStand","value":1.0,"type":"float64"},)"
                          R"({"name":"Mine","value":1},)"
                          R"({"name":"MyFloat","value":1.0,"type":"float64"}],"id":"s"})"));
  sut->onText(
      R"({"op":"setParameters","parameters":[{"name":"Motion/IsStand","value":"x"},{"name":"Mine"}]})");
  EXPECT_THAT(received(), ElementsAre(HasSubstr("Motion/IsStand: takes a float"),
                                      HasSubstr("Mine: a memory key cannot be removed")));
}

TEST_F(StreamSessionTest, WatchedParametersAreToldWhenTheyChange) {
  const char* key = "Device/SubDeviceList/US/Left/Sensor/Value";
  connectAndForget();
  sut->onText(std::string(R"({"op":"subscribeParameterUpdates","parameterNames":[")") + key +
              "\"]}");
  EXPECT_THAT(received(), ElementsAre(HasSubstr(R"("value":0.5)")));
  tick();
  EXPECT_THAT(received(), IsEmpty());
  platform.set(key, 0.6F);
  platform.set("Mine", 1);
  tick();
  platform.set(key, 0.7F);
  tick();
  EXPECT_THAT(received(), ElementsAre(HasSubstr(R"("value":0.7)")));
  sut->onText(R"({"op":"unsubscribeParameterUpdates","parameterNames":[]})");
  platform.set(key, 0.8F);
  tick();
  EXPECT_THAT(received(), IsEmpty());
}

TEST_F(StreamSessionTest, WatchedParametersAreLimited) {
  StreamSession::Limits limits;
  limits.watched = 1;
  connectAndForget(limits);
  sut->onText(R"({"op":"subscribeParameterUpdates","parameterNames":["a","b"]})");
  EXPECT_THAT(received(), ElementsAre(HasSubstr("no more than 1")));
}

TEST_F(StreamSessionTest, LongNamesAreNotWatched) {
  connectAndForget();
  const auto watch = [this](std::size_t length) {
    sut->onText(R"({"op":"subscribeParameterUpdates","parameterNames":[")" +
                std::string(length, 'n') + "\"]}");
  };
  watch(256);
  EXPECT_THAT(received(), IsEmpty());
  watch(257);
  EXPECT_THAT(received(), ElementsAre(HasSubstr("a name has at most 256 bytes")));
}

TEST_F(StreamSessionTest, AnAnswerThatWouldBeTooLargeIsCutAndSaysSo) {
  StreamSession::Limits limits;
  limits.answer = 1000;
  connectAndForget(limits);
  platform.set("Large", std::string(600, 'x'));
  sut->onText(R"({"op":"getParameters","parameterNames":["Large","Large"],"id":"q"})");
  EXPECT_THAT(received(),
              ElementsAre(HasSubstr("the answer has only 1 of the parameters"), HasSubstr("xxx")));
  callService("Probe.echo", "{\"value\":\"" + std::string(1000, 'x') + "\"}");
  runTasks();
  EXPECT_THAT(received(), ElementsAre(HasSubstr("the result is larger than 1000 bytes")));
}

TEST_F(StreamSessionTest, ManyLargeChangesComeInPieces) {
  connectAndForget();
  std::string names;
  for (int i = 0; i < 10; ++i) {
    platform.set("Large" + std::to_string(i), std::string(60'000, 'x'));
    names += (i == 0 ? "\"Large" : ",\"Large") + std::to_string(i) + "\"";
  }
  sut->onText(R"({"op":"subscribeParameterUpdates","parameterNames":[)" + names + "]}");
  std::size_t told = 0;
  for (const std::string& frame : received()) {
    EXPECT_LT(frame.size(), 200'000U);
    for (std::size_t place = 0; (place = frame.find("\"Large", place)) != std::string::npos;
         ++place) {
      ++told;
    }
  }
  EXPECT_EQ(told, 10U);
}

TEST_F(StreamSessionTest, WhoReadsSlowlyIsToldWhatWasLost) {
  StreamSession::Limits limits;
  limits.queue.events = 2;
  connectAndForget(limits);
  subscribe(1, channel("/event/ProbeEvent"));
  subscribe(2, channel("/sonar"));
  for (int i = 0; i < 5; ++i) {
    raise(i);
    tick();
  }
  sut->checkDrops();
  const std::vector<std::string> frames = received();
  ASSERT_EQ(frames.size(), 4U);
  EXPECT_EQ(frames[0],
            R"({"op":"status","level":1,"message":"this client reads too slowly; lost so far: )"
            R"(4 of /sonar, 3 of /event/ProbeEvent","id":"losses"})");
  EXPECT_THAT(frames[1], HasSubstr(R"("value":3})"));
  EXPECT_THAT(frames[2], HasSubstr(R"("value":4})"));
  EXPECT_THAT(frames[3], HasSubstr("left_m"));
  EXPECT_EQ(counters.droppedSamples.load(), 4U);
  EXPECT_EQ(counters.droppedEvents.load(), 3U);
}

TEST_F(StreamSessionTest, WhoAsksAndNeverReadsIsGivenUp) {
  StreamSession::Limits limits;
  limits.queue.answers = 10;
  connectAndForget(limits);
  for (int i = 0; i < 10; ++i) {
    sut->onText("nonsense");
  }
  EXPECT_FALSE(sut->isOverrun());
  sut->onText("nonsense");
  EXPECT_TRUE(sut->isOverrun());
}

} // namespace
} // namespace gk::gateway
