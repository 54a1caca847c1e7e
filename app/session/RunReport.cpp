#include "app/session/RunReport.h"

#include "gk/GKObserver.h"
#include "runtime/report/ReportPage.h"

#include <boost/make_shared.hpp>
#include <fmt/format.h>

#include <filesystem>
#include <system_error>
#include <utility>

namespace gk::app {

namespace {

std::string factOf(const std::string& file) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(file, error);
  constexpr double mega = 1e6;
  return error ? file : fmt::format("{} ({:.3f} MB)", file, static_cast<double>(size) / mega);
}

} // namespace

RunReport::RunReport(const std::string& out, std::vector<std::string> files,
                     const std::vector<std::string>& inputs)
    : fFiles(std::move(files)) {
  if (!out.empty()) {
    fOutlet.emplace(out, formats::OutputFileOptions{inputs});
  }
}

RunReport::~RunReport() {
  GK::GKObserverList::instance().remove(fCollector);
}

void RunReport::attach(const runtime::Host& host) {
  if (fOutlet) {
    fCollector = boost::make_shared<runtime::ReportCollector>(host.store());
    GK::GKObserverList::instance().add(fCollector);
  }
}

void RunReport::finish(const runtime::Host& host, const runtime::RunReplay* replay) {
  if (fCollector == nullptr) {
    return;
  }
  runtime::ReportAbout about;
  for (const std::string& file : fFiles) {
    about.title +=
        (about.title.empty() ? "" : ", ") + std::filesystem::path(file).filename().string();
    about.facts.emplace_back("file", factOf(file));
  }
  const GK::GKMicros length = host.statistics().duration;
  about.facts.emplace_back("length", fmt::format("{:.3f} s", static_cast<double>(length) / 1e6));
  if (replay != nullptr) {
    for (const auto& [name, value] : replay->about()) {
      if (!value.empty()) {
        about.facts.emplace_back(name, value);
      }
    }
    about.warnings = replay->warnings();
  }
  about.facts.emplace_back("report by", "gksensors " GK_VERSION);
  fOutlet->write(runtime::reportPage(about, fCollector->take()));
  fOutlet->commit();
}

} // namespace gk::app
