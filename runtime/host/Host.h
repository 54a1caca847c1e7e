#pragma once

#include "devices/ClientLimits.h"
#include "devices/DeviceLayer.h"
#include "devices/sim/SimulationOptions.h"
#include "formats/lines/OutputLine.h"
#include "formats/recording/Recording.h"
#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKClock.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKObserver.h"
#include "gk/GKTurns.h"
#include "gk/GKWriteGate.h"
#include "runtime/expect/Judge.h"
#include "runtime/figures/LoopStatistics.h"
#include "runtime/host/Calls.h"
#include "runtime/host/FaultPlan.h"
#include "runtime/host/Library.h"
#include "runtime/host/Player.h"
#include "runtime/host/Sampler.h"
#include "runtime/output/ColumnFile.h"
#include "runtime/output/Reporter.h"
#include "runtime/recording/RunRecorder.h"
#include "runtime/recording/RunReplay.h"

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace gk::devices {
class Simulation;
class World;
} // namespace gk::devices

namespace gk::runtime {

/// Where the virtual clock starts: 2026-01-01T00:00:00 UTC, in seconds since 1970.
constexpr std::int64_t kDefaultEpoch = 1'767'225'600;

struct HostOptions {
  /// Recordings and scenarios to play, merged by time.
  std::vector<std::string> files;
  /// Files beside them that are read as well, and those that may make the run go on. They have
  /// nothing else to be played.
  std::vector<std::string> beside;
  std::vector<std::string> companions;
  /// Module libraries to load, in this order, by name or path, and where those with a name are.
  std::vector<std::string> libraries;
  std::vector<std::string> libraryFolders;
  /// Services to leave out: "GKMemory", "DCM", "GKResourceManager".
  std::vector<std::string> without;
  /// Memory keys that are there before the first library, whatever the files say.
  std::vector<std::pair<std::string, GK::GKValue>> settings;
  /// Extractors to subscribe to from the start.
  std::vector<std::string> subscribe;
  /// What is reported after ticks.
  SampleChoice sample;

  /// The simulated robot, if there is to be one.
  std::optional<devices::SimulationOptions> simulation;
  /// With `replay`: the run that is repeated had the simulated robot, and thus rules for its world.
  bool hadSimulation = false;
  /// What clients and scenarios may leave behind.
  devices::ClientLimits limits;

  bool isVirtual = false;
  /// Real time only: how many of the run's seconds pass in one of the computer's.
  double speed = 1.0;
  /// Real time only: priority of the loops' threads under SCHED_FIFO, 1 to 99; 0 for none.
  int loopPriority = 0;
  /// Wall time at the start of the virtual clock, in seconds since 1970.
  std::int64_t epoch = kDefaultEpoch;
  /// The run ends with the first tick after its input has ended and all calls have returned;
  /// otherwise it goes on.
  bool endsWithInput = false;
  /// Told, when the last line of the files has been played, its time; may be null.
  std::function<void(GK::GKMicros)> atInputEnd;
  /// The files start again at their end.
  bool isLoop = false;
  /// Time limit in microseconds since the start.
  std::optional<GK::GKMicros> until;

  /// Keeps what a replay of this run needs; may be null.
  std::shared_ptr<RunRecorder> recorder;
  /// With a recorder, in real time: how long a task may keep all others waiting.
  std::chrono::milliseconds turnPatience = GK::kTurnPatience;
  /// A recorded run to be repeated instead of playing files; may be null.
  std::shared_ptr<RunReplay> replay;

  /// What is expected of the run; may be null.
  boost::shared_ptr<Judge> judge;
};

/// What a run did.
struct RunStatistics {
  /// Microseconds on the run's clock.
  GK::GKMicros duration = 0;
  std::uint64_t ticks = 0;
  /// Events and micro-events.
  std::uint64_t events = 0;
};

/// A host process as one object: clock, broker and services, device layer, module libraries,
/// reporters, and their orderly end.
///
/// One at a time in a process: it installs the process's clock. Belongs to one thread; only
/// `requestEnd` may be called from others.
class Host {
public:
  /// Opens the files and sets the clock. Raises `InputError`.
  explicit Host(HostOptions options);
  /// Shuts down if that has not been done.
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  /// Adds somewhere to report to. Before `start`.
  void addReporter(boost::shared_ptr<Reporter> reporter);

  /// Adds a table that gets what is sampled. Before `start`.
  void addColumns(std::shared_ptr<ColumnFile> columns) { fColumns = std::move(columns); }

  /// Starts the services and the device layer and loads the libraries. Raises `LoadError`; what was
  /// loaded before stays until the shutdown. Raises `FormatError` when an extractor that is to be
  /// subscribed to is not among them.
  void start();

  /// Plays the input until the run ends, then calls `atEnd`, while calls of clients can still be
  /// carried out. Raises `InputError`.
  void run(std::function<void()> atEnd = nullptr);

