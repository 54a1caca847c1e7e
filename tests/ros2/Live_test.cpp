#include "support/Program.h"
#include "support/RunningHost.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

// What a subscriber of another vendor (ros2_subscriber, on Fast DDS) gets of a running host. Where
// that is not installed, these tests are not there.

#ifdef GK_ROS2_SUBSCRIBER

namespace {

using gk::test::Program;
using gk::test::RunningHost;
using testing::HasSubstr;

/// A DDS domain that no other test on this machine uses meanwhile.
class Domain {
public:
  Domain() {
    for (int number = 60; number <= 99; ++number) {
      const std::filesystem::path file =
          std::filesystem::temp_directory_path() / ("gk-ros2-domain-" + std::to_string(number));
      fFile = ::open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666);
      if (fFile >= 0 && ::flock(fFile, LOCK_EX | LOCK_NB) == 0) {
        fNumber = std::to_string(number);
        ::setenv("ROS_DOMAIN_ID", fNumber.c_str(), 1);
        return;
      }
      ::close(fFile);
    }
    throw std::runtime_error("all DDS domains are in use");
  }
  ~Domain() { ::close(fFile); }
  Domain(const Domain&) = delete;
  Domain& operator=(const Domain&) = delete;

  const std::string& number() const { return fNumber; }

private:
  int fFile = -1;
  std::string fNumber;
};

/// The subscriber and what it has printed.
class Reader {
public:
  explicit Reader(const Domain& domain, const std::vector<std::string>& more = {})
      : fProgram(arguments(domain, more)) {}

  Program& program() { return fProgram; }

  /// Lines so far of this topic, or those that begin with this word.
  const std::vector<std::string>& lines(const std::string& word) {
    const std::string text = fProgram.outSince(fSize);
    std::size_t begin = 0;
    // The last line may still be written.
    for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
      const std::string line = text.substr(begin, end - begin);
      fLines[line.substr(0, line.find(' '))].push_back(line);
    }
    fSize += begin;
    return fLines[word];
  }

  /// Waits until so many lines of this topic have come.
  void waitForCount(const std::string& topic, std::size_t count) {
    fProgram.runUntil([&] {
      giveWay();
      return lines(topic).size() >= count;
    });
  }

  /// The first line of this topic that has this in it, once it is there.
  std::string waitFor(const std::string& topic, const std::string& part = {}) {
    std::string found;
    std::size_t seen = 0;
    fProgram.runUntil([&] {
      giveWay();
      const std::vector<std::string>& all = lines(topic);
      for (; seen < all.size(); ++seen) {
        if (all[seen].find(part) != std::string::npos) {
          found = all[seen];
          return true;
        }
      }
      return false;
    });
    return found;
  }

