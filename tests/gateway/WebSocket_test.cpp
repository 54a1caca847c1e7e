#include "ServedHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <vector>

namespace gk::gateway {
namespace {

using test::Answer;
using test::ask;
using test::ServedHost;
using test::ServerFrame;
using test::Socket;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// The id of a channel in an announcement.
int channelId(const std::string& advertisement, const std::string& topic) {
  const std::size_t place = advertisement.find("\"topic\":\"" + topic + "\"");
  const std::size_t id = advertisement.rfind("\"id\":", place);
  return std::stoi(advertisement.substr(id + 5));
}

/// The id of a service in an announcement.
std::uint32_t serviceId(const std::string& advertisement, const std::string& name) {
  const std::size_t place = advertisement.find("\"name\":\"" + name + "\"");
  const std::size_t id = advertisement.rfind("\"id\":", place);
  return static_cast<std::uint32_t>(std::stoul(advertisement.substr(id + 5)));
}

std::string subscribeText(int subscription, int channel) {
  return R"({"op":"subscribe","subscriptions":[{"id":)" + std::to_string(subscription) +
         R"(,"channelId":)" + std::to_string(channel) + "}]}";
}

/// Comes back once everything sent before has been handled.
void roundTrip(Socket& socket) {
  socket.sendText(R"({"op":"getParameters","parameterNames":["Nothing"],"id":"round-trip"})");
  ASSERT_THAT(socket.readText("round-trip"), HasSubstr("parameterValues"));
}

/// Calls a service.
void requestService(Socket& socket, std::uint32_t service, char call, const std::string& payload) {
  std::string frame(1, '\x02');
  for (int shift = 0; shift < 32; shift += 8) {
    frame += static_cast<char>((service >> shift) & 0xFF);
  }
  socket.sendFrame(2, frame + std::string({call, 0, 0, 0, 4, 0, 0, 0}) + "json" + payload);
}

TEST(WebSocket, BothNamesOfTheProtocolAreSpoken) {
  ServedHost sut;
  for (const auto& [offered, chosen] : std::initializer_list<std::pair<const char*, const char*>>{
           {"foxglove.sdk.v1", "foxglove.sdk.v1"},
           {"foxglove.websocket.v1", "foxglove.websocket.v1"},
           {"foxglove.websocket.v1, foxglove.sdk.v1", "foxglove.sdk.v1"},
           {"other,foxglove.websocket.v1", "foxglove.websocket.v1"}}) {
    Socket socket(sut.port());
    const Answer answer = socket.upgrade("/", sut.name(), {}, offered);
    EXPECT_EQ(answer.status, 101) << offered;
    EXPECT_EQ(answer.headers.at("sec-websocket-protocol"), chosen) << offered;
    // RFC 6455, section 1.3: the answer to this very key.
    EXPECT_EQ(answer.headers.at("sec-websocket-accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
  }
}

TEST(WebSocket, ClientsThatGoWithoutReadingTheirAnswersLeaveTheHostAsItWas) {
  ServedHost sut;
  for (int i = 0; i < 200; ++i) {
    Socket socket(sut.port(), 4096);
    socket.upgrade("/ws", sut.name());
    for (int asked = 0; asked < 5; ++asked) {
      socket.sendText(R"({"op":"getParameters","parameterNames":[]})");
    }
    if (i % 2 == 0) {
      socket.sendText(R"({"op":"getParam)");
    }
    // Closed with unread bytes: the connection is reset.
  }
  std::string metrics;
  do {
    metrics = ask(sut, "GET", "/metrics").body;
    ASSERT_FALSE(metrics.empty());
  } while (metrics.find("gk_ws_clients 0\n") == std::string::npos);
}

TEST(WebSocket, TheGreetingFitsHoweverMuchThereIsToTell) {
  GatewayOptions options;
  options.limits.clientBytes = 100'000;
  ServedHost sut(std::move(options));
  // As only modules can name their events.
  for (int i = 0; i < 20; ++i) {
    sut.memory->declareEvent(std::string(50'000, 'e') + std::to_string(i), "Probe",
                             GK::GKCaller::Module);
  }
  Socket socket(sut.port());
  socket.upgrade("/ws", sut.name());
  EXPECT_THAT(socket.readText("eee19\""), HasSubstr(R"("op":"advertise")"));
  EXPECT_THAT(socket.readText("advertiseServices"), HasSubstr("Probe.echo"));
}

TEST(WebSocket, OtherProtocolsAndPathsAreRefused) {
  ServedHost sut;
  for (const char* offered : {"", "other", "foxglove", "foxglove.sdk.v10"}) {
    Socket socket(sut.port());
    EXPECT_EQ(socket.upgrade("/ws", sut.name(), {}, offered).status, 400) << offered;
  }
  Socket socket(sut.port());
  EXPECT_EQ(socket.upgrade("/other", sut.name()).status, 404);
}

TEST(WebSocket, EventsArriveAsTheyAreRaisedInOrder) {
  ServedHost sut;
  Socket socket(sut.port());
  socket.upgrade("/ws", sut.name());
  const std::string channels = socket.readText("\"op\":\"advertise\"");
  socket.sendText(subscribeText(7, channelId(channels, "/events")));
  socket.sendText(subscribeText(8, channelId(channels, "/event/ProbeEvent")));
  roundTrip(socket);
  for (int i = 0; i < 3; ++i) {
    sut.raise("ProbeEvent", i);
  }
  for (int i = 0; i < 3; ++i) {
    const std::string value = R"("kind":"event","value":)" + std::to_string(i) + "}";
    const std::string all = socket.readBinary(1);
    EXPECT_THAT(all, StartsWith(std::string("\x01\x07\x00\x00\x00", 5)));
    EXPECT_THAT(all, HasSubstr(R"({"name":"ProbeEvent","t_s":)"));
    EXPECT_THAT(all, EndsWith(value));
    const std::string own = socket.readBinary(1);
    EXPECT_THAT(own, StartsWith(std::string("\x01\x08\x00\x00\x00", 5)));
    EXPECT_THAT(own, EndsWith(value));
  }
}

TEST(WebSocket, ATickSendsSamplesOfWhatIsSubscribed) {
  ServedHost sut;
  Socket socket(sut.port());
  socket.upgrade("/ws", sut.name());
  const std::string channels = socket.readText("\"op\":\"advertise\"");
  socket.sendText(subscribeText(1, channelId(channels, "/sonar")));
  roundTrip(socket);
  sut.store->set("Device/SubDeviceList/US/Left/Sensor/Value", 0.5F);
  sut.tick();
  EXPECT_THAT(socket.readBinary(1), EndsWith(R"({"left_m":0.5,"right_m":2.55})"));
}

TEST(WebSocket, ServicesCallBoundMethods) {
  ServedHost sut;
  Socket socket(sut.port());
  socket.upgrade("/ws", sut.name());
  const std::string services = socket.readText("advertiseServices");
  const auto request = [&](const char* name, char call, const std::string& payload) {
    requestService(socket, serviceId(services, name), call, payload);
  };
  request("Probe.join", 1, R"({"left":"a","right":"b"})");
  EXPECT_THAT(
      socket.readBinary(3),
      EndsWith(std::string("\x01\x00\x00\x00\x04\x00\x00\x00json", 12) + R"({"result":"ab"})"));
  request("Probe.nothing", 2, "");
  EXPECT_THAT(socket.readBinary(3), EndsWith("json{}"));
  request("Probe.fail", 3, "{}");
  EXPECT_THAT(socket.readText("serviceCallFailure"),
              HasSubstr(R"("callId":3,"message":"Probe::fail: it was asked to")"));
}

TEST(WebSocket, FramesOfEveryLengthArriveWhole) {
  ServedHost sut;
  Socket socket(sut.port());
  socket.upgrade("/ws", sut.name());
  const std::uint32_t echo = serviceId(socket.readText("advertiseServices"), "Probe.echo");
  // On both sides of where the length takes more bytes (RFC 6455, section 5.2).
  const std::string around = R"({"result":""})";
  const std::size_t head = 17;
  for (const std::size_t length : {125U, 126U, 127U, 65535U, 65536U}) {
    const std::string text(length - head - around.size(), 'x');
    requestService(socket, echo, 1, R"({"value":")" + text + "\"}");
    const std::string response = socket.readBinary(3);
    EXPECT_EQ(response.size(), length);
    EXPECT_THAT(response, EndsWith(R"(json{"result":")" + text + "\"}"));
  }
}

TEST(WebSocket, ASlowClientLosesItsOwnSamplesAndNobodyElseNoticesIt) {
  GatewayOptions options;
  options.limits.clientBytes = 64 * 1024;
  options.limits.clientEvents = 100;
  // However slow the machine is, the client is not given up.
  options.now = [] { return std::chrono::steady_clock::time_point(); };
  ServedHost sut(std::move(options));
  Socket slow(sut.port());
  slow.upgrade("/ws", sut.name());
  const std::string channels = slow.readText("\"op\":\"advertise\"");
  slow.sendText(subscribeText(1, channelId(channels, "/events")));
  roundTrip(slow);
  Socket quick(sut.port());
  quick.upgrade("/ws", sut.name());
  quick.readText("advertiseServices");
  quick.sendText(subscribeText(1, channelId(channels, "/event/ProbeEvent")));
  roundTrip(quick);
  // Far more than the sockets' buffers hold between the two.
  const std::string large(10'000, 'x');
  for (int i = 0; i < 1000; ++i) {
    sut.raise("ProbeEvent", large);
    ASSERT_THAT(quick.readBinary(1), EndsWith("x\"}"));
  }
  EXPECT_THAT(slow.readText("losses"),
              testing::AllOf(HasSubstr(R"("op":"status","level":1)"), HasSubstr("of /events")));
  EXPECT_THAT(ask(sut, "GET", "/metrics").body,
              HasSubstr("gk_ws_dropped_messages_total{policy=\"queue\"} "));
}

/// A client that has subscribed to the events and takes nothing, until events have been dropped:
/// the buffers of both sockets are full, and a write waits.
class StalledClient {
public:
  explicit StalledClient(ServedHost& host) : socket(host.port()) {
    socket.upgrade("/ws", host.name());
    const std::string channels = socket.readText("\"op\":\"advertise\"");
    socket.sendText(subscribeText(1, channelId(channels, "/events")));
    roundTrip(socket);
    const std::string large(100'000, 'x');
    while (ask(host, "GET", "/metrics")
               .body.find("gk_ws_dropped_messages_total{policy=\"queue\"} 0\n") !=
           std::string::npos) {
      host.raise("ProbeEvent", large);
    }
  }

  Socket socket;
};

TEST(WebSocket, AClientThatTakesNothingIsGivenUp) {
  std::atomic<std::chrono::seconds> elapsed{std::chrono::seconds(0)};
  GatewayOptions options;
  options.now = [&elapsed] { return std::chrono::steady_clock::time_point(elapsed.load()); };
  ServedHost sut(std::move(options));
  const StalledClient stalled(sut);
  std::string metrics = ask(sut, "GET", "/metrics").body;
  EXPECT_THAT(metrics, HasSubstr("gk_ws_clients 1\n"));
  elapsed = std::chrono::seconds(11);
  // The client reads nothing meanwhile; the figures tell when it is gone.
  while (metrics.find("gk_ws_clients 1\n") != std::string::npos) {
    metrics = ask(sut, "GET", "/metrics").body;
  }
  EXPECT_THAT(metrics, HasSubstr("gk_ws_abandoned_clients_total 1\n"));
}

TEST(WebSocket, AnAnswerToAPingWaitsForTheEndOfAFrame) {
  GatewayOptions options;
  options.now = [] { return std::chrono::steady_clock::time_point(); };
  ServedHost sut(std::move(options));
  StalledClient stalled(sut);
  stalled.socket.sendFrame(9, "between");
  ServerFrame frame = stalled.socket.readFrame();
  while (frame.opcode == 1 || frame.opcode == 2) {
    if (frame.opcode == 2 && frame.payload.front() == 1) {
      ASSERT_THAT(frame.payload, EndsWith("x\"}"));
    }
    frame = stalled.socket.readFrame();
  }
  EXPECT_EQ(frame.opcode, 10);
  EXPECT_EQ(frame.payload, "between");
}

TEST(WebSocket, ClientsAreToldWhenTheHostEnds) {
  ServedHost sut;
  Socket socket(sut.port());
  socket.upgrade("/ws", sut.name());
  socket.readText("advertiseServices");
  sut.gateway->close();
  ServerFrame frame;
  do {
    frame = socket.readFrame();
  } while (frame.opcode == 1 || frame.opcode == 2);
  ASSERT_EQ(frame.opcode, 8);
  // 1001: going away.
  EXPECT_THAT(frame.payload, StartsWith("\x03\xe9"));
}

TEST(WebSocket, PingsAreAnswered) {
  ServedHost sut;
  Socket socket(sut.port());
  socket.upgrade("/ws", sut.name());
  socket.sendFrame(9, "hello");
  ServerFrame frame;
  do {
    frame = socket.readFrame();
  } while (frame.opcode == 1 || frame.opcode == 2);
  EXPECT_EQ(frame.opcode, 10);
  EXPECT_EQ(frame.payload, "hello");
}

} // namespace
} // namespace gk::gateway
