#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_set>

namespace gk::app {

/// Tells which events have come before: what was on its way when a connection ended comes again,
/// with the same `bootId` and `seq`. Remembers the last ones only. For one thread.
class SeenEvents {
public:
  static constexpr std::size_t kMost = 65'536;

  /// True for one that has not been seen.
  bool isNew(std::string_view robot, std::string_view bootId, std::uint64_t seq) {
    std::string name;
    name.append(robot).append("/").append(bootId).append("/").append(std::to_string(seq));
    const auto [place, isNew] = fSeen.insert(std::move(name));
    if (isNew) {
      fOrder.push_back(*place);
      if (fOrder.size() > kMost) {
        fSeen.erase(fOrder.front());
        fOrder.pop_front();
      }
    }
    return isNew;
  }

private:
  std::unordered_set<std::string> fSeen;
  std::deque<std::string> fOrder;
};

} // namespace gk::app
