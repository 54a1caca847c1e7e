#include "app/session/Session.h"

#include "app/options/Command.h"
#include "app/session/ProgressBar.h"
#include "app/session/RunRecording.h"
#include "app/session/RunReport.h"
#include "app/terminal/SignalWatch.h"
#include "formats/text/FormatError.h"
#include "formats/text/InputError.h"
#include "gateway/Gateway.h"
#include "runtime/output/Outlet.h"
#include "runtime/output/Reporter.h"
#include "zu/log.h"

#include <fmt/format.h>

#include <cstdlib>
#include <memory>
#include <unistd.h>
#include <utility>

namespace gk::app {

namespace {

constexpr const char* kStandardOutput = "-";

void complain(const std::string& text) {
  fmt::print(stderr, "gk: {}\n", text);
}

bool isColourTerminal() {
  return isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
}

/// The outputs of one run.
class Outputs {
public:
  /// Raises `OutputError`.
  Outputs(const SessionOptions& options, const SessionView& view, bool isRealTime)
      : fIsRealTime(isRealTime) {
    const formats::LineKinds kinds =
        options.only.empty() ? formats::LineKinds::all() : formats::LineKinds::parse(options.only);
    const bool isJson = !options.out.empty();
    const bool isJsonOnTerminal = options.out == kStandardOutput;
    if (isJson) {
      std::unique_ptr<runtime::Outlet> outlet;
      if (isJsonOnTerminal) {
        outlet = std::make_unique<runtime::ExclusiveStandardOutlet>();
      } else {
        outlet = std::make_unique<runtime::FileOutlet>(options.out);
      }
      xAdd(boost::make_shared<runtime::JsonReporter>(xQueue(std::move(outlet)), kinds));
    }
    if (!isJson || (view.isAlwaysReadable && !isJsonOnTerminal)) {
      // Unless they are asked for, people are spared the bookkeeping of declarations and keys.
      const formats::LineKinds shown =
          options.only.empty() ? formats::LineKinds::parse(kReadableKinds) : kinds;
      xAdd(boost::make_shared<runtime::ReadableReporter>(
          xQueue(std::make_unique<runtime::StandardOutlet>()), shown, options.logLevel,
          isColourTerminal()));
    }
  }

  void addTo(runtime::Host& host) const {
    for (const auto& reporter : fReporters) {
      host.addReporter(reporter);
    }
  }

  /// Raises `OutputError`.
  void commit() {
    for (const auto& reporter : fReporters) {
      reporter->outlet().commit();
    }
    for (const runtime::QueuedOutlet* queue : fQueues) {
      if (queue->dropped() > 0) {
        complain(fmt::format("{} lines were dropped, the output was too slow", queue->dropped()));
      }
    }
  }

private:
  static constexpr const char* kReadableKinds =
      "event,micro,order,resource,log,result,error,value,page,sample";

  void xAdd(boost::shared_ptr<runtime::Reporter> reporter) {
    fReporters.push_back(std::move(reporter));
  }

  std::unique_ptr<runtime::Outlet> xQueue(std::unique_ptr<runtime::Outlet> outlet) {
    if (!fIsRealTime) {
      return outlet;
    }
    auto queue = std::make_unique<runtime::QueuedOutlet>(std::move(outlet));
    fQueues.push_back(queue.get());
    return queue;
  }

