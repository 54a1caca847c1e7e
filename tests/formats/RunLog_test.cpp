#include "formats/run/RunLogReader.h"
#include "formats/run/RunLogWriter.h"
#include "messages/text/FormatError.h"

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
std::vector<std::string> entriesOf(RunLogReader& reader) {
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
      for (const RunValue& value : values.values) {
        text += " " + std::to_string(value.key) + ":" + values.value(value).typeName();
      }
      return values.areLost ? text + " are lost" : text;
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
  while (const std::optional<RunEntry> entry = reader.next()) {
    entries.push_back(std::visit(Text(), *entry));
  }
  return entries;
}

std::vector<std::string> entriesOf(const std::string& block, const char* encoding = kRunEncoding) {
  RunLogReader reader;
  reader.begin(block, 1, encoding);
  return entriesOf(reader);
}

/// The values of a block that changes keys once or never.
std::vector<std::pair<std::uint32_t, GK::GKValue>> valuesOf(RunLogReader& reader) {
  std::vector<std::pair<std::uint32_t, GK::GKValue>> all;
  while (const std::optional<RunEntry> entry = reader.next()) {
    if (const auto* values = std::get_if<RunValues>(&*entry)) {
      for (const RunValue& value : values->values) {
        all.emplace_back(value.key, values->value(value));
      }
    }
  }
  return all;
}

void addValues(RunLogWriter& log, const std::vector<std::pair<std::uint32_t, GK::GKValue>>& all) {
  log.beginValues();
  for (const auto& [key, value] : all) {
    log.addValue(key, value);
  }
  log.endValues();
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
  RunLogReader reader;
  reader.begin(block, 1, kRunEncoding);
  const std::vector<std::pair<std::uint32_t, GK::GKValue>> read = valuesOf(reader);
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

TEST(RunLog, EveryCutBlockIsAnError) {
  RunLogWriter sut;
  sut.add(RunTurn{2, 1000});
  sut.beginValues();
  sut.addValue(3, 1.5F);
  sut.addValue(9, "text");
  sut.endValues();
  sut.add(RunTask{3, "M", "f"});
  const std::string block = sut.take();
  EXPECT_EQ(entriesOf(block).size(), 3U);
  for (std::size_t length = 0; length < block.size(); ++length) {
    EXPECT_THROW(entriesOf(block.substr(0, length)), messages::FormatError) << length;
  }
  EXPECT_THROW(entriesOf(block + "x"), messages::FormatError);
}

TEST(RunLog, ValuesThatComeBackAreReadFromAmongTheLatest) {
  std::mt19937 random(5);
  // More different ones than are kept, floats and ints in turn, keys that come and go.
  RunLogWriter sut;
  RunLogReader reader;
  std::size_t bytes = 0;
  std::size_t count = 0;
  for (std::uint32_t block = 0; block < 50; ++block) {
    std::vector<std::vector<std::pair<std::uint32_t, GK::GKValue>>> told;
    for (int turn = 0; turn < 20; ++turn) {
      std::vector<std::pair<std::uint32_t, GK::GKValue>> values;
      for (std::uint32_t key = 0; key < 130; ++key) {
        const auto step = static_cast<std::int32_t>(random() % (key < 100 ? 8 : 400));
        if (random() % 3 != 0) {
          values.emplace_back(key, key == 7 && block % 2 == 0
                                       ? GK::GKValue(step)
                                       : GK::GKValue(static_cast<float>(step) / 10));
        }
      }
      addValues(sut, values);
      count += values.size();
      told.push_back(std::move(values));
    }
    const std::string data = sut.take();
    bytes += data.size();
    reader.begin(data, block, kRunEncoding);
    for (const auto& values : told) {
      const std::optional<RunEntry> entry = reader.next();
      const auto& read = std::get<RunValues>(*entry);
      ASSERT_EQ(read.values.size(), values.size());
      for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(read.values[i].key, values[i].first);
        EXPECT_EQ(read.value(read.values[i]), values[i].second);
      }
    }
    EXPECT_FALSE(reader.next());
  }
  // Two bytes and a half on average, most of them a key's coming and going and the rare ones.
  EXPECT_LT(bytes, count * 5 / 2);
}

