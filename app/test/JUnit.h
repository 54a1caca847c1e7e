#pragma once

#include "app/test/TestResult.h"

#include <string>
#include <string_view>
#include <vector>

namespace gk::app {

/// Writes what became of tests as JUnit XML, of which there is no standard: the elements and
/// attributes that pytest and CTest write, with "file" and "line". Raises `OutputError`.
void writeJUnit(const std::string& path, const std::vector<TestResult>& results,
                const TestSum& sum);

/// Text as it may stand in XML 1.0, in elements and attributes: what that has no character for
/// becomes U+FFFD.
std::string xmlText(std::string_view text);

} // namespace gk::app
