#include "formats/mcap/Reader.h"
#include "formats/mcap/Source.h"
#include "formats/run/RunLog.h"
#include "runtime/recording/Recorder.h"
#include "runtime/recording/RunRecorder.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

// What becomes of a recording when the disk cannot keep up, and which piece belongs where.

namespace {

namespace mcap = gk::formats::mcap;
using GK::GKMemoryStore;
using GK::GKMicros;
using GK::GKNotice;
using GK::GKTurn;
using gk::formats::RunEntry;
using gk::formats::RunKey;
using gk::formats::RunLogReader;
using gk::formats::RunLost;
using gk::formats::RunStart;
using gk::formats::RunValues;
using gk::runtime::MessageMaker;
using gk::runtime::RecordedChannel;
using gk::runtime::RecordedMessage;
using gk::runtime::Recorder;
using gk::runtime::RecorderOptions;
using gk::runtime::RunBlocks;
using gk::runtime::RunRecorder;
using gk::test::TemporaryFolder;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr std::uint64_t kLoop = GKTurn::kFirstTask;
/// Long enough for a block.
constexpr GKMicros kStep = RunRecorder::kBlockTime;

std::vector<RunEntry> entriesOf(const RunBlocks& taken) {
  std::vector<RunEntry> entries;
  for (const auto& block : taken.blocks) {
    RunLogReader reader(block.data);
    while (std::optional<RunEntry> entry = reader.next()) {
      entries.push_back(*std::move(entry));
    }
  }
  return entries;
}

template <class Entry> std::vector<Entry> only(const std::vector<RunEntry>& entries) {
  std::vector<Entry> found;
  for (const RunEntry& entry : entries) {
    if (const auto* one = std::get_if<Entry>(&entry)) {
      found.push_back(*one);
    }
  }
  return found;
}

class RunRecorderTest : public testing::Test {
protected:
  void begin(RunRecorder& sut) {
    fStore->set("changing", GK::GKValue(0.0F));
    fStore->set("constant", GK::GKValue(7.0F));
    sut.onTurn({GKTurn::kMain, 0, 0});
    sut.start(fStore, {});
  }

  /// Turns in which a key changes, until something was dropped.
  GKMicros runUntilDropped(RunRecorder& sut) {
    GKMicros time = 0;
    while (sut.dropped() == 0) {
      time += kStep;
      fStore->set("changing", GK::GKValue(static_cast<float>(time)));
      sut.onTurn({kLoop, time, 0});
    }
    return time;
  }

  const std::shared_ptr<GKMemoryStore> fStore = std::make_shared<GKMemoryStore>();
};

TEST_F(RunRecorderTest, WhatNobodyTakesIsDroppedAndTheLogBeginsAnewWithTheWholeState) {
  RunRecorder sut(false, std::nullopt, 1000);
  begin(sut);
  const GKMicros last = runUntilDropped(sut);
  sut.onTurn({kLoop, last + kStep, 0});
  const RunBlocks taken = sut.take(true);
  ASSERT_FALSE(taken.blocks.empty());
  const std::vector<RunEntry> entries = entriesOf(taken);
  const std::vector<RunLost> lost = only<RunLost>(entries);
  ASSERT_EQ(lost.size(), 1U);
  EXPECT_EQ(lost[0].blocks, sut.dropped());
  // Names, all values, and that it goes on in the middle.
  std::vector<std::pair<std::uint64_t, std::string>> names;
  for (const RunKey& key : only<RunKey>(entries)) {
    names.emplace_back(key.index, key.name);
  }
  EXPECT_THAT(names, UnorderedElementsAre(Pair(0, "changing"), Pair(1, "constant")));
  EXPECT_EQ(only<RunValues>(entries)[0].values.size(), 2U);
  const std::vector<RunStart> starts = only<RunStart>(entries);
  ASSERT_EQ(starts.size(), 1U);
  EXPECT_TRUE(starts[0].isContinued);
}

TEST_F(RunRecorderTest, WhatIsTakenInTimeIsNotDropped) {
  RunRecorder sut(false, std::nullopt, 1000);
  begin(sut);
  std::size_t bytes = 0;
  for (GKMicros time = kStep; bytes < 10'000; time += kStep) {
    fStore->set("changing", GK::GKValue(static_cast<float>(time)));
    sut.onTurn({kLoop, time, 0});
    for (const auto& block : sut.take(false).blocks) {
      bytes += block.data.size();
    }
  }
  EXPECT_EQ(sut.dropped(), 0U);
}

TEST_F(RunRecorderTest, BlocksAreToldToEndWhereTheNextOneBegins) {
  RunRecorder sut(false);
  begin(sut);
  EXPECT_EQ(sut.take(false).end, 0); // the first one is not complete
  sut.onTurn({kLoop, kStep, 0});
  const RunBlocks first = sut.take(false);
  EXPECT_EQ(first.blocks.size(), 1U);
  EXPECT_EQ(first.end, kStep);
  sut.onTurn({kLoop, kStep + 10, 0});
  // All of the present turn is in what is taken.
  EXPECT_EQ(sut.take(true).end, kStep + 11);
}

/// Makes a hundred messages of a mebibyte out of each notice.
class Flood : public MessageMaker {
public:
  static constexpr std::size_t kMessages = 100;
  static constexpr std::size_t kSize = 1 << 20;

  std::vector<RecordedMessage> ofNotice(const GKNotice& notice) override {
    return {kMessages, {fChannel, notice.time, std::string(kSize, 'x')}};
  }
  std::vector<RecordedMessage> ofTick(GKMicros, const GK::GKTask&) override { return {}; }

private:
  std::shared_ptr<const RecordedChannel> fChannel =
      std::make_shared<RecordedChannel>(RecordedChannel{"/flood", "Flood", "{}"});
};

TEST(RecorderTest, MessagesThatDoNotFitAreDroppedAndCountedInTheFile) {
  const TemporaryFolder folder;
  RecorderOptions options;
  options.path = folder.file("run.mcap");
  Recorder sut(options);
  sut.setMaker(std::make_unique<Flood>());
  sut.onNotice({});
  sut.finish();

  constexpr std::size_t kept = Recorder::kQueueLimit / Flood::kSize;
  EXPECT_EQ(sut.losses().messages, Flood::kMessages - kept);
  mcap::FileSource source(options.path);
  mcap::Reader reader(source);
  std::size_t messages = 0;
  std::string lost;
  while (const std::optional<mcap::Item> item = reader.next()) {
    messages += std::holds_alternative<mcap::Message>(*item) ? 1 : 0;
    if (const auto* metadata = std::get_if<mcap::Metadata>(&*item);
        metadata != nullptr && metadata->name == "gk.losses") {
      lost = metadata->values.at("messages");
    }
  }
  EXPECT_EQ(messages, kept);
  EXPECT_EQ(lost, std::to_string(Flood::kMessages - kept));
}

TEST(RecorderTest, AFileThatCannotBeWrittenStopsNobodyAndIsToldAtTheEnd) {
  RecorderOptions options;
  options.path = "/dev/full"; // a disk without room
  try {
    Recorder sut(options);
    sut.setMaker(std::make_unique<Flood>());
    sut.onNotice({});
    sut.onNotice({});
    sut.finish();
    FAIL() << "nothing was told";
  } catch (const mcap::WriteError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("/dev/full"));
  }
}

} // namespace
