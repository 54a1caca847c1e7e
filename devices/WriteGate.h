#pragma once

#include "devices/ClientLimits.h"
#include "gk/GKWriteGate.h"

#include <functional>
#include <mutex>
#include <set>
#include <string>

namespace gk::devices {

/// The rules for everything that programs, scenarios and the platform's deliveries write, raise,
/// declare and subscribe to, by whatever way: names and values have a size, a device key keeps the
/// type that the table gives it (1 is 1.0 for a touch sensor), the world of the simulated robot
/// decides about its own keys, and only so many keys and events come from outside.
///
/// Modules may do what they like, but for the world's keys. Any thread.
class WriteGate final : public GK::GKWriteGate {
public:
  /// Tells why the world refuses a value for one of its keys; empty when it takes it.
  using World = std::function<std::string(const std::string& key, const GK::GKValue& value)>;

  /// `world` is empty where no robot is simulated: then its keys are keys as all others.
  explicit WriteGate(const ClientLimits& limits = {}, World world = {});

  Verdict admit(const GK::GKWrite& write) override;

private:
  std::string xRefuse(const GK::GKWrite& write, Verdict& verdict);
  /// Counts what is new. Returns why it is one too many.
  std::string xCount(const GK::GKWrite& write);

  const ClientLimits fLimits;
  const World fWorld;
  std::mutex fMutex;
  /// What came from outside, by name.
  std::set<std::string> fKeys;
  std::set<std::string> fEvents;
};

} // namespace gk::devices
