#include "gk/GKClock.h"
#include "runtime/figures/LoopStatistics.h"

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
  EXPECT_EQ(reports[0].work.count(), 0U);
}

TEST(LoopStatistics, ATickIsAnOverrunWhenItWorksLongerThanThePauseAfterIt) {
  LoopStatistics sut;
  const GKTask task{"A", "run"};
  sut.onTickTimes(GKTickTimes{100, 20100, 5, 20000}, task);
  EXPECT_EQ(sut.reports()[0].overruns, 0U);
  sut.onTickTimes(GKTickTimes{100, 20101, 5, 20000}, task);
  EXPECT_EQ(sut.reports()[0].overruns, 1U);
  EXPECT_EQ(sut.reports()[0].work.max(), 20001);
  EXPECT_EQ(sut.reports()[0].lateness.max(), 5);
}

} // namespace
