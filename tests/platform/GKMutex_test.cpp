#include "gk/GKClock.h"
#include "gk/GKMutex.h"
#include "support/PlatformFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <latch>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;

namespace GK {
namespace {

/// True when another thread could take the lock right now. Gives it back.
bool isFree(GKMutex& mutex) {
  return std::async(std::launch::async,
                    [&mutex] {
                      const bool taken = mutex.tryLock();
                      if (taken) {
                        mutex.unlock();
                      }
                      return taken;
                    })
      .get();
}

TEST(GKMutex, IsFreeUntilTaken) {
  GKMutex sut;
  EXPECT_TRUE(isFree(sut));

  sut.lock();
  EXPECT_FALSE(isFree(sut));

  sut.unlock();
  EXPECT_TRUE(isFree(sut));
}

TEST(GKMutex, HolderMayTakeItAgain) {
  GKMutex sut;

  sut.lock();
  sut.lock();
  EXPECT_TRUE(sut.tryLock());
  sut.unlock();
  sut.unlock();
  EXPECT_FALSE(isFree(sut));
  sut.unlock();

  EXPECT_TRUE(isFree(sut));
}

TEST(GKCriticalSection, HoldsTheMutexForItsScope) {
  const boost::shared_ptr<GKMutex> mutex = GKMutex::createGKMutex();
  {
    const GKCriticalSection sut(mutex);
    EXPECT_FALSE(isFree(*mutex));
    const GKCriticalSection again(mutex);
  }
  EXPECT_TRUE(isFree(*mutex));
}

TEST(GKCriticalSection, FreesTheMutexWhenAnExceptionPasses) {
  const boost::shared_ptr<GKMutex> mutex = GKMutex::createGKMutex();

  EXPECT_THROW(
      {
        const GKCriticalSection sut(mutex);
        throw 1;
      },
      int);

  EXPECT_TRUE(isFree(*mutex));
}

TEST(GKMutexInRealTime, KeepsThreadsApart) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  GKClock::install(nullptr);
  const boost::shared_ptr<GKMutex> sut = GKMutex::createGKMutex();
  std::latch start(kThreads);
  int counter = 0; // Guarded by sut alone.

  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (int round = 0; round < kRounds; ++round) {
        const GKCriticalSection section(sut);
        ++counter;
      }
    });
  }
  threads.clear();

  EXPECT_EQ(counter, kThreads * kRounds);
}

/// Tasks on the virtual clock that fight for one lock.
class MutexInVirtualTime : public testing::Test {
protected:
  MutexInVirtualTime() { GKClock::install(makeVirtualClock(0)); }
  ~MutexInVirtualTime() override {
    GKClock::instance().joinTasks();
    GKClock::install(nullptr);
  }

  void post(std::function<void()> work) { GKClock::instance().post({}, std::move(work)); }
  void sleep(GKMicros duration) { GKClock::instance().sleep(duration); }
  void run() { GKClock::instance().run(nullptr, std::nullopt); }
  /// Posts a task that notes name and time once it has the lock.
  void postTaker(const std::string& name, GKMicros when) {
    post([this, name, when] {
      sleep(when);
      const GKCriticalSection section(sut);
      note(name);
    });
  }
  void note(const std::string& what) {
    diary.push_back(what + " at " + std::to_string(GKClock::instance().elapsed()));
  }

  boost::shared_ptr<GKMutex> sut = GKMutex::createGKMutex();
  std::vector<std::string> diary;
};

TEST_F(MutexInVirtualTime, WaitingCountsAsAsleep) {
  post([this] {
    const GKCriticalSection section(sut);
    sleep(100);
    note("first");
  });
  postTaker("second", 10);

  run();

  EXPECT_THAT(diary, ElementsAre("first at 100", "second at 100"));
}

TEST_F(MutexInVirtualTime, WaitersGetTheLockInTheOrderInWhichTheyCame) {
  post([this] {
    const GKCriticalSection section(sut);
    sleep(100);
  });
  postTaker("late", 30);
  postTaker("early", 10);
  postTaker("middle", 20);

  run();

  EXPECT_THAT(diary, ElementsAre("early at 100", "middle at 100", "late at 100"));
}

