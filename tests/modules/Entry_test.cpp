#include "gk/GKProxy.h"
#include "support/TestModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using testing::ElementsAre;

namespace GK {
namespace {

/// Names of the modules in the order of their registration, without the platform's services.
std::vector<std::string> moduleNames(const test::TestPlatform& platform) {
  std::vector<std::string> names;
  for (const auto& module : platform.broker()->getModules()) {
    const std::string& name = module->getName();
    if (name != GKMemory::kName && name != DCM::kName && name != GKResourceManager::kName) {
      names.push_back(name);
    }
  }
  return names;
}

TEST(Entry, CreatesTheFiveModulesInOrder) {
  test::TestModules platform;
  EXPECT_EQ(_createModule(platform.broker()), 0);
  EXPECT_THAT(moduleNames(platform),
              ElementsAre("GKSonar", "GKFsr", "GKRobotPose", "GKBattery", "GKSensors"));
}

TEST(Entry, MakesTheHostsManagerItsOwnAndAddsTheBrokerToIt) {
  test::TestModules platform;
  const auto manager = GKBrokerManager::getInstance();
  GKBrokerManager::setInstance(boost::make_shared<GKBrokerManager>());
  _createModule(platform.broker());
  EXPECT_EQ(GKBrokerManager::getInstance(), manager);
  EXPECT_EQ(GKBrokerManager::getInstance()->getRandomBroker(), platform.broker());
}

TEST(Entry, BrokerWhoseManagerIsGoneStillGetsItsModules) {
  test::TestModules platform;
  const auto manager = GKBrokerManager::getInstance();
  const auto orphan = boost::make_shared<GKBroker>("orphan", nullptr);
  boost::make_shared<GKMemory>(orphan, platform.store())->initModule();
  EXPECT_EQ(_createModule(orphan), 0);
  EXPECT_NE(GKBrokerManager::getInstance(), manager);
  EXPECT_EQ(GKBrokerManager::getInstance()->getRandomBroker(), orphan);
  platform.sleep(50);
  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(0, 20000, 40000));
  orphan->shutdown();
}

/// A module that was loaded before the library.
class SonarListener : public GKModule {
public:
  explicit SonarListener(const boost::shared_ptr<GKBroker>& broker) : GKModule(broker, "Listener") {
    functionName("onEvent", "Listener", "");
    addParam("event", "");
    addParam("value", "");
    bindMethod(&SonarListener::onEvent, this);
  }
  void onEvent(const std::string& event, const GKValue&) { events.push_back(event); }

  std::vector<std::string> events;
};

TEST(Entry, WhoSubscribedToASonarEventBeforeTheLibraryCameSwitchesTheSonarOn) {
  test::TestModules platform;
  const auto listener = GKModule::createModule<SonarListener>(platform.broker());
  platform.memory().subscribeToEvent("SonarNothingDetected", "Listener", "onEvent");
  _createModule(platform.broker());
  platform.sleep(2100);

  const auto orders = platform.recorder->ofKind(GKNotice::Kind::Order);
  ASSERT_EQ(orders.size(), 1U);
  EXPECT_EQ(orders[0].value[2][0][0], GKValue(68.0F));
  EXPECT_EQ(orders[0].time, 1000000);
  EXPECT_THAT(listener->events, ElementsAre("SonarNothingDetected"));

  platform.memory().unsubscribeToEvent("SonarNothingDetected", "Listener");
  EXPECT_EQ(platform.recorder->ofKind(GKNotice::Kind::Order).size(), 2U);
}

TEST(Entry, FailedModuleLeavesThoseBeforeItAndNoneAfterIt) {
  test::TestModules platform;
  // The pose module reads this key in its constructor; the foot contact module did so before.
  platform.faults->fail(GKOperation::GetData, "RobotConfig/Body/Device/Legs/Version", 1);
  EXPECT_THROW(_createModule(platform.broker()), GKError);
  EXPECT_THAT(moduleNames(platform), ElementsAre("GKSonar", "GKFsr"));
}

TEST(Entry, SecondCallFailsAtTheFirstModule) {
  test::TestModules platform;
  _createModule(platform.broker());
  EXPECT_THROW(_createModule(platform.broker()), GKError);
  EXPECT_THAT(moduleNames(platform), testing::SizeIs(5));
}

TEST(Entry, CloseDoesNothing) {
  test::TestModules platform;
  EXPECT_EQ(_closeModule(), 0);
  _createModule(platform.broker());
  EXPECT_EQ(_closeModule(), 0);
  EXPECT_THAT(moduleNames(platform), testing::SizeIs(5));
  platform.sleep(10);
  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(0));
}

TEST(Entry, ShutdownEndsTheLoop) {
  test::TestModules platform;
  _createModule(platform.broker());
  platform.sleep(10);
  platform.shutdown();
  EXPECT_THAT(platform.recorder->ticks(), ElementsAre(0));
}

/// A module whose `init` fails.
template <class E> struct Failing : GKModule {
  explicit Failing(boost::shared_ptr<GKBroker> broker) : GKModule(broker, "Failing") {}
  void init() override { throw E("GKX", "init", "why"); }
  void exit() override { ++exits; }
  static inline int exits = 0;
};

struct OtherError : std::runtime_error {
  OtherError(const char*, const char*, const char* what) : std::runtime_error(what) {}
};

TEST(CreateModule, FailedInitCallsExitOnceAndPassesTheErrorOn) {
  test::TestPlatform platform;
  Failing<GKError>::exits = 0;
  try {
    GKModule::createModule<Failing<GKError>>(platform.broker());
    FAIL() << "no GKError";
  } catch (const GKError& error) {
    EXPECT_EQ(error.getModule(), "GKX");
    EXPECT_EQ(error.getMethod(), "init");
    EXPECT_EQ(error.getDescription(), "why");
  }
  EXPECT_EQ(Failing<GKError>::exits, 1);
  platform.shutdown();
  EXPECT_EQ(Failing<GKError>::exits, 1);
}

TEST(CreateModule, OtherErrorsOfInitPassWithoutExit) {
  test::TestPlatform platform;
  Failing<OtherError>::exits = 0;
  EXPECT_THROW(GKModule::createModule<Failing<OtherError>>(platform.broker()), OtherError);
  EXPECT_EQ(Failing<OtherError>::exits, 0);
}

} // namespace
} // namespace GK
