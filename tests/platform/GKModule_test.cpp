#include "gk/GKModule.h"
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

/// Where all modules of a test note what happens to them.
struct Life {
  std::vector<std::string> events;
  std::function<void()> onConstruct = [] {};
  std::function<void()> onInit = [] {};
};

/// A module that does at each step of its life what the test asks for.
class Living : public GKModule {
public:
  static Life* life;

  explicit Living(boost::shared_ptr<GKBroker> broker) : GKModule(broker, "Living") {
    life->events.emplace_back("construct");
    life->onConstruct();
  }
  ~Living() override { life->events.emplace_back("destroy"); }

  void init() override {
    life->events.emplace_back("init");
    EXPECT_TRUE(getParentBroker()->isModulePresent("Living"));
    EXPECT_EQ(shared_from_this().get(), this);
    life->onInit();
  }
  void exit() override { life->events.emplace_back("exit"); }
};
Life* Living::life = nullptr;

class CreateModule : public testing::Test {
protected:
  CreateModule() { Living::life = &life; }

  Life life;
  TestPlatform platform{TestPlatform::kNoServices};
};

TEST_F(CreateModule, RegistersThenInitialises) {
  const boost::shared_ptr<Living> sut = GKModule::createModule<Living>(platform.broker());

  EXPECT_EQ(platform.broker()->findModule("Living"), sut);
  EXPECT_THAT(life.events, ElementsAre("construct", "init"));
}

TEST_F(CreateModule, BrokerKeepsTheModuleAlive) {
  GKModule::createModule<Living>(platform.broker());

  EXPECT_THAT(life.events, ElementsAre("construct", "init"));
}

TEST_F(CreateModule, ThrowingConstructorLeavesNothingBehind) {
  life.onConstruct = [] { throw GKError("Living", "Living", "no legs"); };

  EXPECT_THAT(errorOf([this] { GKModule::createModule<Living>(platform.broker()); }),
              IsError("Living", "Living", "no legs"));
  EXPECT_THAT(life.events, ElementsAre("construct"));
  EXPECT_FALSE(platform.broker()->isModulePresent("Living"));
}

TEST_F(CreateModule, ErrorOfInitEndsTheModuleOnceAndReachesTheCaller) {
  life.onInit = [] { throw GKError("Living", "init", "no air", "place", 3); };

  const GKError error = errorOf([this] { GKModule::createModule<Living>(platform.broker()); });

  EXPECT_THAT(error, IsError("Living", "init", "no air"));
  EXPECT_STREQ(error.getFile(), "place");
  EXPECT_EQ(error.getLine(), 3);
  EXPECT_THAT(life.events, ElementsAre("construct", "init", "exit"));
}

TEST_F(CreateModule, ModuleWithFailedInitStaysRegisteredAndIsNotEndedAgain) {
  life.onInit = [] { throw GKError("Living", "init", "no air"); };
  EXPECT_THROW(GKModule::createModule<Living>(platform.broker()), GKError);
  EXPECT_TRUE(platform.broker()->isModulePresent("Living"));

  platform.shutdown();

  EXPECT_THAT(life.events, ElementsAre("construct", "init", "exit", "destroy"));
}

TEST_F(CreateModule, OtherExceptionOfInitPassesUnchangedAndEndsNothing) {
  life.onInit = [] { throw std::out_of_range("7"); };

  try {
    GKModule::createModule<Living>(platform.broker());
    FAIL() << "nothing was raised";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "7");
  }
  EXPECT_THAT(life.events, ElementsAre("construct", "init"));
  EXPECT_TRUE(platform.broker()->isModulePresent("Living"));
}

TEST_F(CreateModule, ThrownThingThatIsNoExceptionClassPassesUnchanged) {
  life.onInit = [] { throw 42; };

  EXPECT_THROW(GKModule::createModule<Living>(platform.broker()), int);
  EXPECT_THAT(life.events, ElementsAre("construct", "init"));
}

TEST_F(CreateModule, RefusedRegistrationDestroysTheModuleUninitialised) {
  GKModule::createModule<Living>(platform.broker());
  life.events.clear();

  EXPECT_THAT(errorOf([this] { GKModule::createModule<Living>(platform.broker()); }),
              IsError("GKBroker", "registerModule", HasSubstr("Living")));
  EXPECT_THAT(life.events, ElementsAre("construct", "destroy"));
}

TEST_F(CreateModule, BrokerThatIsGoneIsAnError) {
  EXPECT_THAT(errorOf([] { GKModule::createModule<Living>(nullptr); }),
              IsError("Living", "initModule", HasSubstr("broker")));
  EXPECT_THAT(life.events, ElementsAre("construct", "destroy"));
}

/// A module that overrides nothing.
class Plain : public GKModule {
public:
  explicit Plain(boost::shared_ptr<GKBroker> broker) : GKModule(broker, "Plain") {}
  using GKModule::setModuleDescription;
};

TEST(GKModule, DefaultsDoNothing) {
  const TestPlatform platform(TestPlatform::kNoServices);
  const boost::shared_ptr<Plain> sut = GKModule::createModule<Plain>(platform.broker());

  sut->execute();
  sut->exit();
  sut->stop(3);

  EXPECT_EQ(sut->getName(), "Plain");
  EXPECT_EQ(sut->getModuleDescription(), "");
  EXPECT_THAT(sut->getMethods(), IsEmpty());
  EXPECT_NE(sut->version(), "");
}

TEST(GKModule, StatusPageShowsNameAndDescription) {
  const TestPlatform platform(TestPlatform::kNoServices);
  const boost::shared_ptr<Plain> sut = GKModule::createModule<Plain>(platform.broker());

  sut->setModuleDescription("a < b & c\nd");

  EXPECT_EQ(sut->httpGet(), "<html><body><h3>Plain</h3>a &lt; b &amp; c<br />d</body></html>");
}

TEST(GKModule, ParentBrokerIsEmptyOnceItIsGone) {
  auto broker = boost::make_shared<GKBroker>("short", nullptr);
  const auto sut = boost::make_shared<Plain>(broker);
  EXPECT_EQ(sut->getParentBroker(), broker);

  broker.reset();

  EXPECT_EQ(sut->getParentBroker(), nullptr);
}

} // namespace
} // namespace GK
