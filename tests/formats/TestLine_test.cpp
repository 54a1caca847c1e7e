#include "formats/lines/ExpectationText.h"
#include "formats/lines/ExpectedValue.h"
#include "formats/lines/TestLine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace gk::formats;
using namespace gk::messages;
using GK::GKValue;
using Subject = Expectation::Subject;

Expectation expectationOf(const std::string& text) {
  const std::optional<TestLine> line = readTestLine(text);
  Expectation expectation = std::get<Expectation>(line.value().what);
  if (line->time) {
    expectation.time = static_cast<GK::GKMicros>(std::llround(*line->time * 1e6));
  }
  return expectation;
}

std::string testLineErrorOf(const std::string& text) {
  try {
    readTestLine(text);
  } catch (const FormatError& error) {
    return error.what();
  }
  ADD_FAILURE() << "no error in " << text;
  return {};
}

/// A value as a scenario writes it.
ExpectedValue valueOf(const std::string& members) {
  return expectationOf(R"({"t":0,"expect":{"key":"K",)" + members + "}}").value;
}

} // namespace

TEST(TestLine, OtherLinesAreNone) {
  for (const char* text :
       {R"({"t":1,"get":["expected"]})", R"({"t":1,"exit":true})", R"({"set":{"end":1}})"}) {
    EXPECT_EQ(readTestLine(text), std::nullopt) << text;
  }
  EXPECT_FALSE(mayBeTestLine(R"({"t":1,"get":["robotPose"]})"));
  EXPECT_TRUE(mayBeTestLine(R"({"t":1,"\u0065xpect":{}})"));
}

