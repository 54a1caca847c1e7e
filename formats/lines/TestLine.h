#pragma once

#include "formats/lines/Expectation.h"
#include "messages/text/FormatError.h"

#include <optional>
#include <string_view>
#include <variant>

namespace gk::formats {

/// Nothing happens, and the run goes on until then.
struct EndMark {};

/// A line of a file that asks for nothing to be done: an expectation, an end, or options.
struct TestLine {
  /// Seconds from the start.
  std::optional<double> time;
  std::variant<Expectation, EndMark, FileOptions> what;
};

/// False for most lines that are none, without reading them: `readTestLine` tells for sure.
bool mayBeTestLine(std::string_view text);

/// Nothing when the line is another one. Raises `FormatError` for what is no line at all and for a
/// malformed one of this kind. Times of expectations, their files and lines are the caller's to
/// set.
std::optional<TestLine> readTestLine(std::string_view text);

/// Whether this is a line with "expect" or "never", be the rest of it malformed.
bool isExpectation(std::string_view text);

} // namespace gk::formats
