#pragma once

#include "messages/text/FormatError.h"

#include <boost/json/value.hpp>

#include <cstddef>
#include <string_view>

namespace gk::messages {

/// Deepest nesting of arrays and objects that is read.
constexpr std::size_t kJsonDepth = 32;

/// Reads one JSON text with exact numbers: without "." and exponent an int64, otherwise the nearest
/// double (infinite beyond the range of doubles).
///
/// Raises `FormatError` ("column N: what is wrong") for everything that is no single JSON text, for
/// ints beyond 64 bits, objects that name a member twice, and nesting beyond `kJsonDepth`.
boost::json::value parseJson(std::string_view text);

} // namespace gk::messages
