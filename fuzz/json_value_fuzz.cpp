#include "fuzz/Require.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"

#include <string>
#include <string_view>

// Any text as a JSON value. What is accepted can be written, and what was written reads back to the
// same value.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const GK::GKValue value = gk::messages::valueFromJson(gk::messages::parseJson(text));
    std::string written;
    gk::messages::appendJson(written, value);
    const GK::GKValue again = gk::messages::valueFromJson(gk::messages::parseJson(written));
    std::string rewritten;
    gk::messages::appendJson(rewritten, again);
    gk::fuzz::require(again.type() == value.type(), "the type survives writing and reading");
    gk::fuzz::require(written == rewritten, "the value survives writing and reading");
  } catch (const gk::messages::FormatError&) {
    // Refused: fine, as long as what was written is not.
  }
  return 0;
}
