#pragma once

#include "gk/GKModuleCore.h"
#include "gk/GKValue.h"

#include <boost/weak_ptr.hpp>

#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace GK {

/// The events on their way to one module: handed over in order, by one task at a time, so that a
/// slow module delays nobody else. Held by shared pointers; any thread.
class GKDelivery : public std::enable_shared_from_this<GKDelivery> {
public:
  explicit GKDelivery(boost::weak_ptr<GKModuleCore> module) : fModule(std::move(module)) {}

  void deliver(const std::string& event, const std::string& method, const GKValue& value);

private:
  struct Item {
    std::string event;
    std::string method;
    GKValue value;
  };

  void xDrain();

  boost::weak_ptr<GKModuleCore> fModule;
  std::mutex fMutex;
  std::deque<Item> fItems;
  bool fIsDraining = false;
};

} // namespace GK
