#include "gateway/stream/ClientQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace gk::gateway {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

Frame frame(std::string text) {
  return {false, std::move(text), nullptr};
}

/// Everything that waits, in the order of delivery.
std::vector<std::string> taken(ClientQueue& sut) {
  std::vector<std::string> texts;
  while (std::optional<Frame> next = sut.take()) {
    texts.push_back(next->head);
  }
  return texts;
}

TEST(ClientQueue, AnswersGoBeforeEventsAndEventsBeforeSamples) {
  ClientQueue sut({});
  sut.setSample(1, frame("sample"));
  sut.addEvent(2, frame("event"));
  ASSERT_TRUE(sut.addAnswer(frame("answer")));
  EXPECT_THAT(taken(sut), ElementsAre("answer", "event", "sample"));
  EXPECT_EQ(sut.bytes(), 0U);
}

TEST(ClientQueue, OnlyTheNewestSampleOfAChannelWaits) {
  ClientQueue sut({});
  sut.setSample(1, frame("a1"));
  sut.setSample(2, frame("b1"));
  sut.setSample(1, frame("a2"));
  sut.setSample(1, frame("a3"));
  EXPECT_THAT(sut.takeDrops(), ElementsAre(Pair(1U, 2U)));
  EXPECT_THAT(taken(sut), ElementsAre("a3", "b1"));
}

TEST(ClientQueue, ABusyChannelDoesNotKeepOthersFromTheirTurn) {
  ClientQueue sut({});
  sut.setSample(1, frame("a1"));
  sut.setSample(2, frame("b1"));
  EXPECT_EQ(sut.take()->head, "a1");
  sut.setSample(1, frame("a2"));
  EXPECT_THAT(taken(sut), ElementsAre("b1", "a2"));
}

TEST(ClientQueue, BeyondTheLimitTheOldestEventsGoAndAreCounted) {
  ClientQueue sut({.bytes = 1000, .events = 2, .answers = 10});
  for (const char* text : {"e1", "e2", "e3", "e4"}) {
    sut.addEvent(7, frame(text));
  }
  EXPECT_THAT(sut.takeDrops(), ElementsAre(Pair(7U, 2U)));
  EXPECT_THAT(taken(sut), ElementsAre("e3", "e4"));
}

TEST(ClientQueue, OverBudgetSamplesGoBeforeAnyEvent) {
  ClientQueue sut({.bytes = 10, .events = 100, .answers = 10});
  sut.addEvent(1, frame("eee"));
  sut.setSample(2, frame("sss"));
  sut.setSample(3, frame("ttt"));
  sut.addEvent(1, frame("fff"));
  EXPECT_THAT(sut.takeDrops(), ElementsAre(Pair(2U, 1U)));
  EXPECT_THAT(taken(sut), ElementsAre("eee", "fff", "ttt"));
}

TEST(ClientQueue, OverBudgetAndWithoutSamplesTheOldestEventsGo) {
  ClientQueue sut({.bytes = 8, .events = 100, .answers = 10});
  sut.addEvent(1, frame("e1__"));
  sut.addEvent(1, frame("e2__"));
  sut.addEvent(2, frame("e3__"));
  EXPECT_THAT(sut.takeDrops(), ElementsAre(Pair(1U, 1U)));
  EXPECT_THAT(taken(sut), ElementsAre("e2__", "e3__"));
}

TEST(ClientQueue, ASampleNeverPushesAnEventOut) {
  ClientQueue sut({.bytes = 4, .events = 100, .answers = 10});
  sut.addEvent(1, frame("eeee"));
  sut.setSample(2, frame("s"));
  EXPECT_THAT(sut.takeDrops(), ElementsAre(Pair(2U, 1U)));
  EXPECT_THAT(taken(sut), ElementsAre("eeee"));
}

