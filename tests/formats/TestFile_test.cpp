#include "formats/recording/TestFile.h"
#include "InputErrorOf.h"

#include <gtest/gtest.h>

namespace {

using namespace gk::formats;

std::string testFileErrorOf(std::string_view content, bool isCompanion) {
  const TempFile file(".jsonl", content);
  try {
    readTestFile(file.path(), isCompanion);
  } catch (const InputError& error) {
    return std::string(error.what()).substr(file.path().size() + 1);
  }
  ADD_FAILURE() << "no error in " << content;
  return {};
}

} // namespace

TEST(TestFile, ExpectationsAreFoundBetweenActionsWithFileAndLine) {
  const TempFile file(".jsonl", R"(# first
{"options":["--until","3"]}
{"t":1,"get":["K"]}
{"expect":{"event":"X","count":1}}

{"t":1.5,"expect":{"event":"X"}}
{"t":2,"end":true}
)");
  const TestFile found = readTestFile(file.path(), false);
  ASSERT_EQ(found.expectations.size(), 2U);
  EXPECT_EQ(found.expectations[0].file, file.path());
  EXPECT_EQ(found.expectations[0].line, 4U);
  EXPECT_EQ(found.expectations[0].time, std::nullopt);
  EXPECT_EQ(found.expectations[1].line, 6U);
  EXPECT_EQ(found.expectations[1].time, 1'500'000);
  ASSERT_TRUE(found.options);
  EXPECT_EQ(found.options->line, 2U);
  EXPECT_TRUE(found.hasEnd);
  EXPECT_TRUE(hasExpectations(file.path()));
}

TEST(TestFile, MalformedExpectationsAreToldBeforeTheRun) {
  EXPECT_EQ(testFileErrorOf("{\"t\":1,\"get\":[]}\n{\"t\":1,\"expect\":{}}\n", false),
            "2: \"expect\" takes an \"event\", a \"log\", a \"key\", an \"order\" or a \"call\"");
  EXPECT_EQ(testFileErrorOf("{\"t\":2,\"expect\":{\"event\":\"X\"}}\n"
                            "{\"t\":1,\"expect\":{\"event\":\"X\"}}\n",
                            false),
            "2: time goes back from 2 to 1");
}

TEST(TestFile, OtherMalformedLinesOfAScenarioAreLeftToWhoPlaysIt) {
  const TempFile file(".jsonl", "{\"expect\"\n{\"t\":1,\"jump\":\"never\"}\n");
  EXPECT_TRUE(readTestFile(file.path(), false).expectations.empty());
  EXPECT_FALSE(hasExpectations(file.path()));
}

TEST(TestFile, ACompanionHoldsNothingElse) {
  EXPECT_EQ(testFileErrorOf("{\"t\":1,\"get\":[]}\n", true), std::string("1: ") + kNoExpectation);
  EXPECT_EQ(testFileErrorOf("{\"expect\"\n", true).substr(0, 3), "1: ");
  EXPECT_EQ(testFileErrorOf("{\"t\":1,\"end\":true}\n{\"options\":[]}\n", true),
            std::string("2: ") + kLateOptions);
}

TEST(TestFile, FilesBesideAnInputAreNamedByItsStem) {
  for (const char* ending : {".jsonl", ".jsonl.gz", ".csv", ".csv.gz", ".mcap"}) {
    EXPECT_EQ(companionOf("a.b/walk" + std::string(ending)), "a.b/walk.expect.jsonl");
    EXPECT_EQ(goldenOf("a.b/walk" + std::string(ending)), "a.b/walk.expected.jsonl");
    EXPECT_TRUE(isInputName("walk" + std::string(ending)));
  }
  EXPECT_FALSE(isInputName("walk.expect.jsonl"));
  EXPECT_FALSE(isInputName("walk.expected.jsonl"));
  EXPECT_FALSE(isInputName("walk.expected.jsonl.new"));
  EXPECT_TRUE(isScenarioName("walk.jsonl.gz"));
  EXPECT_FALSE(isScenarioName("walk.csv"));
}

TEST(TestFile, WhatLiesBesideAnInputIsNone) {
  for (const char* ending : {".expect.jsonl", ".expected.jsonl"}) {
    EXPECT_EQ(inputErrorOf(ending, "{}\n"),
              " lies beside an input with what is expected of it, and is none");
  }
}

TEST(TestFile, AScenarioIsPlayedPastItsExpectations) {
  const TempFile file(".jsonl", R"({"options":[]}
{"set":{}}
{"expect":{"call":"L"}}
{"t":1,"expect":{"event":"X"}}
{"t":1,"get":["K"]}
{"t":3,"end":true}
{"t":3.5,"never":{"event":"X"}}
)");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  EXPECT_EQ(sut->preload().size(), 1U);
  EXPECT_EQ(sut->time(), 1'000'000);
  sut->play(target);
  EXPECT_EQ(sut->time(), 3'000'000);
  sut->play(target);
  EXPECT_EQ(sut->time(), std::nullopt);
  EXPECT_EQ(target.actions.size(), 1U); // Nothing is carried out at the end.
}

TEST(TestFile, ExpectationsKeepTheOrderOfTheLinesAroundThem) {
  EXPECT_EQ(
      inputErrorOf(".jsonl", "{\"t\":2,\"get\":[]}\n{\"t\":1,\"expect\":{\"event\":\"X\"}}\n"),
      "2: time goes back from 2 to 1");
  EXPECT_EQ(inputErrorOf(".jsonl", "{\"t\":2,\"expect\":{\"event\":\"X\"}}\n{\"set\":{}}\n"),
            "2: a line without \"t\" after one with \"t\"");
  EXPECT_EQ(inputErrorOf(".jsonl", "{\"set\":{}}\n{\"options\":[]}\n"),
            std::string("2: ") + kLateOptions);
}
