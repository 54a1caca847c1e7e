#include "app/terminal/Table.h"

#include "app/terminal/Screen.h"
#include "formats/text/Printable.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace gk::app {

namespace {

std::size_t widthOf(const std::string& cell) {
  return shownWidth(formats::printable(cell));
}

} // namespace

bool isTerminal() {
  const char* kind = std::getenv("TERM");
  return isatty(STDOUT_FILENO) != 0 && (kind == nullptr || std::string_view(kind) != "dumb");
}

bool hasColours() {
  const char* without = std::getenv("NO_COLOR");
  return isTerminal() && (without == nullptr || *without == '\0');
}

std::string tableText(const std::vector<std::vector<std::string>>& rows) {
  constexpr std::size_t gap = 2;
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], widthOf(row[i]));
    }
  }
  std::string text;
  for (std::size_t number = 0; number < rows.size(); ++number) {
    std::string line;
    for (std::size_t i = 0; i < rows[number].size(); ++i) {
      const std::string& cell = rows[number][i];
      line += formats::printable(cell);
      line.append(widths[i] - widthOf(cell) + gap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    const bool isBold = number == 0 && hasColours();
    text += isBold ? "\033[1m" + line + "\033[0m\n" : line + "\n";
  }
  return text;
}

} // namespace gk::app
