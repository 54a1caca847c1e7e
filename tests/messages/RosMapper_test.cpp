#include "messages/keys/DeviceKeys.h"
#include "messages/keys/Subjects.h"
#include "messages/ros/Cdr.h"
#include "messages/ros/Mapper.h"
#include "messages/ros/RobotModel.h"
#include "messages/ros/Types.h"
#include "messages/ros/Urdf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using namespace gk::messages;
using GK::GKMicros;
using GK::GKNotice;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr std::int64_t kSeconds = 1'700'000'000;
constexpr GKMicros kTick = 20'000;
constexpr GKMicros kOneSecond = 1'000'000;
constexpr float kFloatNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kFloatInfinity = std::numeric_limits<float>::infinity();

ros::Header headerAt(GKMicros time, std::string_view frame) {
  const auto seconds = static_cast<std::int32_t>(kSeconds + time / kOneSecond);
  return {{seconds, static_cast<std::uint32_t>(time % kOneSecond) * 1000}, std::string(frame)};
}

GKNotice eventOf(std::string name, GK::GKValue value, GKMicros time) {
  GKNotice notice;
  notice.kind = GKNotice::Kind::Event;
  notice.name = std::move(name);
  notice.value = std::move(value);
  notice.time = time;
  return notice;
}

/// A mapper on a memory of its own, and what it told.
class RosMapperTest : public testing::Test {
protected:
  struct Told {
    std::string topic;
    std::uint64_t time = 0;
    std::string cdr;
  };

  explicit RosMapperTest(ros::MapperOptions options = {}) : sut(store, {kSeconds, 0}, 0, options) {}

  void set(const std::string& key, const GK::GKValue& value) { store->set(key, value); }
  void setSensor(const std::string& device, const GK::GKValue& value) {
    set(deviceKey(device, "/Sensor/Value"), value);
  }

  /// What the end of a tick tells, whatever was told before it.
  void tick(GKMicros time) {
    told.clear();
    sut.ofTick(time, "GKSensors", ++ticks, sink, isWanted);
  }
  void notice(const GKNotice& what) { sut.ofNotice(what, sink, isWanted); }

  std::vector<std::string> topicsTold() const {
    std::vector<std::string> names;
    for (const Told& one : told) {
      names.push_back(one.topic);
    }
    return names;
  }

  /// The messages of a topic.
  std::vector<std::string> of(std::string_view topic) const {
    std::vector<std::string> messages;
    for (const Told& one : told) {
      if (one.topic == topic) {
        messages.push_back(one.cdr);
      }
    }
    return messages;
  }

  template <class M> void expectOnly(std::string_view topic, const M& message) const {
    std::string cdr;
    ros::encode(message, cdr);
    EXPECT_THAT(of(topic), ElementsAre(cdr)) << topic;
    EXPECT_EQ(sut.topics()[sut.find(topic)].type, &ros::typeOf<M>());
  }

  std::shared_ptr<GK::GKMemoryStore> store = std::make_shared<GK::GKMemoryStore>();
  ros::Mapper sut;
  std::vector<Told> told;
  std::uint64_t ticks = 0;
  ros::IsWanted isWanted;
  ros::Sink sink = [this](const ros::Sample& sample) {
    told.push_back({sut.topics()[sample.topic].name, sample.time, std::string(sample.cdr)});
  };
};

/// Without frames, a few samples a second.
struct RosMapperOptionsTest : RosMapperTest {
  RosMapperOptionsTest() : RosMapperTest({.rate = 10, .isTf = false}) {}
};

} // namespace

TEST_F(RosMapperTest, TellsNothingOfARobotWithoutKeys) {
  tick(0);
  EXPECT_THAT(topicsTold(), ElementsAre("/diagnostics"));
}

TEST_F(RosMapperTest, TopicsHaveDifferentNames) {
  std::set<std::string> names;
  for (const ros::Topic& topic : sut.topics()) {
    EXPECT_TRUE(names.insert(topic.name).second) << topic.name;
    EXPECT_EQ(sut.topics()[sut.find(topic.name)].name, topic.name);
  }
  EXPECT_EQ(sut.find("/nothing"), sut.topics().size());
  for (const char* global : {"/tf", "/tf_static", "/rosout", "/diagnostics"}) {
    EXPECT_TRUE(sut.topics()[sut.find(global)].isGlobal) << global;
    EXPECT_EQ(ros::nameIn("/lab/gk", sut.topics()[sut.find(global)]), global);
  }
  EXPECT_EQ(ros::nameIn("/lab/gk", sut.topics()[sut.find("/imu/data")]), "/lab/gk/imu/data");
}

