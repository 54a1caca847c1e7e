#include "formats/run/RunLog.h"

#include "formats/json/Json.h"
#include "formats/json/JsonValue.h"
#include "formats/json/KeyTypes.h"
#include "formats/lines/ScenarioLine.h"
#include "formats/lines/ScenarioText.h"
#include "formats/mcap/Bytes.h"
#include "formats/text/FormatError.h"

#include <bit>
#include <limits>

namespace gk::formats {

namespace {

enum class Kind : std::uint8_t {
  Turn = 1,
  Wall = 2,
  Task = 3,
  Key = 4,
  Values = 5,
  Action = 6,
  Start = 7,
  Lost = 8,
  Overlap = 9
};

/// How a value is written, in the lowest two bits in front of it.
enum ValueCode : std::uint64_t { kFloat = 0, kInt = 1, kBool = 2, kJson = 3 };
constexpr unsigned kCodeBits = 2;

constexpr std::uint64_t kWholeBit = 1;
constexpr std::uint64_t kContinuedBit = 2;

/// The latest time that a log may tell, in microseconds: far beyond every run, far from overflow.
constexpr std::uint64_t kMaxTime = std::uint64_t{1} << 61;

void appendLeb(std::string& out, std::uint64_t number) {
  while (number >= 0x80) {
    out.push_back(static_cast<char>((number & 0x7F) | 0x80));
    number >>= 7;
  }
  out.push_back(static_cast<char>(number));
}

void appendKind(std::string& out, Kind kind) {
  out.push_back(static_cast<char>(kind));
}

void appendSized(std::string& out, std::string_view text) {
  appendLeb(out, text.size());
  out += text;
}

/// Signed numbers so that small ones of either sign are short.
std::uint64_t zigzag(std::int64_t number) {
  const std::uint64_t doubled = static_cast<std::uint64_t>(number) << 1;
  return number < 0 ? ~doubled : doubled;
}

std::int64_t unzigzag(std::uint64_t number) {
  return static_cast<std::int64_t>((number >> 1) ^ (~(number & 1) + 1));
}

KeyType anyType(std::string_view) {
  return KeyType::Any;
}

} // namespace

void RunLogWriter::add(const RunTurn& turn) {
  appendKind(fBlock, Kind::Turn);
  appendLeb(fBlock, turn.task);
  appendLeb(fBlock, static_cast<std::uint64_t>(fStart ? turn.time - fTime : turn.time));
  fTime = turn.time;
  fStart = fStart.value_or(turn.time);
}

void RunLogWriter::add(const RunWall& wall) {
  appendKind(fBlock, Kind::Wall);
  appendLeb(fBlock, zigzag(wall.offset));
}

void RunLogWriter::add(const RunTask& task) {
  appendKind(fBlock, Kind::Task);
  appendLeb(fBlock, task.task);
  appendSized(fBlock, task.module);
  appendSized(fBlock, task.method);
}

void RunLogWriter::add(const RunKey& key) {
  appendKind(fBlock, Kind::Key);
  appendLeb(fBlock, key.index);
  appendSized(fBlock, key.name);
}

void RunLogWriter::add(const RunAction& action) {
  appendKind(fBlock, Kind::Action);
  std::string text;
  // Only what comes before loading may be unset, and takes no time.
  const bool hasTime = !std::holds_alternative<UnsetAction>(action.action);
  appendScenarioLine(text, hasTime ? std::optional(fTime) : std::nullopt, action.action);
  appendSized(fBlock, text);
}

void RunLogWriter::add(const RunStart& start) {
  appendKind(fBlock, Kind::Start);
  appendLeb(fBlock, (start.isWhole ? kWholeBit : 0) | (start.isContinued ? kContinuedBit : 0));
}

void RunLogWriter::add(const RunLost& lost) {
  appendKind(fBlock, Kind::Lost);
  appendLeb(fBlock, lost.blocks);
}

void RunLogWriter::add(const RunOverlap&) {
  appendKind(fBlock, Kind::Overlap);
}

void RunLogWriter::addValue(std::uint64_t index, const GK::GKValue& value) {
  const std::uint64_t gap = index - (fValueCount++ > 0 ? fLastIndex : 0);
  fLastIndex = index;
  const auto begin = [&](ValueCode code) { appendLeb(fValues, (gap << kCodeBits) | code); };
  switch (value.type()) {
  case GK::GKValue::Type::Float:
    begin(kFloat);
    mcap::appendNumber(fValues, std::bit_cast<std::uint32_t>(value.toFloat()));
    return;
  case GK::GKValue::Type::Int:
    begin(kInt);
    mcap::appendNumber(fValues, static_cast<std::uint32_t>(value.toInt()));
    return;
  case GK::GKValue::Type::Bool:
    begin(kBool);
    mcap::appendNumber(fValues, static_cast<std::uint8_t>(value.toBool()));
    return;
  default: {
    begin(kJson);
    std::string text;
    appendJson(text, value);
    appendSized(fValues, text);
  }
  }
}

void RunLogWriter::endValues() {
  if (fValueCount > 0) {
    appendKind(fBlock, Kind::Values);
    appendLeb(fBlock, fValueCount);
    fBlock += fValues;
    fValues.clear();
    fValueCount = 0;
  }
}

std::string RunLogWriter::take() {
  std::string block;
  block.swap(fBlock);
  fStart.reset();
  return block;
}

std::uint64_t RunLogReader::xNumber() {
  std::uint64_t number = 0;
  for (unsigned shift = 0; shift < 64; shift += 7) {
    const auto byte = static_cast<unsigned char>(xBytes(1).front());
    number |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
    if ((byte & 0x80) == 0) {
      return number;
    }
  }
  throw FormatError("a number is too long");
}

std::string_view RunLogReader::xBytes(std::uint64_t count) {
  if (count > fBlock.size() - fPosition) {
    throw FormatError("the block ends too early");
  }
  const std::string_view bytes = fBlock.substr(fPosition, count);
  fPosition += count;
  return bytes;
}

GK::GKValue RunLogReader::xValue(std::uint64_t code) {
  switch (code) {
  case kFloat:
    return std::bit_cast<float>(mcap::ByteCursor(xBytes(4)).number<std::uint32_t>());
  case kInt:
    return static_cast<std::int32_t>(mcap::ByteCursor(xBytes(4)).number<std::uint32_t>());
  case kBool:
    return xBytes(1).front() != 0;
  default:
    return valueFromJson(parseJson(xText()));
  }
}

RunValues RunLogReader::xValues() {
  const std::uint64_t count = xNumber();
  // Every value takes two bytes at least.
  if (count > kMaxValues || count > fBlock.size() - fPosition) {
    throw FormatError("too many values");
  }
  RunValues values;
  values.values.reserve(count);
  std::uint64_t index = 0;
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t head = xNumber();
    index += head >> kCodeBits;
    values.values.emplace_back(index, xValue(head & ((1U << kCodeBits) - 1)));
  }
  return values;
}

