#include "devices/sim/Postures.h"
#include "simulation/RobotRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Each posture is played from physics with noisy sensors, and must be recognised by the module.

namespace {

using namespace gk::test;

constexpr double kFirstOrder = 1;      // s
constexpr double kTimeForPosture = 7;  // s
constexpr double kTimeToRecognise = 2; // s, from the moment when the robot is at rest
constexpr double kRest = 0.03;         // m/s

/// Postures in an order that ends with the one that the robot starts in.
std::vector<std::string> names() {
  std::vector<std::string> all;
  for (const gk::devices::Posture& posture : gk::devices::postures()) {
    all.emplace_back(posture.name);
  }
  std::rotate(all.begin(), all.begin() + 1, all.end());
  return all;
}

double orderTime(std::size_t index) {
  return kFirstOrder + kTimeForPosture * static_cast<double>(index);
}

std::string scenario() {
  std::string text;
  for (std::size_t i = 0; i < names().size(); ++i) {
    text += "{\"t\":" + std::to_string(orderTime(i)) + ",\"set\":{\"Simulation/Posture\":\"" +
            names()[i] + "\"}}\n";
  }
  return text;
}

/// What was seen of one run.
struct Observed {
  std::vector<std::pair<double, std::string>> announced;
  /// Times of the ticks at which the robot moved or was moved.
  std::vector<double> restless;
};

Observed observe(int seed) {
  const TemporaryFolder folder;
  writeFile(folder.file("postures.jsonl"), scenario());
  const ProgramResult result =
      runRobot(folder.file("postures.jsonl"), std::to_string(orderTime(names().size())),
               {"--seed", std::to_string(seed), "--only", "event,sample", "--sample",
                "Simulation/Moving,Simulation/Speed"});
  EXPECT_EQ(result.code, 0) << result.err;
  Observed seen;
  for (const boost::json::object& line : jsonLines(result.out)) {
    const double time = numberOf(line.at("t"));
    if (textOf(line.at("kind")) == "sample") {
      const boost::json::object& values = line.at("values").as_object();
      if (values.at("Simulation/Moving").as_bool() ||
          numberOf(values.at("Simulation/Speed")) > kRest) {
        seen.restless.push_back(time);
      }
    } else if (textOf(line.at("name")) == "robotPoseChanged") {
      seen.announced.emplace_back(time, textOf(line.at("value")));
    }
  }
  return seen;
}

class PosturesOfManySeeds : public testing::TestWithParam<int> {};

TEST_P(PosturesOfManySeeds, AreRecognisedSoonAfterTheRobotHasComeToRest) {
  const Observed seen = observe(GetParam());
  for (std::size_t i = 0; i < names().size(); ++i) {
    const double end = orderTime(i + 1);
    const auto isBefore = [](double time) { return [time](double other) { return other < time; }; };
    const auto lastRestless =
        std::find_if(seen.restless.rbegin(), seen.restless.rend(), isBefore(end));
    ASSERT_NE(lastRestless, seen.restless.rend());
    ASSERT_GT(*lastRestless, orderTime(i)) << names()[i] << " was not moved to";
    const auto last = std::find_if(seen.announced.rbegin(), seen.announced.rend(),
                                   [&](const auto& pose) { return pose.first < end; });
    ASSERT_NE(last, seen.announced.rend());
    EXPECT_EQ(last->second, names()[i]);
    EXPECT_GT(last->first, orderTime(i));
    EXPECT_LT(last->first, *lastRestless + kTimeToRecognise) << names()[i];
    EXPECT_LT(*lastRestless, end - kTimeToRecognise) << names()[i] << " never came to rest";
  }
}

INSTANTIATE_TEST_SUITE_P(Ten, PosturesOfManySeeds, testing::Range(1, 11));

} // namespace
