#include "gateway/http/Http.h"
#include "gateway/server/Connections.h"
#include "gateway/server/RequestRules.h"
#include "gateway/server/ResponseMessage.h"
#include "gateway/server/WebSocketConnection.h"
#include "gateway/stream/ServerMessage.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <utility>

namespace gk::gateway {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using beast::error_code;

/// Answers of more bytes than this are large.
constexpr std::size_t kLargeAnswer = 64U << 10U;

/// One HTTP client: reads a request, waits for its answer, writes it, and so on.
class HttpConnection final : public Connection,
                             public std::enable_shared_from_this<HttpConnection> {
public:
  HttpConnection(ServerParts& parts, ByteStream::Socket socket)
      : Connection(parts), fStream(std::move(socket)), fPause(fStream.get_executor()) {}
  ~HttpConnection() override { xCountAnswer(0); }

  void goAway() override {
    fPause.cancel();
    fStream.close();
  }

  void checkStall() override {
    if (Clock::now() >= fDeadline) {
      fDeadline = kNever;
      fStream.close();
    }
  }

  void readHeader() {
    fParser.emplace();
    fParser->header_limit(fParts.options.limits.header);
    fParser->body_limit(fParts.options.limits.body);
    xLimit(fParts.options.limits.headerTime);
    http::async_read_header(fStream, fBuffer, *fParser,
                            [self = shared_from_this()](error_code error, std::size_t) {
                              if (error) {
                                self->xRefuse(error);
                              } else {
                                self->xReadBody();
                              }
                            });
  }

  void refuseForLoad() {
    fIsLast = true;
    fIsTooMany = true;
    xRespond(errorResponse(503, "too many connections"));
  }

private:
  void xReadBody() {
    const auto& header = fParser->get();
    fHead = requestHead(header);
    fVersion = header.version();
    if (std::optional<HttpResponse> refusal = refuseFraming(header)) {
      fIsLast = true;
      fIsHead = header.method() == http::verb::head;
      xRespond(*std::move(refusal));
      return;
    }
    const bool isAwaited = fVersion > kOneDotZero && header.count(http::field::expect) > 0;
    if (isAwaited && !fParser->is_done()) {
      xLimit(fParts.options.limits.bodyTime);
      static constexpr std::string_view go = "HTTP/1.1 100 Continue\r\n\r\n";
      asio::async_write(fStream, asio::buffer(go.data(), go.size()),
                        [self = shared_from_this()](error_code error, std::size_t) {
                          if (error) {
                            self->xEnd();
                          } else {
                            self->xReadRest();
                          }
                        });
      return;
    }
    xReadRest();
  }

  void xReadRest() {
    // Most requests have come as a whole.
    fParser->eager(true);
    if (!fParser->is_done() && fBuffer.size() > 0) {
      error_code error;
      fBuffer.consume(fParser->put(fBuffer.data(), error));
      if (error && error != http::error::need_more) {
        xRefuse(error);
        return;
      }
    }
    if (fParser->is_done()) {
      xHandle();
      return;
    }
    xLimit(fParts.options.limits.bodyTime);
    http::async_read(fStream, fBuffer, *fParser,
                     [self = shared_from_this()](error_code error, std::size_t) {
                       if (error) {
                         self->xRefuse(error);
                       } else {
                         self->xHandle();
                       }
                     });
  }

  /// What cannot be read ends the connection; where there is somebody to tell why, it is told.
  void xRefuse(error_code error) {
    fIsLast = true;
    if (error == http::error::header_limit) {
      xRespond(errorResponse(431, "the headers are too long"));
    } else if (error == http::error::body_limit) {
      xRespond(errorResponse(413, "the body is too long"));
    } else if (error == http::error::bad_version) {
      xRespond(errorResponse(505, "only HTTP/1.0 and HTTP/1.1 are spoken here"));
    } else if (error.category() == http::make_error_code(http::error::bad_method).category() &&
               error != http::error::end_of_stream && error != http::error::partial_message) {
      xRespond(errorResponse(400, "this is no HTTP request: " + error.message()));
    } else {
      xEnd();
    }
  }

  void xHandle() {
    // A call takes the time that it takes.
    fDeadline = kNever;
    fRequest = fParser->release();
    fIsLast = !fRequest.keep_alive();
    fIsHead = fRequest.method() == http::verb::head;
    if (beast::websocket::is_upgrade(fRequest)) {
      xUpgrade(fHead);
      return;
    }
    HttpRequest plain = std::move(fHead);
    plain.body = std::move(fRequest.body());
    fParts.resources.handle(fParts.hub.offer().robot(), std::move(plain),
                            [self = xHold()](HttpResponse response) {
                              asio::dispatch(self->fStream.get_executor(),
                                             [self, response = std::move(response)]() mutable {
                                               self->xRespond(std::move(response));
                                             });
                            });
  }

  /// This connection for whoever answers, maybe on another thread. However that ends, answered or
  /// not, the connection is let go of on its own thread.
  std::shared_ptr<HttpConnection> xHold() {
    return {this, [self = shared_from_this()](HttpConnection*) mutable {
              const auto executor = self->fStream.get_executor();
              asio::dispatch(executor, [self = std::move(self)] {});
            }};
  }

  void xUpgrade(const HttpRequest& request) {
    const std::optional<Target> target = parseTarget(request.target);
    if (!target || (target->path != "/" && target->path != "/ws")) {
      xRespond(errorResponse(404, "WebSockets are at / and /ws"));
      return;
    }
    if (auto refusal = fParts.resources.refuse(request, *target, false)) {
      xRespond(*std::move(refusal));
      return;
    }
    const std::string_view subprotocol =
        chooseSubprotocol(std::string_view(fRequest[http::field::sec_websocket_protocol]));
    if (subprotocol.empty()) {
      xRespond(errorResponse(400, "the subprotocol must be foxglove.sdk.v1 or "
                                  "foxglove.websocket.v1"));
      return;
    }
    if (fParts.counters.webSocketClients.load() >= fParts.options.limits.webSocketClients) {
      xRespond(errorResponse(503, "too many clients"));
      return;
    }
    startWebSocket(fParts, std::move(fStream), fRequest, subprotocol);
  }

  void xRespond(HttpResponse response) {
    if (std::exchange(response.isGuessRefused, false)) {
      // Whoever guesses learns slowly; nobody else waits.
      fPause.expires_after(fParts.options.limits.guessTime);
      fPause.async_wait(
          [self = shared_from_this(), response = std::move(response)](error_code error) mutable {
            if (!error) {
              self->xRespond(std::move(response));
            }
          });
      return;
    }
    if (response.body.size() > kLargeAnswer &&
        fParts.largeAnswers + response.body.size() > fParts.options.limits.largeAnswers) {
      response = errorResponse(503, "too many large answers have not been taken yet");
    }
    xCountAnswer(response.body.size() > kLargeAnswer ? response.body.size() : 0);
    fParts.counters.addResponse(response.status);
    fResponse.emplace(responseMessage(std::move(response), fVersion, fIsHead, fIsLast));
    error_code error;
    const std::size_t written = fStream.write_some(fResponse->buffers(), error);
    const bool isFailure = error && error != asio::error::would_block;
    if (isFailure || written == fResponse->size()) {
      xResponded(error);
      return;
    }
    // The client takes the rest in its own time.
    xLimit(fParts.options.limits.bodyTime);
    asio::async_write(
        fStream, fResponse->buffers(written),
        [self = shared_from_this()](error_code late, std::size_t) { self->xResponded(late); });
  }

  void xResponded(error_code error) {
    xCountAnswer(0);
    fResponse.reset();
    if (error || fIsLast) {
      xEnd();
    } else {
      readHeader();
    }
  }

  /// The answer that is being written has so many large bytes.
  void xCountAnswer(std::size_t bytes) {
    fParts.largeAnswers += bytes;
    fParts.largeAnswers -= std::exchange(fLargeBytes, bytes);
  }

  /// Takes what the client still sends, for a moment: closing on unread bytes would take the answer
  /// away from it (RFC 9112, section 9.6).
  void xEnd() {
    error_code error;
    fStream.socket().shutdown(asio::ip::tcp::socket::shutdown_send, error);
    if (error || fIsTooMany) {
      fStream.close();
      return;
    }
    xLimit(kLingering);
    xDiscard();
  }

  void xDiscard() {
    fBuffer.clear();
    fStream.async_read_some(fBuffer.prepare(kDiscarded),
                            [self = shared_from_this()](error_code error, std::size_t) {
                              if (error) {
                                self->fStream.close();
                              } else {
                                self->xDiscard();
                              }
                            });
  }

  using Clock = std::chrono::steady_clock;

  /// What takes longer from now on ends the connection. Looked at now and then: a timer for each
  /// request would cost as much as reading it.
  void xLimit(Clock::duration limit) { fDeadline = Clock::now() + limit; }

  static constexpr Clock::time_point kNever = Clock::time_point::max();
  static constexpr std::chrono::seconds kLingering{1};
  static constexpr std::size_t kDiscarded = 16 * 1024;
  static constexpr unsigned kOneDotZero = 10;

  ByteStream fStream;
  asio::steady_timer fPause;
  beast::flat_buffer fBuffer;
  std::optional<http::request_parser<http::string_body>> fParser;
  /// What the request's header says.
  HttpRequest fHead;
  http::request<http::string_body> fRequest;
  std::optional<ResponseMessage> fResponse;
  Clock::time_point fDeadline = kNever;
  unsigned fVersion = 11;
  bool fIsLast = false;
  bool fIsHead = false;
  bool fIsTooMany = false;
  std::size_t fLargeBytes = 0;
};

} // namespace

Connection::Connection(ServerParts& parts) : fParts(parts) {
  fParts.connections.insert(this);
  fParts.counters.connections.store(fParts.connections.size(), std::memory_order_relaxed);
}

Connection::~Connection() {
  fParts.connections.erase(this);
  fParts.counters.connections.store(fParts.connections.size(), std::memory_order_relaxed);
}

bool ServerParts::wake(Connection& connection) {
  if (connection.is_linked()) {
    return false;
  }
  const bool isFirst = woken.empty();
  woken.push_back(connection);
  return isFirst;
}

void ServerParts::writeWoken() {
  // Who is woken meanwhile has a turn of its own.
  Woken present;
  present.swap(woken);
  while (!present.empty()) {
    Connection& connection = present.front();
    present.pop_front();
    connection.write();
  }
}

void startConnection(ServerParts& parts, ByteStream::Socket socket) {
  const bool isTooMany = parts.connections.size() >= parts.options.limits.connections;
  const auto connection = std::make_shared<HttpConnection>(parts, std::move(socket));
  if (isTooMany) {
    connection->refuseForLoad();
  } else {
    connection->readHeader();
  }
}

} // namespace gk::gateway
