#pragma once

#include "gk/GKBroker.h"
#include "gk/GKModuleCore.h"
#include "gk/GKMutex.h"
#include "gk/GKPriorityMutex.h"
#include "gk/GKValue.h"
#include "platform/services/GKDeliveryQueue.h"

#include <boost/weak_ptr.hpp>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace GK {

/// An event callback of a module, made once for each subscription.
struct GKDeliveryCallback {
  GKDeliveryCallback(std::string name, const std::string& event)
      : method(std::move(name)), arguments{event, GKValue()} {}

  const std::string method;
  /// Name of the event, and a place for its value. Only the task that hands over touches it.
  std::vector<GKValue> arguments;
  /// Counts the subscriptions that have ended: what was raised for one of them is dropped.
  std::atomic<std::uint32_t> ended{0};
  /// Taken from by whoever raises the event, with the event's lock.
  GKParcels parcels;
};

/// The events on their way to one module: handed over in order, by one task at a time, so that a
/// slow module delays nobody else. What has not been handed over when the broker's shutdown begins
/// is dropped. Held by shared pointers; any thread.
class GKDelivery : public std::enable_shared_from_this<GKDelivery> {
public:
  using Callback = GKDeliveryCallback;
  using Call = GKDeliveryQueue::Call;

  explicit GKDelivery(boost::weak_ptr<GKModuleCore> module) : fModule(std::move(module)) {}

  /// The callback of `method` for `event`; it lives as long as the delivery.
  Callback& callback(const std::string& event, const std::string& method);

  /// Takes an event into the queue, without ever waiting. One thread at a time for each callback.
  /// What it returns is for `start`, which is the caller's to call as soon as it holds no lock any
  /// more that others wait for, unless that is `Nobody`.
  [[nodiscard]] Call add(Callback& callback, const GKValue& value);
  void start(const Callback& callback, Call call);

  /// The broker's shutdown has begun: a task that waits for more ends.
  void endWaiting() noexcept { fBell.ring(); }

  /// Drops what is on its way of this event, and waits for the callback that is running; within an
  /// event callback, whichever it is, it does not wait.
  void cancel(const std::string& event);

private:
  /// The module that is called.
  struct Target {
    boost::shared_ptr<GKModuleCore> module;
    boost::shared_ptr<GKBroker> broker;
    /// False when nothing is to be handed over any more.
    bool isThere() const {
      return module != nullptr && (broker == nullptr || !broker->isExiting());
    }
  };

  void xDrain();
  Target xTarget() const;
  /// Nothing is left: stays for some time. False when the task is to end.
  bool xStay();
  /// Gives a burst that is going on the chance to bring more.
  void xWaitForMore() const;
  void xHandOver(GKParcel* first);
  static void xCall(GKModuleCore& module, Callback& callback);

  boost::weak_ptr<GKModuleCore> fModule;
  /// Guards the list of callbacks.
  GKPriorityMutex fMutex;
  std::deque<Callback> fCallbacks;
  /// Held while callbacks run. The clock's kind of lock, since they may sleep.
  GKMutex fCalling;
  /// How many wait for a callback that is running: they get the lock before the next one runs.
  std::atomic<int> fCancelling{0};
  GKDeliveryQueue fQueue;
  /// Wakes the task.
  GKBell fBell;
};

} // namespace GK
