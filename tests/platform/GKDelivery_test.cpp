#include "gk/GKMemory.h"
#include "gk/GKTurns.h"
#include "support/Listener.h"
#include "support/PlatformFixture.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <latch>
#include <malloc.h>
#include <semaphore>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

// Events on their way, when there are many of them and threads meet.

using testing::ElementsAre;

namespace GK {
namespace {

using test::kModule;
using test::Listener;

/// The memory service on the real clock, in which threads meet.
class SubscriptionInRealTime : public testing::Test {
protected:
  /// No callback runs any more: what they use may go.
  void end() {
    broker->shutdown();
    GKClock::install(nullptr);
  }

  boost::shared_ptr<Listener> add(const std::string& name) {
    const auto module = boost::make_shared<Listener>(broker, name);
    module->initModule();
    return module;
  }
  void raise(const std::string& event, int value) { sut->raiseEvent(event, value, kModule); }

  boost::shared_ptr<GKBroker> broker = [] {
    GKClock::install(nullptr);
    return boost::make_shared<GKBroker>("real", nullptr);
  }();
  boost::shared_ptr<GKMemory> sut = [this] {
    const auto memory = boost::make_shared<GKMemory>(broker, std::make_shared<GKMemoryStore>());
    memory->initModule();
    return memory;
  }();
};

/// Expects that `seen` has all values of each thread, in the order in which it raised them.
void expectOrderOfEachThread(const std::vector<int>& seen, int threads, int raises) {
  for (int thread = 0; thread < threads; ++thread) {
    std::vector<int> own;
    for (const int value : seen) {
      if (value / raises == thread) {
        own.push_back(value % raises);
      }
    }
    EXPECT_EQ(own.size(), static_cast<std::size_t>(raises));
    EXPECT_TRUE(std::is_sorted(own.begin(), own.end()));
  }
}

TEST_F(SubscriptionInRealTime, ManyThreadsRaiseAndEachSubscriberSeesTheirOrder) {
  constexpr int kThreads = 4;
  constexpr int kRaises = 500;
  const boost::shared_ptr<Listener> first = add("First");
  const boost::shared_ptr<Listener> second = add("Second");
  std::latch all(2 * kThreads * kRaises);
  std::vector<int> seenByFirst;
  std::vector<int> seenBySecond;
  first->after = [&](int value) {
    seenByFirst.push_back(value);
    all.count_down();
  };
  second->after = [&](int value) {
    seenBySecond.push_back(value);
    all.count_down();
  };
  sut->subscribeToEvent("A", "First", "onEvent");
  sut->subscribeToEvent("A", "Second", "onEvent");

  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] {
        for (int i = 0; i < kRaises; ++i) {
          raise("A", thread * kRaises + i);
        }
      });
    }
  }
  all.wait();
  end();

  // One event's raises have one order, the same for all, and each thread's own order within it.
  EXPECT_EQ(seenByFirst, seenBySecond);
  expectOrderOfEachThread(seenByFirst, kThreads, kRaises);
}

TEST_F(SubscriptionInRealTime, EachThreadRaisesAnEventOfItsOwnAndTheSubscriberSeesTheirOrder) {
  constexpr int kThreads = 4;
  constexpr int kRaises = 500;
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::latch all(kThreads * kRaises);
  std::vector<int> seen;
  listener->after = [&](int value) {
    seen.push_back(value);
    all.count_down();
  };
  for (int thread = 0; thread < kThreads; ++thread) {
    sut->subscribeToEvent("Event" + std::to_string(thread), "Listener", "onEvent");
  }

  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] {
        for (int i = 0; i < kRaises; ++i) {
          raise("Event" + std::to_string(thread), thread * kRaises + i);
        }
      });
    }
  }
  all.wait();
  end();

  expectOrderOfEachThread(seen, kThreads, kRaises);
}

TEST_F(SubscriptionInRealTime, AnyNumberOfEventsMayBeOnTheirWay) {
  constexpr int kRaises = 10000;
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::latch mayGoOn(1);
  std::latch all(kRaises);
  std::vector<int> seen;
  listener->after = [&](int value) {
    mayGoOn.wait();
    seen.push_back(value);
    all.count_down();
  };
  sut->subscribeToEvent("A", "Listener", "onEvent");

  std::vector<int> raised;
  for (int value = 0; value < kRaises; ++value) {
    raise("A", value);
    raised.push_back(value);
  }
  mayGoOn.count_down();
  all.wait();
  end();

  EXPECT_EQ(seen, raised);
}

