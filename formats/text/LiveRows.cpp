#include "formats/text/LiveRows.h"

#include "messages/text/Numbers.h"
#include "messages/text/Utf8.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <optional>

namespace gk::formats {

namespace {

constexpr std::string_view kDimmed = "2";
constexpr std::string_view kPlain = "0";
constexpr std::string_view kStrong = "1";
constexpr std::string_view kWord = "1;32";
constexpr std::string_view kMicro = "36";

/// Seconds after which the same value is told anew.
constexpr double kRepeatTime = 3;
/// Names that are remembered; clients can make them up.
constexpr std::size_t kMostNames = 4096;
/// Columns of names, and of time, kind and a short value beside them.
constexpr std::size_t kNameWidth = 34;
constexpr std::size_t kLeastNameWidth = 12;
constexpr std::size_t kOtherWidth = 34;
/// Columns of a sentence, and of the time before it.
constexpr std::size_t kWordsWidth = 34;
constexpr std::size_t kTimeWidth = 12;
/// Back to the beginning of the line, which is emptied.
constexpr std::string_view kEmptyLine = "\r\x1b[K";

/// How much an event that is no repetition says. What has been off from the start says little.
std::string_view colourOfNews(const LiveRow& row, bool isFirst) {
  if (row.isMicro) {
    return kMicro;
  }
  if (row.value.starts_with('"')) {
    return kWord;
  }
  const std::optional<double> number = messages::parseDouble(row.value);
  const bool isOn = row.value == "true" || (number && *number == 1);
  const bool isOff = row.value == "false" || (number && *number == 0);
  return isOn || (isOff && !isFirst) ? kStrong : kPlain;
}

/// The first characters of a text.
std::string_view firstOf(std::string_view text, std::size_t characters) {
  std::size_t end = 0;
  for (; characters > 0 && end < text.size(); --characters) {
    end += std::max<std::size_t>(messages::characterLength(text.substr(end)), 1);
  }
  return text.substr(0, end);
}

} // namespace

void LiveRows::append(std::string& out, const LiveRow& row) {
  if (row.isEvent && fStyle.isWanted && !fStyle.isWanted(row.name)) {
    return;
  }
  xClearUnfinished(out);
  if (!row.isEvent) {
    xAppend(out, row, row.colour, {});
    return;
  }
  if (!fStyle.isColoured && !fStyle.columns) {
    xAppend(out, row, kPlain, {});
    return;
  }
  xSettleBefore(out, row.time);
  if (fLast.size() >= kMostNames) {
    fLast.clear();
    fCounting = 0;
  }
  Last& last = fLast[{row.kind, row.name}];
  const bool isNews = last.count == 0 || last.row.value != row.value;
  const bool isRepeated = !isNews && row.time - last.row.time <= kRepeatTime;
  if (isRepeated && fStyle.columns) {
    fCounting += last.count == 1 ? 1 : 0;
    ++last.count;
    last.row.time = row.time;
    xAppendUnfinished(out, last);
    return;
  }
  xSettle(out, last);
  const std::string_view colour = isNews ? colourOfNews(row, last.count == 0) : kDimmed;
  last = {row, 1};
  xAppend(out, row, colour, {});
}

void LiveRows::appendLines(std::string& out, std::string_view lines) {
  xClearUnfinished(out);
  out += lines;
}

void LiveRows::finish(std::string& out) {
  xClearUnfinished(out);
  for (auto& [name, last] : fLast) {
    xSettle(out, last);
  }
}

void LiveRows::xClearUnfinished(std::string& out) {
  if (std::exchange(fHasUnfinished, false)) {
    out += kEmptyLine;
  }
}

/// Counting is over: it gets its line.
void LiveRows::xSettle(std::string& out, Last& last) {
  if (last.count > 1) {
    xAppend(out, last.row, kDimmed, fmt::format("  x {}", last.count));
    last.count = 1;
    --fCounting;
  }
}

void LiveRows::xSettleBefore(std::string& out, double time) {
  if (fCounting == 0) {
    return;
  }
  for (auto& [name, last] : fLast) {
    if (time - last.row.time > kRepeatTime) {
      xSettle(out, last);
    }
  }
}

void LiveRows::xAppend(std::string& out, const LiveRow& row, std::string_view colour,
                       std::string_view more) const {
  std::string text = xText(row).append(more);
  text.erase(text.find_last_not_of(' ') + 1);
  const std::string stamp = fmt::format("{:10.3f}  ", row.time);
  if (fStyle.isColoured) {
    fmt::format_to(std::back_inserter(out), "\x1b[{}m{}\x1b[0m\x1b[{}m{}\x1b[0m\n", kDimmed, stamp,
                   colour, text);
  } else {
    out += stamp + text + '\n';
  }
}

/// All but the time. A narrow terminal has narrower columns, so that short values fit.
std::string LiveRows::xText(const LiveRow& row) const {
  if (fStyle.columns && !row.words.empty()) {
    const std::string text =
        fmt::format("{:<{}} {} {}", row.words, kWordsWidth, row.name, row.value);
    const std::size_t columns = fStyle.columns();
    return std::string(firstOf(text, columns - std::min(columns, kTimeWidth)));
  }
  std::size_t name = kNameWidth;
  if (fStyle.columns) {
    const std::size_t columns = fStyle.columns();
    name = std::clamp(columns - std::min(columns, kOtherWidth), kLeastNameWidth, kNameWidth);
  }
  return fmt::format("{:<8} {:<{}} {}", row.kind, row.name, name, row.value);
}

/// Short enough for its line: what is longer could not be taken back.
void LiveRows::xAppendUnfinished(std::string& out, const Last& last) {
  const std::size_t columns = std::max<std::size_t>(fStyle.columns(), 2) - 1;
  const std::string count = fmt::format("  x {}", last.count);
  const std::string text = fmt::format("{:10.3f}  {}", last.row.time, xText(last.row));
  std::string line(firstOf(text, columns - std::min(columns, count.size())));
  line.append(firstOf(count, columns));
  out += fStyle.isColoured ? fmt::format("\x1b[{}m{}\x1b[0m", kDimmed, line) : line;
  fHasUnfinished = true;
}

} // namespace gk::formats
