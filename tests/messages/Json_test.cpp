#include "messages/json/Json.h"
#include "messages/json/JsonText.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace gk::messages;
using testing::HasSubstr;

namespace {

std::string jsonErrorOf(std::string_view text) {
  try {
    parseJson(text);
  } catch (const FormatError& error) {
    return error.what();
  }
  ADD_FAILURE() << "no error in " << text;
  return {};
}

std::string nested(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

std::string stringOf(std::string_view text) {
  std::string out;
  appendJsonString(out, text);
  return out;
}

} // namespace

TEST(Json, AllKindsOfValuesAreRead) {
  const auto value = parseJson(R"( {"a":[1,-2,true,false,null,"x\n\u00e9"],"b":{},"c":[]} )");
  EXPECT_EQ(boost::json::serialize(value),
            "{\"a\":[1,-2,true,false,null,\"x\\n\xC3\xA9\"],\"b\":{},\"c\":[]}");
}

TEST(Json, ANumberAloneIsAText) {
  EXPECT_EQ(parseJson("12").get_int64(), 12);
  EXPECT_EQ(parseJson("12.5").get_double(), 12.5);
  EXPECT_EQ(parseJson("\"a\"").get_string(), "a");
}

TEST(Json, APointOrAnExponentMakesADouble) {
  EXPECT_TRUE(parseJson("1").is_int64());
  EXPECT_TRUE(parseJson("-0").is_int64());
  EXPECT_TRUE(parseJson("1.0").is_double());
  EXPECT_TRUE(parseJson("1e0").is_double());
  EXPECT_TRUE(parseJson("1E2").is_double());
  EXPECT_TRUE(std::signbit(parseJson("-0.0").get_double()));
}

TEST(Json, DoublesAreTheNearestOnes) {
  EXPECT_EQ(parseJson("[0.1]").at(0).get_double(), 0.1);
  EXPECT_EQ(parseJson("1.7976931348623157e308").get_double(), std::numeric_limits<double>::max());
  EXPECT_EQ(parseJson("9007199254740993.0000000001").get_double(), 9007199254740994.0);
  EXPECT_EQ(parseJson("0.3050000000000000044408920985006").get_double(), 0.305);
  EXPECT_EQ(parseJson("123456789012345678901234567890.0").get_double(), 1.2345678901234568e29);
  EXPECT_EQ(parseJson("1e400").get_double(), std::numeric_limits<double>::infinity());
}

TEST(Json, IntsHave64Bits) {
  EXPECT_EQ(parseJson("9223372036854775807").get_int64(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(jsonErrorOf("9223372036854775808"),
            "column 20: the int 9223372036854775808 is beyond 64 bits");
  EXPECT_EQ(parseJson("-9223372036854775808").get_int64(),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_THAT(jsonErrorOf("-9223372036854775809"), HasSubstr("beyond 64 bits"));
  EXPECT_THAT(jsonErrorOf("100000000000000000000000000"), HasSubstr("beyond 64 bits"));
}

TEST(Json, NestingEndsAt32) {
  EXPECT_NO_THROW(parseJson(nested(32)));
  EXPECT_THAT(jsonErrorOf(nested(33)), HasSubstr("column 33: "));
  EXPECT_THAT(jsonErrorOf(std::string(100'000, '[')), HasSubstr("column 33: "));
}

TEST(Json, AMemberThatStandsTwiceIsAnError) {
  EXPECT_THAT(jsonErrorOf(R"({"a":1,"a":1})"), HasSubstr("member \"a\" stands twice"));
  EXPECT_THAT(jsonErrorOf(R"([{"a":{"b":1,"c":2,"b":3}}])"),
              HasSubstr("member \"b\" stands twice"));
  EXPECT_THAT(jsonErrorOf(R"({"a":1,"\u0061":1})"), HasSubstr("member \"a\" stands twice"));
  EXPECT_NO_THROW(parseJson(R"({"a":{"a":1},"b":[{"a":1},{"a":1}]})"));
}

TEST(Json, ErrorsTellTheColumn) {
  EXPECT_EQ(jsonErrorOf("{\"a\" 1}"), "column 6: syntax error");
  EXPECT_EQ(jsonErrorOf("[1] x"), "column 5: more text after the end");
  EXPECT_THAT(jsonErrorOf("[1"), HasSubstr("column 3: incomplete"));
  EXPECT_THAT(jsonErrorOf(""), HasSubstr("column 1: incomplete"));
}

TEST(Json, WhatIsNoJsonIsRefused) {
  for (const char* text :
       {"[1,]", "{a:1}", "{'a':1}", "// x\n1", "01", "+1", "1.", ".5", "nan", "NaN", "Infinity",
        "\"\x01\"", "\"\xFF\"", "\"\\ud800\"", "\"\\x\"", "[1 2]", "tru", "1 1", "[1]]"}) {
    EXPECT_THROW(parseJson(text), FormatError) << text;
  }
}

TEST(JsonText, SpecialCharactersAreEscaped) {
  EXPECT_EQ(stringOf("a\"b\\c/d"), R"("a\"b\\c/d")");
  EXPECT_EQ(stringOf("\b\f\n\r\t"), R"("\b\f\n\r\t")");
  EXPECT_EQ(stringOf(std::string_view("\0\x01\x1f\x20\x7f", 5)), "\"\\u0000\\u0001\\u001f \x7f\"");
}

TEST(JsonText, ValidCharactersStay) {
  // The first and last characters of two, three and four bytes.
  for (const char* text : {"\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                           "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(stringOf(text), "\"" + std::string(text) + "\"");
  }
}

TEST(JsonText, InvalidBytesAreReplacedOneByOne) {
  const std::string bad = "\xEF\xBF\xBD";
  EXPECT_EQ(stringOf("a\xFFz"), "\"a" + bad + "z\"");
  EXPECT_EQ(stringOf("\x80"), "\"" + bad + "\"");
  EXPECT_EQ(stringOf("\xC1\xBF"), "\"" + bad + bad + "\"");
  EXPECT_EQ(stringOf("\xE2\x82"), "\"" + bad + bad + "\"");
  EXPECT_EQ(stringOf("\xE2\x82\xFFx"), "\"" + bad + bad + bad + "x\"");
  EXPECT_EQ(stringOf("\xE0\x9F\xBF"), "\"" + bad + bad + bad + "\"");
  EXPECT_EQ(stringOf("\xED\xA0\x80"), "\"" + bad + bad + bad + "\"");
  EXPECT_EQ(stringOf("\xF0\x8F\xBF\xBF"), "\"" + bad + bad + bad + bad + "\"");
  EXPECT_EQ(stringOf("\xF4\x90\x80\x80"), "\"" + bad + bad + bad + bad + "\"");
  EXPECT_EQ(stringOf("\xF5\x80\x80\x80"), "\"" + bad + bad + bad + bad + "\"");
}

TEST(JsonText, EveryByteStringBecomesReadableJson) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const char text[] = {static_cast<char>(first), static_cast<char>(second)};
      ASSERT_NO_THROW(parseJson(stringOf({text, 2}))) << first << " " << second;
    }
  }
}

TEST(JsonText, LongTextsAreShortenedBetweenCharacters) {
  EXPECT_EQ(quotedText(std::string(80, 'x')), "\"" + std::string(80, 'x') + "\"");
  EXPECT_EQ(quotedText(std::string(81, 'x')), "\"" + std::string(80, 'x') + "\"...");
  EXPECT_EQ(quotedText(std::string(79, 'x') + "\xC3\xA9"), "\"" + std::string(79, 'x') + "\"...");
  EXPECT_EQ(quotedText("a\nb"), R"("a\nb")");
}
