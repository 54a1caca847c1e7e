#include "formats/mcap/Sink.h"
#include "formats/mcap/Writer.h"
#include "formats/run/RunFile.h"
#include "formats/run/RunLogWriter.h"
#include "gk/GKMemoryStore.h"
#include "runtime/recording/RunReplay.h"
#include "support/Gk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Which turn gets what of a log, and runs that cannot be read.

namespace {

namespace mcap = gk::formats::mcap;
using gk::formats::CallAction;
using gk::formats::RunAction;
using gk::formats::RunKey;
using gk::formats::RunLogWriter;
using gk::formats::RunLost;
using gk::formats::RunStart;
using gk::formats::RunTask;
using gk::formats::RunTurn;
using gk::runtime::RunReplay;
using gk::test::ProgramResult;
using gk::test::runGk;
using gk::test::TemporaryFolder;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::uint64_t kFirst = GK::GKTurn::kFirstTask;

void writeRun(const std::string& path, const std::vector<std::string>& blocks) {
  mcap::FileSink sink(path);
  mcap::Writer writer(sink, {});
  writer.addMetadata({gk::formats::kRunMetadata, {{"clock", gk::formats::kTurnsClock}}});
  const std::uint16_t channel =
      writer.addChannel(gk::formats::kRunTopic, gk::formats::kRunEncoding, 0);
  for (const std::string& block : blocks) {
    writer.write(channel, 0, 0, block);
  }
  writer.finish();
  sink.file().appear();
}

void addValue(RunLogWriter& log, const GK::GKValue& value, std::uint64_t key = 0) {
  log.beginValues();
  log.addValue(key, value);
  log.endValues();
}

/// Keys, the start, and the main thread's turn.
void addBeginning(RunLogWriter& log) {
  log.add(RunKey{0, "key"});
  addValue(log, GK::GKValue(0.0F));
  log.add(RunStart{true, false});
  log.add(RunTurn{GK::GKTurn::kMain, 0});
}

class RunReplayTest : public testing::Test {
protected:
  /// A replay of these blocks, past the main thread's turn.
  RunReplay& replayOf(const std::vector<std::string>& blocks) {
    writeRun(fPath, blocks);
    fSut.emplace(std::vector<std::string>{fPath});
    fSut->attach(
        fStore,
        [this](const gk::formats::Action& action) {
          const auto& call = std::get<CallAction>(action);
          fCalls.push_back(call.label);
          fNumbers.push_back(fSut->started({call.module, call.method}).value_or(0));
        },
        [this](const CallAction& call) { fCallsNow.push_back(call.label); });
    fSut->next();
    fSut->begin();
    return *fSut;
  }