TEST(TestLine, EachKindIsReadWithItsDefaults) {
  const Expectation event = expectationOf(R"({"t":2,"expect":{"event":"X"}})");
  EXPECT_EQ(event.subject, Subject::Event);
  EXPECT_EQ(event.name, "X");
  EXPECT_EQ(event.span, 100'000);
  EXPECT_TRUE(event.value.isAny());
  EXPECT_FALSE(event.isNever);

  const Expectation log =
      expectationOf(R"({"t":2,"expect":{"log":"text","level":3,"within":0.5}})");
  EXPECT_EQ(log.subject, Subject::Log);
  EXPECT_EQ(log.level, 3);
  EXPECT_EQ(log.span, 500'000);

  const Expectation never = expectationOf(R"({"never":{"event":"X","value":1.0}})");
  EXPECT_TRUE(never.isNever);
  EXPECT_EQ(never.span, std::nullopt);

  const Expectation key = expectationOf(R"({"t":1,"expect":{"key":"K","absent":true,"for":2}})");
  EXPECT_EQ(key.subject, Subject::Key);
  EXPECT_TRUE(key.isAbsent);
  EXPECT_EQ(key.span, 2'000'000);

  const Expectation count = expectationOf(R"({"expect":{"event":"X","count":3}})");
  EXPECT_EQ(count.subject, Subject::Count);
  EXPECT_EQ(count.atLeast, 3U);
  EXPECT_EQ(count.atMost, 3U);

  EXPECT_EQ(expectationOf(R"({"expect":{"order":["A","B"]}})").order,
            (std::vector<std::string>{"A", "B"}));
  EXPECT_EQ(expectationOf(R"({"expect":{"call":"L","error":"why"}})").error, "why");
}

TEST(TestLine, EndAndOptionsAreRead) {
  const std::optional<TestLine> end = readTestLine(R"({"t":3.5,"end":true})");
  ASSERT_TRUE(end);
  EXPECT_EQ(end->time, 3.5);
  EXPECT_TRUE(std::holds_alternative<EndMark>(end->what));

  const std::optional<TestLine> line = readTestLine(
      R"({"options":["--subscribe","GKSonar"],"exit":1,"error":"why","stdout":"said"})");
  ASSERT_TRUE(line);
  const auto& options = std::get<FileOptions>(line->what);
  EXPECT_EQ(options.words, (std::vector<std::string>{"--subscribe", "GKSonar"}));
  EXPECT_EQ(options.exit, 1);
  EXPECT_EQ(options.error, "why");
  EXPECT_EQ(options.out, "said");
}

TEST(TestLine, MalformedOnesSayWhatIsWrong) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"({"t":1,"expect":[]})", "\"expect\" takes an object"},
      {R"({"t":1,"expect":{}})",
       "\"expect\" takes an \"event\", a \"log\", a \"key\", an \"order\" or a \"call\""},
      {R"({"t":1,"never":{"key":"K"}})", "\"never\" takes an \"event\" or a \"log\""},
      {R"({"t":1,"never":{"event":"X","count":3}})",
       "\"never\" of an event: unknown member \"count\""},
      {R"({"t":1,"expect":{"event":"X","key":"K"}})", "\"expect\" has \"event\" and \"key\""},
      {R"({"t":1,"expect":{"event":"X","for":1}})",
       "\"expect\" of an event: unknown member \"for\""},
      {R"({"t":1,"expect":{"event":3}})", "\"expect\": \"event\" takes a string"},
      {R"({"t":1,"expect":{"event":"X","within":-1}})",
       "\"expect\": \"within\" takes seconds from 0 on"},
      {R"({"t":1,"expect":{"event":"X","within":"1"}})", "\"expect\": \"within\" takes a number"},
      {R"({"t":1,"expect":{"event":"X","tolerance":1}})",
       "\"expect\": \"tolerance\" needs a \"value\""},
      {R"({"t":1,"expect":{"event":"X","value":1,"tolerance":-0.5}})",
       "\"expect\": \"tolerance\" is not negative"},
      {R"({"t":1,"expect":{"event":"X","value":{"a":1}}})",
       "\"expect\": \"value\" an object is no value, except {\"float\": \"nan\"}, \"inf\" or "
       "\"-inf\""},
      {R"({"expect":{"event":"X"}})", "\"expect\" of an event needs a time \"t\""},
      {R"({"expect":{"log":"X"}})", "\"expect\" of a log line needs a time \"t\""},
      {R"({"expect":{"key":"X","value":1}})", "\"expect\" of a key needs a time \"t\""},
      {R"({"t":1,"expect":{"event":"X","count":1}})",
       "\"expect\" of a count takes no \"t\": it is about the whole run"},
      {R"({"t":1,"expect":{"order":["A"]}})",
       "\"expect\" of an order takes no \"t\": it is about the whole run"},
      {R"({"t":1,"expect":{"call":"A"}})",
       "\"expect\" of a call takes no \"t\": it is about the whole run"},
      {R"({"never":{"event":"X","for":1}})", "\"never\": \"for\" needs a time \"t\""},
      {R"({"t":1,"expect":{"key":"K"}})",
       "\"expect\" of a key takes \"value\", or \"above\" and \"below\", or \"absent\""},
      {R"({"t":1,"expect":{"key":"K","value":1,"above":1}})",
       "\"expect\" of a key takes \"value\", or \"above\" and \"below\", or \"absent\""},
      {R"({"t":1,"expect":{"key":"K","absent":true,"below":1}})",
       "\"expect\" of a key takes \"value\", or \"above\" and \"below\", or \"absent\""},
      {R"({"t":1,"expect":{"key":"K","absent":false}})", "\"expect\": \"absent\" takes true"},
      {R"({"t":1,"expect":{"log":"L","level":7}})",
       "\"expect\": \"level\" is 1 (fatal) to 6 (debug)"},
      {R"({"expect":{"event":"X","count":1,"atLeast":1}})",
       "\"expect\": \"count\" goes with neither \"atLeast\" nor \"atMost\""},
      {R"({"expect":{"event":"X","atLeast":2,"atMost":1}})",
       "\"expect\": \"atLeast\" is more than \"atMost\""},
      {R"({"expect":{"event":"X","count":1.5}})",
       "\"expect\": \"count\" takes an int of 32 bits from 0 on"},
      {R"({"expect":{"order":[]}})", "\"expect\": \"order\" takes an array of names"},
      {R"({"expect":{"order":["A",1]}})", "\"expect\": \"order\" takes an array of names"},
      {R"({"expect":{"call":"L","error":"e","value":1}})",
       "\"expect\" of a call takes \"value\" or \"error\""},
      {R"({"t":"1","expect":{"event":"X"}})", "\"t\" takes seconds as a number"},
      {R"({"t":1,"end":false})", "\"end\" takes true"},
      {R"({"end":true})", "\"end\" needs a time \"t\""},
      {R"({"t":1,"set":{},"expect":{"event":"X"}})",
       "\"expect\" stands in a line of its own, without \"set\""},
      {R"({"options":"--only"})", "\"options\" takes an array of strings"},
      {R"({"options":[1]})", "\"options\" takes an array of strings"},
      {R"({"options":[],"exit":true})", "\"exit\" of options takes an exit code, 0 to 255"},
      {R"({"options":[],"t":1})", "a line of options has no \"t\""},
  };
  for (const auto& [text, error] : cases) {
    EXPECT_EQ(testLineErrorOf(text), error) << text;
  }
}

