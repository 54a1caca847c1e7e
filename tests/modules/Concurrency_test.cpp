#include "gk/GKExtractor.h"
#include "gk/GKProxy.h"
#include "support/TestModules.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// Everything at once on the real clock. What is looked for is a data race, a deadlock or a use
// after the end: the sanitizers and the test's time limit tell. Numbers of repetitions, not times,
// end it.

namespace GK {
namespace {

constexpr int kRepetitions = 300;

/// Has its event callback called.
class Listener : public GKModule {
public:
  explicit Listener(const boost::shared_ptr<GKBroker>& broker) : GKModule(broker, "Listener") {
    functionName("onEvent", "Listener", "");
    addParam("event", "");
    addParam("value", "");
    bindMethod(&Listener::onEvent, this);
  }
  void onEvent(const std::string&, const GKValue&) { fCalls.fetch_add(1); }

private:
  std::atomic<int> fCalls{0};
};

class ConcurrencyTest : public testing::Test {
protected:
  ConcurrencyTest() {
    GKClock::install(nullptr);
    boost::make_shared<Listener>(platform.broker())->initModule();
    _createModule(platform.broker());
    sensors = boost::dynamic_pointer_cast<GKExtractor>(platform.broker()->findModule("GKSensors"));
    sonar = boost::dynamic_pointer_cast<GKExtractor>(platform.broker()->findModule("GKSonar"));
  }

  /// Repeats `work` on a thread of its own. Refusals are part of the game.
  void start(std::function<void(int)> work) {
    fThreads.emplace_back([work = std::move(work)] {
      for (int i = 0; i < kRepetitions; ++i) {
        try {
          work(i);
        } catch (const GKError&) {
        }
      }
    });
  }

  void startAllClients() {
    for (const char* name : {"a", "b"}) {
      start([this, name](int i) {
        sensors->subscribe(name, 20 + i % 7, 0.5F);
        sensors->updatePeriod(name, 10 + i % 30);
        sensors->updatePrecision(name, 0.1F * static_cast<float>(i % 3));
        sensors->getMyPrecision("curious");
        sensors->unsubscribe(i % 5 == 0 ? "curious" : name);
      });
      start([this, name](int) {
        sonar->subscribe(name);
        sonar->updatePrecision(name, 0.1F);
        sonar->getCurrentPeriod();
        sonar->unsubscribe(name);
      });
    }
    start([this](int) {
      sensors->httpGet();
      sonar->getSubscribersInfo();
      sensors->getOutputNames();
    });
    start([this](int i) {
      const auto value = static_cast<float>(i % 2);
      platform.set("Device/SubDeviceList/Head/Touch/Front/Sensor/Value", value);
      platform.set("Device/SubDeviceList/US/Left/Sensor/Value", value);
      platform.set("Device/SubDeviceList/Battery/Charge/Sensor/Value", value);
      platform.set("a text of many types", i % 3 == 0 ? GKValue("text") : GKValue(i));
      platform.store()->get("a text of many types");
      platform.store()->get("robotPoseSince");
    });
    start([this](int) {
      for (const char* event : {"FrontTactilTouched", "robotPoseChanged"}) {
        platform.memory().subscribeToEvent(event, "Listener", "onEvent");
      }
      for (const char* event : {"FrontTactilTouched", "robotPoseChanged"}) {
        platform.memory().unsubscribeToEvent(event, "Listener");
      }
    });
    start([this](int) {
      for (const auto& [module, method] :
           {std::pair("GKRobotPose", "getActualPoseAndTime"),
            std::pair("GKBattery", "getBatteryCharge"), std::pair("GKSonar", "_getFilteredValues"),
            std::pair("GKMemory", "getEventList")}) {
        platform.broker()->getProxy(module, 0)->call<GKValue>(method);
      }
    });
    start([this](int) {
      sensors->getCurrentPeriod();
      sensors->getCurrentPrecision();
      sonar->getCurrentPrecision();
      sonar->getMyPeriod("nobody");
      sonar->unsubscribe("nobody");
    });
    // Stops and starts the loop.
    start([this](int) {
      sensors->unsubscribe("sensors");
      sensors->subscribe("sensors", 20, 0.0F);
    });
  }

  void joinAll() {
    for (std::thread& thread : fThreads) {
      thread.join();
    }
    fThreads.clear();
  }

  // Without DCM, so that switching the sonar on takes no time.
  test::TestModules platform{test::TestPlatform::kMemoryOnly};
  boost::shared_ptr<GKExtractor> sensors;
  boost::shared_ptr<GKExtractor> sonar;

private:
  std::vector<std::thread> fThreads;
};

TEST_F(ConcurrencyTest, ManyClientsWhileTheLoopRuns) {
  startAllClients();
  joinAll();
  EXPECT_EQ(sonar->getCurrentPeriod(), -1);
}

TEST_F(ConcurrencyTest, ExitBesideRunningTicks) {
  start([this](int i) {
    platform.set("Device/SubDeviceList/Head/Touch/Front/Sensor/Value", static_cast<float>(i % 2));
    sensors->exit();
    sensors->unsubscribe("sensors");
    sensors->subscribe("sensors", 20, 0.0F);
    platform.broker()->getProxy("GKSensors", 0)->callVoid("getCurrentPeriod");
  });
  // Looks the siblings up anew while a tick may use them.
  start([this](int) {
    if (sensors->getCurrentPeriod() < 0) {
      return;
    }
    platform.broker()->getProxy("GKSensors", 0)->postCall("run");
  });
  joinAll();
  sensors->exit();
}

TEST_F(ConcurrencyTest, ShutdownInTheMiddleOfManyClients) {
  startAllClients();
  platform.broker()->shutdown();
  joinAll();
  EXPECT_TRUE(platform.broker()->getModules().empty());
}

} // namespace
} // namespace GK
