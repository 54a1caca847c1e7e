#include "gk/GKMemory.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"
#include "support/Listener.h"
#include "support/PlatformFixture.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace GK {
namespace {

using test::errorOf;
using test::IsError;
using test::kModule;
using test::Listener;
using test::TestPlatform;

/// Another module's subscription by name, as the extractors of the robot offer it.
class Extractor : public GKModule {
public:
  Extractor(boost::shared_ptr<GKBroker> broker, const std::string& name) : GKModule(broker, name) {
    functionName("subscribe", name, "");
    addParam("subscriber", "");
    bindMethod(&Extractor::subscribe, this);

    functionName("unsubscribe", name, "");
    addParam("subscriber", "");
    bindMethod(&Extractor::unsubscribe, this);
  }

  void subscribe(const std::string& subscriber) {
    if (refuses) {
      throw GKError(getName(), "subscribe", "not today");
    }
    calls.push_back("subscribe " + subscriber);
  }
  void unsubscribe(const std::string& subscriber) { calls.push_back("unsubscribe " + subscriber); }

  std::vector<std::string> calls;
  bool refuses = false;
};

class SubscriptionTest : public testing::Test {
protected:
  template <class M> boost::shared_ptr<M> add(const std::string& name) {
    const auto module = boost::make_shared<M>(platform.broker(), name);
    module->initModule();
    return module;
  }
  void raise(const std::string& event, int value) { sut.raiseEvent(event, value, kModule); }

  TestPlatform platform{TestPlatform::kMemoryOnly};
  GKMemory& sut = platform.memory();
  boost::shared_ptr<Listener> listener = add<Listener>("Listener");
  boost::shared_ptr<Extractor> extractor = add<Extractor>("Extractor");
};

TEST_F(SubscriptionTest, SubscriberGetsNameAndValueAsynchronously) {
  sut.subscribeToEvent("Touched", "Listener", "onEvent");

  raise("Touched", 1);
  EXPECT_THAT(listener->delivered, IsEmpty());
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, ElementsAre("Touched 1 at 0"));
}

TEST_F(SubscriptionTest, MicroEventsAreDeliveredToo) {
  sut.subscribeToEvent("Sonar", "Listener", "onEvent");

  sut.raiseMicroEvent("Sonar", 2, kModule);
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, ElementsAre("Sonar 2 at 0"));
}

TEST_F(SubscriptionTest, InsertedDataIsNotDelivered) {
  sut.subscribeToEvent("Touched", "Listener", "onEvent");

  sut.insertData("Touched", 1, kModule);
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, IsEmpty());
}

TEST_F(SubscriptionTest, WhatWasRaisedBeforeIsNotDelivered) {
  raise("Touched", 1);
  sut.subscribeToEvent("Touched", "Listener", "onEvent");
  raise("Touched", 2);
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, ElementsAre("Touched 2 at 0"));
}

TEST_F(SubscriptionTest, SubscriberGetsAllItsEventsInTheOrderOfRaising) {
  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.subscribeToEvent("B", "Listener", "onEvent");

  raise("A", 1);
  raise("B", 2);
  raise("A", 3);
  platform.sleep(0);
  raise("B", 4);
  platform.sleep(1);

  EXPECT_THAT(listener->delivered, ElementsAre("A 1 at 0", "B 2 at 0", "A 3 at 0", "B 4 at 0"));
}

TEST_F(SubscriptionTest, OrderHoldsWhileTheSubscriberIsSlow) {
  listener->after = [](int) { zu::os::msleep(10); };
  sut.subscribeToEvent("A", "Listener", "onEvent");

  for (int value = 1; value <= 3; ++value) {
    raise("A", value);
    platform.sleep(4);
  }
  platform.sleep(100);

  EXPECT_THAT(listener->delivered, ElementsAre("A 1 at 0", "A 2 at 10000", "A 3 at 20000"));
}

