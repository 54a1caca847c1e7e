#pragma once

#include "formats/lines/Expectation.h"

#include <boost/json/value.hpp>

#include <string_view>

namespace gk::formats {

/// What stands behind "expect" or "never", which `kind` is, in a line with a time or without. Time,
/// file and line are the caller's to set. Raises `FormatError`.
Expectation readExpectation(std::string_view kind, const boost::json::value& value, bool hasTime);

} // namespace gk::formats