std::optional<RunEntry> RunLogReader::next() {
  if (fPosition == fBlock.size()) {
    return std::nullopt;
  }
  switch (static_cast<Kind>(xBytes(1).front())) {
  case Kind::Turn: {
    const std::uint64_t task = xNumber();
    const std::uint64_t span = xNumber();
    if (span > kMaxTime || static_cast<std::uint64_t>(fTime) + span > kMaxTime) {
      throw FormatError("a time is too large");
    }
    fTime += static_cast<GK::GKMicros>(span);
    return RunTurn{task, fTime};
  }
  case Kind::Wall:
    return RunWall{unzigzag(xNumber())};
  case Kind::Task: {
    RunTask task;
    task.task = xNumber();
    task.module = xText();
    task.method = xText();
    return task;
  }
  case Kind::Key: {
    const std::uint64_t index = xNumber();
    return RunKey{index, std::string(xText())};
  }
  case Kind::Values:
    return xValues();
  case Kind::Action:
    // The keys of a run are as they were: no type wins over the way in which a value is written.
    return RunAction{parseScenarioLine(xText(), anyType).action};
  case Kind::Start: {
    const std::uint64_t bits = xNumber();
    return RunStart{(bits & kWholeBit) != 0, (bits & kContinuedBit) != 0};
  }
  case Kind::Lost:
    return RunLost{xNumber()};
  case Kind::Overlap:
    return RunOverlap{};
  }
  throw FormatError("an entry of an unknown kind");
}

} // namespace gk::formats
