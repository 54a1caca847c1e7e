#include "gk/GKBroker.h"
#include "gk/GKModule.h"

#include <atomic>

// A module that has itself called for events, and counts.

namespace {

class Listener : public GK::GKModule {
public:
  explicit Listener(const boost::shared_ptr<GK::GKBroker>& broker) : GKModule(broker, "Listener") {
    functionName("onEvent", getName(), "Counts an event.");
    addParam("event", "Name of the event.");
    addParam("value", "Its value.");
    bindMethod(&Listener::onEvent, this);

    functionName("getCount", getName(), "Gets the number of events so far.");
    setReturn("count", "Number of events.");
    bindMethod(&Listener::getCount, static_cast<const Listener*>(this));
  }

  void onEvent(const std::string&, const GK::GKValue&) { fCount.fetch_add(1); }
  int getCount() const { return fCount.load(); }

private:
  std::atomic<int> fCount{0};
};

} // namespace

extern "C" GK_API int _createModule(boost::shared_ptr<GK::GKBroker> broker) {
  GK::GKModule::createModule<Listener>(broker);
  return 0;
}
