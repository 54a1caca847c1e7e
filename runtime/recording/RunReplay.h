#pragma once

#include "formats/run/RunFile.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKTurns.h"

#include <boost/container/vector.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace gk::runtime {

/// The turns of a recorded run, and what came from outside at each of them. For the clock and the
/// host of one replay; one thread at a time.
class RunReplay final : public GK::GKSchedule {
public:
  /// Carries out what came from outside.
  using Act = std::function<void(const formats::Action&)>;
  /// Carries out a call in the turn at hand, without a task of its own.
  using CallNow = std::function<void(const formats::CallAction&)>;

  /// True for a file that tells the turns of a run. Raises `InputError`.
  static bool isRun(const std::string& file);

  /// The files are the parts of one run, in their order. Reads what was there before the libraries.
  /// Raises `InputError`.
  explicit RunReplay(std::vector<std::string> files);
  ~RunReplay() override;

  /// What was there before the libraries: keys and faults.
  const std::vector<formats::Action>& preload() const noexcept { return fPreload; }
  /// The services that the run did without.
  std::vector<std::string> without() const;

  const std::vector<std::string>& files() const noexcept { return fFiles; }

  /// What the files say about the run.
  const formats::mcap::StringMap& about() const noexcept { return fAbout; }
  /// Microseconds since 1970 at time 0 of the run, from `attach` on.
  std::int64_t epoch() const noexcept { return fEpoch; }

  /// Where values and actions go. Before a clock is made of it. Raises `InputError`.
  void attach(std::shared_ptr<GK::GKMemoryStore> store, Act act, CallNow callNow);

  /// The actions at the turns, for the clock to apply.
  GK::GKInput& input() noexcept;

  /// How much of the files has been read, 0 to 1.
  double progress() const noexcept;

  /// What kept the replay from being exact, as far as it has come: one line each.
  std::vector<std::string> warnings() const;
  /// False once some of what the files tell of the run, or should tell, was not repeated. A run of
  /// which the end is missing, or the beginning, is repeated as far as it is there.
  bool isComplete() const;

  std::optional<GK::GKTurn> next() override;
  void begin() override;
  std::optional<std::uint64_t> started(const GK::GKTask& task) override;

private:
  class Input;

  /// What cells are set to at the beginning of a turn, in the order in which the log tells it.
  class Values {
  public:
    void clear();
    /// `cells`: of the keys by their numbers, all of those that change.
    void add(const formats::RunValues& values, std::span<GK::GKMemoryCell* const> cells);
    void add(Values&& others);
    void store() const;

  private:
    /// As `RunValue`.
    struct Change {
      GK::GKMemoryCell* cell;
      GK::GKValue::Type type;
      std::uint32_t bits;
    };

    void xAddLarge(std::span<const GK::GKValue> large, std::size_t first);

    boost::container::vector<Change> fChanges;
    std::vector<GK::GKValue> fLarge;
  };

  /// What came from outside, and the task that it started.
  struct OutsideAction {
    formats::Action action;
    std::optional<formats::RunTask> task;
  };

  /// One turn and what the log tells of it.
  struct Segment {
    void clear();

    GK::GKTurn turn;
    Values values;
    /// The state with which the next part starts, once the file has ended.
    Values state;
    std::vector<OutsideAction> actions;
    std::vector<formats::RunTask> tasks;
    /// The entry read last is an action.
    bool isBehindAction = false;
    bool isInNextPart = false;
  };

  void xReadPreload();
  /// Reads the turn that follows, if there is one.
  void xReadSegment();
  void xTake(formats::RunEntry& entry, Segment& segment);
  std::optional<formats::RunEntry> xNextEntry();
  bool xOpenNext();
  void xTakeValues(const formats::RunValues& values, Segment& segment);
  void xTakeTask(formats::RunTask task, Segment& segment);
  void xSkipState();
  void xCarryOut(std::vector<OutsideAction>& actions);
  void xWarn(const std::string& text);

  std::vector<std::string> fFiles;
  std::size_t fPosition = 0;
  std::unique_ptr<formats::RunFile> fFile;
  std::vector<std::string> fWarnings;
  /// Of the files that have been read to their end: damaged places, those at the very end not
  /// counted.
  std::uint64_t fProblems = 0;
  std::uint64_t fLostBlocks = 0;
  std::uint64_t fLostActions = 0;
  std::uint64_t fTurns = 0;
  /// Tasks that the former run did not have.
  std::uint64_t fNewTasks = 0;
  /// The files begin in the middle of a run.
  bool fIsContinued = false;

  std::vector<formats::Action> fPreload;
  std::shared_ptr<GK::GKMemoryStore> fStore;
  Act fAct;
  CallNow fCallNow;
  std::unique_ptr<Input> fInput;

  /// The segment that comes next; its turn was read ahead as the end of the one before.
  std::unique_ptr<Segment> fNext = std::make_unique<Segment>();
  bool fHasNext = false;
  /// The segment that has begun.
  std::unique_ptr<Segment> fPresent = std::make_unique<Segment>();
  std::optional<formats::RunTurn> fFollowing;
  std::int64_t fWallOffset = 0;
  std::int64_t fEpoch = 0;
  formats::mcap::StringMap fAbout;
  /// Tasks that are told of and have not started yet.
  std::vector<formats::RunTask> fExpected;
  /// The task that the action being carried out starts.
  std::optional<formats::RunTask> fStarting;
  /// Values of a part's beginning, due with its first turn.
  Values fState;
  /// By number of the key in the present file.
  std::vector<GK::GKMemoryCell*> fCells;
  GK::GKMicros fTime = 0;
};

} // namespace gk::runtime
