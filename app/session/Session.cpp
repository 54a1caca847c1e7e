#include "app/session/Session.h"

#include "app/options/Command.h"
#include "app/options/Journal.h"
#include "app/session/Complaints.h"
#include "app/session/DescriptorOutlet.h"
#include "app/session/Head.h"
#include "app/session/JournalLog.h"
#include "app/session/Lockstep.h"
#include "app/session/ProgressBar.h"
#include "app/session/RunRecording.h"
#include "app/session/RunReport.h"
#include "app/session/ServiceNotifier.h"
#include "app/terminal/LiveStyle.h"
#include "app/terminal/SignalWatch.h"
#include "app/terminal/TerminalState.h"
#include "app/terminal/Units.h"
#include "formats/files/OutputFile.h"
#include "formats/text/InputError.h"
#include "formats/text/NamePattern.h"
#include "formats/text/Printable.h"
#include "gateway/Gateway.h"
#include "gateway/robot/ClientCalls.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/FormatError.h"
#include "runtime/output/ColumnFile.h"
#include "runtime/output/Outlet.h"
#include "runtime/output/PrintedLines.h"
#include "runtime/output/Reporter.h"
#include "zu/log.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

namespace gk::app {

namespace {

constexpr const char* kStandardOutput = "-";
/// Where a fleet's operator reaches the page.
constexpr const char* kPageKey = "Settings/GKFleet/Page";

/// Does something that ends in an output. Complains where it does not; returns the exit code.
template <class Work> int guarded(const Work& work) {
  try {
    work();
    return kSuccess;
  } catch (const formats::OutputError& error) {
    return complainOf(error);
  }
}

/// How events are shown to people.
formats::LiveRows::Style styleOf(const SessionOptions& options) {
  formats::LiveRows::Style style = liveStyle();
  if (!options.show.empty()) {
    style.isWanted = [patterns = options.show](const std::string& name) {
      return std::ranges::any_of(patterns, [&name](const std::string& pattern) {
        return formats::isMeant(name, pattern);
      });
    };
  }
  return style;
}

/// Lines on standard error, at once.
class StandardError final : public runtime::Outlet {
public:
  void write(std::string_view line) override { fmt::print(stderr, "{}", line); }
  void flush() override {}
};

/// The outputs of one run.
class Outputs {
public:
  /// Raises `OutputError`.
  Outputs(const SessionOptions& options, const SessionView& view, bool isRealTime,
          const std::vector<std::string>& inputs)
      : fIsRealTime(isRealTime) {
    const formats::LineKinds kinds =
        options.only.empty() ? formats::LineKinds::all() : formats::LineKinds::parse(options.only);
    const bool isJson = !options.out.empty();
    const bool isJsonOnTerminal = options.out == kStandardOutput;
    if (isJson) {
      std::unique_ptr<runtime::Outlet> outlet;
      if (isJsonOnTerminal) {
        outlet = std::make_unique<runtime::StandardOutlet>();
      } else {
        outlet =
            std::make_unique<runtime::FileOutlet>(options.out, formats::OutputFileOptions{inputs});
      }
      xAdd(boost::make_shared<runtime::JsonReporter>(xQueue(std::move(outlet)), kinds));
      if (isJsonOnTerminal) {
        fPrinted.emplace(nullptr); // Lines of a program for programs.
      }
    }
    if (isJournal()) {
      xAdd(makeJournalLog(std::make_unique<StandardError>(),
                          options.isQuiet ? zu::log::Warning : options.logLevel));
    }
    if (view.isLockstep) {
      xAddLog(options);
    } else if (!options.isQuiet && (!isJson || (view.isAlwaysReadable && !isJsonOnTerminal))) {
      // Unless they are asked for, people are spared the bookkeeping of declarations and keys.
      const formats::LineKinds shown =
          options.only.empty() ? formats::LineKinds::parse(kReadableKinds) : kinds;
      xAdd(boost::make_shared<runtime::ReadableReporter>(
          xQueue(std::make_unique<runtime::StandardOutlet>()), shown,
          isJournal() ? 0 : options.logLevel, styleOf(options)));
      fPrinted.emplace(fReporters.back());
    }
    if (!view.columns.empty()) {
      fColumns = std::make_shared<runtime::ColumnFile>(
          view.columns, formats::OutputFileOptions{inputs}, options.sample, messages::keyTypeOf);
    }
    for (const SessionView::Extra& extra : view.extra) {
      xAdd(boost::make_shared<runtime::JsonReporter>(
          xQueue(std::make_unique<DescriptorOutlet>(extra.descriptor)), extra.kinds));
    }
  }

