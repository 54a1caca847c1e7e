#pragma once

#include <cstddef>
#include <string_view>

namespace gk::messages {

/// Bytes of the character that `text`, which is not empty, begins with; 0 when it is not valid
/// UTF-8.
std::size_t characterLength(std::string_view text);

} // namespace gk::messages
