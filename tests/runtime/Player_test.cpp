#include "messages/keys/DeviceKeys.h"
#include "runtime/host/Player.h"
#include "support/Program.h"

#include <string>
#include <variant>
#include <vector>

namespace {

using gk::formats::Action;
using gk::formats::GetAction;
using gk::runtime::Player;
using gk::test::TemporaryFolder;
using gk::test::writeFile;

/// Keeps the first key of every line played.
class Target : public gk::formats::RecordingTarget {
public:
  GK::GKMemoryCell* column(const std::string&) override { return nullptr; }
  void act(const Action& action) override {
    if (const auto* get = std::get_if<GetAction>(&action)) {
      keys.push_back(get->keys.front());
    }
  }

  std::vector<std::string> keys;
};

std::string get(const std::string& time, const std::string& key) {
  return "{\"t\":" + time + ",\"get\":[\"" + key + "\"]}\n";
}

class PlayerTest : public testing::Test {
protected:
  void open(const std::vector<std::string>& texts) {
    std::vector<std::string> files;
    for (const std::string& text : texts) {
      files.push_back(fFolder.file(std::to_string(files.size()) + ".jsonl"));
      writeFile(files.back(), text);
    }
    sut.open(files, gk::messages::keyTypeOf);
  }

  std::vector<GK::GKMicros> playAll() {
    std::vector<GK::GKMicros> times;
    while (const std::optional<GK::GKMicros> time = sut.next()) {
      times.push_back(*time);
      sut.apply();
    }
    return times;
  }

  TemporaryFolder fFolder;
  Target target;
  Player sut{target};
};

TEST_F(PlayerTest, MergesFilesByTimeAndAtEqualTimesInTheirOrder) {
  open({get("0", "a0") + get("1", "a1") + get("1", "a1again"), get("0.5", "b0") + get("1", "b1")});
  EXPECT_THAT(playAll(), testing::ElementsAre(0, 500000, 1000000, 1000000, 1000000));
  EXPECT_THAT(target.keys, testing::ElementsAre("a0", "b0", "a1", "a1again", "b1"));
  EXPECT_TRUE(sut.isAtEnd());
}

TEST_F(PlayerTest, LinesAddedFirstComeBeforeThoseOfTheFilesAtTimeZero) {
  sut.add({GetAction{{"added"}}});
  open({get("0", "a0")});
  playAll();
  EXPECT_THAT(target.keys, testing::ElementsAre("added", "a0"));
}

TEST_F(PlayerTest, InALoopTheNextRoundBeginsOneTickAfterTheLastLine) {
  open({get("0", "a0") + get("1", "a1")});
  sut.setLoop(true);
  std::vector<GK::GKMicros> times;
  for (int i = 0; i < 5; ++i) {
    times.push_back(sut.next().value());
    sut.apply();
  }
  EXPECT_THAT(times, testing::ElementsAre(0, 1000000, 1020000, 2020000, 2040000));
  EXPECT_FALSE(sut.isAtEnd());
}

TEST_F(PlayerTest, TheTimeOfTheLastLineIsToldOnceItWasPlayed) {
  open({get("0", "a0") + get("1", "a1")});
  std::vector<GK::GKMicros> told;
  sut.setAtEnd([&told](GK::GKMicros time) { told.push_back(time); });
  sut.apply();
  EXPECT_THAT(told, testing::IsEmpty());
  sut.apply();
  EXPECT_THAT(told, testing::ElementsAre(1000000));
}

TEST_F(PlayerTest, StoppedItHasNoNextLineButStillChecksTheRest) {
  open({get("0", "a0") + get("1", "a1") + "{\"t\":2,\"jump\":1}\n"});
  sut.apply();
  sut.stop();
  EXPECT_FALSE(sut.next().has_value());
  EXPECT_THROW(sut.checkRest(), gk::formats::InputError);
  EXPECT_THAT(target.keys, testing::ElementsAre("a0"));
}

TEST_F(PlayerTest, PreloadLinesOfAllFilesComeInTheOrderOfTheFiles) {
  open({"{\"unset\":[\"a\"]}\n", "{\"unset\":[\"b\"]}\n" + get("0", "b0")});
  const std::vector<Action> preload = sut.preload();
  ASSERT_EQ(preload.size(), 2U);
  EXPECT_EQ(std::get<gk::formats::UnsetAction>(preload[0]).patterns.front(), "a");
  EXPECT_EQ(std::get<gk::formats::UnsetAction>(preload[1]).patterns.front(), "b");
}

TEST_F(PlayerTest, ProgressOfSeveralFilesIsThatOfTheOneThatLagsBehind) {
  std::string rest;
  for (int second = 1; second < 30'000; ++second) {
    rest += get(std::to_string(second), "long");
  }
  open({get("0", "first"), get("0", "second") + rest, get("0.5", "third")});
  for (int line = 0; line < 3; ++line) {
    sut.apply();
  }
  // Two have been read to their end, the other one is read piece by piece.
  EXPECT_GT(sut.progress(), 0.0);
  EXPECT_LT(sut.progress(), 0.9);
  playAll();
  EXPECT_DOUBLE_EQ(sut.progress(), 1.0);
}

TEST_F(PlayerTest, TimesOfTheWallClockAreHintedAt) {
  open({get("8640000", "as late as may be"), get("1700000000.5", "wall")});
  const std::vector<std::string> hints = sut.hints();
  ASSERT_EQ(hints.size(), 1U);
  EXPECT_THAT(hints[0], testing::HasSubstr("1.jsonl: its first time is 1700000000.5 s"));
}

TEST_F(PlayerTest, ProgressReachesTheEnd) {
  open({get("0", "a0")});
  playAll();
  EXPECT_DOUBLE_EQ(sut.progress(), 1.0);
}

} // namespace
