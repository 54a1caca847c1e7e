#pragma once

#include "gk/GKApi.h"

#include <mutex>

namespace GK {

/// A lock that a loop of real-time priority may have to wait for. While somebody waits for it, its
/// holder runs at the waiter's priority, so that no third thread can prolong the wait. Apart from
/// that it is a `std::mutex`, and costs as much while nobody waits.
class GK_API GKPriorityMutex : public std::mutex {
public:
  GKPriorityMutex();
  ~GKPriorityMutex();
};

/// The same for a lock that its holder may take again.
class GK_API GKPriorityRecursiveMutex : public std::recursive_mutex {
public:
  GKPriorityRecursiveMutex();
  ~GKPriorityRecursiveMutex();
};

} // namespace GK
