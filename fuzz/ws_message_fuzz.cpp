#include "gateway/stream/ClientMessage.h"
#include "messages/text/FormatError.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

// Messages of WebSocket clients: the first byte chooses between text and binary frames.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string_view message(reinterpret_cast<const char*>(data + 1), size - 1);
  try {
    if ((data[0] & 1U) != 0) {
      gk::gateway::parseClientText(message);
    } else {
      gk::gateway::parseClientBinary(message);
    }
  } catch (const gk::messages::FormatError&) { // NOLINT(bugprone-empty-catch): the expected refusal
  }
  return 0;
}
