#pragma once

#include <string_view>

namespace gk::runtime {

/// Pages up to their data, and what comes behind them; made of the files in page/.
extern const std::string_view kReportHead;
extern const std::string_view kReportTail;
extern const std::string_view kDiffHead;
extern const std::string_view kDiffTail;

} // namespace gk::runtime
