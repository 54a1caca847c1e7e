#pragma once

#include "gk/GKModuleCore.h"
#include "gk/GKMutex.h"
#include "gk/GKPriorityMutex.h"
#include "gk/GKValue.h"

#include <boost/weak_ptr.hpp>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace GK {

/// The events on their way to one module: handed over in order, by one task at a time, so that a
/// slow module delays nobody else. What has not been handed over when the broker's shutdown begins
/// is dropped. Held by shared pointers; any thread.
class GKDelivery : public std::enable_shared_from_this<GKDelivery> {
public:
  /// An event callback of the module, made once for each subscription.
  struct Callback {
    Callback(std::string name, const std::string& event)
        : method(std::move(name)), arguments{event, GKValue()} {}

    std::string method;
    /// Name of the event, and a place for its value. Only the task that hands over touches it.
    std::vector<GKValue> arguments;
    /// Counts the subscriptions that have ended: what was raised for one of them is dropped.
    std::atomic<std::uint32_t> ended{0};
  };

  explicit GKDelivery(boost::weak_ptr<GKModuleCore> module) : fModule(std::move(module)) {}

  /// The callback of `method` for `event`; it lives as long as the delivery.
  Callback& callback(const std::string& event, const std::string& method);

  /// Takes an event into the queue. True when nobody hands over yet: then `start` is the caller's
  /// to call, as soon as it holds no lock any more that others wait for.
  [[nodiscard]] bool add(Callback& callback, const GKValue& value);
  void start(const Callback& callback);

  /// Drops what is on its way of this event, and waits for the callback that is running; within an
  /// event callback, whichever it is, it does not wait.
  void cancel(const std::string& event);

private:
  struct Item {
    Callback* callback;
    /// `Callback::ended` when it was raised.
    std::uint32_t subscription;
    GKValue value;
  };

  void xDrain();
  /// Gives a burst that is going on the chance to bring more.
  void xWaitForMore() const;
  /// Moves what is to be handed over to `fTaken`. False when there is nothing: the draining ends.
  bool xTake();
  void xHandOver(GKModuleCore& module, Item& item);
  static void xCall(GKModuleCore& module, Callback& callback);

  boost::weak_ptr<GKModuleCore> fModule;
  GKPriorityMutex fMutex;
  std::deque<Callback> fCallbacks;
  std::vector<Item> fItems;
  /// Tells of `fItems` without the lock.
  std::atomic<bool> fIsEmpty{true};
  bool fIsDraining = false;
  /// What is being handed over. Belongs to the task that does it; keeps its capacity.
  std::vector<Item> fTaken;
  /// Held while a callback runs. The clock's kind of lock, since callbacks may sleep.
  GKMutex fCalling;
};

} // namespace GK
