#include "bench/peers/Peer.h"

#include <thread>
#include <zmq.h>

namespace gk::bench {

namespace {

/// A pair of sockets over "inproc". An empty message ends the subscriber.
class ZeroMqPeer : public Peer {
public:
  ZeroMqPeer() {
    const int unlimited = 0;
    zmq_setsockopt(fOut, ZMQ_SNDHWM, &unlimited, sizeof unlimited);
    zmq_setsockopt(fIn, ZMQ_RCVHWM, &unlimited, sizeof unlimited);
    zmq_bind(fIn, kAddress);
    zmq_connect(fOut, kAddress);
    fThread = std::thread([this] {
      float value = 0;
      while (zmq_recv(fIn, &value, sizeof value, 0) > 0) {
        arrived();
      }
    });
  }
  ~ZeroMqPeer() override {
    zmq_send(fOut, nullptr, 0, 0);
    fThread.join();
    zmq_close(fOut);
    zmq_close(fIn);
    zmq_ctx_term(fContext);
  }

  void publish(float value) override { zmq_send(fOut, &value, sizeof value, 0); }

private:
  static constexpr const char* kAddress = "inproc://sample";

  void* fContext = zmq_ctx_new();
  void* fIn = zmq_socket(fContext, ZMQ_PAIR);
  void* fOut = zmq_socket(fContext, ZMQ_PAIR);
  std::thread fThread;
};

} // namespace

std::unique_ptr<Peer> makeZeroMqPeer() {
  return std::make_unique<ZeroMqPeer>();
}

} // namespace gk::bench
