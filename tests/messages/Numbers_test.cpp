#include "messages/text/Numbers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>

using namespace gk::messages;

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kLargest = std::numeric_limits<float>::max();

std::string textOf(float value) {
  std::string out;
  appendFloat(out, value);
  return out;
}

std::string secondsOf(GK::GKMicros time) {
  std::string out;
  appendSeconds(out, time);
  return out;
}

/// Digits from the first to the last that is not 0.
std::size_t significantDigits(std::string_view text) {
  std::string digits;
  for (const char c : text.substr(0, text.find('e'))) {
    if (c >= '0' && c <= '9' && (c != '0' || !digits.empty())) {
      digits += c;
    }
  }
  return digits.find_last_not_of('0') + 1;
}

/// The fewest digits with which the C library reads the same float back.
std::size_t fewestDigits(float value) {
  for (int digits = 1;; ++digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*e", digits - 1, static_cast<double>(value));
    if (std::strtof(text, nullptr) == value) {
      return significantDigits(text);
    }
  }
}

} // namespace

TEST(Numbers, DecimalTextsAreRead) {
  EXPECT_EQ(parseDouble("0"), 0.0);
  EXPECT_EQ(parseDouble("-12"), -12.0);
  EXPECT_EQ(parseDouble("0.1"), 0.1);
  EXPECT_EQ(parseDouble(".5"), 0.5);
  EXPECT_EQ(parseDouble("5."), 5.0);
  EXPECT_EQ(parseDouble("1e-3"), 0.001);
  EXPECT_EQ(parseDouble("1E+3"), 1000.0);
  EXPECT_EQ(parseDouble("007"), 7.0);
}

TEST(Numbers, ReadingIsExactWhereNaiveScalingIsNot) {
  EXPECT_EQ(parseDouble("9007199254740993"), 9007199254740992.0);
  EXPECT_EQ(parseDouble("9007199254740993.0000000001"), 9007199254740994.0);
  EXPECT_EQ(parseDouble("2.2250738585072011e-308"), 2.2250738585072011e-308);
  EXPECT_EQ(parseDouble("8.41e21"), 8.41e21);
}

TEST(Numbers, TheSignOfZeroIsKept) {
  EXPECT_TRUE(std::signbit(parseDouble("-0.0").value()));
  EXPECT_FALSE(std::signbit(parseDouble("0.0").value()));
}

TEST(Numbers, OtherTextsAreNoNumbers) {
  for (const char* text :
       {"",     "-",  ".",   "+1",  " 1",   "1 ",       "1,5", "1e",   "e5",  "--1",
        "0x10", "1f", "nan", "inf", "-inf", "infinity", "NaN", "-nan", "- 1", "1e5.0"}) {
    EXPECT_FALSE(parseDouble(text)) << text;
  }
}

TEST(Numbers, BeyondTheRangeOfDoublesIsInfinity) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(parseDouble("1.7976931348623157e308"), std::numeric_limits<double>::max());
  EXPECT_EQ(parseDouble("1.8e308"), infinity);
  EXPECT_EQ(parseDouble("-1e400"), -infinity);
  EXPECT_EQ(parseDouble("1e99999999999999999999"), infinity);
  EXPECT_EQ(parseDouble("0.001e400"), infinity);
  EXPECT_EQ(parseDouble("1" + std::string(400, '0')), infinity);
}

TEST(Numbers, TooCloseToZeroIsZero) {
  EXPECT_EQ(parseDouble("5e-324"), 5e-324);
  EXPECT_EQ(parseDouble("1e-400"), 0.0);
  EXPECT_EQ(parseDouble("1e-99999999999999999999"), 0.0);
  EXPECT_EQ(parseDouble("1000e-400"), 0.0);
  EXPECT_EQ(parseDouble("0e99999999999999999999"), 0.0);
  EXPECT_EQ(parseDouble("0." + std::string(400, '0') + "1"), 0.0);
  EXPECT_TRUE(std::signbit(parseDouble("-1e-400").value()));
}

TEST(Numbers, NonFiniteFloatsHaveExactlyOneSpelling) {
  EXPECT_TRUE(std::isnan(parseFloat("nan").value()));
  EXPECT_EQ(parseFloat("inf"), kInfinity);
  EXPECT_EQ(parseFloat("-inf"), -kInfinity);
  for (const char* text : {"NaN", "NAN", "-nan", "Inf", "INF", "+inf", "infinity", "nan ", "in"}) {
    EXPECT_FALSE(parseFloat(text)) << text;
  }
}

TEST(Numbers, FloatsAreReadAsDoubleAndRoundedOnce) {
  EXPECT_EQ(parseFloat("0.1"), 0.1F);
  EXPECT_EQ(parseFloat("16777217"), 16777216.0F);
  // Just above the middle of two floats, but as a double exactly the middle: goes to the even one.
  EXPECT_EQ(parseFloat("1.00000005960464477539062500001"), 1.0F);
}

TEST(Numbers, BeyondTheRangeOfFloatsIsInfinity) {
  constexpr double middle = 0x1.ffffffp127;
  EXPECT_EQ(toFloat(static_cast<double>(kLargest)), kLargest);
  EXPECT_EQ(toFloat(std::nextafter(middle, 0.0)), kLargest);
  EXPECT_EQ(toFloat(middle), kInfinity);
  EXPECT_EQ(toFloat(-middle), -kInfinity);
  EXPECT_EQ(toFloat(-std::nextafter(middle, 0.0)), -kLargest);
  EXPECT_EQ(toFloat(1e300), kInfinity);
  EXPECT_EQ(parseFloat("1e400"), kInfinity);
  EXPECT_TRUE(std::isnan(toFloat(std::nan(""))));
}

