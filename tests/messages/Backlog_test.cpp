#include "messages/notices/Backlog.h"
#include "messages/notices/NoticeSize.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace gk::messages {
namespace {

std::vector<int> allOf(Backlog<int>& backlog) {
  std::vector<int> items;
  backlog.takeAll(items);
  return items;
}

TEST(BacklogTest, TheOldestGoesWhenThereAreTooMany) {
  Backlog<int> sut(2);
  for (const int item : {1, 2, 3}) {
    sut.add(item, 1);
  }
  EXPECT_EQ(sut.dropped(), 1U);
  EXPECT_THAT(allOf(sut), ElementsAre(2, 3));
  EXPECT_TRUE(sut.isEmpty());
}

TEST(BacklogTest, TheOldestGoWhenTheyTakeTooMuch) {
  Backlog<int> sut(10, 100);
  sut.add(1, 30);
  sut.add(2, 70);
  EXPECT_EQ(sut.dropped(), 0U);
  sut.add(3, 71);
  EXPECT_EQ(sut.dropped(), 2U);
  EXPECT_THAT(allOf(sut), ElementsAre(3));
}

TEST(BacklogTest, TheNewestStaysHoweverLargeItIs) {
  Backlog<int> sut(10, 100);
  sut.add(1, 10);
  sut.add(2, 1000);
  EXPECT_THAT(allOf(sut), ElementsAre(2));
}

TEST(BacklogTest, WhatWasTakenOrThrownAwayTakesNothing) {
  Backlog<int> sut(10, 100);
  std::vector<int> taken;
  sut.add(1, 60);
  sut.add(2, 30);
  sut.take(taken, 1);
  EXPECT_THAT(taken, ElementsAre(1));
  sut.add(3, 70);
  EXPECT_THAT(allOf(sut), ElementsAre(2, 3));
  sut.add(4, 90);
  sut.clear();
  EXPECT_TRUE(sut.isEmpty());
  sut.add(5, 90);
  EXPECT_THAT(allOf(sut), ElementsAre(5));
  EXPECT_EQ(sut.dropped(), 0U);
  sut.takeAll(taken);
  EXPECT_THAT(taken, IsEmpty());
}

TEST(NoticeSize, HasEachTextAndEachElementInIt) {
  constexpr std::size_t length = 10'000;
  const GK::GKValue text(std::string(length, 'x'));
  EXPECT_EQ(heapOf(1.0F), 0U);
  EXPECT_EQ(heapOf(text), length);
  EXPECT_EQ(heapOf(GK::GKValue::Array{text, 1, GK::GKValue::Array{text}}),
            2 * length + 4 * sizeof(GK::GKValue));

  GK::GKNotice notice;
  const std::size_t empty = bytesOf(notice);
  EXPECT_GE(empty, sizeof notice);
  for (std::string* part : {&notice.name, &notice.owner, &notice.text}) {
    *part = std::string(length, 'x');
  }
  notice.value = text;
  EXPECT_EQ(bytesOf(notice), empty + 4 * length);
}

} // namespace
} // namespace gk::messages
