#pragma once

#include "formats/compare/ReportedRun.h"

#include <functional>
#include <string>

/// What runs reported, read from files.
namespace gk::formats {

/// Told how much of a file has been read, 0 to 1.
using ReadProgress = std::function<void(double)>;

/// Whether a file (".jsonl", also with ".gz") holds output lines: its first object has a "kind". An
/// empty one does. Raises `InputError` when it cannot be read; what else is wrong with it is not
/// looked at.
bool isOutput(const std::string& path);

/// Adds the lines of an output. Raises `InputError` for a malformed one.
void readOutput(const std::string& path, ReportedRun& run, const ReadProgress& progress = nullptr);

/// What a recording (".mcap") is to a comparison.
enum class RecordedKind : std::uint8_t {
  Input,  ///< what came in, to be played: it tells of no run
  Stream, ///< what a host told viewers
  Run     ///< a whole run, which can be repeated
};

RecordedKind recordedKind(const std::string& path);

/// From where on a recording tells what was reported: later than the run's start when it was cut.
/// Raises `InputError`.
GK::GKMicros recordedFrom(const std::string& path);

/// Adds the events and log lines that a recording holds for viewers. Levels of the log that viewers
/// do not tell apart are one. Raises `InputError`.
void readRecorded(const std::string& path, ReportedRun& run,
                  const ReadProgress& progress = nullptr);

} // namespace gk::formats
