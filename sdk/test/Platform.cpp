#include "gk/test/Platform.h"

#include "gk/DCM.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKClock.h"
#include "gk/GKError.h"
#include "gk/GKMemory.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKModuleCore.h"
#include "gk/GKObserver.h"
#include "gk/GKResourceManager.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

#include <cmath>
#include <dlfcn.h>
#include <mutex>
#include <optional>

namespace gk::test {

namespace {

constexpr const char* kClassName = "gk::test::Platform";
constexpr double kMicrosPerSecond = 1e6;
/// About thirty years, in seconds.
constexpr double kLongest = 1e9;

double secondsOf(GK::GKMicros time) {
  return static_cast<double>(time) / kMicrosPerSecond;
}

} // namespace

/// Keeps what is raised and logged.
class Platform::Watch : public GK::GKObserver {
public:
  void onNotice(const GK::GKNotice& notice) override {
    const std::lock_guard<std::mutex> lock(fMutex);
    switch (notice.kind) {
    case GK::GKNotice::Kind::Event:
      fEvents.push_back({secondsOf(notice.time), notice.name, notice.value, Kind::Event});
      break;
    case GK::GKNotice::Kind::MicroEvent:
      fEvents.push_back({secondsOf(notice.time), notice.name, notice.value, Kind::MicroEvent});
      break;
    case GK::GKNotice::Kind::Log:
      fLog.push_back(
          {secondsOf(notice.time), notice.level, notice.name, notice.owner, notice.text});
      break;
    default:
      break;
    }
  }

  std::vector<Event> events() const {
    const std::lock_guard<std::mutex> lock(fMutex);
    return fEvents;
  }
  std::vector<LogLine> log() const {
    const std::lock_guard<std::mutex> lock(fMutex);
    return fLog;
  }
  void clear() {
    const std::lock_guard<std::mutex> lock(fMutex);
    fEvents.clear();
    fLog.clear();
  }

private:
  mutable std::mutex fMutex;
  std::vector<Event> fEvents;
  std::vector<LogLine> fLog;
};

Platform::Platform(Services services)
    : fStore(std::make_shared<GK::GKMemoryStore>()), fWatch(boost::make_shared<Watch>()),
      fManager(boost::make_shared<GK::GKBrokerManager>()) {
  zu::log::setConsoleLevel(0);
  GK::GKClock::install(GK::makeVirtualClock(kEpoch));
  GK::GKObserverList::instance().add(fWatch);
  GK::GKBrokerManager::setInstance(fManager);
  fBroker = boost::make_shared<GK::GKBroker>("test", fManager);
  fManager->addBroker(fBroker);
  if (services != kNoServices) {
    fMemory = boost::make_shared<GK::GKMemory>(fBroker, fStore);
    fMemory->initModule();
  }
  if (services == kAllServices) {
    boost::make_shared<GK::DCM>(fBroker, fStore)->initModule();
    boost::make_shared<GK::GKResourceManager>(fBroker, fStore)->initModule();
  }
}

Platform::~Platform() {
  shutdown();
  fManager.reset();
  GK::GKBrokerManager::setInstance(nullptr);
  GK::GKObserverList::instance().remove(fWatch);
  GK::GKClock::install(nullptr);
  while (!fLibraries.empty()) {
    dlclose(fLibraries.back());
    fLibraries.pop_back();
  }
}

void Platform::shutdown() {
  if (fBroker != nullptr) {
    fBroker->shutdown();
  }
  fMemory.reset();
  fBroker.reset();
}

void Platform::set(const std::string& key, const GK::GKValue& value) {
  fStore->set(key, value);
}

GK::GKValue Platform::get(const std::string& key) const {
  if (const std::optional<GK::GKValue> value = fStore->get(key)) {
    return *value;
  }
  throw GK::GKError(kClassName, "get", "there is no key " + key);
}

void Platform::advance(double seconds) {
  if (!(seconds >= 0.0 && seconds <= kLongest)) {
    throw GK::GKError(kClassName, "advance",
                      std::to_string(seconds) + " is no number of seconds to go on for");
  }
  GK::GKClock& clock = GK::GKClock::instance();
  const GK::GKMicros end = clock.elapsed() + std::llround(seconds * kMicrosPerSecond);
  clock.run(nullptr, end);
  // Nothing more is due by then.
  clock.sleep(end - clock.elapsed());
}

void Platform::load(const std::string& path) {
  // With a folder in its name the loader looks nowhere else.
  const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
  void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw GK::GKError(kClassName, "load", dlerror());
  }
  fLibraries.push_back(library);
  using CreateModule = int (*)(boost::shared_ptr<GK::GKBroker>);
  const auto create = reinterpret_cast<CreateModule>(dlsym(library, "_createModule"));
  if (create == nullptr || create(fBroker) != 0) {
    throw GK::GKError(kClassName, "load", path + " has no entry that creates its modules");
  }
}

std::vector<Event> Platform::events() const {
  return fWatch->events();
}

std::vector<LogLine> Platform::log() const {
  return fWatch->log();
}

void Platform::clear() {
  fWatch->clear();
}

double Platform::now() const {
  return secondsOf(GK::GKClock::instance().elapsed());
}

GK::GKValue Platform::xCall(const std::string& method, const std::vector<GK::GKValue>& arguments) {
  const std::size_t dot = method.find('.');
  const auto module = fBroker->findModule(method.substr(0, dot));
  if (module == nullptr || dot == std::string::npos) {
    throw GK::GKError(kClassName, "call", "there is no method " + method);
  }
  return module->callMethod(method.substr(dot + 1), arguments);
}

} // namespace gk::test