TEST_F(RosMapperTest, JointsWithoutAKeyAreLeftOut) {
  set(deviceKey("LKneePitch", "/Position/Sensor/Value"), 0.5F);
  set(deviceKey("HeadYaw", "/Position/Sensor/Value"), -0.25F);
  tick(kTick);
  ros::JointState joints;
  joints.header = headerAt(kTick, "");
  joints.name = {"HeadYaw", "LKneePitch"};
  joints.position = {-0.25, 0.5};
  expectOnly("/joint_states", joints);
}

TEST_F(RosMapperTest, AllJointsHaveTheirMotorsAndNothingElse) {
  for (const DeviceKey& key : simulatedKeys()) {
    set(key.name, key.start);
  }
  tick(0);
  ros::JointState joints;
  joints.header = headerAt(0, "");
  joints.name.assign(jointNames().begin(), jointNames().end());
  joints.position.assign(25, 0.0);
  expectOnly("/joint_states", joints);
}

TEST_F(RosMapperTest, FramesTurnWithTheirJoints) {
  constexpr float angle = 0.5F;
  set(deviceKey("HeadYaw", "/Position/Sensor/Value"), angle);
  tick(kTick);
  ros::TransformStamped neck;
  neck.header = headerAt(kTick, "torso");
  neck.child_frame_id = "neck";
  neck.transform.translation = {0, 0, 0.108};
  neck.transform.rotation = {0, 0, std::sin(angle / 2.0), std::cos(angle / 2.0)};
  expectOnly("/tf", ros::TFMessage{{neck}});
}

TEST_F(RosMapperTest, TheCoupledHipGoesWithTheOtherOneWhereItIsNotMeasured) {
  const auto framesOf = [this](GKMicros time) {
    tick(time);
    return of("/tf").at(0);
  };
  set(deviceKey(kCouplingJoint, "/Position/Sensor/Value"), -0.5F);
  const std::string driven = framesOf(0);
  EXPECT_THAT(driven, HasSubstr("l_pelvis"));
  EXPECT_THAT(driven, HasSubstr("r_pelvis"));
  // One that is measured has its own angle, which is the last that is told.
  const auto lastAngle = [](const std::string& frames) {
    return frames.substr(frames.size() - 4 * sizeof(double));
  };
  set(deviceKey(kCoupledJoint, "/Position/Sensor/Value"), -0.5F);
  EXPECT_EQ(lastAngle(framesOf(kOneSecond)), lastAngle(driven));
  set(deviceKey(kCoupledJoint, "/Position/Sensor/Value"), -0.4F);
  EXPECT_NE(lastAngle(framesOf(kOneSecond + kTick)), lastAngle(driven));
}

TEST_F(RosMapperTest, AFrameWhoseJointIsNowhereIsLeftOut) {
  set(deviceKey("HeadYaw", "/Position/Sensor/Value"), kFloatNaN);
  tick(0);
  EXPECT_THAT(of("/tf"), IsEmpty());
  EXPECT_THAT(of("/joint_states"), SizeIs(1));
}

TEST_F(RosMapperTest, TheStartTellsDescriptionAndFramesThatStandFast) {
  sut.ofStart(kTick, sink);
  EXPECT_THAT(topicsTold(), ElementsAre("/tf_static", "/robot_description"));
  expectOnly("/robot_description", ros::String{ros::robotUrdf()});
  for (const char* frame : {"base_link", "torso", "imu_link", "l_sonar", "r_sonar", "l_sole"}) {
    EXPECT_THAT(of("/tf_static").at(0), HasSubstr(frame));
  }
  EXPECT_THAT(of("/tf_static").at(0), Not(HasSubstr("neck")));
}

