#pragma once

#include "gk/GKObserver.h"
#include "gk/GKPriorityMutex.h"
#include "runtime/recording/RecordedMessages.h"
#include "runtime/recording/RecordingFile.h"
#include "runtime/recording/RunRecorder.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace gk::runtime {

struct RecorderOptions {
  /// Where one file is written. Several are numbered: "run.mcap" gives "run-001.mcap".
  std::string path;
  /// A new file begins beyond this size in bytes, or after this time in microseconds.
  std::optional<std::uint64_t> splitSize;
  std::optional<GK::GKMicros> splitTime;

  /// Only what happened around certain events is written.
  struct Around {
    /// With "*" for anything.
    std::string pattern;
    GK::GKMicros before = 0;
    GK::GKMicros after = 0;
  };
  std::optional<Around> around;

  /// In virtual time nothing is dropped: the run waits for the disk.
  bool mustKeepAll = false;
  /// The program that writes.
  std::string library;
  /// What the files say about the run.
  formats::mcap::StringMap about;
};

/// Records a run: an observer that hands everything to a thread of its own, which writes. Nobody
/// ever waits for the disk; what does not fit into the queue is dropped, oldest first, and counted.
class Recorder final : public GK::GKObserver {
public:
  /// Bytes of messages that may wait, and of the run log as well. Where the run waits for the disk
  /// there is no need for much, and files are split close to where they should be.
  static constexpr std::size_t kQueueLimit = 32 << 20;
  static constexpr std::size_t kShortQueueLimit = 1 << 20;
  /// A chunk is closed and on the disk after this.
  static constexpr std::chrono::milliseconds kFlushTime{750};
  static constexpr std::chrono::milliseconds kPollTime{200};
  static constexpr std::chrono::milliseconds kShortPollTime{5};

  /// Raises `WriteError` when the first file cannot be written.
  explicit Recorder(RecorderOptions options);
  ~Recorder() override;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// Who makes the messages. Before the run.
  void setMaker(std::unique_ptr<MessageMaker> maker) { fMaker = std::move(maker); }

  /// What the host's clock tells of its turns.
  const std::shared_ptr<RunRecorder>& run() const noexcept { return fRun; }

  void onNotice(const GK::GKNotice& notice) override;
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;

  /// Writes what is left and completes the files. Raises `WriteError`, also for what went wrong
  /// before.
  void finish();

  /// After `finish`: the files that were written, their bytes, and what is missing in them.
  const std::vector<std::string>& files() const noexcept { return fNames; }
  std::uint64_t size() const noexcept { return fSize; }
  RecordingLosses losses() const;

private:
  /// An event that is waited for was raised.
  struct Trigger {
    GK::GKMicros time = 0;
  };
  using Item = std::variant<RunBlock, RecordedMessage, Trigger>;

  void xQueue(std::vector<RecordedMessage> messages);
  void xServe();
  /// Moves what waits to the disk. True when it was the last time.
  bool xCycle();
  std::vector<Item> xTakeAll(bool isAllBlocks, bool isAllMessages);
  void xWrite(Item item);
  void xWriteToFile(const Item& item);
  void xKeep(Item item);
  void xTrimRing(GK::GKMicros oldest);
  void xPull(GK::GKMicros time);
  void xOpen();
  void xClose();

  const RecorderOptions fOptions;
  const std::size_t fQueueLimit;
  const std::shared_ptr<RunRecorder> fRun;
  std::unique_ptr<MessageMaker> fMaker;

  mutable GK::GKPriorityMutex fMutex;
  std::condition_variable fWake;
  std::condition_variable fTaken;
  std::deque<RecordedMessage> fMessages;
  std::size_t fWaiting = 0;
  std::uint64_t fDropped = 0;
  std::deque<Trigger> fTriggers;
  bool fIsClosing = false;

  // The writing thread's own, and after its end everybody's.
  std::unique_ptr<RecordingFile> fFile;
  std::vector<std::string> fNames;
  std::uint64_t fSize = 0;
  bool fIsPartAsked = false;
  /// What happened last, while nothing is written; begins with the start of a part.
  std::deque<Item> fRing;
  /// Until when is written.
  std::optional<GK::GKMicros> fUntil;
  std::chrono::steady_clock::time_point fFlushed = std::chrono::steady_clock::now();
  std::exception_ptr fError;
  std::thread fThread;
};

} // namespace gk::runtime
