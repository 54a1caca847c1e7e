#pragma once

#include "gateway/figures/Counters.h"
#include "gateway/robot/CallRunner.h"
#include "gateway/robot/Robot.h"
#include "gateway/robot/RpcService.h"
#include "gk/GKClientCalls.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>

namespace gk::gateway {

/// What a host offers to module libraries that call on behalf of programs elsewhere: the same as
/// requests of JSON-RPC get. Any thread.
class ClientCalls : public GK::GKClientCalls {
public:
  /// `service` must outlive the calls' tasks.
  ClientCalls(RpcService& service, std::shared_ptr<const Robot> robot)
      : fService(service), fRobot(std::move(robot)) {}

  void call(const std::string& module, const std::string& method, const std::string& params,
            Done done) override;

  /// From here on calls are refused.
  void close();

private:
  RpcService& fService;
  std::mutex fMutex;
  std::shared_ptr<const Robot> fRobot;
};

/// The same for a host that listens nowhere. For one thread; must outlive the broker's shutdown,
/// which waits for the calls.
class OwnCalls {
public:
  /// `calls`: most at a time; `answer`: most bytes of a result.
  OwnCalls(std::size_t calls, std::size_t answer)
      : fRunner(calls), fService(fRunner, fCounters, answer) {}
  ~OwnCalls() { close(); }
  OwnCalls(const OwnCalls&) = delete;
  OwnCalls& operator=(const OwnCalls&) = delete;

  /// As `Gateway::open`.
  void open(boost::shared_ptr<GK::GKBroker> broker, CarryOut carryOut, Outside outside);
  void close();

private:
  CallRunner fRunner;
  Counters fCounters;
  RpcService fService;
  std::shared_ptr<ClientCalls> fCalls;
};

} // namespace gk::gateway
