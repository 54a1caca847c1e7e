#pragma once

#include "gk/GKClock.h"
#include "gk/GKModule.h"
#include "gk/GKValue.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace GK::test {

/// A module that notes what is delivered to it.
class Listener : public GKModule {
public:
  Listener(boost::shared_ptr<GKBroker> broker, const std::string& name) : GKModule(broker, name) {
    const auto bind = [&](const char* method,
                          void (Listener::*function)(const std::string&, const GKValue&)) {
      functionName(method, name, "");
      addParam("event", "");
      addParam("value", "");
      bindMethod(function, this);
    };
    bind("onEvent", &Listener::onEvent);
    bind("onOther", &Listener::onOther);

    functionName("tooShort", name, "");
    addParam("event", "");
    bindMethod(&Listener::tooShort, this);
  }

  void onEvent(const std::string& event, const GKValue& value) {
    delivered.push_back(event + " " + std::to_string(value.toInt()) + " at " +
                        std::to_string(GKClock::instance().elapsed()));
    after(value.toInt());
  }
  void onOther(const std::string& event, const GKValue&) {
    delivered.push_back("other " + event);
    after(0);
  }
  void tooShort(const std::string&) {}

  std::vector<std::string> delivered;
  /// What the callback does once it has noted its call.
  std::function<void(int)> after = [](int) {};
};

} // namespace GK::test
