#pragma once

#include "formats/compare/ReportedRun.h"

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

/// How inputs that are no results yet are run.
struct DiffRunOptions {
  std::vector<std::string> libraries;
  std::vector<std::string> subscribe;
  std::vector<std::string> sample;
};

/// What a file is to a comparison.
enum class DiffInput : std::uint8_t {
  Output,  ///< output lines
  Stream,  ///< what a host told viewers, recorded
  Run,     ///< a recorded run: it can be read as well as repeated
  Playable ///< input, which has to be run
};

/// Raises `InputError`.
DiffInput diffInputOf(const std::string& file);

/// What a file tells of a run. Draws a progress bar. Raises `InputError`.
void readReported(const std::string& file, DiffInput kind, formats::ReportedRun& run);

/// Runs a file through the module library in virtual time, and takes what that reports. Raises
/// `InputError` for bad input and libraries that cannot be loaded, `FormatError` for options that
/// do not go with it.
void runReported(const std::string& file, const DiffRunOptions& options, formats::ReportedRun& run);

} // namespace gk::app
