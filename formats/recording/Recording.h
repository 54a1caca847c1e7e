#pragma once

#include "formats/lines/Action.h"
#include "formats/text/InputError.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKTime.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gk::formats {

/// What recordings are played to.
class RecordingTarget {
public:
  virtual ~RecordingTarget() = default;

  /// Where the values of a table's column go: asked for once a column, then written directly on
  /// every row. Null for a key that is not to be written. The cell outlives the recording.
  virtual GK::GKMemoryCell* column(const std::string& key) = 0;

  /// Carries out one line of a scenario. Raises `FormatError` when the line asks for what is not
  /// there.
  virtual void act(const Action& action) = 0;
};

/// Times count from the start of a run. One that begins later than this, a hundred days, is likely
/// to hold times of the wall clock, and nothing happens until then.
constexpr GK::GKMicros kLatestBeginning = 8'640'000'000'000;

/// An input file being played, line by line.
///
/// One line is read ahead and checked. All operations raise `InputError` for a malformed line; the
/// recording has ended then. For one thread.
class Recording {
public:
  virtual ~Recording() = default;
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  /// Actions that come before the library is loaded, in order: `SetAction`, `UnsetAction` and
  /// `FailAction` only.
  const std::vector<Action>& preload() const noexcept { return fPreload; }

  /// Time of the current line, not before that of the line before; nothing at the end.
  std::optional<GK::GKMicros> time() const noexcept { return fTime; }

  /// Carries out the current line, then reads the next one. The target is the same each time. Not
  /// to be called at the end.
  virtual void play(RecordingTarget& target) = 0;

  /// Reads the next line instead of the current one. Not to be called at the end.
  virtual void skip() = 0;

  /// How much of the input has been read, 0 to 1.
  virtual double progress() const noexcept = 0;

  /// What had to be left out because it is damaged, as far as has been read: one line each. Only
  /// files that can be read on behind a damaged place have any.
  virtual std::vector<std::string> problems() const { return {}; }
  /// False once something was left out; that a file was cut off at its end does not count.
  virtual bool isComplete() const noexcept { return true; }

protected:
  Recording() = default;

  std::vector<Action> fPreload;
  std::optional<GK::GKMicros> fTime;
};

} // namespace gk::formats
