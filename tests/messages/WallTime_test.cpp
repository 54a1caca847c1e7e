#include "messages/text/WallTime.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

using gk::messages::nanosecondsSince1970;
using gk::messages::wallTimeText;

TEST(WallTime, YearsOfFourDigitsAreDates) {
  EXPECT_EQ(wallTimeText(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(wallTimeText(1'767'225'600'999'999), "2026-01-01T00:00:00Z");
  EXPECT_EQ(wallTimeText(253'402'300'799'999'999), "9999-12-31T23:59:59Z");
}

TEST(WallTime, EverythingElseIsANumber) {
  EXPECT_EQ(wallTimeText(-1), "-1 us");
  EXPECT_EQ(wallTimeText(253'402'300'800'000'000), "253402300800000000 us");
}

TEST(WallTime, NanosecondsEndWhereSixtyFourBitsEnd) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(nanosecondsSince1970(1'767'225'600'000'000, 5), 1'767'225'600'000'005'000U);
  EXPECT_EQ(nanosecondsSince1970(-3, 5), 2000U);
  EXPECT_EQ(nanosecondsSince1970(-5, 5), 0U);
  EXPECT_EQ(nanosecondsSince1970(-6, 5), 0U);
  EXPECT_EQ(nanosecondsSince1970(least, most), 0U);
  EXPECT_EQ(nanosecondsSince1970(most, most), 18'446'744'073'709'551'000U);
}

} // namespace
