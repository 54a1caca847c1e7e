#include "gateway/server/WebSocketConnection.h"

#include "formats/text/Printable.h"
#include "gateway/server/FrameStream.h"
#include "gateway/stream/StreamSession.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>

namespace gk::gateway {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using beast::error_code;

/// Appends a message as one frame of a server (RFC 6455, section 5.2).
void appendFrame(std::string& out, const Frame& frame) {
  constexpr unsigned kFinal = 0x80;
  constexpr std::size_t kLongestByte = 125;
  const std::size_t size = frame.size();
  out += static_cast<char>(kFinal | (frame.isBinary ? 2U : 1U));
  unsigned lengthBits = 0;
  if (size <= kLongestByte) {
    out += static_cast<char>(size);
  } else if (size <= std::numeric_limits<std::uint16_t>::max()) {
    out += static_cast<char>(126);
    lengthBits = 16;
  } else {
    out += static_cast<char>(127);
    lengthBits = 64;
  }
  while (lengthBits > 0) {
    lengthBits -= 8;
    out += static_cast<char>((static_cast<std::uint64_t>(size) >> lengthBits) & 0xFFU);
  }
  out += frame.head;
  if (frame.body != nullptr) {
    out += *frame.body;
  }
}

StreamSession::Limits sessionLimits(const GatewayLimits& limits) {
  StreamSession::Limits session;
  session.queue.bytes = limits.clientBytes;
  session.queue.events = limits.clientEvents;
  session.calls = limits.callsPerClient;
  session.name = limits.name;
  session.answer = std::min(limits.answer, limits.clientBytes / 2);
  return session;
}

/// One client of the WebSocket protocol: reads one message at a time, and writes what waits, as
/// many frames at once as there are, when what was written before has been taken. A system call
/// costs more than a copy of what fits into it.
///
/// The one owner of everything that belongs to the client, from the request for a WebSocket on.
/// Whatever is under way holds the connection, and the connection holds all of its parts until it
/// goes itself: there is no moment at which a handler could find one of them missing. The client
/// may vanish at any time; what comes of that is that the operations under way end with an error.
class WebSocketConnection final : public Connection,
                                  public std::enable_shared_from_this<WebSocketConnection> {
public:
  WebSocketConnection(ServerParts& parts, ByteStream stream)
      : Connection(parts), fStream(std::move(stream), parts.options.now),
        fSession(parts.hub.join(sessionLimits(parts.options.limits), [this] { xWake(); })) {
    fParts.counters.webSocketClients.fetch_add(1, std::memory_order_relaxed);
  }
  ~WebSocketConnection() override {
    fParts.counters.webSocketClients.fetch_sub(1, std::memory_order_relaxed);
  }

  void start(const beast::http::request<beast::http::string_body>& request,
             std::string_view subprotocol) {
    fStream.next_layer().next_layer().expiresNever();
    xName(request);
    fStream.set_option(websocket::stream_base::timeout::suggested(beast::role_type::server));
    fStream.set_option(websocket::stream_base::decorator(
        [name = std::string(subprotocol)](websocket::response_type& response) {
          response.set(beast::http::field::sec_websocket_protocol, name);
        }));
    fStream.read_message_max(fParts.options.limits.message);
    // Small, so that what waits for a slow client waits where it can still be replaced.
    error_code ignored;
    fStream.next_layer().next_layer().socket().set_option(
        asio::socket_base::send_buffer_size(kSendBuffer), ignored);
    fStream.next_layer().next_layer().socket().set_option(asio::ip::tcp::no_delay(true), ignored);
    fStream.async_accept(request, [self = shared_from_this()](error_code error) {
      if (!error && !self->fIsClosing) {
        self->xRead();
        self->xWrite();
      }
    });
  }

  void goAway() override {
    xClose(websocket::close_reason(websocket::close_code::going_away, "the host ends"));
  }

  void checkStall() override {
    if (fStream.next_layer().stalledFor() > fParts.options.limits.stallTime) {
      fParts.counters.abandonedClients.fetch_add(1, std::memory_order_relaxed);
      fStream.next_layer().next_layer().close();
    }
  }

private:
  static constexpr int kSendBuffer = 256 * 1024;
  /// Bytes of a client's own name that are kept.
  static constexpr std::size_t kName = 80;
  /// A batch that has so many bytes gets no further frame.
  static constexpr std::size_t kBatch = 64 * 1024;

  /// Where the client is, and what it calls itself.
  void xName(const beast::http::request<beast::http::string_body>& request) {
    error_code error;
    const auto peer = fStream.next_layer().next_layer().socket().remote_endpoint(error);
    std::string name = error ? "?" : peer.address().to_string() + ":" + std::to_string(peer.port());
    const auto agent = request[beast::http::field::user_agent];
    name += agent.empty() ? "" : " ";
    name.append(agent.data(), std::min<std::size_t>(agent.size(), kName));
    fSession->setName(formats::printable(name));
  }

  void xRead() {
    fStream.async_read(fBuffer, [self = shared_from_this()](error_code error, std::size_t) {
      if (error) {
        self->xEnd();
        return;
      }
      if (self->fIsClosing) {
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

  /// Writes when everything of this moment is there: a tick makes several messages. Called by the
  /// session, also while the connection is being made or is going: then nothing of it may be used.
  void xWake() {
    if (!weak_from_this().expired() && !fIsWriting && !fIsClosing && fParts.wake(*this)) {
      asio::post(fStream.get_executor(), [&parts = fParts] { parts.writeWoken(); });
    }
  }

  void write() override {
    // Nobody holds a connection that is going.
    if (const std::shared_ptr<WebSocketConnection> self = weak_from_this().lock()) {
      xWrite();
    }
  }

  void xWrite() {
    if (fIsWriting || fIsClosing || !fStream.is_open()) {
      return;
    }
    if (fSession->isOverrun()) {
      fParts.counters.abandonedClients.fetch_add(1, std::memory_order_relaxed);
      xClose(websocket::close_reason(websocket::close_code::policy_error, "too much is unread"));
      return;
    }
    std::size_t written = 0;
    do {
      xFillBatch();
      if (fBatch.empty()) {
        return;
      }
      error_code error;
      written = fStream.next_layer().writeNow(asio::buffer(fBatch), error);
      if (error) {
        xEnd();
        return;
      }
    } while (written == fBatch.size());
    fIsWriting = true;
    fStream.next_layer().async_write_some(
        asio::buffer(fBatch) + written, [self = shared_from_this()](error_code error, std::size_t) {
          self->fIsWriting = false;
          if (error) {
            self->xEnd();
          } else {
            self->xWrite();
          }
        });
  }

  void xFillBatch() {
    if (fBatch.capacity() > 2 * kBatch) {
      fBatch = {};
    }
    fBatch.clear();
    std::uint64_t frames = 0;
    while (fBatch.size() < kBatch) {
      const std::optional<Frame> frame = fSession->next();
      if (!frame) {
        break;
      }
      appendFrame(fBatch, *frame);
      ++frames;
    }
    fParts.counters.webSocketMessages.fetch_add(frames, std::memory_order_relaxed);
  }

  /// Says goodbye after what is on its way. Where that never arrives, the stall ends it all.
  void xClose(const websocket::close_reason& reason) {
    if (std::exchange(fIsClosing, true)) {
      return;
    }
    if (!fStream.is_open()) {
      fStream.next_layer().next_layer().close();
      return;
    }
    fStream.async_close(reason, [self = shared_from_this()](error_code) { self->xEnd(); });
  }

  /// Ends all that is under way, and with it the connection.
  void xEnd() {
    fIsClosing = true;
    fStream.next_layer().next_layer().close();
  }

  websocket::stream<FrameStream> fStream;
  beast::flat_buffer fBuffer;
  /// Never null, and nobody else's.
  const std::shared_ptr<StreamSession> fSession;
  /// The frames that are being written.
  std::string fBatch;
  bool fIsWriting = false;
  bool fIsClosing = false;
};

} // namespace

void startWebSocket(ServerParts& parts, ByteStream stream,
                    const beast::http::request<beast::http::string_body>& request,
                    std::string_view subprotocol) {
  std::make_shared<WebSocketConnection>(parts, std::move(stream))->start(request, subprotocol);
}

} // namespace gk::gateway
