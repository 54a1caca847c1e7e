#include "gateway/channels/RosChannels.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/ros/Cdr.h"
#include "messages/ros/Types.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace gk::gateway {
namespace {

namespace ros = messages::ros;
using testing::ElementsAre;
using testing::IsEmpty;

class RosChannelsTest : public testing::Test {
protected:
  Channels::IsWanted only(const std::string& topic) {
    return [this, topic](std::uint32_t channel) {
      return channels.all().at(channel - 1).topic == topic;
    };
  }
  static Channels::IsWanted nothing() {
    return [](std::uint32_t) { return false; };
  }
  std::vector<std::string> topicsOf(const std::vector<ChannelMessage>& messages) const {
    std::vector<std::string> topics;
    for (const ChannelMessage& message : messages) {
      topics.push_back(channels.all().at(message.channel - 1).topic);
    }
    return topics;
  }

  static GK::GKNotice event() {
    GK::GKNotice notice;
    notice.kind = GK::GKNotice::Kind::Event;
    notice.name = "robotPoseChanged";
    notice.value = "Sit";
    return notice;
  }

  std::shared_ptr<GK::GKMemoryStore> store = std::make_shared<GK::GKMemoryStore>();
  Channels channels{store, {1'700'000'000, 0}, 0};
  std::size_t before = channels.all().size();
  RosChannels sut{channels, store, {1'700'000'000, 0}, 0};
};

TEST_F(RosChannelsTest, StandBehindTheOthersWithTheirOwnEncoding) {
  std::set<std::string> topics;
  for (std::size_t i = before; i < channels.all().size(); ++i) {
    const Channel& channel = channels.all()[i];
    EXPECT_TRUE(channel.topic.starts_with("/ros2/")) << channel.topic;
    EXPECT_EQ(channel.encoding, "cdr");
    EXPECT_EQ(channel.schemaEncoding, "ros2msg");
    EXPECT_TRUE(topics.insert(channel.topic).second);
  }
  const Channel* tf = channels.find("/ros2/tf");
  ASSERT_NE(tf, nullptr);
  EXPECT_EQ(tf->schemaName, "tf2_msgs/msg/TFMessage");
  EXPECT_EQ(tf->schema, ros::typeOf<ros::TFMessage>().definition);
  EXPECT_EQ(channels.find("/ros2/events")->flow, Flow::Queue);
  EXPECT_EQ(channels.find("/ros2/rosout")->flow, Flow::Queue);
  EXPECT_EQ(channels.find("/ros2/imu/data")->flow, Flow::Latest);
}

TEST_F(RosChannelsTest, WhatNobodyWantsIsNotMade) {
  for (const messages::DeviceKey& key : messages::simulatedKeys()) {
    store->set(key.name, key.start);
  }
  EXPECT_THAT(sut.ofTick(0, "GKSensors", 1, nothing()), IsEmpty());
  EXPECT_THAT(sut.ofNotice(event(), nothing()), IsEmpty());
  EXPECT_THAT(topicsOf(sut.ofTick(20'000, "GKSensors", 2, only("/ros2/imu/data"))),
              ElementsAre("/ros2/imu/data"));
  EXPECT_THAT(topicsOf(sut.ofNotice(event(), only("/ros2/pose_name"))),
              ElementsAre("/ros2/pose_name"));
}

TEST_F(RosChannelsTest, WhoComesLateIsToldWhatIsLatched) {
  store->set("robotPoseChanged", "Sit");
  const auto told = sut.latched(channels.find("/ros2/pose_name")->id, 0);
  ASSERT_TRUE(told);
  std::string cdr;
  ros::encode(ros::String{"Sit"}, cdr);
  EXPECT_EQ(told->payload, cdr);
  EXPECT_EQ(told->time, 1'700'000'000'000'000'000U);
  EXPECT_FALSE(sut.latched(channels.find("/ros2/joint_states")->id, 0));
  EXPECT_FALSE(sut.latched(channels.find("/pose")->id, 0));
  EXPECT_FALSE(sut.latched(static_cast<std::uint32_t>(channels.all().size() + 1), 0));
}

TEST_F(RosChannelsTest, SamplesGoOnWhenTimeGoesBack) {
  store->set(messages::deviceKey("Battery/Charge", "/Sensor/Value"), 0.5F);
  const auto wanted = only("/ros2/battery_state");
  EXPECT_EQ(sut.ofTick(60'000'000, "GKSensors", 1, wanted).size(), 1U);
  EXPECT_EQ(sut.ofTick(5'000'000, "GKSensors", 2, wanted).size(), 1U);
  EXPECT_EQ(sut.ofTick(5'001'000, "GKSensors", 3, wanted).size(), 0U);
  EXPECT_EQ(sut.ofTick(5'020'000, "GKSensors", 4, wanted).size(), 1U);
}

} // namespace
} // namespace gk::gateway
