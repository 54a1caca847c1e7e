#pragma once

#include "formats/compare/Comparison.h"

#include <functional>
#include <string_view>

namespace gk::formats {

/// Takes pieces of text.
using TextTarget = std::function<void(std::string_view)>;

/// A comparison as one JSON object on one line: what it comes to, counts by name, all differences,
/// and what is known about both runs. `file` comes first unless it is empty.
void writeComparison(const Comparison& comparison, std::string_view file, const TextTarget& out);

} // namespace gk::formats
