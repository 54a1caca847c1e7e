#pragma once

#include "extensions/ros2/Feed.h"
#include "extensions/ros2/Settings.h"
#include "gk/GKMemoryStore.h"

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <cstdint>
#include <future>
#include <memory>
#include <thread>

namespace gk::ros2 {

/// Publishes what happens, on a thread of its own: nothing that DDS does keeps anybody waiting.
class Publisher {
public:
  /// What was done so far.
  struct Figures {
    std::uint64_t messages = 0;
    /// Messages that DDS took none of.
    std::uint64_t refused = 0;
    /// Notices for which there was no room.
    std::uint64_t dropped = 0;
    /// Readers of all topics at present, those of other programs of ours included.
    std::uint32_t readers = 0;
  };

  /// Returns when there is a participant. Raises `DdsError`.
  Publisher(const Settings& settings, std::shared_ptr<const GK::GKMemoryStore> store);
  /// Takes what waits along, and the participant away.
  ~Publisher();
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  /// Any thread.
  Figures figures() const;

private:
  class Work;

  void xRun(const Settings& settings, std::shared_ptr<const GK::GKMemoryStore> store);

  boost::shared_ptr<Feed> fFeed;
  std::promise<void> fStarted;
  std::atomic<std::uint64_t> fMessages{0};
  std::atomic<std::uint64_t> fRefused{0};
  std::atomic<std::uint32_t> fReaders{0};
  std::thread fThread;
};

} // namespace gk::ros2
