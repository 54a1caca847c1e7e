#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace gk::formats {

/// Those of `names` that look most like `wanted`, the likeliest first: few letters differ, whatever
/// their case, or it is part of the name. At most three.
std::vector<std::string> nearestNames(std::string_view wanted,
                                      const std::vector<std::string>& names);

/// "; did you mean A, B or C?", or nothing.
std::string didYouMean(const std::vector<std::string>& nearest);

} // namespace gk::formats
