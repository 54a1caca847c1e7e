#include "app/fleet/FleetServer.h"

#include "app/fleet/FleetFiles.h"
#include "gateway/http/Http.h"
#include "gateway/http/StaticFiles.h"
#include "gateway/net/ByteStream.h"
#include "gateway/server/RequestRules.h"
#include "gateway/server/ResponseMessage.h"
#include "messages/json/Json.h"
#include "messages/text/FormatError.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/json/object.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <utility>

namespace gk::app {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;
using gateway::errorResponse;
using gateway::HttpRequest;
using gateway::HttpResponse;

constexpr std::size_t kMostConnections = 256;
constexpr std::uint32_t kMostHeader = 8192;
constexpr std::size_t kMostBody = 4096;
constexpr std::chrono::seconds kRequestTime{15};
constexpr std::chrono::seconds kIdleTime{60};
/// Pages hear of changes so often at most, and of none at all after so long.
constexpr std::chrono::milliseconds kNewsTurn{300};
constexpr std::chrono::seconds kLongestWait{20};
/// Before somebody is told that this is not the token.
constexpr std::chrono::seconds kGuessTime{1};

using AnswerLater = std::function<void(HttpResponse)>;

/// What the server does with requests; one for all connections.
class Desk {
public:
  virtual ~Desk() = default;
  /// Answers now or later, on the same thread.
  virtual void answer(HttpRequest request, AnswerLater respond) = 0;
  virtual void ended() = 0;
};

/// One client: a request, its answer, and so on.
class FleetConnection : public std::enable_shared_from_this<FleetConnection> {
public:
  FleetConnection(Desk& desk, gateway::ByteStream::Socket socket)
      : fDesk(desk), fStream(std::move(socket)), fPause(fStream.get_executor()) {}
  ~FleetConnection() { fDesk.ended(); }
  FleetConnection(const FleetConnection&) = delete;
  FleetConnection& operator=(const FleetConnection&) = delete;

  void read() {
    fParser.emplace();
    fParser->header_limit(kMostHeader);
    fParser->body_limit(kMostBody);
    fStream.expiresAfter(kIdleTime);
    http::async_read_header(fStream, fBuffer, *fParser,
                            [self = shared_from_this()](error_code error, std::size_t) {
                              if (error) {
                                self->fStream.close();
                              } else {
                                self->xReadBody();
                              }
                            });
  }

private:
  void xReadBody() {
    const auto& header = fParser->get();
    fHead = gateway::requestHead(header);
    fVersion = header.version();
    fIsHead = header.method() == http::verb::head;
    if (std::optional<HttpResponse> refusal = gateway::refuseFraming(header)) {
      fIsLast = true;
      xRespond(*std::move(refusal));
      return;
    }
    fStream.expiresAfter(kRequestTime);
    http::async_read(fStream, fBuffer, *fParser,
                     [self = shared_from_this()](error_code error, std::size_t) {
                       if (error == http::error::body_limit) {
                         self->fIsLast = true;
                         self->xRespond(errorResponse(413, "the body is too long"));
                       } else if (error) {
                         self->fStream.close();
                       } else {
                         self->xHandle();
                       }
                     });
  }

  void xHandle() {
    fStream.expiresNever();
    auto request = fParser->release();
    fIsLast = !request.keep_alive();
    fHead.body = std::move(request.body());
    fDesk.answer(std::move(fHead), [self = shared_from_this()](HttpResponse response) {
      self->xRespond(std::move(response));
    });
  }

  void xRespond(HttpResponse response) {
    if (std::exchange(response.isGuessRefused, false)) {
      fPause.expires_after(kGuessTime);
      fPause.async_wait(
          [self = shared_from_this(), response = std::move(response)](error_code error) mutable {
            if (!error) {
              self->xRespond(std::move(response));
            }
          });
      return;
    }
    fResponse.emplace(gateway::responseMessage(std::move(response), fVersion, fIsHead, fIsLast));
    fStream.expiresAfter(kRequestTime);
    asio::async_write(fStream, fResponse->buffers(),
                      [self = shared_from_this()](error_code error, std::size_t) {
                        self->fResponse.reset();
                        if (error || self->fIsLast) {
                          self->fStream.close();
                        } else {
                          self->read();
                        }
                      });
  }

