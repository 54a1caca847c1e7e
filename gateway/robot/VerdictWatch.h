#pragma once

#include "devices/meaning/Verdict.h"
#include "gateway/figures/Counters.h"
#include "gateway/figures/RecordingFigures.h"
#include "gateway/robot/ModuleStatus.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKObserver.h"

#include <mutex>
#include <string>
#include <vector>

namespace gk::gateway {

/// Keeps the verdict on the robot and its host up to date. It is made on one thread and read on
/// any.
class VerdictWatch {
public:
  /// `counters` outlives the watch; `recording` is empty where nothing is recorded, `status` where
  /// no module is asked how it is.
  VerdictWatch(const Counters& counters, RecordingSource recording, StatusSource status = {});

  void onNotice(const GK::GKNotice& notice) { fVerdict.onNotice(notice); }
  /// Looks at everything. True when the verdict is another one than before. `store` may be null.
  bool look(GK::GKMicros now, const GK::GKMemoryStore* store);

  /// Time has gone back.
  void reset() { fVerdict = {}; }

  // Any thread.
  std::vector<devices::Matter> matters() const;
  std::string json() const { return devices::verdictJson(matters()); }

private:
  const Counters& fCounters;
  const RecordingSource fRecording;
  const StatusSource fStatus;
  devices::Verdict fVerdict;
  mutable std::mutex fMutex;
  std::vector<devices::Matter> fMatters;
};

/// `{"events":[...]}`: the words for all events that have some.
std::string wordsJson();

} // namespace gk::gateway
