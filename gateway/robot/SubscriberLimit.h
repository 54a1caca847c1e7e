#pragma once

#include "gk/GKValue.h"

#include <cstddef>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace gk::gateway {

/// How many names clients may leave in the extractors' lists of subscribers. Any thread.
class SubscriberLimit {
public:
  /// `names`: bytes of a name; `subscribers`: how many at a time, of all extractors.
  explicit SubscriberLimit(std::size_t names = 256, std::size_t subscribers = 1000)
      : fNames(names), fSubscribers(subscribers) {}

  /// Looks at a call that a client is about to make. Returns why it may not; empty when it may.
  std::string admit(const std::string& module, const std::string& method,
                    const std::vector<GK::GKValue>& arguments);

private:
  const std::size_t fNames;
  const std::size_t fSubscribers;
  std::mutex fMutex;
  /// Extractor and name.
  std::set<std::pair<std::string, std::string>> fKnown;
};

} // namespace gk::gateway
