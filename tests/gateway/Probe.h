#pragma once

#include "gk/GKModule.h"

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>

namespace gk::gateway::test {

/// A module that does what a test of the gateway needs of one.
class Probe : public GK::GKModule {
public:
  explicit Probe(boost::shared_ptr<GK::GKBroker> broker) : GKModule(std::move(broker), "Probe") {
    setModuleDescription("Answers tests.");

    functionName("echo", "Probe", "Gives back what it gets.");
    addParam("value", "Anything.");
    setReturn("value", "The same.");
    bindMethod(&Probe::echo, this);

    functionName("join", "Probe", "Joins two texts.");
    addParam("left", "First text.");
    addParam("right", "Second text.");
    setReturn("text", "Both.");
    bindOverload(&Probe::join, this);

    functionName("join", "Probe", "Joins two texts.");
    addParam("left", "First text.");
    setReturn("text", "The text.");
    bindOverload(&Probe::joinOne, this);

    functionName("nothing", "Probe", "Returns nothing.");
    bindMethod(&Probe::nothing, this);

    functionName("fail", "Probe", "Raises an error of the platform.");
    bindMethod(&Probe::fail, this);

    functionName("failOtherwise", "Probe", "Raises an error of another kind.");
    bindMethod(&Probe::failOtherwise, this);

    functionName("wait", "Probe", "Returns once the test allows it.");
    bindMethod(&Probe::wait, this);
  }

  std::string httpGet() override { return "<html><body>Probe's page</body></html>"; }
  void exit() override { release(); }

  GK::GKValue echo(const GK::GKValue& value) { return value; }
  std::string join(const std::string& left, const std::string& right) { return left + right; }
  std::string joinOne(const std::string& left) { return left; }
  void nothing() {}
  void fail() { throw GK::GKError("Probe", "fail", "it was asked to"); }
  void failOtherwise() { throw std::runtime_error("something else"); }

  /// Keeps its caller until `release`.
  void wait() {
    std::unique_lock lock(fMutex);
    ++fWaiting;
    fChanged.notify_all();
    fChanged.wait(lock, [this] { return fIsReleased; });
  }
  /// Returns once `count` calls of `wait` are waiting.
  void awaitWaiting(int count) {
    std::unique_lock lock(fMutex);
    fChanged.wait(lock, [this, count] { return fWaiting >= count; });
  }
  void release() {
    const std::lock_guard lock(fMutex);
    fIsReleased = true;
    fChanged.notify_all();
  }

private:
  std::mutex fMutex;
  std::condition_variable fChanged;
  int fWaiting = 0;
  bool fIsReleased = false;
};

} // namespace gk::gateway::test
