#pragma once

#include "formats/lines/Action.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// What a recording keeps of a run so that it can be repeated exactly: who ran when, and what came
/// from outside.
///
/// A run is a sequence of turns: one task at a time runs, from where it wakes up to where it falls
/// asleep or ends, and time stands still meanwhile. Behind each turn stand the device keys that had
/// changed when it began, and the tasks and inputs that came up during it.
///
/// The log is kept in blocks, the messages of one channel. A block is a sequence of entries: a byte
/// that tells the kind, then numbers in LEB128 and texts with their length in front. Times are
/// counted from the turn before, the first of a block from the start of the run.
namespace gk::formats {

/// The channel of the log, and how its messages are encoded.
inline constexpr const char* kRunTopic = "/gk/run";
inline constexpr const char* kRunEncoding = "gk.run.1";
/// The metadata that says what run it was.
inline constexpr const char* kRunMetadata = "gk.run";

/// Task numbers with a meaning of their own; all others are counted up from 2.
constexpr std::uint64_t kOutsideTask = 0; ///< input and clients
constexpr std::uint64_t kMainTask = 1;    ///< the host's main thread

/// A task begins to run.
struct RunTurn {
  std::uint64_t task = kOutsideTask;
  GK::GKMicros time = 0;
};
/// From this turn on the wall clock is so many microseconds since 1970 ahead of the run's time.
struct RunWall {
  std::int64_t offset = 0;
};
/// The running task has started another one.
struct RunTask {
  std::uint64_t task = 0;
  std::string module;
  std::string method;
};
/// From here on a number stands for a memory key.
struct RunKey {
  std::uint64_t index = 0;
  std::string name;
};
/// Keys that have changed, by number, in ascending order.
struct RunValues {
  std::vector<std::pair<std::uint64_t, GK::GKValue>> values;
};
/// Something came from outside: a line of a scenario, calls and writes of clients included.
struct RunAction {
  Action action;
};
/// The module libraries are loaded now. What comes before was there before them.
struct RunStart {
  /// No other device keys are there than those told of so far.
  bool isWhole = false;
  /// The log begins in the middle of a run.
  bool isContinued = false;
};
/// So many blocks were dropped here because the disk was too slow.
struct RunLost {
  std::uint64_t blocks = 0;
};
/// Two tasks ran at the same time here, since one of them did not end its turn in time.
struct RunOverlap {};

using RunEntry = std::variant<RunTurn, RunWall, RunTask, RunKey, RunValues, RunAction, RunStart,
                              RunLost, RunOverlap>;

/// Writes entries into a block. For one thread.
class RunLogWriter {
public:
  void add(const RunTurn& turn);
  void add(const RunWall& wall);
  void add(const RunTask& task);
  void add(const RunKey& key);
  void add(const RunAction& action);
  void add(const RunStart& start);
  void add(const RunLost& lost);
  void add(const RunOverlap&);

  /// Values come one by one: begun, in ascending order of their numbers, ended.
  void beginValues() { fValueCount = 0; }
  void addValue(std::uint64_t index, const GK::GKValue& value);
  void endValues();

  bool isEmpty() const noexcept { return fBlock.empty(); }
  std::size_t size() const noexcept { return fBlock.size(); }
  /// Time of the block's first turn.
  GK::GKMicros startTime() const noexcept { return fStart.value_or(fTime); }

  /// The block. The next entry begins another one.
  std::string take();

private:
  std::string fBlock;
  std::optional<GK::GKMicros> fStart;
  GK::GKMicros fTime = 0;
  std::string fValues;
  std::uint64_t fValueCount = 0;
  std::uint64_t fLastIndex = 0;
};

/// Reads the entries of a block. For one thread.
class RunLogReader {
public:
  /// Entries that a block may have: more are refused.
  static constexpr std::size_t kMaxValues = 1 << 20;

  explicit RunLogReader(std::string_view block = {}) : fBlock(block) {}

  /// The next entry; nothing at the end of the block. Raises `FormatError` for what is no entry.
  std::optional<RunEntry> next();

private:
  std::uint64_t xNumber();
  std::string_view xBytes(std::uint64_t count);
  std::string_view xText() { return xBytes(xNumber()); }
  GK::GKValue xValue(std::uint64_t code);
  RunValues xValues();

  std::string_view fBlock;
  std::size_t fPosition = 0;
  GK::GKMicros fTime = 0;
};

} // namespace gk::formats
