#include "gk/GKMutex.h"
#include "gk/GKTurns.h"
#include "support/PlatformFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace GK {
namespace {

using test::ScriptedInput;
using End = GKClock::End;
using testing::ElementsAre;
using testing::ElementsAreArray;

/// Everybody waits for everybody, however slow the machine is.
constexpr std::chrono::milliseconds kForEver = std::chrono::hours(1);

/// Keeps the turns of a run, and the tasks that started in each.
class TurnKeeper : public GKTurnObserver {
public:
  struct Kept {
    GKTurn turn;
    std::vector<std::pair<std::uint64_t, GKTask>> tasks;
  };

  void onTurn(const GKTurn& turn) override {
    const std::lock_guard lock(fMutex);
    turns.push_back({turn, {}});
  }
  void onTask(std::uint64_t number, const GKTask& task) override {
    const std::lock_guard lock(fMutex);
    turns.back().tasks.emplace_back(number, task);
  }
  void onOverlap() override { ++overlaps; }

  std::vector<Kept> turns;
  std::atomic<int> overlaps{0};

private:
  std::mutex fMutex;
};

/// The turns that a keeper kept.
class KeptSchedule : public GKSchedule {
public:
  explicit KeptSchedule(std::vector<TurnKeeper::Kept> turns) : fTurns(std::move(turns)) {}

  std::optional<GKTurn> next() override {
    return fNext < fTurns.size() ? std::optional(fTurns[fNext].turn) : std::nullopt;
  }
  void begin() override {
    const auto& tasks = fTurns[fNext++].tasks;
    fExpected.insert(fExpected.end(), tasks.begin(), tasks.end());
  }
  std::optional<std::uint64_t> started(const GKTask& task) override {
    const auto found = std::find_if(fExpected.begin(), fExpected.end(), [&](const auto& one) {
      return one.second.method == task.method;
    });
    if (found == fExpected.end()) {
      return std::nullopt;
    }
    const std::uint64_t number = found->first;
    fExpected.erase(found);
    return number;
  }

private:
  std::vector<TurnKeeper::Kept> fTurns;
  std::size_t fNext = 0;
  std::vector<std::pair<std::uint64_t, GKTask>> fExpected;
};

/// A small world: two loops, one of them holding a lock while it sleeps, and a caller who wants the
/// same lock, started by the input. Writes down who did what when.
class World {
public:
  explicit World(GKClock& clock) : fClock(clock) {
    post("first", [this] { loop("first", 5); });
    post("second", [this] { loop("second", 5); });
  }

  /// `times`: when the callers come.
  ScriptedInput input(const std::vector<GKMicros>& times) {
    ScriptedInput script;
    for (std::size_t i = 0; i < times.size(); ++i) {
      script.at(times[i], [this, i] { call("caller" + std::to_string(i)); });
    }
    return script;
  }

  void call(const std::string& name) {
    fClock.start({"world", name}, [this, name] {
      fLock.lock();
      note(name);
      fLock.unlock();
      fClock.sleep(500);
      note(name);
    });
  }

  std::vector<std::string> diary() const { return fDiary; }

private:
  void post(const std::string& name, std::function<void()> work) {
    fClock.post({"world", name}, std::move(work));
  }
  void loop(const std::string& name, int rounds) {
    for (int round = 0; round < rounds; ++round) {
      fLock.lock();
      note(name);
      fClock.sleep(1000);
      fLock.unlock();
      fClock.sleep(1);
    }
  }
  void note(const std::string& what) {
    const GKWallTime wall = fClock.wallTime();
    fDiary.push_back(what + " " + std::to_string(fClock.elapsed()) + " " +
                     std::to_string(wall.seconds) + "." + std::to_string(wall.microseconds));
  }

