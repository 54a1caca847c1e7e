#pragma once

#include "formats/run/RunLogWriter.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKPriorityMutex.h"
#include "gk/GKTurns.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gk::runtime {

/// A piece of the run log, ready to be written.
struct RunBlock {
  /// Of its first turn.
  GK::GKMicros time = 0;
  std::string data;
  /// It tells everything that a replay needs to begin here.
  bool isPartStart = false;
};

/// What was taken of a run log.
struct RunBlocks {
  std::deque<RunBlock> blocks;
  /// Everything before this time is in these blocks and those before them.
  GK::GKMicros end = 0;
};

/// Puts together the log of a run, turn by turn. Nobody waits for whoever takes the blocks: when
/// too much waits to be taken, all of it is dropped, the log says how much, and begins anew with
/// the whole state. Where nothing may be lost, the turns wait instead.
///
/// All operations from any thread.
class RunRecorder final : public GK::GKTurnObserver {
public:
  /// Blocks end at the first turn that comes after this time or beyond this size.
  static constexpr GK::GKMicros kBlockTime = 250'000;
  static constexpr std::size_t kBlockSize = 64 * 1024;
  /// Bytes that may wait.
  static constexpr std::size_t kLimit = 32 << 20;

  /// `partTime`: how long parts are, if they are to end by themselves.
  explicit RunRecorder(bool mustKeepAll, std::optional<GK::GKMicros> partTime = std::nullopt,
                       std::size_t limit = kLimit)
      : fMustKeepAll(mustKeepAll), fPartTime(partTime), fLimit(limit) {}

  /// The keys of `store` are those of the device layer, and libraries are about to be loaded; the
  /// log begins. `preload`: faults that are there already.
  void start(std::shared_ptr<GK::GKMemoryStore> store, const std::vector<formats::Action>& preload);

  /// One more key that is written from outside. No matter if it is known.
  void watch(const std::string& key);

  /// Something comes from outside. By whoever has the turn.
  void act(const formats::Action& action);

  /// What `act` has told was carried out at once. By whoever has the turn.
  void carriedOut();

  /// The log ends here.
  void stop();

  /// From the next turn on a new part begins, which can be replayed without those before it.
  /// `lost`: so many blocks that were taken have not been kept since the last part began.
  void beginPart(std::uint64_t lost = 0);

  /// Everything that is complete; with `isAll` also what is not.
  RunBlocks take(bool isAll);

  /// Blocks that were dropped so far.
  std::uint64_t dropped() const;
  std::uint64_t overlaps() const;
  /// Microseconds since 1970 at time 0, from the first turn on.
  std::int64_t epoch() const;

  void onTurn(const GK::GKTurn& turn) override;
  void onTask(std::uint64_t number, const GK::GKTask& task) override;
  void onOverlap() override;

private:
  struct Watched {
    GK::GKMemoryCell* cell = nullptr;
    std::string key;
    /// As a repetition has it by now; invalid and not told for a key that is not there yet.
    GK::GKValue told;
    bool isTold = false;
  };

  bool xIsOn() const noexcept { return fStore != nullptr && !fIsStopped; }
  /// Writes the present turn, if that has not been done.
  void xWriteTurn();
  void xWriteValues(bool isAll);
  void xWriteState();
  void xTakeOver();
  void xEndBlock();
  void xKeepBlock();
  void xWatch(const std::string& key);

  const bool fMustKeepAll;
  const std::optional<GK::GKMicros> fPartTime;
  const std::size_t fLimit;

  mutable GK::GKPriorityMutex fMutex;
  std::condition_variable fTaken;
  std::shared_ptr<GK::GKMemoryStore> fStore;
  std::vector<Watched> fWatched;
  /// Tasks of the main thread's first turn: loops, in general.
  std::vector<formats::RunTask> fFirstTasks;
  bool fIsLoading = true;

  GK::GKTurn fTurn;
  std::optional<std::int64_t> fEpoch;
  bool fIsTurnWritten = false;
  std::int64_t fWallOffset = 0;
  formats::RunLogWriter fLog;
  std::size_t fNamedKeys = 0;
  GK::GKMicros fPartStart = 0;
  bool fIsPartDue = false;
  bool fIsPartStart = false;
  /// Blocks of which the next part says that they are missing.
  std::uint64_t fLost = 0;
  bool fIsStopped = false;

  std::deque<RunBlock> fBlocks;
  std::size_t fWaiting = 0;
  std::uint64_t fDropped = 0;
  std::uint64_t fOverlaps = 0;
};

} // namespace gk::runtime
