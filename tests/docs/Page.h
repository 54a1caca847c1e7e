#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace gk::test {

/// A fenced block of a page. What stands behind the opening fence says what the block is; see
/// docs/testing.md.
struct Block {
  /// Where its fence stands, counted from 1.
  std::size_t line = 0;
  /// The words behind the opening fence: language, then marks. None for a block that is only shown.
  std::vector<std::string> words;
  std::vector<std::string> lines;

  bool is(const std::string& language) const { return !words.empty() && words[0] == language; }
  bool has(const std::string& mark) const;
};

/// A command of a console block and what the page shows of its output.
struct ShownCommand {
  std::string command;
  std::vector<std::string> output;
};

std::vector<std::string> linesOf(const std::string& text);

/// The fenced blocks of a page in their order. Fences may be indented, as in lists.
std::vector<Block> blocksOf(const std::filesystem::path& page);

/// Takes a console block apart: lines that begin with "$ " are commands (a "\" at the end goes on
/// in the next line), all others output of the command before.
std::vector<ShownCommand> shownCommandsOf(const Block& block);

/// Whether `actual` is what a page shows: line by line the same, where a line "..." stands for any
/// lines, also none, and "..." within a line for anything.
bool isShown(const std::vector<std::string>& shown, const std::vector<std::string>& actual);

/// A command that a table offers.
struct OfferedCommand {
  std::size_t line = 0;
  std::string command;
};

/// The commands of gk in tables that say how "to do this", in their order.
std::vector<OfferedCommand> offeredCommandsOf(const std::filesystem::path& page);

/// Words of a page that name files of the repository: targets of its links, relative to the page,
/// and what stands as code and begins with the name of a folder that ships, relative to the root.
/// Fenced blocks are left out.
std::vector<std::filesystem::path> filesNamedBy(const std::filesystem::path& page,
                                                const std::filesystem::path& root);

} // namespace gk::test
