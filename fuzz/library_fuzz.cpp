#include "fuzz/Invariants.h"
#include "fuzz/Require.h"
#include "fuzz/ScenarioScript.h"
#include "gk/GKMemoryStore.h"
#include "runtime/Host.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

// Whole short scenarios through the library: whatever is measured, called and broken, the process
// lives, answers, ends, and says nothing that cannot be.

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
  options.libraries = {GK_LIBRARY};
  options.isVirtual = true;
  options.endsWithInput = true;
  gk::runtime::Host host(options);
  const auto invariants = boost::make_shared<gk::fuzz::Invariants>(script.hasFaults);
  GK::GKObserverList::instance().add(invariants);
  try {
    host.start();
    host.run();
    host.shutdown();
  } catch (const gk::runtime::LoadError&) {
    gk::fuzz::require(script.hasFaults, "the library loads when nothing fails");
  }
  GK::GKObserverList::instance().remove(invariants);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Once and for all: a library that comes and goes would take its coverage counters along.
  static void* const library = dlopen(GK_LIBRARY, RTLD_NOW | RTLD_NODELETE);
  gk::fuzz::require(library != nullptr, "the library is there");
  static const ScriptFile file;
  zu::log::setConsoleLevel(0);
  run(file, gk::fuzz::writeScenario({data, size}));
  return 0;
}
