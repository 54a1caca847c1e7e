#pragma once

#include "gk/GKMemoryFastAccess.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"
#include "gk/GKProxy.h"
#include "gk/GKValue.h"

#include <boost/shared_ptr.hpp>

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace GK {

/// Tells which posture the robot is in, from leg joints, inclination and foot contact.
///
/// The sensor loop drives it through `updateRobotPose`, after the foot contact of the same tick.
/// "robotPose" and "robotPoseSince" follow each tick; a pose that has lasted 26 ticks is announced
/// by "robotPoseChanged" and to the resource manager.
///
/// The bound methods are kept for older callers and log a deprecation warning on every call.
class GKRobotPose : public GKModule {
public:
  /// Event raised with the name of a new pose (string).
  static const std::string fExtractorKeyNamePoseChanged;
  /// Memory key: code of the present pose, its position in `getPoseNames`.
  static const std::string fFastAcessKeyNamePose;
  /// Memory key: seconds since the present pose began.
  static const std::string fFastAcessKeyNameTime;
  /// Seconds that a tick counts for.
  static constexpr float fDt = 0.02F;

  /// Publishes the initial outputs and connects to memory. Raises `GKError` when the memory service
  /// is there and does not give the version of the legs or refuses an output.
  explicit GKRobotPose(const boost::shared_ptr<GKBroker>& broker);

  /// Stops fast access for all modules of the library.
  void exit() override;

  /// All poses, in the order of their codes: array of strings. Any thread.
  GKValue getPoseNames() const;

  /// [present pose (string), seconds since it began (float)]; ["Unknown", 0.0] before the first
  /// tick. Any thread; the two may stem from different ticks.
  GKValue getActualPoseAndTime() const;

  /// One tick. Sensor loop's thread only. A refused event is logged and not raised again.
  void updateRobotPose();

private:
  friend class GKRobotPosePeer;

  /// The official poses by their codes; their names stand in the same order (`xOfficialNames`).
  enum class Pose : std::uint32_t {
    Unknown,
    Stand,
    Sit,
    Crouch,
    Knee,
    Frog,
    Back,
    Belly,
    Left,
    Right,
    HeadBack
  };
  static constexpr std::size_t kPoseCount = static_cast<std::size_t>(Pose::HeadBack) + 1;

  /// What the classification looks at; slots in `GKRobotPoseClassification.cpp`.
  static constexpr std::size_t kSampleSize = 11;
  using Sample = std::span<const float, kSampleSize>;

  /// Hip, knee and ankle pitch and the inclination about Y, radian.
  static constexpr std::size_t kLegPostureSize = 4;
  using LegPosture = std::array<float, kLegPostureSize>;

  /// A posture to compare with, and the pose that it stands for.
  struct ReferencePose {
    LegPosture posture;
    Pose official;
  };

  // Connection and announcement
  void xBindMethods();
  void xCheckLegs();
  void xDeclareEvent();
  void xConnectToMemory();
  void xDeconnectToMemory();
  void xAnnounce(const std::string& pose);
  /// Tells the resource manager whether `pose` is one of standing or of sitting. A refusal is
  /// written to standard output.
  void xActivateResource(const std::string& pose);
  const std::string& xNameOf(Pose pose) const;
  Pose xCurrentPose() const noexcept { return fCurrentPose.load(std::memory_order_relaxed); }

  // Classification
  static std::vector<std::string> xOfficialNames();
  void xCreateMapOfPose();
  Pose xClassify(Sample sample) const noexcept;
  static Pose xClassifyStanding(const LegPosture& legs) noexcept;
  static Pose xClassifyLying(float angleX, float angleY) noexcept;
  static Pose xFindNearest(const LegPosture& measured,
                           std::span<const ReferencePose* const> candidates) noexcept;
  /// The official name of the candidate nearest to `posture`, or "Unknown". Names that are not in
  /// the reference table match nothing. The rule by names, for any posture and any candidates; a
  /// tick applies it without names. Raises `std::out_of_range` for a posture that is too short.
  std::string xCompareWithReferencePose(std::vector<float> posture,
                                        std::vector<std::string> candidates) const;
  static void xConvertRefPoseToOfficialPose(std::string& name);
  /// Position of an official name; the number of names for any other name.
  unsigned int xConvertPoseToInt(std::string name) const;
  /// The pose of an official name; `Pose::Unknown` for any other name.
  Pose xPoseOf(const std::string& name) const;

  std::vector<float> fInputValues;
  /// [code of the current pose, seconds since it began].
  std::vector<float> fOutputValues;
  /// Official names by code; does not change after construction.
  const std::vector<std::string> fPoseNames;
  /// Postures by reference name; does not change after construction.
  std::map<std::string, ReferencePose> fReferencePoses;
  /// What is looked for without and with a foot on the ground; earlier ones win ties.
  std::vector<const ReferencePose*> fCandidatesInTheAir;
  std::vector<const ReferencePose*> fCandidatesOnTheGround;
  /// Pose of the latest tick, and output slot 1. Written by the sensor loop, read by remote
  /// callers.
  std::atomic<Pose> fCurrentPose{Pose::Unknown};
  std::atomic<float> fPoseSince{0.0F};
  Pose fAnnouncedPose = Pose::Unknown;
  /// Ticks since the current pose began, this one included.
  std::int32_t fTickCounter = 0;
  /// False without memory service or legs.
  bool fActive = true;
  /// False when the event could not be declared or raised at construction.
  bool fEventsEnabled = true;
  /// Empty without memory service.
  boost::shared_ptr<GKMemoryProxy> fMemoryProxy;
  /// Empty when there is none.
  boost::shared_ptr<GKProxy> fResourceManager;
  boost::shared_ptr<GKMemoryFastAccess> fMemoryFastAccessIn;
  boost::shared_ptr<GKMemoryFastAccess> fMemoryFastAccessOut;
};

} // namespace GK
