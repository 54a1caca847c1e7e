#pragma once

#include "runtime/report/ReportCollector.h"

#include <string>
#include <utility>
#include <vector>

namespace gk::runtime {

/// What a report says about where it comes from.
struct ReportAbout {
  std::string title;
  /// Name and text, in the order in which they are shown.
  std::vector<std::pair<std::string, std::string>> facts;
  /// What may be wrong with the recording or its repetition.
  std::vector<std::string> warnings;
};

/// A report as one page that needs nothing else: opens from the disk, without a network.
std::string reportPage(const ReportAbout& about, const ReportData& data);

} // namespace gk::runtime
