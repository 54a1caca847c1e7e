#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <ctime>

namespace gk::bench {

/// The arithmetic of one tick over plain arrays: no modules, no memory service, no virtual calls,
/// no sharing between threads. What a tick is held against.
class FlatTick {
public:
  static constexpr std::size_t kSensors = 16;
  static constexpr std::size_t kJoints = 25;
  static constexpr std::size_t kBoards = 11;

  std::array<float, kSensors> sensors{};
  std::array<float, kJoints> hardnessMax{};
  std::array<float, kJoints> hardness{};
  std::array<int, kBoards> boardErrors{};
  std::array<float, 2> weights{};
  std::array<float, 9> body{};
  std::array<float, kJoints> currents{};
  float charge = 1.0F;
  int status = 0;
  int cellVoltage = 0;
  float batteryCurrent = 0.0F;

  /// Counts what would be published.
  int changes = 0;
  std::array<float, 5> footOutput{};
  std::array<float, 2> poseOutput{};

  FlatTick() {
    hardnessMax.fill(1.0F);
    last.fill(-5.0F);
    sensors[8] = sensors[9] = 2.55F;
  }

  void tick() {
    touch();
    heat();
    stiffness();
    sonar();
    feet();
    pose();
    battery();
  }

private:
  template <std::size_t N> struct Window {
    std::array<float, N> values{};
    std::size_t next = 0;

    void push(float value) {
      values[next] = value;
      next = next + 1 == N ? 0 : next + 1;
    }
    /// Oldest first.
    float sum(float start) const {
      for (std::size_t i = next; i < N; ++i) {
        start += values[i];
      }
      for (std::size_t i = 0; i < next; ++i) {
        start += values[i];
      }
      return start;
    }
  };

  void publish(std::size_t index, float value) {
    if (value != last[index]) {
      last[index] = value;
      ++changes;
    }
  }

  void touch() {
    for (const std::size_t foot : {std::size_t{0}, std::size_t{2}}) {
      publish(foot, sensors[foot] > 0.0F || sensors[foot + 1] > 0.0F ? 1.0F : 0.0F);
    }
    for (const std::size_t index : {4, 5, 6, 7, 10, 11, 12, 13, 14, 15}) {
      publish(index, sensors[index]);
    }
  }

  void heat() {
    bool isHot = false;
    for (const int error : boardErrors) {
      isHot = isHot || (error >= 33 && error <= 35);
    }
    hotTicks += isHot ? 1 : 0;
    if (++ticks > 1000) {
      ticks = 0;
      hotTicks = 0;
    }
  }

  void stiffness() {
    int state = -1;
    for (std::size_t i = 0; i < kJoints; ++i) {
      const int joint = hardness[i] > 0.95F * hardnessMax[i]    ? 2
                        : hardness[i] >= 0.05F * hardnessMax[i] ? 1
                                                                : 0;
      if (state == -1) {
        state = joint;
      }
      if (joint == 1 || joint != state) {
        state = 1;
        break;
      }
    }
    if (state != bodyStiffness) {
      bodyStiffness = state;
      ++changes;
    }
  }

  void sonar() {
    const float leftRange = sensors[9];
    const float rightRange = sensors[8];
    if (std::fabs(rightRange - filteredRight) > 0.01F ||
        std::fabs(leftRange - filteredLeft) > 0.01F) {
      filteredRight = rightRange;
      filteredLeft = leftRange;
    }
    if (filteredRight >= 0.7F && filteredLeft >= 0.7F) {
      obstacle = 4;
    } else if (std::fabs(filteredRight - filteredLeft) < 0.08F) {
      obstacle = filteredLeft > filteredRight ? 1 : 2;
    } else {
      obstacle = filteredLeft > filteredRight ? 0 : 3;
    }
    // Events repeat by the seconds of the wall clock.
    const std::time_t now = std::time(nullptr);
    if (now - lastEvent > 1 || lastEvent - now > 1) {
      lastEvent = now;
      ++changes;
    }
  }

