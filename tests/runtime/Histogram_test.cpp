#include "runtime/figures/Histogram.h"

namespace {

using gk::runtime::Histogram;

constexpr std::int64_t kHour = 3'600'000'000;

TEST(Histogram, EmptyOneKnowsNothing) {
  const Histogram sut;
  EXPECT_EQ(sut.count(), 0U);
  EXPECT_EQ(sut.quantile(0.5), 0);
  EXPECT_EQ(sut.max(), 0);
  EXPECT_EQ(sut.countUpTo(kHour), 0U);
}

TEST(Histogram, ShortDurationsAreExact) {
  Histogram sut;
  for (std::int64_t micros = 0; micros < 16; ++micros) {
    sut.add(micros);
  }
  EXPECT_EQ(sut.sum(), 120);
  EXPECT_EQ(sut.quantile(0.5), 7); // the eighth of sixteen
  EXPECT_EQ(sut.quantile(1.0), 15);
  EXPECT_EQ(sut.countUpTo(7), 8U);
}

TEST(Histogram, QuantilesAreNeverTooShortAndAtMostAnEighthTooLong) {
  for (std::int64_t micros = 1; micros < kHour; micros = micros * 5 / 4 + 1) {
    Histogram sut;
    sut.add(micros);
    sut.add(kHour); // so that the largest value does not cut the answer
    EXPECT_GE(sut.quantile(0.5), micros);
    EXPECT_LE(sut.quantile(0.5), micros + micros / 8);
  }
}

TEST(Histogram, StepsFollowOneAnotherWithoutGap) {
  Histogram sut;
  constexpr std::int64_t kValues = 5000;
  for (std::int64_t micros = 0; micros < kValues; ++micros) {
    sut.add(micros);
    EXPECT_EQ(sut.countUpTo(micros), static_cast<std::uint64_t>(micros) + 1);
  }
}

TEST(Histogram, WhatIsOutOfRangeCountsAsTheNearestEnd) {
  Histogram sut;
  sut.add(-5);
  sut.add(kHour + 1);
  EXPECT_EQ(sut.quantile(0.5), 0);
  EXPECT_EQ(sut.max(), kHour);
  EXPECT_EQ(sut.quantile(1.0), kHour);
  EXPECT_EQ(sut.countUpTo(-1), 0U);
}

} // namespace
