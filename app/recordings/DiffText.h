#pragma once

#include "formats/compare/Comparison.h"

#include <optional>
#include <string>
#include <vector>

/// Comparisons of runs for people: on a terminal in colours, cut to its width, and with no more
/// than a few differences of each name; plain and whole otherwise.
namespace gk::app {

/// What is known about both runs, side by side.
std::string diffFactsText(const formats::Comparison& comparison);

/// Puts all differences out, a line each, the first in time first.
void printDifferences(const formats::Comparison& comparison);

/// A line for each name: those that differ, or all.
std::string diffNamesText(const formats::Comparison& comparison, bool isAll);

/// What it comes to, and what to know about it.
std::string diffVerdictText(const formats::Comparison& comparison);

/// One file of many, compared.
struct DiffOfFile {
  enum class State : std::uint8_t { Compared, Malformed, Crashed };

  std::string file;
  State state = State::Compared;
  formats::DifferenceCounts counts;
  /// When the first difference is, in microseconds.
  std::optional<GK::GKMicros> first;
};

/// A table over many files, and a line that sums up.
std::string diffFilesText(const std::vector<DiffOfFile>& files);

/// Time of the first difference.
std::optional<GK::GKMicros> firstDifference(const formats::Comparison& comparison);

} // namespace gk::app
