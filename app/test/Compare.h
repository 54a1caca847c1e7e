#pragma once

#include "app/test/TestResult.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace gk::app {

/// Whether two files hold the same bytes; false when one cannot be read.
bool isSameFile(const std::string& one, const std::string& other);

/// Where two files that are not the same differ first, with the lines around it: of line LINE of
/// the one what is there and what is in the other. `file` and `what` are told.
Complaint firstDifference(const std::string& expected, const std::string& actual,
                          const std::string& file, const std::string& what);

/// The ten lines of an output around a moment.
std::vector<std::string> linesAround(const std::string& output, std::int64_t time);

/// Replaces a file by a copy of another one. Raises `OutputError`.
void replaceFile(const std::string& from, const std::string& to);

/// "NAME.new": what a test gave instead of what was expected. A file that cannot be written is
/// none.
void leaveBeside(const std::string& output, const std::string& golden);
void removeBeside(const std::string& golden);

} // namespace gk::app
