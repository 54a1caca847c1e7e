#pragma once

#include <string_view>

namespace gk::runtime {

/// The page up to its data, and what comes behind them; made of the files in page/.
extern const std::string_view kReportHead;
extern const std::string_view kReportTail;

} // namespace gk::runtime