  void addTo(runtime::Host& host) const {
    for (const auto& reporter : fReporters) {
      host.addReporter(reporter);
    }
    host.addColumns(fColumns);
  }

  /// In real time: until then nothing is written, so that what else is said comes first.
  void release() const {
    for (runtime::QueuedOutlet* queue : fQueues) {
      queue->release();
    }
  }

  /// From now on nobody waits for readers who do not read. Any thread.
  void hurry() const noexcept {
    for (const auto& reporter : fReporters) {
      reporter->outlet().hurry();
    }
  }

  /// One output's trouble is not the others'. Returns the exit code.
  int commit() {
    int code = kSuccess;
    fPrinted.reset();
    release();
    if (fIsRealTime) {
      hurry();
    }
    for (const auto& reporter : fReporters) {
      reporter->finish();
      code = std::max(code, guarded([&] { reporter->outlet().commit(); }));
    }
    if (fColumns != nullptr) {
      code = std::max(code, guarded([&] { fColumns->commit(); }));
    }
    for (const runtime::QueuedOutlet* queue : fQueues) {
      if (queue->dropped() > 0) {
        complain(fmt::format("{} lines were dropped, the output was too slow", queue->dropped()));
      }
    }
    return code;
  }

private:
  static constexpr const char* kReadableKinds =
      "event,micro,order,resource,log,result,error,value,page,sample";

  /// Standard output is somebody else's: of what people want to see only the log is left.
  void xAddLog(const SessionOptions& options) {
    if (!options.isQuiet && !isJournal()) {
      xAdd(boost::make_shared<runtime::ReadableReporter>(
          std::make_unique<StandardError>(), formats::LineKinds::parse("log"), options.logLevel,
          formats::LiveRows::Style()));
    }
    fPrinted.emplace(nullptr);
  }

  void xAdd(boost::shared_ptr<runtime::Reporter> reporter) {
    fReporters.push_back(std::move(reporter));
  }

  std::unique_ptr<runtime::Outlet> xQueue(std::unique_ptr<runtime::Outlet> outlet) {
    if (!fIsRealTime) {
      return outlet;
    }
    auto queue = std::make_unique<runtime::QueuedOutlet>(std::move(outlet));
    queue->hold();
    fQueues.push_back(queue.get());
    return queue;
  }

