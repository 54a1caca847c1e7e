#include "app/client/HostStream.h"

#include "formats/text/Printable.h"
#include "gateway/net/ByteStream.h"
#include "messages/json/Json.h"
#include "messages/json/JsonText.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <fmt/format.h>

#include <chrono>
#include <map>
#include <optional>
#include <utility>

namespace gk::app {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
namespace json = boost::json;
using beast::error_code;

constexpr std::string_view kSubprotocol = "foxglove.sdk.v1";
/// Between two looks at what else is to be done.
constexpr std::chrono::milliseconds kPatience{200};

constexpr char kMessageData = 1;
/// Opcode, subscription (32 bits) and time (64 bits).
constexpr std::size_t kMessageHead = 13;

std::string watchText(const std::vector<std::string>& keys) {
  std::string text = R"({"op":"subscribeParameterUpdates","parameterNames":)";
  const char* separator = "[";
  for (const std::string& key : keys) {
    messages::appendJsonString(text.append(separator), key);
    separator = ",";
  }
  return text + "]}";
}

HostChannel channelOf(const json::value& announced) {
  return {static_cast<std::uint32_t>(numberMember(announced, "id")),
          textMember(announced, "topic"),
          textMember(announced, "encoding"),
          textMember(announced, "schemaName"),
          textMember(announced, "schemaEncoding"),
          textMember(announced, "schema")};
}

/// A number as the protocol writes it: little endian.
template <class Number> Number numberAt(std::string_view bytes, std::size_t place) {
  Number number = 0;
  for (std::size_t i = sizeof(Number); i-- > 0;) {
    number = (number << 8U) | static_cast<unsigned char>(bytes[place + i]);
  }
  return number;
}

} // namespace

struct HostStream::Link {
  explicit Link(HostClient& asked) : client(asked) {}

  [[noreturn]] void fail(const error_code& error) const {
    if (const websocket::close_reason& said = stream.reason();
        error == websocket::error::closed && said.code != websocket::close_code::going_away &&
        !said.reason.empty()) {
      throw ClientError(fmt::format("{} has ended the connection: {}", client.address().text(),
                                    std::string_view(said.reason.data(), said.reason.size())));
    }
    const bool isEnd = error == websocket::error::closed || error == asio::error::eof ||
                       error == asio::error::connection_reset;
    throw ClientError(
        isEnd ? "the host has ended"
              : fmt::format("no host answers at {}: {}", client.address().text(), error.message()));
  }

  /// Goes on until what was begun has ended: `error` has a value then. What else is going on, such
  /// as a read or a time limit, goes on later.
  error_code finish(const std::optional<error_code>& error) {
    context.restart();
    while (!error && context.run_one() > 0) {
    }
    return error.value_or(asio::error::operation_aborted);
  }

  void connect() {
    const HostAddress& address = client.address();
    error_code error;
    asio::ip::tcp::resolver resolver(context);
    const auto found = resolver.resolve(address.name, address.port, error);
    gateway::ByteStream& lowest = stream.next_layer();
    if (!error) {
      std::optional<error_code> connected;
      lowest.expiresAfter(kConnectTime);
      lowest.connect(found, gateway::ByteStream::Ended(
                                [&connected](error_code result) { connected = result; }));
      error = finish(connected);
    }
    if (error) {
      fail(error);
    }
    lowest.expiresNever();
    stream.set_option(websocket::stream_base::timeout::suggested(beast::role_type::client));
    stream.set_option(websocket::stream_base::decorator([this](websocket::request_type& request) {
      request.set(beast::http::field::sec_websocket_protocol, kSubprotocol);
      request.set(beast::http::field::user_agent, "gk/" GK_VERSION);
      if (!client.token().empty()) {
        request.set(beast::http::field::authorization, "Bearer " + client.token());
      }
    }));
    websocket::response_type response;
    std::optional<error_code> shaken;
    stream.async_handshake(response, address.text(), "/ws",
                           [&shaken](error_code result) { shaken = result; });
    error = finish(shaken);
    if (response.result_int() >= 400) {
      throw ClientError(fmt::format("{} refuses the connection ({}){}", address.text(),
                                    response.result_int(),
                                    response.result_int() == 401 ? ": use --token-file" : ""));
    }
    if (error) {
      fail(error);
    }
    stream.text(true);
  }

