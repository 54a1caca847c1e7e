#pragma once

#include "gk/GKValue.h"
#include "messages/text/FormatError.h"

#include <boost/json/value.hpp>

#include <cstdint>
#include <functional>
#include <string_view>

namespace gk::messages {

/// What a memory key holds: keys of the device layer one of the first four, all others anything.
enum class KeyType : std::uint8_t { Float, Int, Bool, Text, Any };

/// Tells the type of a key. Raises `FormatError` for a key that must not be written.
using KeyTypeOf = std::function<KeyType(std::string_view key)>;

/// The value of a key of the given type. The type wins over the way in which a number is written:
/// 3 is 3.0 for a float key, 34.0 is 34 for an int key. Raises `FormatError` for what does not fit.
GK::GKValue valueForKey(KeyType type, const boost::json::value& json);
/// The same for what is a value already.
GK::GKValue valueForKey(KeyType type, const GK::GKValue& value);

} // namespace gk::messages