TEST(Numbers, IntsMayBeWrittenAsWholeFloats) {
  EXPECT_EQ(parseInt("34"), 34);
  EXPECT_EQ(parseInt("34.0"), 34);
  EXPECT_EQ(parseInt("-0.0"), 0);
  EXPECT_EQ(parseInt("1e2"), 100);
  EXPECT_FALSE(parseInt("34.5"));
  EXPECT_FALSE(parseInt("33.999999"));
  EXPECT_FALSE(parseInt("nan"));
  EXPECT_FALSE(parseInt("inf"));
  EXPECT_FALSE(parseInt(""));
  EXPECT_FALSE(parseInt("0x10"));
  EXPECT_FALSE(parseInt("+3"));
}

TEST(Numbers, IntsHave32Bits) {
  EXPECT_EQ(parseInt("2147483647"), 2147483647);
  EXPECT_FALSE(parseInt("2147483648"));
  EXPECT_EQ(parseInt("-2147483648"), std::numeric_limits<std::int32_t>::min());
  EXPECT_FALSE(parseInt("-2147483649"));
  EXPECT_EQ(parseInt("2147483647.0"), 2147483647);
  EXPECT_FALSE(parseInt("2147483648.0"));
  EXPECT_FALSE(parseInt("1e400"));
  EXPECT_FALSE(toInt(std::nan("")));
}

TEST(Numbers, TimesAreRoundedToMicroseconds) {
  EXPECT_EQ(toMicros(0.0), 0);
  EXPECT_EQ(toMicros(0.02), 20000);
  EXPECT_EQ(toMicros(0.0000004), 0);
  EXPECT_EQ(toMicros(0.0000005), 1);
  EXPECT_EQ(toMicros(1.0000006), 1000001);
  EXPECT_EQ(toMicros(-0.5), -500000);
  EXPECT_EQ(toMicros(1234567.890123), 1234567890123);
}

TEST(Numbers, TimesHaveALargestValue) {
  EXPECT_EQ(toMicros(kMaxSeconds), 4'000'000'000'000'000'000);
  EXPECT_FALSE(toMicros(std::nextafter(kMaxSeconds, 1e300)));
  EXPECT_EQ(toMicros(-kMaxSeconds), -4'000'000'000'000'000'000);
  EXPECT_FALSE(toMicros(-std::nextafter(kMaxSeconds, 1e300)));
  EXPECT_FALSE(toMicros(std::numeric_limits<double>::infinity()));
  EXPECT_FALSE(toMicros(std::nan("")));
}

TEST(Numbers, SecondsHaveNoTrailingZeros) {
  EXPECT_EQ(secondsOf(0), "0");
  EXPECT_EQ(secondsOf(1), "0.000001");
  EXPECT_EQ(secondsOf(20'000), "0.02");
  EXPECT_EQ(secondsOf(1'500'000), "1.5");
  EXPECT_EQ(secondsOf(10'000'000), "10");
  EXPECT_EQ(secondsOf(999'999), "0.999999");
  EXPECT_EQ(secondsOf(1'000'001), "1.000001");
  EXPECT_EQ(secondsOf(-20'000), "-0.02");
  EXPECT_EQ(secondsOf(std::numeric_limits<GK::GKMicros>::min()), "-9223372036854.775808");
}

TEST(Numbers, FloatsAreWrittenShortAndSeenToBeFloats) {
  EXPECT_EQ(textOf(1.0F), "1.0");
  EXPECT_EQ(textOf(0.1F), "0.1");
  EXPECT_EQ(textOf(0.0F), "0.0");
  EXPECT_EQ(textOf(-0.0F), "-0.0");
  EXPECT_EQ(textOf(2.55F), "2.55");
  EXPECT_EQ(textOf(30.0F), "30.0");
  EXPECT_EQ(textOf(1e20F), "1e+20");
  EXPECT_EQ(textOf(-1.5e-7F), "-1.5e-07");
  EXPECT_EQ(textOf(kLargest), "3.4028235e+38");
  EXPECT_EQ(textOf(std::numeric_limits<float>::denorm_min()), "1e-45");
}

TEST(Numbers, LargeWholeFloatsHaveNoNeedlessDigits) {
  EXPECT_EQ(textOf(16777215.0F), "16777215.0");
  EXPECT_EQ(textOf(16777216.0F), "16777216.0");
  EXPECT_EQ(textOf(16777218.0F), "1.6777218e+07");
  EXPECT_EQ(textOf(123456790528.0F), "1.2345679e+11");
  EXPECT_EQ(textOf(-123456790528.0F), "-1.2345679e+11");
}

TEST(Numbers, EveryFloatReadsBackFromItsFewestDigits) {
  std::mt19937 random(20260101);
  for (int i = 0; i < 20'000; ++i) {
    const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    if (!std::isfinite(value)) {
      continue;
    }
    const std::string text = textOf(value);
    ASSERT_EQ(std::bit_cast<std::uint32_t>(parseFloat(text).value()),
              std::bit_cast<std::uint32_t>(value))
        << text;
    ASSERT_NE(text.find_first_of(".e"), std::string::npos) << text;
    ASSERT_LE(significantDigits(text), fewestDigits(value)) << text;
  }
}

TEST(Numbers, MeasuredValuesReadBackFromTheirFewestDigits) {
  std::mt19937 random(7);
  for (int i = 0; i < 20'000; ++i) {
    const float value = static_cast<float>(static_cast<std::int32_t>(random())) / 1024.0F;
    const std::string text = textOf(value);
    ASSERT_EQ(parseFloat(text), value) << text;
    ASSERT_LE(significantDigits(text), fewestDigits(value)) << text;
  }
}