TEST(RunLog, BehindAMissingBlockValuesAreLostUntilOneBeginsAnew) {
  RunLogWriter sut;
  std::vector<std::string> blocks;
  for (GK::GKMicros time = 0; time <= RunLogWriter::kAnewTime + 2'000'000; time += 1'000'000) {
    sut.add(RunTurn{2, time});
    addValues(sut, {{3, GK::GKValue(time == 0 ? 1.0F : 2.0F)}});
    blocks.push_back(sut.take());
  }
  RunLogReader reader;
  std::string read;
  for (std::uint32_t i = 0; i < blocks.size(); ++i) {
    if (i == 2) {
      continue;
    }
    reader.begin(blocks[i], i, kRunEncoding);
    const std::vector<std::string> entries = entriesOf(reader);
    EXPECT_EQ(entries[0], "turn 2 " + std::to_string(i * 1'000'000));
    read += entries[1] == "values 3:float" ? 'v' : entries[1] == "values are lost" ? '-' : '?';
    EXPECT_EQ(reader.isBlind(), read.back() == '-');
  }
  EXPECT_EQ(read, "vv--------vv");
}

TEST(RunLog, BehindABlockThatCannotBeReadValuesAreLost) {
  RunLogWriter sut;
  addValues(sut, {{3, GK::GKValue(1.0F)}});
  const std::string first = sut.take();
  addValues(sut, {{3, GK::GKValue(1.0F)}});
  const std::string second = sut.take();
  RunLogReader reader;
  EXPECT_THROW(reader.begin(first.substr(0, 3), 0, kRunEncoding), messages::FormatError);
  reader.begin(second, 1, kRunEncoding);
  EXPECT_THAT(entriesOf(reader), ElementsAre("values are lost"));
  reader.begin(first, 2, kRunEncoding);
  EXPECT_THAT(entriesOf(reader), ElementsAre("values 3:float"));
  reader.begin(second, 3, kRunEncoding);
  EXPECT_THAT(entriesOf(reader), ElementsAre("values 3:float"));
  // Nor behind one that was not read to its end.
  reader.begin(first, 4, kRunEncoding);
  reader.begin(second, 5, kRunEncoding);
  EXPECT_THAT(entriesOf(reader), ElementsAre("values are lost"));
}

TEST(RunLog, BlocksOfTheFirstEncodingAreRead) {
  using namespace std::string_literals;
  const std::string block = "\x04\x03\x01k"s        // key 3, "k"
                            "\x01\x02\xE8\x07"s     // task 2 at 1000 microseconds
                            "\x05\x02"s             // two values:
                            "\x0C\x00\x00\xC0\x3F"s // key 3, a float, 1.5
                            "\x0B\x05\"txt\""s      // the second one behind it, a text
                            "\x09"s;                // an overlap
  RunLogReader reader;
  // Each stands alone, whatever their numbers.
  for (const std::uint32_t number : {7U, 3U}) {
    reader.begin(block, number, kFirstRunEncoding);
    EXPECT_THAT(entriesOf(reader),
                ElementsAre("key 3 k", "turn 2 1000", "values 3:float 5:string", "overlap"));
  }
  reader.begin(block, 1, kFirstRunEncoding);
  EXPECT_THAT(valuesOf(reader), ElementsAre(testing::Pair(3, GK::GKValue(1.5F)),
                                            testing::Pair(5, GK::GKValue("txt"))));
}

TEST(RunLog, RandomBytesAreErrorsOrEntries) {
  std::mt19937 random(11);
  for (int round = 0; round < 20'000; ++round) {
    std::string block;
    for (int i = 0; i < 24; ++i) {
      block.push_back(static_cast<char>(random() % (round % 2 == 0 ? 256 : 12)));
    }
    for (const char* encoding : {kRunEncoding, kFirstRunEncoding}) {
      try {
        entriesOf(block, encoding);
      } catch (const messages::FormatError&) {
        continue;
      }
    }
  }
}

TEST(RunLog, ATimeBeyondAllTimesIsAnError) {
  RunLogWriter sut;
  sut.add(RunTurn{2, std::numeric_limits<GK::GKMicros>::max()});
  EXPECT_THROW(entriesOf(sut.take()), messages::FormatError);
}

} // namespace
} // namespace gk::formats
