#include "gateway/WebSocketConnection.h"

#include "gateway/StreamSession.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <utility>

namespace gk::gateway {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using beast::error_code;

/// One client of the WebSocket protocol: reads one message at a time, and writes the next frame
/// when the one before has been taken.
class WebSocketConnection final : public Connection,
                                  public std::enable_shared_from_this<WebSocketConnection> {
public:
  WebSocketConnection(ServerParts& parts, beast::tcp_stream stream)
      : Connection(parts), fStream(std::move(stream)) {
    fParts.counters.webSocketClients.fetch_add(1, std::memory_order_relaxed);
  }
  ~WebSocketConnection() override {
    fParts.counters.webSocketClients.fetch_sub(1, std::memory_order_relaxed);
  }

  void start(const beast::http::request<beast::http::string_body>& request,
             std::string_view subprotocol) {
    beast::get_lowest_layer(fStream).expires_never();
    fStream.set_option(websocket::stream_base::timeout::suggested(beast::role_type::server));
    fStream.set_option(websocket::stream_base::decorator(
        [name = std::string(subprotocol)](websocket::response_type& response) {
          response.set(beast::http::field::sec_websocket_protocol, name);
        }));
    fStream.read_message_max(fParts.limits.message);
    // A message is in memory as a whole: in one frame it is one write.
    fStream.auto_fragment(false);
    // Small, so that what waits for a slow client waits where it can still be replaced.
    error_code ignored;
    beast::get_lowest_layer(fStream).socket().set_option(
        asio::socket_base::send_buffer_size(kSendBuffer), ignored);
    beast::get_lowest_layer(fStream).socket().set_option(asio::ip::tcp::no_delay(true), ignored);
    fStream.async_accept(request, [self = shared_from_this()](error_code error) {
      if (!error) {
        self->xOpen();
      }
    });
  }

  void goAway() override {
    xClose(websocket::close_reason(websocket::close_code::going_away, "the host ends"));
  }

  void checkStall() override {
    if (fIsWriting && Clock::now() - fWriteStart > fParts.limits.stallTime) {
      fParts.counters.abandonedClients.fetch_add(1, std::memory_order_relaxed);
      beast::get_lowest_layer(fStream).close();
    }
  }

private:
  using Clock = std::chrono::steady_clock;
  static constexpr int kSendBuffer = 256 * 1024;

  void xOpen() {
    StreamSession::Limits limits;
    limits.queue.bytes = fParts.limits.clientBytes;
    limits.queue.events = fParts.limits.clientEvents;
    limits.calls = fParts.limits.callsPerClient;
    fSession = std::make_shared<StreamSession>(fParts.hub, limits, [this] { xWrite(); });
    fSession->start();
    xRead();
  }

  void xRead() {
    fStream.async_read(fBuffer, [self = shared_from_this()](error_code error, std::size_t) {
      if (error) {
        self->xEnd();
        return;
      }
      const auto data = self->fBuffer.cdata();
      const std::string_view message(static_cast<const char*>(data.data()), data.size());
      if (self->fStream.got_text()) {
        self->fSession->onText(message);
      } else {
        self->fSession->onBinary(message);
      }
      self->fBuffer.consume(self->fBuffer.size());
      if (!self->fIsClosing) {
        self->xRead();
      }
    });
  }

  void xWrite() {
    // The session wakes us while it is being made, and while it ends.
    if (fIsWriting || fIsClosing || fSession == nullptr) {
      return;
    }
    if (fSession->isOverrun()) {
      fParts.counters.abandonedClients.fetch_add(1, std::memory_order_relaxed);
      xClose(websocket::close_reason(websocket::close_code::policy_error, "too much is unread"));
      return;
    }
    fFrame = fSession->next();
    if (!fFrame) {
      return;
    }
    fIsWriting = true;
    fWriteStart = Clock::now();
    fParts.counters.webSocketMessages.fetch_add(1, std::memory_order_relaxed);
    fStream.binary(fFrame->isBinary);
    const std::string_view body = fFrame->body != nullptr ? *fFrame->body : std::string_view();
    const std::array<asio::const_buffer, 2> buffers = {asio::buffer(fFrame->head),
                                                       asio::buffer(body.data(), body.size())};
    fStream.async_write(buffers, [self = shared_from_this()](error_code error, std::size_t) {
      self->fIsWriting = false;
      if (error) {
        self->xEnd();
      } else if (self->fCloseReason) {
        self->xSendClose(*self->fCloseReason);
      } else {
        self->xWrite();
      }
    });
  }

  void xClose(const websocket::close_reason& reason) {
    if (std::exchange(fIsClosing, true)) {
      return;
    }
    if (!fStream.is_open()) {
      beast::get_lowest_layer(fStream).close();
      return;
    }
    if (fIsWriting) {
      // After the frame that is on its way. Where that never arrives, the stall ends it all.
      fCloseReason = reason;
      return;
    }
    xSendClose(reason);
  }

  void xSendClose(const websocket::close_reason& reason) {
    fStream.async_close(reason, [self = shared_from_this()](error_code) { self->xEnd(); });
  }

  void xEnd() {
    fIsClosing = true;
    fSession.reset();
    beast::get_lowest_layer(fStream).close();
  }

  websocket::stream<beast::tcp_stream> fStream;
  beast::flat_buffer fBuffer;
  std::shared_ptr<StreamSession> fSession;
  std::optional<Frame> fFrame;
  bool fIsWriting = false;
  bool fIsClosing = false;
  std::optional<websocket::close_reason> fCloseReason;
  Clock::time_point fWriteStart;
};

} // namespace

void startWebSocket(ServerParts& parts, beast::tcp_stream stream,
                    const beast::http::request<beast::http::string_body>& request,
                    std::string_view subprotocol) {
  std::make_shared<WebSocketConnection>(parts, std::move(stream))->start(request, subprotocol);
}

} // namespace gk::gateway
