#include "formats/run/RunLogReader.h"

#include "formats/lines/ScenarioLine.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"
#include "messages/json/KeyTypes.h"
#include "messages/text/FormatError.h"

#include <bit>
#include <string>
#include <utility>

namespace gk::formats {

namespace {

using GK::GKValue;
using runlog::Kind;

/// How the first encoding writes a value, in the lowest two bits in front of it.
enum ListedCode : std::uint64_t { kListedFloat = 0, kListedInt = 1, kListedBool = 2 };
constexpr unsigned kListedBits = 2;

/// Keys in a word of those that change.
constexpr std::size_t kWordBits = 64;

/// The latest time that a log may tell, in microseconds: far beyond every run, far from overflow.
constexpr std::uint64_t kMaxTime = std::uint64_t{1} << 61;

std::uint64_t longNumber(std::uint8_t first, mcap::ByteCursor& from) {
  std::uint64_t number = first & 0x7F;
  for (unsigned shift = 7; shift < 64; shift += 7) {
    const auto byte = from.number<std::uint8_t>();
    number |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
    if ((byte & 0x80) == 0) {
      return number;
    }
  }
  throw messages::FormatError("a number is too long");
}

/// Mostly it is one byte.
std::uint64_t numberAt(mcap::ByteCursor& from) {
  const auto first = from.number<std::uint8_t>();
  return (first & 0x80) == 0 ? first : longNumber(first, from);
}

std::string_view textAt(mcap::ByteCursor& from) {
  return from.bytes(numberAt(from));
}

std::int64_t unzigzag(std::uint64_t number) {
  return static_cast<std::int64_t>((number >> 1) ^ (~(number & 1) + 1));
}

messages::KeyType anyType(std::string_view) {
  return messages::KeyType::Any;
}

void expectKey(std::uint64_t key) {
  if (key >= RunLogReader::kMaxKeys) {
    throw messages::FormatError("too many keys");
  }
}

} // namespace

GKValue RunValues::value(const RunValue& one) const {
  switch (one.type) {
  case GKValue::Type::Float:
    return std::bit_cast<float>(one.bits);
  case GKValue::Type::Int:
    return static_cast<std::int32_t>(one.bits);
  case GKValue::Type::Bool:
    return one.bits != 0;
  default:
    return large[one.bits];
  }
}

void RunLogReader::begin(std::string_view block, std::uint32_t number, std::string_view encoding) {
  const bool isNext = fNumber && number == *fNumber + 1 && fEntries.isAtEnd();
  fNumber = number;
  fTime = 0;
  fIsListed = encoding == kFirstRunEncoding;
  mcap::ByteCursor cursor(block);
  fEntries = cursor;
  fFlips = fPlaces = fRaw = mcap::ByteCursor({});
  if (fIsListed) {
    return;
  }
  const bool wasBlind = std::exchange(fIsBlind, true);
  fEntries = mcap::ByteCursor({});
  const bool isAnew = (cursor.number<std::uint8_t>() & runlog::kAnewBit) != 0;
  const std::uint64_t entries = numberAt(cursor);
  const std::uint64_t flips = numberAt(cursor);
  const std::uint64_t places = numberAt(cursor);
  const mcap::ByteCursor read(cursor.bytes(entries));
  fFlips = mcap::ByteCursor(cursor.bytes(flips));
  fPlaces = mcap::ByteCursor(cursor.bytes(places));
  fRaw = mcap::ByteCursor(cursor.bytes(cursor.left()));
  fEntries = read;
  if (isAnew) {
    xForget();
  }
  fIsBlind = !isAnew && (wasBlind || !isNext);
}

void RunLogReader::xForget() {
  for (runlog::LatestValues& latest : fColumns) {
    latest.clear();
  }
  fChanged.assign(fChanged.size(), 0);
  fChangedCount = 0;
}

std::optional<RunEntry> RunLogReader::next() {
  try {
    return xNext();
  } catch (const messages::FormatError&) {
    fIsBlind = true;
    fEntries = mcap::ByteCursor({});
    throw;
  }
}

std::optional<RunEntry> RunLogReader::xNext() {
  if (fEntries.isAtEnd()) {
    if (!fIsListed && !fIsBlind && !(fFlips.isAtEnd() && fPlaces.isAtEnd() && fRaw.isAtEnd())) {
      throw messages::FormatError("values are left over");
    }
    return std::nullopt;
  }
  switch (static_cast<Kind>(fEntries.number<std::uint8_t>())) {
  case Kind::Turn: {
    const std::uint64_t task = numberAt(fEntries);
    const std::uint64_t span = numberAt(fEntries);
    if (span > kMaxTime || static_cast<std::uint64_t>(fTime) + span > kMaxTime) {
      throw messages::FormatError("a time is too large");
    }
    fTime += static_cast<GK::GKMicros>(span);
    return RunTurn{task, fTime};
  }
  case Kind::Wall:
    return RunWall{unzigzag(numberAt(fEntries))};
  case Kind::Task: {
    RunTask task;
    task.task = numberAt(fEntries);
    task.module = textAt(fEntries);
    task.method = textAt(fEntries);
    return task;
  }
  case Kind::Key: {
    const std::uint64_t index = numberAt(fEntries);
    expectKey(index);
    return RunKey{index, std::string(textAt(fEntries))};
  }
  case Kind::Values:
    return fIsListed ? xListedValues() : xValues();
  case Kind::Action:
    // The keys of a run are as they were: no type wins over the way in which a value is written.
    return RunAction{parseScenarioLine(textAt(fEntries), anyType).action};
  case Kind::Start: {
    const std::uint64_t bits = numberAt(fEntries);
    return RunStart{(bits & runlog::kWholeBit) != 0, (bits & runlog::kContinuedBit) != 0};
  }
  case Kind::Lost:
    return RunLost{numberAt(fEntries)};
  case Kind::Overlap:
    return RunOverlap{};
  }
  throw messages::FormatError("an entry of an unknown kind");
}

RunValues RunLogReader::xValues() {
  if (fIsBlind) {
    return {{}, {}, true};
  }
  xFlip();
  fValues.resize(fChangedCount);
  fLarge.clear();
  // Hot path, of every value of a run: no allocation, no look-up by name.
  const char* place = fPlaces.bytes(fChangedCount).data();
  RunValue* value = fValues.data();
  const RunValue* const end = value + fChangedCount;
  for (std::size_t word = 0; value != end; ++word) {
    for (std::uint64_t left = fChanged[word]; left != 0; left &= left - 1, ++value) {
      const std::size_t key = word * kWordBits + static_cast<std::size_t>(std::countr_zero(left));
      const auto at = static_cast<std::uint8_t>(*place++);
      const runlog::LatestValues& latest = fColumns[key];
      value->key = static_cast<std::uint32_t>(key);
      if (latest.isTaken(at)) {
        value->bits = latest.bitsAt(at);
        value->type = latest.type();
      } else {
        xTakeNew(at, *value);
      }
    }
  }
  return {fValues, fLarge};
}

/// Which keys change: those that did the time before, but for what has flipped.
void RunLogReader::xFlip() {
  // In registers: most entries have some.
  mcap::ByteCursor flips = fFlips;
  const std::uint64_t count = numberAt(flips);
  std::size_t changed = fChangedCount;
  std::uint64_t key = 0;
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t gap = numberAt(flips);
    expectKey(gap);
    key += gap;
    if (key >= fColumns.size()) {
      expectKey(key);
      fColumns.resize(key + 1);
      fChanged.resize(key / kWordBits + 1);
    }
    std::uint64_t& word = fChanged[key / kWordBits];
    const std::uint64_t bit = std::uint64_t{1} << (key % kWordBits);
    word ^= bit;
    changed += (word & bit) != 0 ? 1 : std::size_t(0) - 1;
  }
  fFlips = flips;
  fChangedCount = changed;
}

