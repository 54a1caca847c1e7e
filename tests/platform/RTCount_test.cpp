#include "gk/GKClock.h"
#include "gk/GKTime.h"

#include <gtest/gtest.h>

#include <limits>

namespace GK {

class RTCountPeer {
public:
  static void setCount(RTCount& sut, int count) { sut.fCount = count; }
};

namespace {

constexpr GKTime kSpan{.milliseconds = 50};

/// A counter on a virtual clock.
class RTCountTest : public testing::Test {
protected:
  RTCountTest() { GKClock::install(makeVirtualClock(0)); }
  ~RTCountTest() override { GKClock::install(nullptr); }

  int ticAfter(GKMicros pause) {
    GKClock::instance().sleep(pause);
    return sut.tic(kSpan);
  }

  RTCount sut;
};

TEST(GKTime, ComponentsAddUp) {
  constexpr GKTime sut{.days = 1, .hours = 2, .minutes = 3, .seconds = 4, .milliseconds = 5};

  // 86400 + 7200 + 180 + 4 seconds.
  EXPECT_EQ(sut.toMicros(), 93784005000);
}

TEST(GKTime, ManyDaysDoNotOverflow) {
  EXPECT_EQ(GKTime{.days = 100000}.toMicros(), 8640000000000000);
  EXPECT_EQ((GKTime{0, 0, 0, 0, 50}).toMicros(), 50000);
}

TEST_F(RTCountTest, FirstCallIsOne) {
  EXPECT_EQ(sut.tic(kSpan), 1);
}

TEST_F(RTCountTest, CallWithinTheSpanGoesOnCounting) {
  EXPECT_EQ(ticAfter(0), 1);
  EXPECT_EQ(ticAfter(0), 2);
  EXPECT_EQ(ticAfter(49999), 3);
}

TEST_F(RTCountTest, CallAtTheSpanGoesOnCounting) {
  EXPECT_EQ(ticAfter(0), 1);
  EXPECT_EQ(ticAfter(50000), 2);
}

TEST_F(RTCountTest, CallLaterThanTheSpanStartsAgain) {
  EXPECT_EQ(ticAfter(0), 1);
  EXPECT_EQ(ticAfter(50000), 2);
  EXPECT_EQ(ticAfter(50001), 1);
  EXPECT_EQ(ticAfter(50000), 2);
}

TEST_F(RTCountTest, SpanCountsFromThePreviousCallNotFromTheFirst) {
  EXPECT_EQ(ticAfter(0), 1);
  EXPECT_EQ(ticAfter(30000), 2);
  EXPECT_EQ(ticAfter(30000), 3);
}

TEST_F(RTCountTest, FirstCallIsOneHoweverLate) {
  EXPECT_EQ(ticAfter(3600000000), 1);
}

TEST_F(RTCountTest, CountStaysAtTheLargestInt) {
  constexpr int kLargest = std::numeric_limits<int>::max();
  EXPECT_EQ(ticAfter(0), 1);
  RTCountPeer::setCount(sut, kLargest - 1);

  EXPECT_EQ(ticAfter(50000), kLargest);
  EXPECT_EQ(ticAfter(50000), kLargest);
  EXPECT_EQ(ticAfter(50001), 1);
}

} // namespace
} // namespace GK
