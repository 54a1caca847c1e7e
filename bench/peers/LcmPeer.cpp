#include "bench/peers/Peer.h"

#include <atomic>
#include <lcm/lcm.h>
#include <thread>

namespace gk::bench {

namespace {

/// The in-process transport "memq" and a thread that handles what comes.
class LcmPeer : public Peer {
public:
  LcmPeer() {
    const auto handler = [](const lcm_recv_buf_t* buffer, const char*, void* self) {
      auto* peer = static_cast<LcmPeer*>(self);
      if (buffer->data_size == sizeof(float)) {
        peer->arrived();
      } else {
        peer->fIsEnded = true;
      }
    };
    lcm_subscription_t* subscription = lcm_subscribe(fLcm, kChannel, handler, this);
    lcm_subscription_set_queue_capacity(subscription, 0);
    fThread = std::thread([this] {
      while (!fIsEnded) {
        lcm_handle(fLcm);
      }
    });
  }
  ~LcmPeer() override {
    lcm_publish(fLcm, kChannel, "", 1);
    fThread.join();
    lcm_destroy(fLcm);
  }

  void publish(float value) override { lcm_publish(fLcm, kChannel, &value, sizeof value); }

private:
  static constexpr const char* kChannel = "SAMPLE";

  lcm_t* fLcm = lcm_create("memq://");
  std::atomic<bool> fIsEnded{false};
  std::thread fThread;
};

} // namespace

std::unique_ptr<Peer> makeLcmPeer() {
  return std::make_unique<LcmPeer>();
}

} // namespace gk::bench
