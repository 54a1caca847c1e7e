#include "runtime/recording/RunRecorder.h"

#include "messages/json/SameValue.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace gk::runtime {

namespace {

using formats::RunAction;
using formats::RunKey;
using formats::RunLost;
using formats::RunOverlap;
using formats::RunStart;
using formats::RunTask;
using formats::RunTurn;
using formats::RunWall;

} // namespace

void RunRecorder::start(std::shared_ptr<GK::GKMemoryStore> store,
                        const std::vector<formats::Action>& preload) {
  const std::lock_guard lock(fMutex);
  fStore = std::move(store);
  for (const std::string& key : fStore->keys()) {
    xWatch(key);
  }
  for (const formats::Action& action : preload) {
    if (std::holds_alternative<formats::FailAction>(action)) {
      fLog.add(RunAction{action});
    }
  }
  xWriteValues(true);
  fLog.add(RunStart{true, false});
  fIsPartStart = true;
  fIsTurnWritten = false;
  xWriteTurn();
}

void RunRecorder::watch(const std::string& key) {
  const std::lock_guard lock(fMutex);
  if (xIsOn()) {
    xWatch(key);
  }
}

void RunRecorder::xWatch(const std::string& key) {
  GK::GKMemoryCell* cell = &fStore->cell(key);
  const auto isIt = [cell](const Watched& one) { return one.cell == cell; };
  if (std::find_if(fWatched.begin(), fWatched.end(), isIt) == fWatched.end()) {
    fWatched.push_back({cell, key, {}, false});
  }
}

void RunRecorder::act(const formats::Action& action) {
  const std::lock_guard lock(fMutex);
  if (const auto* set = std::get_if<formats::SetAction>(&action); set != nullptr && xIsOn()) {
    // What they are set to is seen at the next turn.
    for (const auto& [key, value] : set->values) {
      xWatch(key);
    }
  } else if (xIsOn()) {
    xWriteTurn();
    fLog.add(RunAction{action});
  }
}

void RunRecorder::carriedOut() {
  const std::lock_guard lock(fMutex);
  if (xIsOn()) {
    xTakeOver();
  }
}

void RunRecorder::stop() {
  const std::lock_guard lock(fMutex);
  fIsStopped = true;
  fTaken.notify_all();
}

void RunRecorder::beginPart(std::uint64_t lost) {
  const std::lock_guard lock(fMutex);
  fIsPartDue = true;
  fLost = lost;
}

void RunRecorder::onTurn(const GK::GKTurn& turn) {
  std::unique_lock<std::mutex> lock(fMutex);
  fIsLoading = fIsLoading && turn.task == GK::GKTurn::kMain;
  if (xIsOn() && fTurn.task != GK::GKTurn::kOutside && turn.task == GK::GKTurn::kOutside) {
    xTakeOver();
  }
  fTurn = turn;
  fEpoch = fEpoch.value_or(turn.wallOffset);
  fIsTurnWritten = false;
  if (!xIsOn()) {
    return;
  }
  if (fMustKeepAll) {
    fTaken.wait(lock, [this] { return fWaiting < fLimit || fIsStopped; });
  }
  // Most input only sets keys, and those are seen when a task has its turn.
  if (turn.task != GK::GKTurn::kOutside) {
    xWriteTurn();
  }
}

void RunRecorder::xWriteTurn() {
  if (std::exchange(fIsTurnWritten, true)) {
    return;
  }
  fIsPartDue = fIsPartDue || (fPartTime && fTurn.time - fPartStart >= *fPartTime);
  const bool isFull = fLog.size() >= kBlockSize || fTurn.time - fLog.startTime() >= kBlockTime;
  if (!fLog.isEmpty() && (isFull || fIsPartDue)) {
    xEndBlock();
  }
  if (std::exchange(fIsPartDue, false)) {
    xWriteState();
  }
  fLog.add(RunTurn{fTurn.task, fTurn.time});
  if (fTurn.wallOffset != fWallOffset) {
    fWallOffset = fTurn.wallOffset;
    fLog.add(RunWall{fWallOffset});
  }
  xWriteValues(false);
}

