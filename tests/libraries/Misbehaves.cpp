#include "gk/GKBroker.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

// A module that does, when it is asked to, what modules should not.

namespace {

class Misbehaves : public GK::GKModule {
public:
  explicit Misbehaves(const boost::shared_ptr<GK::GKBroker>& broker)
      : GKModule(broker, "Misbehaves") {
    functionName("crash", getName(), "Ends the process by a signal.");
    bindMethod(&Misbehaves::crash, this);

    functionName("hang", getName(), "Never returns.");
    bindMethod(&Misbehaves::hang, this);

    functionName("print", getName(), "Writes to standard output.");
    addParam("text", "What to write.");
    bindMethod(&Misbehaves::print, this);

    functionName("raiseProcess", getName(), "Raises an event with another value in each process.");
    bindMethod(&Misbehaves::raiseProcess, this);
  }

  void crash() { std::abort(); }
  void hang() {
    while (true) {
      pause();
    }
  }
  void print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fputs("\xFF\x01<&]]>\n", stdout);
    std::fflush(stdout);
  }
  void raiseProcess() {
    GK::GKMemoryProxy memory(getParentBroker()->getProxy("GKMemory", 0));
    memory.raiseEvent("Process", static_cast<int>(getpid()));
  }
};

} // namespace

extern "C" GK_API int _createModule(boost::shared_ptr<GK::GKBroker> broker) {
  GK::GKModule::createModule<Misbehaves>(broker);
  return 0;
}
