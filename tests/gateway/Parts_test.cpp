#include "gateway/figures/Counters.h"
#include "gateway/figures/NoticeQueue.h"
#include "gateway/http/StaticFiles.h"
#include "gateway/robot/SubscriberLimit.h"
#include "gateway/stream/ServerMessage.h"
#include "gk/GKClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

// The gateway's small parts.

namespace gk::gateway {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

GK::GKNotice event(const std::string& name) {
  GK::GKNotice notice;
  notice.name = name;
  return notice;
}

TEST(NoticeQueue, WakesOnceForEachBatch) {
  int wakes = 0;
  NoticeQueue sut([&] { ++wakes; });
  sut.onNotice(event("a"));
  sut.onNotice(event("b"));
  sut.onTick(5, {"M", "run"});
  EXPECT_EQ(wakes, 1);
  EXPECT_EQ(sut.take().notices.size(), 2U);
  sut.onTick(6, {"M", "run"});
  EXPECT_EQ(wakes, 2);
}

TEST(NoticeQueue, WhenFullTheOldestGoAndAreCounted) {
  NoticeQueue sut([] {}, 2);
  for (const char* name : {"a", "b", "c"}) {
    sut.onNotice(event(name));
  }
  const NoticeQueue::Batch batch = sut.take();
  ASSERT_EQ(batch.notices.size(), 2U);
  EXPECT_EQ(batch.notices[0].name, "b");
  EXPECT_EQ(sut.dropped(), 1U);
}

TEST(NoticeQueue, WhatIsNotTakenAtOnceWaitsInItsOrder) {
  NoticeQueue sut([] {});
  for (const char* name : {"a", "b", "c"}) {
    sut.onNotice(event(name));
  }
  const NoticeQueue::Batch first = sut.take(2);
  EXPECT_EQ(first.notices.back().name, "b");
  EXPECT_TRUE(first.isMore);
  const NoticeQueue::Batch rest = sut.take(2);
  EXPECT_EQ(rest.notices.front().name, "c");
  EXPECT_FALSE(rest.isMore);
}

TEST(NoticeQueue, LoopsAreCountedByModule) {
  NoticeQueue sut([] {});
  sut.onTick(1, {"A", "run"});
  sut.onTick(2, {"B", "run"});
  sut.onTick(3, {"A", "run"});
  const NoticeQueue::Batch batch = sut.take();
  ASSERT_EQ(batch.loops.size(), 2U);
  EXPECT_EQ(batch.loops[0].module, "A");
  EXPECT_EQ(batch.loops[0].ticks, 2U);
  EXPECT_EQ(batch.loops[0].time, 3);
  EXPECT_EQ(batch.loops[1].ticks, 1U);
}

TEST(NoticeQueue, InsertionsDoNotWait) {
  NoticeQueue sut([] { ADD_FAILURE(); });
  GK::GKNotice notice;
  notice.kind = GK::GKNotice::Kind::Insert;
  sut.onNotice(notice);
  EXPECT_THAT(sut.take().notices, IsEmpty());
}

TEST(SubscriberLimit, NamesAreLimitedInLengthAndNumber) {
  SubscriberLimit sut(5, 2);
  EXPECT_THAT(sut.admit("A", "subscribe", {"12345"}), IsEmpty());
  EXPECT_THAT(sut.admit("A", "subscribe", {"123456"}), HasSubstr("at most 5 bytes, not 6"));
  EXPECT_THAT(sut.admit("B", "subscribe", {"x", 30, 0.5F}), IsEmpty());
  EXPECT_THAT(sut.admit("B", "subscribe", {"x"}), IsEmpty());
  EXPECT_THAT(sut.admit("B", "subscribe", {"y"}), HasSubstr("under 2 names"));
  EXPECT_THAT(sut.admit("A", "unsubscribe", {"12345"}), IsEmpty());
  EXPECT_THAT(sut.admit("B", "subscribe", {"y"}), IsEmpty());
  EXPECT_THAT(sut.admit("B", "other", {std::string(1000, 'x')}), IsEmpty());
}

TEST(Histogram, BucketsCountWhatIsUpToTheirLimit) {
  Histogram sut;
  for (const double seconds : {0.0001, 0.00011, 5.0, 5.1}) {
    sut.add(seconds);
  }
  const HistogramFigures figures = sut.figures();
  EXPECT_EQ(figures.count, 4U);
  EXPECT_DOUBLE_EQ(figures.sum, 10.10021);
  EXPECT_THAT(figures.buckets.front(), Pair(0.0001, 1U));
  EXPECT_THAT(figures.buckets.at(1), Pair(0.0005, 2U));
  EXPECT_THAT(figures.buckets.back(), Pair(5.0, 3U));
}

TEST(Histogram, QuantilesAreTheLimitsThatHold) {
  Histogram sut;
  EXPECT_EQ(sut.figures().p50, 0);
  for (int i = 0; i < 99; ++i) {
    sut.add(0.0002);
  }
  sut.add(10);
  EXPECT_EQ(sut.figures().p99, 0.0005);
  EXPECT_EQ(sut.figures().p999, std::numeric_limits<double>::infinity());
}

TEST(ServerMessage, StatusesHaveAnIdOnlyWhenTheyAreToBeReplaced) {
  EXPECT_EQ(statusMessage(StatusLevel::Info, "x"), R"({"op":"status","level":0,"message":"x"})");
  EXPECT_EQ(statusMessage(StatusLevel::Error, "x", "i"),
            R"({"op":"status","level":2,"message":"x","id":"i"})");
  EXPECT_EQ(removeStatusMessage("i"), R"({"op":"removeStatus","statusIds":["i"]})");
}

TEST(ServerMessage, NumbersAreLittleEndian) {
  EXPECT_EQ(messageHead(0x01020304, 0x1112131415161718U),
            "\x01\x04\x03\x02\x01\x18\x17\x16\x15\x14\x13\x12\x11");
  EXPECT_EQ(messageHead(1, 1).size(), kMessageHeadSize);
  EXPECT_EQ(timeMessage(0x1112131415161718U), "\x02\x18\x17\x16\x15\x14\x13\x12\x11");
}

TEST(StaticFiles, AreSortedAndKnowTheirTypes) {
  std::string_view before;
  for (const StaticFile& file : staticFiles()) {
    EXPECT_TRUE(file.path.starts_with('/'));
    EXPECT_LT(before, file.path);
    EXPECT_FALSE(file.contentType.empty());
    EXPECT_TRUE(file.etag.starts_with('"') && file.etag.ends_with('"'));
    EXPECT_TRUE(file.gzip.empty() || file.gzip.starts_with("\x1f\x8b"));
    EXPECT_EQ(findStaticFile(staticFiles(), file.path), &file);
    before = file.path;
  }
  EXPECT_EQ(findStaticFile(staticFiles(), "/"), findStaticFile(staticFiles(), "/index.html"));
  EXPECT_EQ(findStaticFile(staticFiles(), "/none"), nullptr);
}

} // namespace
} // namespace gk::gateway
