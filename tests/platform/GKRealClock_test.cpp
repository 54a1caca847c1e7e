#include "gk/GKClock.h"
#include "support/PlatformFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <latch>
#include <limits>
#include <memory>
#include <stdexcept>
#include <thread>

namespace GK {
namespace {

using test::ScriptedInput;
using End = GKClock::End;

constexpr GKMicros kHour = 3600000000;

/// A moment that has passed already when a run begins.
constexpr GKMicros kLongAgo = 0;

TEST(RealClock, ElapsedNeverGoesBack) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  EXPECT_FALSE(sut->isVirtual());

  GKMicros former = sut->elapsed();
  EXPECT_GE(former, 0);
  for (int i = 0; i < 1000; ++i) {
    const GKMicros now = sut->elapsed();
    EXPECT_GE(now, former);
    former = now;
  }
}

TEST(RealClock, SleepLastsAtLeastTheDuration) {
  const std::shared_ptr<GKClock> sut = makeRealClock();

  const GKMicros before = sut->elapsed();
  sut->sleep(1000);

  EXPECT_GE(sut->elapsed() - before, 1000);
}

/// What a clock that is a thousand times slower than the computer's needs for ten microseconds.
constexpr std::chrono::milliseconds kTenMicrosSlowly{10};

TEST(RealClock, GoesAsFastAsItIsAskedTo) {
  for (const double speed : {0.001, 2.5, 1000.0}) {
    const auto before = std::chrono::steady_clock::now();
    const std::shared_ptr<GKClock> sut = makeRealClock(0, speed);
    const GKWallTime wall = sut->wallTime();
    const auto made = std::chrono::steady_clock::now();

    const std::chrono::duration<double, std::micro> least = std::chrono::steady_clock::now() - made;
    const auto elapsed = static_cast<double>(sut->elapsed());
    const std::chrono::duration<double, std::micro> most =
        std::chrono::steady_clock::now() - before;

    EXPECT_GE(elapsed, std::floor(least.count()) * speed - 1.0) << speed;
    EXPECT_LE(elapsed, most.count() * speed + 0.001) << speed;
    EXPECT_GT(wall.seconds, 1577836800) << speed;
  }
}

TEST(RealClock, ASlowOneSleepsLonger) {
  const std::shared_ptr<GKClock> sut = makeRealClock(0, 0.001);
  const auto before = std::chrono::steady_clock::now();

  sut->sleep(10);

  EXPECT_GE(std::chrono::steady_clock::now() - before, kTenMicrosSlowly);
  EXPECT_GE(sut->elapsed(), 10);
}

TEST(RealClock, ASlowOneEndsARunLater) {
  const std::shared_ptr<GKClock> sut = makeRealClock(0, 0.001);
  const auto before = std::chrono::steady_clock::now();

  EXPECT_EQ(sut->run(nullptr, 10), GKClock::End::Until);

  EXPECT_GE(std::chrono::steady_clock::now() - before, kTenMicrosSlowly);
  EXPECT_GE(sut->elapsed(), 10);
}

TEST(RealClock, SleepsThatNobodyOutlivesAreSleeps) {
  for (const double speed : {0.001, 1.0, 1000.0}) {
    const std::shared_ptr<GKClock> sut = makeRealClock(0, speed);
    std::atomic<bool> isAwake = false;
    sut->post({}, [&] {
      sut->sleep(std::numeric_limits<GKMicros>::max());
      isAwake = true;
    });
    sut->sleep(1);
    EXPECT_FALSE(isAwake) << speed;
    sut->joinTasks();
    EXPECT_TRUE(isAwake) << speed;
  }
}

TEST(RealClock, WallTimeIsOfOurDays) {
  const GKWallTime now = makeRealClock()->wallTime();

  // 2020-01-01T00:00:00 UTC.
  EXPECT_GT(now.seconds, 1577836800);
  EXPECT_GE(now.microseconds, 0);
  EXPECT_LT(now.microseconds, 1000000);
}

TEST(RealClock, PostedTasksRunSideBySide) {
  constexpr int kTasks = 64;
  const std::shared_ptr<GKClock> sut = makeRealClock();
  // Nobody gets on before all have come.
  std::latch everybody(kTasks + 1);

  for (int task = 0; task < kTasks; ++task) {
    sut->post({}, [&] { everybody.arrive_and_wait(); });
  }
  everybody.arrive_and_wait();

  sut->joinTasks();
}

TEST(RealClock, ThreadsOfEndedTasksServeLaterOnes) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  std::atomic<int> ended = 0;

  for (int round = 0; round < 100; ++round) {
    std::latch both(3);
    for (int task = 0; task < 2; ++task) {
      sut->post({}, [&] {
        both.arrive_and_wait();
        ++ended;
      });
    }
    both.arrive_and_wait();
    // The latch goes out of scope once both have left it.
    while (ended != 2 * (round + 1)) {
      std::this_thread::yield();
    }
  }

