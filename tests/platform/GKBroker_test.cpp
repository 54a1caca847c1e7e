#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKProxy.h"
#include "support/PlatformFixture.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace GK {
namespace {

using test::errorOf;
using test::IsError;
using test::TestPlatform;

/// A module that notes when it ends and is released.
class Mortal : public GKModule {
public:
  Mortal(boost::shared_ptr<GKBroker> broker, const std::string& name,
         std::vector<std::string>& diary)
      : GKModule(broker, name), fDiary(diary) {
    functionName("work", name, "");
    bindMethod(&Mortal::work, this);
  }
  ~Mortal() override { fDiary.push_back(getName() + " released"); }

  void exit() override {
    fDiary.push_back(getName() + " exit");
    onExit();
  }
  void work() {
    onWork();
    fDiary.push_back(getName() + " worked");
  }

  std::function<void()> onExit = [] {};
  std::function<void()> onWork = [] {};

private:
  std::vector<std::string>& fDiary;
};

class BrokerTest : public testing::Test {
protected:
  boost::shared_ptr<Mortal> add(const std::string& name) {
    const auto module = boost::make_shared<Mortal>(sut, name, diary);
    module->initModule();
    return module;
  }

  std::vector<std::string> diary;
  TestPlatform platform{TestPlatform::kMemoryOnly};
  boost::shared_ptr<GKBroker> sut = platform.broker();
};

TEST_F(BrokerTest, ProxyOfAnAbsentModuleIsAnErrorThatNamesIt) {
  EXPECT_THAT(errorOf([this] { sut->getProxy("GKGhost", 0); }),
              IsError("GKBroker", "getProxy", HasSubstr("GKGhost")));
  EXPECT_FALSE(sut->isModulePresent("GKGhost"));
  EXPECT_EQ(sut->findModule("GKGhost"), nullptr);
}

TEST_F(BrokerTest, ProxyLeadsToTheRegisteredModule) {
  const boost::shared_ptr<Mortal> module = add("A");

  EXPECT_TRUE(sut->isModulePresent("A"));
  EXPECT_EQ(sut->findModule("A"), module);
  EXPECT_EQ(sut->getProxy("A", 0)->getModule(), module);
}

TEST_F(BrokerTest, SpecialisedProxyIsOneOfTheNamedModule) {
  sut->getSpecialisedProxy<GKMemoryProxy>("GKMemory")->insertData("key", 3);

  EXPECT_EQ(platform.value("key"), GKValue(3));
}

TEST_F(BrokerTest, SpecialisedProxyOfAnAbsentOrOtherModuleIsAnError) {
  const boost::shared_ptr<Mortal> module = add("A");

  EXPECT_THROW(sut->getSpecialisedProxy<GKMemoryProxy>("GKGhost"), GKError);
  EXPECT_THROW(sut->getSpecialisedProxy<GKMemoryProxy>("A"), GKError);
}

TEST_F(BrokerTest, SecondModuleOfANameIsRefused) {
  const boost::shared_ptr<Mortal> first = add("A");

  EXPECT_THAT(errorOf([this] { add("A"); }), IsError("GKBroker", "registerModule", HasSubstr("A")));
  EXPECT_EQ(sut->findModule("A"), first);
}

TEST_F(BrokerTest, ModulesAreListedInTheOrderOfRegistration) {
  add("B");
  add("A");

  std::vector<std::string> names;
  for (const auto& module : sut->getModules()) {
    names.push_back(module->getName());
  }
  EXPECT_THAT(names, ElementsAre("GKMemory", "B", "A"));
}

TEST_F(BrokerTest, GetThisSharesOwnership) {
  EXPECT_EQ(sut->getThis(), sut);
}

TEST_F(BrokerTest, IsExitingFromTheFirstExitOn) {
  bool wasExiting = false;
  add("A")->onExit = [&] { wasExiting = sut->isExiting(); };
  EXPECT_FALSE(sut->isExiting());

  sut->shutdown();

  EXPECT_TRUE(wasExiting);
  EXPECT_TRUE(sut->isExiting());
}

TEST_F(BrokerTest, ShutdownEndsAllThenReleasesAllInReverseOrder) {
  add("A");
  add("B");
  add("C");

  sut->shutdown();

  EXPECT_THAT(diary,
              ElementsAre("C exit", "B exit", "A exit", "C released", "B released", "A released"));
  EXPECT_THAT(sut->getModules(), IsEmpty());
}

TEST_F(BrokerTest, OtherModulesStillStandWhileOneEnds) {
  add("A");
  bool isThere = false;
  add("B")->onExit = [&] {
    isThere = sut->isModulePresent("A") && sut->isModulePresent("B");
    sut->getProxy("A", 0)->callVoid("work");
  };
  add("C");

  sut->shutdown();

  EXPECT_TRUE(isThere);
  EXPECT_THAT(diary, ElementsAre("C exit", "B exit", "A worked", "A exit", "C released",
                                 "B released", "A released"));
}

TEST_F(BrokerTest, ExitThatThrowsIsLoggedAndDoesNotStopTheOthers) {
  add("A")->onExit = [] { throw 42; };
  add("B")->onExit = [] { throw GKError("B", "exit", "stuck"); };
  add("C")->onExit = [] { throw std::out_of_range("far"); };

  sut->shutdown();

  EXPECT_THAT(diary,
              ElementsAre("C exit", "B exit", "A exit", "C released", "B released", "A released"));
  EXPECT_THAT(platform.recorder->logLines(),
              ElementsAre("2 platform.broker shutdown: C.exit: far",
                          "2 platform.broker shutdown: B.exit: B::exit: stuck",
                          "2 platform.broker shutdown: A.exit: unknown exception"));
}

TEST_F(BrokerTest, RunningTasksAreJoinedBetweenExitAndRelease) {
  add("A")->onWork = [] { zu::os::msleep(1000); };
  sut->getProxy("A", 0)->postCall("work");
  platform.sleep(1); // The task is in its sleep now.

  sut->shutdown();

  EXPECT_THAT(diary, ElementsAre("A exit", "A worked", "A released"));
}

TEST_F(BrokerTest, TasksMayStillLookModulesUpWhileTheyAreJoined) {
  bool found = false;
  add("A")->onWork = [&] {
    zu::os::msleep(1000);
    found = sut->isExiting() && sut->isModulePresent("A");
  };
  sut->getProxy("A", 0)->postCall("work");

  sut->shutdown();

  EXPECT_TRUE(found);
}

TEST_F(BrokerTest, SleepOfAnExitLetsTheTasksRun) {
  bool mayGo = false;
  const boost::shared_ptr<Mortal> module = add("A");
  module->onWork = [&] {
    while (!mayGo) {
      zu::os::msleep(20);
    }
  };
  module->onExit = [&] {
    zu::os::msleep(100);
    mayGo = true;
  };
  sut->getProxy("A", 0)->postCall("work");
  GKClock::instance().run(nullptr, 50000);

  sut->shutdown();

  EXPECT_THAT(diary, ElementsAre("A exit", "A worked"));
  // Slept from 40 ms on, the last tick of the run, so until 140 ms, which is a tick as well.
  EXPECT_EQ(GKClock::instance().elapsed(), 140000);
}

TEST_F(BrokerTest, NoModuleIsTakenOverDuringShutdown) {
  GKError error("", "", "");
  add("A")->onExit = [&] { error = errorOf([this] { add("B"); }); };

  sut->shutdown();

  EXPECT_THAT(error, IsError("GKBroker", "registerModule", HasSubstr("B")));
}

TEST_F(BrokerTest, ModuleWithoutExitIsJustReleased) {
  class Core : public GKModuleCore {
  public:
    using GKModuleCore::GKModuleCore;
  };
  boost::weak_ptr<Core> core;
  {
    const auto module = boost::make_shared<Core>(sut, "Core");
    module->initModule();
    core = module;
  }
  EXPECT_FALSE(core.expired());

  sut->shutdown();

  EXPECT_TRUE(core.expired());
}

TEST(GKBroker, WorksWithoutAManager) {
  const auto sut = boost::make_shared<GKBroker>("lonely", nullptr);

  EXPECT_EQ(sut->getBrokerManager().lock(), nullptr);
  EXPECT_EQ(sut->getName(), "lonely");
  EXPECT_THAT(sut->getModules(), IsEmpty());
}

TEST(GKBroker, ManagerThatIsGoneIsAnEmptyPointer) {
  auto manager = boost::make_shared<GKBrokerManager>();
  const auto sut = boost::make_shared<GKBroker>("b", manager);
  EXPECT_EQ(sut->getBrokerManager().lock(), manager);

  manager.reset();

  EXPECT_EQ(sut->getBrokerManager().lock(), nullptr);
}

/// Leaves the process without an instance, as it was.
class BrokerManagerTest : public testing::Test {
protected:
  BrokerManagerTest() { GKBrokerManager::setInstance(nullptr); }
  ~BrokerManagerTest() override { GKBrokerManager::setInstance(nullptr); }
};

TEST_F(BrokerManagerTest, InstanceIsMadeWhenThereIsNone) {
  const boost::shared_ptr<GKBrokerManager> sut = GKBrokerManager::getInstance();

  ASSERT_NE(sut, nullptr);
  EXPECT_EQ(GKBrokerManager::getInstance(), sut);
}

TEST_F(BrokerManagerTest, SetInstanceReplacesAndReturnsTheFormerOne) {
  const auto sut = boost::make_shared<GKBrokerManager>();

  EXPECT_EQ(GKBrokerManager::setInstance(sut), nullptr);
  EXPECT_EQ(GKBrokerManager::getInstance(), sut);
  EXPECT_EQ(GKBrokerManager::setInstance(nullptr), sut);
  EXPECT_NE(GKBrokerManager::getInstance(), sut);
}

TEST_F(BrokerManagerTest, RandomBrokerOfNoneIsAnError) {
  const auto sut = boost::make_shared<GKBrokerManager>();

  EXPECT_THAT(errorOf([&] { sut->getRandomBroker(); }),
              IsError("GKBrokerManager", "getRandomBroker", HasSubstr("no broker")));
}

TEST_F(BrokerManagerTest, RandomBrokerIsTheFirstThatIsStillThere) {
  const auto sut = boost::make_shared<GKBrokerManager>();
  auto first = boost::make_shared<GKBroker>("first", sut);
  const auto second = boost::make_shared<GKBroker>("second", sut);
  sut->addBroker(first);
  sut->addBroker(second);
  sut->addBroker(first);
  EXPECT_EQ(sut->getRandomBroker(), first);

  first.reset();

  EXPECT_EQ(sut->getRandomBroker(), second);
}

TEST_F(BrokerManagerTest, BrokersAreNotKeptAlive) {
  const auto sut = boost::make_shared<GKBrokerManager>();
  sut->addBroker(boost::make_shared<GKBroker>("gone", sut));

  EXPECT_THROW(sut->getRandomBroker(), GKError);
}

} // namespace
} // namespace GK
