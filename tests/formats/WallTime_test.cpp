#include "formats/WallTime.h"

#include <gtest/gtest.h>

namespace {

using gk::formats::wallTimeText;

TEST(WallTime, YearsOfFourDigitsAreDates) {
  EXPECT_EQ(wallTimeText(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(wallTimeText(1'767'225'600'999'999), "2026-01-01T00:00:00Z");
  EXPECT_EQ(wallTimeText(253'402'300'799'999'999), "9999-12-31T23:59:59Z");
}

TEST(WallTime, EverythingElseIsANumber) {
  EXPECT_EQ(wallTimeText(-1), "-1 us");
  EXPECT_EQ(wallTimeText(253'402'300'800'000'000), "253402300800000000 us");
}

} // namespace
