#include "gk/GKError.h"
#include "gk/GKValue.h"
#include "support/PlatformFixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace GK {
namespace {

using test::errorOf;
using test::IsError;
using test::IsRefusal;

/// One value of each type, in the order of the types.
std::vector<GKValue> oneOfEach() {
  return {GKValue(), true, 7, 1.5f, "text", GKValue::Array{1, 2}};
}

TEST(GKValue, IsInvalidUntilItHoldsSomething) {
  const GKValue sut;

  EXPECT_FALSE(sut.isValid());
  EXPECT_TRUE(GKValue(false).isValid());
}

TEST(GKValue, TypesHaveTheNamesThatErrorTextsUse) {
  std::vector<std::string> names;
  for (const GKValue& sut : oneOfEach()) {
    names.emplace_back(sut.typeName());
  }

  EXPECT_EQ(names,
            (std::vector<std::string>{"invalid", "bool", "int", "float", "string", "array"}));
}

TEST(GKValue, EveryConstructorKeepsTypeAndContent) {
  EXPECT_EQ(GKValue(true).toBool(), true);
  EXPECT_EQ(GKValue(std::numeric_limits<std::int32_t>::min()).toInt(),
            std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(GKValue(0.1f).toFloat(), 0.1f);
  EXPECT_EQ(GKValue("text").toString(), "text");
  EXPECT_EQ(GKValue(std::string_view("view")).toString(), "view");
  EXPECT_EQ(GKValue(std::string("a\0b", 3)).toString(), std::string("a\0b", 3));
  EXPECT_EQ(GKValue(GKValue::Array{1, "x"}).toArray(), (GKValue::Array{1, "x"}));
}

TEST(GKValue, DoubleBecomesTheNearestFloat) {
  const GKValue sut(0.1);

  EXPECT_EQ(sut.type(), GKValue::Type::Float);
  EXPECT_EQ(sut.toFloat(), 0.1f);
}

TEST(GKValue, FloatComesFromAnIntToo) {
  EXPECT_EQ(GKValue(-3).toFloat(), -3.0f);
  // 2^24 + 1 has no float of its own.
  EXPECT_EQ(GKValue(16777217).toFloat(), 16777216.0f);
}

TEST(GKValue, EveryOtherConversionIsRefused) {
  for (const GKValue& sut : oneOfEach()) {
    const std::string name = sut.typeName();
    if (name != "bool") {
      EXPECT_THAT(errorOf([&] { sut.toBool(); }), IsRefusal(name, "bool"));
    }
    if (name != "int") {
      EXPECT_THAT(errorOf([&] { sut.toInt(); }), IsRefusal(name, "int"));
    }
    if (name != "float" && name != "int") {
      EXPECT_THAT(errorOf([&] { sut.toFloat(); }), IsRefusal(name, "float"));
    }
    if (name != "string") {
      EXPECT_THAT(errorOf([&] { sut.toString(); }), IsRefusal(name, "string"));
    }
    if (name != "array") {
      EXPECT_THAT(errorOf([&] { sut.toArray(); }), IsRefusal(name, "array"));
    }
  }
}

TEST(GKValue, OnlyArraysHaveASize) {
  std::vector<std::size_t> sizes;
  for (const GKValue& sut : oneOfEach()) {
    sizes.push_back(sut.size());
  }

  EXPECT_EQ(sizes, (std::vector<std::size_t>{0, 0, 0, 0, 0, 2}));
}

TEST(GKValue, ElementsCanBeReadAndReplaced) {
  GKValue sut(GKValue::Array{1, 2});

  sut[1] = "two";

  EXPECT_EQ(std::as_const(sut)[0], GKValue(1));
  EXPECT_EQ(std::as_const(sut)[1], GKValue("two"));
}

TEST(GKValue, IndexBehindTheEndIsAnError) {
  GKValue sut(GKValue::Array{1, 2});

  EXPECT_THAT(errorOf([&] { sut[2] = 3; }),
              IsError("GKValue", "operator[]", testing::HasSubstr("2")));
  EXPECT_EQ(sut.size(), 2u);
}

TEST(GKValue, IndexIntoSomethingThatIsNoArrayIsRefused) {
  const GKValue sut("text");

  EXPECT_THAT(errorOf([&] { static_cast<void>(sut[0]); }), IsRefusal("string", "array"));
}

TEST(GKValue, ResizingKeepsElementsAndFillsWithInvalid) {
  GKValue sut(GKValue::Array{1, 2});

  sut.arraySetSize(3);
  EXPECT_EQ(sut, GKValue(GKValue::Array{1, 2, GKValue()}));

  sut.arraySetSize(1);
  EXPECT_EQ(sut, GKValue(GKValue::Array{1}));
}

TEST(GKValue, ResizingMakesAnArrayOfAnything) {
  GKValue sut(5);

  sut.arraySetSize(1);

  EXPECT_EQ(sut, GKValue(GKValue::Array{GKValue()}));
}

TEST(GKValue, PushingAppends) {
  GKValue sut;

  sut.arrayPush(1);
  sut.arrayPush(GKValue::Array{2.0f});

  EXPECT_EQ(sut, GKValue(GKValue::Array{1, GKValue::Array{2.0f}}));
}

TEST(GKValue, PushingAnArrayIntoItselfAppendsACopy) {
  GKValue sut(GKValue::Array{1});

  sut.arrayPush(sut);

  EXPECT_EQ(sut, GKValue(GKValue::Array{1, GKValue::Array{1}}));
}

TEST(GKValue, CopiesAreIndependent) {
  const GKValue sut(GKValue::Array{GKValue(GKValue::Array{1}), 5});
  GKValue copy = sut;

  copy[0][0] = 2;

  EXPECT_EQ(sut[0][0], GKValue(1));
}

TEST(GKValue, ValuesOfDifferentTypesDiffer) {
  const std::vector<GKValue> values = oneOfEach();
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t k = 0; k < values.size(); ++k) {
      EXPECT_EQ(values[i] == values[k], i == k) << i << " and " << k;
    }
  }
  EXPECT_FALSE(GKValue(1) == GKValue(1.0f));
  EXPECT_FALSE(GKValue(1) == GKValue(true));
}

TEST(GKValue, FloatsCompareAsFloats) {
  const float nan = std::numeric_limits<float>::quiet_NaN();

  EXPECT_FALSE(GKValue(nan) == GKValue(nan));
  EXPECT_EQ(GKValue(-0.0f), GKValue(0.0f));
  EXPECT_TRUE(std::signbit(GKValue(-0.0f).toFloat()));
}

} // namespace
} // namespace GK
