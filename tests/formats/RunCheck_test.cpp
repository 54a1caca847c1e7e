#include "formats/mcap/Source.h"
#include "formats/mcap/Writer.h"
#include "formats/run/RunCheck.h"
#include "formats/run/RunLogWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Whether the run in a recording can be read, when the file itself is in order.

namespace gk::formats {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

/// A recording with these blocks.
std::string recordingOf(const std::vector<std::string>& blocks) {
  mcap::MemorySink sink;
  mcap::Writer writer(sink, {});
  writer.addMetadata({kRunMetadata, {{"version", "test"}}});
  const std::uint16_t channel = writer.addChannel(kRunTopic, kRunEncoding, 0);
  for (const std::string& block : blocks) {
    writer.write(channel, 0, 0, block);
    writer.closeChunk();
  }
  writer.finish();
  return sink.bytes();
}

mcap::Problems problemsOf(const std::string& file) {
  mcap::MemorySource source(file);
  return checkRun(source);
}

std::string goodBlock(bool isNamed) {
  RunLogWriter log;
  if (isNamed) {
    log.add(RunKey{0, "key"});
  }
  log.add(RunStart{true, false});
  log.add(RunTurn{kMainTask, 0});
  log.beginValues();
  log.addValue(0, GK::GKValue(1.0F));
  log.endValues();
  return log.take();
}

TEST(RunCheck, ARunThatCanBeReadHasNoProblems) {
  EXPECT_EQ(problemsOf(recordingOf({goodBlock(true), goodBlock(false)})).count(), 0U);
}

TEST(RunCheck, ABlockThatIsNoneIsNamedWithItsChunk) {
  const mcap::Problems problems =
      problemsOf(recordingOf({goodBlock(true), std::string("\0\1\0\0\xFF", 5)}));
  ASSERT_THAT(problems.kept(), SizeIs(1));
  EXPECT_GT(problems.kept()[0].offset, 8U);
  EXPECT_EQ(problems.kept()[0].text, "run log: an entry of an unknown kind");
}

TEST(RunCheck, AValueOfAKeyWithoutANameIsNamed) {
  const mcap::Problems problems = problemsOf(recordingOf({goodBlock(false)}));
  ASSERT_THAT(problems.kept(), SizeIs(1));
  EXPECT_THAT(problems.kept()[0].text, HasSubstr("values of keys of which the names are lost"));
}

TEST(RunCheck, ValuesBehindAMissingBlockAreNamedOnce) {
  RunLogWriter log;
  log.add(RunKey{0, "key"});
  std::vector<std::string> blocks;
  for (int i = 0; i < 4; ++i) {
    log.beginValues();
    log.addValue(0, GK::GKValue(1.0F));
    log.endValues();
    blocks.push_back(log.take());
  }
  EXPECT_EQ(problemsOf(recordingOf(blocks)).count(), 0U);
  const mcap::Problems problems =
      problemsOf(recordingOf({goodBlock(true), blocks[0].substr(0, 1), blocks[2], blocks[3]}));
  EXPECT_THAT(problems.kept(), SizeIs(1));
}

TEST(RunCheck, ARunThatIsAnnouncedAndNotThereIsAProblem) {
  EXPECT_EQ(problemsOf(recordingOf({})).count(), 1U);
}

TEST(RunCheck, AFileWithoutARunHasNone) {
  mcap::MemorySink sink;
  mcap::Writer(sink, {}).finish();
  EXPECT_EQ(problemsOf(sink.bytes()).count(), 0U);
}

} // namespace
} // namespace gk::formats
