#include "gk/GKClock.h"
#include "support/VirtualClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace GK {
namespace {

using test::kTick;
using test::VirtualClock;
using End = GKClock::End;
using VirtualClockRun = VirtualClock;

TEST_F(VirtualClockRun, RunEndsIdleWhenNothingIsLeft) {
  EXPECT_EQ(run(), End::Idle);
  EXPECT_EQ(sut().run(nullptr, 100), End::Idle);
  EXPECT_EQ(sut().elapsed(), 0);
}

TEST_F(VirtualClockRun, WhatIsDueAtTheLimitHappensAndNothingLater) {
  postLoop("tick", 4);
  input.at(2 * kTick, noting("input")).at(2 * kTick + 1, noting("late input"));

  EXPECT_EQ(run(2 * kTick), End::Until);

  EXPECT_THAT(diary, ElementsAre("tick at 0", "tick at 20000", "input at 40000", "tick at 40000"));
  EXPECT_EQ(sut().elapsed(), 2 * kTick);
  EXPECT_EQ(input.applied(), 1u);
}

TEST_F(VirtualClockRun, TaskDueJustBehindTheLimitIsLeftAsleep) {
  post([this] {
    sleep(101);
    note("task");
  });

  EXPECT_EQ(run(100), End::Until);
  EXPECT_THAT(diary, IsEmpty());

  EXPECT_EQ(run(101), End::Idle);
  EXPECT_THAT(diary, ElementsAre("task at 101"));
}

/// Wants a run to go on up to each of these limits, and then raises what is to be raised.
class SteppingInput : public test::ScriptedInput {
public:
  explicit SteppingInput(std::vector<GKMicros> limits) : fLimits(std::move(limits)) {}

  std::optional<GKMicros> goOn() override {
    asked.push_back(GKClock::instance().elapsed());
    if (asked.size() <= fLimits.size()) {
      return fLimits[asked.size() - 1];
    }
    if (isFailing) {
      throw std::runtime_error("no step");
    }
    return std::nullopt;
  }

