#include "formats/json/Json.h"
#include "formats/json/JsonValue.h"
#include "fuzz/Require.h"

#include <string>
#include <string_view>

// Any text as a JSON value. What is accepted can be written, and what was written reads back to the
// same value.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const GK::GKValue value = gk::formats::valueFromJson(gk::formats::parseJson(text));
    std::string written;
    gk::formats::appendJson(written, value);
    const GK::GKValue again = gk::formats::valueFromJson(gk::formats::parseJson(written));
    std::string rewritten;
    gk::formats::appendJson(rewritten, again);
    gk::fuzz::require(again.type() == value.type(), "the type survives writing and reading");
    gk::fuzz::require(written == rewritten, "the value survives writing and reading");
  } catch (const gk::formats::FormatError&) {
    // Refused: fine, as long as what was written is not.
  }
  return 0;
}
