#pragma once

#include "messages/ros/Messages.h"

#include <limits>
#include <utility>

/// A message of each type, with values that other readers must find at the right place: every
/// member has its own, texts of all lengths shift what comes after them.
namespace gk::messages::ros {

inline Header headerOf(std::string frame) {
  return {{1700000000, 123456789}, std::move(frame)};
}

inline Imu imuSample() {
  Imu imu;
  imu.header = headerOf("imu_link");
  imu.orientation = {0.1, 0.2, 0.3, 0.9};
  imu.orientation_covariance = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  imu.angular_velocity = {-0.5, 0.25, 0.125};
  imu.angular_velocity_covariance[0] = -1;
  imu.linear_acceleration = {0.5, -0.25, 9.75};
  imu.linear_acceleration_covariance[8] = 0.5;
  return imu;
}

inline BatteryState batterySample() {
  BatteryState battery;
  battery.header = headerOf("base");
  battery.voltage = 24.5F;
  battery.temperature = 31.25F;
  battery.current = -1.5F;
  battery.charge = 1.25F;
  battery.capacity = 2.5F;
  battery.design_capacity = 2.75F;
  battery.percentage = 0.5F;
  battery.power_supply_status = BatteryState::kDischarging;
  battery.power_supply_health = 1;
  battery.power_supply_technology = 2;
  battery.present = true;
  battery.cell_voltage = {4.0F, 4.25F, 4.5F};
  battery.cell_temperature = {30.5F};
  battery.location = "chest";
  battery.serial_number = "0042";
  return battery;
}

inline TFMessage framesSample() {
  const Transform moved{{0.5, -0.25, 0.125}, {0, 0, 0.5, 0.75}};
  return {{{headerOf("base_link"), "torso", moved}, {headerOf("torso"), "l_arm", moved}}};
}

inline DiagnosticArray diagnosticsSample() {
  return {headerOf(""),
          {{DiagnosticStatus::kWarn, "gk: battery", "low", "gk", {{"charge (%)", "12"}}},
           {DiagnosticStatus::kOk, "gk: heat", "OK", "gk", {}},
           {DiagnosticStatus::kStale, "", "", "", {{"a", ""}, {"", "b"}}}}};
}

inline ParticipantEntitiesInfo participantSample() {
  ParticipantEntitiesInfo info;
  for (std::size_t i = 0; i < info.gid.data.size(); ++i) {
    info.gid.data[i] = static_cast<Char>(i + 1);
  }
  NodeEntitiesInfo node;
  node.node_namespace.text = "/";
  node.node_name.text = "gk";
  node.writer_gid_seq = {info.gid, info.gid};
  info.node_entities_info_seq = {node};
  return info;
}

/// Calls `take` with each of them.
template <class Take> void eachSample(const Take& take) {
  take(headerOf("base_link"));
  take(Bool{true});
  take(Float32{-1.5F});
  take(String{"a piece of text"});
  take(Range{headerOf("l_sonar"), Range::kUltrasound, 1.0F, 0.25F, 2.5F,
             std::numeric_limits<float>::infinity(), 0.125F});
  take(imuSample());
  take(JointState{headerOf(""), {"HeadYaw", "LHipYawPitch", "R"}, {0.5, -1.5, 2.25}, {}, {0.125}});
  take(batterySample());
  take(Temperature{headerOf("head"), 41.5, 0.25});
  take(WrenchStamped{headerOf("l_sole"), {{1.5, 2.5, 3.5}, {-1.5, -2.5, -3.5}}});
  take(PointStamped{headerOf("r_sole"), {0.5, -0.25, 0}});
  take(TransformStamped{headerOf("torso"), "neck", {{0, 0, 0.125}, {0, 0, 0, 1}}});
  take(framesSample());
  take(diagnosticsSample());
  take(DiagnosticStatus{DiagnosticStatus::kError, "gk: loop", "stuck", "gk", {{"ticks", "7"}}});
  take(Clock{{12, 345}});
  take(Log{{12, 345}, Log::kWarn, "platform.proxy", "line", "file.cpp", "call", 42});
  take(participantSample());
}

} // namespace gk::messages::ros
