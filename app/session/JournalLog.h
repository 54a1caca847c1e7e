#pragma once

#include "runtime/output/Reporter.h"

#include <memory>

namespace gk::app {

/// The log for the journal: levels, no times, which the journal has of its own. Lines up to
/// `logLevel`.
boost::shared_ptr<runtime::Reporter> makeJournalLog(std::unique_ptr<runtime::Outlet> outlet,
                                                    int logLevel);

} // namespace gk::app
