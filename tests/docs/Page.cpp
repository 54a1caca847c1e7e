#include "docs/Page.h"

#include "support/Program.h"

#include <algorithm>
#include <regex>
#include <sstream>

namespace gk::test {

namespace {

constexpr const char* kFence = "```";
constexpr const char* kAnything = "...";

/// Whether a sequence is what a pattern says, in which some elements stand for any number of
/// others.
template <class Pattern, class Sequence, class IsAny, class IsOne> bool
matches(const Pattern& pattern, const Sequence& sequence, const IsAny& isAny, const IsOne& isOne) {
  std::size_t at = 0;
  std::size_t place = 0;
  std::size_t lastAny = pattern.size();
  std::size_t placeOfAny = 0;
  while (place < sequence.size()) {
    if (at < pattern.size() && isAny(pattern[at])) {
      lastAny = at++;
      placeOfAny = place;
    } else if (at < pattern.size() && isOne(pattern[at], sequence[place])) {
      ++at;
      ++place;
    } else if (lastAny < pattern.size()) {
      at = lastAny + 1;
      place = ++placeOfAny;
    } else {
      return false;
    }
  }
  return std::all_of(pattern.begin() + static_cast<std::ptrdiff_t>(at), pattern.end(), isAny);
}

bool isShownLine(std::string shown, const std::string& actual) {
  // No page shows this character.
  constexpr char kAny = '\x01';
  for (std::size_t at = 0; (at = shown.find(kAnything, at)) != std::string::npos;) {
    shown.replace(at, std::string(kAnything).size(), 1, kAny);
  }
  return matches(
      shown, actual, [](char c) { return c == kAny; },
      [](char one, char other) { return one == other; });
}

std::string withoutIndent(const std::string& line, std::size_t indent) {
  const std::size_t text = std::min(line.find_first_not_of(' '), line.size());
  return line.substr(std::min(text, indent));
}

} // namespace

bool Block::has(const std::string& mark) const {
  return std::find(words.begin(), words.end(), mark) != words.end();
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::vector<Block> blocksOf(const std::filesystem::path& page) {
  std::vector<Block> blocks;
  bool isInside = false;
  std::size_t indent = 0;
  std::size_t number = 0;
  for (const std::string& line : linesOf(readFile(page))) {
    ++number;
    const std::size_t fence = line.find_first_not_of(' ');
    const bool isFence = fence != std::string::npos && line.compare(fence, 3, kFence) == 0;
    if (isFence && !isInside) {
      Block block;
      block.line = number;
      std::istringstream words(line.substr(fence + 3));
      for (std::string word; words >> word;) {
        block.words.push_back(word);
      }
      blocks.push_back(std::move(block));
      indent = fence;
    } else if (!isFence && isInside) {
      blocks.back().lines.push_back(withoutIndent(line, indent));
    }
    isInside = isInside != isFence;
  }
  return blocks;
}

std::vector<ShownCommand> shownCommandsOf(const Block& block) {
  std::vector<ShownCommand> commands;
  bool goesOn = false;
  for (const std::string& line : block.lines) {
    if (goesOn) {
      commands.back().command += "\n" + line;
    } else if (line.starts_with("$ ")) {
      commands.push_back({line.substr(2), {}});
    } else if (!commands.empty()) {
      commands.back().output.push_back(line);
      continue;
    } else {
      throw std::runtime_error("line " + std::to_string(block.line) +
                               ": the block begins with output");
    }
    goesOn = line.ends_with("\\");
  }
  return commands;
}

bool isShown(const std::vector<std::string>& shown, const std::vector<std::string>& actual) {
  return matches(
      shown, actual, [](const std::string& line) { return line == kAnything; }, isShownLine);
}

std::vector<OfferedCommand> offeredCommandsOf(const std::filesystem::path& page) {
  static const std::regex kCode(R"(`((?:source <\()?gk [^`]*)`)");
  std::vector<OfferedCommand> commands;
  bool isOffer = false;
  std::size_t number = 0;
  for (const std::string& line : linesOf(readFile(page))) {
    ++number;
    isOffer = line.starts_with("| to do this |") || (isOffer && line.starts_with("|"));
    // What stands in the first cell is said of the second.
    const std::size_t second = line.find(" | ");
    if (!isOffer || second == std::string::npos) {
      continue;
    }
    const std::string cell = std::regex_replace(line.substr(second), std::regex(R"(\\\|)"), "|");
    for (std::sregex_iterator found(cell.begin(), cell.end(), kCode), end; found != end; ++found) {
      commands.push_back({number, (*found)[1]});
    }
  }
  return commands;
}

std::vector<std::filesystem::path> filesNamedBy(const std::filesystem::path& page,
                                                const std::filesystem::path& root) {
  static const std::regex kLink(R"(\]\(([^)#:]+)(#[^)]*)?\))");
  static const std::regex kCode(
      R"(`((?:app|bench|cmake|data|devices|docs|examples|formats|gateway|modules|packaging|platform|runtime|tests|web)/[a-zA-Z0-9_./-]*)`)");
  std::vector<std::filesystem::path> files;
  bool isInside = false;
  for (const std::string& line : linesOf(readFile(page))) {
    if (line.find(kFence) != std::string::npos) {
      isInside = !isInside;
    }
    if (isInside) {
      continue;
    }
    const auto collect = [&](const std::regex& what, const std::filesystem::path& folder) {
      for (std::sregex_iterator found(line.begin(), line.end(), what), end; found != end; ++found) {
        files.push_back(folder / (*found)[1].str());
      }
    };
    collect(kLink, page.parent_path());
    collect(kCode, root);
  }
  return files;
}

} // namespace gk::test
