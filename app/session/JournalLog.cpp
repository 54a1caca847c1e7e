#include "app/session/JournalLog.h"

#include "app/options/Journal.h"
#include "formats/text/Printable.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>
#include <fmt/format.h>

#include <utility>

namespace gk::app {

namespace {

Severity severityOf(int logLevel) {
  switch (logLevel) {
  case zu::log::Fatal:
    return Severity::Critical;
  case zu::log::Error:
    return Severity::Error;
  case zu::log::Warning:
    return Severity::Warning;
  case zu::log::Info:
    return Severity::Info;
  default:
    return Severity::Debug;
  }
}

class JournalLog final : public runtime::Reporter {
public:
  JournalLog(std::unique_ptr<runtime::Outlet> outlet, int logLevel)
      : Reporter(std::move(outlet), formats::LineKinds::parse("log")), fLogLevel(logLevel) {}

protected:
  void xAppend(std::string& out, const GK::GKNotice& notice) override {
    if (notice.level <= fLogLevel) {
      out += fmt::format("{}{}: {}\n", journalLevel(severityOf(notice.level)),
                         formats::printable(notice.name), formats::printable(notice.text));
    }
  }
  void xAppend(std::string& /*out*/, const runtime::Answer& /*answer*/) override {}
  void xAppend(std::string& /*out*/, GK::GKMicros /*time*/,
               const runtime::Sample& /*values*/) override {}

private:
  const int fLogLevel;
};

} // namespace

boost::shared_ptr<runtime::Reporter> makeJournalLog(std::unique_ptr<runtime::Outlet> outlet,
                                                    int logLevel) {
  return boost::make_shared<JournalLog>(std::move(outlet), logLevel);
}

} // namespace gk::app