/// Tells a replay that begins here what it has to know.
void RunRecorder::xWriteState() {
  fPartStart = fTurn.time;
  fLog.beginAnew();
  if (const std::uint64_t lost = std::exchange(fLost, 0); lost > 0) {
    fLog.add(RunLost{lost});
  }
  fNamedKeys = 0;
  xWriteValues(true);
  fLog.add(RunStart{true, true});
  fLog.add(RunTurn{GK::GKTurn::kMain, fTurn.time});
  fLog.add(RunWall{fTurn.wallOffset});
  fWallOffset = fTurn.wallOffset;
  for (const RunTask& task : fFirstTasks) {
    fLog.add(task);
  }
  fIsPartStart = true;
}

void RunRecorder::xWriteValues(bool isAll) {
  for (; fNamedKeys < fWatched.size(); ++fNamedKeys) {
    fLog.add(RunKey{fNamedKeys, fWatched[fNamedKeys].key});
  }
  fLog.beginValues();
  for (std::size_t i = 0; i < fWatched.size(); ++i) {
    Watched& watched = fWatched[i];
    if (!watched.cell->exists()) {
      continue;
    }
    GK::GKValue value = watched.cell->load();
    if (isAll || !watched.isTold || !messages::isSameValue(watched.told, value)) {
      fLog.addValue(i, value);
      watched.told = std::move(value);
      watched.isTold = true;
    }
  }
  fLog.endValues();
}

/// What a task or a call has written its repetition writes again. Who comes from outside may set it
/// back to what the log has, and that has to be told.
void RunRecorder::xTakeOver() {
  for (Watched& watched : fWatched) {
    if (watched.isTold) {
      watched.told = watched.cell->load();
    }
  }
}

void RunRecorder::xEndBlock() {
  xKeepBlock();
  if (!fMustKeepAll && fWaiting > fLimit) {
    fDropped += fBlocks.size();
    // A block of its own: the one behind it begins anew.
    fLog.add(RunLost{fBlocks.size()});
    fBlocks.clear();
    fWaiting = 0;
    fIsPartDue = true;
    xKeepBlock();
  }
}

void RunRecorder::xKeepBlock() {
  RunBlock block;
  block.time = fLog.startTime();
  block.data = fLog.take();
  block.isPartStart = std::exchange(fIsPartStart, false);
  fWaiting += block.data.size();
  fBlocks.push_back(std::move(block));
}

RunBlocks RunRecorder::take(bool isAll) {
  const std::lock_guard lock(fMutex);
  if (isAll && !fLog.isEmpty()) {
    xEndBlock();
  }
  fWaiting = 0;
  fTaken.notify_all();
  // A turn that has been written is in the block as a whole: the next part begins with a later one.
  const GK::GKMicros end = fLog.isEmpty() ? fTurn.time + 1 : fLog.startTime();
  return {std::exchange(fBlocks, {}), fStore != nullptr ? end : 0};
}

std::uint64_t RunRecorder::dropped() const {
  const std::lock_guard lock(fMutex);
  return fDropped;
}

std::uint64_t RunRecorder::overlaps() const {
  const std::lock_guard lock(fMutex);
  return fOverlaps;
}

std::int64_t RunRecorder::epoch() const {
  const std::lock_guard lock(fMutex);
  return fEpoch.value_or(0);
}

void RunRecorder::onTask(std::uint64_t number, const GK::GKTask& task) {
  const std::lock_guard lock(fMutex);
  const RunTask entry{number, task.module, task.method};
  if (fIsLoading) {
    fFirstTasks.push_back(entry);
  }
  if (xIsOn()) {
    xWriteTurn();
    fLog.add(entry);
  }
}

void RunRecorder::onOverlap() {
  const std::lock_guard lock(fMutex);
  ++fOverlaps;
  if (xIsOn()) {
    fLog.add(RunOverlap{});
  }
}

} // namespace gk::runtime
