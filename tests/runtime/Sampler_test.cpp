#include "runtime/host/Sampler.h"

#include <gmock/gmock.h>

#include <cmath>

// Which ticks have a sample, and what is in it.

namespace {

using gk::runtime::Sample;
using gk::runtime::SampleChoice;
using gk::runtime::Sampler;

/// A sampler of the keys "a" and "b", which are 1 and 2.
struct SamplerTest : testing::Test {
  SamplerTest() {
    store->set("a", 1);
    store->set("b", 2);
    choice.keys = {"a", "b"};
  }

  /// Times, in ticks of 20 ms, of the samples of ticks 0 to `last`. Before each tick `change` is
  /// called with its number.
  template <class Change> std::vector<int> ticksWithSample(int last, const Change& change) {
    Sampler sut(choice, store);
    std::vector<int> ticks;
    for (int tick = 0; tick <= last; ++tick) {
      change(tick);
      if (sut.take(tick * 20'000)) {
        ticks.push_back(tick);
      }
    }
    return ticks;
  }

  const std::shared_ptr<GK::GKMemoryStore> store = std::make_shared<GK::GKMemoryStore>();
  SampleChoice choice;
};

const auto kNoChange = [](int) {};

TEST_F(SamplerTest, HasTheKeysThatAreThereInTheOrderInWhichTheyWereChosen) {
  choice.keys = {"b", "unknown", "a"};
  Sampler sut(choice, store);
  EXPECT_EQ(sut.take(0), (Sample{{"b", 2}, {"a", 1}}));
}

TEST_F(SamplerTest, TakesEveryTickWithoutMore) {
  EXPECT_THAT(ticksWithSample(3, kNoChange), testing::ElementsAre(0, 1, 2, 3));
}

TEST_F(SamplerTest, WithoutKeysTakesNothing) {
  choice.keys.clear();
  EXPECT_THAT(ticksWithSample(3, kNoChange), testing::IsEmpty());
}

TEST_F(SamplerTest, OfChangesTakesTheFirstTickAndThoseInWhichOneValueIsAnother) {
  choice.isOnlyChanges = true;
  EXPECT_THAT(ticksWithSample(5,
                              [&](int tick) {
                                if (tick == 2) {
                                  store->set("b", 3);
                                } else if (tick == 4) {
                                  store->set("b", 3.0F);
                                }
                              }),
              testing::ElementsAre(0, 2, 4));
}

TEST_F(SamplerTest, OfChangesTakesAKeyThatComesUp) {
  choice.keys = {"a", "late"};
  choice.isOnlyChanges = true;
  EXPECT_THAT(ticksWithSample(4,
                              [&](int tick) {
                                if (tick == 3) {
                                  store->set("late", 1);
                                }
                              }),
              testing::ElementsAre(0, 3));
}

TEST_F(SamplerTest, WhatIsNoNumberAndStaysSoIsNoChange) {
  store->set("a", std::nanf(""));
  choice.isOnlyChanges = true;
  EXPECT_THAT(ticksWithSample(3, kNoChange), testing::ElementsAre(0));
}

TEST_F(SamplerTest, BeginsAtItsTimeAsIfNothingHadBeenBefore) {
  choice.from = 40'000;
  choice.isOnlyChanges = true;
  EXPECT_THAT(ticksWithSample(4, kNoChange), testing::ElementsAre(2));
}

TEST_F(SamplerTest, EndsWithItsCount) {
  choice.from = 20'000;
  choice.count = 2;
  EXPECT_THAT(ticksWithSample(5, kNoChange), testing::ElementsAre(1, 2));
}

} // namespace
