#pragma once

#include "gk/DCMProxy.h"
#include "gk/GKExtractor.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKValue.h"
#include "zu/os.h"

#include <boost/circular_buffer.hpp>
#include <boost/shared_ptr.hpp>

#include <atomic>
#include <cstdint>
#include <vector>

namespace GK {

/// Events of `GKSonar`. Each carries a distance in metres (float).
inline constexpr const char* szKeyNameLeft = "SonarLeftDetected";
inline constexpr const char* szKeyNameRight = "SonarRightDetected";
inline constexpr const char* szKeyNameFrontLeft = "SonarLateralLeftDetected";
inline constexpr const char* szKeyNameFrontRight = "SonarLateralRightDetected";
inline constexpr const char* szKeyNameNothingDetected = "SonarNothingDetected";
/// Declared as an event, but only ever written as data: the nearer of two distances of one obstacle
/// ahead.
inline constexpr const char* szKeyNameMiddle = "SonarMiddleDetected";
inline constexpr const char* szKeyNameNothingLeft = "SonarLeftNothingDetected";
inline constexpr const char* szKeyNameNothingRight = "SonarRightNothingDetected";

/// Turns the two ultrasonic distances into obstacle events, and switches the emitters on and off as
/// clients come and go.
///
/// The sensor loop feeds it through `dataChanged`; readings count only while somebody is
/// subscribed. Without DCM it works in simulation mode: events are raised, emitters are not driven.
class GKSonar : public GKExtractor {
public:
  explicit GKSonar(const boost::shared_ptr<GKBroker>& broker);

  /// Declares the events and, where there is a DCM, prepares the emitters' order. Raises `GKError`
  /// when there is no memory service or a declaration fails.
  void init() override;

  /// One tick: takes the readings (metres), classifies the scene and raises the events that are
  /// due. Ignored while nobody is subscribed. Sensor loop's thread only. A `GKError` of the memory
  /// service leaves from here with state and time of the events already updated, so that a failed
  /// burst is not tried again.
  void dataChanged(const float& left, const float& right);

  /// The filtered distances [right, left] in metres; 2.55 each before any reading. Any thread; the
  /// two may stem from before and after an update.
  std::vector<float> getFilteredValues() const;

protected:
  /// Switches the emitters on, which takes a second with a DCM, and lets readings in. Runs on the
  /// subscriber's thread; never at the same time as `xStopDetection`.
  void xStartDetection(int period, float precision) override;
  /// Switches the emitters off and ignores readings from here on.
  void xStopDetection() override;

private:
  friend class GKSonarPeer;

  /// Where the obstacle is. Lateral: the two sides see different things.
  enum class ObstacleState : std::int32_t {
    LateralRight = 0,
    Right = 1,
    Left = 2,
    LateralLeft = 3,
    Nothing = 4
  };

  void xBuildOrder();
  /// Puts the emitters' value and the present DCM time into the prepared order.
  void xSetCommand(float value);
  void xActivateReception();
  void xDesactivateReception();

  void xUpdateSonarBuffers(const float& right, const float& left);
  /// Moves the filtered distances when a side moved enough; says whether they moved.
  bool xShouldUpdateState();
  /// Decides for each side whether its filtered distance is in the detection range.
  void xApplyDistanceFilter();
  void xUpdateObstacleState();
  /// Says whether events are due, and if so notes the time.
  bool xShouldUpdateEvents();
  void xRaiseSonarEvents();

  boost::shared_ptr<GKMemoryProxy> fMemoryProxy;
  /// Empty in simulation mode.
  boost::shared_ptr<DCMProxy> fDCM;
  /// [actuator key, update type, [[value, DCM time]]]; invalid in simulation mode.
  GKValue DCMOrderValue;

  /// Readings kept per side.
  static constexpr std::uint32_t fBufferSize = 1;
  /// Latest readings in metres, oldest first. Room for one more than is kept: a reading is added
  /// before the oldest one goes.
  boost::circular_buffer<float> fRightBuffer{fBufferSize + 1};
  boost::circular_buffer<float> fLeftBuffer{fBufferSize + 1};
  bool fLeftDetected = false;
  bool fRightDetected = false;
  /// Metres. Written by the sensor loop, read by remote callers.
  std::atomic<float> fFilteredLeft{kNothingInSight};
  std::atomic<float> fFilteredRight{kNothingInSight};
  /// Written by subscribers' threads, read by the sensor loop.
  std::atomic<bool> fDetectionActive{false};
  /// Events repeat as time goes on; otherwise they are raised when the state changes.
  bool fPeriodicEvents = true;
  /// Zero at first: without DCM the first reading raises events at once.
  zu::os::timeval fLastEventTime;
  /// A side detects what is nearer than this, metres.
  static constexpr float fDetectionRange = 0.7F;
  /// Two distances closer to each other than this belong to one obstacle, metres.
  static constexpr float fMiddleTolerance = 0.08F;
  /// A side has to move by more than this to count, metres.
  static constexpr float fUpdateThreshold = 0.01F;
  ObstacleState fObstacleState = ObstacleState::Nothing;
  ObstacleState fPreviousObstacleState = ObstacleState::Nothing;

  /// What the sensors report when nothing reflects, metres.
  static constexpr float kNothingInSight = 2.55F;
};

} // namespace GK
