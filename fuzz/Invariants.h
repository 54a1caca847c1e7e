#pragma once

#include "gk/GKObserver.h"

#include <map>
#include <string>

namespace gk::fuzz {

/// Watches a run of the sensor library for what must hold whatever the robot does.
class Invariants : public GK::GKObserver {
public:
  /// `hasFaults`: operations of the platform fail, so that an event may be raised again with the
  /// value that did not get through before.
  explicit Invariants(bool hasFaults) : fHasFaults(hasFaults) {}

  void onNotice(const GK::GKNotice& notice) override;
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;

private:
  void xCheckTime(GK::GKMicros time);
  void xCheckChange(const std::string& event, const GK::GKValue& value);

  const bool fHasFaults;
  GK::GKMicros fLast = 0;
  std::map<std::string, GK::GKValue> fRaised;
};

} // namespace gk::fuzz