  Desk& fDesk;
  gateway::ByteStream fStream;
  asio::steady_timer fPause;
  beast::flat_buffer fBuffer;
  std::optional<http::request_parser<http::string_body>> fParser;
  HttpRequest fHead;
  std::optional<gateway::ResponseMessage> fResponse;
  unsigned fVersion = 11;
  bool fIsLast = false;
  bool fIsHead = false;
};

std::optional<std::uint64_t> numberOf(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isOne = error == std::errc() && end == text.data() + text.size() && !text.empty();
  return isOne ? std::optional(number) : std::nullopt;
}

HttpResponse plainText(std::string text) {
  HttpResponse response;
  response.contentType = "text/plain; charset=utf-8";
  response.body = std::move(text);
  return response;
}

std::string tokenIn(const std::string& body) {
  try {
    const boost::json::value value = messages::parseJson(body);
    const boost::json::value* token =
        value.is_object() ? value.get_object().if_contains("token") : nullptr;
    return token != nullptr && token->is_string() ? std::string(token->get_string())
                                                  : std::string();
  } catch (const messages::FormatError&) {
    return {};
  }
}

} // namespace

class FleetServer::Server final : public Desk {
public:
  Server(gateway::AccessOptions options, const FleetCards& cards)
      : fAddress(options.address), fAccess(std::move(options)), fCards(cards), fAcceptor(fContext),
        fTimer(fContext), fPause(fContext) {
    xListen();
    xAccept();
    xTurn();
  }

  std::string url() const {
    const bool isSix = fAddress.host.find(':') != std::string::npos;
    return "http://" + (isSix ? "[" + fAddress.host + "]" : fAddress.host) + ":" +
           std::to_string(fAddress.port) + "/";
  }

  void run() { fContext.run(); }
  void stop() { fContext.stop(); }

private:
  using Clock = std::chrono::steady_clock;

  /// Somebody who waits for something new.
  struct Waiting {
    std::uint64_t after = 0;
    std::string session;
    Clock::time_point limit;
    AnswerLater respond;
  };

  void xListen() {
    try {
      const asio::ip::tcp::endpoint endpoint(asio::ip::make_address(fAddress.host), fAddress.port);
      fAcceptor.open(endpoint.protocol());
      fAcceptor.set_option(asio::socket_base::reuse_address(true));
      fAcceptor.bind(endpoint);
      fAcceptor.listen();
    } catch (const boost::system::system_error& error) {
      throw gateway::AccessError("--listen: " + fAddress.host + ":" +
                                     std::to_string(fAddress.port) + ": " + error.code().message(),
                                 error.code() == asio::error::address_in_use);
    }
    fAddress.port = fAcceptor.local_endpoint().port();
    fAccess.setPort(fAddress.port);
  }

  void xAccept() {
    fAcceptor.async_accept([this](error_code error, gateway::ByteStream::Socket socket) {
      if (!error && fConnections < kMostConnections) {
        ++fConnections;
        std::make_shared<FleetConnection>(*this, std::move(socket))->read();
      }
      if (!error) {
        xAccept();
        return;
      }
      // For want of descriptors, which others may give back.
      fPause.expires_after(kNewsTurn);
      fPause.async_wait([this](error_code) { xAccept(); });
    });
  }

  void xTurn() {
    fTimer.expires_after(kNewsTurn);
    fTimer.async_wait([this](error_code error) {
      if (!error) {
        xServeWaiting();
        xTurn();
      }
    });
  }

  void xServeWaiting() {
    const std::uint64_t version = fCards.version();
    const Clock::time_point now = Clock::now();
    for (auto one = fWaiting.begin(); one != fWaiting.end();) {
      if (version > one->after || now >= one->limit) {
        one->respond(xCards(one->after, one->session));
        one = fWaiting.erase(one);
      } else {
        ++one;
      }
    }
  }