  /// When it was asked.
  std::vector<GKMicros> asked;
  bool isFailing = false;

private:
  const std::vector<GKMicros> fLimits;
};

TEST_F(VirtualClockRun, TheInputIsAskedForALaterLimitWhenAllUpToThePresentOneIsDone) {
  postLoop("tick", 4);
  SteppingInput stepping({kTick, kTick, 2 * kTick});
  stepping.at(kTick, noting("input"));

  EXPECT_EQ(sut().run(&stepping, 0), End::Until);

  EXPECT_THAT(stepping.asked, ElementsAre(0, kTick, kTick, 2 * kTick));
  EXPECT_THAT(diary, ElementsAre("tick at 0", "input at 20000", "tick at 20000", "tick at 40000"));
}

TEST_F(VirtualClockRun, TheInputIsAskedForALaterLimitAlsoWhereNothingIsLeft) {
  SteppingInput stepping({5});
  EXPECT_EQ(sut().run(&stepping, 0), End::Idle);
  EXPECT_THAT(stepping.asked, ElementsAre(0, 0));
}

TEST_F(VirtualClockRun, WhatTheInputRaisesWhenItIsAskedForALimitEndsTheRun) {
  SteppingInput stepping({});
  stepping.isFailing = true;
  EXPECT_THROW(sut().run(&stepping, 0), std::runtime_error);
}

TEST_F(VirtualClockRun, LimitOfARunDoesNotBindTheMainThreadAfterwards) {
  postLoop("tick", 4);
  EXPECT_EQ(run(kTick), End::Until);
  diary.clear();

  sleep(2 * kTick);
  note("main");

  // The main thread fell asleep at 20000, before the loop did at 40000.
  EXPECT_THAT(diary, ElementsAre("tick at 40000", "main at 60000"));
}

TEST_F(VirtualClockRun, RequestedEndComesWhenTheRunningTaskSleeps) {
  post([this] {
    sut().requestEnd();
    note("task");
    sleep(10);
    note("never in the run");
  });
  post(noting("other"));

  EXPECT_EQ(run(), End::Requested);

  EXPECT_THAT(diary, ElementsAre("task at 0"));
}

TEST_F(VirtualClockRun, RequestedEndComesWhenTheRunningTaskEnds) {
  post([] { sut().requestEnd(); });
  post(noting("other"));

  EXPECT_EQ(run(), End::Requested);

  EXPECT_THAT(diary, IsEmpty());
}

TEST_F(VirtualClockRun, InputMayRequestTheEnd) {
  postLoop("tick", 10);
  input.at(kTick, [] { sut().requestEnd(); }).at(kTick, noting("late input"));

  EXPECT_EQ(run(), End::Requested);

  EXPECT_THAT(diary, ElementsAre("tick at 0"));
}

TEST_F(VirtualClockRun, EndRequestedFromAnotherThreadIsSeen) {
  post([this] {
    std::thread([] { sut().requestEnd(); }).join();
    note("task");
    sleep(10);
    note("after the run");
  });

  EXPECT_EQ(run(), End::Requested);

  EXPECT_THAT(diary, ElementsAre("task at 0"));
}

TEST_F(VirtualClockRun, ExceptionOfAStepEndsTheRunAndLeavesFromIt) {
  postLoop("tick", 3);
  input.at(kTick, [] { throw std::out_of_range("line 7"); }).at(kTick, noting("late input"));

  EXPECT_THROW(run(), std::out_of_range);

  EXPECT_THAT(diary, ElementsAre("tick at 0"));
}

TEST_F(VirtualClockRun, ExceptionOfTheLookAheadEndsTheRunToo) {
  class Broken : public GKInput {
  public:
    std::optional<GKMicros> next() override {
      if (fSteps++ == 0) {
        return 10;
      }
      throw std::out_of_range("line 8");
    }
    void apply() override {}

  private:
    int fSteps = 0;
  };
  Broken broken;
  postLoop("tick", 3);

  EXPECT_THROW(sut().run(&broken, std::nullopt), std::out_of_range);

  EXPECT_EQ(sut().elapsed(), 0);
}

TEST_F(VirtualClockRun, JoinPlaysTasksToTheirEndWithoutTheInput) {
  post([this] {
    sleep(1000);
    note("task");
  });
  input.at(500, noting("input"));
  EXPECT_EQ(run(100), End::Until);

  sut().joinTasks();

  EXPECT_THAT(diary, ElementsAre("task at 1000"));
}

TEST_F(VirtualClockRun, JoinGoesOnAfterARequestedEnd) {
  postLoop("tick", 2);
  sut().requestEnd();
  EXPECT_EQ(run(), End::Requested);

  sut().joinTasks();

  EXPECT_THAT(diary, ElementsAre("tick at 0", "tick at 20000"));
}

TEST_F(VirtualClockRun, WorkIsReleasedBeforeItsTaskCountsAsEnded) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watch = held;
  post([held = std::move(held)] {});

  sut().joinTasks();

  EXPECT_TRUE(watch.expired());
}

TEST_F(VirtualClockRun, MainThreadSleepsAmongTheTasks) {
  postLoop("tick", 3);

  sleep(30000);
  note("main");
  sleep(30000);

  EXPECT_THAT(diary, ElementsAre("tick at 0", "tick at 20000", "main at 30000", "tick at 40000"));
}

TEST_F(VirtualClockRun, ThreadOutsideOfItDoesNotWait) {
  std::thread([] { sleep(1000000); }).join();

  EXPECT_EQ(sut().elapsed(), 0);
}

TEST_F(VirtualClockRun, NextClockCanBeInstalledWhileTheFormerStands) {
  sleep(100);

  GKClock::install(makeVirtualClock(0));
  EXPECT_EQ(sut().elapsed(), 0);
  sleep(100);

  EXPECT_EQ(sut().elapsed(), 100);
}

} // namespace
} // namespace GK
