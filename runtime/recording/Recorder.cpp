#include "runtime/recording/Recorder.h"

#include "gk/GKClock.h"
#include "messages/notices/Raise.h"

#include <algorithm>
#include <fnmatch.h>
#include <utility>

namespace gk::runtime {

namespace {

using formats::isTaken;
using formats::partName;

/// While only the last seconds are kept, parts are at least so long.
constexpr GK::GKMicros kShortestPart = 1'000'000;
/// A quarter of the time kept is kept too much at most.
constexpr int kPartsKept = 4;

/// How long parts are, if they end by themselves.
std::optional<GK::GKMicros> partTimeOf(const RecorderOptions& options) {
  return options.around ? std::max(kShortestPart, options.around->before / kPartsKept)
                        : options.splitTime;
}

/// Bytes of what is written at once. A file is ended between such pieces, and is longer by some of
/// them than was asked for, so that those of small files are small.
std::size_t pieceSizeOf(const RecorderOptions& options) {
  constexpr std::uint64_t kShare = 4;
  constexpr std::uint64_t kLargest = formats::mcap::Writer::kChunkSize;
  const std::uint64_t size = options.splitSize.value_or(kLargest * kShare) / kShare;
  return std::clamp<std::uint64_t>(size, RunRecorder::kBlockSize, kLargest);
}

template <class Item> GK::GKMicros timeOf(const Item& item) {
  return std::visit([](const auto& one) { return one.time; }, item);
}

template <class Item> bool isPartStart(const Item& item) {
  const auto* block = std::get_if<RunBlock>(&item);
  return block != nullptr && block->isPartStart;
}

/// Raises `OutputError` when there are numbered files of this name already.
void expectNoParts(const std::string& path) {
  const std::string first = partName(path, 1);
  if (!isTaken(first)) {
    return;
  }
  std::string next = formats::nextFreeName(path);
  for (std::uint64_t number = 3; isTaken(partName(next, 1)); ++number) {
    next = formats::nextFreeName(path, number);
  }
  throw formats::OutputError(formats::OutputError::Kind::Exists,
                             first + " exists already; " + next +
                                 " is free, --overwrite replaces it");
}

} // namespace

Recorder::Recorder(RecorderOptions options)
    : fOptions(std::move(options)), fPieceSize(pieceSizeOf(fOptions)),
      fQueueLimit(fOptions.mustKeepAll ? fPieceSize : kQueueLimit),
      fRun(std::make_shared<RunRecorder>(fOptions.mustKeepAll, partTimeOf(fOptions), fQueueLimit)) {
  if (xIsNumbered() && !fOptions.isOverwriting) {
    expectNoParts(fOptions.path);
  }
  if (!fOptions.around) {
    xOpen();
  }
  fThread = std::thread([this] { xServe(); });
}

Recorder::~Recorder() {
  try {
    finish();
  } catch (...) { // NOLINT(bugprone-empty-catch): whoever wants to know has finished before
  }
}

void Recorder::onNotice(const GK::GKNotice& notice) {
  if (fMaker != nullptr) {
    xQueue(fMaker->ofNotice(notice));
  }
  const bool isRaise = messages::isRaise(notice);
  if (fOptions.around && (isRaise || notice.kind == GK::GKNotice::Kind::Declare)) {
    const bool isTrigger =
        isRaise && fnmatch(fOptions.around->pattern.c_str(), notice.name.c_str(), 0) == 0;
    const std::lock_guard lock(fMutex);
    fEvents.insert(notice.name);
    if (isTrigger) {
      fTriggers.push_back({notice.time});
    }
  }
}

std::vector<std::string> Recorder::events() const {
  const std::lock_guard lock(fMutex);
  return {fEvents.begin(), fEvents.end()};
}

std::vector<std::string> Recorder::earlierParts() const {
  std::vector<std::string> parts;
  if (xIsNumbered()) {
    std::string name;
    for (std::uint64_t number = fNumber + 1; isTaken(name = partName(fOptions.path, number));
         ++number) {
      parts.push_back(name);
    }
  }
  return parts;
}

void Recorder::onTick(GK::GKMicros time, const GK::GKTask& task) {
  if (fMaker != nullptr) {
    xQueue(fMaker->ofTick(time, task));
  }
}

void Recorder::xQueue(std::vector<RecordedMessage> messages) {
  if (messages.empty()) {
    return;
  }
  std::unique_lock<std::mutex> lock(fMutex);
  if (fOptions.mustKeepAll) {
    fTaken.wait(lock, [this] { return fWaiting < fQueueLimit || fIsClosing; });
  }
  for (RecordedMessage& message : messages) {
    fWaiting += message.payload.size();
    fMessages.push_back(std::move(message));
  }
  while (!fOptions.mustKeepAll && fWaiting > fQueueLimit) {
    fWaiting -= fMessages.front().payload.size();
    fMessages.pop_front();
    ++fDropped;
  }
}

void Recorder::confirm() {
  {
    std::unique_lock<std::mutex> lock(fMutex);
    fConfirmation = Confirmation::Asked;
    fWake.notify_all();
    fConfirmed.wait(lock, [this] { return fConfirmation == Confirmation::Done; });
  }
  if (const std::exception_ptr refusal = std::exchange(fRefusal, nullptr)) {
    std::rethrow_exception(refusal);
  }
}

/// The first file takes its place.
void Recorder::xConfirm() {
  try {
    if (fFile != nullptr) {
      fFile->appear();
    }
  } catch (...) {
    fRefusal = std::current_exception();
  }
  const std::lock_guard lock(fMutex);
  fConfirmation = Confirmation::Done;
  fConfirmed.notify_all();
}

void Recorder::finish() {
  {
    const std::lock_guard lock(fMutex);
    fIsClosing = true;
  }
  fRun->stop();
  fWake.notify_all();
  fTaken.notify_all();
  if (fThread.joinable()) {
    fThread.join();
  }
  if (fError != nullptr) {
    std::rethrow_exception(std::exchange(fError, nullptr));
  }
}

RecordingLosses Recorder::losses() const {
  const std::lock_guard lock(fMutex);
  return {fRun->dropped() + fState.losses.blocks, fDropped + fState.losses.messages,
          fRun->overlaps()};
}

RecordingState Recorder::state() const {
  RecordingState state;
  {
    const std::lock_guard lock(fMutex);
    state = fState;
  }
  state.losses = losses();
  return state;
}

void Recorder::xServe() {
  bool isOver = false;
  while (!isOver) {
    bool mustConfirm = false;
    {
      std::unique_lock<std::mutex> lock(fMutex);
      fWake.wait_for(lock, fOptions.mustKeepAll ? kShortPollTime : kPollTime,
                     [this] { return fIsClosing || fConfirmation == Confirmation::Asked; });
      mustConfirm = fConfirmation == Confirmation::Asked;
    }
    if (mustConfirm) {
      xConfirm();
    }
    isOver = xCycle();
  }
}

bool Recorder::xCycle() {
  bool isOver = false;
  bool isFull = false;
  {
    const std::lock_guard lock(fMutex);
    isOver = fIsClosing;
    isFull = fWaiting > fQueueLimit / 2;
  }
  const auto now = std::chrono::steady_clock::now();
  const bool isDue = isOver || isFull || now - fFlushed >= kFlushTime;
  for (Item& item : xTakeAll(isDue, isOver)) {
    if (fIsInTrouble && !fOptions.around) {
      xLose(item);
      continue;
    }
    const bool isBlock = std::holds_alternative<RunBlock>(item);
    const bool isMessage = std::holds_alternative<RecordedMessage>(item);
    try {
      xWrite(std::move(item));
    } catch (const formats::OutputError& error) {
      xFail(error);
      xCountLost(isBlock ? 1 : 0, isMessage ? 1 : 0);
    }
  }
  try {
    if (isDue && fFile != nullptr) {
      fFile->flush();
      fFlushed = now;
      fOpenBlocks = 0;
      fOpenMessages = 0;
    }
    if (isOver) {
      xClose();
    }
  } catch (const formats::OutputError& error) {
    xFail(error);
  }
  if (fIsInTrouble && !fOptions.around && now - fTried >= kRetryTime) {
    fTried = now;
    fRun->beginPart(fLostBlocks);
  }
  const std::lock_guard lock(fMutex);
  fState.files = fNames.size();
  fState.bytes = fSize + (fFile != nullptr ? fFile->size() : 0);
  return isOver;
}

void Recorder::xFail(const formats::OutputError& error) {
  if (fError == nullptr) {
    fError = std::make_exception_ptr(error);
  }
  fSize += fFile != nullptr ? fFile->size() : 0;
  fFile.reset();
  xCountLost(std::exchange(fOpenBlocks, 0), std::exchange(fOpenMessages, 0));
  fTried = std::chrono::steady_clock::now();
  const bool isNew = !std::exchange(fIsInTrouble, true);
  {
    const std::lock_guard lock(fMutex);
    fState.trouble = error.what();
  }
  if (isNew && fOptions.onTrouble) {
    fOptions.onTrouble(std::string(error.what()) +
                       "; the recording goes on in a new file when there is room");
  }
}

void Recorder::xCountLost(std::uint64_t blocks, std::uint64_t messages) {
  fLostBlocks += blocks;
  const std::lock_guard lock(fMutex);
  fState.losses.blocks += blocks;
  fState.losses.messages += messages;
}

void Recorder::xLose(const Item& item) {
  if (!isPartStart(item) || !xGoOn(item)) {
    xCountLost(std::holds_alternative<RunBlock>(item) ? 1 : 0,
               std::holds_alternative<RecordedMessage>(item) ? 1 : 0);
  }
}

/// True when a new file has been begun with this item, which begins a part, and is on the disk.
bool Recorder::xGoOn(const Item& item) {
  const std::size_t files = fNames.size();
  const std::size_t number = fNumber;
  try {
    xOpen();
    xWriteToFile(item);
    fFile->flush();
    fFile->appear();
  } catch (const formats::OutputError&) {
    // Nothing is left of a file that has not appeared.
    fFile.reset();
    fOpenBlocks = 0;
    fOpenMessages = 0;
    fNames.resize(files);
    fNumber = number;
    return false;
  }
  xRecovered();
  return true;
}

void Recorder::xRecovered() {
  if (!std::exchange(fIsInTrouble, false)) {
    return;
  }
  fLostBlocks = 0;
  fIsPartAsked = false;
  {
    const std::lock_guard lock(fMutex);
    fState.trouble.clear();
  }
  if (fOptions.onTrouble) {
    fOptions.onTrouble("the recording goes on in " + fNames.back());
  }
}

/// Takes what waits, in the order of its times. Messages wait for the block of the run log that
/// they belong to: with that block a part may begin.
std::vector<Recorder::Item> Recorder::xTakeAll(bool isAllBlocks, bool isAllMessages) {
  std::vector<Item> items;
  RunBlocks taken = fRun->take(isAllBlocks);
  for (RunBlock& block : taken.blocks) {
    items.emplace_back(std::move(block));
  }
  {
    const std::lock_guard lock(fMutex);
    const auto isLater = [&](const auto& one) { return !isAllMessages && one.time >= taken.end; };
    while (!fMessages.empty() && !isLater(fMessages.front())) {
      fWaiting -= fMessages.front().payload.size();
      items.emplace_back(std::move(fMessages.front()));
      fMessages.pop_front();
    }
    while (!fTriggers.empty() && !isLater(fTriggers.front())) {
      items.emplace_back(fTriggers.front());
      fTriggers.pop_front();
    }
  }
  fTaken.notify_all();
  std::stable_sort(items.begin(), items.end(), [](const Item& left, const Item& right) {
    return timeOf(left) < timeOf(right);
  });
  return items;
}

void Recorder::xWrite(Item item) {
  if (const auto* trigger = std::get_if<Trigger>(&item)) {
    xPull(trigger->time);
    return;
  }
  if (fOptions.around) {
    xKeep(std::move(item));
    return;
  }
  if (isPartStart(item)) {
    fIsPartAsked = false;
    if (fFile->hasBegun()) {
      xClose();
      xOpen();
      fFile->appear();
    }
  }
  xWriteToFile(item);
  if (fOptions.splitSize && fFile->size() >= *fOptions.splitSize &&
      !std::exchange(fIsPartAsked, true)) {
    fRun->beginPart();
  }
}

void Recorder::xWriteToFile(const Item& item) {
  if (!fFile->hasBegun()) {
    fFile->begin(fRun->epoch(), fOptions.about);
  }
  if (const auto* block = std::get_if<RunBlock>(&item)) {
    fFile->write(*block);
    ++fOpenBlocks;
  } else if (const auto* message = std::get_if<RecordedMessage>(&item)) {
    fFile->write(*message);
    ++fOpenMessages;
  }
}

/// Writes to the file while there is one, and keeps the last seconds.
void Recorder::xKeep(Item item) {
  if (fFile != nullptr && timeOf(item) > *fUntil) {
    xClose();
  }
  if (fFile != nullptr) {
    xWriteToFile(item);
  }
  const bool isStart = isPartStart(item);
  const GK::GKMicros oldest = timeOf(item) - fOptions.around->before;
  fRing.push_back(std::move(item));
  if (isStart) {
    xTrimRing(oldest);
  }
}

/// Drops the parts before the last one that begins early enough.
void Recorder::xTrimRing(GK::GKMicros oldest) {
  const auto isEarly = [oldest](const Item& item) {
    return isPartStart(item) && timeOf(item) <= oldest;
  };
  const auto last = std::find_if(fRing.rbegin(), fRing.rend(), isEarly);
  if (last != fRing.rend()) {
    fRing.erase(fRing.begin(), std::prev(last.base()));
  }
}

/// An event was raised: begins a file, or goes on with the one that there is.
void Recorder::xPull(GK::GKMicros time) {
  fUntil = time + fOptions.around->after;
  if (fFile == nullptr) {
    xOpen();
    fFile->appear();
    for (const Item& item : fRing) {
      xWriteToFile(item);
    }
    xRecovered();
  }
}

bool Recorder::xIsNumbered() const {
  return fOptions.splitSize || fOptions.splitTime || fOptions.around;
}

/// Begins the next file. What follows a file that could not be written has a number in any case,
/// and replaces nothing.
void Recorder::xOpen() {
  const bool isFirst = fNumber == 0;
  const bool mayReplace = fOptions.isOverwriting && (isFirst || xIsNumbered());
  std::string name;
  do {
    ++fNumber;
    name = isFirst && !xIsNumbered() ? fOptions.path : partName(fOptions.path, fNumber);
  } while (!isFirst && !mayReplace && isTaken(name));
  fFile = std::make_unique<RecordingFile>(
      name, formats::OutputFileOptions{fOptions.inputs, !mayReplace}, fOptions.library, fPieceSize);
  fNames.push_back(name);
}

void Recorder::xClose() {
  if (fFile != nullptr) {
    fFile->finish(losses());
    fSize += fFile->size();
    fFile.reset();
  }
}

} // namespace gk::runtime