  const TemporaryFolder fFolder;
  const std::string fPath = fFolder.file("run.mcap");
  const std::shared_ptr<GK::GKMemoryStore> fStore = std::make_shared<GK::GKMemoryStore>();
  std::optional<RunReplay> fSut;
  std::vector<std::string> fCalls;
  std::vector<std::string> fCallsNow;
  std::vector<std::uint64_t> fNumbers;
};

TEST_F(RunReplayTest, ACallThatHadNoTaskIsMadeInTheTurnInWhichItWasMade) {
  RunLogWriter log;
  addBeginning(log);
  log.add(RunTurn{GK::GKTurn::kOutside, 10});
  log.add(RunAction{CallAction{"A", "write", {}, "at once"}});
  log.add(RunTurn{GK::GKTurn::kOutside, 20});
  log.add(RunAction{CallAction{"A", "one", {}, "with a task"}});
  log.add(RunTask{kFirst, "A", "one"});
  log.add(RunTurn{kFirst, 30});
  RunReplay& sut = replayOf({log.take()});
  sut.begin();
  EXPECT_THAT(fCallsNow, ElementsAre("at once"));
  EXPECT_THAT(fCalls, ElementsAre());
  sut.begin();
  EXPECT_THAT(fCallsNow, ElementsAre("at once"));
  EXPECT_THAT(fCalls, ElementsAre("with a task"));
  sut.begin();
  EXPECT_TRUE(sut.isComplete());
}

TEST_F(RunReplayTest, WhatComesFromOutsideDuringATasksTurnIsRepeatedWithItsTask) {
  RunLogWriter log;
  addBeginning(log);
  log.add(RunTurn{GK::GKTurn::kOutside, 10});
  log.add(RunAction{CallAction{"A", "one", {}, "first"}});
  log.add(RunTask{kFirst, "A", "one"});
  log.add(RunTurn{kFirst, 20});
  log.add(RunTask{kFirst + 1, "A", "one"}); // the task's own
  log.add(RunAction{CallAction{"A", "one", {}, "second"}});
  log.add(RunTask{kFirst + 2, "A", "one"});
  log.add(RunTurn{kFirst + 2, 30});
  RunReplay& sut = replayOf({log.take()});
  sut.begin();
  EXPECT_THAT(fCalls, ElementsAre("first"));
  sut.begin();
  EXPECT_THAT(fCalls, ElementsAre("first", "second"));
  EXPECT_THAT(fNumbers, ElementsAre(kFirst, kFirst + 2));
  EXPECT_FALSE(sut.isComplete());
  EXPECT_EQ(sut.started({"A", "one"}), kFirst + 1);
  sut.begin();
  EXPECT_TRUE(sut.isComplete());
  EXPECT_THAT(sut.warnings(), ElementsAre());
}

TEST_F(RunReplayTest, TasksThatDoNotComeUpAgainAreToldAndThoseThatLookUpForClientsAreNot) {
  RunLogWriter log;
  addBeginning(log);
  log.add(RunTurn{GK::GKTurn::kOutside, 10});
  log.add(RunTask{kFirst, "GKSensors", "version"});
  log.add(RunTurn{kFirst, 20});
  const std::string lookUp = log.take();
  {
    RunReplay& sut = replayOf({lookUp});
    sut.begin();
    sut.begin();
    EXPECT_TRUE(sut.isComplete());
  }
  log.add(RunTurn{kFirst, 30});
  log.add(RunTask{kFirst + 1, "A", "gone"});
  RunReplay& sut = replayOf({lookUp, log.take()});
  sut.begin();
  sut.begin();
  sut.begin();
  EXPECT_FALSE(sut.isComplete());
  EXPECT_THAT(sut.warnings(), ElementsAre("1 tasks of the recorded run did not come up again"));
}

TEST_F(RunReplayTest, TheStateWithWhichAPartBeginsIsThereWithItsFirstTurnAndNoSooner) {
  RunLogWriter log;
  addBeginning(log);
  log.add(RunTurn{kFirst, 10});
  addValue(log, 1.0F);
  const std::string first = log.take();
  log.add(RunKey{0, "key"});
  addValue(log, 2.0F);
  log.add(RunStart{true, true});
  log.add(RunTurn{GK::GKTurn::kMain, 20});
  log.add(RunTurn{kFirst, 20});
  RunReplay& sut = replayOf({first, log.take()});
  sut.begin();
  EXPECT_EQ(fStore->get("key")->toFloat(), 1.0F);
  ASSERT_EQ(sut.next()->time, 20);
  ASSERT_EQ(sut.next()->task, kFirst);
  sut.begin();
  EXPECT_EQ(fStore->get("key")->toFloat(), 2.0F);
  EXPECT_FALSE(sut.next());
  EXPECT_TRUE(sut.isComplete());
}

TEST_F(RunReplayTest, OfSeveralValuesInATurnTheLastOneHoldsWhateverItsType) {
  RunLogWriter log;
  addBeginning(log);
  log.add(RunKey{1, "other"});
  log.add(RunTurn{kFirst, 10});
  addValue(log, "a text");
  addValue(log, "another", 1);
  addValue(log, 1.5F);
  log.add(RunTurn{kFirst, 20});
  addValue(log, 2.5F);
  addValue(log, 7);
  addValue(log, GK::GKValue::Array{1, 2});
  RunReplay& sut = replayOf({log.take()});
  sut.begin();
  EXPECT_EQ(fStore->get("key"), GK::GKValue(1.5F));
  EXPECT_EQ(fStore->get("other"), GK::GKValue("another"));
  sut.begin();
  EXPECT_EQ(fStore->get("key"), (GK::GKValue::Array{1, 2}));
}

TEST_F(RunReplayTest, AKeyMayGetItsNameBehindLaterOnes) {
  RunLogWriter log;
  addBeginning(log);
  log.add(RunKey{2, "third"});
  log.add(RunTurn{kFirst, 10});
  addValue(log, 3.0F, 2);
  log.add(RunKey{1, "second"});
  addValue(log, 2.0F, 1);
  RunReplay& sut = replayOf({log.take()});
  sut.begin();
  EXPECT_EQ(fStore->get("third"), GK::GKValue(3.0F));
  EXPECT_EQ(fStore->get("second"), GK::GKValue(2.0F));
  EXPECT_TRUE(sut.isComplete());
}

TEST_F(RunReplayTest, ValuesOfKeysWithoutANameAreLeftOut) {
  RunLogWriter log;
  addBeginning(log);
  log.add(RunKey{1, "second"});
  log.add(RunTurn{kFirst, 10});
  log.beginValues();
  for (std::uint64_t key = 0; key < 4; ++key) {
    log.addValue(key, GK::GKValue(4.0F));
  }
  log.endValues();
  RunReplay& sut = replayOf({log.take()});
  sut.begin();
  EXPECT_THAT(fStore->keys(), ElementsAre("key", "second"));
  EXPECT_EQ(fStore->get("second"), GK::GKValue(4.0F));
  EXPECT_FALSE(sut.isComplete());
}

TEST_F(RunReplayTest, BlocksThatAreMissingAreCounted) {
  RunLogWriter log;
  addBeginning(log);
  log.add(RunTurn{kFirst, 10});
  log.add(RunLost{3});
  RunReplay& sut = replayOf({log.take()});
  sut.begin();
  EXPECT_FALSE(sut.isComplete());
  EXPECT_THAT(sut.warnings(), testing::Contains("3 blocks of the recorded run are missing"));
}

/// A block of an entry of an unknown kind.
const std::string kNoEntry("\0\1\0\0\xFF", 5);

/// A recording of which the file is in order and the run is not.
class UnreadableRun : public testing::Test {
protected:
  UnreadableRun() { writeRun(fPath, {kNoEntry, kNoEntry}); }

  const TemporaryFolder fFolder;
  const std::string fPath = fFolder.file("run.mcap");
};

TEST_F(UnreadableRun, IsNotRepeatedAndThatIsAFailure) {
  const ProgramResult result = runGk({"replay", fPath});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr("gk: nothing of the run can be read: nothing was repeated\n"));
}

TEST_F(UnreadableRun, IsNoInputAndThatIsAFailure) {
  const ProgramResult result = runGk({"replay", "--as-input", fPath});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr("run log: an entry of an unknown kind"));
}

TEST_F(UnreadableRun, IsFoundByVerify) {
  const ProgramResult result = runGk({"recording", "verify", fPath});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.out, HasSubstr("run log: an entry of an unknown kind"));
  EXPECT_THAT(result.out, HasSubstr(": 3 problems, "));
}

TEST_F(UnreadableRun, IsSavedByRecoverWithAWordAboutIt) {
  const ProgramResult result = runGk({"recording", "recover", fPath, fFolder.file("out.mcap")});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr("3 pieces of the run in it cannot be read"));
  EXPECT_TRUE(std::filesystem::exists(fFolder.file("out.mcap")));
}

} // namespace