TEST_F(RosMapperTest, InclinationIsOneTurnAboutALevelAxis) {
  // Leaning ahead by 60 degrees.
  setSensor("InertialSensor/AngleX", 0.0F);
  setSensor("InertialSensor/AngleY", std::numbers::pi_v<float> / 3);
  tick(0);
  ros::Imu imu;
  imu.header = headerAt(0, "imu_link");
  const double angle = std::numbers::pi_v<float> / 3;
  imu.orientation = {0, angle * (std::sin(angle / 2) / angle), 0, std::cos(angle / 2)};
  // Neither rates nor accelerations are measured.
  imu.angular_velocity_covariance[0] = -1;
  imu.linear_acceleration_covariance[0] = -1;
  expectOnly("/imu/data", imu);
}

TEST_F(RosMapperTest, AccelerationAndRatesAreToldAsTheyAreMeasured) {
  const std::pair<const char*, float> values[] = {{"AccX", 0.5F}, {"AccY", -0.25F}, {"AccZ", 9.75F},
                                                  {"GyrX", 1.0F}, {"GyrY", 2.0F},   {"GyrZ", 3.0F}};
  for (const auto& [name, value] : values) {
    setSensor(std::string("InertialSensor/") + name, value);
  }
  tick(0);
  ros::Imu imu;
  imu.header = headerAt(0, "imu_link");
  imu.orientation_covariance[0] = -1;
  imu.linear_acceleration = {0.5, -0.25, 9.75};
  imu.angular_velocity = {1, 2, 3};
  expectOnly("/imu/data", imu);
}

TEST_F(RosMapperTest, RangesTellWhatIsInSightTooCloseOrMissing) {
  struct Case {
    float measured;
    float told;
  };
  const Case cases[] = {{2.55F, kFloatInfinity},
                        {std::nextafter(2.55F, 0.0F), std::nextafter(2.55F, 0.0F)},
                        {3.0F, kFloatInfinity},
                        {0.25F, 0.25F},
                        {std::nextafter(0.25F, 0.0F), -kFloatInfinity},
                        {0.0F, -kFloatInfinity},
                        {kFloatNaN, kFloatNaN}};
  GKMicros time = 0;
  for (const Case& one : cases) {
    setSensor("US/Right", one.measured);
    tick(time);
    ros::Range range;
    range.header = headerAt(time, "r_sonar");
    range.field_of_view = 1.04F;
    range.min_range = 0.25F;
    range.max_range = 2.55F;
    range.range = one.told;
    expectOnly("/sonar/right", range);
    EXPECT_THAT(of("/sonar/left"), IsEmpty());
    time += kTick;
  }
}

TEST_F(RosMapperTest, NoRangesAreToldWhileTheEmittersAreOff) {
  setSensor("US/Left", 1.0F);
  tick(0);
  EXPECT_THAT(of("/sonar/left"), SizeIs(1));
  set(kEmitterKey, 32.0F);
  tick(kTick);
  EXPECT_THAT(of("/sonar/left"), IsEmpty());
  set(kEmitterKey, 68.0F);
  tick(2 * kTick);
  EXPECT_THAT(of("/sonar/left"), SizeIs(1));
}

TEST_F(RosMapperTest, BatteryTellsWhatIsMeasured) {
  struct Case {
    std::int32_t bits;
    std::uint8_t status;
  };
  const Case cases[] = {{0x20, ros::BatteryState::kDischarging},
                        {0x40, ros::BatteryState::kFull},
                        {0x80, ros::BatteryState::kCharging},
                        {0, ros::BatteryState::kNotCharging}};
  setSensor("Battery/Charge", 0.75F);
  setSensor("Battery/Current", -1.5F);
  GKMicros time = 0;
  for (const Case& one : cases) {
    set(deviceKey("Battery", "/Charge/Sensor/Status"), one.bits);
    tick(time);
    ros::BatteryState battery;
    battery.header = headerAt(time, "base_link");
    battery.voltage = battery.temperature = kFloatNaN;
    battery.charge = battery.capacity = battery.design_capacity = kFloatNaN;
    battery.current = -1.5F;
    battery.percentage = 0.75F;
    battery.power_supply_status = one.status;
    battery.present = true;
    expectOnly("/battery_state", battery);
    // The status is looked for once a second where it was not there.
    time += kOneSecond;
  }
}