TEST_F(MutexInVirtualTime, WaiterKeepsThePlaceThatItHad) {
  post([this] {
    {
      const GKCriticalSection section(sut);
      sleep(100);
    }
    note("holder goes on");
    sleep(0);
    note("holder comes back");
  });
  // Fell asleep before the waiter came, and is due when the lock becomes free.
  post([this] {
    sleep(100);
    note("sleeper");
  });
  postTaker("waiter", 10);

  run();

  // Due at the same time, in the order in which they lay down: the holder and the sleeper at 0, the
  // waiter at 10, and the holder again at 100.
  EXPECT_THAT(diary, ElementsAre("holder goes on at 100", "sleeper at 100", "waiter at 100",
                                 "holder comes back at 100"));
}

TEST_F(MutexInVirtualTime, SleepersAndWaitersThatAreDueTogetherGoInTheOrderInWhichTheyLayDown) {
  post([this] {
    const GKCriticalSection section(sut);
    sleep(100);
  });
  postTaker("early waiter", 10);
  post([this] {
    sleep(20);
    sleep(80);
    note("sleeper");
  });
  postTaker("late waiter", 30);

  run();

  EXPECT_THAT(diary, ElementsAre("early waiter at 100", "sleeper at 100", "late waiter at 100"));
}

TEST_F(MutexInVirtualTime, WaiterThatLosesTheLockAgainKeepsItsPlace) {
  post([this] {
    sut->lock();
    sleep(100);
    sut->unlock();
    // Takes the lock back before the waiter's turn.
    sut->lock();
    sleep(100);
    note("holder");
    sut->unlock();
  });
  postTaker("early", 10);
  postTaker("late", 150);

  run();

  EXPECT_THAT(diary, ElementsAre("holder at 200", "early at 200", "late at 200"));
}

TEST_F(MutexInVirtualTime, InnerUnlockDoesNotLetAWaiterIn) {
  post([this] {
    const GKCriticalSection outer(sut);
    sleep(50);
    { const GKCriticalSection inner(sut); }
    sleep(50);
    note("holder");
  });
  postTaker("waiter", 10);

  run();

  EXPECT_THAT(diary, ElementsAre("holder at 100", "waiter at 100"));
}

TEST_F(MutexInVirtualTime, InputGoesOnWhileTasksWait) {
  test::ScriptedInput input;
  input.at(50, [this] { note("input"); }).at(100, [this] { note("input"); });
  post([this] {
    const GKCriticalSection section(sut);
    sleep(100);
    note("holder");
  });
  postTaker("waiter", 10);

  GKClock::instance().run(&input, std::nullopt);

  EXPECT_THAT(diary, ElementsAre("input at 50", "input at 100", "holder at 100", "waiter at 100"));
}

TEST_F(MutexInVirtualTime, MainThreadMayWaitToo) {
  post([this] {
    const GKCriticalSection section(sut);
    sleep(100);
    note("task");
  });
  sleep(10);

  {
    const GKCriticalSection section(sut);
    note("main");
  }

  EXPECT_THAT(diary, ElementsAre("task at 100", "main at 100"));
}

using GKMutexDeathTest = MutexInVirtualTime;

/// Takes one lock after the other and keeps both.
void takeBoth(GKMutex& first, GKMutex& second) {
  first.lock();
  GKClock::instance().sleep(10);
  second.lock();
}

TEST_F(GKMutexDeathTest, TasksThatWaitForEachOtherEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  GKMutex other;
  EXPECT_DEATH(
      {
        post([&] { takeBoth(*sut, other); });
        post([&] { takeBoth(other, *sut); });
        GKClock::instance().joinTasks();
      },
      "locks that nobody will ever free");
}

TEST_F(GKMutexDeathTest, MainThreadAndTaskThatWaitForEachOtherEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  GKMutex other;
  EXPECT_DEATH(
      {
        post([&] { takeBoth(*sut, other); });
        takeBoth(other, *sut);
      },
      "locks that nobody will ever free");
}

} // namespace
} // namespace GK
