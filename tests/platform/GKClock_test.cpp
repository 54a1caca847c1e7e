#include "gk/GKClock.h"
#include "gk/GKMutex.h"
#include "support/VirtualClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace GK {
namespace {

using test::kTick;
using test::ScriptedInput;
using test::VirtualClock;
using End = GKClock::End;

TEST_F(VirtualClock, StartsAtZeroAndStandsStillWhileSomethingRuns) {
  EXPECT_EQ(sut().elapsed(), 0);
  EXPECT_TRUE(sut().isVirtual());
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(sut().elapsed(), 0);
  }
}

TEST_F(VirtualClock, SleepMovesItByExactlyTheDuration) {
  sleep(1);
  EXPECT_EQ(sut().elapsed(), 1);
  sleep(86400000000);
  EXPECT_EQ(sut().elapsed(), 86400000001);
}

TEST_F(VirtualClock, WallTimeGoesOnFromTheEpoch) {
  GKClock::install(makeVirtualClock(1767225600));
  EXPECT_EQ(sut().wallTime().seconds, 1767225600);
  EXPECT_EQ(sut().wallTime().microseconds, 0);

  sleep(2999999);

  EXPECT_EQ(sut().wallTime().seconds, 1767225602);
  EXPECT_EQ(sut().wallTime().microseconds, 999999);
}

TEST_F(VirtualClock, EpochMayBeAnyWholeNumber) {
  constexpr std::int64_t kLast = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kFirst = std::numeric_limits<std::int64_t>::min();

  GKClock::install(makeVirtualClock(kFirst));
  EXPECT_EQ(sut().wallTime().seconds, kFirst);
  sleep(1500000);
  EXPECT_EQ(sut().wallTime().seconds, kFirst + 1);
  EXPECT_EQ(sut().wallTime().microseconds, 500000);

  GKClock::install(makeVirtualClock(kLast));
  EXPECT_EQ(sut().wallTime().seconds, kLast);
  sleep(1000000);
  EXPECT_EQ(sut().wallTime().seconds, kFirst) << "wraps";
}

TEST_F(VirtualClock, EarliestSleeperWakesFirst) {
  post([this] {
    sleep(30);
    note("a");
  });
  post([this] {
    sleep(10);
    note("b");
  });
  post([this] {
    sleep(20);
    note("c");
  });

  EXPECT_EQ(run(), End::Idle);

  EXPECT_THAT(diary, ElementsAre("b at 10", "c at 20", "a at 30"));
}

TEST_F(VirtualClock, AtEqualTimesWhoFellAsleepFirstGoesFirst) {
  post([this] {
    sleep(10);
    sleep(20);
    note("slept twice");
  });
  post([this] {
    sleep(30);
    note("slept once");
  });

  run();

  // The single sleep began at 0, the second of the two at 10.
  EXPECT_THAT(diary, ElementsAre("slept once at 30", "slept twice at 30"));
}

TEST_F(VirtualClock, AtEqualTimesTheInputGoesFirst) {
  post([this] {
    sleep(10);
    note("task");
  });
  input.at(10, noting("input")).at(10, noting("more input"));

  run();

  EXPECT_THAT(diary, ElementsAre("input at 10", "more input at 10", "task at 10"));
}

TEST_F(VirtualClock, InputOfTimeZeroComesBeforeTasksPostedEarlier) {
  post(noting("task"));
  input.at(0, noting("input"));

  run();

  EXPECT_THAT(diary, ElementsAre("input at 0", "task at 0"));
}

TEST_F(VirtualClock, InputThatGoesBackIsAppliedNow) {
  input.at(10, noting("first")).at(5, noting("second"));

  run();

  EXPECT_THAT(diary, ElementsAre("first at 10", "second at 10"));
}

TEST_F(VirtualClock, SleepOfZeroGivesWayToAllThatIsDue) {
  post([this] {
    note("a");
    sleep(0);
    note("a again");
  });
  post(noting("b"));

  run();

  EXPECT_THAT(diary, ElementsAre("a at 0", "b at 0", "a again at 0"));
}

TEST_F(VirtualClock, PostedTaskCountsAsAsleepSinceItWasPosted) {
  post([this] {
    sleep(10);
    post(noting("posted"));
    note("poster");
    sleep(0);
    note("poster again");
  });
  post([this] {
    sleep(10);
    note("sleeper");
  });

  run();

  EXPECT_THAT(diary,
              ElementsAre("poster at 10", "sleeper at 10", "posted at 10", "poster again at 10"));
}

TEST_F(VirtualClock, PostingDoesNotRunTheTaskYet) {
  post(noting("task"));

  EXPECT_THAT(diary, IsEmpty());
}

TEST_F(VirtualClock, TasksKnowWhoTheyAre) {
  std::vector<std::string> names;
  const auto work = [&] {
    sleep(10);
    names.push_back(GKTask::current()->module + "." + GKTask::current()->method);
  };
  sut().post({"GKSonar", "poll"}, work);
  sut().post({"GKSensors", "run"}, work);

  run();

  EXPECT_THAT(names, ElementsAre("GKSonar.poll", "GKSensors.run"));
  EXPECT_EQ(GKTask::current(), nullptr);
}

TEST_F(VirtualClock, OnlyTheMethodRunIsALoop) {
  EXPECT_TRUE((GKTask{"GKSensors", "run"}).isLoop());
  EXPECT_FALSE((GKTask{"run", "walk"}).isLoop());
}

