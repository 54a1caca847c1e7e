#pragma once

#include "gk/GKApi.h"
#include "gk/GKPriorityMutex.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace GK {

struct GKTask;

/// On whose behalf an operation of the platform is carried out.
enum class GKCaller : std::uint8_t {
  Module,  ///< a module of a library
  Client,  ///< a program or a scenario that calls from outside
  Platform ///< the platform's own services
};

/// Something that happened in the system, as observers see it.
struct GKNotice {
  enum class Kind : std::uint8_t { Declare, Event, MicroEvent, Insert, Order, Resource, Log };

  Kind kind = Kind::Event;
  /// Microseconds since the clock started.
  GKMicros time = 0;
  /// Who caused it. Only meaningful for `Insert`.
  GKCaller caller = GKCaller::Module;
  /// Level of a log line, 1 (fatal) to 6 (debug).
  int level = 0;
  /// Event, memory key or resource by name; a log line's category.
  std::string name;
  /// Owner of a declared event; function of a log line.
  std::string owner;
  /// Text of a log line, without final newline.
  std::string text;
  /// Value raised, inserted or ordered; a bool for a resource.
  GKValue value;
};

/// How one tick of a loop went in real time; all in microseconds, the times since the start.
struct GKTickTimes {
  /// When the loop's task woke up for the tick, and when it was about to sleep again.
  GKMicros begin = 0;
  GKMicros end = 0;
  /// How much later than it had asked for it woke up.
  GKMicros lateness = 0;
  /// How long it is about to sleep.
  GKMicros pause = 0;
};

/// Sees everything that happens, in order. The one way in which things leave the system.
///
/// Calls come on the thread that causes what is seen, one at a time for all observers. They must be
/// quick and must not raise events, insert data, log or (un)register observers.
class GK_API GKObserver {
public:
  virtual ~GKObserver();
  virtual void onNotice(const GKNotice& notice) = 0;

  /// A module's loop has ended a tick and is about to sleep. `task` is the loop's.
  virtual void onTick(GKMicros time, const GKTask& task);

  /// Follows `onTick` of every tick but a loop's first one, in real time only.
  virtual void onTickTimes(const GKTickTimes& times, const GKTask& task);
};

/// The observers of this process. All operations from any thread.
class GK_API GKObserverList {
public:
  static GKObserverList& instance();

  void add(boost::shared_ptr<GKObserver> observer);
  /// When this returns, `observer` is not being called and never will be again.
  void remove(const boost::shared_ptr<GKObserver>& observer);

  /// True while nobody listens: then nothing needs to be put together.
  bool isEmpty() const noexcept { return fCount.load(std::memory_order_relaxed) == 0; }

  /// Shows what `fill` puts into a notice of this kind. Costs one comparison while nobody listens.
  /// Returns the notice's time; nothing when nobody listens.
  template <class Fill> std::optional<GKMicros> show(GKNotice::Kind kind, const Fill& fill) {
    if (isEmpty()) {
      return std::nullopt;
    }
    GKNotice notice;
    notice.kind = kind;
    fill(notice);
    return notify(std::move(notice));
  }

  /// Stamps `notice` with the present time and shows it to all observers. Returns the time.
  GKMicros notify(GKNotice notice);
  /// `times`: may be null. Its `end` is set to the present time.
  void notifyTick(const GKTask& task, const GKTickTimes* times = nullptr);

private:
  GKPriorityMutex fMutex;
  std::atomic<std::size_t> fCount{0};
  std::vector<boost::shared_ptr<GKObserver>> fObservers;
};

} // namespace GK
