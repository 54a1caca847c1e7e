#include "app/HostStream.h"

#include "formats/Json.h"
#include "formats/JsonText.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/websocket.hpp>
#include <fmt/format.h>

#include <optional>

namespace gk::app {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
namespace json = boost::json;
using beast::error_code;

constexpr std::chrono::seconds kConnectTime{3};
constexpr std::string_view kSubprotocol = "foxglove.sdk.v1";
constexpr std::uint32_t kSubscription = 1;
constexpr char kMessageData = 1;
constexpr std::size_t kMessageHead = 13;

std::string watchText(const std::vector<std::string>& keys) {
  std::string text = R"({"op":"subscribeParameterUpdates","parameterNames":)";
  const char* separator = "[";
  for (const std::string& key : keys) {
    formats::appendJsonString(text.append(separator), key);
    separator = ",";
  }
  return text + "]}";
}

} // namespace

struct HostStream::Link {
  explicit Link(HostClient& asked) : client(asked) {}

  [[noreturn]] void fail(const error_code& error) const {
    const bool isEnd = error == websocket::error::closed || error == asio::error::eof ||
                       error == asio::error::connection_reset;
    throw ClientError(
        isEnd ? "the host has ended"
              : fmt::format("no host answers at {}: {}", client.address().text(), error.message()));
  }

  void connect() {
    const HostAddress& address = client.address();
    error_code error;
    asio::ip::tcp::resolver resolver(context);
    const auto found = resolver.resolve(address.name, address.port, error);
    beast::tcp_stream& lowest = beast::get_lowest_layer(stream);
    if (!error) {
      lowest.expires_after(kConnectTime);
      lowest.async_connect(found, [&error](error_code result, const auto&) { error = result; });
      context.run();
    }
    if (error) {
      fail(error);
    }
    lowest.expires_never();
    stream.set_option(websocket::stream_base::timeout::suggested(beast::role_type::client));
    stream.set_option(websocket::stream_base::decorator([this](websocket::request_type& request) {
      request.set(beast::http::field::sec_websocket_protocol, kSubprotocol);
      if (!client.token().empty()) {
        request.set(beast::http::field::authorization, "Bearer " + client.token());
      }
    }));
    websocket::response_type response;
    stream.handshake(response, address.text(), "/ws", error);
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
    error_code error;
    stream.write(asio::buffer(text), error);
    if (error) {
      fail(error);
    }
  }

  /// Waits for the next message.
  std::string_view read() {
    buffer.clear();
    error_code error;
    stream.read(buffer, error);
    if (error) {
      fail(error);
    }
    const auto data = buffer.cdata();
    return {static_cast<const char*>(data.data()), data.size()};
  }

  void subscribe(const json::value& advertisement, const std::string& topic) {
    for (const json::value& channel : listMember(advertisement, "channels")) {
      if (!topic.empty() && textMember(channel, "topic") == topic) {
        send(fmt::format(R"({{"op":"subscribe","subscriptions":[{{"id":{},"channelId":{:.0f}}}]}})",
                         kSubscription, numberMember(channel, "id")));
      }
    }
  }

  HostClient& client;
  asio::io_context context;
  websocket::stream<beast::tcp_stream> stream{context};
  beast::flat_buffer buffer;
};

HostStream::HostStream(HostClient& client) : fLink(std::make_unique<Link>(client)) {}

HostStream::~HostStream() = default;

void HostStream::run(const std::string& topic, const std::vector<std::string>& keys,
                     const Handlers& handlers) {
  fLink->connect();
  if (!keys.empty()) {
    fLink->send(watchText(keys));
  }
  bool isGoingOn = true;
  while (isGoingOn) {
    const std::string_view text = fLink->read();
    if (!fLink->stream.got_text()) {
      if (text.size() >= kMessageHead && text.front() == kMessageData) {
        isGoingOn = handlers.message(text.substr(kMessageHead));
      }
      continue;
    }
    const json::value message = formats::parseJson(text);
    const std::string op = textMember(message, "op");
    if (op == "advertise") {
      fLink->subscribe(message, topic);
    } else if (op == "parameterValues") {
      isGoingOn = handlers.values(listMember(message, "parameters"));
    } else if (op == "status") {
      fmt::print(stderr, "gk: {}\n", textMember(message, "message"));
    }
  }
}

} // namespace gk::app