TEST_F(VirtualClock, StartedCallRunsAheadOfEverythingThatIsDue) {
  post(noting("task"));
  input.at(0, [this] {
    note("input");
    start(noting("call"));
    note("input goes on");
  });
  input.at(0, noting("next input"));

  run();

  EXPECT_THAT(diary, ElementsAre("input at 0", "call at 0", "input goes on at 0", "next input at 0",
                                 "task at 0"));
}

TEST_F(VirtualClock, InputGoesOnWhenTheStartedCallSleeps) {
  post(noting("task"));
  input.at(0, [this] {
    start([this] {
      note("call");
      sleep(30);
      note("call returns");
    });
    note("input goes on");
  });
  input.at(30, noting("later input"));

  run();

  EXPECT_THAT(diary, ElementsAre("call at 0", "input goes on at 0", "task at 0",
                                 "later input at 30", "call returns at 30"));
}

TEST_F(VirtualClock, InputGoesOnWhenTheStartedCallWaitsForALock) {
  const boost::shared_ptr<GKMutex> mutex = GKMutex::createGKMutex();
  post([mutex] {
    const GKCriticalSection section(mutex);
    sleep(100);
  });
  input.at(50, [this, mutex] {
    start([this, mutex] {
      const GKCriticalSection section(mutex);
      note("call");
    });
    note("input goes on");
  });

  run();

  EXPECT_THAT(diary, ElementsAre("input goes on at 50", "call at 100"));
}

TEST_F(VirtualClock, StartedCallSleepingForNothingComesAfterThoseAsleep) {
  post(noting("task"));
  input.at(0, [this] {
    start([this] {
      note("call");
      sleep(0);
      note("call again");
    });
  });

  run();

  EXPECT_THAT(diary, ElementsAre("call at 0", "task at 0", "call again at 0"));
}

TEST_F(VirtualClock, SeveralCallsCanBeStartedInOneStep) {
  input.at(0, [this] {
    for (const char* name : {"a", "b", "c"}) {
      start([this, name] {
        note(name);
        sleep(10);
        note(name);
      });
    }
  });

  run();

  EXPECT_THAT(diary, ElementsAre("a at 0", "b at 0", "c at 0", "a at 10", "b at 10", "c at 10"));
}

TEST_F(VirtualClock, CallMayBeStartedByInputThatIsAppliedWhileATaskSleeps) {
  postLoop("tick", 3);
  input.at(kTick, [this] {
    start([this] {
      note("call");
      sleep(kTick);
      note("call returns");
    });
    note("input");
  });

  run();

  EXPECT_THAT(diary, ElementsAre("tick at 0", "call at 20000", "input at 20000", "tick at 20000",
                                 "call returns at 40000", "tick at 40000"));
}

TEST_F(VirtualClock, CallMayBeStartedByInputThatIsAppliedWhenATaskEnds) {
  post(noting("task"));
  input.at(10, [this] {
    start(noting("call"));
    note("input");
  });

  run();

  EXPECT_THAT(diary, ElementsAre("task at 0", "call at 10", "input at 10"));
}

TEST_F(VirtualClock, TickNumberNComesAtNTimesThePeriodAfterTheInput) {
  postLoop("tick", 3);
  for (int n = 0; n < 3; ++n) {
    input.at(n * kTick, noting("input"));
  }
  input.at(2 * kTick + 1, noting("input"));

  run();

  EXPECT_THAT(diary, ElementsAre("input at 0", "tick at 0", "input at 20000", "tick at 20000",
                                 "input at 40000", "tick at 40000", "input at 40001"));
}

TEST_F(VirtualClock, LoneLoopMovesTheTimeOnItsOwnThread) {
  std::vector<std::thread::id> applied;
  std::thread::id loop;
  post([&] {
    loop = std::this_thread::get_id();
    for (int tick = 0; tick < 100; ++tick) {
      sleep(kTick);
      EXPECT_EQ(std::this_thread::get_id(), loop);
    }
  });
  for (int n = 1; n <= 100; ++n) {
    input.at(n * kTick, [&] { applied.push_back(std::this_thread::get_id()); });
  }

  run();

  EXPECT_THAT(applied, testing::AllOf(testing::SizeIs(100), testing::Each(loop)));
  EXPECT_NE(loop, std::this_thread::get_id());
}

TEST_F(VirtualClock, OneTaskRunsAtATime) {
  int running = 0;
  int most = 0;
  for (int task = 0; task < 50; ++task) {
    post([&, task] {
      for (int round = 0; round < 20; ++round) {
        most = std::max(most, ++running);
        --running;
        sleep((task * 7 + round) % 5);
      }
    });
  }

  run();

  EXPECT_EQ(most, 1);
}

TEST_F(VirtualClock, SameInputGivesTheSameRun) {
  const auto play = [this] {
    GKClock::install(makeVirtualClock(0));
    diary.clear();
    ScriptedInput steps;
    for (int n = 0; n < 40; ++n) {
      steps.at(n * 13, [this, n] {
        start([this, n] {
          note("call " + std::to_string(n));
          sleep(n % 7 * 10);
          note("return " + std::to_string(n));
          post(noting("follow-up"));
        });
      });
    }
    EXPECT_EQ(sut().run(&steps, std::nullopt), End::Idle);
    return diary;
  };

  const std::vector<std::string> first = play();

  EXPECT_THAT(first, testing::SizeIs(120));
  EXPECT_EQ(play(), first);
}

} // namespace
} // namespace GK
