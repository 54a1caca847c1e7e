#include "ServedHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <utility>
#include <vector>

// What keeps others away from the robot, rule by rule.

namespace gk::gateway {
namespace {

using test::Answer;
using test::ask;
using test::call;
using test::ServedHost;
using test::Socket;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string kToken = "0123456789abcdef0123456789abcdef";

GatewayOptions withToken() {
  GatewayOptions options;
  options.access.token = kToken;
  return options;
}

template <class Change> GatewayOptions withLimits(const Change& change) {
  GatewayOptions options;
  change(options.limits);
  return options;
}

TEST(Security, ForeignNamesForOurAddressAreRefused) {
  ServedHost sut;
  for (const std::string& host :
       std::initializer_list<std::string>{"evil.example:" + std::to_string(sut.port()),
                                          std::string("localhost:1"), std::string("")}) {
    Socket socket(sut.port());
    socket.send("GET /livez HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
    EXPECT_EQ(socket.readAnswer().status, 403) << host;
  }
  Socket nameless(sut.port());
  nameless.send("GET /livez HTTP/1.1\r\n\r\n");
  EXPECT_EQ(nameless.readAnswer().status, 400);
  Socket upgrade(sut.port());
  EXPECT_EQ(upgrade.upgrade("/ws", "evil.example:" + std::to_string(sut.port())).status, 403);
}

TEST(Security, PagesOfOthersAreRefused) {
  ServedHost sut;
  for (const char* origin : {"http://evil.example", "null", "http://localhost:1"}) {
    const std::string header = std::string("Origin: ") + origin + "\r\n";
    EXPECT_EQ(ask(sut, "GET", "/api/v1/modules", "", header).status, 403) << origin;
    Socket socket(sut.port());
    EXPECT_EQ(socket.upgrade("/ws", sut.name(), header).status, 403) << origin;
  }
  const std::string own = "Origin: http://" + sut.name() + "\r\n";
  EXPECT_EQ(ask(sut, "GET", "/api/v1/modules", "", own).status, 200);
  Socket socket(sut.port());
  EXPECT_EQ(socket.upgrade("/ws", sut.name(), own).status, 101);
}

TEST(Security, NoAnswerInvitesOtherPages) {
  ServedHost sut;
  const Answer answer = ask(sut, "GET", "/api/v1/modules");
  EXPECT_FALSE(answer.headers.contains("access-control-allow-origin"));
  EXPECT_EQ(answer.headers.at("x-content-type-options"), "nosniff");
  EXPECT_EQ(answer.headers.at("cross-origin-resource-policy"), "same-origin");
  EXPECT_THAT(answer.headers.at("content-security-policy"), HasSubstr("default-src 'none'"));
  EXPECT_THAT(answer.headers.at("content-security-policy"), Not(HasSubstr("unsafe")));
}

TEST(Security, WritesAndCallsMustBeJson) {
  ServedHost sut;
  const std::string body = R"({"jsonrpc":"2.0","id":1,"method":"Probe.nothing"})";
  for (const char* type :
       {"", "Content-Type: text/plain\r\n", "Content-Type: application/x-www-form-urlencoded\r\n",
        "Content-Type: application/jsonx\r\n"}) {
    EXPECT_EQ(ask(sut, "POST", "/rpc", body, type).status, 415) << type;
    EXPECT_EQ(ask(sut, "PUT", "/api/v1/memory/Mine", "1", type).status, 415) << type;
  }
  EXPECT_FALSE(sut.store->get("Mine").has_value());
  EXPECT_EQ(
      ask(sut, "POST", "/rpc", body, "Content-Type: Application/JSON; charset=utf-8\r\n").status,
      200);
}

TEST(Security, WithATokenNothingIsToldWithoutIt) {
  ServedHost sut(withToken());
  const std::string json = "Content-Type: application/json\r\n";
  for (const char* target : {"/api/v1/modules", "/api/v1/memory", "/api/v1/events", "/metrics",
                             "/openapi.json", "/status/Probe", "/api/v1/host"}) {
    EXPECT_EQ(ask(sut, "GET", target).status, 401) << target;
    EXPECT_EQ(ask(sut, "GET", target, "", "Authorization: Bearer wrong\r\n").status, 401);
    EXPECT_EQ(ask(sut, "GET", target, "", "Authorization: Bearer " + kToken + "\r\n").status, 200)
        << target;
  }
  EXPECT_EQ(ask(sut, "POST", "/rpc", "{}").status, 401);
  EXPECT_EQ(ask(sut, "PUT", "/api/v1/memory/Mine", "1").status, 401);
  EXPECT_EQ(ask(sut, "POST", "/api/v1/tickets", "{}").status, 401);
  Socket socket(sut.port());
  EXPECT_EQ(socket.upgrade("/ws", sut.name()).status, 401);
  EXPECT_EQ(ask(sut, "GET", "/livez").status, 200);
}

TEST(Security, ABrowserLogsInForASession) {
  ServedHost sut(withToken());
  EXPECT_EQ(ask(sut, "POST", "/login", R"({"token":"wrong"})").status, 401);
  EXPECT_EQ(ask(sut, "POST", "/login", "nonsense").status, 401);
  const Answer login = ask(sut, "POST", "/login", "{\"token\":\"" + kToken + "\"}");
  EXPECT_EQ(login.status, 200);
  const std::string cookie = login.headers.at("set-cookie");
  EXPECT_THAT(cookie, HasSubstr("; HttpOnly; SameSite=Strict"));
  EXPECT_THAT(cookie, Not(HasSubstr(kToken)));
  const std::string header = "Cookie: " + cookie.substr(0, cookie.find(';')) + "\r\n";
  EXPECT_EQ(ask(sut, "GET", "/api/v1/modules", "", header).status, 200);
  Socket socket(sut.port());
  EXPECT_EQ(socket.upgrade("/ws", sut.name(), header).status, 101);
}

TEST(Security, ATicketOpensOneWebSocket) {
  ServedHost sut(withToken());
  const std::string body =
      ask(sut, "POST", "/api/v1/tickets", "{}",
          "Content-Type: application/json\r\nAuthorization: Bearer " + kToken + "\r\n")
          .body;
  const std::size_t start = body.find(":\"") + 2;
  const std::string ticket = body.substr(start, body.find('"', start) - start);
  Socket first(sut.port());
  EXPECT_EQ(first.upgrade("/ws?ticket=" + ticket, sut.name()).status, 101);
  Socket second(sut.port());
  EXPECT_EQ(second.upgrade("/ws?ticket=" + ticket, sut.name()).status, 401);
}

TEST(Security, NothingOfTheFileSystemCanBeReached) {
  ServedHost sut;
  for (const char* target : {"/../../../../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "/etc/passwd",
                             "//etc/passwd", "/./index.html", "/..", "/proc/self/environ",
                             "/file:///etc/passwd", "/..%2f..%2fetc%2fpasswd"}) {
    EXPECT_EQ(ask(sut, "GET", target).status, 404) << target;
  }
}

TEST(Security, HeadersAreLimited) {
  ServedHost sut;
  const auto padded = [](std::size_t size) { return "X-Pad: " + std::string(size, 'x') + "\r\n"; };
  EXPECT_EQ(ask(sut, "GET", "/livez", "", padded(7000)).status, 200);
  EXPECT_EQ(ask(sut, "GET", "/livez", "", padded(9000)).status, 431);
  EXPECT_EQ(ask(sut, "GET", "/" + std::string(9000, 'x')).status, 431);
}

TEST(Security, BodiesAreLimited) {
  ServedHost sut(withLimits([](GatewayLimits& limits) { limits.body = 1000; }));
  const auto value = [](std::size_t size) { return "\"" + std::string(size - 2, 'x') + "\""; };
  EXPECT_EQ(ask(sut, "PUT", "/api/v1/memory/Mine", value(1000)).status, 200);
  EXPECT_EQ(ask(sut, "PUT", "/api/v1/memory/Mine", value(1001)).status, 413);
  Socket chunked(sut.port());
  chunked.send("PUT /api/v1/memory/Mine HTTP/1.1\r\nHost: " + sut.name() +
               "\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n3e9\r\n" +
               std::string(1001, 'x') + "\r\n0\r\n\r\n");
  EXPECT_EQ(chunked.readAnswer().status, 413);
}

TEST(Security, NestingOfJsonIsLimited) {
  ServedHost sut;
  EXPECT_THAT(call(sut, "Probe.echo", std::string(20, '[') + std::string(20, ']')),
              HasSubstr("result"));
  EXPECT_THAT(call(sut, "Probe.echo", std::string(5000, '[') + std::string(5000, ']')),
              HasSubstr("-32700"));
}

TEST(Security, WhatIsNoRequestEndsTheConnection) {
  ServedHost sut;
  for (const char* bytes :
       {"nonsense\r\n\r\n", "GET\r\n\r\n", "\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n",
        "GET / HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
        "POST / HTTP/1.1\r\nContent-Length: 5\r\nContent-Length: 6\r\n\r\n"}) {
    Socket socket(sut.port());
    socket.send(bytes);
    EXPECT_EQ(socket.readAnswer().status, 400) << bytes;
    EXPECT_TRUE(socket.isEnded()) << bytes;
  }
  EXPECT_EQ(ask(sut, "GET", "/livez").status, 200);
}

/// The answer to what is sent as it is, on a connection of its own.
Answer answerTo(const ServedHost& host, const std::string& bytes) {
  Socket socket(host.port());
  socket.send(bytes);
  return socket.readAnswer();
}

TEST(Security, WhatTheEndOfARequestCannotBeFoundByIsRefused) {
  ServedHost sut;
  const std::string hidden = "GET /livez HTTP/1.1\r\nHost: " + sut.name() + "\r\n\r\n";
  const auto post = [&](const std::string& fields) {
    return "POST /rpc HTTP/1.1\r\nHost: " + sut.name() + "\r\nContent-Type: application/json\r\n" +
           fields + "\r\n" + hidden;
  };
  for (const auto& [fields, status] : std::initializer_list<std::pair<std::string, int>>{
           {"Transfer-Encoding: gzip\r\n", 400},
           {"Transfer-Encoding: identity\r\n", 400},
           {"Transfer-Encoding: chunked, gzip\r\n", 400},
           {"Transfer-Encoding: gzip, chunked\r\n", 501},
           {"Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n", 501},
           {"Transfer-Encoding: chunked\r\nContent-Length: 3\r\n", 400}}) {
    Socket socket(sut.port());
    socket.send(post(fields));
    EXPECT_EQ(socket.readAnswer().status, status) << fields;
    // What follows is no request.
    EXPECT_TRUE(socket.isEnded()) << fields;
  }
  EXPECT_EQ(answerTo(sut, "POST /rpc HTTP/1.0\r\nHost: " + sut.name() +
                              "\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n")
                .status,
            400);
}

TEST(Security, FieldsThatAreThereOnceAreNotThereTwice) {
  ServedHost sut;
  const std::string own = "Host: " + sut.name() + "\r\n";
  for (const std::string& fields :
       {own + own, own + "Host: evil.example\r\n",
        own + "Origin: http://" + sut.name() + "\r\nOrigin: http://evil.example\r\n",
        own + "Content-Type: text/plain\r\nContent-Type: application/json\r\n",
        own + "Authorization: Bearer a\r\nAuthorization: Bearer b\r\n"}) {
    EXPECT_EQ(answerTo(sut, "GET /livez HTTP/1.1\r\n" + fields + "\r\n").status, 400) << fields;
  }
}

TEST(Security, ATargetInAbsoluteFormSaysWhichHostIsMeant) {
  ServedHost sut;
  const auto get = [&](const std::string& target, const std::string& host) {
    return answerTo(sut, "GET " + target + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n").status;
  };
  EXPECT_EQ(get("http://" + sut.name() + "/livez", sut.name()), 200);
  EXPECT_EQ(get("HTTP://" + sut.name() + "/livez", sut.name()), 200);
  // The target counts, whatever the field says (RFC 9112, section 3.2.2).
  EXPECT_EQ(get("http://" + sut.name() + "/livez", "evil.example"), 200);
  EXPECT_EQ(get("http://evil.example/livez", sut.name()), 403);
  EXPECT_EQ(get("http://user@" + sut.name() + "/livez", sut.name()), 400);
  EXPECT_EQ(get("http:///livez", sut.name()), 400);
  EXPECT_EQ(get("https://" + sut.name() + "/livez", sut.name()), 421);
  EXPECT_EQ(answerTo(sut, "OPTIONS * HTTP/1.1\r\nHost: " + sut.name() + "\r\n\r\n").status, 204);
  EXPECT_EQ(answerTo(sut, "OPTIONS * HTTP/1.1\r\nHost: evil.example\r\n\r\n").status, 403);
}

TEST(Security, TrailersChangeNothingOfWhatTheHeaderSays) {
  ServedHost sut;
  EXPECT_EQ(answerTo(sut, "PUT /api/v1/memory/Mine HTTP/1.1\r\nHost: " + sut.name() +
                              "\r\nContent-Type: text/plain\r\nTransfer-Encoding: chunked\r\n"
                              "Trailer: Content-Type\r\n\r\n1\r\n1\r\n0\r\n"
                              "Content-Type: application/json\r\n\r\n")
                .status,
            415);
}

TEST(Security, OtherVersionsAndExpectationsAreTurnedAway) {
  ServedHost sut;
  EXPECT_EQ(answerTo(sut, "GET / HTTP/9.9\r\nHost: " + sut.name() + "\r\n\r\n").status, 505);
  EXPECT_EQ(ask(sut, "GET", "/livez", "", "Expect: a miracle\r\n").status, 417);
}

TEST(Security, WhoeverGuessesWaitsAndNobodyElseDoes) {
  GatewayOptions options = withToken();
  options.limits.guessTime = std::chrono::milliseconds(50);
  ServedHost sut(std::move(options));
  const auto timeOf = [](const auto& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::steady_clock::now() - begin;
  };
  EXPECT_GE(timeOf([&] {
              EXPECT_EQ(ask(sut, "GET", "/metrics", "", "Authorization: Bearer wrong\r\n").status,
                        401);
            }),
            std::chrono::milliseconds(50));
  EXPECT_GE(
      timeOf([&] { EXPECT_EQ(ask(sut, "POST", "/login", R"({"token":"wrong"})").status, 401); }),
      std::chrono::milliseconds(50));
  EXPECT_GE(timeOf([&] {
              Socket socket(sut.port());
              EXPECT_EQ(socket.upgrade("/ws?ticket=wrong", sut.name()).status, 401);
            }),
            std::chrono::milliseconds(50));
  EXPECT_EQ(ask(sut, "GET", "/metrics", "", "Authorization: Bearer " + kToken + "\r\n").status,
            200);
}

TEST(Security, AStatusPageRunsNothing) {
  ServedHost sut;
  const Answer page = ask(sut, "GET", "/status/Probe");
  EXPECT_THAT(page.headers.at("content-type"), HasSubstr("text/html"));
  EXPECT_THAT(page.headers.at("content-security-policy"),
              AllOf(HasSubstr("default-src 'none'"), HasSubstr("sandbox"),
                    Not(HasSubstr("allow-scripts"))));
  EXPECT_EQ(page.headers.at("x-content-type-options"), "nosniff");
}

TEST(Security, SlowHeadersEndTheConnection) {
  ServedHost sut(
      withLimits([](GatewayLimits& limits) { limits.headerTime = std::chrono::milliseconds(50); }));
  Socket slow(sut.port());
  slow.send("GET /livez HTTP/1.1\r\nHost: ");
  EXPECT_TRUE(slow.isEnded());
  Socket silent(sut.port());
  EXPECT_TRUE(silent.isEnded());
}

TEST(Security, SlowBodiesEndTheConnection) {
  ServedHost sut(
      withLimits([](GatewayLimits& limits) { limits.bodyTime = std::chrono::milliseconds(50); }));
  Socket slow(sut.port());
  slow.send("POST /rpc HTTP/1.1\r\nHost: " + sut.name() +
            "\r\nContent-Type: application/json\r\nContent-Length: 100\r\n\r\n{");
  EXPECT_TRUE(slow.isEnded());
}

TEST(Security, ConnectionsAreLimited) {
  ServedHost sut(withLimits([](GatewayLimits& limits) { limits.connections = 2; }));
  Socket first(sut.port());
  first.upgrade("/ws", sut.name());
  auto second = std::make_unique<Socket>(sut.port());
  second->upgrade("/ws", sut.name());
  Socket third(sut.port());
  EXPECT_EQ(third.readAnswer().status, 503);
  EXPECT_TRUE(third.isEnded());
}

TEST(Security, WebSocketClientsAreLimited) {
  ServedHost sut(withLimits([](GatewayLimits& limits) { limits.webSocketClients = 1; }));
  Socket first(sut.port());
  EXPECT_EQ(first.upgrade("/ws", sut.name()).status, 101);
  first.readText("serverInfo");
  Socket second(sut.port());
  EXPECT_EQ(second.upgrade("/ws", sut.name()).status, 503);
}

TEST(Security, CallsInFlightAreLimited) {
  ServedHost sut(withLimits([](GatewayLimits& limits) { limits.calls = 2; }));
  const std::string body = R"({"jsonrpc":"2.0","id":1,"method":"Probe.wait"})";
  std::vector<std::unique_ptr<Socket>> waiting;
  for (int i = 1; i <= 2; ++i) {
    waiting.push_back(std::make_unique<Socket>(sut.port()));
    waiting.back()->send("POST /rpc HTTP/1.1\r\nHost: " + sut.name() +
                         "\r\nContent-Type: application/json\r\nContent-Length: " +
                         std::to_string(body.size()) + "\r\n\r\n" + body);
    sut.probe->awaitWaiting(i);
  }
  EXPECT_THAT(call(sut, "Probe.nothing", "[]"), HasSubstr("-32001"));
  EXPECT_EQ(ask(sut, "GET", "/status/Probe").status, 503);
  sut.probe->release();
  for (const auto& socket : waiting) {
    EXPECT_THAT(socket->readAnswer().body, HasSubstr("result"));
  }
}

TEST(Security, MessagesOfWebSocketClientsAreLimited) {
  ServedHost sut(withLimits([](GatewayLimits& limits) { limits.message = 1000; }));
  Socket socket(sut.port());
  socket.upgrade("/ws", sut.name());
  socket.readText("advertiseServices");
  socket.sendText(std::string(1001, 'x'));
  test::ServerFrame frame;
  do {
    frame = socket.readFrame();
  } while (frame.opcode == 1 || frame.opcode == 2);
  ASSERT_EQ(frame.opcode, 8);
  // 1009: too big.
  EXPECT_EQ(frame.payload.substr(0, 2), "\x03\xf1");
}

} // namespace
} // namespace gk::gateway