/// Bytes that are allocated.
std::size_t heapInUse() {
  const auto heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

TEST_F(SubscriptionInRealTime, TextsThatHaveBeenDeliveredTakeNoRoom) {
  constexpr int kRaises = 1000;
  constexpr std::size_t kLength = 50'000;
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::latch mayGoOn(1);
  std::latch all(kRaises);
  listener->after = [&](int) {
    mayGoOn.wait();
    all.count_down();
  };
  sut->subscribeToEvent("A", "Listener", "onOther");
  const std::size_t before = heapInUse();

  for (int i = 0; i < kRaises; ++i) {
    sut->raiseEvent("A", std::string(kLength, 'x'), kModule);
  }
  mayGoOn.count_down();
  all.wait();
  end();

  EXPECT_LT(heapInUse(), before + kRaises * kLength / 10);
}

TEST_F(SubscriptionInRealTime, AQueueThatWasLongGivesItsRoomBackWithTheNextEvents) {
  constexpr int kRaises = 100'000;
  constexpr int kBursts = 500;
  constexpr int kBurst = 100;
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::latch mayGoOn(1);
  int seen = 0;
  std::binary_semaphore isSeen(0);
  listener->after = [&](int value) {
    mayGoOn.wait();
    if (++seen; value != 0) {
      isSeen.release();
    }
  };
  sut->subscribeToEvent("A", "Listener", "onEvent");
  const std::size_t before = heapInUse();
  const auto burst = [&](int raises) {
    for (int i = 1; i < raises; ++i) {
      raise("A", 0);
    }
    raise("A", 1);
  };

  burst(kRaises);
  mayGoOn.count_down();
  isSeen.acquire();
  for (int i = 0; i < kBursts; ++i) {
    burst(kBurst);
    isSeen.acquire();
  }
  end();
  listener->delivered = std::vector<std::string>();

  EXPECT_EQ(seen, kRaises + kBursts * kBurst);
  EXPECT_LT(heapInUse(), before + kRaises * sizeof(GKValue) / 4);
}

TEST_F(SubscriptionInRealTime, NothingIsHandedOverOnceUnsubscribingHasReturned) {
  constexpr int kRounds = 200;
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::atomic<bool> isSubscribed = false;
  std::atomic<int> strays = 0;
  listener->after = [&](int) { strays += isSubscribed ? 0 : 1; };
  std::atomic<bool> isDone = false;
  std::jthread raiser([&] {
    while (!isDone) {
      raise("A", 1);
    }
  });

  for (int round = 0; round < kRounds; ++round) {
    isSubscribed = true;
    sut->subscribeToEvent("A", "Listener", "onEvent");
    raise("A", 2);
    sut->unsubscribeToEvent("A", "Listener");
    isSubscribed = false;
  }
  isDone = true;
  raiser.join();
  end();

  EXPECT_EQ(strays, 0);
}

TEST_F(SubscriptionInRealTime, UnsubscribingReturnsHoweverManyOtherEventsAreOnTheirWay) {
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::latch areUnderWay(1);
  std::latch goOn(1);
  std::atomic<bool> hasReturned = false;
  listener->after = [&](int value) {
    if (value == 1) {
      areUnderWay.count_down();
    }
    if (hasReturned) {
      goOn.count_down();
    } else {
      raise("B", value + 1);
    }
  };
  sut->subscribeToEvent("A", "Listener", "onEvent");
  sut->subscribeToEvent("B", "Listener", "onEvent");
  raise("B", 1);
  areUnderWay.wait();

  sut->unsubscribeToEvent("A", "Listener");
  hasReturned = true;
  goOn.wait();
  end();

  EXPECT_GT(listener->delivered.size(), 1U);
}

/// Returns when the thread waits for something.
void awaitItsWait(pid_t thread) {
  std::string line;
  do {
    std::this_thread::yield();
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::getline(file, line);
  } while (line.find(") S ") == std::string::npos);
}

TEST_F(SubscriptionInRealTime, WhoeverHandsOverMaySleepBetweenEvents) {
  constexpr int kRaises = 20;
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::atomic<pid_t> thread = 0;
  std::vector<int> seen;
  std::binary_semaphore isSeen(0);
  listener->after = [&](int value) {
    seen.push_back(value);
    thread = gettid();
    isSeen.release();
  };
  sut->subscribeToEvent("A", "Listener", "onEvent");

  std::vector<int> raised;
  for (int value = 0; value < kRaises; ++value) {
    raise("A", value);
    raised.push_back(value);
    isSeen.acquire();
    awaitItsWait(thread);
  }
  end();

  EXPECT_EQ(seen, raised);
}

/// Counts turns that had to be taken from somebody, and lets a raise be waited for.
class Watcher : public GKTurnObserver, public GKObserver {
public:
  void onTurn(const GKTurn&) override {}
  void onTask(std::uint64_t, const GKTask&) override {}
  void onOverlap() override { ++overlaps; }
  void onNotice(const GKNotice& notice) override {
    if (notice.name == "A" && notice.value == GKValue(1)) {
      isRaising.count_down();
    }
  }

  std::latch isRaising{1};
  std::atomic<int> overlaps{0};
};

TEST(SubscriptionWithTurns, ARaiseWithoutATurnAndOneWithItDoNotWaitForEachOther) {
  const auto watcher = std::make_shared<Watcher>();
  const boost::shared_ptr<GKObserver> observer(watcher.get(), [watcher](GKObserver*) {});
  const std::shared_ptr<GKClock> clock = makeTurnClock(watcher, std::chrono::seconds(3));
  GKClock::install(clock);
  GKObserverList::instance().add(observer);
  const auto broker = boost::make_shared<GKBroker>("turns", nullptr);
  const auto sut = boost::make_shared<GKMemory>(broker, std::make_shared<GKMemoryStore>());
  sut->initModule();
  const auto listener = boost::make_shared<Listener>(broker, "Listener");
  listener->initModule();
  sut->subscribeToEvent("A", "Listener", "onEvent");

  std::latch mayRaise{1};
  std::latch bothDelivered{2};
  listener->after = [&bothDelivered](int) { bothDelivered.count_down(); };
  std::thread outside([&] {
    mayRaise.wait();
    sut->raiseEvent("A", 1, kModule);
    bothDelivered.wait();
    clock->requestEnd();
  });
  clock->post({"module", "method"}, [&] {
    mayRaise.count_down();
    // The thread is in its raise now, and needs the turn to start the delivery.
    watcher->isRaising.wait();
    sut->raiseEvent("A", 2, kModule);
  });
  clock->run(nullptr, std::nullopt);
  outside.join();
  broker->shutdown();
  GKObserverList::instance().remove(observer);
  GKClock::install(nullptr);

  EXPECT_EQ(watcher->overlaps, 0);
  EXPECT_THAT(listener->delivered,
              ElementsAre(testing::StartsWith("A 1 at"), testing::StartsWith("A 2 at")));
}
} // namespace
} // namespace GK
