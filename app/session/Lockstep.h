#pragma once

#include "formats/files/OutputFile.h"
#include "formats/lines/Action.h"
#include "gateway/figures/Counters.h"
#include "gateway/robot/CallRunner.h"
#include "gateway/robot/HostMethods.h"
#include "gateway/robot/RpcService.h"
#include "gk/GKTime.h"
#include "runtime/host/Host.h"

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace gk::gateway {
class Robot;
}

namespace gk::app {

/// A run whose time moves on request: JSON-RPC 2.0, a line a message, from standard input to
/// standard output, with the methods of all modules and "Clock.advance", "Memory.get" and
/// "Memory.set". An answer comes when its call has returned; where that takes time, while some
/// later request lets time pass.
///
/// For one thread, but for `requestEnd` and `outside`. Must outlive the host's shutdown.
class Lockstep {
public:
  /// Longest request in bytes.
  static constexpr std::size_t kMostBytes = 1 << 20;

  Lockstep();
  ~Lockstep();
  Lockstep(const Lockstep&) = delete;
  Lockstep& operator=(const Lockstep&) = delete;

  /// Lets time 0 happen, then does what is asked for until the input ends. The host has been
  /// started, and has virtual time. Raises `InputError`, and `OutputError` when an answer cannot be
  /// written.
  void drive(runtime::Host& host);

  /// Makes `drive` return soon. Any thread.
  void requestEnd() noexcept;

  /// Does something for a client that comes by another way, between two steps: nobody else may
  /// touch the clock. Returns when it is done, with what it raises; without having done it once
  /// `drive` is about to return. Any thread.
  void outside(const std::function<void()>& work);

private:
  class Requests;
  class Raised;
  struct Advance {
    GK::GKMicros duration = 0;
    gateway::HostMethods::Done done;
  };

  /// Somebody waits until this is done.
  struct Waiting {
    const std::function<void()>* work = nullptr;
    std::exception_ptr error;
    bool isDone = false;
  };

  void xAddMethods();
  std::optional<runtime::Host::Step> xNextStep();
  std::optional<runtime::Host::Step> xStepOfOthers();
  void xRefuseLongRequest();
  void xFinishAdvance(GK::GKMicros time);
  void xEndOutside();
  void xAnswer(std::string answer);

  formats::OutputFile fOut{formats::OutputFile::Standard()};
  std::unique_ptr<Requests> fRequests;
  boost::shared_ptr<Raised> fRaised;
  gateway::Counters fCounters;
  gateway::CallRunner fRunner;
  gateway::HostMethods fMethods;
  gateway::RpcService fService;

  std::shared_ptr<const gateway::Robot> fRobot;
  GK::GKMicros fTime = 0;
  /// The thread that makes steps.
  std::atomic<std::thread::id> fDriver;
  std::mutex fMutex;
  std::condition_variable fServed;
  std::deque<std::shared_ptr<Waiting>> fWaiting;
  bool fIsClosed = false;

  /// Asked for by the request at hand.
  std::deque<Advance> fAdvances;
  /// The one that is being made.
  std::optional<Advance> fAdvance;
  std::string fRequest;
  bool fHasEnded = false;
  /// Why an answer could not be written.
  std::optional<formats::OutputError> fError;
};

} // namespace gk::app