  void send(const std::string& text) {
    std::optional<error_code> written;
    stream.async_write(asio::buffer(text),
                       [&written](error_code result, std::size_t) { written = result; });
    if (const error_code error = finish(written)) {
      fail(error);
    }
  }

  /// Waits a little for the next message.
  std::optional<std::string_view> read() {
    if (!isReading) {
      isReading = true;
      buffer.clear();
      stream.async_read(buffer, [this](const error_code& error, std::size_t) {
        isReading = false;
        readError = error;
      });
      context.restart();
    }
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (isReading && std::chrono::steady_clock::now() < deadline) {
      context.run_one_until(deadline);
    }
    if (isReading) {
      return std::nullopt;
    }
    if (readError) {
      fail(readError);
    }
    const auto data = buffer.cdata();
    return std::string_view{static_cast<const char*>(data.data()), data.size()};
  }

  void subscribe(const json::value& advertisement, const Handlers& handlers) {
    std::string wanted;
    for (const json::value& announced : listMember(advertisement, "channels")) {
      HostChannel channel = channelOf(announced);
      if (handlers.wants && handlers.wants(channel)) {
        // Subscriptions go by the numbers of their channels.
        wanted += fmt::format(R"({}{{"id":{},"channelId":{}}})", wanted.empty() ? "" : ",",
                              channel.id, channel.id);
        channels.insert_or_assign(channel.id, std::move(channel));
      }
    }
    if (!wanted.empty()) {
      send(R"({"op":"subscribe","subscriptions":[)" + wanted + "]}");
    }
  }

  bool takeBinary(std::string_view bytes, const Handlers& handlers) const {
    if (bytes.size() < kMessageHead || bytes.front() != kMessageData || !handlers.message) {
      return true;
    }
    const auto channel = channels.find(numberAt<std::uint32_t>(bytes, 1));
    return channel == channels.end() ||
           handlers.message(channel->second, numberAt<std::uint64_t>(bytes, 5),
                            bytes.substr(kMessageHead));
  }

  bool takeText(std::string_view text, const Handlers& handlers) {
    const json::value message = messages::parseJson(text);
    const std::string op = textMember(message, "op");
    if (op == "advertise") {
      subscribe(message, handlers);
    } else if (op == "parameterValues" && handlers.values) {
      return handlers.values(listMember(message, "parameters"));
    } else if (op == "status") {
      const std::string said = textMember(message, "message");
      if (handlers.status) {
        handlers.status(said);
      } else {
        fmt::print(stderr, "gk: {}\n", formats::printable(said));
      }
    }
    return true;
  }

  HostClient& client;
  asio::io_context context;
  websocket::stream<gateway::ByteStream> stream{context};
  beast::flat_buffer buffer;
  bool isReading = false;
  error_code readError;
  /// Those that are subscribed to.
  std::map<std::uint32_t, HostChannel> channels;
};

HostStream::HostStream(HostClient& client) : fLink(std::make_unique<Link>(client)) {}

HostStream::~HostStream() = default;

void HostStream::run(const std::vector<std::string>& keys, const Handlers& handlers) {
  fLink->connect();
  if (!keys.empty()) {
    fLink->send(watchText(keys));
  }
  bool isGoingOn = true;
  while (isGoingOn) {
    if (const std::optional<std::string_view> message = fLink->read()) {
      isGoingOn = fLink->stream.got_text() ? fLink->takeText(*message, handlers)
                                           : fLink->takeBinary(*message, handlers);
    }
    isGoingOn = isGoingOn && (!handlers.meanwhile || handlers.meanwhile());
  }
}

} // namespace gk::app
