#include "formats/recording/TestFile.h"
#include "gk/GKClock.h"
#include "runtime/expect/Judge.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// A run as a judge sees it, made by hand: times in milliseconds.

namespace {

using GK::GKMicros;
using GK::GKNotice;
using GK::GKValue;
using gk::runtime::Answer;
using gk::runtime::Judge;
using gk::runtime::JudgeOptions;
using gk::runtime::Verdict;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr GKMicros kMs = 1000;

class JudgeTest : public testing::Test {
protected:
  /// One line of expectation each.
  void expectOf(const std::vector<std::string>& lines, JudgeOptions options = {}) {
    std::string text;
    for (const std::string& line : lines) {
      text += line + "\n";
    }
    gk::test::writeFile(fFile, text);
    fJudge = std::make_unique<Judge>(gk::formats::readTestFile(fFile, false).expectations, options,
                                     [this](Verdict verdict) { take(std::move(verdict)); });
    fJudge->setMemory([this](const std::string& key) {
      const auto found = keys.find(key);
      return found == keys.end() ? std::nullopt : std::optional<GKValue>(found->second);
    });
  }

  /// Something happens at this time, as the virtual clock shows it.
  void at(GKMicros ms) {
    fNow = ms * kMs;
    fJudge->onTime(fNow);
  }
  void raise(GKMicros ms, const std::string& name, const GKValue& value) {
    at(ms);
    GKNotice notice;
    notice.kind = GKNotice::Kind::Event;
    notice.time = fNow;
    notice.name = name;
    notice.value = value;
    fJudge->onNotice(notice);
  }
  void log(GKMicros ms, int level, const std::string& text) {
    at(ms);
    GKNotice notice;
    notice.kind = GKNotice::Kind::Log;
    notice.time = fNow;
    notice.level = level;
    notice.text = text;
    fJudge->onNotice(notice);
  }
  void tick(GKMicros ms) {
    at(ms);
    fJudge->onTick(fNow, GK::GKTask{"GKSensors", "run"});
  }
  void finish(GKMicros ms) {
    fJudge->onEnd(ms * kMs);
    fJudge->finish();
  }

  /// What does not hold, without its file: "LINE: text".
  std::vector<std::string> failures() const {
    std::vector<std::string> texts;
    for (const Verdict& verdict : verdicts) {
      if (!verdict.holds) {
        texts.push_back(std::to_string(verdict.line) + ": " + verdict.text);
      }
    }
    return texts;
  }

  std::map<std::string, GKValue> keys;
  std::vector<Verdict> verdicts;
  std::unique_ptr<Judge> fJudge;

private:
  void take(Verdict verdict) {
    EXPECT_EQ(verdict.file, fFile);
    verdicts.push_back(std::move(verdict));
  }

