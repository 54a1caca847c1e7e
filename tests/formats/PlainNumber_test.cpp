#include "formats/text/PlainNumber.h"
#include "messages/text/Numbers.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>

namespace gk::formats {
namespace {

/// The bits of the number that the whole text is, so that -0 is not 0; nothing when it is none.
std::optional<std::uint64_t> bitsOf(std::string_view text) {
  double value = 0.0;
  const char* const last = text.data() + text.size();
  return readPlainNumber(text.data(), last, value) == last
             ? std::optional(std::bit_cast<std::uint64_t>(value))
             : std::nullopt;
}

std::optional<std::uint64_t> exactBitsOf(std::string_view text) {
  const std::optional<double> value = messages::parseDouble(text);
  return value ? std::optional(std::bit_cast<std::uint64_t>(*value)) : std::nullopt;
}

TEST(PlainNumber, IsReadToTheSameDoubleAsEveryNumber) {
  std::mt19937 random(11);
  for (int i = 0; i < 200'000; ++i) {
    std::string text = random() % 2 == 0 ? "-" : "";
    const std::size_t digits = 1 + random() % 15;
    const std::size_t point = random() % (digits + 2);
    for (std::size_t digit = 0; digit < digits; ++digit) {
      text += digit == point ? "." : "";
      text += static_cast<char>('0' + random() % 10);
    }
    ASSERT_EQ(bitsOf(text), exactBitsOf(text)) << text;
  }
}

TEST(PlainNumber, MayBeginOrEndWithItsPointAndHaveZerosInFront) {
  for (const std::string_view text : {"0", "-0", ".5", "-.5", "5.", "007", "-0.0", "00000.1",
                                      "999999999999999", "0.00000000000001"}) {
    EXPECT_TRUE(bitsOf(text)) << text;
    EXPECT_EQ(bitsOf(text), exactBitsOf(text)) << text;
  }
}

TEST(PlainNumber, OfMoreThanFifteenDigitsIsLeftToOthers) {
  EXPECT_TRUE(bitsOf("123456789012345"));
  EXPECT_FALSE(bitsOf("1234567890123456"));
  EXPECT_TRUE(bitsOf("0.12345678901234"));
  EXPECT_FALSE(bitsOf("0.123456789012345"));
  EXPECT_FALSE(bitsOf("100000000000000000000000000000"));
}

TEST(PlainNumber, EndsAtWhateverIsNoDigit) {
  for (const std::string_view text : {"12,3", "12e3", "12 ", "12-", "12\n"}) {
    double value = 0.0;
    const char* const end = readPlainNumber(text.data(), text.data() + text.size(), value);
    EXPECT_EQ(end, text.data() + 2) << text;
    EXPECT_EQ(value, 12.0) << text;
  }
  EXPECT_FALSE(bitsOf("12.5.1"));
}

TEST(PlainNumber, IsNotThereWithoutADigit) {
  for (const std::string_view text : {"", "-", ".", "-.", "--1", "+1", "nan", "inf", "e5", " 1"}) {
    double value = 7.0;
    EXPECT_EQ(readPlainNumber(text.data(), text.data() + text.size(), value), nullptr) << text;
    EXPECT_EQ(value, 7.0) << text;
  }
}

} // namespace
} // namespace gk::formats
