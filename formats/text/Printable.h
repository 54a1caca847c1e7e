#pragma once

#include <string>
#include <string_view>

namespace gk::formats {

/// `text` for a terminal. Names and values come from anybody; what could do something to a terminal
/// or make one line look like another becomes "?": control characters, those of eight bits (U+0080
/// to U+009F) included, marks that turn the direction of writing, line and paragraph separators,
/// and bytes that are no UTF-8.
std::string printable(std::string_view text);

} // namespace gk::formats
