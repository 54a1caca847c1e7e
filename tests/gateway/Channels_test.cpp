#include "gateway/channels/Channels.h"
#include "messages/json/Json.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/keys/Subjects.h"

#include <boost/json/object.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace gk::gateway {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const messages::Subject& subject(std::string_view topic) {
  for (const messages::Subject& one : messages::subjects()) {
    if (one.topic == topic) {
      return one;
    }
  }
  throw std::out_of_range(std::string(topic));
}

/// The memory key behind a field.
std::string keyOf(std::string_view topic, std::string_view field) {
  for (const messages::SubjectField& one : subject(topic).fields) {
    if (one.name == field) {
      return one.key;
    }
  }
  return {};
}

TEST(Subjects, AreThoseThatViewersExpect) {
  std::vector<std::string> topics;
  for (const messages::Subject& one : messages::subjects()) {
    topics.push_back(one.topic);
  }
  EXPECT_THAT(topics, ElementsAre("/pose", "/feet", "/sonar", "/imu", "/touch", "/battery",
                                  "/stiffness", "/temperatures", "/currents"));
}

TEST(Subjects, NamesCarryTheUnitOfTheTable) {
  EXPECT_EQ(keyOf("/sonar", "left_m"), "Device/SubDeviceList/US/Left/Sensor/Value");
  EXPECT_EQ(keyOf("/imu", "angle_x_rad"),
            "Device/SubDeviceList/InertialSensor/AngleX/Sensor/Value");
  EXPECT_EQ(keyOf("/feet", "left_total_weight_kg"),
            "Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value");
  EXPECT_EQ(keyOf("/temperatures", "HeadYaw_degC"),
            "Device/SubDeviceList/HeadYaw/Temperature/Sensor/Value");
  EXPECT_EQ(keyOf("/currents", "HeadYaw_A"),
            "Device/SubDeviceList/HeadYaw/ElectricCurrent/Sensor/Value");
  EXPECT_EQ(keyOf("/stiffness", "HeadYaw_ratio"),
            "Device/SubDeviceList/HeadYaw/Hardness/Actuator/Value");
  EXPECT_EQ(keyOf("/touch", "chest_button"), "Device/SubDeviceList/ChestBoard/Button/Sensor/Value");
  EXPECT_EQ(keyOf("/touch", "left_foot_bumper_right"),
            "Device/SubDeviceList/LFoot/Bumper/Right/Sensor/Value");
  EXPECT_EQ(keyOf("/battery", "charge_ratio"), "Device/SubDeviceList/Battery/Charge/Sensor/Value");
  EXPECT_EQ(keyOf("/battery", "current_A"), "Device/SubDeviceList/Battery/Current/Sensor/Value");
  EXPECT_EQ(keyOf("/temperatures", "HeadBoard_error"), "Device/DeviceList/HeadBoard/Error");
}

TEST(Subjects, EveryMeasuredDeviceKeyIsTold) {
  std::set<std::string> told;
  for (const messages::Subject& one : messages::subjects()) {
    for (const messages::SubjectField& field : one.fields) {
      told.insert(field.key);
    }
  }
  for (const messages::SubjectField& joint : messages::jointPositions()) {
    told.insert(joint.key);
  }
  for (const messages::DeviceKey& key : messages::deviceKeys()) {
    const bool isMeasured =
        key.name.ends_with("/Sensor/Value") || key.name.starts_with("Device/DeviceList/");
    EXPECT_TRUE(!isMeasured || told.contains(key.name)) << key.name;
  }
}

TEST(Subjects, NoNameStandsTwice) {
  for (const messages::Subject& one : messages::subjects()) {
    std::set<std::string> names;
    for (const messages::SubjectField& field : one.fields) {
      EXPECT_TRUE(names.insert(field.name).second) << one.topic << " " << field.name;
    }
  }
}

class ChannelsTest : public testing::Test {
protected:
  static GK::GKNotice notice(GK::GKNotice::Kind kind, const std::string& name,
                             const GK::GKValue& value = {}) {
    GK::GKNotice made;
    made.kind = kind;
    made.time = 1'500'000;
    made.name = name;
    made.value = value;
    return made;
  }
  std::vector<ChannelMessage> tick(std::uint64_t number, GK::GKMicros time) {
    return sut.ofTick(time, "M", number, [](std::uint32_t) { return true; });
  }
  std::string payload(const std::vector<ChannelMessage>& messages, std::string_view topic) {
    for (const ChannelMessage& message : messages) {
      if (sut.all()[message.channel - 1].topic == topic) {
        return message.payload;
      }
    }
    return {};
  }

  std::shared_ptr<GK::GKMemoryStore> store = std::make_shared<GK::GKMemoryStore>();
  /// 10 s after the start it is second 1000.
  Channels sut{store, {1000, 0}, 10'000'000};
};

