#pragma once

#include "runtime/host/Host.h"
#include "runtime/report/ReportCollector.h"

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

namespace gk::app {

/// The report of a run, an observer for as long as this object lives; nothing at all without a file
/// to write it to.
class RunReport {
public:
  /// `files`: what is played.
  RunReport(std::string out, std::vector<std::string> files);
  ~RunReport();
  RunReport(const RunReport&) = delete;
  RunReport& operator=(const RunReport&) = delete;

  /// Once the host is there.
  void attach(const runtime::Host& host);

  /// After the run: writes the page. `replay` is null for other input than recorded runs. Raises
  /// `OutputError`.
  void finish(const runtime::Host& host, const runtime::RunReplay* replay);

private:
  const std::string fOut;
  const std::vector<std::string> fFiles;
  boost::shared_ptr<runtime::ReportCollector> fCollector;
};

} // namespace gk::app
