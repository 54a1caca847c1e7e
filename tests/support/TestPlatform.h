#pragma once

#include "gk/DCM.h"
#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKClock.h"
#include "gk/GKMemory.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKObserver.h"
#include "gk/GKOperationHook.h"
#include "gk/GKResourceManager.h"
#include "gk/test/Platform.h"
#include "zu/log.h"
#include "zu/os.h"

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace GK::test {

/// Who calls, where a module does.
constexpr GKCaller kModule = GKCaller::Module;

/// Keeps everything that happens in the platform.
class NoticeRecorder : public GKObserver {
public:
  void onNotice(const GKNotice& notice) override {
    const std::lock_guard<std::mutex> lock(fMutex);
    fNotices.push_back(notice);
  }

  void onTick(GKMicros time, const GKTask&) override {
    const std::lock_guard<std::mutex> lock(fMutex);
    fTicks.push_back(time);
  }

  std::vector<GKNotice> all() const {
    const std::lock_guard<std::mutex> lock(fMutex);
    return fNotices;
  }

  std::vector<GKNotice> ofKind(GKNotice::Kind kind) const {
    std::vector<GKNotice> chosen;
    for (const GKNotice& notice : all()) {
      if (notice.kind == kind) {
        chosen.push_back(notice);
      }
    }
    return chosen;
  }

  /// Values raised under `name`, events and micro-events alike, in order.
  std::vector<GKValue> raised(const std::string& name) const {
    std::vector<GKValue> values;
    for (const GKNotice& notice : all()) {
      const bool isRaise =
          notice.kind == GKNotice::Kind::Event || notice.kind == GKNotice::Kind::MicroEvent;
      if (isRaise && notice.name == name) {
        values.push_back(notice.value);
      }
    }
    return values;
  }

  /// Log lines as "LEVEL CATEGORY FUNCTION: TEXT", for example "3 core.extractor subscribe: ...".
  std::vector<std::string> logLines() const {
    std::vector<std::string> lines;
    for (const GKNotice& notice : ofKind(GKNotice::Kind::Log)) {
      lines.push_back(std::to_string(notice.level) + " " + notice.name + " " + notice.owner + ": " +
                      notice.text);
    }
    return lines;
  }

  /// Ends of the loops' ticks, in microseconds since the start.
  std::vector<GKMicros> ticks() const {
    const std::lock_guard<std::mutex> lock(fMutex);
    return fTicks;
  }

  void clear() {
    const std::lock_guard<std::mutex> lock(fMutex);
    fNotices.clear();
    fTicks.clear();
  }

private:
  mutable std::mutex fMutex;
  std::vector<GKNotice> fNotices;
  std::vector<GKMicros> fTicks;
};

/// Makes operations of the platform fail, and counts their uses.
class FaultyOperations : public GKOperationHook {
public:
  /// From now on `operation` lets `after` uses on `key` (empty: any) pass and then raises `GKError`
  /// `count` times.
  void fail(GKOperation operation, std::string key, int after = 0, int count = 1) {
    const std::lock_guard<std::mutex> lock(fMutex);
    fFaults.push_back({operation, std::move(key), after, count});
  }

  /// Uses of `operation` on `key` so far, failed ones included.
  int uses(GKOperation operation, const std::string& key) const {
    const std::lock_guard<std::mutex> lock(fMutex);
    const auto found = fUses.find({operation, key});
    return found == fUses.end() ? 0 : found->second;
  }

  /// Uses of all operations so far.
  std::size_t allUses() const {
    const std::lock_guard<std::mutex> lock(fMutex);
    std::size_t sum = 0;
    for (const auto& [operation, count] : fUses) {
      sum += static_cast<std::size_t>(count);
    }
    return sum;
  }

  void before(GKOperation operation, std::string_view key) override {
    const std::lock_guard<std::mutex> lock(fMutex);
    ++fUses[{operation, std::string(key)}];
    for (Fault& fault : fFaults) {
      if (fault.operation != operation || (!fault.key.empty() && fault.key != key)) {
        continue;
      }
      if (fault.after > 0) {
        --fault.after;
      } else if (fault.count > 0) {
        --fault.count;
        throw GKError("Test", "before", "injected fault");
      }
    }
  }

private:
  struct Fault {
    GKOperation operation;
    std::string key;
    int after;
    int count;
  };

  mutable std::mutex fMutex;
  std::vector<Fault> fFaults;
  std::map<std::pair<GKOperation, std::string>, int> fUses;
};

/// The test kit's platform, with all that happens on it and with faults for its operations.
class TestPlatform : public gk::test::Platform {
public:
  explicit TestPlatform(Services services = kAllServices) : Platform(services) {
    GKObserverList::instance().add(recorder);
    GKOperationHook::install(faults);
  }

  ~TestPlatform() {
    shutdown();
    GKOperationHook::install(nullptr);
    GKObserverList::instance().remove(recorder);
  }

  TestPlatform(const TestPlatform&) = delete;
  TestPlatform& operator=(const TestPlatform&) = delete;

  /// Present value of a key; invalid when there is none.
  GKValue value(const std::string& key) const {
    const GKMemoryCell* cell = store()->find(key);
    return cell != nullptr ? cell->load() : GKValue();
  }

  /// Lets everything run for `milliseconds` of virtual time. What is due at their end, and fell
  /// asleep later than the test, happens afterwards.
  static void sleep(unsigned int milliseconds) { zu::os::msleep(milliseconds); }

  const boost::shared_ptr<NoticeRecorder> recorder = boost::make_shared<NoticeRecorder>();
  const std::shared_ptr<FaultyOperations> faults = std::make_shared<FaultyOperations>();
};

} // namespace GK::test