TEST(TestLine, AMalformedExpectationIsOneNevertheless) {
  EXPECT_TRUE(isExpectation(R"({"t":1,"expect":[]})"));
  EXPECT_TRUE(isExpectation(R"({"never":{}})"));
  EXPECT_FALSE(isExpectation(R"({"t":1,"end":true})"));
  EXPECT_FALSE(isExpectation(R"({"expect")"));
}

TEST(ExpectedValue, NumbersAreEqualWhateverTheirType) {
  EXPECT_TRUE(marginOf(valueOf(R"("value":3)"), GKValue(3.0F)));
  EXPECT_TRUE(marginOf(valueOf(R"("value":3.0)"), GKValue(3)));
  EXPECT_FALSE(marginOf(valueOf(R"("value":3)"), GKValue(3.5F)));
  EXPECT_FALSE(marginOf(valueOf(R"("value":1)"), GKValue(true)));
  EXPECT_FALSE(marginOf(valueOf(R"("value":1)"), GKValue("1")));
  EXPECT_TRUE(marginOf(valueOf(R"("value":-0.0)"), GKValue(0.0F)));
}

TEST(ExpectedValue, NumbersAreRoundedToFloatOnce) {
  EXPECT_TRUE(marginOf(valueOf(R"("value":0.1)"), GKValue(0.1F)));
  // 2^24 + 1 is no float; as an int it is itself.
  EXPECT_TRUE(marginOf(valueOf(R"("value":16777217)"), GKValue(16777216.0F)));
  EXPECT_TRUE(marginOf(valueOf(R"("value":16777217)"), GKValue(16777217)));
  EXPECT_FALSE(marginOf(valueOf(R"("value":16777217)"), GKValue(16777216)));
}

TEST(ExpectedValue, NotANumberEqualsItselfAndInfinitiesDo) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  EXPECT_TRUE(marginOf(valueOf(R"("value":{"float":"nan"})"), GKValue(nan)));
  EXPECT_FALSE(marginOf(valueOf(R"("value":{"float":"nan"})"), GKValue(0.0F)));
  EXPECT_FALSE(marginOf(valueOf(R"("value":0.0,"tolerance":1)"), GKValue(nan)));
  EXPECT_TRUE(marginOf(valueOf(R"("value":{"float":"inf"})"), GKValue(inf)));
  EXPECT_FALSE(marginOf(valueOf(R"("value":{"float":"inf"})"), GKValue(-inf)));
  EXPECT_FALSE(marginOf(valueOf(R"("above":1)"), GKValue(nan)));
}

