#include "runtime/host/Host.h"

#include "devices/sim/Simulation.h"
#include "devices/WriteGate.h"
#include "formats/text/NearestNames.h"
#include "gk/DCM.h"
#include "gk/GKMemory.h"
#include "gk/GKResourceManager.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/notices/Raise.h"
#include "messages/text/FormatError.h"
#include "runtime/expect/JudgedTurns.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace gk::runtime {

namespace {

template <class... F> struct Overloaded : F... { using F::operator()...; };
template <class... F> Overloaded(F...) -> Overloaded<F...>;

/// Name under which a run subscribes to the extractors that it was asked to.
constexpr const char* kSubscriber = "gk";

/// As `keyTypeOf`, for a robot whose world has these keys and no others.
messages::KeyType simulatedTypeOf(std::string_view key) {
  if (key.starts_with(devices::World::kPrefix) && messages::findDeviceKey(key) == nullptr) {
    throw messages::FormatError("the simulated robot has no such key");
  }
  return messages::keyTypeOf(key);
}

} // namespace

/// Counts, and tells the host of ticks.
class Host::Watch : public GK::GKObserver {
public:
  explicit Watch(Host& host) : fHost(host) {}

  void onNotice(const GK::GKNotice& notice) override {
    if (messages::isRaise(notice)) {
      fHost.fEvents.fetch_add(1, std::memory_order_relaxed);
    }
  }

  void onTick(GK::GKMicros time, const GK::GKTask&) override { fHost.xOnTick(time); }

private:
  Host& fHost;
};

/// What recordings are played to: the device layer and the host.
class Host::Target : public formats::RecordingTarget {
public:
  explicit Target(Host& host) : fHost(host) {}

  GK::GKMemoryCell* column(const std::string& key) override {
    if (fHost.fOptions.recorder != nullptr) {
      fHost.fOptions.recorder->watch(key);
    }
    return &fHost.fStore->cell(key);
  }
  void act(const formats::Action& action) override { fHost.xAct(action); }

private:
  Host& fHost;
};

/// What happens as time goes on: the recordings, and at equal times after them the simulated robot,
/// which thus sees in each frame what was played by its end. Of a run in steps also what comes in
/// between them, and last the ends of the steps, at which the time is what was asked for.
class Host::Input : public GK::GKInput {
public:
  explicit Input(Host& host) : fHost(host) {}

  void setSteps(std::function<std::optional<Step>()> next) {
    fNextStep = std::move(next);
    fStepEnd = 0;
  }

  std::optional<GK::GKMicros> goOn() override {
    std::optional<Step> step = fNextStep ? fNextStep() : std::nullopt;
    if (!step) {
      return std::nullopt;
    }
    fStepEnd = step->time;
    fWork = std::move(step->work);
    return fStepEnd;
  }

  std::optional<GK::GKMicros> next() override {
    if (fWork) {
      return fHost.fClock->elapsed();
    }
    const std::optional<GK::GKMicros> due = xNextOfRun();
    return due && fStepEnd ? std::min(*due, *fStepEnd) : due ? due : fStepEnd;
  }

  void apply() override {
    if (fWork) {
      std::exchange(fWork, nullptr)();
      return;
    }
    if (fStepEnd && xNextOfRun().value_or(*fStepEnd + 1) > *fStepEnd) {
      fStepEnd.reset();
      return;
    }
    const std::optional<GK::GKMicros> line = fHost.fPlayer.next();
    if (fHost.fSimulation != nullptr && (!line || fHost.fSimulation->next() < *line)) {
      fHost.fSimulation->advance(fHost.fClock->elapsed());
    } else {
      fHost.fPlayer.apply();
    }
  }

  void onEnd() override { fHost.xEnd(); }

private:
  std::optional<GK::GKMicros> xNextOfRun() {
    const std::optional<GK::GKMicros> line = fHost.fPlayer.next();
    if (fHost.fSimulation == nullptr) {
      return line;
    }
    const GK::GKMicros frame = fHost.fSimulation->next();
    return line ? std::min(*line, frame) : frame;
  }

  Host& fHost;
  std::function<std::optional<Step>()> fNextStep;
  std::optional<GK::GKMicros> fStepEnd;
  std::function<void()> fWork;
};

