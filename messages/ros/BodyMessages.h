#pragma once

#include "messages/ros/KeyCell.h"
#include "messages/ros/RobotModel.h"
#include "messages/ros/Topic.h"

#include <array>
#include <cstddef>
#include <vector>

namespace gk::messages::ros {

/// What the robot's sensors measure, as messages. What has no key is left out.
class BodyMessages {
public:
  /// Appends its topics.
  BodyMessages(std::vector<Topic>& topics, bool isTf);
  BodyMessages(const BodyMessages&) = delete;
  BodyMessages& operator=(const BodyMessages&) = delete;

  /// Looks for keys that were not there so far.
  void lookForKeys(const GK::GKMemoryStore& store);

  /// What is told after each tick.
  void sendStreams(const GK::GKMemoryStore& store, const Outlet& out);
  /// What changes slowly.
  void sendTemperatures(const Outlet& out);
  /// Frames that stand fast.
  void sendFixedFrames(const Outlet& out);
  /// The present message of one latched topic, if that is one of these.
  void sendLatched(std::size_t topic, const Outlet& out);

private:
  void xSendJoints(const Outlet& out);
  void xSendFrames(const Outlet& out);
  void xSendImu(const Outlet& out);
  void xSendRanges(const GK::GKMemoryStore& store, const Outlet& out);
  void xSendBattery(const Outlet& out);
  void xSendFeet(const Outlet& out);
  void xSendTemperature(std::size_t joint, const Outlet& out);

  /// Positions in the order of `jointNames`, and that of the joint without a motor.
  std::vector<KeyCell> fPositions;
  KeyCell fCoupledPosition;
  std::size_t fJointTopic;
  JointState fJoints;

  /// A link that turns, and the key of its joint.
  struct Frame {
    std::size_t link;
    const KeyCell* position;
    /// Tells it where `position` is not there.
    const KeyCell* instead;
  };
  bool fIsTf;
  std::size_t fFramesTopic = 0;
  std::size_t fFixedTopic = 0;
  std::vector<Frame> fFrames;
  TFMessage fTurned;
  TFMessage fFixed;

  std::size_t fImuTopic;
  std::array<KeyCell, 2> fAngles;
  std::array<KeyCell, 3> fRates;
  std::array<KeyCell, 3> fAccelerations;
  Imu fImu;

  KeyCell fEmitter;
  struct Sonar {
    std::size_t topic;
    KeyCell distance;
    Range message;
  };
  std::vector<Sonar> fSonars;

  std::size_t fBatteryTopic;
  KeyCell fCharge;
  KeyCell fCurrent;
  KeyCell fStatus;
  BatteryState fBattery;

  struct Foot {
    std::size_t wrenchTopic;
    std::size_t pressureTopic;
    std::vector<KeyCell> cells;
    KeyCell total;
    WrenchStamped wrench;
    PointStamped pressure;
  };
  std::vector<Foot> fFeet;

  struct Motor {
    std::size_t topic;
    KeyCell temperature;
    Temperature message;
  };
  std::vector<Motor> fMotors;
};

} // namespace gk::messages::ros
