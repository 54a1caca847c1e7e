#include "formats/mcap/Source.h"
#include "formats/mcap/Writer.h"
#include "formats/run/RunCheck.h"
#include "formats/run/RunLog.h"

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
  const mcap::Problems problems = problemsOf(recordingOf({goodBlock(true), "\xFF"}));
  ASSERT_THAT(problems.kept(), SizeIs(1));
  EXPECT_GT(problems.kept()[0].offset, 8U);
  EXPECT_EQ(problems.kept()[0].text, "run log: an entry of an unknown kind");
}

TEST(RunCheck, AValueOfAKeyWithoutANameIsNamed) {
  const mcap::Problems problems = problemsOf(recordingOf({goodBlock(false)}));
  ASSERT_THAT(problems.kept(), SizeIs(1));
  EXPECT_THAT(problems.kept()[0].text, HasSubstr("a value of key 0, which has no name"));
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
