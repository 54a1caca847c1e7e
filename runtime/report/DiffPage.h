#pragma once

#include "formats/compare/Comparison.h"

#include <string>

namespace gk::runtime {

/// Two runs one above the other, as one page that needs nothing else: opens from the disk, without
/// a network. It has all names that differ, the values around differences, and of the rest as much
/// as can be looked at. `by`: the program that makes it.
std::string diffPage(const formats::Comparison& comparison, const std::string& by);

} // namespace gk::runtime
