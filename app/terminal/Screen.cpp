#include "app/terminal/Screen.h"

#include "messages/text/Utf8.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

namespace gk::app {

namespace {

constexpr char kEscape = '\x1b';
constexpr std::string_view kAllOff = "\x1b[0m";
constexpr std::string_view kMore = "…";

/// Bytes of the order to the terminal that `text` begins with; 0 when it begins with none.
std::size_t orderLength(std::string_view text) {
  if (text.size() < 2 || text[0] != kEscape || text[1] != '[') {
    return 0;
  }
  // Parameters end with the first byte from '@' on.
  const auto end = std::ranges::find_if(text.substr(2), [](char c) { return c >= '@'; });
  return std::min(text.size(), static_cast<std::size_t>(end - text.begin()) + 1);
}

/// One piece of a line: an order, which has no width, or a character.
struct Piece {
  std::size_t bytes;
  std::size_t width;
};

Piece firstPiece(std::string_view text) {
  if (const std::size_t order = orderLength(text); order > 0) {
    return {order, 0};
  }
  return {std::max<std::size_t>(messages::characterLength(text), 1), 1};
}

std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

} // namespace

ScreenSize screenSize() {
  winsize told{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &told) != 0 || told.ws_col == 0 || told.ws_row == 0) {
    return {};
  }
  return {told.ws_col, told.ws_row};
}

std::size_t shownWidth(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Piece piece = firstPiece(text);
    width += piece.width;
    text.remove_prefix(piece.bytes);
  }
  return width;
}

std::string cutLine(std::string_view line, std::size_t columns) {
  if (shownWidth(line) <= columns) {
    return std::string(line);
  }
  std::string cut;
  bool hasOrders = false;
  for (std::size_t left = std::max<std::size_t>(columns, 1) - 1; !line.empty();) {
    const Piece piece = firstPiece(line);
    if (piece.width > left) {
      break;
    }
    hasOrders = hasOrders || piece.width == 0;
    left -= piece.width;
    cut += line.substr(0, piece.bytes);
    line.remove_prefix(piece.bytes);
  }
  cut += kMore;
  return hasOrders ? cut + std::string(kAllOff) : cut;
}

std::string wrappedText(std::string_view text, std::size_t columns, std::size_t indent) {
  std::string wrapped;
  std::size_t width = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    const std::size_t needed = shownWidth(word);
    if (width > indent && width + 1 + needed > columns) {
      wrapped += '\n';
      wrapped.append(indent, ' ');
      width = indent;
    } else if (!wrapped.empty()) {
      wrapped += ' ';
      ++width;
    }
    wrapped += word;
    width += needed;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return wrapped;
}

void Picture::draw(std::string_view text) {
  const ScreenSize size = screenSize();
  std::string out;
  if (fLines > 0) {
    // Nobody knows how a terminal has broken the lines that it showed when its size changed.
    out = size == fSize ? fmt::format("\x1b[{}A", fLines) : "\x1b[H\x1b[2J";
  }
  std::vector<std::string_view> lines = linesOf(text);
  // The cursor stands below the last line.
  const std::size_t most = std::max<std::size_t>(size.rows, 2) - 1;
  std::string more;
  if (lines.size() > most) {
    more = fmt::format("… {} more", lines.size() - most + 1);
    lines.resize(most - 1);
    lines.emplace_back(more);
  }
  // Characters that take two columns must not break a line either.
  out += "\x1b[?7l";
  for (const std::string_view line : lines) {
    out += cutLine(line, size.columns) + "\x1b[K\n";
  }
  out += "\x1b[J\x1b[?7h";
  fSize = size;
  fLines = lines.size();
  std::fwrite(out.data(), 1, out.size(), stdout);
  std::fflush(stdout);
}

bool Picture::isOutgrown() const {
  return fLines > 0 && screenSize() != fSize;
}

} // namespace gk::app