  sut->joinTasks();
  EXPECT_EQ(ended, 200);
}

TEST(RealClock, TasksKnowWhoTheyAre) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  std::string name;

  sut->post({"GKSensors", "run"},
            [&] { name = GKTask::current()->module + "." + GKTask::current()->method; });
  sut->joinTasks();

  EXPECT_EQ(name, "GKSensors.run");
}

TEST(RealClock, JoinCutsSleepsShort) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  std::latch started(1);
  bool woke = false;
  sut->post({}, [&] {
    started.count_down();
    sut->sleep(kHour);
    sut->sleep(kHour);
    woke = true;
  });
  started.wait();

  sut->joinTasks();

  EXPECT_TRUE(woke);
  EXPECT_LT(sut->elapsed(), kHour);
}

TEST(RealClock, JoinWaitsForTasksThatTasksPost) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  std::atomic<int> ended = 0;
  sut->post({}, [&] {
    sut->post({}, [&] {
      sut->post({}, [&] { ++ended; });
      ++ended;
    });
    ++ended;
  });

  sut->joinTasks();

  EXPECT_EQ(ended, 3);
}

TEST(RealClock, WorkIsReleasedBeforeItsTaskCountsAsEnded) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watch = held;
  sut->post({}, [held = std::move(held)] {});

  sut->joinTasks();

  EXPECT_TRUE(watch.expired());
}

TEST(RealClock, RequestedEndLetsAWaitingRunReturn) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  sut->post({}, [&] { sut->requestEnd(); });

  EXPECT_EQ(sut->run(nullptr, std::nullopt), End::Requested);

  sut->joinTasks();
}

TEST(RealClock, EndRequestedBeforehandEndsTheRunAtOnce) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  ScriptedInput input;
  input.at(kHour, [] { ADD_FAILURE() << "not due"; });
  sut->requestEnd();

  EXPECT_EQ(sut->run(&input, std::nullopt), End::Requested);
}

TEST(RealClock, RunEndsAtItsLimit) {
  const std::shared_ptr<GKClock> sut = makeRealClock();

  EXPECT_EQ(sut->run(nullptr, 1000), End::Until);

  EXPECT_GE(sut->elapsed(), 1000);
}

TEST(RealClock, InputIsAppliedInOrderAndNeverEarly) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  std::vector<GKMicros> times;
  ScriptedInput input;
  for (const GKMicros due : {GKMicros(0), GKMicros(500), GKMicros(500), GKMicros(1000)}) {
    input.at(due, [&, due] {
      EXPECT_GE(sut->elapsed(), due);
      times.push_back(due);
    });
  }

  EXPECT_EQ(sut->run(&input, 1500), End::Until);

  EXPECT_THAT(times, testing::ElementsAre(0, 500, 500, 1000));
}

TEST(RealClock, InputBehindTheLimitIsNotApplied) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  ScriptedInput input;
  input.at(1000, [] {}).at(1001, [] { ADD_FAILURE() << "behind the limit"; });

  EXPECT_EQ(sut->run(&input, 1000), End::Until);

  EXPECT_EQ(input.applied(), 1u);
}

TEST(RealClock, InputMayRequestTheEnd) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  ScriptedInput input;
  input.at(kLongAgo, [&] { sut->requestEnd(); }).at(kLongAgo, [] { ADD_FAILURE() << "ended"; });

  EXPECT_EQ(sut->run(&input, std::nullopt), End::Requested);
}

TEST(RealClock, ExceptionOfTheInputLeavesFromTheRun) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  ScriptedInput input;
  input.at(kLongAgo, [] { throw std::out_of_range("line 7"); });

  EXPECT_THROW(sut->run(&input, std::nullopt), std::out_of_range);
}

TEST(RealClock, CallMayBeStartedByTheInput) {
  const std::shared_ptr<GKClock> sut = makeRealClock();
  ScriptedInput input;
  input.at(kLongAgo, [&] { sut->start({}, [&] { sut->requestEnd(); }); });

  EXPECT_EQ(sut->run(&input, std::nullopt), End::Requested);

  sut->joinTasks();
}

TEST(InstalledClock, IsARealOneUntilAnotherIsInstalled) {
  GKClock::install(nullptr);
  EXPECT_FALSE(GKClock::instance().isVirtual());

  const std::shared_ptr<GKClock> other = makeVirtualClock(0);
  GKClock::install(other);
  EXPECT_EQ(&GKClock::instance(), other.get());

  GKClock::install(nullptr);
  EXPECT_FALSE(GKClock::instance().isVirtual());
}

} // namespace
} // namespace GK
