#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace gk::bench {

/// A way from one publisher to one subscriber on another thread of this process.
class Peer {
public:
  virtual ~Peer() = default;

  virtual void publish(float value) = 0;

  /// How many values have arrived. Any thread.
  std::int64_t received() const noexcept { return fReceived.load(std::memory_order_acquire); }

protected:
  /// Called by the subscriber for each value.
  void arrived() noexcept { fReceived.fetch_add(1, std::memory_order_release); }

private:
  std::atomic<std::int64_t> fReceived{0};
};

std::unique_ptr<Peer> makeEventPeer();
#ifdef GK_HAS_ZEROMQ
std::unique_ptr<Peer> makeZeroMqPeer();
#endif
#ifdef GK_HAS_CYCLONEDDS
std::unique_ptr<Peer> makeDdsPeer();
#endif
#ifdef GK_HAS_LCM
std::unique_ptr<Peer> makeLcmPeer();
#endif
#ifdef GK_HAS_ICEORYX
std::unique_ptr<Peer> makeIceoryxPeer();
#endif

} // namespace gk::bench
