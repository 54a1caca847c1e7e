#include "gateway/robot/RpcRequest.h"

#include "messages/json/Json.h"
#include "messages/json/JsonWriter.h"
#include "messages/text/FormatError.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

#include <cmath>
#include <utility>

namespace gk::gateway {

namespace {

namespace json = boost::json;

constexpr const char* kNullId = "null";
constexpr std::size_t kMaxIdLength = 256;

RpcCall broken(int code, std::string message, std::string id = kNullId) {
  RpcCall call;
  call.id = std::move(id);
  call.error = RpcError{code, std::move(message), {}};
  return call;
}

/// The id as it is to be sent back, or nothing when it is no id.
std::optional<std::string> idOf(const json::value& id) {
  std::string text;
  messages::JsonWriter writer(text);
  if (id.is_string() && id.get_string().size() <= kMaxIdLength) {
    writer.text({id.get_string().data(), id.get_string().size()});
  } else if (id.is_int64()) {
    writer.integer(id.get_int64());
  } else if (id.is_double() && std::isfinite(id.get_double())) {
    writer.real(id.get_double());
  } else if (id.is_null()) {
    writer.null();
  } else {
    return std::nullopt;
  }
  return text;
}

RpcCall callOf(const json::value& entry) {
  if (!entry.is_object()) {
    return broken(kInvalidRequest, "a request must be an object");
  }
  const json::object& object = entry.get_object();
  RpcCall call;
  if (const json::value* id = object.if_contains("id")) {
    std::optional<std::string> text = idOf(*id);
    if (!text) {
      return broken(kInvalidRequest, "id must be a string, a number that fits in 64 bits or null");
    }
    call.id = *std::move(text);
  }
  // Whoever sends what is no request learns so, even without an id.
  const auto invalid = [&call](std::string message) {
    return broken(kInvalidRequest, std::move(message), call.id.empty() ? kNullId : call.id);
  };
  const json::value* version = object.if_contains("jsonrpc");
  if (version == nullptr || !version->is_string() || version->get_string() != "2.0") {
    return invalid(R"(jsonrpc must be "2.0")");
  }
  const json::value* method = object.if_contains("method");
  if (method == nullptr || !method->is_string()) {
    return invalid("method must be a string");
  }
  const std::string_view name(method->get_string().data(), method->get_string().size());
  if (const json::value* params = object.if_contains("params")) {
    if (!params->is_array() && !params->is_object()) {
      return invalid("params must be an array or an object");
    }
    call.params = *params;
  }
  const std::size_t dot = name.find('.');
  if (dot == std::string_view::npos) {
    call.error = RpcError{kNoSuchMethod, "a method is called as Module.method", {}};
    return call;
  }
  call.module = name.substr(0, dot);
  call.method = name.substr(dot + 1);
  return call;
}

messages::JsonWriter& beginReply(messages::JsonWriter& writer, std::string_view id) {
  return writer.beginObject().key("jsonrpc").text("2.0").key("id").raw(id);
}

} // namespace

RpcRequest parseRpcRequest(std::string_view body) {
  RpcRequest request;
  json::value parsed;
  try {
    parsed = messages::parseJson(body);
  } catch (const messages::FormatError& error) {
    request.calls.push_back(broken(kParseError, error.what()));
    return request;
  }
  if (!parsed.is_array()) {
    request.calls.push_back(callOf(parsed));
    return request;
  }
  const json::array& entries = parsed.get_array();
  if (entries.empty() || entries.size() > kMaxBatch) {
    request.calls.push_back(
        broken(kInvalidRequest, "a batch has 1 to " + std::to_string(kMaxBatch) + " requests"));
    return request;
  }
  request.isBatch = true;
  for (const json::value& entry : entries) {
    request.calls.push_back(callOf(entry));
  }
  return request;
}

void appendRpcResult(std::string& out, std::string_view id, const GK::GKValue* value) {
  messages::JsonWriter writer(out);
  beginReply(writer, id).key("result");
  if (value != nullptr) {
    writer.value(*value);
  } else {
    writer.null();
  }
  writer.endObject();
}

void appendRpcResult(std::string& out, std::string_view id, std::string_view json) {
  messages::JsonWriter writer(out);
  beginReply(writer, id).key("result").raw(json).endObject();
}

void appendRpcError(std::string& out, std::string_view id, const RpcError& error) {
  messages::JsonWriter writer(out);
  beginReply(writer, id).key("error").beginObject();
  writer.key("code").integer(error.code).key("message").text(error.message);
  if (!error.data.empty()) {
    writer.key("data").raw(error.data);
  }
  writer.endObject().endObject();
}

RpcError raisedError(const GK::GKError& error) {
  RpcError raised{kRaisedError, error.toString(), {}};
  messages::JsonWriter(raised.data)
      .beginObject()
      .key("module")
      .text(error.getModule())
      .key("method")
      .text(error.getMethod())
      .key("description")
      .text(error.getDescription())
      .endObject();
  return raised;
}

} // namespace gk::gateway
