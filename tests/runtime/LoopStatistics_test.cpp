#include "gk/GKClock.h"
#include "runtime/figures/LoopStatistics.h"
#include "support/VirtualClock.h"

namespace {

using GK::GKTask;
using GK::GKTickTimes;
using gk::runtime::LoopReport;
using gk::runtime::LoopStatistics;

TEST(LoopStatistics, CountsEachModulesLoopByItself) {
  LoopStatistics sut;
  sut.onTick(0, GKTask{"B", "run"});
  sut.onTick(0, GKTask{"A", "run"});
  sut.onTick(20000, GKTask{"A", "run"});
  const std::vector<LoopReport> reports = sut.reports();
  ASSERT_EQ(reports.size(), 2U);
  EXPECT_EQ(reports[0].module, "A");
  EXPECT_EQ(reports[0].ticks, 2U);
  EXPECT_EQ(reports[1].ticks, 1U);
  EXPECT_EQ(reports[0].all.work.count(), 0U);
}

TEST(LoopStatistics, ATickIsAnOverrunWhenItWorksLongerThanThePauseAfterIt) {
  LoopStatistics sut;
  const GKTask task{"A", "run"};
  sut.onTickTimes(GKTickTimes{100, 20100, 5, 20000}, task);
  EXPECT_EQ(sut.reports()[0].all.overruns, 0U);
  sut.onTickTimes(GKTickTimes{100, 20101, 5, 20000}, task);
  EXPECT_EQ(sut.reports()[0].all.overruns, 1U);
  EXPECT_EQ(sut.reports()[0].all.work.max(), 20001);
  EXPECT_EQ(sut.reports()[0].all.lateness.max(), 5);
}

/// Virtual time, so that the last minute is where the test wants it.
class LoopStatisticsOverTime : public GK::test::VirtualClock {};

TEST_F(LoopStatisticsOverTime, TheLastMinuteForgetsWhatIsOlderAndTheWholeDoesNot) {
  LoopStatistics sut;
  const GKTask task{"A", "run"};
  constexpr GK::GKMicros second = 1'000'000;
  // At 1 s a tick that overran and was late, at 55 s one that was neither.
  sut.onTickTimes(GKTickTimes{second - 30000, second, 9000, 20000}, task);
  post([] { sleep(55 * second); });
  run();
  sut.onTickTimes(GKTickTimes{55 * second - 100, 55 * second, 5, 20000}, task);
  const LoopReport before = sut.reports()[0];
  EXPECT_EQ(before.lastMinute.overruns, 1U);
  EXPECT_EQ(before.lastMinute.pauses, 40000);
  EXPECT_EQ(before.lastMinute.lateness.max(), 9000);
  post([] { sleep(5 * second); });
  run();
  const LoopReport after = sut.reports()[0];
  EXPECT_EQ(after.lastMinute.overruns, 0U);
  EXPECT_EQ(after.lastMinute.pauses, 20000);
  EXPECT_EQ(after.lastMinute.lateness.max(), 5);
  EXPECT_EQ(after.all.overruns, 1U);
  EXPECT_EQ(after.all.lateness.count(), 2U);
}

TEST_F(LoopStatisticsOverTime, ThePlaceOfAnOldSlotIsTakenByTheNextOne) {
  LoopStatistics sut;
  const GKTask task{"A", "run"};
  constexpr GK::GKMicros minute = 60'000'000;
  sut.onTickTimes(GKTickTimes{0, 30000, 9000, 20000}, task);
  post([] { sleep(minute); });
  run();
  sut.onTickTimes(GKTickTimes{minute, minute + 10, 5, 20000}, task);
  EXPECT_EQ(sut.reports()[0].lastMinute.work.count(), 1U);
  EXPECT_EQ(sut.reports()[0].lastMinute.work.max(), 10);
}

} // namespace