  GKClock& fClock;
  GKMutex fLock;
  std::vector<std::string> fDiary;
};

/// Runs the world on `clock` and repeats it; the diaries must be the same.
void expectTheSameAgain(std::shared_ptr<GKClock> clock, const std::shared_ptr<TurnKeeper>& keeper) {
  const std::vector<GKMicros> times = {300, 2500, 2600};
  std::vector<std::string> diary;
  {
    GKClock::install(clock);
    World world(*clock);
    ScriptedInput input = world.input(times);
    input.at(4000, [&clock] { clock->requestEnd(); });
    EXPECT_EQ(clock->run(&input, std::nullopt), End::Requested);
    clock->joinTasks();
    diary = world.diary();
  }
  ASSERT_GE(diary.size(), 10U);
  EXPECT_EQ(keeper->overlaps, 0);

  const auto again = makeReplayClock(std::make_shared<KeptSchedule>(keeper->turns));
  GKClock::install(again);
  World world(*again);
  ScriptedInput input = world.input(times);
  input.at(4000, [] {});
  EXPECT_EQ(again->run(&input, std::nullopt), End::Requested);
  again->joinTasks();
  EXPECT_THAT(world.diary(), ElementsAreArray(diary));
  GKClock::install(nullptr);
}

TEST(TurnClock, ARunInRealTimeIsRepeatedWithItsTimes) {
  const auto keeper = std::make_shared<TurnKeeper>();
  expectTheSameAgain(makeTurnClock(keeper, kForEver), keeper);
}

TEST(VirtualClockTurns, ARunInVirtualTimeIsRepeatedWithItsTimes) {
  const auto keeper = std::make_shared<TurnKeeper>();
  expectTheSameAgain(makeVirtualClock(1'767'225'600, keeper), keeper);
}

TEST(TurnClock, TimeStandsStillWithinATurn) {
  const std::shared_ptr<GKClock> sut = makeTurnClock(std::make_shared<TurnKeeper>(), kForEver);
  GKClock::install(sut);
  std::vector<GKMicros> times;
  sut->post({}, [&] {
    for (int i = 0; i < 3; ++i) {
      times.push_back(sut->elapsed());
      // Only work makes the computer's clock go on here; what it does does not matter.
      for (const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(50);
           std::chrono::steady_clock::now() < end;) {
      }
    }
    sut->requestEnd();
  });
  EXPECT_EQ(sut->elapsed(), 0); // loading takes no time
  sut->run(nullptr, std::nullopt);
  sut->joinTasks();
  EXPECT_THAT(times, ElementsAre(times[0], times[0], times[0]));
  EXPECT_GT(times[0], 0);
  GKClock::install(nullptr);
}

TEST(TurnClock, WhoKeepsTheTurnForTooLongIsOvertaken) {
  const auto keeper = std::make_shared<TurnKeeper>();
  const std::shared_ptr<GKClock> sut = makeTurnClock(keeper, std::chrono::milliseconds(1));
  GKClock::install(sut);
  std::atomic<bool> isOvertaken{false};
  const auto overtake = [&] {
    isOvertaken = true;
    isOvertaken.notify_all();
    sut->requestEnd();
  };
  sut->post({}, [&] {
    sut->post({}, overtake);
    isOvertaken.wait(false); // keeps its turn until the other one has run
  });
  EXPECT_EQ(sut->run(nullptr, std::nullopt), End::Requested);
  sut->joinTasks();
  EXPECT_TRUE(isOvertaken);
  EXPECT_GT(keeper->overlaps, 0);
  GKClock::install(nullptr);
}

TEST(TurnClock, ThreadsThatAreNoTasksTakeTheirTurnForWhatTheyDo) {
  const auto keeper = std::make_shared<TurnKeeper>();
  const std::shared_ptr<GKClock> sut = makeTurnClock(keeper, kForEver);
  GKClock::install(sut);
  std::thread client([&] {
    const GKOutsideTurn turn;
    sut->post({"module", "called"}, [&] { sut->requestEnd(); });
  });
  sut->run(nullptr, std::nullopt);
  client.join();
  sut->joinTasks();
  const auto outside =
      std::find_if(keeper->turns.begin(), keeper->turns.end(),
                   [](const auto& one) { return one.turn.task == GKTurn::kOutside; });
  ASSERT_NE(outside, keeper->turns.end());
  ASSERT_EQ(outside->tasks.size(), 1U);
  EXPECT_EQ(outside->tasks[0].second.method, "called");
  GKClock::install(nullptr);
}

/// Turns that a test makes up.
std::vector<TurnKeeper::Kept> turnsOf(const std::vector<GKTurn>& turns) {
  std::vector<TurnKeeper::Kept> kept;
  for (const GKTurn& turn : turns) {
    kept.push_back({turn, {}});
  }
  return kept;
}

TEST(ReplayClock, TasksThatTheFormerRunDidNotHaveRunWhenTheyAreDue) {
  auto turns = turnsOf({{GKTurn::kMain, 0, 0}, {2, 100, 0}, {2, 300, 0}, {GKTurn::kMain, 400, 0}});
  turns[0].tasks.emplace_back(2, GKTask{"m", "known"});
  const auto sut = makeReplayClock(std::make_shared<KeptSchedule>(turns));
  GKClock::install(sut);
  std::vector<std::string> diary;
  const auto loop = [&](const std::string& name, GKMicros period) {
    return [&diary, &sut, name, period] {
      for (int i = 0; i < 3; ++i) {
        diary.push_back(name + " " + std::to_string(sut->elapsed()));
        sut->sleep(period);
      }
    };
  };
  sut->post({"m", "known"}, loop("known", 1));
  sut->post({"m", "new"}, loop("new", 150));
  EXPECT_EQ(sut->run(nullptr, std::nullopt), End::Requested);
  EXPECT_THAT(diary, ElementsAre("new 0", "known 100", "new 150", "new 300", "known 300"));
  sut->joinTasks();
  GKClock::install(nullptr);
}

TEST(ReplayClock, TurnsOfTasksThatAreGoneAreLeftOut) {
  auto turns = turnsOf({{GKTurn::kMain, 0, 0}, {7, 100, 0}, {GKTurn::kMain, 400, 0}});
  turns[0].tasks.emplace_back(7, GKTask{"m", "gone"});
  const auto sut = makeReplayClock(std::make_shared<KeptSchedule>(turns));
  GKClock::install(sut);
  EXPECT_EQ(sut->run(nullptr, std::nullopt), End::Requested);
  EXPECT_EQ(sut->elapsed(), 400);
  GKClock::install(nullptr);
}

TEST(ReplayClock, TheRunEndsWithTheLastTurnOfACutRecording) {
  auto turns = turnsOf({{GKTurn::kMain, 0, 0}, {2, 100, 0}});
  turns[0].tasks.emplace_back(2, GKTask{"m", "loop"});
  const auto sut = makeReplayClock(std::make_shared<KeptSchedule>(turns));
  GKClock::install(sut);
  std::vector<GKMicros> ticks;
  sut->post({"m", "loop"}, [&] {
    while (ticks.size() < 5) {
      ticks.push_back(sut->elapsed());
      sut->sleep(20);
    }
  });
  EXPECT_EQ(sut->run(nullptr, std::nullopt), End::Until);
  EXPECT_THAT(ticks, ElementsAre(100));
  sut->joinTasks();
  GKClock::install(nullptr);
}

TEST(ReplayClock, AnErrorOfTheScheduleEndsTheRun) {
  struct Broken : GKSchedule {
    std::optional<GKTurn> next() override {
      if (count++ > 0) {
        throw std::runtime_error("broken");
      }
      return GKTurn{GKTurn::kMain, 0, 0};
    }
    void begin() override {}
    std::optional<std::uint64_t> started(const GKTask&) override { return std::nullopt; }
    int count = 0;
  };
  const auto sut = makeReplayClock(std::make_shared<Broken>());
  GKClock::install(sut);
  EXPECT_THROW(sut->run(nullptr, std::nullopt), std::runtime_error);
  GKClock::install(nullptr);
}

} // namespace
} // namespace GK