/// A value that is not among the latest ones of its key.
void RunLogReader::xTakeNew(std::uint8_t place, RunValue& value) {
  switch (place) {
  case runlog::kRawFloat:
  case runlog::kRawInt:
    value.type = place == runlog::kRawFloat ? GKValue::Type::Float : GKValue::Type::Int;
    value.bits = fRaw.number<std::uint32_t>();
    fColumns[value.key].add(value.type, value.bits);
    return;
  case runlog::kFalse:
  case runlog::kTrue:
    value.type = GKValue::Type::Bool;
    value.bits = place == runlog::kTrue ? 1 : 0;
    return;
  case runlog::kRawJson:
    value = xLarge(value.key, fRaw);
    return;
  default:
    throw messages::FormatError("a value that was not there before");
  }
}

RunValue RunLogReader::xLarge(std::uint32_t key, mcap::ByteCursor& from) {
  GKValue value = messages::valueFromJson(messages::parseJson(textAt(from)));
  const GKValue::Type type = value.type();
  RunValue result{key, static_cast<std::uint32_t>(fLarge.size()), type};
  fLarge.push_back(std::move(value));
  return result;
}

RunValues RunLogReader::xListedValues() {
  const std::uint64_t count = numberAt(fEntries);
  // Every value takes two bytes at least.
  if (count > kMaxKeys || count > fEntries.left()) {
    throw messages::FormatError("too many values");
  }
  fValues.clear();
  fLarge.clear();
  std::uint64_t key = 0;
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t head = numberAt(fEntries);
    expectKey(head >> kListedBits);
    key += head >> kListedBits;
    expectKey(key);
    const auto number = static_cast<std::uint32_t>(key);
    switch (head & ((1U << kListedBits) - 1)) {
    case kListedFloat:
      fValues.push_back({number, fEntries.number<std::uint32_t>(), GKValue::Type::Float});
      break;
    case kListedInt:
      fValues.push_back({number, fEntries.number<std::uint32_t>(), GKValue::Type::Int});
      break;
    case kListedBool:
      fValues.push_back(
          {number, fEntries.number<std::uint8_t>() != 0 ? 1U : 0U, GKValue::Type::Bool});
      break;
    default:
      fValues.push_back(xLarge(number, fEntries));
    }
  }
  return {fValues, fLarge};
}

} // namespace gk::formats
