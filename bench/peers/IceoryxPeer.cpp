#include "bench/peers/Peer.h"

#include <atomic>
#include <iceoryx_posh/iceoryx_posh_types.hpp>
#include <iceoryx_posh/internal/roudi/roudi.hpp>
#include <iceoryx_posh/popo/publisher.hpp>
#include <iceoryx_posh/popo/subscriber.hpp>
#include <iceoryx_posh/popo/wait_set.hpp>
#include <iceoryx_posh/roudi/iceoryx_roudi_components.hpp>
#include <iceoryx_posh/runtime/posh_runtime_single_process.hpp>
#include <thread>

namespace gk::bench {

namespace {

/// The daemon and both ends in this process; a thread waits for data and takes it. The publisher
/// waits for a slow subscriber, so that nothing is lost.
class IceoryxPeer : public Peer {
public:
  IceoryxPeer() {
    fWaitSet.attachState(fSubscriber, iox::popo::SubscriberState::HAS_DATA).or_else([](auto) {});
    fThread = std::thread([this] {
      while (!fIsEnded) {
        fWaitSet.timedWait(iox::units::Duration::fromMilliseconds(50));
        while (fSubscriber.take().and_then([this](const auto&) { arrived(); }).has_error() ==
               false) {
        }
      }
    });
  }
  ~IceoryxPeer() override {
    fIsEnded = true;
    fThread.join();
  }

  void publish(float value) override {
    fPublisher.publishCopyOf(value).or_else([](auto&) {});
  }

private:
  static iox::popo::PublisherOptions waiting() {
    iox::popo::PublisherOptions options;
    options.subscriberTooSlowPolicy = iox::popo::ConsumerTooSlowPolicy::WAIT_FOR_CONSUMER;
    return options;
  }
  static iox::popo::SubscriberOptions blocking() {
    iox::popo::SubscriberOptions options;
    options.queueCapacity = 256;
    options.queueFullPolicy = iox::popo::QueueFullPolicy::BLOCK_PRODUCER;
    return options;
  }

  iox::roudi::IceOryxRouDiComponents fParts{iox::RouDiConfig_t().setDefaults()};
  iox::roudi::RouDi fDaemon{
      fParts.rouDiMemoryManager, fParts.portManager,
      iox::roudi::RouDi::RoudiStartupParameters{iox::roudi::MonitoringMode::OFF, false}};
  iox::runtime::PoshRuntimeSingleProcess fRuntime{iox::RuntimeName_t("gkbench")};
  const iox::capro::ServiceDescription fService{"Robot", "Head", "Sample"};
  iox::popo::Publisher<float> fPublisher{fService, waiting()};
  iox::popo::Subscriber<float> fSubscriber{fService, blocking()};
  iox::popo::WaitSet<> fWaitSet;
  std::atomic<bool> fIsEnded{false};
  std::thread fThread;
};

} // namespace

std::unique_ptr<Peer> makeIceoryxPeer() {
  return std::make_unique<IceoryxPeer>();
}

} // namespace gk::bench