  const bool fIsRealTime;
  std::vector<boost::shared_ptr<runtime::Reporter>> fReporters;
  std::vector<const runtime::QueuedOutlet*> fQueues;
};

void sumUp(const runtime::RunStatistics& run, std::chrono::steady_clock::duration wall) {
  constexpr double microsPerSecond = 1e6;
  const double seconds = static_cast<double>(run.duration) / microsPerSecond;
  const double wallSeconds = std::chrono::duration<double>(wall).count();
  fmt::print(stderr, "{:.3f} s, {} ticks, {} events in {:.3f} s, {:.1f} times real time\n", seconds,
             run.ticks, run.events, wallSeconds, wallSeconds > 0 ? seconds / wallSeconds : 0.0);
}

/// A host's service of clients, for as long as its modules are there: clients are sent away before
/// the modules go, whichever way a run ends.
class Service {
public:
  /// `gateway` may be null.
  Service(gateway::Gateway* gateway, const SessionView& view, runtime::Host& host)
      : fGateway(gateway), fView(view), fHost(host) {}
  ~Service() { close(); }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  void open() {
    if (fGateway == nullptr) {
      return;
    }
    fGateway->open(
        fHost.broker(), [this] { return loopFigures(fHost.loops()); },
        [this](const formats::Action& action, const std::function<void()>& work) {
          fHost.carryOut(action, work);
        });
    announce(*fGateway, *fView.listen);
  }
  void close() {
    if (fGateway != nullptr) {
      fGateway->close();
    }
  }

private:
  gateway::Gateway* fGateway;
  const SessionView& fView;
  runtime::Host& fHost;
};

void warnOf(const runtime::HostOptions& options) {
  if (options.replay != nullptr) {
    for (const std::string& warning : options.replay->warnings()) {
      complain(warning);
    }
  }
}

/// One line for each loop of a run in real time.
void sumUpLoops(const std::vector<runtime::LoopReport>& loops) {
  const auto figures = [](const runtime::Histogram& times) {
    constexpr double kMedian = 0.5;
    constexpr double kMost = 0.99;
    constexpr double kNearlyAll = 0.999;
    return fmt::format("{}/{}/{}/{}", times.quantile(kMedian), times.quantile(kMost),
                       times.quantile(kNearlyAll), times.max());
  };
  for (const runtime::LoopReport& loop : loops) {
    if (loop.work.count() > 0) {
      fmt::print(stderr,
                 "{}: {} ticks, {} overruns; median/99 %/99.9 %/longest in microseconds: "
                 "work {}, late {}\n",
                 loop.module, loop.ticks, loop.overruns, figures(loop.work),
                 figures(loop.lateness));
    }
  }
}

/// Start, run and shutdown. A start that fails has still run: its output stays.
int play(runtime::Host& host, Service& service) {
  try {
    host.start();
  } catch (const runtime::LoadError& error) {
    complain(error.what());
    host.shutdown();
    return kFailure;
  }
  service.open();
  host.run([&service] { service.close(); });
  host.shutdown();
  return kSuccess;
}

} // namespace

int runSession(const SessionOptions& options, runtime::HostOptions hostOptions,
               const SessionView& view) {
  try {
    if (view.isInterruptible) {
      blockWatchedSignals();
    }
    zu::log::setConsoleLevel(0); // the reporters show the log
    zu::log::setFile(options.logFile, zu::log::Debug);
    const auto start = std::chrono::steady_clock::now();
    RunRecording recording(view.record, hostOptions);
    // Outlives the host, whose end waits for the calls of clients.
    const std::unique_ptr<gateway::Gateway> gateway =
        view.listen ? startGateway(*view.listen) : nullptr;
    runtime::Host host(hostOptions);
    Service service(gateway.get(), view, host);
    Outputs outputs(options, view, !hostOptions.isVirtual);
    outputs.addTo(host);
    recording.attach(host);
    RunReport report(view.report, options.files);
    report.attach(host);
    std::optional<SignalWatch> watch;
    if (view.isInterruptible) {
      watch.emplace([&host] { host.requestEnd(); }, view.wallLimit);
    }
    boost::shared_ptr<ProgressBar> bar;
    if (view.hasProgressBar && isatty(STDERR_FILENO) != 0) {
      bar = boost::make_shared<ProgressBar>(host);
      GK::GKObserverList::instance().add(bar);
    }
    const int code = play(host, service);
    GK::GKObserverList::instance().remove(bar);
    bar.reset();
    recording.finish();
    outputs.commit();
    report.finish(host, hostOptions.replay.get());
    warnOf(hostOptions);
    if (code == kSuccess) {
      sumUp(host.statistics(), std::chrono::steady_clock::now() - start);
      sumUpLoops(host.loops());
    }
    return code;
  } catch (const formats::InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
    return kBadInput;
  } catch (const formats::FormatError& error) {
    complain(error.what());
    return kBadInput;
  } catch (const gateway::AccessError& error) {
    complain(error.what());
    return kBadInput;
  } catch (const runtime::OutputError& error) {
    complain(error.what());
    return kBadInput;
  } catch (const formats::mcap::WriteError& error) {
    complain(error.what());
    return kBadInput;
  } catch (const GK::GKError& error) {
    complain(error.getDescription());
    return kBadInput;
  }
}

} // namespace gk::app