  void feet() {
    left.push(weights[0]);
    right.push(weights[1]);
    const float leftMean = left.sum(0.0F) / 10.0F;
    const float rightMean = right.sum(0.0F) / 10.0F;
    const bool contact = leftMean + rightMean > 0.4F;
    footOutput = {contact ? 1.0F : 0.0F, leftMean > 0.4F ? 1.0F : 0.0F,
                  rightMean > 0.4F ? 1.0F : 0.0F, leftMean, rightMean};
    if (contact != hadContact) {
      hadContact = contact;
      ++changes;
    }
  }

  void pose() {
    const std::array<float, 4> legs = {(body[2] + body[3]) * 0.5F, (body[4] + body[5]) * 0.5F,
                                       (body[6] + body[7]) * 0.5F, body[1]};
    static constexpr std::array<float, 4> scale = {2.2340214F, 2.1816616F, 2.0943952F, 2.0943952F};
    static constexpr std::array<std::array<float, 4>, 6> rows = {{
        {-1.7453293F, 0, 0, -0.34906584F},
        {-1.5707964F, 2.0943952F, 0.5235988F, -0.17453292F},
        {-1.5707964F, 0.87266463F, 0.87266463F, -0.17453292F},
        {-1.3962634F, 0, -0.87266463F, 0.34906584F},
        {-0.34906584F, 2.0943952F, 0.87266463F, 0},
        {0.34906584F, 1.7453293F, 0.87266463F, -1.0471976F},
    }};
    int nearest = 0;
    if (body[8] != 0.0F) {
      nearest = legs[1] > 1.9198622F && legs[2] < -0.69813168F ? 3 : 1;
    } else if (!(std::fabs(body[1]) < 0.78539819F && std::fabs(body[0]) < 0.78539819F)) {
      nearest = std::fabs(body[0]) > std::fabs(body[1]) ? 8 : 6;
    } else {
      float best = 1000.0F;
      for (std::size_t row = 0; row < rows.size(); ++row) {
        float sum = 0.0F;
        for (std::size_t i = 0; i < 4; ++i) {
          const float difference = std::fabs(legs[i] - rows[row][i]);
          sum = static_cast<float>(double{sum} + double{difference} / double{scale[i]});
        }
        if (best > sum) {
          best = sum;
          nearest = static_cast<int>(row);
        }
      }
    }
    poseTicks = nearest == currentPose ? poseTicks + 1 : 1;
    currentPose = nearest;
    poseOutput = {static_cast<float>(nearest), static_cast<float>(poseTicks) * 0.02F};
  }

  void battery() {
    const int percent = static_cast<int>(100.0F * charge);
    if (percent != lastPercent) {
      lastPercent = percent;
      ++changes;
    }
    if ((status & 0xE0) != lastStatus) {
      lastStatus = status & 0xE0;
      ++changes;
    }
    if (cellVoltage - lastCellVoltage >= 2 || lastCellVoltage - cellVoltage >= 2) {
      lastCellVoltage = cellVoltage;
      ++changes;
    }
    float sum = 0.0F;
    for (const float current : currents) {
      sum += current;
    }
    motor.push(sum + (sum < 0.5F ? 2.5F : 0.83F));
    cell.push(batteryCurrent);
    motorMean = motor.sum(motorMean) / 50.0F;
    cellMean = cell.sum(cellMean) / 50.0F;
    const bool isPlugged = cellMean * 2.5F + motorMean > 3.0F;
    if (isPlugged != wasPlugged) {
      wasPlugged = isPlugged;
      ++changes;
    }
  }

  std::array<float, kSensors> last{};
  std::uint64_t ticks = 0;
  std::uint64_t hotTicks = 0;
  int bodyStiffness = -1;
  float filteredRight = 2.55F;
  float filteredLeft = 2.55F;
  int obstacle = 4;
  std::time_t lastEvent = 0;
  Window<10> left;
  Window<10> right;
  bool hadContact = true;
  int currentPose = 0;
  int poseTicks = 0;
  int lastPercent = 0;
  int lastStatus = 0;
  int lastCellVoltage = 0;
  Window<50> motor;
  Window<50> cell;
  float motorMean = 0.0F;
  float cellMean = 0.0F;
  bool wasPlugged = false;
};

} // namespace gk::bench
