#pragma once

#include "gk/GKApi.h"

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <mutex>
#include <vector>

namespace GK {

class GKBroker;

/// The brokers of the process. All operations from any thread.
class GK_API GKBrokerManager {
public:
  /// Makes `manager` the process's instance; empty drops the present one. Returns the former one.
  static boost::shared_ptr<GKBrokerManager> setInstance(boost::shared_ptr<GKBrokerManager> manager);

  /// The process's instance, created when there is none.
  static boost::shared_ptr<GKBrokerManager> getInstance();

  /// Adds a broker; adding twice keeps one entry. Brokers are not kept alive by this.
  void addBroker(const boost::shared_ptr<GKBroker>& broker);

  /// Any broker that is still there: the one added first. Raises `GKError` when there is none.
  boost::shared_ptr<GKBroker> getRandomBroker() const;

private:
  mutable std::mutex fMutex;
  std::vector<boost::weak_ptr<GKBroker>> fBrokers;
};

} // namespace GK
