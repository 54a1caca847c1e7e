#include "app/recordings/DiffInput.h"

#include "app/session/FileTests.h"
#include "app/session/ProgressBar.h"
#include "app/session/ReplayHost.h"
#include "app/terminal/ProgressLine.h"
#include "formats/compare/ReadReported.h"
#include "formats/text/InputError.h"
#include "runtime/output/Outlet.h"
#include "runtime/output/PrintedLines.h"
#include "runtime/output/Reporter.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <filesystem>
#include <memory>
#include <string_view>
#include <utility>

namespace gk::app {

namespace {

/// For a reporter that keeps what it is told.
class NoOutlet final : public runtime::Outlet {
public:
  void write(std::string_view) override {}
  void flush() override {}
};

/// Takes what a host reports instead of writing it.
class ReportedTaker final : public runtime::Reporter {
public:
  ReportedTaker(formats::ReportedRun& run, formats::LineKinds kinds)
      : Reporter(std::make_unique<NoOutlet>(), kinds), fRun(run) {}

protected:
  void xAppend(std::string&, const GK::GKNotice& notice) override {
    switch (notice.kind) {
    case GK::GKNotice::Kind::Declare:
      fRun.add(notice.time, formats::LineKind::Declare, notice.name, notice.owner);
      break;
    case GK::GKNotice::Kind::Order:
      fRun.addOrder(notice.time, notice.value);
      break;
    case GK::GKNotice::Kind::Log:
      fRun.addLog(notice.time, notice.level, notice.name, notice.owner, notice.text);
      break;
    default:
      fRun.add(notice.time, formats::lineKindOf(notice), notice.name, notice.value);
      break;
    }
  }

  void xAppend(std::string&, const runtime::Answer& answer) override {
    switch (answer.kind) {
    case runtime::Answer::Kind::Result:
      fRun.add(answer.time, formats::LineKind::Result, answer.name, answer.value);
      break;
    case runtime::Answer::Kind::Value:
      fRun.add(answer.time, formats::LineKind::Value, answer.name, answer.value);
      break;
    case runtime::Answer::Kind::Page:
      fRun.add(answer.time, formats::LineKind::Page, answer.name, answer.text);
      break;
    case runtime::Answer::Kind::Error:
      fRun.addError(answer.time, answer.name, answer.error->getModule(), answer.error->getMethod(),
                    answer.error->getDescription());
      break;
    case runtime::Answer::Kind::OtherError:
      fRun.addError(answer.time, answer.name, {}, {}, answer.text);
      break;
    }
  }

  void xAppend(std::string&, GK::GKMicros time, const runtime::Sample& values) override {
    for (const auto& [key, value] : values) {
      fRun.add(time, formats::LineKind::Sample, key, value);
    }
  }

private:
  formats::ReportedRun& fRun;
};

void addFacts(const std::string& file, const SessionOptions& options,
              const runtime::HostOptions& host, formats::ReportedRun& run) {
  std::vector<std::string> libraries;
  for (const std::string& library : host.libraries) {
    libraries.push_back(std::filesystem::path(library).filename());
  }
  run.facts = {{"file", file},
               {"reported", "run now"},
               {"version", "gksensors " GK_VERSION},
               {"libraries", fmt::format("{}", fmt::join(libraries, ","))}};
  const auto add = [&run](const char* name, const std::vector<std::string>& words) {
    if (!words.empty()) {
      run.facts.emplace_back(name, fmt::format("{}", fmt::join(words, ",")));
    }
  };
  if (host.replay == nullptr) {
    add("subscribe", options.subscribe);
  }
  add("without", host.without);
  add("sample", options.sample);
}

/// Start, run and shutdown. Modules print to standard error.
void play(runtime::Host& host, const std::string& file) {
  const runtime::PrintedLines printed(nullptr);
  const auto bar = boost::make_shared<ProgressBar>(host);
  GK::GKObserverList::instance().add(bar);
  try {
    host.start();
    host.run();
    GK::GKObserverList::instance().remove(bar);
    host.shutdown();
  } catch (const runtime::LoadError& error) {
    GK::GKObserverList::instance().remove(bar);
    host.shutdown();
    throw formats::InputError(file, 0, std::string("cannot be run: ") + error.what());
  } catch (...) {
    GK::GKObserverList::instance().remove(bar);
    throw;
  }
}

} // namespace

DiffInput diffInputOf(const std::string& file) {
  if (file.ends_with(".mcap")) {
    switch (formats::recordedKind(file)) {
    case formats::RecordedKind::Run:
      return DiffInput::Run;
    case formats::RecordedKind::Stream:
      return DiffInput::Stream;
    case formats::RecordedKind::Input:
      return DiffInput::Playable;
    }
  }
  const bool isLines = file.ends_with(".jsonl") || file.ends_with(".jsonl.gz");
  return isLines && formats::isOutput(file) ? DiffInput::Output : DiffInput::Playable;
}

void readReported(const std::string& file, DiffInput kind, formats::ReportedRun& run) {
  ProgressLine line;
  const auto progress = [&line, &file](double done) {
    if (line.isDue()) {
      line.show(done, file);
    }
  };
  run.facts = {{"file", file}, {"reported", kind == DiffInput::Output ? "output" : "recorded"}};
  if (kind == DiffInput::Output) {
    formats::readOutput(file, run, progress);
  } else {
    formats::readRecorded(file, run, progress);
  }
}

void runReported(const std::string& file, const DiffRunOptions& options,
                 formats::ReportedRun& run) {
  SessionOptions session;
  session.files = {file};
  session.libraries = options.libraries;
  session.sample = options.sample;
  // A recorded run is repeated with the subscriptions that it had.
  if (!file.ends_with(".mcap") || !runtime::RunReplay::isRun(file)) {
    session.subscribe = options.subscribe;
  }
  const FileTests tests = readFileTests(session.files, false);
  applyFileOptions(tests, session);
  const runtime::HostOptions hostOptions = replayHost(session, tests, false);
  addFacts(file, session, hostOptions, run);
  zu::log::setConsoleLevel(0);
  runtime::Host host(hostOptions);
  host.addReporter(boost::make_shared<ReportedTaker>(run, run.kinds()));
  play(host, file);
  for (const std::string& warning : host.inputProblems()) {
    run.warnings.push_back(warning);
  }
  run.settle();
}

} // namespace gk::app