private:
  static std::vector<std::string> arguments(const Domain& domain,
                                            const std::vector<std::string>& more) {
    std::vector<std::string> all = {GK_ROS2_SUBSCRIBER, domain.number()};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  /// Two processors have a host, a subscriber and this test to run.
  static void giveWay() { ::usleep(2'000); }

  Program fProgram;
  /// Bytes that have been taken apart.
  std::size_t fSize = 0;
  std::map<std::string, std::vector<std::string>> fLines;
};

/// The value of "name=value" in a line.
std::string valueIn(const std::string& line, const std::string& name) {
  const std::size_t begin = line.find(" " + name + "=");
  if (begin == std::string::npos) {
    return "none";
  }
  const std::size_t value = begin + name.size() + 2;
  return line.substr(value, line.find(' ', value) - value);
}

/// A standing robot with exact sensors and its sonar on.
std::vector<std::string> standing(std::vector<std::string> more = {}) {
  more.insert(more.begin(),
              {"--ros2", "--no-tour", "--no-noise", "--quiet", "--subscribe", "GKSonar"});
  return more;
}

TEST(Ros2Live, AnotherVendorFindsEveryTopicWithDefaultSettingsAndReadsRightValues) {
  const Domain domain;
  const RunningHost host(standing());
  Reader sut(domain, {"--default"});

  // Keys whose values are known: the charge of the start, nothing in sight, a standing robot.
  EXPECT_EQ(valueIn(sut.waitFor("/battery_state"), "present"), "1");
  EXPECT_EQ(valueIn(sut.waitFor("/sonar/left"), "min_range"), "0.25");
  EXPECT_EQ(valueIn(sut.waitFor("/sonar/right"), "frame"), "r_sonar");
  const std::string imu = sut.waitFor("/imu/data");
  EXPECT_EQ(valueIn(imu, "frame"), "imu_link");
  const std::string joints = sut.waitFor("/joint_states");
  EXPECT_THAT(joints, HasSubstr("HeadYaw"));
  const std::string names = valueIn(joints, "name");
  EXPECT_EQ(std::ranges::count(names, ','), 24) << names;
  EXPECT_EQ(std::ranges::count(valueIn(joints, "position"), ','), 24);
  EXPECT_EQ(valueIn(joints, "velocity"), "");
  EXPECT_THAT(sut.waitFor("/tf"), HasSubstr("frame=torso child=neck"));
  for (const char* topic : {"/tf_static", "/diagnostics", "/temperature/HeadYaw", "/l_foot/wrench",
                            "/r_foot/wrench", "/l_foot/cop", "/r_foot/cop"}) {
    EXPECT_NE(sut.waitFor(topic), "") << topic;
  }
  EXPECT_THAT(sut.waitFor("/robot_description"), HasSubstr("<robot"));

  // All of it reliable, with the hashes of the types, and never keyless samples of a wrong type.
  const std::vector<std::string> found = sut.lines("found");
  EXPECT_GT(found.size(), 40U);
  for (const std::string& line : found) {
    EXPECT_THAT(line, testing::AllOf(HasSubstr(" reliable "), HasSubstr(" typehash=RIHS01_")));
  }
}

TEST(Ros2Live, WhoComesLateGetsWhatIsLatched) {
  const Domain domain;
  const RunningHost host(standing());
  Reader first(domain);
  first.waitFor("/joint_states");

  Reader sut(domain);
  EXPECT_THAT(sut.waitFor("/robot_description"), HasSubstr("<robot"));
  EXPECT_NE(sut.waitFor("/tf_static"), "");
  EXPECT_EQ(valueIn(sut.waitFor("/touch/head_front"), "data"), "0");
  // Whoever has been told already is not told again.
  EXPECT_EQ(first.lines("/robot_description").size(), 1U);
}

TEST(Ros2Live, EventsAreToldAtOnceAndTouchesAsTheyChange) {
  const Domain domain;
  const RunningHost host(standing());
  Reader sut(domain);
  sut.waitFor("/touch/head_front", "data=0");

  ASSERT_EQ(host.gk({"set", "Simulation/Touch/Head/Touch/Front", "on"}).code, 0);
  EXPECT_THAT(sut.waitFor("/touch/head_front", "data=1"), HasSubstr("data=1"));
  EXPECT_THAT(sut.waitFor("/events", "FrontTactilTouched"), HasSubstr("\"value\":1.0"));
}

TEST(Ros2Live, ANamespaceStandsBeforeAllButWhatIsOfTheWholeSystem) {
  const Domain domain;
  const RunningHost host(standing({"--ros-namespace", "lab/robot1"}));
  Reader sut(domain);

  EXPECT_NE(sut.waitFor("/lab/robot1/joint_states"), "");
  EXPECT_NE(sut.waitFor("/tf"), "");
  EXPECT_NE(sut.waitFor("/diagnostics"), "");
  EXPECT_TRUE(sut.lines("/joint_states").empty());
}

TEST(Ros2Live, ASecondHostOnTheMachineIsSeenBesidesTheFirst) {
  const Domain domain;
  const RunningHost first(standing({"--ros-namespace", "one"}));
  const RunningHost second(standing({"--ros-namespace", "two"}));
  Reader sut(domain);

  EXPECT_NE(sut.waitFor("/one/imu/data"), "");
  EXPECT_NE(sut.waitFor("/two/imu/data"), "");
}

TEST(Ros2Live, AKilledOrStoppedReaderDisturbsNobody) {
  const Domain domain;
  RunningHost host(standing());
  Reader sut(domain, {"/joint_states", "/pose_name"});
  Reader killed(domain);
  Reader stopped(domain);
  killed.waitFor("/joint_states");
  stopped.waitFor("/joint_states");

  ::kill(killed.program().pid(), SIGKILL);
  ::kill(stopped.program().pid(), SIGSTOP);
  // More than what writers keep for readers.
  sut.waitForCount("/joint_states", sut.lines("/joint_states").size() + 110);
  EXPECT_EQ(host.gk({"call", "GKRos2.status"}).code, 0);

  // It ends as ever: nobody is waited for, not for each topic at least.
  const auto begin = std::chrono::steady_clock::now();
  ::kill(host.program().pid(), SIGINT);
  EXPECT_EQ(host.program().wait().code, 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  ::kill(stopped.program().pid(), SIGCONT);
}

TEST(Ros2Live, TheGraphIsToldInTheFormatThatIsAskedFor) {
  const Domain domain;
  const RunningHost host(standing({"--setting", "GKRos2/Graph=gid16"}));
  Reader sut(domain, {"ros_discovery_info"});

  const std::string line = sut.waitFor("ros_discovery_info", "nodes=1");
  EXPECT_THAT(line, HasSubstr(" namespace=/ name=gk readers=0 writers="));
  EXPECT_NE(valueIn(line, "writers"), "0");
}

TEST(Ros2Live, TheGraphIsNotToldBeforeSomebodyElseTellsHis) {
  const Domain domain;
  RunningHost quiet({"--ros2", "--no-tour", "--only", "log"});
  Reader sut(domain);
  sut.waitFor("/joint_states");
  EXPECT_TRUE(sut.lines("ros_discovery_info").empty());

  // Another host, which is told to: now there is a format, and both tell.
  const RunningHost other(
      standing({"--setting", "GKRos2/Graph=gid16", "--ros-namespace", "other"}));
  sut.waitFor("ros_discovery_info", "namespace=/other ");
  EXPECT_NE(sut.waitFor("ros_discovery_info", "namespace=/ name=gk"), "");

  // One of the other format: nobody tells in any.
  const RunningHost older(standing({"--setting", "GKRos2/Graph=gid24"}));
  const Program& program = quiet.program();
  program.runUntil([&] {
    return program.outSoFar().find("older and newer releases of ROS") != std::string::npos;
  });
}

} // namespace

#endif
