#include "app/terminal/Table.h"

#include "formats/text/Printable.h"

#include <algorithm>
#include <cstdlib>
#include <unistd.h>

namespace gk::app {

namespace {

/// Characters of a text in UTF-8, as they are shown.
std::size_t width(const std::string& cell) {
  const std::string text = formats::printable(cell);
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

} // namespace

bool isTerminal() {
  return isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
}

std::string tableText(const std::vector<std::vector<std::string>>& rows) {
  constexpr std::size_t gap = 2;
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], width(row[i]));
    }
  }
  std::string text;
  for (std::size_t number = 0; number < rows.size(); ++number) {
    std::string line;
    for (std::size_t i = 0; i < rows[number].size(); ++i) {
      const std::string& cell = rows[number][i];
      line += formats::printable(cell);
      line.append(widths[i] - width(cell) + gap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    const bool isBold = number == 0 && isTerminal();
    text += isBold ? "\033[1m" + line + "\033[0m\n" : line + "\n";
  }
  return text;
}

} // namespace gk::app