TEST(ClientQueue, AFrameLargerThanTheBudgetIsDroppedByItself) {
  ClientQueue sut({.bytes = 4, .events = 100, .answers = 10});
  sut.addEvent(1, frame("much too long"));
  EXPECT_THAT(taken(sut), IsEmpty());
  EXPECT_THAT(sut.takeDrops(), ElementsAre(Pair(1U, 1U)));
}

TEST(ClientQueue, AFrameThatCanNeverWaitPushesNothingOut) {
  ClientQueue sut({.bytes = 10, .events = 1, .answers = 10});
  ASSERT_TRUE(sut.addAnswer(frame("ans")));
  sut.addEvent(1, frame("event"));
  sut.setSample(2, frame("s"));
  sut.addEvent(1, frame("too long"));
  EXPECT_FALSE(sut.addAnswer(frame("too long")));
  EXPECT_THAT(sut.takeDrops(), ElementsAre(Pair(1U, 1U)));
  EXPECT_THAT(taken(sut), ElementsAre("ans", "event", "s"));
  EXPECT_EQ(sut.bytes(), 0U);
}

TEST(ClientQueue, AllOfTheBudgetCanBeUsed) {
  ClientQueue sut({.bytes = 10, .events = 100, .answers = 10});
  ASSERT_TRUE(sut.addAnswer(frame("ans")));
  sut.addEvent(1, frame("eve"));
  sut.setSample(2, frame("samp"));
  EXPECT_EQ(sut.bytes(), 10U);
  EXPECT_FALSE(sut.hasDrops());
  sut.setSample(2, frame("abcd"));
  EXPECT_THAT(sut.takeDrops(), ElementsAre(Pair(2U, 1U)));
  EXPECT_THAT(taken(sut), ElementsAre("ans", "eve", "abcd"));
}

TEST(ClientQueue, ANewerSampleThatIsTooLongGoesAndTheOlderOneWithIt) {
  ClientQueue sut({.bytes = 10, .events = 100, .answers = 10});
  sut.addEvent(1, frame("event"));
  sut.setSample(2, frame("short"));
  sut.setSample(2, frame("longer"));
  EXPECT_THAT(sut.takeDrops(), ElementsAre(Pair(2U, 2U)));
  EXPECT_THAT(taken(sut), ElementsAre("event"));
  EXPECT_EQ(sut.bytes(), 0U);
}

TEST(ClientQueue, TooManyUnreadAnswersAreRefusedNotDropped) {
  ClientQueue sut({.bytes = 1000, .events = 10, .answers = 2});
  EXPECT_TRUE(sut.addAnswer(frame("a")));
  EXPECT_TRUE(sut.addAnswer(frame("b")));
  EXPECT_FALSE(sut.addAnswer(frame("c")));
  EXPECT_THAT(taken(sut), ElementsAre("a", "b"));
}

TEST(ClientQueue, WhateverComesTheBytesStayWithinTheBudget) {
  constexpr std::size_t budget = 64 * 1024;
  ClientQueue sut({.bytes = budget, .events = 1000, .answers = 10});
  const auto body = std::make_shared<const std::string>(300, 'x');
  for (std::uint32_t i = 0; i < 100000; ++i) {
    const Frame one{true, std::string(13, 'h'), body};
    if (i % 3 == 0) {
      sut.addEvent(i % 7, one);
    } else {
      sut.setSample(100 + i % 50, one);
    }
    ASSERT_LE(sut.bytes(), budget);
  }
}

TEST(ClientQueue, ForgettingAChannelTakesWhatWaitsOfIt) {
  ClientQueue sut({});
  sut.setSample(1, frame("a"));
  sut.addEvent(2, frame("b"));
  sut.addEvent(3, frame("c"));
  sut.forget(1);
  sut.forget(2);
  EXPECT_THAT(taken(sut), ElementsAre("c"));
  EXPECT_EQ(sut.bytes(), 0U);
}

} // namespace
} // namespace gk::gateway