TEST(ExpectedValue, ToleranceIsInclusiveAndLimitsAreNot) {
  const float above = std::nextafter(1.5F, 2.0F);
  const float below = std::nextafter(1.5F, 1.0F);
  EXPECT_EQ(marginOf(valueOf(R"("value":1.0,"tolerance":0.5)"), GKValue(1.5F)), 0.0);
  EXPECT_EQ(marginOf(valueOf(R"("value":1.0,"tolerance":0.5)"), GKValue(1.25F)), 0.25);
  EXPECT_FALSE(marginOf(valueOf(R"("value":1.0,"tolerance":0.5)"), GKValue(above)));
  EXPECT_FALSE(marginOf(valueOf(R"("above":1.5)"), GKValue(1.5F)));
  EXPECT_TRUE(marginOf(valueOf(R"("above":1.5)"), GKValue(above)));
  EXPECT_FALSE(marginOf(valueOf(R"("below":1.5)"), GKValue(1.5F)));
  EXPECT_TRUE(marginOf(valueOf(R"("below":1.5)"), GKValue(below)));
  EXPECT_EQ(marginOf(valueOf(R"("above":1,"below":4)"), GKValue(2)), 1.0);
  EXPECT_FALSE(marginOf(valueOf(R"("above":1)"), GKValue("2")));
}

TEST(ExpectedValue, ArraysAreComparedElementByElement) {
  const GKValue found(GKValue::Array{GKValue(1), GKValue(2.5F), GKValue("x")});
  EXPECT_TRUE(marginOf(valueOf(R"("value":[1.0,2.5,"x"])"), found));
  EXPECT_TRUE(marginOf(valueOf(R"("value":[1,2.4,"x"],"tolerance":0.2)"), found));
  EXPECT_FALSE(marginOf(valueOf(R"("value":[1,2.4,"x"])"), found));
  EXPECT_FALSE(marginOf(valueOf(R"("value":[1,2.5])"), found));
  EXPECT_FALSE(marginOf(valueOf(R"("value":1)"), found));
}

TEST(ExpectationText, TellsWhatIsExpected) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"({"t":2,"expect":{"event":"X","value":1.0}})", "X 1.0 within 0.1 s of 2.000"},
      {R"({"t":2,"expect":{"event":"X","value":"Belly","within":2}})",
       "X \"Belly\" within 2 s of 2.000"},
      {R"({"t":0.6,"never":{"event":"X","for":0.4}})", "no X from 0.600 to 1.000 s"},
      {R"({"t":0.6,"never":{"log":"L","level":2}})",
       "no log line \"L\" of level 2 from 0.600 s on"},
      {R"({"never":{"event":"X"}})", "no X"},
      {R"({"t":2.01,"expect":{"key":"K","value":0.75}})", "K 0.75 at 2.010 s"},
      {R"({"t":2.01,"expect":{"key":"K","value":0.75,"tolerance":0.5,"for":1}})",
       "K 0.75 ± 0.5 from 2.010 to 3.010 s"},
      {R"({"t":0.0000015,"expect":{"key":"K","above":1,"below":2}})",
       "K above 1.0 and below 2.0 at 0.000002 s"},
      {R"({"t":1,"expect":{"key":"K","absent":true}})", "no K at 1.000 s"},
      {R"({"t":1,"expect":{"key":"K","value":{"float":"nan"}}})", "K nan at 1.000 s"},
      {R"({"expect":{"event":"X","count":3}})", "3 of X"},
      {R"({"expect":{"event":"X","atLeast":3,"value":1}})", "at least 3 of X 1"},
      {R"({"expect":{"event":"X","atMost":3}})", "at most 3 of X"},
      {R"({"expect":{"event":"X","atLeast":1,"atMost":3}})", "1 to 3 of X"},
      {R"({"expect":{"order":["A","B"]}})", "A, B in this order"},
      {R"({"expect":{"call":"L"}})", "call L to return"},
      {R"({"expect":{"call":"L","value":57}})", "call L to return 57"},
      {R"({"expect":{"call":"L","error":"why"}})", "call L to fail with \"why\""},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(expectedText(expectationOf(text), 0), expected) << text;
  }
  EXPECT_EQ(expectedText(expectationOf(R"({"t":2,"expect":{"event":"X"}})"), 40'000'000),
            "X within 0.1 s of 42.000");
}
