#pragma once

#include "runtime/host/Host.h"
#include "runtime/output/Outlet.h"
#include "runtime/report/ReportCollector.h"

#include <boost/shared_ptr.hpp>

#include <optional>
#include <string>
#include <vector>

namespace gk::app {

/// The report of a run, an observer for as long as this object lives; nothing at all without a file
/// to write it to.
class RunReport {
public:
  /// `files`: what is played; `inputs`: all files that are read. Raises `OutputError` when there
  /// can be no such page.
  RunReport(const std::string& out, std::vector<std::string> files,
            const std::vector<std::string>& inputs);
  ~RunReport();
  RunReport(const RunReport&) = delete;
  RunReport& operator=(const RunReport&) = delete;

  /// Once the host is there.
  void attach(const runtime::Host& host);

  /// After the run: writes the page. `replay` is null for other input than recorded runs. Raises
  /// `OutputError`.
  void finish(const runtime::Host& host, const runtime::RunReplay* replay);

private:
  std::optional<runtime::FileOutlet> fOutlet;
  const std::vector<std::string> fFiles;
  boost::shared_ptr<runtime::ReportCollector> fCollector;
};

} // namespace gk::app
