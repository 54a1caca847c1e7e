#pragma once

#include <boost/json/fwd.hpp>

#include <optional>
#include <string_view>

namespace gk::formats {

/// What a line names its time.
inline constexpr std::string_view kTimeMember = "t";

/// The seconds that a line has as its time; nothing when it has none. Raises `FormatError`.
std::optional<double> lineTime(const boost::json::object& line);

} // namespace gk::formats