TEST_F(ChannelsTest, TimesAreThoseOfTheWallWhenTheClockStarted) {
  EXPECT_EQ(sut.nanoseconds(0), 990'000'000'000U);
  EXPECT_EQ(sut.nanoseconds(10'000'001), 1'000'000'001'000U);
}

TEST_F(ChannelsTest, IdsCountFrom1AndSchemasAreJsonSchemas) {
  std::uint32_t id = 0;
  for (const Channel& channel : sut.all()) {
    EXPECT_EQ(channel.id, ++id);
    EXPECT_EQ(sut.find(channel.topic), &channel);
    EXPECT_EQ(messages::parseJson(channel.schema).at("type").as_string(), "object")
        << channel.topic;
  }
  EXPECT_EQ(sut.find("/none"), nullptr);
}

TEST_F(ChannelsTest, AnEventGoesToAllEventsAndToItsOwnChannel) {
  const auto messages = sut.ofNotice(notice(GK::GKNotice::Kind::Event, "E\"", 1.5F));
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0].channel, sut.find("/events")->id);
  EXPECT_EQ(messages[0].time, 991'500'000'000U);
  EXPECT_EQ(messages[0].payload, R"({"name":"E\"","t_s":1.5,"kind":"event","value":1.5})");
  EXPECT_EQ(messages[1].channel, sut.find("/event/E\"")->id);
  EXPECT_EQ(messages[1].payload, R"({"t_s":1.5,"kind":"event","value":1.5})");
}

TEST_F(ChannelsTest, AChannelOpensWithADeclarationAndOnlyOnce) {
  EXPECT_THAT(sut.ofNotice(notice(GK::GKNotice::Kind::Declare, "E")), IsEmpty());
  const std::size_t count = sut.all().size();
  EXPECT_NE(sut.find("/event/E"), nullptr);
  sut.ofNotice(notice(GK::GKNotice::Kind::Declare, "E"));
  sut.ofNotice(notice(GK::GKNotice::Kind::Event, "E"));
  EXPECT_EQ(sut.all().size(), count);
}

TEST_F(ChannelsTest, EventsBeyondTheLimitAreToldTogetherOnly) {
  for (std::size_t i = 0; i < Channels::kMaxEventChannels; ++i) {
    sut.addEvent("E" + std::to_string(i));
  }
  const std::size_t count = sut.all().size();
  EXPECT_EQ(sut.ofNotice(notice(GK::GKNotice::Kind::Event, "One more")).size(), 1U);
  EXPECT_EQ(sut.all().size(), count);
}

TEST_F(ChannelsTest, InsertionsOrdersAndResourcesAreNoMessages) {
  for (const auto kind :
       {GK::GKNotice::Kind::Insert, GK::GKNotice::Kind::Order, GK::GKNotice::Kind::Resource}) {
    EXPECT_THAT(sut.ofNotice(notice(kind, "X", 1)), IsEmpty());
  }
}

TEST_F(ChannelsTest, LevelsOfTheLogAreThoseOfViewers) {
  const char* expected[] = {"5", "4", "3", "2", "1", "1"};
  for (int level = 1; level <= 6; ++level) {
    GK::GKNotice line = notice(GK::GKNotice::Kind::Log, "category");
    line.level = level;
    EXPECT_THAT(sut.ofNotice(line)[0].payload,
                HasSubstr(std::string(R"("level":)") + expected[level - 1] + ","));
  }
}

TEST_F(ChannelsTest, SamplesHoldTheKeysThatThereAre) {
  EXPECT_EQ(payload(tick(1, 0), "/sonar"), "{}");
  store->set("Device/SubDeviceList/US/Left/Sensor/Value", 0.25F);
  store->set("Device/SubDeviceList/US/Right/Sensor/Value", std::numeric_limits<float>::quiet_NaN());
  store->set("robotPoseChanged", "Sit");
  store->set("robotPose", 2.0F);
  const auto messages = tick(2, 20'000);
  EXPECT_EQ(payload(messages, "/sonar"), R"({"left_m":0.25,"right_m":null})");
  EXPECT_EQ(payload(messages, "/pose"), R"({"name":"Sit","code":2.0})");
}

TEST_F(ChannelsTest, JointStatesAreThoseOfViewers) {
  store->set("Device/SubDeviceList/LKneePitch/Position/Sensor/Value", 1.5F);
  EXPECT_EQ(
      payload(tick(1, 0), "/joint_states"),
      R"({"timestamp":{"sec":990,"nsec":0},"joints":[{"name":"LKneePitch","position":1.5}]})");
}

TEST_F(ChannelsTest, TicksTellTheirPeriodEvenWhenSomeAreLeftOut) {
  EXPECT_EQ(payload(tick(1, 0), "/tick"), R"({"module":"M","tick":1})");
  EXPECT_EQ(payload(tick(2, 20'000), "/tick"), R"({"module":"M","tick":2,"period_s":0.02})");
  EXPECT_EQ(payload(tick(4, 70'000), "/tick"), R"({"module":"M","tick":4,"period_s":0.025})");
}

TEST_F(ChannelsTest, OnlyWantedChannelsAreSampled) {
  const std::uint32_t sonar = sut.find("/sonar")->id;
  const auto messages =
      sut.ofTick(0, "M", 1, [sonar](std::uint32_t channel) { return channel == sonar; });
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0].channel, sonar);
}

TEST(Channels, WithoutAMemoryThereAreNoSamples) {
  Channels sut(nullptr, {0, 0}, 0);
  EXPECT_EQ(sut.ofTick(0, "M", 1, [](std::uint32_t) { return true; }).size(), 1U);
}

} // namespace
} // namespace gk::gateway
