#include "app/client/HostClient.h"

#include "app/options/Command.h"
#include "formats/text/Printable.h"
#include "gateway/http/Access.h"
#include "gateway/net/ByteStream.h"
#include "gateway/robot/RpcRequest.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"
#include "messages/text/FormatError.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace gk::app {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace json = boost::json;
using beast::error_code;

constexpr std::chrono::seconds kAnswerTime{60};
constexpr std::size_t kLargestAnswer = 64U << 20U;
constexpr unsigned kNotFound = 404;

} // namespace

void addClientOptions(const Command& command, ClientOptions& options) {
  options.host = kDefaultAddress;
  command.option("--host", options.host, "The host to ask")
      .orFrom("GK_HOST")
      .shows("NAME:PORT")
      .showsDefault();
  command.option("--token-file", options.tokenFile, "Where the host's token is (mode 0600)")
      .orFrom("GK_TOKEN_FILE")
      .shows("FILE");
  command.flag("--json", options.isJson, "Answer in JSON");
}

/// The connection, kept from one request to the next.
struct HostClient::Link {
  asio::io_context context;
  std::optional<gateway::ByteStream> stream;
  beast::flat_buffer buffer;

  /// Runs what was begun to its end.
  void finish() {
    context.restart();
    context.run();
  }

  error_code connect(const HostAddress& address) {
    error_code error;
    asio::ip::tcp::resolver resolver(context);
    const auto found = resolver.resolve(address.name, address.port, error);
    if (error) {
      return error;
    }
    stream.emplace(context);
    buffer.clear();
    stream->expiresAfter(kConnectTime);
    stream->connect(found,
                    gateway::ByteStream::Ended([&error](error_code result) { error = result; }));
    finish();
    return error;
  }

  error_code exchange(const http::request<http::string_body>& request,
                      http::response_parser<http::string_body>& parser) {
    error_code error;
    stream->expiresAfter(kAnswerTime);
    http::async_write(*stream, request, [&](error_code written, std::size_t) {
      error = written;
      if (!error) {
        http::async_read(*stream, buffer, parser,
                         [&error](error_code read, std::size_t) { error = read; });
      }
    });
    finish();
    return error;
  }
};

HostClient::HostClient(const ClientOptions& options)
    : fAddress(parseHost(options.host)),
      fToken(options.tokenFile.empty() ? std::string() : gateway::readToken(options.tokenFile)),
      fLink(std::make_unique<Link>()) {}

HostClient::~HostClient() = default;

std::string HostClient::get(const std::string& target) {
  return xSend("GET", target, {});
}

std::string HostClient::put(const std::string& target, std::string body) {
  return xSend("PUT", target, std::move(body));
}

std::string HostClient::post(const std::string& target, std::string body) {
  return xSend("POST", target, std::move(body));
}

std::string HostClient::xSend(const char* method, const std::string& target, std::string body) {
  http::request<http::string_body> request(http::string_to_verb(method), target, 11);
  request.set(http::field::host, fAddress.text());
  request.set(http::field::user_agent, "gk/" GK_VERSION);
  if (!fToken.empty()) {
    request.set(http::field::authorization, "Bearer " + fToken);
  }
  if (request.method() != http::verb::get) {
    request.set(http::field::content_type, "application/json");
    request.body() = std::move(body);
    request.prepare_payload();
  }
  http::response_parser<http::string_body> parser;
  parser.body_limit(kLargestAnswer);
  const bool isFresh = !fLink->stream.has_value();
  error_code error = isFresh ? fLink->connect(fAddress) : error_code();
  if (!error) {
    error = fLink->exchange(request, parser);
  }
  if (error) {
    fLink->stream.reset();
    throw ClientError(fmt::format("no host answers at {}: {}", fAddress.text(), error.message()));
  }
  if (!parser.get().keep_alive()) {
    fLink->stream.reset();
  }
  std::string answer = std::move(parser.get().body());
  const unsigned status = parser.get().result_int();
  if (status >= 400) {
    std::string reason = fmt::format("{} answers {}", fAddress.text(), status);
    try {
      const std::string told = textMember(member(messages::parseJson(answer), "error"), "message");
      if (status == kNotFound && !told.empty()) {
        throw UnknownName(told, status);
      }
      reason = told.empty() ? reason : told;
    } catch (const messages::FormatError&) { // NOLINT(bugprone-empty-catch): the status must do
    }
    throw ClientError(status == 401 ? reason + ": use --token-file" : reason, status);
  }
  return answer;
}

