#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace gk::app {

/// Columns and rows of a terminal.
struct ScreenSize {
  std::size_t columns = 80;
  std::size_t rows = 24;

  bool operator==(const ScreenSize&) const = default;
};

/// The size of the terminal that standard output is; 80 by 24 where it does not tell.
ScreenSize screenSize();

/// Characters of a text in UTF-8 as they are shown; orders to the terminal (ECMA-48) take no place.
std::size_t shownWidth(std::string_view text);

/// A line without its end, cut to so many columns: the last one that is left is "…" then. What was
/// switched on in the line is switched off behind it.
std::string cutLine(std::string_view line, std::size_t columns);

/// A text in lines of so many columns, broken between words; all but the first begin with `indent`
/// spaces. Words that are longer stay whole.
std::string wrappedText(std::string_view text, std::size_t columns, std::size_t indent);

/// A picture of some lines at the bottom of what the terminal shows, redrawn in place. It never has
/// more lines or columns than the terminal, however the size of that changes. For one thread.
class Picture {
public:
  /// Draws the lines of `text`, each of which ends in '\n', over those that were drawn before.
  void draw(std::string_view text);

  /// True when the terminal has another size than what was drawn last was made for.
  bool isOutgrown() const;

private:
  ScreenSize fSize;
  std::size_t fLines = 0;
};

} // namespace gk::app
