#include "runtime/recording/RunReplay.h"

#include "formats/text/InputError.h"
#include "messages/text/Numbers.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <sstream>
#include <utility>
#include <variant>

namespace gk::runtime {

namespace {

using formats::RunAction;
using formats::RunEntry;
using formats::RunKey;
using formats::RunLost;
using formats::RunOverlap;
using formats::RunStart;
using formats::RunTask;
using formats::RunTurn;
using formats::RunValues;
using formats::RunWall;

/// Warnings that are kept.
constexpr std::size_t kMaxWarnings = 20;

} // namespace

void RunReplay::Values::clear() {
  fChanges.clear();
  fLarge.clear();
}

void RunReplay::Values::add(const RunValues& values, std::span<GK::GKMemoryCell* const> cells) {
  const std::size_t before = fChanges.size();
  // Hot path, of every value of a run: no allocation but for what there never was, no look-up.
  fChanges.resize(before + values.values.size(), boost::container::default_init);
  Change* change = fChanges.data() + before;
  for (const formats::RunValue& value : values.values) {
    *change++ = {cells[value.key], value.type, value.bits};
  }
  if (!values.large.empty()) {
    xAddLarge(values.large, before);
  }
}

void RunReplay::Values::add(Values&& others) {
  if (others.fChanges.empty()) {
    return;
  }
  const std::size_t before = fChanges.size();
  fChanges.insert(fChanges.end(), others.fChanges.begin(), others.fChanges.end());
  xAddLarge(others.fLarge, before);
  others.clear();
}

/// Those of the changes from `first` on, which count them from 0.
void RunReplay::Values::xAddLarge(std::span<const GK::GKValue> large, std::size_t first) {
  for (std::size_t i = first; i < fChanges.size(); ++i) {
    if (!formats::isScalar(fChanges[i].type)) {
      fChanges[i].bits += static_cast<std::uint32_t>(fLarge.size());
    }
  }
  fLarge.insert(fLarge.end(), large.begin(), large.end());
}

void RunReplay::Values::store() const {
  for (const Change& one : fChanges) {
    if (formats::isScalar(one.type)) {
      one.cell->storeBits(one.type, one.bits);
    } else {
      one.cell->store(fLarge[one.bits]);
    }
  }
}

/// Its memory is kept: there are many of them.
void RunReplay::Segment::clear() {
  turn = {};
  values.clear();
  state.clear();
  actions.clear();
  tasks.clear();
  isBehindAction = false;
  isInNextPart = false;
}

/// What comes from outside comes as turns of the schedule begin, whoever has them: there is nothing
/// left to be due.
class RunReplay::Input : public GK::GKInput {
public:
  std::optional<GK::GKMicros> next() override { return std::nullopt; }
  void apply() override {}
};

bool RunReplay::isRun(const std::string& file) {
  return file.ends_with(".mcap") && formats::RunFile(file).clock() == formats::RunClock::Turns;
}

RunReplay::RunReplay(std::vector<std::string> files)
    : fFiles(std::move(files)), fInput(std::make_unique<Input>()) {
  xOpenNext();
  xReadPreload();
  fAbout = fFile->about();
}

RunReplay::~RunReplay() = default;

std::vector<std::string> RunReplay::without() const {
  std::vector<std::string> services;
  const auto found = fAbout.find(formats::kWithoutMember);
  std::istringstream names(found != fAbout.end() ? found->second : std::string());
  for (std::string name; std::getline(names, name, ',');) {
    services.push_back(name);
  }
  return services;
}

void RunReplay::attach(std::shared_ptr<GK::GKMemoryStore> store, Act act, CallNow callNow) {
  fStore = std::move(store);
  fAct = std::move(act);
  fCallNow = std::move(callNow);
  xReadSegment();
  fEpoch = fWallOffset;
}

GK::GKInput& RunReplay::input() noexcept {
  return *fInput;
}

double RunReplay::progress() const noexcept {
  const auto files = static_cast<double>(fFiles.size());
  return (static_cast<double>(fPosition) - 1 + fFile->progress()) / files;
}

std::vector<std::string> RunReplay::warnings() const {
  std::vector<std::string> all = fWarnings;
  for (std::string& problem : fFile->problems()) {
    all.push_back(std::move(problem));
  }
  const auto count = [&all](std::uint64_t number, const std::string& what) {
    if (number > 0) {
      all.push_back(std::to_string(number) + " " + what);
    }
  };
  if (fTurns == 0) {
    all.emplace_back("nothing of the run can be read: nothing was repeated");
  }
  count(fLostBlocks, "blocks of the recorded run are missing");
  count(fProblems + fFile->problemCount(), "damaged places were left out of the repetition");
  count(fLostActions, "calls and writes from outside were not repeated");
  count(fExpected.size(), "tasks of the recorded run did not come up again");
  count(fNewTasks, "tasks came up that the recorded run did not have");
  return all;
}

bool RunReplay::isComplete() const {
  return fTurns > 0 && fProblems + fFile->problemCount() + fLostBlocks + fLostActions == 0 &&
         (fExpected.empty() || fIsContinued);
}

void RunReplay::xWarn(const std::string& text) {
  if (fWarnings.size() < kMaxWarnings) {
    std::string line = fFile->path() + ": ";
    messages::appendSeconds(line, fTime);
    fWarnings.push_back(line + " s: " + text);
  }
}

bool RunReplay::xOpenNext() {
  if (fPosition == fFiles.size()) {
    return false;
  }
  if (fFile != nullptr) {
    for (std::string& problem : fFile->problems()) {
      fWarnings.push_back(std::move(problem));
    }
    fProblems += fFile->problemCount();
  }
  fFile = std::make_unique<formats::RunFile>(fFiles[fPosition++]);
  fFile->readAhead();
  fCells.clear();
  return true;
}

std::optional<RunEntry> RunReplay::xNextEntry() {
  std::optional<RunEntry> entry = fFile->next();
  while (!entry && xOpenNext()) {
    entry = fFile->next();
  }
  if (const auto* key = entry ? std::get_if<RunKey>(&*entry) : nullptr;
      key != nullptr && key->index < fCells.size()) {
    // Its name was lost until now.
    fCells[key->index] = &fStore->cell(key->name);
  }
  return entry;
}

void RunReplay::xReadPreload() {
  formats::SetAction values;
  while (std::optional<RunEntry> entry = xNextEntry()) {
    if (auto* read = std::get_if<RunValues>(&*entry)) {
      for (const formats::RunValue& value : read->values) {
        values.values.emplace_back(*fFile->key(value.key), read->value(value));
      }
    } else if (auto* action = std::get_if<RunAction>(&*entry)) {
      fPreload.push_back(std::move(action->action));
    } else if (const auto* turn = std::get_if<RunTurn>(&*entry)) {
      fFollowing = *turn;
      break;
    } else if (const auto* start = std::get_if<RunStart>(&*entry); start && start->isContinued) {
      fIsContinued = true;
      xWarn("the recording begins in the middle of a run: what the modules knew by then is "
            "missing");
    }
  }
  fPreload.emplace_back(formats::UnsetAction{{"*"}});
  fPreload.emplace_back(std::move(values));
}

void RunReplay::xReadSegment() {
  fHasNext = fFollowing.has_value();
  if (!fHasNext) {
    return;
  }
  Segment& segment = *fNext;
  segment.clear();
  segment.values.add(std::move(fState));
  segment.turn = {fFollowing->task, fFollowing->time, fWallOffset};
  fTime = fFollowing->time;
  fFollowing.reset();
  while (std::optional<RunEntry> entry = xNextEntry()) {
    if (const auto* turn = std::get_if<RunTurn>(&*entry)) {
      fFollowing = *turn;
      break;
    }
    if (std::holds_alternative<RunStart>(*entry)) {
      fState.add(std::move(segment.state));
      xSkipState();
      break;
    }
    const bool isAction = std::holds_alternative<RunAction>(*entry);
    xTake(*entry, segment);
    segment.isBehindAction = isAction;
  }
  segment.values.add(std::move(segment.state));
  segment.turn.wallOffset = fWallOffset;
}

/// A new part begins: but for the values, what it tells a replay that begins with it, as a turn of
/// the main thread, is known already.
void RunReplay::xSkipState() {
  for (int turns = 0; turns < 2;) {
    const std::optional<RunEntry> entry = xNextEntry();
    if (!entry) {
      return;
    }
    if (const auto* turn = std::get_if<RunTurn>(&*entry)) {
      fFollowing = *turn;
      ++turns;
    } else if (const auto* wall = std::get_if<RunWall>(&*entry)) {
      fWallOffset = wall->offset;
    }
  }
}

void RunReplay::xTake(RunEntry& entry, Segment& segment) {
  if (const auto* values = std::get_if<RunValues>(&entry)) {
    xTakeValues(*values, segment);
  } else if (auto* action = std::get_if<RunAction>(&entry)) {
    segment.actions.push_back({std::move(action->action), std::nullopt});
  } else if (auto* task = std::get_if<RunTask>(&entry)) {
    xTakeTask(std::move(*task), segment);
  } else if (const auto* key = std::get_if<RunKey>(&entry); key != nullptr && key->index == 0) {
    // Keys are numbered anew where a part begins, and only there.
    segment.isInNextPart = true;
  } else if (const auto* wall = std::get_if<RunWall>(&entry)) {
    fWallOffset = wall->offset;
  } else if (const auto* lost = std::get_if<RunLost>(&entry)) {
    fLostBlocks += lost->blocks;
    xWarn(std::to_string(lost->blocks) + " blocks are missing here: the disk was too slow or full; "
                                         "events may differ from here on");
  } else if (std::holds_alternative<RunOverlap>(entry)) {
    xWarn("two tasks ran at the same time here: events may differ from here on");
  }
}

void RunReplay::xTakeTask(RunTask task, Segment& segment) {
  if (segment.isBehindAction) {
    segment.actions.back().task = std::move(task);
  } else if (segment.turn.task != GK::GKTurn::kOutside) {
    segment.tasks.push_back(std::move(task));
  }
  // What is left are tasks that look something up for a client: they are no part of the run.
}

std::optional<GK::GKTurn> RunReplay::next() {
  return fHasNext ? std::optional(fNext->turn) : std::nullopt;
}

void RunReplay::begin() {
  std::swap(fPresent, fNext);
  Segment& segment = *fPresent;
  segment.values.store();
  // The log tells what starts during a turn behind the turn, so all of it is known before.
  fExpected.insert(fExpected.end(), segment.tasks.begin(), segment.tasks.end());
  const bool isLoading = fTurns++ == 0;
  xReadSegment();
  if (isLoading) {
    // Before the libraries nobody can call: no log of ours tells so.
    fLostActions += segment.actions.size();
  } else {
    xCarryOut(segment.actions);
  }
}

/// Most comes in turns of nobody, but a call of a client may begin where the one before it ends, in
/// that one's task. To start early does no harm: what is started waits for its turn. A call for
/// which the run had no task was done where it stands: a client's write.
void RunReplay::xCarryOut(std::vector<OutsideAction>& actions) {
  for (OutsideAction& one : actions) {
    if (const auto* call = std::get_if<formats::CallAction>(&one.action); call && !one.task) {
      fCallNow(*call);
      continue;
    }
    fStarting = std::move(one.task);
    fAct(one.action);
    if (fStarting) {
      fExpected.push_back(*std::exchange(fStarting, std::nullopt));
    }
  }
}

void RunReplay::xTakeValues(const RunValues& values, Segment& segment) {
  if (values.values.empty()) {
    return;
  }
  for (std::size_t key = fCells.size(); key <= values.values.back().key; ++key) {
    const std::string* name = fFile->key(key);
    fCells.push_back(name != nullptr ? &fStore->cell(*name) : nullptr);
  }
  (segment.isInNextPart ? segment.state : segment.values).add(values, fCells);
}

std::optional<std::uint64_t> RunReplay::started(const GK::GKTask& task) {
  const auto isIt = [&task](const RunTask& expected) {
    return expected.module == task.module && expected.method == task.method;
  };
  if (fStarting && isIt(*fStarting)) {
    return std::exchange(fStarting, std::nullopt)->task;
  }
  const auto found = std::find_if(fExpected.begin(), fExpected.end(), isIt);
  if (found == fExpected.end()) {
    ++fNewTasks;
    return std::nullopt;
  }
  const std::uint64_t number = found->task;
  fExpected.erase(found);
  return number;
}

} // namespace gk::runtime