json::value verdictOf(HostClient& client) {
  try {
    return client.getJson("/api/v1/verdict");
  } catch (const ClientError&) {
    return {};
  }
}

json::value HostClient::getJson(const std::string& target) {
  const std::string answer = get(target);
  try {
    return messages::parseJson(answer);
  } catch (const messages::FormatError& error) {
    throw ClientError(fAddress.text() + " answers something else than a host: " + error.what());
  }
}

std::vector<json::value> HostClient::getList(const std::string& target, std::string_view list) {
  return listOf(getJson(target), list);
}

std::vector<json::value> HostClient::listOf(const json::value& answer,
                                            std::string_view list) const {
  if (!member(answer, list).is_array()) {
    throw ClientError(fmt::format("{} answers something else than a host: there are no {}",
                                  fAddress.text(), list));
  }
  return listMember(answer, list);
}

json::value HostClient::call(const std::string& method, const std::string& params) {
  std::string request = R"({"jsonrpc":"2.0","id":1,"method":)";
  messages::appendJsonString(request, method);
  request += R"(,"params":)" + params + "}";
  const json::value answer = messages::parseJson(post("/rpc", std::move(request)));
  if (member(answer, "jsonrpc").is_null()) {
    throw ClientError(fAddress.text() + " answers something else than a host");
  }
  if (const json::value& error = member(answer, "error"); !error.is_null()) {
    const std::string message = textMember(error, "message");
    const json::value& code = member(error, "code");
    if (code.is_int64() && code.get_int64() == gateway::kNoSuchMethod) {
      throw UnknownName(message, kNotFound);
    }
    throw ClientError(message, 200);
  }
  return member(answer, "result");
}

std::string escapedPath(std::string_view text) {
  constexpr std::string_view plain = "-._~/";
  std::string escaped;
  for (const char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0 || plain.find(c) != std::string::npos) {
      escaped += c;
    } else {
      escaped += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
  }
  return escaped;
}

const json::value& member(const json::value& object, std::string_view name) {
  static const json::value nothing;
  const json::value* found =
      object.is_object() ? object.get_object().if_contains({name.data(), name.size()}) : nullptr;
  return found != nullptr ? *found : nothing;
}

std::string textMember(const json::value& object, std::string_view name) {
  const json::value& value = member(object, name);
  return value.is_string() ? std::string(value.get_string().data(), value.get_string().size())
                           : std::string();
}

double numberMember(const json::value& object, std::string_view name) {
  return messages::numberFromJson(member(object, name)).value_or(0);
}

std::vector<json::value> listMember(const json::value& object, std::string_view name) {
  const json::value& value = member(object, name);
  return value.is_array()
             ? std::vector<json::value>(value.get_array().begin(), value.get_array().end())
             : std::vector<json::value>();
}

std::string valueText(const json::value& value) {
  std::string text;
  try {
    messages::appendJson(text, messages::valueFromJson(value));
  } catch (const messages::FormatError&) {
    text = json::serialize(value);
  }
  return text;
}

int runClient(const std::function<int()>& work) {
  try {
    return work();
  } catch (const UnknownName& error) {
    fmt::print(stderr, "gk: {}\n", formats::printable(error.what()));
    return kBadInput;
  } catch (const ClientError& error) {
    fmt::print(stderr, "gk: {}\n", formats::printable(error.what()));
  } catch (const gateway::AccessError& error) {
    fmt::print(stderr, "gk: {}\n", error.what());
    return kBadInput;
  } catch (const messages::FormatError& error) {
    fmt::print(stderr, "gk: the host's answer cannot be read: {}\n", error.what());
  }
  return kFailure;
}

} // namespace gk::app