TEST_F(RosMapperTest, FeetTellForceTorqueAndItsCentre) {
  // A kilogram on each of the front cells: 8.3 cm ahead, 3.6 cm to the left and 2.8 cm to the
  // right.
  setSensor("LFoot/FSR/FrontLeft", 1.0F);
  setSensor("LFoot/FSR/FrontRight", 1.0F);
  setSensor("LFoot/FSR/RearLeft", 0.0F);
  setSensor("LFoot/FSR/RearRight", 0.0F);
  setSensor("LFoot/FSR/TotalWeight", 7.0F);
  tick(0);
  ASSERT_THAT(of("/l_foot/wrench"), SizeIs(1));
  ASSERT_THAT(of("/l_foot/cop"), SizeIs(1));
  constexpr double g = 9.80665;
  const ros::CellPlaces& places = ros::cellPlaces(0);
  EXPECT_DOUBLE_EQ(places[0][0], 0.083);
  EXPECT_DOUBLE_EQ(places[0][1], 0.036);
  EXPECT_DOUBLE_EQ(places[1][1], -0.028);
  ros::WrenchStamped wrench;
  wrench.header = headerAt(0, "l_sole");
  wrench.wrench.force.z = g * 2;
  wrench.wrench.torque.x = g * (places[0][1] + places[1][1]);
  wrench.wrench.torque.y = -g * (places[0][0] + places[1][0]);
  expectOnly("/l_foot/wrench", wrench);
  ros::PointStamped centre;
  centre.header = headerAt(0, "l_sole");
  centre.point = {(places[0][0] + places[1][0]) / 2, (places[0][1] + places[1][1]) / 2, 0};
  expectOnly("/l_foot/cop", centre);
  EXPECT_THAT(of("/r_foot/wrench"), IsEmpty());
}

TEST_F(RosMapperTest, AFootWithoutCellsTellsItsTotalWeight) {
  setSensor("RFoot/FSR/TotalWeight", 2.0F);
  tick(0);
  ros::WrenchStamped wrench;
  wrench.header = headerAt(0, "r_sole");
  wrench.wrench.force.z = 9.80665 * 2;
  wrench.wrench.torque.y = -0.0;
  expectOnly("/r_foot/wrench", wrench);
  EXPECT_THAT(of("/r_foot/cop"), IsEmpty());
}

TEST_F(RosMapperTest, AnUnloadedFootHasNoCentreOfPressure) {
  for (const std::string_view cell : ros::kForceCells) {
    setSensor("LFoot/FSR/" + std::string(cell), 0.025F);
  }
  tick(0);
  EXPECT_THAT(of("/l_foot/cop"), SizeIs(1));
  setSensor("LFoot/FSR/RearLeft", 0.0245F);
  tick(kTick);
  EXPECT_THAT(of("/l_foot/cop"), IsEmpty());
  EXPECT_THAT(of("/l_foot/wrench"), SizeIs(1));
}

