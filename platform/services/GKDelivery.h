#pragma once

#include "gk/GKModuleCore.h"
#include "gk/GKValue.h"

#include <boost/weak_ptr.hpp>

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
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
    std::string method;
    /// Name of the event, and a place for its value. Only the task that hands over touches it.
    std::vector<GKValue> arguments;
  };

  explicit GKDelivery(boost::weak_ptr<GKModuleCore> module) : fModule(std::move(module)) {}

  /// The callback of `method` for `event`; it lives as long as the delivery.
  Callback& callback(const std::string& event, const std::string& method);

  void deliver(Callback& callback, const GKValue& value);

private:
  struct Item {
    Callback* callback;
    GKValue value;
  };

  void xDrain();
  /// Gives a burst that is going on the chance to bring more.
  void xWaitForMore() const;
  /// Moves what is to be handed over to `fTaken`. False when there is nothing: the draining ends.
  bool xTake();
  static void xCall(GKModuleCore& module, Item& item);

  boost::weak_ptr<GKModuleCore> fModule;
  std::mutex fMutex;
  std::deque<Callback> fCallbacks;
  std::vector<Item> fItems;
  /// Tells of `fItems` without the lock.
  std::atomic<bool> fIsEmpty{true};
  bool fIsDraining = false;
  /// What is being handed over. Belongs to the task that does it; keeps its capacity.
  std::vector<Item> fTaken;
};

} // namespace GK
