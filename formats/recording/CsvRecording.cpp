#include "formats/recording/CsvRecording.h"

#include "formats/text/PlainNumber.h"
#include "messages/json/JsonText.h"
#include "messages/text/Numbers.h"

#include <algorithm>
#include <optional>
#include <unordered_set>

namespace gk::formats {

namespace {

constexpr char kSeparator = ',';
constexpr std::string_view kTimeColumn = "time";

/// Cuts the first cell off `rest`; false in `isMore` when it was the last one.
std::string_view takeCell(std::string_view& rest, bool& isMore) {
  const char* begin = rest.data();
  const char* last = begin + rest.size();
  const char* end = std::find(begin, last, kSeparator);
  isMore = end != last;
  rest = isMore ? std::string_view(end + 1, static_cast<std::size_t>(last - end - 1))
                : std::string_view();
  return {begin, static_cast<std::size_t>(end - begin)};
}

/// Cuts the first cell off `rest` if all that it holds is a plain number, as most do; false, and
/// nothing has changed, if it is anything else.
bool takePlainCell(std::string_view& rest, bool& isMore, double& value) {
  const char* const last = rest.data() + rest.size();
  const char* const end = readPlainNumber(rest.data(), last, value);
  if (end == nullptr || (end != last && *end != kSeparator)) {
    return false;
  }
  isMore = end != last;
  rest.remove_prefix(static_cast<std::size_t>(end - rest.data()) + (isMore ? 1 : 0));
  return true;
}

} // namespace

CsvRecording::CsvRecording(const std::string& path, const messages::KeyTypeOf& keyTypeOf)
    : fReader(path) {
  xReadHeader(keyTypeOf);
  xReadRow();
}

void CsvRecording::xReadHeader(const messages::KeyTypeOf& keyTypeOf) {
  const std::optional<std::string_view> line = fReader.next();
  if (!line) {
    throw fReader.error("no header, which begins with \"time\"");
  }
  std::string_view rest = *line;
  bool isMore = false;
  if (const std::string_view first = takeCell(rest, isMore); first != kTimeColumn) {
    throw fReader.error("the header's first column is " + messages::quotedText(first) +
                        ", not \"time\"");
  }
  std::unordered_set<std::string_view> seen{kTimeColumn};
  while (isMore) {
    const std::string_view key = takeCell(rest, isMore);
    if (!messages::isUtf8(key)) {
      throw fReader.error("column " + messages::quotedText(key) + " is not UTF-8");
    }
    if (key.empty()) {
      throw fReader.error("column " + std::to_string(fColumns.size() + 2) + " has no key");
    }
    if (!seen.insert(key).second) {
      throw fReader.error("column " + messages::quotedText(key) + " stands twice");
    }
    Column column;
    column.key = key;
    column.type = xTypeOf(key, keyTypeOf) == messages::KeyType::Int ? GK::GKValue::Type::Int
                                                                    : GK::GKValue::Type::Float;
    fColumns.push_back(std::move(column));
  }
}

messages::KeyType CsvRecording::xTypeOf(std::string_view key,
                                        const messages::KeyTypeOf& keyTypeOf) const {
  try {
    const messages::KeyType type = keyTypeOf(key);
    if (type == messages::KeyType::Bool || type == messages::KeyType::Text) {
      throw messages::FormatError("a table holds numbers only");
    }
    return type;
  } catch (const messages::FormatError& error) {
    throw fReader.error("column " + messages::quotedText(key) + ": " + error.what());
  }
}

void CsvRecording::play(RecordingTarget& target) {
  if (fTarget != &target) {
    for (Column& column : fColumns) {
      column.cell = target.column(column.key);
    }
    fTarget = &target;
  }
  // Hot path, here and in reading a row: no allocation, no look-up, no virtual call a cell.
  for (const Column& column : fColumns) {
    if (column.isPresent && column.cell != nullptr) {
      column.cell->storeBits(column.type, column.bits);
    }
  }
  xReadRow();
}

void CsvRecording::skip() {
  xReadRow();
}

void CsvRecording::xReadRow() {
  fTime.reset();
  const std::optional<std::string_view> line = fReader.next();
  if (!line) {
    return;
  }
  if (line->empty()) {
    xExpectOnlyBlankLines();
    return;
  }
  std::string_view rest = *line;
  bool isMore = false;
  double seconds = 0.0;
  if (!takePlainCell(rest, isMore, seconds)) {
    seconds = xParseTime(takeCell(rest, isMore));
  }
  for (Column& column : fColumns) {
    if (!isMore) {
      xFailOnCount(*line);
    }
    double value = 0.0;
    if (!column.isInt() && takePlainCell(rest, isMore, value)) {
      // Of so few digits it is never beyond a float's range.
      column.take(static_cast<float>(value));
    } else {
      xParseCell(column, takeCell(rest, isMore));
    }
  }
  if (isMore) {
    xFailOnCount(*line);
  }
  try {
    fTime = fOrder.take(seconds);
  } catch (const messages::FormatError& error) {
    throw fReader.error(error.what());
  }
}

double CsvRecording::xParseTime(std::string_view text) const {
  const std::optional<double> seconds = messages::parseDouble(text);
  if (!seconds) {
    throw fReader.error("column \"time\": " + messages::quotedText(text) +
                        " is no time in seconds");
  }
  return *seconds;
}

void CsvRecording::xParseCell(Column& column, std::string_view text) const {
  column.isPresent = false;
  if (text.empty()) {
    return;
  }
  if (column.isInt()) {
    if (const std::optional<std::int32_t> value = messages::parseInt(text)) {
      column.take(*value);
    }
  } else if (const std::optional<float> value = messages::parseFloat(text)) {
    column.take(*value);
  }
  if (!column.isPresent) {
    throw fReader.error("column " + messages::quotedText(column.key) + ": " +
                        messages::quotedText(text) +
                        (column.isInt() ? " is no int of 32 bits" : " is no number"));
  }
}

void CsvRecording::xFailOnCount(std::string_view line) const {
  const auto cells = std::ranges::count(line, kSeparator) + 1;
  throw fReader.error("the row has " + std::to_string(cells) + " cells, the header " +
                      std::to_string(fColumns.size() + 1));
}

void CsvRecording::xExpectOnlyBlankLines() {
  const std::size_t blank = fReader.line();
  while (const std::optional<std::string_view> line = fReader.next()) {
    if (!line->empty()) {
      throw InputError(fReader.path(), blank, "a blank line before the end");
    }
  }
}

} // namespace gk::formats