  const gk::test::TemporaryFolder fFolder;
  const std::string fFile = fFolder.file("test.jsonl");
  GKMicros fNow = 0;
};

using JudgeOfEvents = JudgeTest;
using JudgeOfKeys = JudgeTest;
using JudgeOfCalls = JudgeTest;
using JudgeOfRounds = JudgeTest;
using JudgeInRealTime = JudgeTest;

TEST_F(JudgeOfEvents, AWindowIsClosedAtBothEnds) {
  const std::string line = R"({"t":2,"expect":{"event":"X","value":1.0}})";
  for (const GKMicros time : {2000, 2050, 2100}) {
    verdicts.clear();
    expectOf({line});
    raise(time, "X", 1.0F);
    finish(3000);
    EXPECT_THAT(failures(), IsEmpty()) << time;
  }
  for (const GKMicros time : {1999, 2101}) {
    verdicts.clear();
    expectOf({line});
    raise(time, "X", 1.0F);
    finish(3000);
    EXPECT_EQ(failures().size(), 1U) << time;
  }
}

TEST_F(JudgeOfEvents, TheMarginIsWhatIsLeftOfTheWindow) {
  expectOf({R"({"t":2,"expect":{"event":"X","within":0.1}})"});
  raise(2063, "X", 1);
  finish(3000);
  ASSERT_EQ(verdicts.size(), 1U);
  EXPECT_NEAR(verdicts[0].secondsLeft.value(), 0.037, 1e-9);
  EXPECT_EQ(verdicts[0].text, "X within 0.1 s of 2.000: X 1 at 2.063 s");
}

TEST_F(JudgeOfEvents, OneWithAnotherValueInTheWindowIsNearest) {
  expectOf({R"({"t":2,"expect":{"event":"X","value":5}})"});
  raise(1990, "X", 5);
  raise(2010, "X", 1);
  raise(2020, "X", 4); // nearer in value
  raise(2030, "X", 9);
  raise(2101, "X", 5);
  finish(3000);
  EXPECT_THAT(failures(), ElementsAre("1: expected X 5 within 0.1 s of 2.000, but X 4 at 2.020 s"));
}

TEST_F(JudgeOfEvents, OtherwiseTheOneThatIsNearestInTime) {
  const std::string line = R"({"t":2,"expect":{"event":"X","value":5}})";
  expectOf({line});
  raise(1990, "X", 5);
  raise(2105, "X", 5);
  finish(3000);
  expectOf({line});
  raise(1990, "X", 5);
  raise(2500, "X", 5);
  finish(3000);
  expectOf({line});
  raise(1500, "X", 7);
  raise(2500, "X", 6);
  finish(3000);
  EXPECT_THAT(failures(), ElementsAre("1: expected X 5 within 0.1 s of 2.000, but X 5 at 2.105 s",
                                      "1: expected X 5 within 0.1 s of 2.000, but X 5 at 1.990 s",
                                      "1: expected X 5 within 0.1 s of 2.000, but X 6 at 2.500 s"));
}

TEST_F(JudgeOfEvents, ANameThatNeverCameIsToldWithTheNearest) {
  expectOf({R"({"t":1,"expect":{"event":"FrontTouced"}})",
            R"({"expect":{"event":"FrontTouced","count":1}})"});
  raise(1000, "FrontTouched", 1);
  finish(3000);
  EXPECT_THAT(failures(), ElementsAre("1: expected FrontTouced within 0.1 s of 1.000, but it was "
                                      "never raised; did you mean FrontTouched?",
                                      "2: expected 1 of FrontTouced, but 0; did you mean "
                                      "FrontTouched?"));
}

TEST_F(JudgeOfEvents, ARunThatEndsBeforeTheWindowFails) {
  expectOf({R"({"t":0.45,"expect":{"event":"X"}})", R"({"t":0.45,"never":{"event":"X","for":1}})",
            R"({"t":2,"expect":{"event":"X"}})"});
  raise(440, "X", 1);
  finish(500);
  EXPECT_THAT(failures(),
              ElementsAre("1: expected X within 0.1 s of 0.450, but the run ended at 0.500 s",
                          "3: expected X within 0.1 s of 2.000, but the run ended at 0.500 s"));
  EXPECT_EQ(verdicts.size(), 3U);
}

TEST_F(JudgeOfEvents, OneThatCameBeforeTheRunEndedHolds) {
  expectOf({R"({"t":0.45,"expect":{"event":"X"}})"});
  raise(490, "X", 1);
  finish(500);
  EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(JudgeOfEvents, NeverTellsTheFirst) {
  expectOf({R"({"t":0.6,"never":{"event":"X","for":0.4}})", R"({"never":{"event":"X","value":2}})",
            R"({"t":0.6,"never":{"event":"X"}})"});
  raise(599, "X", 1);
  EXPECT_THAT(failures(), IsEmpty());
  raise(980, "X", 0.0F);
  raise(990, "X", 2);
  finish(2000);
  EXPECT_THAT(failures(),
              ElementsAre("1: expected no X from 0.600 to 1.000 s, but X 0.0 at 0.980 s",
                          "3: expected no X from 0.600 s on, but X 0.0 at 0.980 s",
                          "2: expected no X 2, but X 2 at 0.990 s"));
}

TEST_F(JudgeOfEvents, NeverHoldsOutsideOfItsWindow) {
  expectOf({R"({"t":1,"never":{"event":"X","for":1}})"});
  raise(999, "X", 1);
  raise(2001, "X", 1);
  finish(3000);
  EXPECT_THAT(failures(), IsEmpty());
  EXPECT_EQ(verdicts.size(), 1U);
}

TEST_F(JudgeOfEvents, LogLinesAreFoundByAPartOfTheirTextAndTheirLevel) {
  expectOf({R"({"t":1,"expect":{"log":"no conn","level":2}})",
            R"({"t":1,"expect":{"log":"no conn","level":3}})",
            R"({"t":1,"never":{"log":"no conn"}})", R"({"t":1,"expect":{"log":"silence"}})"});
  log(1010, 3, "there is no connection");
  finish(2000);
  EXPECT_THAT(failures(),
              ElementsAre("3: expected no log line \"no conn\" from 1.000 s on, but log "
                          "line \"there is no connection\" of level 3 at 1.010 s",
                          "1: expected log line \"no conn\" of level 2 within 0.1 s of "
                          "1.000, but log line \"there is no connection\" of level 3 "
                          "at 1.010 s",
                          "4: expected log line \"silence\" within 0.1 s of 1.000, but "
                          "it was never logged"));
}

TEST_F(JudgeOfEvents, CountsAreOfTheWholeRun) {
  expectOf({R"({"expect":{"event":"X","count":3}})", R"({"expect":{"event":"X","atLeast":2}})",
            R"({"expect":{"event":"X","atMost":1}})",
            R"({"expect":{"event":"X","value":1.0,"tolerance":0.1,"count":1}})",
            R"({"expect":{"event":"Y","count":0}})"});
  raise(0, "X", 1.05F);
  raise(5000, "X", 2);
  finish(5000);
  EXPECT_THAT(failures(),
              ElementsAre("1: expected 3 of X, but 2", "3: expected at most 1 of X, but 2"));
  EXPECT_EQ(verdicts.at(1).margin, 0.0);
}

TEST_F(JudgeOfEvents, AnOrderMayHaveOthersInBetween) {
  expectOf({R"({"expect":{"order":["A","B","A"]}})", R"({"expect":{"order":["B","B"]}})",
            R"({"expect":{"order":["C"]}})"});
  raise(100, "A", 1);
  raise(200, "X", 1);
  raise(300, "B", 1);
  raise(300, "A", 1);
  finish(1000);
  EXPECT_THAT(failures(), ElementsAre("2: expected B, B in this order, but no B after B at 0.300 s",
                                      "3: expected C in this order, but no C"));
}

TEST_F(JudgeOfKeys, AMomentIsOverWhenTimeGoesOn) {
  expectOf({R"({"t":2.01,"expect":{"key":"K","value":0.75}})"});
  keys["K"] = 0.0F;
  at(2010);
  keys["K"] = 0.75F; // the last thing that happens at this time
  at(2020);
  keys["K"] = 0.0F;
  finish(3000);
  EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(JudgeOfKeys, WhatItWasIsTold) {
  expectOf({R"({"t":2.01,"expect":{"key":"K","value":0.75}})",
            R"({"t":2.01,"expect":{"key":"Nobody","value":1}})",
            R"({"t":2.01,"expect":{"key":"K","absent":true}})",
            R"({"t":2.01,"expect":{"key":"Nobody","absent":true}})",
            R"({"t":2.01,"expect":{"key":"K","above":0.0}})",
            R"({"t":2.5,"expect":{"key":"K","value":0}})"});
  keys["K"] = 0.0F;
  at(2010);
  at(2030);
  finish(2400);
  EXPECT_THAT(failures(), ElementsAre("1: expected K 0.75 at 2.010 s, but it was 0.0",
                                      "2: expected Nobody 1 at 2.010 s, but there was no such key",
                                      "3: expected no K at 2.010 s, but it was 0.0",
                                      "5: expected K above 0.0 at 2.010 s, but it was 0.0",
                                      "6: expected K 0 at 2.500 s, but the run ended at 2.400 s"));
}

TEST_F(JudgeOfKeys, ForIsHeldAgainstEveryTickAndOnlyThem) {
  expectOf({R"({"t":1,"expect":{"key":"K","above":1,"for":0.04}})"});
  keys["K"] = 3;
  tick(1000);
  at(1010);
  keys["K"] = 0; // between two ticks
  at(1015);
  keys["K"] = 2;
  tick(1020);
  tick(1040);
  keys["K"] = 0;
  tick(1060);
  finish(2000);
  EXPECT_THAT(failures(), IsEmpty());
  EXPECT_EQ(verdicts.at(0).margin, 1.0);
}

TEST_F(JudgeOfKeys, ForFailsAtTheTickOfItsEndAndAtItsBeginning) {
  expectOf({R"({"t":0.9,"expect":{"key":"K","value":0,"for":0.5}})",
            R"({"t":1,"expect":{"key":"K","value":1,"for":0.04}})"});
  keys["K"] = 1;
  tick(1000);
  tick(1020);
  keys["K"] = 0;
  tick(1040);
  finish(2000);
  EXPECT_THAT(failures(),
              ElementsAre("1: expected K 0 from 0.900 to 1.400 s, but it was 1 at 0.900 s",
                          "2: expected K 1 from 1.000 to 1.040 s, but it was 0 at 1.040 s"));
}

TEST_F(JudgeOfKeys, ForFailsWhenTheRunEndsBefore) {
  expectOf({R"({"t":1,"expect":{"key":"K","value":1,"for":1}})"});
  keys["K"] = 1;
  tick(1000);
  finish(1500);
  EXPECT_THAT(failures(),
              ElementsAre("1: expected K 1 from 1.000 to 2.000 s, but the run ended at 1.500 s"));
}

TEST_F(JudgeOfKeys, TheLastMomentOfARunIsLookedAt) {
  expectOf({R"({"t":1,"expect":{"key":"K","value":1}})"});
  at(1000);
  keys["K"] = 1;
  fJudge->onEnd(1000 * kMs);
  keys["K"] = 0; // while the host goes down
  fJudge->finish();
  EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(JudgeOfKeys, TimeDoesNotGoOnWhileTheHostGoesDown) {
  expectOf({R"({"t":1.01,"expect":{"key":"K","value":1}})",
            R"({"t":1.01,"expect":{"event":"Late"}})", R"({"t":1.01,"expect":{"event":"X"}})"});
  keys["K"] = 1;
  fJudge->onEnd(1000 * kMs);
  raise(1020, "Late", 1);
  at(5000);
  fJudge->finish();
  EXPECT_THAT(failures(),
              ElementsAre("1: expected K 1 at 1.010 s, but the run ended at 1.000 s",
                          "3: expected X within 0.1 s of 1.010, but the run ended at 1.000 s"));
}

class JudgeOfAnswers : public JudgeTest {
protected:
  void call(const std::string& label) { fJudge->onCall(label, ++fCalls); }
  void answer(std::uint64_t number, const std::string& label, const GKValue& value) {
    Answer answer;
    answer.number = number;
    answer.name = label;
    answer.value = value;
    answer.hasValue = true;
    answer.time = 500 * kMs;
    fJudge->onAnswer(answer);
  }
  void refuse(std::uint64_t number, const std::string& label, const std::string& why) {
    Answer answer;
    answer.kind = Answer::Kind::Error;
    answer.number = number;
    answer.name = label;
    answer.error = std::make_unique<GK::GKError>("Module", "method", why);
    fJudge->onAnswer(answer);
  }

private:
  std::uint64_t fCalls = 0;
};

TEST_F(JudgeOfAnswers, ResultsAndErrorsAreHeldAgainstWhatIsExpected) {
  expectOf({R"({"expect":{"call":"a"}})", R"({"expect":{"call":"a","value":57.0}})",
            R"({"expect":{"call":"a","value":56,"tolerance":0.5}})",
            R"({"expect":{"call":"a","error":"why"}})", R"({"expect":{"call":"b"}})",
            R"({"expect":{"call":"b","error":"is why"}})",
            R"({"expect":{"call":"b","error":"because"}})"});
  call("a");
  call("b");
  answer(1, "a", 57);
  refuse(2, "b", "this is why");
  finish(1000);
  EXPECT_THAT(
      failures(),
      ElementsAre("3: expected call a to return 56 ± 0.5, but it returned 57",
                  "4: expected call a to fail with \"why\", but it returned 57",
                  "5: expected call b to return, but it failed: Module::method: this is why",
                  "7: expected call b to fail with \"because\", but it failed: Module::method: "
                  "this is why"));
}

TEST_F(JudgeOfAnswers, TheFirstCallOfALabelCountsWhicheverReturnsFirst) {
  expectOf({R"({"expect":{"call":"a","value":1}})"});
  call("a");
  call("a");
  answer(2, "a", 2);
  answer(1, "a", 1);
  finish(1000);
  EXPECT_THAT(failures(), IsEmpty());
  EXPECT_EQ(verdicts.size(), 1U);
}

TEST_F(JudgeOfAnswers, ACallThatNeverReturnedOrWasNeverMadeFails) {
  expectOf({R"({"expect":{"call":"a"}})", R"({"expect":{"call":"b","error":""}})"});
  call("a");
  finish(1000);
  EXPECT_THAT(failures(),
              ElementsAre("1: expected call a to return, but it never returned",
                          "2: expected call b to fail with \"\", but it was never made"));
}

TEST_F(JudgeOfRounds, EachRoundIsJudgedByItself) {
  expectOf({R"({"t":1,"expect":{"event":"X"}})", R"({"expect":{"event":"X","count":1}})",
            R"({"t":1.5,"expect":{"event":"Y"}})"});
  raise(1050, "X", 1);
  fJudge->onRound(1200 * kMs);
  at(1200);
  EXPECT_THAT(failures(),
              ElementsAre("3: expected Y within 0.1 s of 1.500, but the round ended at 1.200 s"));
  EXPECT_EQ(verdicts.size(), 3U);
  verdicts.clear();
  raise(2301, "X", 1); // 1.101 s of the second round
  raise(2700, "Y", 1);
  finish(3000);
  EXPECT_THAT(failures(), ElementsAre("1: expected X within 0.1 s of 2.200, but X 1 at 2.301 s "
                                      "(round 2)"));
  EXPECT_EQ(verdicts.size(), 2U); // The count is open.
}

TEST_F(JudgeOfRounds, OneThatTheEndCutsShortIsJudgedByWhatIsCertain) {
  expectOf({R"({"t":0.1,"expect":{"event":"X"}})", R"({"t":0.1,"never":{"event":"Z"}})",
            R"({"t":0.6,"expect":{"event":"X"}})",
            R"({"t":0.6,"expect":{"key":"Nobody","value":1}})",
            R"({"expect":{"event":"X","count":1}})", R"({"expect":{"event":"Z","atMost":0}})",
            R"({"expect":{"order":["Y"]}})", R"({"expect":{"call":"L"}})"});
  fJudge->onRound(1000 * kMs);
  at(1000);
  EXPECT_EQ(verdicts.size(), 8U);
  verdicts.clear();
  raise(1200, "Z", 1);
  finish(1500);
  EXPECT_THAT(failures(),
              ElementsAre("2: expected no Z from 1.100 s on, but Z 1 at 1.200 s (round 2)",
                          HasSubstr("1: expected X within 0.1 s of 1.100, but it was never raised"),
                          "6: expected at most 0 of Z, but 1 (round 2)"));
  EXPECT_EQ(verdicts.size(), 3U);
}

TEST_F(JudgeInRealTime, WhatComesATickLateIsStillThere) {
  expectOf({R"({"t":2,"expect":{"event":"X"}})", R"({"t":2,"expect":{"event":"Y"}})",
            R"({"t":2,"never":{"event":"Z","for":1}})"},
           {.isRealTime = true, .isAtOnce = true});
  raise(2015, "Z", 1); // due just before the window
  raise(2120, "X", 1);
  raise(2121, "Y", 1);
  finish(5000);
  EXPECT_THAT(failures(), ElementsAre(HasSubstr(
                              "2: expected Y within 0.1 s of 2.000, but it was never raised")));
}

TEST_F(JudgeInRealTime, ATickIsAsLongAsTheLoopSays) {
  expectOf({R"({"t":2,"expect":{"event":"X"}})"}, {.isRealTime = true, .isAtOnce = true});
  fJudge->onTickTimes({0, 0, 0, 50 * kMs}, GK::GKTask{"GKSensors", "run"});
  // Windows that were there already keep the tick that was known then.
  raise(2120, "X", 1);
  finish(5000);
  EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(JudgeInRealTime, AKeyHasATickToGetItsValue) {
  expectOf(
      {R"({"t":2,"expect":{"key":"K","value":1}})", R"({"t":2,"expect":{"key":"L","value":1}})"},
      {.isRealTime = true, .isAtOnce = true});
  keys["K"] = 0;
  keys["L"] = 0;
  tick(1995);
  tick(2015);
  keys["K"] = 1;
  tick(2035);
  finish(5000);
  EXPECT_THAT(failures(), ElementsAre("2: expected L 1 at 2.000 s, but it was 0"));
}

TEST_F(JudgeInRealTime, FailuresAreToldWhenTheyAreCertain) {
  expectOf({R"({"t":1,"expect":{"event":"X"}})", R"({"expect":{"event":"X","atMost":1}})",
            R"({"t":1,"never":{"event":"X"}})"},
           {.isAtOnce = true});
  raise(900, "X", 1);
  at(1101);
  EXPECT_THAT(failures(), ElementsAre("1: expected X within 0.1 s of 1.000, but X 1 at 0.900 s"));
  raise(1200, "X", 1);
  EXPECT_THAT(failures(), ElementsAre(HasSubstr("1: "), "2: expected at most 1 of X, but 2",
                                      "3: expected no X from 1.000 s on, but X 1 at 1.200 s"));
}

} // namespace