Host::Host(HostOptions options)
    : fOptions(std::move(options)), fClock(xMakeClock()),
      fDevices(fStore, fOptions.simulation ? messages::simulatedKeys() : messages::deviceKeys()),
      fTarget(std::make_unique<Target>(*this)), fPlayer(*fTarget),
      fInput(std::make_unique<Input>(*this)), fWatch(boost::make_shared<Watch>(*this)),
      fLoops(boost::make_shared<LoopStatistics>()), fSampler(fOptions.sample, fStore) {
  std::vector<formats::Action> subscriptions;
  for (const std::string& module : fOptions.subscribe) {
    subscriptions.emplace_back(formats::CallAction{
        module, "subscribe", {GK::GKValue(kSubscriber)}, module + ".subscribe"});
  }
  fPlayer.add(std::move(subscriptions));
  fPlayer.open(fOptions.files, fOptions.simulation ? simulatedTypeOf : messages::keyTypeOf,
               fOptions.companions);
  fPlayer.setAtEnd(fOptions.atInputEnd);
  fPlayer.setLoop(fOptions.isLoop, [judge = fOptions.judge](GK::GKMicros start) {
    if (judge != nullptr) {
      judge->onRound(start);
    }
  });
  if (fOptions.simulation) {
    fSimulation = std::make_unique<devices::Simulation>(fStore, *fOptions.simulation);
  }
  GK::GKClock::install(fClock);
  GK::GKOperationHook::install(fFaults);
}

std::shared_ptr<GK::GKClock> Host::xMakeClock() {
  if (fOptions.replay != nullptr) {
    fOptions.replay->attach(
        fStore, [this](const formats::Action& action) { xAct(action); },
        [this](const formats::CallAction& call) { fCalls->callNow(call); });
    return GK::makeReplayClock(judgedSchedule(fOptions.judge, fOptions.replay));
  }
  if (fOptions.isVirtual) {
    return GK::makeVirtualClock(fOptions.epoch, judgedTurns(fOptions.judge, fOptions.recorder));
  }
  return fOptions.recorder != nullptr ? GK::makeTurnClock(fOptions.recorder, fOptions.turnPatience,
                                                          fOptions.loopPriority, fOptions.speed)
                                      : GK::makeRealClock(fOptions.loopPriority, fOptions.speed);
}

GK::GKInput& Host::xInput() {
  if (fOptions.replay != nullptr) {
    return fOptions.replay->input();
  }
  return *fInput;
}

Host::~Host() {
  try {
    fPlayer.stop();
    fIsExitAsked = false;
    fIsGivenUp = true;
    shutdown();
  } catch (...) { // NOLINT(bugprone-empty-catch): nothing of the input is read on this way
  }
}

void Host::addReporter(boost::shared_ptr<Reporter> reporter) {
  fReporters.push_back(std::move(reporter));
}

void Host::start() {
  for (const auto& reporter : fReporters) {
    GK::GKObserverList::instance().add(reporter);
  }
  GK::GKObserverList::instance().add(fWatch);
  GK::GKObserverList::instance().add(fLoops);
  if (fOptions.judge != nullptr) {
    fOptions.judge->setMemory([this](const std::string& key) { return xRead(key); });
    GK::GKObserverList::instance().add(fOptions.judge);
  }

  const std::vector<formats::Action> preload =
      fOptions.replay != nullptr ? fOptions.replay->preload() : fPlayer.preload();
  for (const formats::Action& action : preload) {
    xAct(action);
  }
  for (const auto& [key, value] : fOptions.settings) {
    fDevices.set(key, value);
  }
  fDevices.publish();
  if (fSimulation != nullptr) {
    fSimulation->start();
  }
  if (fOptions.recorder != nullptr) {
    fOptions.recorder->start(fStore, preload);
  }
  xStartServices();
  for (const std::string& name : fOptions.libraries) {
    fLibraries.push_back(std::make_unique<Library>(findLibrary(name, fOptions.libraryFolders)));
    fLibraries.back()->createModules(fBroker);
  }
  xExpectExtractors();
}

