#include "runtime/Recorder.h"

#include "gk/GKClock.h"

#include <algorithm>
#include <filesystem>
#include <fnmatch.h>
#include <utility>

namespace gk::runtime {

namespace {

/// While only the last seconds are kept, parts begin at least so far apart.
constexpr GK::GKMicros kShortestPart = 1'000'000;
/// A quarter of the time kept is kept too much at most.
constexpr int kPartsKept = 4;

GK::GKMicros timeOf(const std::variant<RunBlock, RecordedMessage>& item) {
  return std::visit([](const auto& one) { return one.time; }, item);
}

bool isPartStart(const std::variant<RunBlock, RecordedMessage>& item) {
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
    : fOptions(std::move(options)), fRun(std::make_shared<RunRecorder>(fOptions.mustKeepAll)) {
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
    fTrigger = notice.time;
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
  std::unique_lock lock(fMutex);
  if (fOptions.mustKeepAll) {
    fTaken.wait(lock, [this] { return fWaiting < kQueueLimit || fIsClosing; });
  }
  for (RecordedMessage& message : messages) {
    fWaiting += message.payload.size();
    fMessages.push_back(std::move(message));
  }
  while (!fOptions.mustKeepAll && fWaiting > kQueueLimit) {
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
      std::unique_lock lock(fMutex);
      fWake.wait_for(lock, kPollTime, [this] { return fIsClosing; });
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
  {
    const std::lock_guard lock(fMutex);
    isOver = fIsClosing;
  }
  const auto now = std::chrono::steady_clock::now();
  const bool isDue = isOver || now - fFlushed >= kFlushTime;
  std::deque<Item> items;
  xTakeAll(isDue, items);
  if (fError != nullptr) {
    return isOver;
  }
  for (Item& item : items) {
    xWrite(std::move(item));
  }
  xCheckTrigger();
  if (isDue && fFile != nullptr) {
    fFile->flush();
    fFlushed = now;
  }
  if (isOver) {
    xClose();
  }
  return isOver;
}

/// Takes blocks and messages, merged by time.
void Recorder::xTakeAll(bool isAll, std::deque<Item>& items) {
  std::deque<RunBlock> blocks = fRun->take(isAll);
  std::deque<RecordedMessage> messages;
  {
    const std::lock_guard lock(fMutex);
    messages.swap(fMessages);
    fWaiting = 0;
  }
  fTaken.notify_all();
  const auto takeMessages = [&](const auto& isWanted) {
    while (!messages.empty() && isWanted(messages.front())) {
      items.emplace_back(std::move(messages.front()));
      messages.pop_front();
    }
  };
  for (RunBlock& block : blocks) {
    takeMessages([&block](const RecordedMessage& one) { return one.time < block.time; });
    items.emplace_back(std::move(block));
  }
  takeMessages([](const RecordedMessage&) { return true; });
}

void Recorder::xWrite(Item item) {
  fLatest = std::max(fLatest, timeOf(item));
  const bool isStart = isPartStart(item);
  if (isStart) {
    fPartStart = timeOf(item);
    fIsPartAsked = false;
  }
  if (fOptions.around) {
    xKeep(std::move(item));
    return;
  }
  const bool isSplit = fOptions.splitSize || fOptions.splitTime;
  if (isStart && isSplit && fFile->hasBegun()) {
    xClose();
    xOpen();
  }
  xWriteToFile(item);
  const bool isFull = (fOptions.splitSize && fFile->size() >= *fOptions.splitSize) ||
                      (fOptions.splitTime && fLatest - fPartStart >= *fOptions.splitTime);
  if (isFull && !std::exchange(fIsPartAsked, true)) {
    fRun->beginPart();
  }
}

void Recorder::xWriteToFile(const Item& item) {
  if (!fFile->hasBegun()) {
    fFile->begin(fRun->epoch(), fOptions.about);
  }
  std::visit([this](const auto& one) { fFile->write(one); }, item);
}

/// Writes to the file while there is one, otherwise keeps the last seconds.
void Recorder::xKeep(Item item) {
  if (fFile != nullptr) {
    xWriteToFile(item);
  }
  fRing.push_back(std::move(item));
  xTrimRing();
  const GK::GKMicros part = std::max(kShortestPart, fOptions.around->before / kPartsKept);
  if (fLatest - fPartStart >= part && !std::exchange(fIsPartAsked, true)) {
    fRun->beginPart();
  }
}

/// Drops what lies before the last part that is still long enough.
void Recorder::xTrimRing() {
  const GK::GKMicros oldest = fLatest - fOptions.around->before;
  if (!isPartStart(fRing.back()) && fRing.size() % 256 != 0) {
    return;
  }
  const auto isLater = [&](const Item& item) {
    return isPartStart(item) && timeOf(item) <= oldest;
  };
  const auto last = std::find_if(fRing.rbegin(), fRing.rend(), isLater);
  if (last != fRing.rend()) {
    fRing.erase(fRing.begin(), std::prev(last.base()));
  }
}

/// Begins and ends files around the events that are waited for.
void Recorder::xCheckTrigger() {
  if (!fOptions.around) {
    return;
  }
  std::optional<GK::GKMicros> trigger;
  {
    const std::lock_guard lock(fMutex);
    trigger = std::exchange(fTrigger, std::nullopt);
  }
  if (trigger) {
    fUntil = *trigger + fOptions.around->after;
    if (fFile == nullptr) {
      xOpen();
      for (const Item& item : fRing) {
        xWriteToFile(item);
      }
    }
  } else if (fFile != nullptr && fLatest > *fUntil) {
    xClose();
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