  /// A step of a run whose time moves on request: `work`, if there is any, is done as input that
  /// comes in now; then everything happens that is due by `time`, in microseconds since the start,
  /// and it is `time`.
  struct Step {
    GK::GKMicros time = 0;
    std::function<void()> work;
  };
  /// In place of `run`, on the virtual clock: what is due at time 0 happens, then one step after
  /// the other until there is none. `next` gives them, on whichever thread has done what was due; a
  /// step has been made when it is asked for the next one. Raises `InputError`.
  void runInSteps(std::function<std::optional<Step>()> next);

  /// Ends everything, then checks what was not played of the input. Raises `InputError`.
  void shutdown();

  /// Where the modules live; empty before `start` and after `shutdown`.
  const boost::shared_ptr<GK::GKBroker>& broker() const noexcept { return fBroker; }
  /// The memory's keys. Any thread.
  std::shared_ptr<const GK::GKMemoryStore> store() const noexcept { return fStore; }

  /// How much of the files has been read, 0 to 1. To be asked for by observers in ticks of a
  /// virtual run.
  double progress() const noexcept {
    return fOptions.replay != nullptr ? fOptions.replay->progress() : fPlayer.progress();
  }

  /// What is odd about the files although they can be played: one line each. Before `run`.
  std::vector<std::string> inputHints() const { return fPlayer.hints(); }

  /// After the shutdown: what kept the input from being played, or the run from being repeated, as
  /// it was recorded, one line each; and whether all of it was nevertheless.
  std::vector<std::string> inputProblems() const {
    return fOptions.replay != nullptr ? fOptions.replay->warnings() : fPlayer.problems();
  }
  bool isInputComplete() const {
    return fOptions.replay != nullptr ? fOptions.replay->isComplete() : fPlayer.isComplete();
  }

  /// Does `work`, with which something comes from outside: `action` tells a recording what. For
  /// programs that call or write from threads of their own; any thread, from `start` on.
  void carryOut(const formats::Action& action, const std::function<void()>& work);

  /// Makes `run` return soon. Any thread, any time.
  void requestEnd() noexcept { fClock->requestEnd(); }

  /// After the shutdown: keys that were to be reported and were never there, with the nearest, one
  /// line each.
  std::vector<std::string> missingSamples() const;

  /// What `run` did.
  RunStatistics statistics() const;

  /// How well the loops keep their time. Any thread, any time.
  std::vector<LoopReport> loops() const { return fLoops->reports(); }

private:
  class Watch;
  class Target;
  class Input;

  std::shared_ptr<GK::GKClock> xMakeClock();
  GK::GKInput& xInput();
  void xFinish(GK::GKClock::End end);
  void xStartServices();
  void xExpectExtractors() const;
  std::shared_ptr<GK::GKWriteGate> xMakeGate();
  void xEnd();
  void xFinishJudge();
  bool xHasService(const char* name) const;
  void xReport(Answer answer);
  void xAct(const formats::Action& action);
  /// Raises `FormatError` when the world of the simulated robot refuses a value.
  void xAdmit(const formats::SetAction& set);
  std::optional<GK::GKValue> xRead(const std::string& key) const;
  void xGet(const std::string& key);
  void xOnTick(GK::GKMicros time);

  const HostOptions fOptions;
  std::shared_ptr<GK::GKMemoryStore> fStore = std::make_shared<GK::GKMemoryStore>();
  std::shared_ptr<GK::GKClock> fClock;
  std::shared_ptr<FaultPlan> fFaults = std::make_shared<FaultPlan>();
  devices::DeviceLayer fDevices;
  std::unique_ptr<devices::Simulation> fSimulation;
  /// Where there was a simulated robot: what its world refused is refused again.
  std::unique_ptr<devices::World> fFormerWorld;
  std::unique_ptr<Target> fTarget;
  Player fPlayer;
  std::unique_ptr<Input> fInput;
  std::vector<boost::shared_ptr<Reporter>> fReporters;
  std::shared_ptr<ColumnFile> fColumns;
  boost::shared_ptr<Watch> fWatch;
  boost::shared_ptr<LoopStatistics> fLoops;
  Sampler fSampler;

  boost::shared_ptr<GK::GKBrokerManager> fManager;
  boost::shared_ptr<GK::GKBroker> fBroker;
  std::unique_ptr<Calls> fCalls;
  /// So many calls of scenarios were made.
  std::uint64_t fCallNumber = 0;
  std::vector<std::unique_ptr<Library>> fLibraries;

  std::function<void()> fAtEnd;
  bool fIsExitAsked = false;
  bool fIsDown = false;
  /// The input was malformed, or somebody has no use for the rest of the run.
  bool fIsGivenUp = false;
  GK::GKMicros fDuration = 0;
  std::atomic<std::uint64_t> fTicks{0};
  std::atomic<std::uint64_t> fEvents{0};
};

} // namespace gk::runtime
