#include "app/fleet/FleetServer.h"
#include "gateway/ServedHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>

namespace gk::app {
namespace {

using gateway::test::Answer;
using gateway::test::Socket;
using testing::AllOf;
using testing::HasSubstr;

/// A server with the cards of one robot.
class FleetServerTest : public testing::Test {
protected:
  ~FleetServerTest() override {
    if (sut) {
      sut->stop();
      thread.join();
    }
  }

  void serve(const std::string& token = {}) {
    lose("r1");
    gateway::AccessOptions access;
    access.address = {"127.0.0.1", 0};
    access.token = token;
    sut.emplace(access, cards);
    const std::string url = sut->url();
    const std::size_t colon = url.rfind(':');
    port = static_cast<std::uint16_t>(std::stoi(url.substr(colon + 1)));
    thread = std::thread([this] { sut->run(); });
  }
  void lose(const std::string& robot) {
    book.take("gk/v1/default/" + robot + "/connection",
              messages::connectionPayload({messages::FleetPresence::Lost, "boot", 0}), {});
    cards.update(book);
  }
  std::string request(const std::string& target, const std::string& headers = {}) const {
    return "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n" +
           headers + "\r\n";
  }
  Answer ask(const std::string& text) const {
    Socket socket(port);
    socket.send(text);
    return socket.readAnswer();
  }

  FleetBook book;
  FleetCards cards{"s", "mqtt://broker:1883"};
  std::optional<FleetServer> sut;
  std::uint16_t port = 0;
  std::thread thread;
};

TEST_F(FleetServerTest, CardsAreServedAndThePageBesideThem) {
  serve();
  const Answer fleet = ask(request("/api/v1/fleet"));
  EXPECT_EQ(fleet.status, 200);
  EXPECT_THAT(fleet.body, AllOf(HasSubstr(R"("robots":1,"all":true)"),
                                HasSubstr(R"("robot":"r1","urgency":9,"level":2,"words":"lost")")));
  const Answer page = ask(request("/"));
  EXPECT_EQ(page.status, 200);
  EXPECT_EQ(page.headers.at("content-type"), "text/html; charset=utf-8");
  EXPECT_THAT(page.headers.at("content-security-policy"), HasSubstr("default-src 'none'"));
  EXPECT_EQ(ask(request("/livez")).body, "ok\n");
  EXPECT_EQ(ask(request("/none")).status, 404);
}

TEST_F(FleetServerTest, WhoHasEverythingWaitsForWhatIsNew) {
  serve();
  Socket patient(port);
  patient.send(request("/api/v1/fleet?after=" + std::to_string(cards.version()) + "&session=s"));
  lose("r2");
  const Answer news = patient.readAnswer();
  EXPECT_THAT(news.body, AllOf(HasSubstr(R"("all":false)"), HasSubstr(R"("robot":"r2")")));
  EXPECT_EQ(news.body.find("\"r1\""), std::string::npos);
}

TEST_F(FleetServerTest, NamesThatOthersPointHereAndTheirPagesAreRefused) {
  serve();
  EXPECT_EQ(ask("GET /api/v1/fleet HTTP/1.1\r\nHost: evil.example\r\n\r\n").status, 403);
  EXPECT_EQ(ask(request("/api/v1/fleet", "Origin: http://evil.example\r\n")).status, 403);
  EXPECT_EQ(ask(request("/", "Origin: http://evil.example\r\n")).status, 403);
  EXPECT_EQ(ask("POST /api/v1/fleet HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                "\r\nContent-Length: 0\r\n\r\n")
                .status,
            405);
}

TEST_F(FleetServerTest, ATokenIsAskedForWhereThereIsOne) {
  const std::string token = "0123456789abcdef0123456789abcdef";
  serve(token);
  EXPECT_EQ(ask(request("/api/v1/fleet")).status, 401);
  EXPECT_EQ(ask(request("/")).status, 200);
  EXPECT_EQ(ask(request("/api/v1/fleet", "Authorization: Bearer " + token + "\r\n")).status, 200);
  const std::string body = R"({"token":")" + token + "\"}";
  const Answer login =
      ask("POST /login HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
          "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
          "\r\n\r\n" + body);
  ASSERT_EQ(login.status, 200);
  const std::string cookie = login.headers.at("set-cookie");
  EXPECT_THAT(cookie, HasSubstr("HttpOnly; SameSite=Strict"));
  EXPECT_EQ(ask(request("/api/v1/fleet", "Cookie: " + cookie.substr(0, cookie.find(';')) + "\r\n"))
                .status,
            200);
}

TEST_F(FleetServerTest, NoTokenNoOtherAddressThanTheMachinesOwn) {
  gateway::AccessOptions access;
  access.address = {"0.0.0.0", 0};
  EXPECT_THROW(FleetServer(access, cards), gateway::AccessError);
}

} // namespace
} // namespace gk::app
