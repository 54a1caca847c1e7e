#include "formats/run/RunLogWriter.h"

#include "formats/lines/ScenarioText.h"
#include "formats/mcap/Bytes.h"
#include "messages/json/JsonValue.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <span>
#include <string_view>
#include <utility>
#include <variant>

namespace gk::formats {

namespace {

using runlog::Kind;

/// Most bytes before a block's parts: a flag, and three sizes.
constexpr std::size_t kHeadSize = 31;

void appendLeb(std::string& out, std::uint64_t number) {
  while (number >= 0x80) {
    out.push_back(static_cast<char>((number & 0x7F) | 0x80));
    number >>= 7;
  }
  out.push_back(static_cast<char>(number));
}

template <class Code> void appendByte(std::string& out, Code code) {
  out.push_back(static_cast<char>(code));
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

} // namespace

void RunLogWriter::add(const RunTurn& turn) {
  appendByte(fEntries, Kind::Turn);
  appendLeb(fEntries, turn.task);
  appendLeb(fEntries, static_cast<std::uint64_t>(fStart ? turn.time - fTime : turn.time));
  fTime = turn.time;
  fStart = fStart.value_or(turn.time);
}

void RunLogWriter::add(const RunWall& wall) {
  appendByte(fEntries, Kind::Wall);
  appendLeb(fEntries, zigzag(wall.offset));
}

void RunLogWriter::add(const RunTask& task) {
  appendByte(fEntries, Kind::Task);
  appendLeb(fEntries, task.task);
  appendSized(fEntries, task.module);
  appendSized(fEntries, task.method);
}

void RunLogWriter::add(const RunKey& key) {
  appendByte(fEntries, Kind::Key);
  appendLeb(fEntries, key.index);
  appendSized(fEntries, key.name);
}

void RunLogWriter::add(const RunAction& action) {
  appendByte(fEntries, Kind::Action);
  std::string text;
  // Only what comes before loading may be unset, and takes no time.
  const bool hasTime = !std::holds_alternative<UnsetAction>(action.action);
  appendScenarioLine(text, hasTime ? std::optional(fTime) : std::nullopt, action.action);
  appendSized(fEntries, text);
}

void RunLogWriter::add(const RunStart& start) {
  appendByte(fEntries, Kind::Start);
  appendLeb(fEntries, (start.isWhole ? runlog::kWholeBit : 0) |
                          (start.isContinued ? runlog::kContinuedBit : 0));
}

void RunLogWriter::add(const RunLost& lost) {
  appendByte(fEntries, Kind::Lost);
  appendLeb(fEntries, lost.blocks);
}

void RunLogWriter::add(const RunOverlap&) {
  appendByte(fEntries, Kind::Overlap);
}

void RunLogWriter::addValue(std::uint64_t index, const GK::GKValue& value) {
  fChanged.push_back(index);
  if (index >= fColumns.size()) {
    fColumns.resize(index + 1);
  }
  switch (value.type()) {
  case GK::GKValue::Type::Float:
    xAddScalar(index, value.type(), std::bit_cast<std::uint32_t>(value.toFloat()));
    return;
  case GK::GKValue::Type::Int:
    xAddScalar(index, value.type(), static_cast<std::uint32_t>(value.toInt()));
    return;
  case GK::GKValue::Type::Bool:
    appendByte(fPlaces, value.toBool() ? runlog::kTrue : runlog::kFalse);
    return;
  default: {
    appendByte(fPlaces, runlog::kRawJson);
    std::string text;
    messages::appendJson(text, value);
    appendSized(fRaw, text);
  }
  }
}

void RunLogWriter::xAddScalar(std::uint64_t index, GK::GKValue::Type type, std::uint32_t bits) {
  runlog::LatestValues& latest = fColumns[index];
  const std::span<const std::uint32_t> known = latest.bits();
  const auto found = std::find(known.begin(), known.end(), bits);
  if (latest.type() == type && found != known.end()) {
    appendByte(fPlaces, found - known.begin());
    return;
  }
  appendByte(fPlaces, type == GK::GKValue::Type::Float ? runlog::kRawFloat : runlog::kRawInt);
  mcap::appendNumber(fRaw, bits);
  latest.add(type, bits);
}

/// The keys are told by those that have changed now and not the time before, or the other way
/// round: most sensors change with each turn, or never.
void RunLogWriter::endValues() {
  if (fChanged.empty()) {
    return;
  }
  appendByte(fEntries, Kind::Values);
  fDifference.clear();
  std::set_symmetric_difference(fChangedBefore.begin(), fChangedBefore.end(), fChanged.begin(),
                                fChanged.end(), std::back_inserter(fDifference));
  appendLeb(fFlips, fDifference.size());
  std::uint64_t last = 0;
  for (const std::uint64_t index : fDifference) {
    appendLeb(fFlips, index - std::exchange(last, index));
  }
  fChangedBefore.swap(fChanged);
  fChanged.clear();
}

std::string RunLogWriter::take() {
  std::string block;
  // No larger than it is: blocks are kept.
  block.reserve(size() + kHeadSize);
  appendByte(block, fIsAnew ? runlog::kAnewBit : 0);
  for (const std::string* part : {&fEntries, &fFlips, &fPlaces}) {
    appendLeb(block, part->size());
  }
  for (std::string* part : {&fEntries, &fFlips, &fPlaces, &fRaw}) {
    block += *part;
    part->clear();
  }
  fStart.reset();
  fIsAnew = false;
  if (fTime - fAnewTime >= kAnewTime) {
    beginAnew();
  }
  return block;
}

void RunLogWriter::beginAnew() {
  fIsAnew = true;
  fAnewTime = fTime;
  for (runlog::LatestValues& latest : fColumns) {
    latest.clear();
  }
  fChangedBefore.clear();
}

} // namespace gk::formats
