#include "runtime/Host.h"

#include "devices/DeviceKeys.h"
#include "gk/DCM.h"
#include "gk/GKMemory.h"
#include "gk/GKResourceManager.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace gk::runtime {

namespace {

template <class... F> struct Overloaded : F... { using F::operator()...; };
template <class... F> Overloaded(F...) -> Overloaded<F...>;

/// Name under which a run subscribes to the extractors that it was asked to.
constexpr const char* kSubscriber = "gk";

} // namespace

/// Counts, and tells the host of ticks.
class Host::Watch : public GK::GKObserver {
public:
  explicit Watch(Host& host) : fHost(host) {}

  void onNotice(const GK::GKNotice& notice) override {
    if (notice.kind == GK::GKNotice::Kind::Event || notice.kind == GK::GKNotice::Kind::MicroEvent) {
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

  GK::GKMemoryCell* column(const std::string& key) override { return &fHost.fStore->cell(key); }
  void act(const formats::Action& action) override { fHost.xAct(action); }

private:
  Host& fHost;
};

Host::Host(HostOptions options)
    : fOptions(std::move(options)),
      fClock(fOptions.isVirtual ? GK::makeVirtualClock(fOptions.epoch)
                                : GK::makeRealClock(fOptions.loopPriority)),
      fTarget(std::make_unique<Target>(*this)), fPlayer(*fTarget),
      fWatch(boost::make_shared<Watch>(*this)), fLoops(boost::make_shared<LoopStatistics>()) {
  std::vector<formats::Action> subscriptions;
  for (const std::string& module : fOptions.subscribe) {
    subscriptions.emplace_back(formats::CallAction{
        module, "subscribe", {GK::GKValue(kSubscriber)}, module + ".subscribe"});
  }
  fPlayer.add(std::move(subscriptions));
  fPlayer.open(fOptions.files, devices::keyTypeOf);
  fPlayer.setLoop(fOptions.isLoop);
  GK::GKClock::install(fClock);
  GK::GKOperationHook::install(fFaults);
}

Host::~Host() {
  try {
    fPlayer.stop();
    fIsExitAsked = false;
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

  for (const formats::Action& action : fPlayer.preload()) {
    xAct(action);
  }
  fDevices.publish();
  xStartServices();
  for (const std::string& path : fOptions.libraries) {
    fLibraries.push_back(std::make_unique<Library>(path));
    fLibraries.back()->createModules(fBroker);
  }
}

void Host::xStartServices() {
  fManager = boost::make_shared<GK::GKBrokerManager>();
  GK::GKBrokerManager::setInstance(fManager);
  fBroker = boost::make_shared<GK::GKBroker>("gk", fManager);
  fManager->addBroker(fBroker);
  fCalls = std::make_unique<Calls>(fBroker, [this](Answer answer) { xReport(std::move(answer)); });
  const auto add = [this](auto service) {
    if (xHasService(service->getName().c_str())) {
      service->initModule();
    }
  };
  add(boost::make_shared<GK::GKMemory>(fBroker, fStore));
  add(boost::make_shared<GK::DCM>(fBroker, fStore));
  add(boost::make_shared<GK::GKResourceManager>(fBroker, fStore));
}

bool Host::xHasService(const char* name) const {
  const auto& without = fOptions.without;
  return std::find(without.begin(), without.end(), name) == without.end();
}

void Host::run() {
  const GK::GKClock::End end = fClock->run(&fPlayer, fOptions.until);
  fDuration = fClock->elapsed();
  if (!fIsExitAsked) {
    // Over for calls that have not returned: at a time limit, or because they are a loop.
    fCalls->abandon();
  }
  if (end == GK::GKClock::End::Until) {
    for (const auto& reporter : fReporters) {
      reporter->mute();
    }
  }
}

void Host::shutdown() {
  if (std::exchange(fIsDown, true)) {
    return;
  }
  if (fBroker != nullptr) {
    fBroker->shutdown();
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

RunStatistics Host::statistics() const {
  RunStatistics statistics;
  statistics.duration = fDuration;
  statistics.ticks = fTicks.load(std::memory_order_relaxed);
  statistics.events = fEvents.load(std::memory_order_relaxed);
  return statistics;
}

void Host::xReport(Answer answer) {
  for (const auto& reporter : fReporters) {
    reporter->answer(answer);
  }
}

void Host::xAct(const formats::Action& action) {
  std::visit(
      Overloaded{[this](const formats::SetAction& set) {
                   for (const auto& [key, value] : set.values) {
                     fDevices.set(key, value);
                   }
                 },
                 [this](const formats::UnsetAction& unset) {
                   for (const std::string& pattern : unset.patterns) {
                     fDevices.unset(pattern);
                   }
                 },
                 [this](const formats::CallAction& call) { fCalls->start(call); },
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
                   fClock->requestEnd();
                 }},
      action);
}

void Host::xGet(const std::string& key) {
  const std::optional<GK::GKValue> value =
      xHasService(GK::GKMemory::kName) ? fStore->get(key) : std::nullopt;
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
  if (!fOptions.sample.empty()) {
    Sample values;
    for (const std::string& key : fOptions.sample) {
      if (std::optional<GK::GKValue> value = fStore->get(key)) {
        values.emplace_back(key, *std::move(value));
      }
    }
    for (const auto& reporter : fReporters) {
      reporter->sample(time, values);
    }
  }
  fCalls->onTick();
  if (fOptions.endsWithInput && fPlayer.isAtEnd() && fCalls->pending() == 0) {
    fClock->requestEnd();
  }
}

} // namespace gk::runtime