TEST_F(SubscriptionTest, SlowSubscriberDelaysNobodyElse) {
  const boost::shared_ptr<Listener> other = add<Listener>("Other");
  listener->after = [](int) { zu::os::msleep(3600000); };
  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.subscribeToEvent("A", "Other", "onEvent");

  raise("A", 1);
  platform.sleep(1);
  raise("A", 2);
  platform.sleep(1);

  EXPECT_THAT(listener->delivered, ElementsAre("A 1 at 0"));
  EXPECT_THAT(other->delivered, ElementsAre("A 1 at 0", "A 2 at 1000"));
}

TEST_F(SubscriptionTest, SubscriberMayRaiseTheEventThatItListensTo) {
  listener->after = [this](int value) {
    if (value < 3) {
      raise("A", value + 1);
    }
  };
  sut.subscribeToEvent("A", "Listener", "onEvent");

  raise("A", 1);
  platform.sleep(1);

  EXPECT_THAT(listener->delivered, ElementsAre("A 1 at 0", "A 2 at 0", "A 3 at 0"));
}

TEST_F(SubscriptionTest, CallbackRunsInATaskOfItsOwnName) {
  std::string task;
  listener->after = [&](int) {
    task = GKTask::current()->module + "." + GKTask::current()->method;
  };
  sut.subscribeToEvent("A", "Listener", "onEvent");

  raise("A", 1);
  platform.sleep(0);

  EXPECT_EQ(task, "Listener.onEvent");
}

TEST_F(SubscriptionTest, ErrorsOfCallbacksAreLoggedAndTheNextEventIsDelivered) {
  listener->after = [](int value) {
    switch (value) {
    case 1:
      throw GKError("Listener", "onEvent", "tired");
    case 2:
      throw 42;
    default:
      break;
    }
  };
  sut.subscribeToEvent("A", "Listener", "onEvent");

  for (int value = 1; value <= 3; ++value) {
    raise("A", value);
  }
  platform.sleep(0);

  EXPECT_EQ(listener->delivered.size(), 3u);
  EXPECT_THAT(
      platform.recorder->logLines(),
      ElementsAre("2 platform.proxy deliver: Listener.onEvent for A: Listener::onEvent: tired",
                  "2 platform.proxy deliver: Listener.onEvent for A: unknown exception"));
}

TEST_F(SubscriptionTest, RepeatedSubscriptionReplacesTheMethod) {
  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.subscribeToEvent("A", "Listener", "onOther");

  raise("A", 1);
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, ElementsAre("other A"));
}

TEST_F(SubscriptionTest, UnsubscribedModuleHearsNoMore) {
  sut.subscribeToEvent("A", "Listener", "onEvent");
  raise("A", 1);
  platform.sleep(0);

  sut.unsubscribeToEvent("A", "Listener");
  raise("A", 2);
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, ElementsAre("A 1 at 0"));
}

TEST_F(SubscriptionTest, EventsOnTheirWayAreDroppedWhenTheModuleUnsubscribes) {
  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.subscribeToEvent("B", "Listener", "onEvent");
  raise("A", 1);
  raise("B", 2);

  sut.unsubscribeToEvent("A", "Listener");
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, ElementsAre("B 2 at 0"));
}

TEST_F(SubscriptionTest, EventsOfAnEndedSubscriptionAreNotDeliveredToTheNextOne) {
  sut.subscribeToEvent("A", "Listener", "onEvent");
  raise("A", 1);
  sut.unsubscribeToEvent("A", "Listener");
  sut.subscribeToEvent("A", "Listener", "onEvent");
  raise("A", 2);
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, ElementsAre("A 2 at 0"));
}

TEST_F(SubscriptionTest, EventsForAMethodThatWasReplacedAreDroppedToo) {
  sut.subscribeToEvent("A", "Listener", "onEvent");
  raise("A", 1);
  sut.subscribeToEvent("A", "Listener", "onOther");
  sut.unsubscribeToEvent("A", "Listener");
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, IsEmpty());
}

TEST_F(SubscriptionTest, UnsubscribingWaitsForACallbackThatIsRunning) {
  bool hasEnded = false;
  listener->after = [&hasEnded](int) {
    zu::os::msleep(50);
    hasEnded = true;
  };
  sut.subscribeToEvent("A", "Listener", "onEvent");
  raise("A", 1);
  raise("A", 2);
  platform.sleep(10);

  sut.unsubscribeToEvent("A", "Listener");

  EXPECT_TRUE(hasEnded);
  EXPECT_EQ(GKClock::instance().elapsed(), 50000);
  platform.sleep(100);
  EXPECT_THAT(listener->delivered, ElementsAre("A 1 at 0"));
}

