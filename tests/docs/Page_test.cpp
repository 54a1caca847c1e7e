#include "docs/Page.h"
#include "support/Program.h"

#include <gmock/gmock.h>

// How pages are read and compared with what commands say.

namespace {

using gk::test::Block;
using gk::test::blocksOf;
using gk::test::isShown;
using gk::test::OfferedCommand;
using gk::test::offeredCommandsOf;
using gk::test::shownCommandsOf;
using testing::ElementsAre;
using testing::IsEmpty;

struct PageText : testing::Test {
  std::vector<Block> blocks(const std::string& text) const {
    gk::test::writeFile(folder.file("page.md"), text);
    return blocksOf(folder.file("page.md"));
  }

  const gk::test::TemporaryFolder folder;
};

TEST_F(PageText, BlocksHaveTheirWordsTheirLinesAndTheirPlace) {
  const std::vector<Block> found = blocks("text\n"
                                          "```sh host\n"
                                          "gk run\n"
                                          "```\n"
                                          "text\n"
                                          "```\n"
                                          "picture\n"
                                          "\n"
                                          "```\n");
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].line, 2U);
  EXPECT_THAT(found[0].words, ElementsAre("sh", "host"));
  EXPECT_THAT(found[0].lines, ElementsAre("gk run"));
  EXPECT_THAT(found[1].words, IsEmpty());
  EXPECT_THAT(found[1].lines, ElementsAre("picture", ""));
}

TEST_F(PageText, BlocksInListsLoseTheIndentOfTheirFence) {
  const std::vector<Block> found = blocks("- item\n\n  ```sh\n  one\n    two\n  ```\n");
  ASSERT_EQ(found.size(), 1U);
  EXPECT_THAT(found[0].lines, ElementsAre("one", "  two"));
}

TEST_F(PageText, ConsoleBlocksAreCommandsWithTheirOutput) {
  const auto commands = shownCommandsOf({1, {"console"}, {"$ a \\", "    b", "1", "2", "$ c"}});
  ASSERT_EQ(commands.size(), 2U);
  EXPECT_EQ(commands[0].command, "a \\\n    b");
  EXPECT_THAT(commands[0].output, ElementsAre("1", "2"));
  EXPECT_EQ(commands[1].command, "c");
  EXPECT_THAT(commands[1].output, IsEmpty());
}

TEST(ShownOutput, IsComparedLineByLine) {
  EXPECT_TRUE(isShown({"a", "b"}, {"a", "b"}));
  EXPECT_FALSE(isShown({"a"}, {"a", "b"}));
  EXPECT_FALSE(isShown({"a", "b"}, {"a"}));
  EXPECT_FALSE(isShown({}, {"a"}));
  EXPECT_FALSE(isShown({"a"}, {"b"}));
}

TEST(ShownOutput, ThreeDotsStandForAnyLines) {
  EXPECT_TRUE(isShown({"..."}, {}));
  EXPECT_TRUE(isShown({"a", "...", "c"}, {"a", "c"}));
  EXPECT_TRUE(isShown({"a", "...", "c"}, {"a", "b", "c", "b", "c"}));
  EXPECT_TRUE(isShown({"...", "c", "..."}, {"a", "c", "b"}));
  EXPECT_FALSE(isShown({"a", "...", "c"}, {"a", "c", "b"}));
  EXPECT_FALSE(isShown({"...", "c", "..."}, {"a", "b"}));
}

TEST(ShownOutput, ThreeDotsInALineStandForAnything) {
  EXPECT_TRUE(isShown({"a ... c"}, {"a b b c"}));
  EXPECT_TRUE(isShown({"a..."}, {"a"}));
  EXPECT_FALSE(isShown({"a ... c"}, {"a b"}));
}

TEST_F(PageText, TablesOfferCommands) {
  gk::test::writeFile(folder.file("page.md"), "| to do this | |\n"
                                              "| --- | --- |\n"
                                              "| one (`gk run`) | `gk one`, `gk two \\| cat` |\n"
                                              "| other | bash: `source <(gk x)` |\n"
                                              "\n"
                                              "| command | |\n"
                                              "| what | `gk three FILE` |\n");
  const std::vector<OfferedCommand> found = offeredCommandsOf(folder.file("page.md"));
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].command, "gk one");
  EXPECT_EQ(found[1].command, "gk two | cat");
  EXPECT_EQ(found[1].line, 3U);
  EXPECT_EQ(found[2].command, "source <(gk x)");
}

} // namespace
