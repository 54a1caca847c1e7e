#include "extensions/fleet/Outbox.h"
#include "fleetbridge/WatchedDisk.h"
#include "messages/fleet/FleetPayload.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace gk::fleet {

namespace {

using test::TemporaryFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Entry outboxEvent(std::uint64_t seq, const std::string& boot = "b1", std::size_t bytes = 100) {
  return {boot, seq, seq, static_cast<std::int64_t>(seq), "Event", std::string(bytes, 'x')};
}

std::vector<Entry> outboxEvents(std::uint64_t from, std::uint64_t to) {
  std::vector<Entry> entries;
  for (std::uint64_t seq = from; seq <= to; ++seq) {
    entries.push_back(outboxEvent(seq));
  }
  return entries;
}

/// What stands in it, in order: "b1:3", gaps as "b1:(1-2)".
std::vector<std::string> outboxContent(Outbox& outbox) {
  std::vector<std::string> content;
  for (const Kept& kept : outbox.read(0, INT64_MAX, 10000)) {
    const Entry& entry = kept.entry;
    content.push_back(entry.bootId + ":" +
                      (entry.isGap()
                           ? "(" + std::to_string(entry.from) + "-" + std::to_string(entry.to) + ")"
                           : std::to_string(entry.from)));
  }
  return content;
}

OutboxOptions outboxIn(const TemporaryFolder& folder) {
  return {.file = folder.file("deep/er/outbox.db")};
}

TEST(Outbox, EntriesAreThereAfterItsEnd) {
  const TemporaryFolder folder;
  {
    const auto sut = Outbox::open(outboxIn(folder)).outbox;
    EXPECT_EQ(sut->commit({}, outboxEvents(1, 3), {}).firstId, 1);
    sut->commit({2}, {outboxEvent(4)}, {});
  }
  const auto sut = Outbox::open(outboxIn(folder)).outbox;
  EXPECT_THAT(outboxContent(*sut), ElementsAre("b1:1", "b1:3", "b1:4"));
  EXPECT_EQ(sut->count(), 3U);
  EXPECT_EQ(sut->oldest(), 1);
  EXPECT_EQ(sut->nextId(), 5);
}

TEST(Outbox, SecondOneOnTheSameFileIsRefused) {
  const TemporaryFolder folder;
  const auto first = Outbox::open(outboxIn(folder)).outbox;
  try {
    Outbox::open(outboxIn(folder));
    FAIL() << "it was opened twice";
  } catch (const OutboxError& error) {
    EXPECT_THAT(error.what(), HasSubstr("another process has this outbox"));
  }
}

TEST(Outbox, OldestGoBeyondItsBytesAndAGapTellsWhich) {
  const TemporaryFolder folder;
  OutboxOptions options = outboxIn(folder);
  options.bytes = 1500; // ten of 147 bytes each
  const auto sut = Outbox::open(options).outbox;
  sut->commit({}, outboxEvents(1, 10), {});
  EXPECT_EQ(sut->count(), 10U);
  const Outbox::Committed committed = sut->commit({}, {outboxEvent(11)}, {});
  ASSERT_EQ(committed.givenUp.size(), 1U);
  EXPECT_EQ(committed.givenUp[0].from, 1U);
  EXPECT_TRUE(committed.isRearranged);
  EXPECT_LE(sut->bytes(), options.bytes);
  const auto content = outboxContent(*sut);
  EXPECT_EQ(content.front(), "b1:(1-" + std::to_string(committed.givenUp[0].to) + ")");
  EXPECT_EQ(content.back(), "b1:11");
}

TEST(Outbox, FurtherGapsOfTheSameRowOfEventsBecomeOne) {
  const TemporaryFolder folder;
  OutboxOptions options = outboxIn(folder);
  options.bytes = 1500;
  const auto sut = Outbox::open(options).outbox;
  for (std::uint64_t seq = 1; seq <= 200; ++seq) {
    sut->commit({}, {outboxEvent(seq)}, {});
  }
  const auto content = outboxContent(*sut);
  EXPECT_EQ(
      std::ranges::count_if(content, [](const std::string& text) { return text.ends_with(')'); }),
      1);
  const Kept gap = sut->read(0, INT64_MAX, 1).front();
  EXPECT_EQ(gap.entry.from, 1U);
  EXPECT_EQ(content[1], "b1:" + std::to_string(gap.entry.to + 1));
  const messages::FleetGap told = messages::readGap(gap.entry.body);
  EXPECT_EQ(told.to, gap.entry.to);
}

TEST(Outbox, WhatIsOnItsWayStays) {
  const TemporaryFolder folder;
  OutboxOptions options = outboxIn(folder);
  options.bytes = 1500;
  const auto sut = Outbox::open(options).outbox;
  sut->commit({}, outboxEvents(1, 10), {});
  sut->commit({}, outboxEvents(11, 13), {2, 3});
  const auto content = outboxContent(*sut);
  EXPECT_THAT(content, testing::Contains("b1:2"));
  EXPECT_THAT(content, testing::Contains("b1:3"));
  EXPECT_THAT(content, testing::Contains("b1:(1-1)"));
  EXPECT_THAT(content, testing::Contains(testing::StartsWith("b1:(4-")));
}

TEST(Outbox, GapsOfSeveralBootsStayApart) {
  const TemporaryFolder folder;
  OutboxOptions options = outboxIn(folder);
  options.bytes = 1500;
  const auto sut = Outbox::open(options).outbox;
  sut->commit({}, {outboxEvent(7, "b0"), outboxEvent(8, "b0")}, {});
  sut->commit({}, outboxEvents(1, 40), {});
  const auto content = outboxContent(*sut);
  EXPECT_EQ(content[0], "b0:(7-8)");
  EXPECT_THAT(content[1], testing::StartsWith("b1:(1-"));
}

TEST(Outbox, NeighbouringGapsThatAreAddedBecomeOne) {
  const TemporaryFolder folder;
  const auto sut = Outbox::open(outboxIn(folder)).outbox;
  sut->commit({}, {gapEntry({"b1", 1, 2}, 0), gapEntry({"b1", 5, 6}, 0)}, {});
  sut->commit({}, {gapEntry({"b1", 3, 4}, 0), gapEntry({"b2", 7, 7}, 0)}, {});
  EXPECT_THAT(outboxContent(*sut), ElementsAre("b1:(1-6)", "b2:(7-7)"));
}

TEST(Outbox, FileThatIsNoDatabaseIsPutAside) {
  const TemporaryFolder folder;
  const std::string file = folder.file("outbox.db");
  test::writeFile(file, std::string(8192, 'z'));
  const Outbox::Opened opened = Outbox::open({.file = file});
  EXPECT_THAT(opened.aside, testing::StartsWith(file + ".damaged-"));
  EXPECT_EQ(test::readFile(opened.aside), std::string(8192, 'z'));
  EXPECT_THAT(outboxContent(*opened.outbox), IsEmpty());
}

TEST(Outbox, OfADamagedFileIsToldWhatCanBeRead) {
  const TemporaryFolder folder;
  const std::string file = folder.file("outbox.db");
  {
    const auto outbox = Outbox::open({.file = file}).outbox;
    outbox->commit({}, outboxEvents(1, 500), {});
  }
  // A page in the middle.
  std::string content = test::readFile(file);
  const std::size_t page = 4096;
  content.replace(content.size() / page / 2 * page, page, page, '\xFF');
  test::writeFile(file, content);
  const Outbox::Opened opened = Outbox::open({.file = file});
  EXPECT_NE(opened.aside, "");
  EXPECT_EQ(opened.outbox->count(), 0U);
  ASSERT_EQ(opened.lost.size(), 1U);
  EXPECT_EQ(opened.lost[0].bootId, "b1");
  EXPECT_EQ(opened.lost[0].from, 1U);
  EXPECT_EQ(opened.lost[0].to, 500U);
}

TEST(Outbox, FullDiskChangesNothing) {
  const TemporaryFolder folder;
  bool isFull = false;
  test::WatchedDisk disk;
  disk.full = [&isFull] { return isFull; };
  OutboxOptions options = outboxIn(folder);
  options.vfs = test::WatchedDisk::kName;
  const auto sut = Outbox::open(options).outbox;
  sut->commit({}, outboxEvents(1, 2), {});
  isFull = true;
  EXPECT_THROW(sut->commit({1}, outboxEvents(3, 4), {}), SqliteError);
  EXPECT_EQ(sut->count(), 2U);
  isFull = false;
  EXPECT_EQ(sut->commit({1}, outboxEvents(3, 4), {}).firstId, 3);
  EXPECT_THAT(outboxContent(*sut), ElementsAre("b1:2", "b1:3", "b1:4"));
}

/// What an outbox holds that is opened on a copy of the files; nothing where it was damaged.
std::vector<std::string> contentOfCopy(const std::map<std::string, std::string>& files) {
  const TemporaryFolder folder;
  for (const auto& [name, content] : files) {
    test::writeFile(folder.file(name), content);
  }
  const Outbox::Opened opened = Outbox::open({.file = folder.file("outbox.db")});
  return opened.aside.empty() ? outboxContent(*opened.outbox)
                              : std::vector<std::string>{"damaged: " + opened.aside};
}

/// Whenever the power goes: an outbox without damage that holds what was committed, or that and all
/// of what was just being committed.
TEST(Outbox, PowerMayGoAfterAnyWrite) {
  const TemporaryFolder folder;
  // Before the outbox, which writes when it ends as well.
  std::vector<std::string> before;
  std::vector<std::map<std::string, std::string>> views;
  std::set<std::string> seen;
  test::WatchedDisk disk;
  const OutboxOptions options{
      .file = folder.file("outbox.db"), .bytes = 3000, .vfs = test::WatchedDisk::kName};
  const auto sut = Outbox::open(options).outbox;
  disk.onChange = [&] {
    std::map<std::string, std::string> all;
    for (const char* name : {"outbox.db", "outbox.db-wal"}) {
      if (std::filesystem::exists(folder.file(name))) {
        all[name] = test::readFile(folder.file(name));
      }
    }
    // Both what was written at all and what was written through.
    for (const auto& view : {all, disk.survivors()}) {
      std::string key;
      for (const auto& [name, content] : view) {
        key += name + content;
      }
      if (view.contains("outbox.db") && seen.insert(key).second) {
        views.push_back(view);
      }
    }
  };
  std::size_t checked = 0;
  for (std::uint64_t round = 0; round < 12; ++round) {
    views.clear();
    before = outboxContent(*sut);
    const std::uint64_t first = round * 4 + 1;
    const auto acknowledged = static_cast<std::int64_t>(first) - 3;
    sut->commit({acknowledged}, outboxEvents(first, first + 3), {});
    const std::vector<std::string> after = outboxContent(*sut);
    for (const auto& view : views) {
      const std::vector<std::string> content = contentOfCopy(view);
      EXPECT_TRUE(content == before || content == after)
          << "round " << round << ": " << testing::PrintToString(content);
      ++checked;
    }
    // It is there for good once `commit` has returned.
    EXPECT_EQ(contentOfCopy(disk.survivors()), after);
  }
  EXPECT_GT(checked, 20U);
}

} // namespace

} // namespace gk::fleet
