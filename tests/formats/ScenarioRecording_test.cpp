#include "formats/recording/OpenRecording.h"
#include "formats/recording/ScenarioRecording.h"
#include "InputErrorOf.h"
#include "PlayedTo.h"
#include "TempFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace gk::formats;
using testing::ElementsAre;

namespace {

std::string scenarioErrorOf(std::string_view content) {
  return inputErrorOf(".jsonl", content);
}

} // namespace

TEST(ScenarioRecording, LinesWithoutTimeComeBeforeLoading) {
  const TempFile file(".jsonl", R"(# a scenario
{"set": {"float/a": 1}}

{"unset": ["Device/*"]}
{"fail": {"operation": "getProxy"}}
{"t": 0.5, "exit": true}
)");
  const auto sut = openRecording(file.path(), testKeyType);
  ASSERT_EQ(sut->preload().size(), 3U);
  EXPECT_TRUE(std::holds_alternative<SetAction>(sut->preload()[0]));
  EXPECT_TRUE(std::holds_alternative<UnsetAction>(sut->preload()[1]));
  EXPECT_TRUE(std::holds_alternative<FailAction>(sut->preload()[2]));
  EXPECT_EQ(sut->time(), 500'000);
}

TEST(ScenarioRecording, LinesArePlayedInOrder) {
  const TempFile file(".jsonl", "{\"t\":0,\"get\":[\"a\"]}\n{\"t\":1,\"get\":[\"b\"]}\n"
                                "{\"t\":1,\"get\":[\"c\"]}\n");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  sut->play(target);
  EXPECT_EQ(sut->time(), 1'000'000);
  sut->skip();
  EXPECT_EQ(sut->time(), 1'000'000);
  sut->play(target);
  EXPECT_EQ(sut->time(), std::nullopt);
  ASSERT_EQ(target.actions.size(), 2U);
  EXPECT_THAT(std::get<GetAction>(target.actions[0]).keys, ElementsAre("a"));
  EXPECT_THAT(std::get<GetAction>(target.actions[1]).keys, ElementsAre("c"));
}

TEST(ScenarioRecording, AnEmptyFileIsAScenarioWithoutLines) {
  const TempFile file(".jsonl", "");
  const auto sut = openRecording(file.path(), testKeyType);
  EXPECT_EQ(sut->time(), std::nullopt);
  EXPECT_TRUE(sut->preload().empty());
}

TEST(ScenarioRecording, BlankLinesAndCommentsAreSkippedAndCounted) {
  EXPECT_EQ(scenarioErrorOf("# {\n\n  \t \r\n#\n{\"t\":0}\n"), "5: the line has no action");
}

TEST(ScenarioRecording, OnlyALineThatBeginsSoIsAComment) {
  EXPECT_EQ(scenarioErrorOf(" # no comment\n"), "1: column 2: syntax error");
}

TEST(ScenarioRecording, TimesDoNotGoBack) {
  EXPECT_EQ(
      scenarioErrorOf("{\"t\":1,\"get\":[]}\n{\"t\":1.0,\"get\":[]}\n{\"t\":0.5,\"get\":[]}\n"),
      "3: time goes back from 1 to 0.5");
}

TEST(ScenarioRecording, TimesAreFiniteAndNotNegative) {
  EXPECT_EQ(scenarioErrorOf("{\"t\":-1,\"get\":[]}\n"), "1: time -1 is negative");
  EXPECT_EQ(scenarioErrorOf("{\"t\":1e400,\"get\":[]}\n"), "1: time inf is too large");
  EXPECT_EQ(scenarioErrorOf("{\"t\":4000000000001,\"get\":[]}\n"),
            "1: time 4000000000001 is too large");
}

TEST(ScenarioRecording, ALineWithoutTimeAfterOneWithTimeIsAnError) {
  EXPECT_EQ(scenarioErrorOf("{\"t\":0,\"get\":[]}\n{\"set\":{}}\n"),
            "2: a line without \"t\" after one with \"t\"");
}

TEST(ScenarioRecording, ErrorsOfALineNameIt) {
  EXPECT_EQ(scenarioErrorOf("{\"t\":0,\"set\":{\"float/a\":\"x\"}}\n"),
            "1: key \"float/a\": takes a float, not \"x\"");
  EXPECT_EQ(scenarioErrorOf("{\"set\":{}}\n{\"t\":0,\"jump\":1}\n"),
            "2: unknown action or member \"jump\"");
}

TEST(ScenarioRecording, AnErrorInTheNextLineComesAfterTheCurrentOneWasPlayed) {
  const TempFile file(".jsonl", "{\"t\":0,\"get\":[\"a\"]}\nnonsense\n");
  const auto sut = openRecording(file.path(), testKeyType);
  PlayedTo target;
  EXPECT_THROW(sut->play(target), InputError);
  EXPECT_EQ(target.actions.size(), 1U);
  EXPECT_EQ(sut->time(), std::nullopt);
}
