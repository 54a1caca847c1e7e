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
#include <functional>
#include <memory>
#include <optional>
#include <set>
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

  /// Files being read, which no recording is written over.
  std::vector<std::string> inputs;
  /// An earlier recording of this name is replaced; otherwise it stays, and is an error.
  bool isOverwriting = false;
  /// Told at once when nothing can be written any more, and when it can again. On the recorder's
  /// thread.
  std::function<void(const std::string&)> onTrouble;
};

/// How a recording is getting on.
struct RecordingState {
  /// Why nothing is being written, such as a full disk; empty while all is well.
  std::string trouble;
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  RecordingLosses losses;
};

/// Records a run: an observer that hands everything to a thread of its own, which writes. Nobody
/// ever waits for the disk; what does not fit into the queue is dropped, oldest first, and counted.
///
/// When a file cannot be written any more it ends there, what comes is counted and thrown away, and
/// as soon as there is room again the recording goes on in a new file with a number.
///
/// The first file appears under its name with `confirm`, and not at all without.
class Recorder final : public GK::GKObserver {
public:
  /// Bytes of messages that may wait, and of the run log as well. Where the run waits for the disk
  /// no more than a chunk may.
  static constexpr std::size_t kQueueLimit = 32 << 20;
  /// A chunk is closed and on the disk after this.
  static constexpr std::chrono::milliseconds kFlushTime{750};
  static constexpr std::chrono::milliseconds kPollTime{100};
  static constexpr std::chrono::milliseconds kShortPollTime{5};
  /// A file that cannot be written is followed by a new one after this, at the earliest.
  static constexpr std::chrono::milliseconds kRetryTime{500};

  /// Raises `OutputError` when the first file cannot be made.
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

  /// The run has started: the recording is to stay, and takes its place. Raises `OutputError`.
  void confirm();

  /// Writes what is left and completes the files. Raises `OutputError`, also for what went wrong
  /// before and has been told of.
  void finish();

  /// Any thread, any time.
  RecordingState state() const;

  /// After `finish`: the files that were written, their bytes, and what is missing in them.
  const std::vector<std::string>& files() const noexcept { return fNames; }
  /// Those behind them, by their numbers, that an earlier recording of this name has left.
  std::vector<std::string> earlierParts() const;
  std::uint64_t size() const noexcept { return fSize; }
  RecordingLosses losses() const;
  /// With `around`: the events that have been declared or raised.
  std::vector<std::string> events() const;

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
  /// Nothing can be written any more.
  void xFail(const formats::OutputError& error);
  /// Writes nothing, unless the recording can go on with this item.
  void xLose(const Item& item);
  bool xGoOn(const Item& item);
  void xRecovered();
  void xCountLost(std::uint64_t blocks, std::uint64_t messages);
  void xKeep(Item item);
  void xTrimRing(GK::GKMicros oldest);
  void xPull(GK::GKMicros time);
  void xOpen();
  void xClose();
  void xConfirm();
  bool xIsNumbered() const;

  const RecorderOptions fOptions;
  const std::size_t fPieceSize;
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
  std::set<std::string> fEvents;
  bool fIsClosing = false;
  enum class Confirmation : std::uint8_t { None, Asked, Done };
  Confirmation fConfirmation = Confirmation::None;
  std::condition_variable fConfirmed;
  std::exception_ptr fRefusal;
  /// Written by the writing thread only.
  RecordingState fState;

  // The writing thread's own, and after its end everybody's.
  std::unique_ptr<RecordingFile> fFile;
  std::vector<std::string> fNames;
  std::size_t fNumber = 0;
  std::uint64_t fSize = 0;
  /// Blocks lost since the last part that was written.
  std::uint64_t fLostBlocks = 0;
  /// What has been written since the file was flushed.
  std::uint64_t fOpenBlocks = 0;
  std::uint64_t fOpenMessages = 0;
  bool fIsInTrouble = false;
  std::chrono::steady_clock::time_point fTried;
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
