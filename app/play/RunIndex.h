#pragma once

#include "app/play/RunTape.h"
#include "gk/GKObserver.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace gk::app {

/// All events of a recorded run, and the values of keys that no channel samples: read on a thread
/// of its own, from the beginning to the end. Any thread.
class RunIndex {
public:
  /// Changes of keys that are remembered; what changes all the time is sampled.
  static constexpr std::size_t kMostChanges = 1'000'000;

  /// `onDone` is called on the index's thread when all has been read.
  RunIndex(const RunTape& tape, std::function<void()> onDone);
  ~RunIndex();
  RunIndex(const RunIndex&) = delete;
  RunIndex& operator=(const RunIndex&) = delete;

  bool isDone() const noexcept { return fIsDone.load(std::memory_order_acquire); }

  /// Events and log lines in a span of time, both ends included, in their order.
  std::vector<GK::GKNotice> noticesIn(GK::GKMicros from, GK::GKMicros to) const;

  /// The time of the event so many times of events behind `time`, or before it for a negative
  /// number; the first or the last one there is where there are fewer, nothing without any.
  std::optional<GK::GKMicros> eventFrom(GK::GKMicros time, int count) const;

  /// Values of keys that are not sampled, by name, as they stood at this time: those of the device
  /// layer, and what events had left under their names.
  std::vector<std::pair<std::string, GK::GKValue>> valuesAt(GK::GKMicros time) const;

private:
  void xRead();

  RunTape fTape;
  const std::function<void()> fOnDone;
  std::atomic<bool> fIsEnding{false};
  std::atomic<bool> fIsDone{false};

  mutable std::mutex fMutex;
  std::vector<GK::GKNotice> fNotices;
  /// Of events, ascending, each once.
  std::vector<GK::GKMicros> fTimes;
  std::map<std::string, std::vector<std::pair<GK::GKMicros, GK::GKValue>>> fChanges;
  std::size_t fChangeCount = 0;
  std::thread fThread;
};

} // namespace gk::app
