#include "bench/peers/Peer.h"
#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKMemory.h"

#include <boost/make_shared.hpp>

#include <functional>
#include <string>

namespace gk::bench {

namespace {

class Listener : public GK::GKModule {
public:
  Listener(const boost::shared_ptr<GK::GKBroker>& broker, std::function<void()> onValue)
      : GKModule(broker, "Listener"), fOnValue(std::move(onValue)) {
    functionName("onEvent", getName(), "");
    addParam("event", "");
    addParam("value", "");
    bindMethod(&Listener::onEvent, this);
  }
  void onEvent(const std::string&, const float&) { fOnValue(); }

private:
  std::function<void()> fOnValue;
};

/// An event of the memory service and a module that has subscribed to it.
class EventPeer : public Peer {
public:
  EventPeer() {
    fMemory->initModule();
    boost::make_shared<Listener>(fBroker, [this] { arrived(); })->initModule();
    fMemory->subscribeToEvent(fEvent, "Listener", "onEvent");
  }
  ~EventPeer() override { fBroker->shutdown(); }

  void publish(float value) override { fMemory->raiseEvent(fEvent, value, GK::GKCaller::Module); }

private:
  const std::string fEvent = "Sample";
  boost::shared_ptr<GK::GKBrokerManager> fManager = boost::make_shared<GK::GKBrokerManager>();
  boost::shared_ptr<GK::GKBroker> fBroker = boost::make_shared<GK::GKBroker>("bench", fManager);
  boost::shared_ptr<GK::GKMemory> fMemory =
      boost::make_shared<GK::GKMemory>(fBroker, std::make_shared<GK::GKMemoryStore>());
};

} // namespace

std::unique_ptr<Peer> makeEventPeer() {
  return std::make_unique<EventPeer>();
}

} // namespace gk::bench
