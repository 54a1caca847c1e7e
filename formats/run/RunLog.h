#pragma once

#include "formats/lines/Action.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

/// What a recording keeps of a run so that it can be repeated exactly: who ran when, and what came
/// from outside.
///
/// A run is a sequence of turns: one task at a time runs, from where it wakes up to where it falls
/// asleep or ends, and time stands still meanwhile. Behind each turn stand the device keys that had
/// changed when it began, and the tasks and inputs that came up during it.
///
/// The log is kept in blocks, the messages of one channel: written by `RunLogWriter`, read by
/// `RunLogReader`, byte by byte in docs/recordings.md.
namespace gk::formats {

/// The channel of the log, and how its messages are encoded: now, and by gksensors 0.1.
inline constexpr const char* kRunTopic = "/gk/run";
inline constexpr const char* kRunEncoding = "gk.run.2";
inline constexpr const char* kFirstRunEncoding = "gk.run.1";

/// True for an encoding of run logs that can be read.
inline bool isRunEncoding(std::string_view encoding) {
  return encoding == kRunEncoding || encoding == kFirstRunEncoding;
}

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
/// True for values that have bits: all others are large.
inline bool isScalar(GK::GKValue::Type type) noexcept {
  return type == GK::GKValue::Type::Float || type == GK::GKValue::Type::Int ||
         type == GK::GKValue::Type::Bool;
}

/// What a key has changed to.
struct RunValue {
  std::uint32_t key = 0;
  /// Of a float, an int, or a bool as 0 or 1. Where it is none of these, which one of the large
  /// ones it is.
  std::uint32_t bits = 0;
  GK::GKValue::Type type = GK::GKValue::Type::Invalid;
};
/// Keys that have changed, by number, in ascending order. Good until the reader's next call.
struct RunValues {
  std::span<const RunValue> values;
  std::span<const GK::GKValue> large;
  /// Blocks before this one are missing, and without them its values cannot be read.
  bool areLost = false;

  /// One of `values`.
  GK::GKValue value(const RunValue& one) const;
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

} // namespace gk::formats
