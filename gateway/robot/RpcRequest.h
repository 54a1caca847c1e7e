#pragma once

#include "gk/GKError.h"
#include "gk/GKValue.h"

#include <boost/json/value.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// JSON-RPC 2.0 (https://www.jsonrpc.org/specification): the requests' and replies' texts. Any
/// thread.
namespace gk::gateway {

/// Error codes of the protocol, and ours from -32000 on.
enum RpcCode : int {
  kParseError = -32700,
  kInvalidRequest = -32600,
  kNoSuchMethod = -32601,
  kInvalidParams = -32602,
  kInternalError = -32603,
  kRaisedError = -32000,  ///< the method raised a `GKError`
  kTooManyCalls = -32001, ///< too many calls are running; later it may work
  kTooLarge = -32002      ///< the call was carried out, but its result makes the answer too large
};

/// What is wrong with one request.
struct RpcError {
  int code = kInternalError;
  std::string message;
  /// JSON; empty for none.
  std::string data;
};

struct RpcCall {
  /// The id as JSON; empty for a notification, which gets no reply.
  std::string id;
  /// "Module.method", in two.
  std::string module;
  std::string method;
  /// An array, an object, or null where there are none.
  boost::json::value params;
  /// Set when the request makes no sense; then it is to be answered with this.
  std::optional<RpcError> error;

  bool isNotification() const noexcept { return id.empty(); }
};

struct RpcRequest {
  std::vector<RpcCall> calls;
  /// Its reply is an array.
  bool isBatch = false;
};

constexpr std::size_t kMaxBatch = 64;

/// Reads a request's body. What is wrong with single calls stands in them; a text that cannot be
/// read makes one call with an error and the id null. Never raises anything.
RpcRequest parseRpcRequest(std::string_view body);

/// Each appends one reply object. `value` is null for a method without result; `json` is a result
/// that is JSON already.
void appendRpcResult(std::string& out, std::string_view id, const GK::GKValue* value);
void appendRpcResult(std::string& out, std::string_view id, std::string_view json);
void appendRpcError(std::string& out, std::string_view id, const RpcError& error);

/// The error of a method that raised `error`.
RpcError raisedError(const GK::GKError& error);

} // namespace gk::gateway
