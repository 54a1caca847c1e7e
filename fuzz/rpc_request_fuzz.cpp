#include "gateway/http/Http.h"
#include "gateway/robot/RpcRequest.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

// Bodies of JSON-RPC requests and targets of HTTP requests, from anybody.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const gk::gateway::RpcRequest request = gk::gateway::parseRpcRequest(text);
  std::string replies;
  for (const gk::gateway::RpcCall& call : request.calls) {
    if (call.error) {
      gk::gateway::appendRpcError(replies, call.isNotification() ? "null" : call.id, *call.error);
    }
  }
  // Whatever came in, something can be answered.
  if (request.calls.empty() || request.calls.size() > gk::gateway::kMaxBatch) {
    std::abort();
  }
  gk::gateway::parseTarget(text);
  return 0;
}
