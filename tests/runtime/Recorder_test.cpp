#include "formats/mcap/Reader.h"
#include "formats/mcap/Source.h"
#include "formats/run/RunLogReader.h"
#include "runtime/recording/Recorder.h"
#include "runtime/recording/RunRecorder.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <mutex>
#include <sys/resource.h>
#include <thread>

// What becomes of a recording when the disk cannot keep up, and which piece belongs where.

namespace {

namespace mcap = gk::formats::mcap;
using GK::GKMemoryStore;
using GK::GKMicros;
using GK::GKNotice;
using GK::GKTurn;
using gk::formats::OutputError;
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

/// What keys have changed to at once.
using Values = std::vector<std::pair<std::uint32_t, GK::GKValue>>;

/// The entries of blocks; of values, what they tell is in `told`.
std::vector<RunEntry> entriesOf(const RunBlocks& taken, std::vector<Values>* told = nullptr) {
  std::vector<RunEntry> entries;
  RunLogReader reader;
  std::uint32_t number = 0;
  for (const auto& block : taken.blocks) {
    reader.begin(block.data, number++, gk::formats::kRunEncoding);
    while (std::optional<RunEntry> entry = reader.next()) {
      if (const auto* values = std::get_if<RunValues>(&*entry); values != nullptr && told) {
        Values& all = told->emplace_back();
        for (const auto& value : values->values) {
          all.emplace_back(value.key, values->value(value));
        }
      }
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
  std::vector<Values> told;
  const std::vector<RunEntry> entries = entriesOf(taken, &told);
  const std::vector<RunLost> lost = only<RunLost>(entries);
  ASSERT_EQ(lost.size(), 1U);
  EXPECT_EQ(lost[0].blocks, sut.dropped());
  // Names, all values, and that it goes on in the middle.
  std::vector<std::pair<std::uint64_t, std::string>> names;
  for (const RunKey& key : only<RunKey>(entries)) {
    names.emplace_back(key.index, key.name);
  }
  EXPECT_THAT(names, UnorderedElementsAre(Pair(0, "changing"), Pair(1, "constant")));
  EXPECT_EQ(told.at(0).size(), 2U);
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

// A client's call writes a key that the device writes as well, back to what it was before.
TEST_F(RunRecorderTest, WhatIsSetBackFromOutsideAfterATaskHasWrittenItIsTold) {
  RunRecorder sut(true);
  begin(sut);
  sut.onTurn({kLoop, kStep, 0});
  fStore->set("changing", GK::GKValue(1.0F));
  sut.onTurn({GKTurn::kOutside, 2 * kStep, 0});
  fStore->set("changing", GK::GKValue(0.0F));
  sut.onTurn({kLoop, 3 * kStep, 0});
  std::vector<Values> told;
  entriesOf(sut.take(true), &told);
  ASSERT_EQ(told.size(), 2U); // at the start, and in the last turn
  ASSERT_EQ(told[1].size(), 1U);
  EXPECT_EQ(told[1][0].second, GK::GKValue(0.0F));
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

TEST(Recorder, MessagesThatDoNotFitAreDroppedAndCountedInTheFile) {
  const TemporaryFolder folder;
  RecorderOptions options;
  options.path = folder.file("run.mcap");
  Recorder sut(options);
  sut.setMaker(std::make_unique<Flood>());
  sut.onNotice({});
  sut.confirm();
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

/// What a file of a recording holds of the run.
struct Part {
  std::vector<GKMicros> turns;
  std::vector<GKMicros> messages;
  std::uint64_t lostBlocks = 0;
};

Part partOf(const std::string& path) {
  Part part;
  mcap::FileSource source(path);
  mcap::Reader reader(source);
  RunLogReader entries;
  while (const std::optional<mcap::Item> item = reader.next()) {
    const auto* message = std::get_if<mcap::Message>(&*item);
    if (message == nullptr) {
      continue;
    }
    if (reader.channel(message->channelId).messageEncoding != gk::formats::kRunEncoding) {
      part.messages.push_back(static_cast<GKMicros>(message->logTime / 1000));
      continue;
    }
    entries.begin(message->data, message->sequence, gk::formats::kRunEncoding);
    while (const std::optional<RunEntry> entry = entries.next()) {
      if (const auto* turn = std::get_if<gk::formats::RunTurn>(&*entry)) {
        part.turns.push_back(turn->time);
      } else if (const auto* lost = std::get_if<RunLost>(&*entry)) {
        part.lostBlocks += lost->blocks;
      }
    }
  }
  return part;
}

/// A message for each notice.
class Echo : public MessageMaker {
public:
  std::vector<RecordedMessage> ofNotice(const GKNotice& notice) override {
    return {{fChannel, notice.time, "{}"}};
  }
  std::vector<RecordedMessage> ofTick(GKMicros, const GK::GKTask&) override { return {}; }

private:
  std::shared_ptr<const RecordedChannel> fChannel =
      std::make_shared<RecordedChannel>(RecordedChannel{"/echo", "Echo", "{}"});
};

/// A recorder whose turns come from the test.
class RecorderTest : public testing::Test {
protected:
  static constexpr GKMicros kSecond = 1'000'000;

  RecorderTest() { fOptions.path = fFolder.file("run.mcap"); }

  void begin() {
    fSut = std::make_unique<Recorder>(fOptions);
    fSut->setMaker(std::make_unique<Echo>());
    fStore->set("changing", GK::GKValue(0.0F));
    fSut->run()->onTurn({GKTurn::kMain, 0, 0});
    fSut->run()->start(fStore, {});
    fSut->confirm();
  }

  void turn(GKMicros time) {
    fStore->set("changing", GK::GKValue(static_cast<float>(time)));
    fSut->run()->onTurn({kLoop, time, 0});
  }

  void turns(GKMicros from, GKMicros to) {
    for (GKMicros time = from; time < to; time += kSecond / 10) {
      turn(time);
    }
  }

  void raise(GKNotice::Kind kind, const std::string& name, GKMicros time) {
    GKNotice notice;
    notice.kind = kind;
    notice.name = name;
    notice.time = time;
    fSut->onNotice(notice);
  }

  std::string file(const std::string& name) const { return fFolder.file(name); }

  const TemporaryFolder fFolder;
  RecorderOptions fOptions;
  const std::shared_ptr<GKMemoryStore> fStore = std::make_shared<GKMemoryStore>();
  std::unique_ptr<Recorder> fSut;
};

template <class Condition> void waitFor(const Condition& condition) {
  while (!condition()) {
    std::this_thread::yield();
  }
}

TEST_F(RecorderTest, OnlyWhatComesShortlyBeforeAndAfterAnEventIsKept) {
  fOptions.around = {"Wanted", 4 * kSecond, 2 * kSecond};
  begin();
  turns(0, 60 * kSecond);
  raise(GKNotice::Kind::Event, "Wanted", 60 * kSecond);
  turns(60 * kSecond, 90 * kSecond);
  fSut->finish();
  ASSERT_THAT(fSut->files(), testing::ElementsAre(file("run-001.mcap")));
  const Part part = partOf(file("run-001.mcap"));
  // A part is a second long here, and all of one is kept.
  EXPECT_THAT(part.turns.front(),
              testing::AllOf(testing::Ge(54 * kSecond), testing::Le(56 * kSecond)));
  EXPECT_THAT(part.turns.back(),
              testing::AllOf(testing::Ge(61 * kSecond), testing::Le(63 * kSecond)));
}

TEST_F(RecorderTest, WhatFollowsLongAfterAnEventDoesNotEndWithTheNextOne) {
  fOptions.around = {"Wanted", kSecond, 2 * kSecond};
  begin();
  turns(0, 10 * kSecond);
  raise(GKNotice::Kind::Event, "Wanted", 10 * kSecond);
  turns(10 * kSecond, 80 * kSecond);
  raise(GKNotice::Kind::MicroEvent, "Wanted", 80 * kSecond);
  turns(80 * kSecond, 81 * kSecond);
  fSut->finish();
  ASSERT_EQ(fSut->files().size(), 2U);
  EXPECT_LE(partOf(file("run-001.mcap")).turns.back(), 13 * kSecond);
  EXPECT_GE(partOf(file("run-002.mcap")).turns.front(), 77 * kSecond);
}

TEST_F(RecorderTest, EventsShortlyAfterEachOtherShareAFile) {
  fOptions.around = {"Wanted", kSecond, 2 * kSecond};
  begin();
  turns(0, 10 * kSecond);
  raise(GKNotice::Kind::Event, "Wanted", 10 * kSecond);
  turns(10 * kSecond, 11 * kSecond);
  raise(GKNotice::Kind::Event, "Wanted", 11 * kSecond);
  turns(11 * kSecond, 20 * kSecond);
  fSut->finish();
  ASSERT_EQ(fSut->files().size(), 1U);
  EXPECT_GE(partOf(file("run-001.mcap")).turns.back(), 12'500'000);
}

TEST_F(RecorderTest, OnlyEventsAndMicroEventsOfTheNameBeginAFile) {
  fOptions.around = {"Wanted*", kSecond, kSecond};
  begin();
  using Kind = GKNotice::Kind;
  for (const Kind kind : {Kind::Declare, Kind::Insert, Kind::Order, Kind::Resource, Kind::Log}) {
    raise(kind, "WantedSomehow", kSecond);
  }
  raise(Kind::Event, "Unwanted", kSecond);
  turns(0, 3 * kSecond);
  fSut->finish();
  EXPECT_THAT(fSut->files(), testing::IsEmpty());
}

TEST_F(RecorderTest, AMessageWaitsForTheBlockOfItsTimeAlsoWhereTheDiskIsDue) {
  fOptions.splitTime = 2 * kSecond;
  begin();
  turn(kSecond);
  // Comes before its turn, with which a new part begins.
  raise(GKNotice::Kind::Event, "Early", 2 * kSecond + 1);
  waitFor([this] { return partOf(file("run-001.mcap")).turns.size() == 2; });
  turn(2 * kSecond);
  turn(3 * kSecond);
  fSut->finish();
  EXPECT_THAT(partOf(file("run-001.mcap")).messages, testing::IsEmpty());
  EXPECT_THAT(partOf(file("run-002.mcap")).messages, testing::ElementsAre(2 * kSecond + 1));
}

TEST_F(RecorderTest, WhatHasHappenedIsOnTheDiskSoonAlsoWhenNothingFollows) {
  begin();
  turn(kSecond / 100); // not enough for a block
  waitFor([this] { return partOf(fOptions.path).turns.size() == 2; });
  fSut->finish();
}

TEST_F(RecorderTest, ARecordingThatIsNotConfirmedLeavesNothingAndTheEarlierOneInPlace) {
  gk::test::writeFile(fOptions.path, "earlier");
  fOptions.isOverwriting = true;
  fSut = std::make_unique<Recorder>(fOptions);
  fSut.reset();
  EXPECT_EQ(gk::test::readFile(fOptions.path), "earlier");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(fFolder.path()), {}), 1);
}

TEST_F(RecorderTest, AnEarlierRecordingIsRefusedWithTheNextFreeName) {
  gk::test::writeFile(fOptions.path, "earlier");
  try {
    Recorder sut(fOptions);
    FAIL();
  } catch (const OutputError& error) {
    EXPECT_EQ(error.kind(), OutputError::Kind::Exists);
    EXPECT_THAT(error.what(), testing::HasSubstr(file("run-2.mcap") + " is free"));
  }
}

TEST_F(RecorderTest, PartsOfAnEarlierRecordingAreRefusedAsWell) {
  gk::test::writeFile(file("run-001.mcap"), "earlier");
  gk::test::writeFile(file("run-2-001.mcap"), "earlier");
  fOptions.splitTime = kSecond;
  try {
    Recorder sut(fOptions);
    FAIL();
  } catch (const OutputError& error) {
    EXPECT_THAT(error.what(), testing::AllOf(testing::HasSubstr("run-001.mcap exists already"),
                                             testing::HasSubstr(file("run-3.mcap") + " is free")));
  }
}

TEST_F(RecorderTest, APartNeverReplacesAFileThatIsThere) {
  gk::test::writeFile(file("run-002.mcap"), "earlier");
  fOptions.splitTime = kSecond;
  begin();
  turns(0, 3 * kSecond / 2);
  fSut->finish();
  EXPECT_THAT(fSut->files(), testing::ElementsAre(file("run-001.mcap"), file("run-003.mcap")));
  EXPECT_EQ(gk::test::readFile(file("run-002.mcap")), "earlier");
}

/// A recording on a disk that is full once it has begun: no file may grow beyond its first bytes.
class FullDisk : public RecorderTest {
protected:
  FullDisk() {
    std::signal(SIGXFSZ, SIG_IGN); // as the program does
    getrlimit(RLIMIT_FSIZE, &fBefore);
    fOptions.onTrouble = [this](const std::string& text) {
      const std::lock_guard lock(fMutex);
      fTold.push_back(text);
    };
    begin();
    rlimit none = fBefore;
    none.rlim_cur = 100;
    setrlimit(RLIMIT_FSIZE, &none);
  }
  ~FullDisk() override { makeRoom(); }

  void makeRoom() const { setrlimit(RLIMIT_FSIZE, &fBefore); }

  std::vector<std::string> told() {
    const std::lock_guard lock(fMutex);
    return fTold;
  }

  /// Goes on with turns until a condition holds.
  template <class Condition> void runUntil(const Condition& condition) {
    while (!condition()) {
      fTime += kStep;
      turn(fTime);
      raise(GKNotice::Kind::Event, "Event", fTime);
      std::this_thread::yield();
    }
  }

  rlimit fBefore{};
  GKMicros fTime = 0;
  std::mutex fMutex;
  std::vector<std::string> fTold;
};

TEST_F(FullDisk, IsToldAtOnceAndStopsNobody) {
  runUntil([this] { return !told().empty(); });
  EXPECT_THAT(told()[0], testing::HasSubstr("run.mcap: File too large"));
  EXPECT_THAT(fSut->state().trouble, testing::HasSubstr("File too large"));
  runUntil([this] { return fSut->state().losses.blocks > 20; });
  EXPECT_EQ(told().size(), 1U);
  EXPECT_GT(fSut->state().losses.messages, 0U);
  EXPECT_THROW(fSut->finish(), OutputError);
}

TEST_F(FullDisk, ThatGetsRoomAgainGetsANewPartWhichTellsWhatIsMissing) {
  runUntil([this] { return fSut->state().losses.blocks > 0; });
  makeRoom();
  runUntil([this] { return told().size() == 2; });
  EXPECT_EQ(told()[1], "the recording goes on in " + file("run-002.mcap"));
  EXPECT_EQ(fSut->state().trouble, "");
  const GKMicros resumed = fTime;
  runUntil([&] { return fTime > resumed + 10 * kStep; });
  EXPECT_THROW(fSut->finish(), OutputError); // something is missing, after all
  const Part part = partOf(file("run-002.mcap"));
  EXPECT_GT(part.lostBlocks, 0U);
  EXPECT_EQ(part.turns.back(), fTime);
  EXPECT_EQ(part.messages.back(), fTime);
  // Nothing else is left of the tries in between.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(fFolder.path()), {}), 2);
}

} // namespace