TEST_F(SubscriptionTest, ACallbackMayUnsubscribeItself) {
  listener->after = [this](int) { sut.unsubscribeToEvent("A", "Listener"); };
  sut.subscribeToEvent("A", "Listener", "onEvent");
  raise("A", 1);
  raise("A", 2);
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, ElementsAre("A 1 at 0"));
  EXPECT_THAT(platform.recorder->logLines(), IsEmpty());
}

TEST_F(SubscriptionTest, CallbacksThatUnsubscribeEachOtherComeToTheirEnd) {
  const boost::shared_ptr<Listener> other = add<Listener>("Other");
  listener->after = [this](int) {
    zu::os::msleep(10);
    sut.unsubscribeToEvent("A", "Other");
  };
  other->after = [this](int) {
    zu::os::msleep(10);
    sut.unsubscribeToEvent("A", "Listener");
  };
  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.subscribeToEvent("A", "Other", "onEvent");
  raise("A", 1);
  platform.sleep(100);
  raise("A", 2);
  platform.sleep(100);

  EXPECT_THAT(listener->delivered, ElementsAre("A 1 at 0"));
  EXPECT_THAT(other->delivered, ElementsAre("A 1 at 0"));
}

TEST_F(SubscriptionTest, UnsubscribingWithoutASubscriptionLeavesNothingBehind) {
  const std::size_t keys = platform.store()->size();
  EXPECT_THROW(sut.unsubscribeToEvent("Never heard of", "Listener"), GKError);

  EXPECT_EQ(platform.store()->size(), keys);
  sut.subscribeToEvent("A", "Listener", "onEvent");
  EXPECT_EQ(platform.store()->size(), keys);
  EXPECT_EQ(platform.store()->size(), platform.store()->keys().size());
}

TEST_F(SubscriptionTest, UnsubscribingWithoutASubscriptionIsAnError) {
  EXPECT_THAT(errorOf([this] { sut.unsubscribeToEvent("A", "Listener"); }),
              IsError("GKMemory", "unsubscribeToEvent",
                      testing::AllOf(HasSubstr("A"), HasSubstr("Listener"))));
}

TEST_F(SubscriptionTest, UnknownModuleOrMethodIsAnError) {
  EXPECT_THAT(errorOf([this] { sut.subscribeToEvent("A", "Ghost", "onEvent"); }),
              IsError("GKMemory", "subscribeToEvent", HasSubstr("Ghost")));
  EXPECT_THAT(errorOf([this] { sut.subscribeToEvent("A", "Listener", "fly"); }),
              IsError("GKMemory", "subscribeToEvent", HasSubstr("fly")));
  EXPECT_THAT(errorOf([this] { sut.subscribeToEvent("A", "Listener", "tooShort"); }),
              IsError("GKMemory", "subscribeToEvent", HasSubstr("tooShort")));
}

TEST_F(SubscriptionTest, OwnerThatIsAnExtractorIsSubscribedOnceAndLeftWithTheLastEvent) {
  sut.declareEvent("A", "Extractor", kModule);
  sut.declareEvent("B", "Extractor", kModule);

  sut.subscribeToEvent("A", "Listener", "onEvent");
  EXPECT_THAT(extractor->calls, ElementsAre("subscribe Listener"));
  sut.subscribeToEvent("B", "Listener", "onEvent");
  sut.subscribeToEvent("A", "Listener", "onOther");
  sut.unsubscribeToEvent("A", "Listener");
  EXPECT_THAT(extractor->calls, ElementsAre("subscribe Listener"));

  sut.unsubscribeToEvent("B", "Listener");
  EXPECT_THAT(extractor->calls, ElementsAre("subscribe Listener", "unsubscribe Listener"));

  sut.subscribeToEvent("B", "Listener", "onEvent");
  EXPECT_THAT(extractor->calls,
              ElementsAre("subscribe Listener", "unsubscribe Listener", "subscribe Listener"));
}

