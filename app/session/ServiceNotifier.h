#pragma once

#include "gk/GKBroker.h"
#include "gk/GKObserver.h"

#include <boost/shared_ptr.hpp>

#include <chrono>
#include <mutex>
#include <string>

namespace gk::app {

/// Tells whoever started the host as a service how it is getting on, as sd_notify(3) describes:
/// ready, alive with each tick of the sensor loop (at most twice in the time after which it would
/// be taken for dead), stopping.
class ServiceNotifier : public GK::GKObserver {
public:
  /// Null where nobody wants to know.
  static boost::shared_ptr<ServiceNotifier> make();

  ServiceNotifier(std::string address, std::chrono::microseconds patience);
  ~ServiceNotifier() override;

  /// The modules in `broker` are up. From now on ticks are told, once this is an observer. Not told
  /// once the host is stopping already.
  void ready(const GK::GKBroker& broker, const std::string& status);
  /// Any thread.
  void stopping();

  void onNotice(const GK::GKNotice&) override {}
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;

private:
  void xSend(const std::string& text) const;

  const std::string fAddress;
  /// Half of the time after which the host would be taken for dead; 0 when nobody waits.
  const std::chrono::microseconds fPause;
  const int fSocket;
  /// Another library may have other loops: then each tells that the host lives.
  bool fIsOneLoop = false;
  std::chrono::steady_clock::time_point fLast;
  /// What is told of the beginning and the end is told in that order.
  std::mutex fMutex;
  bool fIsStopping = false;
};

} // namespace gk::app