  HttpResponse xCards(std::optional<std::uint64_t> after, const std::string& session) const {
    HttpResponse response;
    response.body = fCards.since(after, session);
    return response;
  }

  void ended() override { --fConnections; }

  void answer(HttpRequest request, AnswerLater respond) override {
    const std::optional<gateway::Target> target = gateway::parseTarget(request.target);
    if (!target) {
      respond(errorResponse(400, "the request's target cannot be read"));
      return;
    }
    const bool isCards = target->path == "/api/v1/fleet";
    if (std::optional<HttpResponse> refusal = xRefuse(request, isCards)) {
      respond(*std::move(refusal));
      return;
    }
    const bool isRead = request.method == "GET" || request.method == "HEAD";
    if (target->path == "/login" && request.method == "POST") {
      respond(xLogIn(request));
    } else if (!isRead) {
      respond(errorResponse(405, request.method + " is not offered here"));
    } else if (target->path == "/livez") {
      respond(plainText("ok\n"));
    } else if (isCards) {
      xAnswerCards(*target, std::move(respond));
    } else {
      respond(gateway::fileResponse(gateway::findStaticFile(gateway::fleetFiles(), target->path),
                                    request, target->path));
    }
  }

  /// The same rules as of a host's own gateway.
  std::optional<HttpResponse> xRefuse(const HttpRequest& request, bool isSecret) {
    if (!fAccess.isHostAllowed(request.host)) {
      return errorResponse(403, "this host is not known by the name that the request gives it");
    }
    if (!fAccess.isOriginAllowed(request.origin)) {
      return errorResponse(403, "pages of this origin may not use the fleet");
    }
    if (isSecret && !fAccess.isAuthorised({request.host, request.origin, request.authorization,
                                           request.cookie, ""})) {
      HttpResponse refusal = errorResponse(401, "a token is needed");
      refusal.headers.emplace_back("WWW-Authenticate", "Bearer");
      refusal.isGuessRefused = !request.authorization.empty();
      return refusal;
    }
    return std::nullopt;
  }

  void xAnswerCards(const gateway::Target& target, AnswerLater respond) {
    const std::optional<std::uint64_t> after = numberOf(target.find("after"));
    std::string session(target.find("session"));
    if (!after) {
      respond(xCards(after, session));
      return;
    }
    fWaiting.push_back(
        {*after, std::move(session), Clock::now() + kLongestWait, std::move(respond)});
  }

  HttpResponse xLogIn(const HttpRequest& request) {
    if (request.contentType != "application/json") {
      return errorResponse(415, "the Content-Type must be application/json");
    }
    HttpResponse response;
    response.body = "{}";
    if (!fAccess.needsToken()) {
      return response;
    }
    if (!fAccess.isToken(tokenIn(request.body))) {
      HttpResponse refusal = errorResponse(401, "this is not the token");
      refusal.isGuessRefused = true;
      return refusal;
    }
    response.headers.emplace_back("Set-Cookie", std::string(gateway::Access::kCookie) + "=" +
                                                    fAccess.openSession() +
                                                    "; HttpOnly; SameSite=Strict; Path=/");
    return response;
  }

  gateway::Address fAddress;
  gateway::Access fAccess;
  const FleetCards& fCards;
  std::size_t fConnections = 0;
  /// Before what waits, which holds connections, and before what lives in it.
  asio::io_context fContext{1};
  std::list<Waiting> fWaiting;
  asio::basic_socket_acceptor<asio::ip::tcp, gateway::ByteStream::executor_type> fAcceptor;
  asio::steady_timer fTimer;
  asio::steady_timer fPause;
};

FleetServer::FleetServer(gateway::AccessOptions options, const FleetCards& cards)
    : fServer(std::make_unique<Server>(std::move(options), cards)) {}

FleetServer::~FleetServer() = default;

std::string FleetServer::url() const {
  return fServer->url();
}

void FleetServer::run() {
  fServer->run();
}

void FleetServer::stop() {
  fServer->stop();
}

} // namespace gk::app