TEST_F(SubscriptionTest, WhoSubscribedBeforeTheDeclarationIsSubscribedToTheExtractorByIt) {
  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.subscribeToEvent("B", "Listener", "onEvent");
  EXPECT_THAT(extractor->calls, IsEmpty());

  sut.declareEvent("A", "Extractor", kModule);
  sut.declareEvent("B", "Extractor", kModule);
  platform.sleep(0);
  EXPECT_THAT(extractor->calls, ElementsAre("subscribe Listener"));

  sut.unsubscribeToEvent("A", "Listener");
  EXPECT_THAT(extractor->calls, ElementsAre("subscribe Listener"));
  sut.unsubscribeToEvent("B", "Listener");
  EXPECT_THAT(extractor->calls, ElementsAre("subscribe Listener", "unsubscribe Listener"));
}

TEST_F(SubscriptionTest, WhoLeftBeforeTheDeclarationIsNotSubscribedByIt) {
  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.unsubscribeToEvent("A", "Listener");
  sut.declareEvent("A", "Extractor", kModule);
  platform.sleep(0);

  sut.subscribeToEvent("B", "Listener", "onEvent");
  sut.declareEvent("B", "Extractor", kModule);
  sut.unsubscribeToEvent("B", "Listener");
  platform.sleep(0);

  EXPECT_THAT(extractor->calls, IsEmpty());
}

TEST_F(SubscriptionTest, RefusalOfTheExtractorAtTheDeclarationIsLoggedAndTriedAgainByTheNext) {
  extractor->refuses = true;
  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.declareEvent("A", "Extractor", kModule);
  platform.sleep(0);
  EXPECT_THAT(platform.recorder->logLines(),
              ElementsAre("2 platform.proxy declareEvent: Extractor.subscribe: "
                          "Extractor::subscribe: not today"));

  extractor->refuses = false;
  sut.subscribeToEvent("A", "Listener", "onEvent");
  EXPECT_THAT(extractor->calls, ElementsAre("subscribe Listener"));
}

TEST_F(SubscriptionTest, ASecondDeclarationMovesSubscribersToTheNewOwner) {
  const boost::shared_ptr<Extractor> second = add<Extractor>("Second");
  sut.declareEvent("A", "Extractor", kModule);
  sut.subscribeToEvent("A", "Listener", "onEvent");

  sut.declareEvent("A", "Second", kModule);
  platform.sleep(0);
  EXPECT_THAT(extractor->calls, ElementsAre("subscribe Listener", "unsubscribe Listener"));
  EXPECT_THAT(second->calls, ElementsAre("subscribe Listener"));

  sut.unsubscribeToEvent("A", "Listener");
  EXPECT_THAT(second->calls, ElementsAre("subscribe Listener", "unsubscribe Listener"));
  EXPECT_EQ(extractor->calls.size(), 2U);
}

/// An extractor that declares its event first of all, and takes its time to get ready.
class LateExtractor : public Extractor {
public:
  explicit LateExtractor(const boost::shared_ptr<GKBroker>& broker) : Extractor(broker, "Late") {}

  void init() override {
    GKMemoryProxy(getParentBroker()->getProxy("GKMemory", 0)).declareEvent("A", getName());
    onDeclared();
    zu::os::msleep(10);
    calls.push_back("ready");
  }

  /// What happens elsewhere meanwhile.
  static inline std::function<void()> onDeclared = [] {};
};

TEST_F(SubscriptionTest, AnExtractorIsLeftInPeaceUntilItIsInitialised) {
  sut.subscribeToEvent("A", "Listener", "onEvent");
  add<Listener>("Other");
  LateExtractor::onDeclared = [this] { sut.subscribeToEvent("A", "Other", "onEvent"); };

  const auto late = GKModule::createModule<LateExtractor>(platform.broker());
  platform.sleep(0);

  EXPECT_THAT(late->calls, ElementsAre("ready", "subscribe Listener", "subscribe Other"));
}

