#include "gk/GKClock.h"
#include "gk/GKMutex.h"
#include "gk/GKPriorityMutex.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::Pair;

namespace GK {
namespace {

/// What threads ask of the operating system: (policy, priority), in order. None is carried out, so
/// that the test tells the same wherever it may run.
struct AskedPriorities {
  std::mutex mutex;
  std::vector<std::pair<int, int>> asked;

  static AskedPriorities& instance() {
    static AskedPriorities list;
    return list;
  }
};

} // namespace
} // namespace GK

/// Stands before the C library's in this program.
extern "C" int pthread_setschedparam(pthread_t, int policy,
                                     const sched_param* parameters) noexcept {
  GK::AskedPriorities& list = GK::AskedPriorities::instance();
  const std::lock_guard lock(list.mutex);
  list.asked.emplace_back(policy, parameters->sched_priority);
  return 0;
}

namespace GK {
namespace {

std::vector<std::pair<int, int>> askedBy(int loopPriority, const std::string& method) {
  AskedPriorities::instance().asked.clear();
  const std::shared_ptr<GKClock> clock = makeRealClock(loopPriority);
  clock->post({"Module", method}, [] {});
  clock->joinTasks();
  return AskedPriorities::instance().asked;
}

TEST(LoopPriority, IsTheLoopsForAsLongAsItRuns) {
  EXPECT_THAT(askedBy(7, GKTask::kLoopMethod),
              ElementsAre(Pair(SCHED_FIFO, 7), Pair(SCHED_OTHER, 0)));
}

TEST(LoopPriority, IsNobodyElses) {
  EXPECT_THAT(askedBy(7, "subscribe"), ElementsAre());
}

TEST(LoopPriority, IsNotAskedForUnlessWanted) {
  EXPECT_THAT(askedBy(0, GKTask::kLoopMethod), ElementsAre());
}

// Who waits for whom

/// Fields of a thread's line in /proc, from its state on.
std::vector<std::string> statusOf(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string line;
  std::getline(file, line);
  std::istringstream words(line.substr(line.rfind(')') + 2));
  std::vector<std::string> fields;
  for (std::string word; words >> word;) {
    fields.push_back(word);
  }
  return fields;
}

/// As the kernel schedules the calling thread right now: below 0 for a real-time priority.
int presentPriority() {
  return std::stoi(statusOf(gettid()).at(15));
}

/// Where it is permitted: a thread of real-time priority that has begun to do something in which it
/// has to wait for the calling thread.
class UrgentThread {
public:
  static bool isPermitted() {
    bool isPermitted = false;
    std::thread([&] {
      const sched_param wanted{kPriority};
      isPermitted = sched_setscheduler(0, SCHED_FIFO, &wanted) == 0;
    }).join();
    return isPermitted;
  }

  explicit UrgentThread(std::function<void()> work)
      : fThread([this, work = std::move(work)] {
          const sched_param wanted{kPriority};
          sched_setscheduler(0, SCHED_FIFO, &wanted);
          fId.store(gettid());
          work();
        }) {}

  /// Returns when the thread waits for something.
  void awaitItsWait() const {
    while (fId.load() == 0 || statusOf(fId.load()).at(0) != "S") {
      std::this_thread::yield();
    }
  }

private:
  static constexpr int kPriority = 1;

  std::atomic<pid_t> fId{0};
  std::jthread fThread;
};

class PriorityInheritance : public testing::Test {
protected:
  void SetUp() override {
    if (!UrgentThread::isPermitted()) {
      GTEST_SKIP() << "real-time priority is not permitted here";
    }
    ASSERT_GE(presentPriority(), 0);
  }
};

template <class M> void expectHolderOfInherits() {
  M sut;
  sut.lock();
  {
    const UrgentThread urgent([&sut] {
      sut.lock();
      sut.unlock();
    });
    urgent.awaitItsWait();
    EXPECT_LT(presentPriority(), 0);
    sut.unlock();
    EXPECT_GE(presentPriority(), 0);
  }
}

TEST_F(PriorityInheritance, IsThatOfAPriorityMutex) {
  expectHolderOfInherits<GKPriorityMutex>();
  expectHolderOfInherits<GKPriorityRecursiveMutex>();
}

TEST_F(PriorityInheritance, IsThatOfThePlatformsLockInRealTime) {
  GKClock::install(nullptr);
  expectHolderOfInherits<GKMutex>();
}

/// Waits, while it is being called, for an urgent thread that wants to raise an event.
class Dawdler : public GKObserver {
public:
  void onNotice(const GKNotice& notice) override {
    if (notice.value == GKValue(1)) {
      fUrgent = std::make_unique<UrgentThread>(work);
      fUrgent->awaitItsWait();
      priority = presentPriority();
    }
  }
  void end() { fUrgent.reset(); }

  std::function<void()> work;
  int priority = 0;

private:
  std::unique_ptr<UrgentThread> fUrgent;
};

/// The priority of a thread that raises "A", while an urgent one raises `event`.
int priorityWhileAnUrgentThreadRaises(const std::string& event) {
  GKClock::install(nullptr);
  const auto broker = boost::make_shared<GKBroker>("real", nullptr);
  const auto memory = boost::make_shared<GKMemory>(broker, std::make_shared<GKMemoryStore>());
  memory->initModule();
  const auto dawdler = boost::make_shared<Dawdler>();
  dawdler->work = [&] { memory->raiseEvent(event, 2, GKCaller::Module); };
  GKObserverList::instance().add(dawdler);
  memory->raiseEvent("A", 1, GKCaller::Module);
  dawdler->end();
  GKObserverList::instance().remove(dawdler);
  broker->shutdown();
  GKClock::install(nullptr);
  return dawdler->priority;
}

TEST_F(PriorityInheritance, IsThatOfWhoRaisesTheEventThatALoopRaises) {
  EXPECT_LT(priorityWhileAnUrgentThreadRaises("A"), 0);
}

TEST_F(PriorityInheritance, IsThatOfWhoKeepsTheObserversBusy) {
  EXPECT_LT(priorityWhileAnUrgentThreadRaises("B"), 0);
}

} // namespace
} // namespace GK
