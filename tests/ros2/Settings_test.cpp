#include "extensions/ros2/Feed.h"
#include "extensions/ros2/GKRos2.h"
#include "gk/GKClock.h"
#include "gk/GKError.h"
#include "gk/GKMemory.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using gk::ros2::Feed;
using GK::test::TestPlatform;

/// What the module says when it starts on the real clock with this setting; empty for nothing.
std::string startedWith(const std::string& name, const GK::GKValue& value) {
  TestPlatform platform;
  // Neutral until the module asks: a module starts on the clock that it finds.
  GK::GKClock::install(nullptr);
  platform.set("Settings/GKRos2/" + name, value);
  const auto sut = boost::make_shared<gk::ros2::GKRos2>(platform.broker());
  try {
    sut->init();
    sut->exit();
    return {};
  } catch (const GK::GKError& error) {
    return error.getDescription();
  }
}

TEST(GKRos2, AWrongSettingIsToldInOneLine) {
  EXPECT_EQ(startedWith("Rate", 0), "Settings/GKRos2/Rate is a number above 0, to 1000");
  EXPECT_EQ(startedWith("Rate", 1001), "Settings/GKRos2/Rate is a number above 0, to 1000");
  EXPECT_EQ(startedWith("Rate", "fast"), "Settings/GKRos2/Rate is a number above 0, to 1000");
  EXPECT_EQ(startedWith("Tf", 1), "Settings/GKRos2/Tf is on or off");
  EXPECT_EQ(startedWith("Graph", "gid8"),
            "Settings/GKRos2/Graph: gid8 is none of auto, off, gid16 and gid24");
  EXPECT_EQ(startedWith("Interface", "no_such0"), "there is no network interface no_such0");
  EXPECT_THAT(startedWith("Namespace", "9lives"),
              testing::StartsWith("Settings/GKRos2/Namespace: "));
}

TEST(GKRos2, InVirtualTimeItPublishesNothing) {
  TestPlatform platform;
  const auto sut = boost::make_shared<gk::ros2::GKRos2>(platform.broker());

  sut->init();
  EXPECT_TRUE(sut->status().toArray().empty());
  sut->exit();
}

GK::GKNotice event(const std::string& name) {
  GK::GKNotice notice;
  notice.kind = GK::GKNotice::Kind::Event;
  notice.name = name;
  return notice;
}

TEST(Ros2Feed, WhoeverTellsNeverWaitsAndTheOldestIsDroppedAndCounted) {
  Feed sut(2);
  for (const char* name : {"a", "b", "c"}) {
    sut.onNotice(event(name));
  }

  Feed::Batch batch;
  sut.take(batch, std::chrono::milliseconds(0));
  ASSERT_EQ(batch.notices.size(), 2U);
  EXPECT_EQ(batch.notices.front().name, "b");
  EXPECT_EQ(batch.notices.back().name, "c");
  EXPECT_EQ(sut.dropped(), 1U);
}

TEST(Ros2Feed, OfTheTicksOfALoopTheLastOneCounts) {
  Feed sut;
  const GK::GKTask task{.module = "Mine", .method = "run"};
  sut.onTick(20'000, task);
  sut.onTick(40'000, task);

  Feed::Batch batch;
  sut.take(batch, std::chrono::milliseconds(0));
  ASSERT_EQ(batch.ticks.size(), 1U);
  EXPECT_EQ(batch.ticks[0].time, 40'000);
  EXPECT_EQ(batch.ticks[0].number, 2U);
  sut.end();
  sut.take(batch, std::chrono::hours(1));
  EXPECT_TRUE(batch.isEnd);
}

} // namespace