TEST_F(RosMapperTest, TemperaturesAndDiagnosticsComeWithTheFirstTickOfASecond) {
  set(deviceKey("HeadYaw", "/Temperature/Sensor/Value"), 41.5F);
  std::vector<GKMicros> times;
  for (GKMicros time = 5'000; time < 3 * kOneSecond; time += kTick) {
    tick(time);
    EXPECT_EQ(of("/temperature/HeadYaw").size(), of("/diagnostics").size());
    if (!of("/diagnostics").empty()) {
      times.push_back(time);
    }
  }
  EXPECT_THAT(times, ElementsAre(5'000, 1'005'000, 2'005'000));
  ros::Temperature temperature;
  tick(3 * kOneSecond);
  temperature.header = headerAt(3 * kOneSecond, "neck");
  temperature.temperature = 41.5;
  expectOnly("/temperature/HeadYaw", temperature);
}

TEST_F(RosMapperTest, TouchesAreToldAtTheFirstTickAndWhenTheyChange) {
  setSensor("Head/Touch/Front", 0.0F);
  setSensor("LFoot/Bumper/Right", 1.0F);
  tick(0);
  expectOnly("/touch/head_front", ros::Bool{false});
  expectOnly("/touch/left_foot_bumper_right", ros::Bool{true});
  tick(kTick);
  EXPECT_THAT(topicsTold(), Not(Contains("/touch/head_front")));
  setSensor("Head/Touch/Front", 1.0F);
  tick(kTick + 1);
  expectOnly("/touch/head_front", ros::Bool{true});
  EXPECT_THAT(topicsTold(), SizeIs(1));
}

TEST_F(RosMapperTest, PlacesOfTouchAreTheMembersOfTheSubject) {
  const auto subject = std::ranges::find(subjects(), "/touch", &Subject::topic);
  ASSERT_NE(subject, subjects().end());
  EXPECT_THAT(subject->fields, SizeIs(touchSensors().size()));
  for (const SubjectField& field : subject->fields) {
    const std::size_t topic = sut.find("/touch/" + field.name);
    ASSERT_LT(topic, sut.topics().size()) << field.name;
    EXPECT_EQ(sut.topics()[topic].profile, ros::Profile::Latched);
  }
}

TEST_F(RosMapperTest, PoseAndFootContactAreToldWhenTheyAreRaised) {
  notice(eventOf("robotPoseChanged", "Belly", 30'000));
  expectOnly("/pose_name", ros::String{"Belly"});
  notice(eventOf("footContactChanged", 1.0F, 30'000));
  notice(eventOf("footContactChanged", false, 40'000));
  std::string yes;
  std::string no;
  ros::encode(ros::Bool{true}, yes);
  ros::encode(ros::Bool{false}, no);
  EXPECT_THAT(of("/foot_contact"), ElementsAre(yes, no));
  EXPECT_EQ(told.back().time, (kSeconds * kOneSecond + 40'000) * 1000ULL);
}

TEST_F(RosMapperTest, WhatWasRaisedBeforeIsToldAtTheFirstTick) {
  set("robotPoseChanged", "Stand");
  set("footContactChanged", true);
  tick(0);
  expectOnly("/pose_name", ros::String{"Stand"});
  expectOnly("/foot_contact", ros::Bool{true});
  tick(kTick);
  EXPECT_THAT(of("/pose_name"), IsEmpty());
}

TEST_F(RosMapperTest, EventsAreJsonAsInTheGatewaysChannel) {
  notice(eventOf("FrontTactilTouched", 1.0F, 1'500'000));
  expectOnly("/events",
             ros::String{R"({"name":"FrontTactilTouched","t_s":1.5,"kind":"event","value":1.0})"});
  told.clear();
  GKNotice micro = eventOf("footContactChanged", 0.0F, 20'000);
  micro.kind = GKNotice::Kind::MicroEvent;
  notice(micro);
  expectOnly("/events",
             ros::String{R"({"name":"footContactChanged","t_s":0.02,"kind":"micro","value":0.0})"});
}

TEST_F(RosMapperTest, OtherNoticesTellNothing) {
  for (const auto kind : {GKNotice::Kind::Declare, GKNotice::Kind::Insert, GKNotice::Kind::Order,
                          GKNotice::Kind::Resource}) {
    GKNotice other = eventOf("robotPoseChanged", "Stand", 0);
    other.kind = kind;
    notice(other);
  }
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(RosMapperTest, LogLinesHaveTheLevelsOfRos) {
  const std::pair<int, std::uint8_t> levels[] = {{1, 50}, {2, 40}, {3, 30},
                                                 {4, 20}, {5, 10}, {6, 10}};
  for (const auto& [level, expected] : levels) {
    told.clear();
    GKNotice line;
    line.kind = GKNotice::Kind::Log;
    line.level = level;
    line.name = "platform.proxy";
    line.owner = "call";
    line.text = std::string("cut \xC3 and \0", 11);
    line.time = kTick;
    notice(line);
    ros::Log log;
    log.stamp = headerAt(kTick, "").stamp;
    log.level = expected;
    log.name = "platform.proxy";
    log.msg = "cut \xEF\xBF\xBD and \xEF\xBF\xBD";
    log.function = "call";
    expectOnly("/rosout", log);
  }
}

TEST_F(RosMapperTest, LatchedTopicsCanBeAskedForAtAnyTime) {
  setSensor("Head/Touch/Rear", 1.0F);
  set("robotPoseChanged", "Sit");
  set(deviceKey("HeadYaw", "/Temperature/Sensor/Value"), 40.0F);
  const auto ask = [this](const char* topic) {
    told.clear();
    sut.latched(sut.find(topic), kTick, sink);
  };
  ask("/touch/head_rear");
  expectOnly("/touch/head_rear", ros::Bool{true});
  ask("/pose_name");
  expectOnly("/pose_name", ros::String{"Sit"});
  ask("/robot_description");
  expectOnly("/robot_description", ros::String{ros::robotUrdf()});
  ask("/tf_static");
  EXPECT_THAT(told, SizeIs(1));
  ask("/temperature/HeadYaw");
  EXPECT_THAT(told, SizeIs(1));
  for (const char* silent : {"/touch/head_front", "/foot_contact", "/joint_states", "/tf"}) {
    ask(silent);
    EXPECT_THAT(told, IsEmpty()) << silent;
  }
}

TEST_F(RosMapperTest, WhatNobodyWantsIsNotMade) {
  for (const DeviceKey& key : simulatedKeys()) {
    set(key.name, key.start);
  }
  set("robotPoseChanged", "Stand");
  std::set<std::string> asked;
  isWanted = [&](std::size_t topic) {
    asked.insert(sut.topics()[topic].name);
    return false;
  };
  tick(0);
  notice(eventOf("robotPoseChanged", "Sit", 0));
  sut.ofStart(0, sink, isWanted);
  EXPECT_THAT(told, IsEmpty());
  EXPECT_THAT(asked, Contains("/joint_states"));
}

TEST_F(RosMapperTest, AllKeysOfTheSimulatedRobotAreTold) {
  for (const DeviceKey& key : simulatedKeys()) {
    set(key.name, key.start);
  }
  set(kEmitterKey, 68.0F);
  sut.ofStart(0, sink);
  std::set<std::string> names;
  for (const Told& one : told) {
    names.insert(one.topic);
  }
  tick(0);
  notice(eventOf("robotPoseChanged", "Sit", 0));
  notice(eventOf("footContactChanged", true, 0));
  GKNotice line;
  line.kind = GKNotice::Kind::Log;
  notice(line);
  for (const Told& one : told) {
    names.insert(one.topic);
  }
  for (const ros::Topic& topic : sut.topics()) {
    // At rest nothing weighs on the feet.
    const bool isUnloaded = topic.name.ends_with("/cop");
    EXPECT_EQ(names.contains(topic.name), !isUnloaded) << topic.name;
  }
}

TEST_F(RosMapperTest, NoMoreSamplesASecondThanAskedFor) {
  setSensor("InertialSensor/AngleX", 0.0F);
  setSensor("InertialSensor/AngleY", 0.0F);
  int count = 0;
  for (GKMicros time = 0; time < 10 * kOneSecond; time += 5'000) {
    tick(time);
    count += static_cast<int>(of("/imu/data").size());
  }
  EXPECT_EQ(count, 500);
}

TEST_F(RosMapperTest, TicksThatComeALittleEarlyOrLateAreAllTold) {
  setSensor("InertialSensor/AngleX", 0.0F);
  setSensor("InertialSensor/AngleY", 0.0F);
  int count = 0;
  for (int i = 0; i < 500; ++i) {
    tick(i * kTick + (i % 3 - 1) * 2'000 + 2'000);
    count += static_cast<int>(of("/imu/data").size());
  }
  EXPECT_EQ(count, 500);
}

TEST_F(RosMapperTest, AfterTheClockWasSetStampsFollowIt) {
  setSensor("InertialSensor/AngleX", 0.0F);
  setSensor("InertialSensor/AngleY", 0.0F);
  sut.setClock({kSeconds + 1000, 500}, kTick);
  tick(kTick);
  EXPECT_EQ(told.back().time, ((kSeconds + 1000) * kOneSecond + 500) * 1000ULL);
}

TEST_F(RosMapperTest, DiagnosticsTellWhatIsWrong) {
  const auto diagnosticsAt = [this](GKMicros time) {
    tick(time);
    return of("/diagnostics").at(0);
  };
  setSensor("Battery/Charge", 0.5F);
  set(deviceKey("Battery", "/Charge/Sensor/Status"), 0x20);
  set(boardErrorKey("HeadBoard"), 0);
  set(deviceKey("HeadYaw", "/Temperature/Sensor/Value"), 41.0F);
  const std::string fine = diagnosticsAt(0);
  EXPECT_THAT(fine, HasSubstr("gk: loop of GKSensors"));
  EXPECT_THAT(fine, HasSubstr("gk: motor board HeadBoard"));
  EXPECT_THAT(fine, HasSubstr("HeadYaw is the warmest: 41 degC"));
  EXPECT_THAT(fine, Not(HasSubstr("low")));
  setSensor("Battery/Charge", 0.2F);
  EXPECT_THAT(diagnosticsAt(kOneSecond), HasSubstr("low"));
  setSensor("Battery/Charge", 0.1F);
  EXPECT_THAT(diagnosticsAt(2 * kOneSecond), HasSubstr("nearly empty"));
  set(deviceKey("Battery", "/Charge/Sensor/Status"), 0x80);
  EXPECT_THAT(diagnosticsAt(3 * kOneSecond), Not(HasSubstr("nearly empty")));
  set(boardErrorKey("HeadBoard"), 33);
  const std::string hot = diagnosticsAt(4 * kOneSecond);
  EXPECT_THAT(hot, HasSubstr("hot: error 33"));
  EXPECT_THAT(hot, HasSubstr("HeadYaw is hot: 41 degC"));
  set(boardErrorKey("HeadBoard"), 7);
  const std::string broken = diagnosticsAt(5 * kOneSecond);
  EXPECT_THAT(broken, HasSubstr("error 7"));
  EXPECT_THAT(broken, HasSubstr("is the warmest"));
}

TEST_F(RosMapperTest, DiagnosticsTellHowLoopsKeepTheirTime) {
  for (GKMicros time = 0; time < kOneSecond; time += kTick) {
    tick(time);
  }
  sut.ofTickTimes({900'000, 925'000, 1'500, 20'000}, "GKSensors");
  tick(kOneSecond);
  const std::string late = of("/diagnostics").at(0);
  EXPECT_THAT(late, HasSubstr("50.0"));
  EXPECT_THAT(late, HasSubstr("1.500"));
  EXPECT_THAT(late, HasSubstr("1 ticks took too long"));
  sut.ofTickTimes({1'020'000, 1'040'000, 100, 20'000}, "GKSensors");
  tick(2 * kOneSecond);
  EXPECT_THAT(of("/diagnostics").at(0), Not(HasSubstr("took too long")));
  // Another loop goes on while the first one hangs.
  told.clear();
  sut.ofTick(4 * kOneSecond, "GKOther", 1, sink);
  EXPECT_THAT(of("/diagnostics").at(0), HasSubstr("has stopped ticking"));
}

TEST_F(RosMapperOptionsTest, FramesCanBeLeftToSomebodyElse) {
  for (const DeviceKey& key : simulatedKeys()) {
    set(key.name, key.start);
  }
  sut.ofStart(0, sink);
  tick(0);
  EXPECT_EQ(sut.find("/tf"), sut.topics().size());
  EXPECT_EQ(sut.find("/tf_static"), sut.topics().size());
  EXPECT_THAT(of("/joint_states"), SizeIs(1));
}

TEST_F(RosMapperOptionsTest, TheRateCanBeLower) {
  setSensor("Battery/Charge", 1.0F);
  int count = 0;
  for (GKMicros time = 0; time < 10 * kOneSecond; time += kTick) {
    tick(time);
    count += static_cast<int>(of("/battery_state").size());
  }
  EXPECT_EQ(count, 100);
}

TEST(RosNames, NamespacesAreWrittenInMoreThanOneWay) {
  EXPECT_EQ(ros::namespaceOf(""), "");
  EXPECT_EQ(ros::namespaceOf("/"), "");
  EXPECT_EQ(ros::namespaceOf("robot_1"), "/robot_1");
  EXPECT_EQ(ros::namespaceOf("/lab/robot/"), "/lab/robot");
}

TEST(RosNames, OthersAreRefused) {
  for (const char* wrong : {"1robot", "lab//robot", "a b", "lab/2", "r\xC3\xB6", "//", "a-b"}) {
    EXPECT_THROW(ros::namespaceOf(wrong), std::invalid_argument) << wrong;
  }
  EXPECT_THROW(ros::namespaceOf(std::string(300, 'a')), std::invalid_argument);
}

TEST(RosTimes, EndWithTheNumbersThatTheyHave) {
  EXPECT_EQ(ros::stampOf(1'500'000'000).nanosec, 500'000'000U);
  EXPECT_EQ(ros::stampOf(std::numeric_limits<std::uint64_t>::max()).sec,
            std::numeric_limits<std::int32_t>::max());
}
