#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"
#include "messages/json/KeyTypes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

using namespace gk::messages;
using GK::GKValue;
using testing::HasSubstr;

namespace {

GKValue read(std::string_view text) {
  return valueFromJson(parseJson(text));
}

std::string write(const GKValue& value) {
  std::string out;
  appendJson(out, value);
  return out;
}

template <class Function> std::string conversionErrorOf(Function function) {
  try {
    function();
  } catch (const FormatError& error) {
    return error.what();
  }
  ADD_FAILURE() << "no error";
  return {};
}

std::string readError(std::string_view text) {
  return conversionErrorOf([&] { read(text); });
}

GKValue readFor(KeyType type, std::string_view text) {
  return valueForKey(type, parseJson(text));
}

std::string errorFor(KeyType type, std::string_view text) {
  return conversionErrorOf([&] { readFor(type, text); });
}

} // namespace

TEST(JsonValue, PointOrExponentTellsFloatsFromInts) {
  EXPECT_EQ(read("3"), GKValue(3));
  EXPECT_EQ(read("3.0"), GKValue(3.0F));
  EXPECT_EQ(read("3e0"), GKValue(3.0F));
  EXPECT_EQ(read("-7"), GKValue(-7));
  EXPECT_EQ(read("0.1"), GKValue(0.1F));
}

TEST(JsonValue, OtherKindsAreThemselves) {
  EXPECT_EQ(read("true"), GKValue(true));
  EXPECT_EQ(read("false"), GKValue(false));
  EXPECT_EQ(read("null"), GKValue());
  EXPECT_EQ(read("\"a\\u0000b\""), GKValue(std::string("a\0b", 3)));
  EXPECT_EQ(read("[]"), GKValue(GKValue::Array{}));
  EXPECT_EQ(read(R"([1,1.0,[null,"x"]])"),
            GKValue(GKValue::Array{1, 1.0F, GKValue::Array{GKValue(), "x"}}));
}

TEST(JsonValue, IntsHave32Bits) {
  EXPECT_EQ(read("2147483647"), GKValue(2147483647));
  EXPECT_EQ(readError("2147483648"), "the int 2147483648 is beyond 32 bits");
  EXPECT_EQ(read("-2147483648"), GKValue(std::numeric_limits<std::int32_t>::min()));
  EXPECT_EQ(readError("[-2147483649]"), "the int -2147483649 is beyond 32 bits");
  EXPECT_EQ(valueFromJson(boost::json::value(std::uint64_t{5})), GKValue(5));
}

TEST(JsonValue, NonFiniteFloatsAreObjects) {
  EXPECT_TRUE(std::isnan(read(R"({"float":"nan"})").toFloat()));
  EXPECT_EQ(read(R"({"float":"inf"})").toFloat(), std::numeric_limits<float>::infinity());
  EXPECT_EQ(read(R"({"float":"-inf"})").toFloat(), -std::numeric_limits<float>::infinity());
}

TEST(JsonValue, OtherObjectsAreNoValues) {
  for (const char* text : {"{}", R"({"float":"NaN"})", R"({"float":1.0})", R"({"x":"nan"})",
                           R"({"float":"nan","x":1})", R"([{"a":1}])"}) {
    EXPECT_THAT(readError(text), HasSubstr("an object is no value")) << text;
  }
}

TEST(JsonValue, ADoubleBeyondTheFloatsIsInfinite) {
  EXPECT_EQ(read("1e39").toFloat(), std::numeric_limits<float>::infinity());
}

TEST(JsonValue, ValuesAreWrittenAsTheyAreRead) {
  for (const char* text :
       {"null", "true", "false", "0", "-2147483648", "0.0", "-0.0", "1.5", "1e+20", R"("a\"b")",
        "[]", R"([1,[2.0,"x",null],[]])", R"({"float":"nan"})", R"({"float":"inf"})",
        R"({"float":"-inf"})", R"([{"float":"inf"}])"}) {
    EXPECT_EQ(write(read(text)), text);
  }
}

TEST(JsonValue, FloatsSurviveTheRoundTripBitByBit) {
  std::mt19937 random(42);
  for (int i = 0; i < 20'000; ++i) {
    const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    if (std::isfinite(value)) {
      ASSERT_EQ(std::bit_cast<std::uint32_t>(read(write(value)).toFloat()),
                std::bit_cast<std::uint32_t>(value));
    }
  }
}

TEST(KeyTypes, AFloatKeyTakesNumbers) {
  EXPECT_EQ(readFor(KeyType::Float, "1.5"), GKValue(1.5F));
  EXPECT_EQ(readFor(KeyType::Float, "3"), GKValue(3.0F));
  EXPECT_EQ(readFor(KeyType::Float, "3000000000"), GKValue(3e9F));
  EXPECT_EQ(readFor(KeyType::Float, R"({"float":"inf"})"),
            GKValue(std::numeric_limits<float>::infinity()));
}

TEST(KeyTypes, AFloatKeyRefusesEverythingElse) {
  EXPECT_EQ(errorFor(KeyType::Float, "\"a\""), "takes a float, not \"a\"");
  EXPECT_EQ(errorFor(KeyType::Float, "true"), "takes a float, not true");
  EXPECT_EQ(errorFor(KeyType::Float, "[1.0]"), "takes a float, not an array");
  EXPECT_EQ(errorFor(KeyType::Float, "null"), "takes a float, not null");
  EXPECT_THAT(errorFor(KeyType::Float, R"({"float":"x"})"), HasSubstr("an object is no value"));
}

TEST(KeyTypes, AnIntKeyTakesWholeNumbers) {
  EXPECT_EQ(readFor(KeyType::Int, "34"), GKValue(34));
  EXPECT_EQ(readFor(KeyType::Int, "34.0"), GKValue(34));
  EXPECT_EQ(readFor(KeyType::Int, "3.4e1"), GKValue(34));
  EXPECT_EQ(readFor(KeyType::Int, "2147483647"), GKValue(2147483647));
}

TEST(KeyTypes, AnIntKeyRefusesEverythingElse) {
  EXPECT_EQ(errorFor(KeyType::Int, "34.5"), "takes an int of 32 bits, not 34.5");
  EXPECT_EQ(errorFor(KeyType::Int, "2147483648"), "the int 2147483648 is beyond 32 bits");
  EXPECT_THAT(errorFor(KeyType::Int, "2147483648.0"), HasSubstr("takes an int of 32 bits"));
  EXPECT_EQ(errorFor(KeyType::Int, R"({"float":"nan"})"), "takes an int of 32 bits, not an object");
  for (const char* text : {"\"34\"", "true", "false", "[34]", "null"}) {
    EXPECT_THAT(errorFor(KeyType::Int, text), HasSubstr("takes an int of 32 bits")) << text;
  }
}

TEST(KeyTypes, OtherKeysTakeAnyValueAsItIs) {
  EXPECT_EQ(readFor(KeyType::Any, "3"), GKValue(3));
  EXPECT_EQ(readFor(KeyType::Any, "3.0"), GKValue(3.0F));
  EXPECT_EQ(readFor(KeyType::Any, "true"), GKValue(true));
  EXPECT_EQ(readFor(KeyType::Any, "[\"a\"]"), GKValue(GKValue::Array{"a"}));
  EXPECT_EQ(readFor(KeyType::Any, "null"), GKValue());
  EXPECT_THAT(errorFor(KeyType::Any, "3000000000"), HasSubstr("beyond 32 bits"));
}
