#include "runtime/recording/Recorder.h"

#include "gk/GKClock.h"

#include <algorithm>
#include <filesystem>
#include <fnmatch.h>
#include <utility>

namespace gk::runtime {

namespace {

/// While only the last seconds are kept, parts are at least so long.
constexpr GK::GKMicros kShortestPart = 1'000'000;
/// A quarter of the time kept is kept too much at most.
constexpr int kPartsKept = 4;

/// How long parts are, if they end by themselves.
std::optional<GK::GKMicros> partTimeOf(const RecorderOptions& options) {
  return options.around ? std::max(kShortestPart, options.around->before / kPartsKept)
                        : options.splitTime;
}

template <class Item> GK::GKMicros timeOf(const Item& item) {
  return std::visit([](const auto& one) { return one.time; }, item);
}

template <class Item> bool isPartStart(const Item& item) {
  const auto* block = std::get_if<RunBlock>(&item);
  return block != nullptr && block->isPartStart;
}

/// "folder/run.mcap" -> "folder/run-007.mcap"
std::string numbered(const std::string& path, std::size_t number) {
  const std::filesystem::path whole(path);
  std::string digits = std::to_string(number);
  digits.insert(0, 3 - std::min<std::size_t>(3, digits.size()), '0');
  std::filesystem::path name = whole.stem();
  name += "-" + digits;
  name += whole.extension();
  return whole.parent_path() / name;
}

} // namespace

Recorder::Recorder(RecorderOptions options)
    : fOptions(std::move(options)),
      fQueueLimit(fOptions.mustKeepAll ? kShortQueueLimit : kQueueLimit),
      fRun(std::make_shared<RunRecorder>(fOptions.mustKeepAll, partTimeOf(fOptions), fQueueLimit)) {
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
  const bool isRaise =
      notice.kind == GK::GKNotice::Kind::Event || notice.kind == GK::GKNotice::Kind::MicroEvent;
  if (isRaise && fOptions.around &&
      fnmatch(fOptions.around->pattern.c_str(), notice.name.c_str(), 0) == 0) {
    const std::lock_guard lock(fMutex);
    fTriggers.push_back({notice.time});
  }
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
  return {fRun->dropped(), fDropped, fRun->overlaps()};
}

void Recorder::xServe() {
  bool isOver = false;
  while (!isOver) {
    {
      std::unique_lock<std::mutex> lock(fMutex);
      fWake.wait_for(lock, fOptions.mustKeepAll ? kShortPollTime : kPollTime,
                     [this] { return fIsClosing; });
    }
    try {
      isOver = xCycle();
    } catch (...) {
      // Nothing more can be written, but the run goes on: what waits is taken and thrown away.
      if (fError == nullptr) {
        fError = std::current_exception();
      }
      fFile.reset();
      const std::lock_guard lock(fMutex);
      isOver = fIsClosing;
    }
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
  std::vector<Item> items = xTakeAll(isDue, isOver);
  if (fError != nullptr) {
    return isOver;
  }
  for (Item& item : items) {
    xWrite(std::move(item));
  }
  if (isDue && fFile != nullptr) {
    fFile->flush();
    fFlushed = now;
  }
  if (isOver) {
    xClose();
  }
  return isOver;
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
  } else if (const auto* message = std::get_if<RecordedMessage>(&item)) {
    fFile->write(*message);
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
    for (const Item& item : fRing) {
      xWriteToFile(item);
    }
  }
}

void Recorder::xOpen() {
  const bool isNumbered = fOptions.splitSize || fOptions.splitTime || fOptions.around;
  const std::string name = isNumbered ? numbered(fOptions.path, fNames.size() + 1) : fOptions.path;
  fFile = std::make_unique<RecordingFile>(name, fOptions.library);
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
