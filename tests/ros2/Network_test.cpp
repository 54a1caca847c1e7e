#include "extensions/ros2/Network.h"

#include <gmock/gmock.h>

#include <map>
#include <stdexcept>
#include <string>

namespace {

using gk::ros2::configurationOf;
using gk::ros2::Network;
using gk::ros2::readNetwork;
using testing::HasSubstr;
using testing::Not;

using Variables = std::map<std::string, std::string>;

Network read(const Variables& variables, const std::string& interface = {}) {
  return readNetwork(
      [&variables](const char* name) {
        const auto found = variables.find(name);
        return found != variables.end() ? found->second.c_str() : nullptr;
      },
      interface);
}

/// What is said against these variables; empty for nothing.
std::string complaint(const Variables& variables, const std::string& interface = {}) {
  try {
    read(variables, interface);
    return {};
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

TEST(Ros2Network, WithoutAnyVariableItIsThisMachineInDomain0) {
  const Network sut = read({});

  EXPECT_EQ(sut.domain, 0U);
  EXPECT_EQ(sut.range, Network::Range::Machine);
  const std::string configuration = configurationOf(sut, "");
  EXPECT_THAT(configuration, HasSubstr("<AllowMulticast>false</AllowMulticast>"));
  EXPECT_THAT(configuration, HasSubstr("<Peer address=\"127.0.0.1\"/>"));
}

TEST(Ros2Network, DomainsAreFrom0To232) {
  EXPECT_EQ(read({{"ROS_DOMAIN_ID", "232"}}).domain, 232U);
  EXPECT_EQ(read({{"ROS_DOMAIN_ID", ""}}).domain, 0U);
  EXPECT_EQ(complaint({{"ROS_DOMAIN_ID", "233"}}), "ROS_DOMAIN_ID: 233 is no number from 0 to 232");
  for (const char* wrong : {"-1", "1x", "4294967296", " 1", "0x1"}) {
    EXPECT_THAT(complaint({{"ROS_DOMAIN_ID", wrong}}), HasSubstr("ROS_DOMAIN_ID: ")) << wrong;
  }
}

TEST(Ros2Network, TheRangeSaysWhoIsServed) {
  const char* range = "ROS_AUTOMATIC_DISCOVERY_RANGE";
  EXPECT_EQ(read({{range, "LOCALHOST"}}).range, Network::Range::Machine);
  EXPECT_EQ(read({{range, "OFF"}}).range, Network::Range::Nobody);
  EXPECT_THAT(configurationOf(read({{range, "SUBNET"}}), ""),
              testing::AllOf(Not(HasSubstr("127.0.0.1")), Not(HasSubstr("AllowMulticast"))));
  EXPECT_THAT(configurationOf(read({{range, "SYSTEM_DEFAULT"}}), ""),
              testing::AllOf(Not(HasSubstr("General")), Not(HasSubstr("Discovery"))));
  EXPECT_EQ(complaint({{range, "subnet"}}),
            "ROS_AUTOMATIC_DISCOVERY_RANGE: subnet is none of LOCALHOST, SUBNET, OFF and "
            "SYSTEM_DEFAULT");
}

TEST(Ros2Network, PeersAreAskedBesidesThisMachine) {
  const Network sut = read({{"ROS_STATIC_PEERS", "192.0.2.7;robot-2.lan;"}});

  EXPECT_THAT(sut.peers, testing::ElementsAre("192.0.2.7", "robot-2.lan"));
  const std::string configuration = configurationOf(sut, "");
  EXPECT_THAT(configuration, HasSubstr("<Peer address=\"robot-2.lan\"/>"));
  EXPECT_THAT(configuration, HasSubstr("<Peer address=\"127.0.0.1\"/>"));
  EXPECT_THAT(configuration, Not(HasSubstr("NetworkInterface")));
  EXPECT_EQ(complaint({{"ROS_STATIC_PEERS", "a\"/><b"}}),
            "ROS_STATIC_PEERS: a\"/><b is no address");
}

TEST(Ros2Network, TheOlderVariableKeepsToThisMachineWhateverTheOthersSay) {
  const Network sut = read({{"ROS_LOCALHOST_ONLY", "1"},
                            {"ROS_AUTOMATIC_DISCOVERY_RANGE", "SUBNET"},
                            {"ROS_STATIC_PEERS", "192.0.2.7"}});

  EXPECT_EQ(sut.range, Network::Range::Machine);
  EXPECT_TRUE(sut.peers.empty());
  EXPECT_EQ(read({{"ROS_LOCALHOST_ONLY", "0"}}).range, Network::Range::Machine);
  EXPECT_EQ(complaint({{"ROS_LOCALHOST_ONLY", "yes"}}),
            "ROS_LOCALHOST_ONLY: yes is neither 0 nor 1");
}

TEST(Ros2Network, AnInterfaceServesItsNetworkUnlessTheEnvironmentSaysOtherwise) {
  EXPECT_EQ(read({}, "lo").range, Network::Range::Subnet);
  EXPECT_THAT(configurationOf(read({}, "lo"), ""), HasSubstr("<NetworkInterface name=\"lo\"/>"));
  EXPECT_EQ(complaint({}, "no_such0"), "there is no network interface no_such0");
  EXPECT_EQ(complaint({{"ROS_LOCALHOST_ONLY", "1"}}, "lo"),
            "the interface lo is of no use: ROS_LOCALHOST_ONLY=1 keeps to this machine");
  EXPECT_EQ(complaint({{"ROS_AUTOMATIC_DISCOVERY_RANGE", "LOCALHOST"}}, "lo"),
            "the interface lo is of no use: ROS_AUTOMATIC_DISCOVERY_RANGE=LOCALHOST keeps to this "
            "machine");
}

TEST(Ros2Network, WhatTheUserConfiguresStandsBehindOurs) {
  EXPECT_THAT(configurationOf(read({}), "file:///tmp/mine.xml"),
              testing::EndsWith("</CycloneDDS>,file:///tmp/mine.xml"));
}

} // namespace