TEST_F(SubscriptionTest, AnExtractorThatCannotBeInitialisedIsNotSubscribed) {
  sut.subscribeToEvent("A", "Listener", "onEvent");
  LateExtractor::onDeclared = [] { throw GKError("Late", "init", "no"); };

  EXPECT_THROW(GKModule::createModule<LateExtractor>(platform.broker()), GKError);
  platform.sleep(0);

  const auto late =
      boost::dynamic_pointer_cast<LateExtractor>(platform.broker()->findModule("Late"));
  EXPECT_THAT(late->calls, IsEmpty());
  EXPECT_FALSE(late->isInitialising());
}

TEST_F(SubscriptionTest, EachModuleIsSubscribedToTheExtractorByItself) {
  add<Listener>("Other");
  sut.declareEvent("A", "Extractor", kModule);

  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.subscribeToEvent("A", "Other", "onEvent");
  sut.unsubscribeToEvent("A", "Listener");

  EXPECT_THAT(extractor->calls,
              ElementsAre("subscribe Listener", "subscribe Other", "unsubscribe Listener"));
}

TEST_F(SubscriptionTest, EachExtractorIsSubscribedByItself) {
  const boost::shared_ptr<Extractor> second = add<Extractor>("Second");
  sut.declareEvent("A", "Extractor", kModule);
  sut.declareEvent("B", "Second", kModule);

  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.subscribeToEvent("B", "Listener", "onEvent");
  sut.unsubscribeToEvent("A", "Listener");

  EXPECT_THAT(extractor->calls, ElementsAre("subscribe Listener", "unsubscribe Listener"));
  EXPECT_THAT(second->calls, ElementsAre("subscribe Listener"));
}

TEST_F(SubscriptionTest, OwnerThatIsNoExtractorOrNotThereIsLeftAlone) {
  sut.declareEvent("A", "Listener", kModule);
  sut.declareEvent("B", "Ghost", kModule);

  sut.subscribeToEvent("A", "Listener", "onEvent");
  sut.subscribeToEvent("B", "Listener", "onEvent");
  sut.unsubscribeToEvent("A", "Listener");
  sut.unsubscribeToEvent("B", "Listener");

  EXPECT_THAT(extractor->calls, IsEmpty());
}

TEST_F(SubscriptionTest, RefusalOfTheExtractorLeavesNothingChanged) {
  sut.declareEvent("A", "Extractor", kModule);
  extractor->refuses = true;

  EXPECT_THAT(errorOf([this] { sut.subscribeToEvent("A", "Listener", "onEvent"); }),
              IsError("Extractor", "subscribe", "not today"));

  raise("A", 1);
  platform.sleep(0);
  EXPECT_THAT(listener->delivered, IsEmpty());
  EXPECT_THROW(sut.unsubscribeToEvent("A", "Listener"), GKError);

  extractor->refuses = false;
  sut.subscribeToEvent("A", "Listener", "onEvent");
  EXPECT_THAT(extractor->calls, ElementsAre("subscribe Listener"));
}

TEST_F(SubscriptionTest, SubscribesThroughBoundFormAndProxy) {
  sut.callMethod("subscribeToEvent", {"A", "Listener", "onEvent"});
  raise("A", 1);
  platform.sleep(0);
  sut.callMethod("unsubscribeToEvent", {"A", "Listener"});
  GKMemoryProxy proxy(platform.broker()->getProxy("GKMemory", 0));
  proxy.subscribeToEvent("B", "Listener", "onEvent");
  raise("B", 2);
  platform.sleep(0);
  proxy.unsubscribeToEvent("B", "Listener");
  raise("A", 3);
  raise("B", 4);
  platform.sleep(0);

  EXPECT_THAT(listener->delivered, ElementsAre("A 1 at 0", "B 2 at 0"));
}

TEST_F(SubscriptionTest, ADeliveryUnderWayEndsBeforeTheModuleIsReleasedAndTheRestIsDropped) {
  listener->after = [](int) { zu::os::msleep(10); };
  sut.subscribeToEvent("A", "Listener", "onEvent");
  raise("A", 1);
  raise("A", 2);
  platform.sleep(0);

  platform.broker()->shutdown();

  EXPECT_THAT(listener->delivered, ElementsAre("A 1 at 0"));
  EXPECT_EQ(GKClock::instance().elapsed(), 10'000);
}

} // namespace
} // namespace GK
