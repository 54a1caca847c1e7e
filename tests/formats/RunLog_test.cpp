#include "formats/run/RunLog.h"
#include "formats/text/FormatError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace gk::formats {
namespace {

using testing::ElementsAre;

/// All entries of a block, each as a short text.
std::vector<std::string> entriesOf(const std::string& block) {
  struct Text {
    std::string operator()(const RunTurn& turn) {
      return "turn " + std::to_string(turn.task) + " " + std::to_string(turn.time);
    }
    std::string operator()(const RunWall& wall) { return "wall " + std::to_string(wall.offset); }
    std::string operator()(const RunTask& task) {
      return "task " + std::to_string(task.task) + " " + task.module + "." + task.method;
    }
    std::string operator()(const RunKey& key) {
      return "key " + std::to_string(key.index) + " " + key.name;
    }
    std::string operator()(const RunValues& values) {
      std::string text = "values";
      for (const auto& [index, value] : values.values) {
        text += " " + std::to_string(index) + ":" + value.typeName();
      }
      return text;
    }
    std::string operator()(const RunAction& action) {
      return "action " + std::to_string(action.action.index());
    }
    std::string operator()(const RunStart& start) {
      return std::string("start") + (start.isWhole ? " whole" : "") +
             (start.isContinued ? " continued" : "");
    }
    std::string operator()(const RunLost& lost) { return "lost " + std::to_string(lost.blocks); }
    std::string operator()(const RunOverlap&) { return "overlap"; }
  };
  std::vector<std::string> entries;
  RunLogReader reader(block);
  while (const std::optional<RunEntry> entry = reader.next()) {
    entries.push_back(std::visit(Text(), *entry));
  }
  return entries;
}

TEST(RunLog, EveryEntryIsReadAsItWasWritten) {
  RunLogWriter sut;
  sut.add(RunKey{300, "a/b"});
  sut.add(RunStart{true, true});
  sut.add(RunTurn{kMainTask, 5'000'000'000});
  sut.add(RunWall{-7});
  sut.add(RunTask{2, "GKSensors", "run"});
  sut.add(RunTurn{2, 5'000'020'000});
  sut.add(RunAction{CallAction{"M", "f", {GK::GKValue(1)}, "M.f"}});
  sut.add(RunLost{3});
  sut.add(RunOverlap{});
  EXPECT_EQ(sut.startTime(), 5'000'000'000);
  EXPECT_THAT(entriesOf(sut.take()),
              ElementsAre("key 300 a/b", "start whole continued", "turn 1 5000000000", "wall -7",
                          "task 2 GKSensors.run", "turn 2 5000020000", "action 2", "lost 3",
                          "overlap"));
  EXPECT_TRUE(sut.isEmpty());
}

TEST(RunLog, TheTimesOfEachBlockStandAlone) {
  RunLogWriter sut;
  sut.add(RunTurn{2, 1000});
  sut.take();
  sut.add(RunTurn{2, 2000});
  sut.add(RunTurn{2, 2000});
  EXPECT_THAT(entriesOf(sut.take()), ElementsAre("turn 2 2000", "turn 2 2000"));
}

TEST(RunLog, ValuesKeepTypeAndBits) {
  const std::vector<GK::GKValue> values = {
      1.5F,
      -0.0F,
      std::numeric_limits<float>::infinity(),
      std::bit_cast<float>(0x7FC00123U), // not a number, with a payload
      std::numeric_limits<std::int32_t>::min(),
      true,
      "text \"with\" quotes",
      GK::GKValue::Array{1, 2.5F, "x", GK::GKValue()},
      GK::GKValue()};
  RunLogWriter sut;
  sut.beginValues();
  for (std::size_t i = 0; i < values.size(); ++i) {
    sut.addValue(i * i, values[i]);
  }
  sut.endValues();
  const std::string block = sut.take();
  RunLogReader reader(block);
  const auto entry = reader.next();
  const auto& read = std::get<RunValues>(*entry).values;
  ASSERT_EQ(read.size(), values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(read[i].first, i * i);
    if (values[i].type() == GK::GKValue::Type::Float) {
      EXPECT_EQ(std::bit_cast<std::uint32_t>(read[i].second.toFloat()),
                std::bit_cast<std::uint32_t>(values[i].toFloat()));
    } else {
      EXPECT_EQ(read[i].second, values[i]);
    }
  }
}

TEST(RunLog, EveryCutBlockIsAnErrorOrEndsBetweenEntries) {
  RunLogWriter sut;
  sut.add(RunTurn{2, 1000});
  sut.beginValues();
  sut.addValue(3, 1.5F);
  sut.addValue(9, "text");
  sut.endValues();
  sut.add(RunTask{3, "M", "f"});
  const std::string block = sut.take();
  const std::vector<std::string> whole = entriesOf(block);
  int errors = 0;
  for (std::size_t length = 0; length < block.size(); ++length) {
    try {
      const std::vector<std::string> part = entriesOf(block.substr(0, length));
      ASSERT_LT(part.size(), whole.size());
      EXPECT_TRUE(std::equal(part.begin(), part.end(), whole.begin()));
    } catch (const FormatError&) {
      ++errors;
    }
  }
  // Between entries lie three places, the block's beginning included.
  EXPECT_EQ(errors, static_cast<int>(block.size()) - 3);
}

TEST(RunLog, RandomBytesAreErrorsOrEntries) {
  std::mt19937 random(11);
  for (int round = 0; round < 20'000; ++round) {
    std::string block;
    for (int i = 0; i < 24; ++i) {
      block.push_back(static_cast<char>(random() % (round % 2 == 0 ? 256 : 12)));
    }
    try {
      entriesOf(block);
    } catch (const FormatError&) {
      continue;
    }
  }
}

TEST(RunLog, ATimeBeyondAllTimesIsAnError) {
  RunLogWriter sut;
  sut.add(RunTurn{2, std::numeric_limits<GK::GKMicros>::max()});
  EXPECT_THROW(entriesOf(sut.take()), FormatError);
}

} // namespace
} // namespace gk::formats
