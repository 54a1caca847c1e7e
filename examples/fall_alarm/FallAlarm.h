#pragma once

#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"

#include <mutex>
#include <string>

/// Raises "FallAlarm" with true when the robot lies, and with false when it has been up and on its
/// feet again for a while: one alarm for a fall, however much it struggles to get up.
///
/// Setting "FallAlarm/QuietSeconds": how long it has to be up, 2 when absent.
class FallAlarm : public GK::GKModule {
public:
  explicit FallAlarm(const boost::shared_ptr<GK::GKBroker>& broker);

  void init() override;
  void exit() override;

  /// Whether the alarm is on. Any thread.
  bool isFallen() const;

  // What the platform calls.
  void onPose(const std::string& event, const GK::GKValue& pose);
  void onFeet(const std::string& event, const GK::GKValue& isOnFloor);
  /// Waits, and ends the alarm if nothing has happened since `change`.
  void settle(const int& change);

private:
  /// Something has changed: decides whether that begins the alarm, or perhaps ends it.
  void xJudge();

  boost::shared_ptr<GK::GKMemoryProxy> fMemory;
  unsigned int fQuietMilliseconds = 0;
  /// Guards what follows. Never held while anything sleeps or is called.
  mutable std::mutex fMutex;
  bool fIsUp = true;
  bool fIsOnFeet = true;
  bool fIsFallen = false;
  /// Counts what has happened.
  int fChange = 0;
};
