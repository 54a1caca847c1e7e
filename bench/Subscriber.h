#pragma once

#include "gk/GKBroker.h"
#include "gk/GKModule.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace gk::bench {

/// Counts the events that it is called for.
class Subscriber : public GK::GKModule {
public:
  Subscriber(const boost::shared_ptr<GK::GKBroker>& broker, const std::string& name)
      : GKModule(broker, name) {
    functionName(kMethod, name, "Counts.");
    addParam("event", "");
    addParam("value", "");
    bindMethod(&Subscriber::onEvent, this);
  }

  static constexpr const char* kMethod = "onEvent";

  virtual void onEvent(const std::string&, const GK::GKValue&) {
    calls.fetch_add(1, std::memory_order_release);
  }

  std::atomic<std::int64_t> calls{0};
};

} // namespace gk::bench