void Host::xExpectExtractors() const {
  std::vector<std::string> names;
  for (const auto& module : fBroker->getModules()) {
    if (module->findMethod("subscribe", 1) != nullptr) {
      names.push_back(module->getName());
    }
  }
  for (const std::string& wanted : fOptions.subscribe) {
    if (fBroker->findModule(wanted) == nullptr) {
      throw messages::FormatError("--subscribe: there is no module " + wanted +
                                  formats::didYouMean(formats::nearestNames(wanted, names)));
    }
  }
}

void Host::xStartServices() {
  fManager = boost::make_shared<GK::GKBrokerManager>();
  GK::GKBrokerManager::setInstance(fManager);
  fBroker = boost::make_shared<GK::GKBroker>("gk", fManager);
  fManager->addBroker(fBroker);
  fCalls = std::make_unique<Calls>(fBroker, [this](Answer answer) { xReport(std::move(answer)); });
  const std::shared_ptr<GK::GKWriteGate> gate = xMakeGate();
  const auto add = [this, &gate](auto service) {
    service->setGate(gate);
    if (xHasService(service->getName().c_str())) {
      service->initModule();
    }
  };
  add(boost::make_shared<GK::GKMemory>(fBroker, fStore));
  add(boost::make_shared<GK::DCM>(fBroker, fStore));
  add(boost::make_shared<GK::GKResourceManager>(fBroker, fStore));
}

std::shared_ptr<GK::GKWriteGate> Host::xMakeGate() {
  devices::WriteGate::World world;
  if (fSimulation != nullptr) {
    world = [this](const std::string& key, const GK::GKValue& value) {
      return fSimulation->admit(key, value);
    };
  } else if (fOptions.hadSimulation) {
    fFormerWorld = std::make_unique<devices::World>(fStore);
    world = [this](const std::string& key, const GK::GKValue& value) {
      return fFormerWorld->admit(key, value);
    };
  }
  return std::make_shared<devices::WriteGate>(fOptions.limits, std::move(world));
}

bool Host::xHasService(const char* name) const {
  const auto& without = fOptions.without;
  return std::find(without.begin(), without.end(), name) == without.end();
}

void Host::run(std::function<void()> atEnd) {
  fAtEnd = std::move(atEnd);
  const GK::GKClock::End end = fClock->run(&xInput(), fOptions.until);
  xEnd();
  xFinish(end);
}

void Host::runInSteps(std::function<std::optional<Step>()> next) {
  fInput->setSteps(std::move(next));
  xFinish(fClock->run(&xInput(), 0));
}

void Host::xFinish(GK::GKClock::End end) {
  fDuration = fClock->elapsed();
  if (fOptions.judge != nullptr) {
    // Nothing more would have happened until then.
    fOptions.judge->onEnd(end == GK::GKClock::End::Until ? *fOptions.until : fDuration);
  }
  if (!fIsExitAsked) {
    // Over for calls that have not returned: at a time limit, or because they are a loop.
    fCalls->abandon();
  }
  if (end == GK::GKClock::End::Until) {
    // What follows is no part of the run.
    if (fOptions.recorder != nullptr) {
      fOptions.recorder->stop();
    }
    for (const auto& reporter : fReporters) {
      reporter->mute();
    }
    xFinishJudge();
  }
}

void Host::xFinishJudge() {
  if (fOptions.judge != nullptr && !fIsGivenUp) {
    fOptions.judge->finish();
  }
}

/// On clocks without turns only `run` itself gets here.
void Host::xEnd() {
  if (const std::function<void()> atEnd = std::exchange(fAtEnd, nullptr)) {
    atEnd();
  }
}

void Host::shutdown() {
  if (std::exchange(fIsDown, true)) {
    return;
  }
  if (fBroker != nullptr) {
    fBroker->shutdown();
  }
  xFinishJudge();
  if (fOptions.judge != nullptr) {
    GK::GKObserverList::instance().remove(fOptions.judge);
  }
  GK::GKObserverList::instance().remove(fWatch);
  GK::GKObserverList::instance().remove(fLoops);
  for (const auto& reporter : fReporters) {
    GK::GKObserverList::instance().remove(reporter);
  }
  fCalls.reset();
  fBroker.reset();
  fManager.reset();
  GK::GKBrokerManager::setInstance({});
  while (!fLibraries.empty()) {
    fLibraries.pop_back();
  }
  GK::GKOperationHook::install(nullptr);
  GK::GKClock::install(nullptr);
  if (fIsExitAsked) {
    fPlayer.checkRest();
  }
}