  const bool fIsRealTime;
  const OpenLine fOpenLine;
  std::vector<boost::shared_ptr<runtime::Reporter>> fReporters;
  std::vector<runtime::QueuedOutlet*> fQueues;
  std::shared_ptr<runtime::ColumnFile> fColumns;
  /// There is one standard output. Where all goes to a file, modules print there themselves.
  std::optional<runtime::PrintedLines> fPrinted;
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
  /// `gateway` may be null, as may `lockstep`. `calls` is for a host without gateway: module
  /// libraries may let others call as well.
  Service(gateway::Gateway* gateway, gateway::OwnCalls& calls, runtime::Host& host,
          Lockstep* lockstep)
      : fGateway(gateway), fCalls(calls), fHost(host), fLockstep(lockstep) {}
  ~Service() { close(); }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  void open() {
    gateway::CarryOut carryOut = [this](const formats::Action& action,
                                        const std::function<void()>& work) {
      fHost.carryOut(action, work);
    };
    gateway::Outside outside;
    if (fLockstep != nullptr) {
      outside = [lockstep = fLockstep](const std::function<void()>& work) {
        lockstep->outside(work);
      };
      carryOut = [carryOut, outside](const formats::Action& action,
                                     const std::function<void()>& work) {
        outside([&] { carryOut(action, work); });
      };
    }
    if (fGateway == nullptr) {
      fCalls.open(fHost.broker(), std::move(carryOut), std::move(outside));
      return;
    }
    fGateway->open(
        fHost.broker(), [this] { return loopFigures(fHost.loops()); }, std::move(carryOut),
        std::move(outside));
  }
  void close() {
    if (fGateway != nullptr) {
      fGateway->close();
    }
    fCalls.close();
  }

private:
  gateway::Gateway* fGateway;
  gateway::OwnCalls& fCalls;
  runtime::Host& fHost;
  Lockstep* fLockstep;
};

/// Tells what of the input was not there to be played. Returns the exit code.
int warnOf(const runtime::Host& host) {
  for (const std::string& problem : host.inputProblems()) {
    complain(problem);
  }
  return host.isInputComplete() ? kSuccess : kFailure;
}

/// How well each loop of a run in real time has kept its time: times that so many ticks did not
/// exceed.
void sumUpLoops(const std::vector<runtime::LoopReport>& loops) {
  const auto figures = [](const runtime::Histogram& times) {
    constexpr double kMedian = 0.5;
    constexpr double kMost = 0.99;
    constexpr double kNearlyAll = 0.999;
    const auto text = [](std::int64_t micros) {
      constexpr double microsPerSecond = 1e6;
      return durationText(static_cast<double>(micros) / microsPerSecond);
    };
    return fmt::format("half within {}, 99 % within {}, 99.9 % within {}, longest {}",
                       text(times.quantile(kMedian)), text(times.quantile(kMost)),
                       text(times.quantile(kNearlyAll)), text(times.max()));
  };
  for (const runtime::LoopReport& loop : loops) {
    if (loop.all.work.count() > 0) {
      fmt::print(stderr,
                 "{}: {} ticks, {} of them longer than the pause after them\n"
                 "  worked      {}\n"
                 "  began late  {}\n",
                 loop.module, loop.ticks, loop.all.overruns, figures(loop.all.work),
                 figures(loop.all.lateness));
    }
  }
}

/// Raises `GKError` and `OutputError`, which tell the option.
void openLog(const std::string& path, const std::vector<std::string>& inputs) {
  try {
    formats::expectNoInput(path, inputs);
    zu::log::setFile(path, zu::log::Debug);
  } catch (const formats::OutputError& error) {
    throw formats::OutputError(error.kind(), std::string("--log-file: ") + error.what());
  } catch (const GK::GKError& error) {
    throw formats::OutputError(formats::OutputError::Kind::Name,
                               "--log-file: " + error.getDescription());
  }
}

/// Where the run comes from, kept up to date while it goes on.
std::shared_ptr<const gateway::RunSource> sourceOf(runtime::HostOptions& options) {
  auto source = std::make_shared<gateway::RunSource>();
  if (options.simulation) {
    source->kind = gateway::RunSource::Kind::Simulated;
  } else if (!options.files.empty()) {
    source->kind = gateway::RunSource::Kind::Recording;
    source->file = options.files.front();
    options.atInputEnd = [source](GK::GKMicros time) { source->end = time; };
  }
  return source;
}

/// Start, run and shutdown. A start that fails has still run: its output stays. `lockstep` may be
/// null.
int play(runtime::Host& host, RunRecording& recording, Service& service, Lockstep* lockstep,
         const std::function<void()>& onStart) {
  try {
    host.start();
  } catch (const runtime::LoadError& error) {
    complain(error.what());
    host.shutdown();
    return kFailure;
  }
  recording.confirm();
  service.open();
  onStart();
  int code = kSuccess;
  if (lockstep != nullptr) {
    code = guarded([&] { lockstep->drive(host); });
    service.close();
  } else {
    host.run([&service] { service.close(); });
  }
  host.shutdown();
  return code;
}

} // namespace

int runSession(const SessionOptions& options, runtime::HostOptions hostOptions,
               const SessionView& view) {
  try {
    if (view.isInterruptible) {
      blockWatchedSignals();
      // A reader that goes away ends the output, not the host.
      std::signal(SIGPIPE, SIG_IGN);
    }
    zu::log::setConsoleLevel(0); // the reporters show the log
    const std::vector<std::string> inputs = inputFiles(hostOptions);
    openLog(options.logFile, inputs);
    const auto start = std::chrono::steady_clock::now();
    Judgement judgement(view.judge, hostOptions);
    RunRecording recording(view.record, hostOptions);
    // These outlive the host, whose end waits for the calls of clients.
    std::optional<Lockstep> lockstep;
    if (view.isLockstep) {
      lockstep.emplace();
    }
    const Listening listening =
        view.listen ? startGateway(*view.listen, hostOptions.limits, recording.source(), nullptr,
                                   sourceOf(hostOptions))
                    : Listening();
    if (const std::string page =
            pageFor(view.fleet, listening.gateway.get(), view.listen.value_or(ListenOptions()));
        !page.empty()) {
      hostOptions.settings.emplace(hostOptions.settings.begin(), kPageKey, page);
    }
    gateway::OwnCalls calls(gateway::CallRunner::kMaxCalls, hostOptions.limits.answer);
    runtime::Host host(hostOptions);
    for (const std::string& hint : host.inputHints()) {
      complain(hint);
    }
    Service service(listening.gateway.get(), calls, host, lockstep ? &*lockstep : nullptr);
    Outputs outputs(options, view, !hostOptions.isVirtual, inputs);
    outputs.addTo(host);
    recording.attach(host);
    RunReport report(view.report, options.files, inputs);
    report.attach(host);
    const boost::shared_ptr<ServiceNotifier> notifier =
        view.isInterruptible ? ServiceNotifier::make() : nullptr;
    // Written by the watch, which has ended when it is read.
    std::string ending;
    std::optional<SignalWatch> watch;
    if (view.isInterruptible) {
      watch.emplace(
          [&](const EndWish& wish) {
            ending = wish.text();
            if (notifier != nullptr) {
              notifier->stopping();
            }
            host.requestEnd();
            if (lockstep) {
              lockstep->requestEnd();
            }
            outputs.hurry();
          },
          view.wallLimit);
    }
    boost::shared_ptr<ProgressBar> bar;
    if (view.hasProgressBar && isatty(STDERR_FILENO) != 0) {
      bar = boost::make_shared<ProgressBar>(host);
      GK::GKObserverList::instance().add(bar);
    }
    const int played = play(host, recording, service, lockstep ? &*lockstep : nullptr, [&] {
      if (!view.robot.empty()) {
        fmt::print(stderr, "{}",
                   headText({view.robot, listening.text, listening.gateway != nullptr, hasPage(),
                             view.wallLimit}));
      }
      if (view.isLockstep && view.listen) {
        complain(listening.text);
      }
      if (notifier != nullptr) {
        notifier->ready(*host.broker(), listening.text);
        GK::GKObserverList::instance().add(notifier);
      }
      outputs.release();
    });
    GK::GKObserverList::instance().remove(notifier);
    GK::GKObserverList::instance().remove(bar);
    bar.reset();
    int code = played;
    if (played == kSuccess) {
      code = std::max(code, guarded([&] { recording.finish(); }));
    }
    code = std::max(code, outputs.commit());
    code = std::max(code, guarded([&] { report.finish(host, hostOptions.replay.get()); }));
    code = std::max(code, warnOf(host));
    watch.reset();
    if (!view.robot.empty() && !ending.empty()) {
      fmt::print(stderr, "ended by {}\n", ending);
    }
    const int judged = judgement.finish();
    if (played == kSuccess) {
      for (const std::string& missing : host.missingSamples()) {
        complain(formats::printable(missing));
      }
      sumUp(host.statistics(), std::chrono::steady_clock::now() - start);
      sumUpLoops(host.loops());
    }
    return worseOf(code, judged);
  } catch (const formats::InputError& error) {
    complainAsItStands(error.what());
    return kBadInput;
  } catch (const messages::FormatError& error) {
    complain(error.what());
    return kBadInput;
  } catch (const gateway::AccessError& error) {
    complain(error.what());
    return kBadInput;
  } catch (const formats::OutputError& error) {
    return complainOf(error);
  } catch (const GK::GKError& error) {
    complain(error.getDescription());
    return kBadInput;
  }
}

} // namespace gk::app
