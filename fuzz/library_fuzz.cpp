#include "fuzz/Invariants.h"
#include "fuzz/Require.h"
#include "fuzz/ScenarioScript.h"
#include "gk/GKMemoryStore.h"
#include "runtime/host/Host.h"
#include "tests/support/FastAccessGate.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

// Whole short scenarios through the library: whatever is measured, called and broken, the process
// lives, answers, ends, and says nothing that cannot be. The library is linked in: one that comes
// and goes would take its coverage counters along.

extern "C" int _createModule(boost::shared_ptr<GK::GKBroker> broker);

namespace {

/// Where the scenario of a run lies; gone with the process.
class ScriptFile {
public:
  ~ScriptFile() { std::filesystem::remove(fPath); }

  const std::string& path() const { return fPath; }
  void write(const std::string& text) const { std::ofstream(fPath, std::ios::trunc) << text; }

private:
  const std::string fPath = (std::filesystem::temp_directory_path() /
                             ("gk_library_fuzz." + std::to_string(getpid()) + ".jsonl"))
                                .string();
};

void run(const ScriptFile& file, const gk::fuzz::ScenarioScript& script) {
  file.write(script.text);
  gk::runtime::HostOptions options;
  options.files = {file.path()};
  options.isVirtual = true;
  options.endsWithInput = true;
  gk::runtime::Host host(options);
  const auto invariants = boost::make_shared<gk::fuzz::Invariants>(script.hasFaults);
  GK::GKObserverList::instance().add(invariants);
  host.start();
  try {
    _createModule(GK::GKBrokerManager::getInstance()->getRandomBroker());
    host.run();
  } catch (const GK::GKError&) {
    gk::fuzz::require(script.hasFaults, "the library loads when nothing fails");
  }
  host.shutdown();
  GK::GKObserverList::instance().remove(invariants);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  GK::GKMemoryFastAccessGate::open();
  static const ScriptFile file;
  zu::log::setConsoleLevel(0);
  run(file, gk::fuzz::writeScenario({data, size}));
  return 0;
}