std::vector<std::string> Host::missingSamples() const {
  std::vector<std::string> missing;
  for (const std::string& key : fOptions.sample.keys) {
    // A key that was there once is there for good.
    if (!fStore->get(key)) {
      missing.push_back("--sample: there was never a key " + key +
                        formats::didYouMean(formats::nearestNames(key, fStore->keys())));
    }
  }
  return missing;
}

RunStatistics Host::statistics() const {
  RunStatistics statistics;
  statistics.duration = fDuration;
  statistics.ticks = fTicks.load(std::memory_order_relaxed);
  statistics.events = fEvents.load(std::memory_order_relaxed);
  return statistics;
}

void Host::xReport(Answer answer) {
  if (fOptions.judge != nullptr) {
    fOptions.judge->onAnswer(answer);
  }
  for (const auto& reporter : fReporters) {
    reporter->answer(answer);
  }
}

void Host::carryOut(const formats::Action& action, const std::function<void()>& work) {
  const GK::GKOutsideTurn turn;
  if (fOptions.recorder != nullptr) {
    fOptions.recorder->act(action);
  }
  work();
  if (fOptions.recorder != nullptr) {
    fOptions.recorder->carriedOut();
  }
}

void Host::xAct(const formats::Action& action) {
  if (fOptions.recorder != nullptr) {
    fOptions.recorder->act(action);
  }
  std::visit(
      Overloaded{[this](const formats::SetAction& set) {
                   xAdmit(set);
                   for (const auto& [key, value] : set.values) {
                     fDevices.set(key, value);
                   }
                 },
                 [this](const formats::UnsetAction& unset) {
                   for (const std::string& pattern : unset.patterns) {
                     fDevices.unset(pattern);
                   }
                 },
                 [this](const formats::CallAction& call) {
                   const std::uint64_t number = ++fCallNumber;
                   if (fOptions.judge != nullptr) {
                     fOptions.judge->onCall(call.label, number);
                   }
                   fCalls->start(call, number);
                 },
                 [this](const formats::GetAction& get) {
                   for (const std::string& key : get.keys) {
                     xGet(key);
                   }
                 },
                 [this](const formats::GetOutputAction& page) { fCalls->startPage(page.module); },
                 [this](const formats::FailAction& fault) { fFaults->add(fault); },
                 [this](const formats::ExitAction&) {
                   fIsExitAsked = true;
                   fPlayer.stop();
                   // A repeated run ends when the former one did.
                   if (fOptions.replay == nullptr) {
                     fClock->requestEnd();
                   }
                 }},
      action);
}

void Host::xAdmit(const formats::SetAction& set) {
  if (fSimulation == nullptr) {
    return;
  }
  for (const auto& [key, value] : set.values) {
    if (!key.starts_with(devices::World::kPrefix)) {
      continue;
    }
    if (const std::string refusal = fSimulation->admit(key, value); !refusal.empty()) {
      throw messages::FormatError(refusal);
    }
  }
}

std::optional<GK::GKValue> Host::xRead(const std::string& key) const {
  return xHasService(GK::GKMemory::kName) ? fStore->get(key) : std::nullopt;
}

void Host::xGet(const std::string& key) {
  const std::optional<GK::GKValue> value = xRead(key);
  Answer answer;
  answer.kind = Answer::Kind::Value;
  answer.time = fClock->elapsed();
  answer.name = key;
  if (value) {
    answer.hasValue = true;
    answer.value = *value;
  }
  xReport(std::move(answer));
}

void Host::xOnTick(GK::GKMicros time) {
  fTicks.fetch_add(1, std::memory_order_relaxed);
  if (const std::optional<Sample> values = fSampler.take(time)) {
    for (const auto& reporter : fReporters) {
      reporter->sample(time, *values);
    }
    if (fColumns != nullptr) {
      fColumns->add(time, *values);
    }
  }
  fCalls->onTick();
  if (fOptions.endsWithInput && fOptions.replay == nullptr && fPlayer.isAtEnd() &&
      fCalls->pending() == 0) {
    fClock->requestEnd();
  }
}

} // namespace gk::runtime
