#include "gk/GKMemory.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"
#include "gk/GKTurns.h"
#include "support/PlatformFixture.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <latch>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace GK {
namespace {

using test::errorOf;
using test::IsError;
using test::kModule;
using test::TestPlatform;

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
  void onOther(const std::string& event, const GKValue&) { delivered.push_back("other " + event); }
  void tooShort(const std::string&) {}

  std::vector<std::string> delivered;
  /// What the callback does once it has noted its call.
  std::function<void(int)> after = [](int) {};
};

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

/// The memory service on the real clock, in which threads meet.
class SubscriptionInRealTime : public testing::Test {
protected:
  /// No callback runs any more: what they use may go.
  void end() {
    broker->shutdown();
    GKClock::install(nullptr);
  }

  boost::shared_ptr<Listener> add(const std::string& name) {
    const auto module = boost::make_shared<Listener>(broker, name);
    module->initModule();
    return module;
  }
  void raise(const std::string& event, int value) { sut->raiseEvent(event, value, kModule); }

  boost::shared_ptr<GKBroker> broker = [] {
    GKClock::install(nullptr);
    return boost::make_shared<GKBroker>("real", nullptr);
  }();
  boost::shared_ptr<GKMemory> sut = [this] {
    const auto memory = boost::make_shared<GKMemory>(broker, std::make_shared<GKMemoryStore>());
    memory->initModule();
    return memory;
  }();
};

/// Expects that `seen` has all values of each thread, in the order in which it raised them.
void expectOrderOfEachThread(const std::vector<int>& seen, int threads, int raises) {
  for (int thread = 0; thread < threads; ++thread) {
    std::vector<int> own;
    for (const int value : seen) {
      if (value / raises == thread) {
        own.push_back(value % raises);
      }
    }
    EXPECT_EQ(own.size(), static_cast<std::size_t>(raises));
    EXPECT_TRUE(std::is_sorted(own.begin(), own.end()));
  }
}

TEST_F(SubscriptionInRealTime, ManyThreadsRaiseAndEachSubscriberSeesTheirOrder) {
  constexpr int kThreads = 4;
  constexpr int kRaises = 500;
  const boost::shared_ptr<Listener> first = add("First");
  const boost::shared_ptr<Listener> second = add("Second");
  std::latch all(2 * kThreads * kRaises);
  std::vector<int> seenByFirst;
  std::vector<int> seenBySecond;
  first->after = [&](int value) {
    seenByFirst.push_back(value);
    all.count_down();
  };
  second->after = [&](int value) {
    seenBySecond.push_back(value);
    all.count_down();
  };
  sut->subscribeToEvent("A", "First", "onEvent");
  sut->subscribeToEvent("A", "Second", "onEvent");

  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] {
        for (int i = 0; i < kRaises; ++i) {
          raise("A", thread * kRaises + i);
        }
      });
    }
  }
  all.wait();
  end();

  // One event's raises have one order, the same for all, and each thread's own order within it.
  EXPECT_EQ(seenByFirst, seenBySecond);
  expectOrderOfEachThread(seenByFirst, kThreads, kRaises);
}

TEST_F(SubscriptionInRealTime, EachThreadRaisesAnEventOfItsOwnAndTheSubscriberSeesTheirOrder) {
  constexpr int kThreads = 4;
  constexpr int kRaises = 500;
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::latch all(kThreads * kRaises);
  std::vector<int> seen;
  listener->after = [&](int value) {
    seen.push_back(value);
    all.count_down();
  };
  for (int thread = 0; thread < kThreads; ++thread) {
    sut->subscribeToEvent("Event" + std::to_string(thread), "Listener", "onEvent");
  }

  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] {
        for (int i = 0; i < kRaises; ++i) {
          raise("Event" + std::to_string(thread), thread * kRaises + i);
        }
      });
    }
  }
  all.wait();
  end();

  expectOrderOfEachThread(seen, kThreads, kRaises);
}

TEST_F(SubscriptionInRealTime, AnyNumberOfEventsMayBeOnTheirWay) {
  constexpr int kRaises = 10000;
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::latch mayGoOn(1);
  std::latch all(kRaises);
  std::vector<int> seen;
  listener->after = [&](int value) {
    mayGoOn.wait();
    seen.push_back(value);
    all.count_down();
  };
  sut->subscribeToEvent("A", "Listener", "onEvent");

  std::vector<int> raised;
  for (int value = 0; value < kRaises; ++value) {
    raise("A", value);
    raised.push_back(value);
  }
  mayGoOn.count_down();
  all.wait();
  end();

  EXPECT_EQ(seen, raised);
}

TEST_F(SubscriptionInRealTime, NothingIsHandedOverOnceUnsubscribingHasReturned) {
  constexpr int kRounds = 200;
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::atomic<bool> isSubscribed = false;
  std::atomic<int> strays = 0;
  listener->after = [&](int) { strays += isSubscribed ? 0 : 1; };
  std::atomic<bool> isDone = false;
  std::jthread raiser([&] {
    while (!isDone) {
      raise("A", 1);
    }
  });

  for (int round = 0; round < kRounds; ++round) {
    isSubscribed = true;
    sut->subscribeToEvent("A", "Listener", "onEvent");
    raise("A", 2);
    sut->unsubscribeToEvent("A", "Listener");
    isSubscribed = false;
  }
  isDone = true;
  raiser.join();
  end();

  EXPECT_EQ(strays, 0);
}

TEST_F(SubscriptionInRealTime, UnsubscribingReturnsHoweverManyOtherEventsAreOnTheirWay) {
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::latch areUnderWay(1);
  std::latch goOn(1);
  std::atomic<bool> hasReturned = false;
  listener->after = [&](int value) {
    if (value == 1) {
      areUnderWay.count_down();
    }
    if (hasReturned) {
      goOn.count_down();
    } else {
      raise("B", value + 1);
    }
  };
  sut->subscribeToEvent("A", "Listener", "onEvent");
  sut->subscribeToEvent("B", "Listener", "onEvent");
  raise("B", 1);
  areUnderWay.wait();

  sut->unsubscribeToEvent("A", "Listener");
  hasReturned = true;
  goOn.wait();
  end();

  EXPECT_GT(listener->delivered.size(), 1U);
}

/// Returns when the thread waits for something.
void awaitItsWait(pid_t thread) {
  std::string line;
  do {
    std::this_thread::yield();
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::getline(file, line);
  } while (line.find(") S ") == std::string::npos);
}

TEST_F(SubscriptionInRealTime, WhoeverHandsOverMaySleepBetweenEvents) {
  constexpr int kRaises = 20;
  const boost::shared_ptr<Listener> listener = add("Listener");
  std::atomic<pid_t> thread = 0;
  std::vector<int> seen;
  std::binary_semaphore isSeen(0);
  listener->after = [&](int value) {
    seen.push_back(value);
    thread = gettid();
    isSeen.release();
  };
  sut->subscribeToEvent("A", "Listener", "onEvent");

  std::vector<int> raised;
  for (int value = 0; value < kRaises; ++value) {
    raise("A", value);
    raised.push_back(value);
    isSeen.acquire();
    awaitItsWait(thread);
  }
  end();

  EXPECT_EQ(seen, raised);
}

/// Counts turns that had to be taken from somebody, and lets a raise be waited for.
class Watcher : public GKTurnObserver, public GKObserver {
public:
  void onTurn(const GKTurn&) override {}
  void onTask(std::uint64_t, const GKTask&) override {}
  void onOverlap() override { ++overlaps; }
  void onNotice(const GKNotice& notice) override {
    if (notice.name == "A" && notice.value == GKValue(1)) {
      isRaising.count_down();
    }
  }

  std::latch isRaising{1};
  std::atomic<int> overlaps{0};
};

TEST(SubscriptionWithTurns, ARaiseWithoutATurnAndOneWithItDoNotWaitForEachOther) {
  const auto watcher = std::make_shared<Watcher>();
  const boost::shared_ptr<GKObserver> observer(watcher.get(), [watcher](GKObserver*) {});
  const std::shared_ptr<GKClock> clock = makeTurnClock(watcher, std::chrono::seconds(3));
  GKClock::install(clock);
  GKObserverList::instance().add(observer);
  const auto broker = boost::make_shared<GKBroker>("turns", nullptr);
  const auto sut = boost::make_shared<GKMemory>(broker, std::make_shared<GKMemoryStore>());
  sut->initModule();
  const auto listener = boost::make_shared<Listener>(broker, "Listener");
  listener->initModule();
  sut->subscribeToEvent("A", "Listener", "onEvent");

  std::latch mayRaise{1};
  std::latch bothDelivered{2};
  listener->after = [&bothDelivered](int) { bothDelivered.count_down(); };
  std::thread outside([&] {
    mayRaise.wait();
    sut->raiseEvent("A", 1, kModule);
    bothDelivered.wait();
    clock->requestEnd();
  });
  clock->post({"module", "method"}, [&] {
    mayRaise.count_down();
    // The thread is in its raise now, and needs the turn to start the delivery.
    watcher->isRaising.wait();
    sut->raiseEvent("A", 2, kModule);
  });
  clock->run(nullptr, std::nullopt);
  outside.join();
  broker->shutdown();
  GKObserverList::instance().remove(observer);
  GKClock::install(nullptr);

  EXPECT_EQ(watcher->overlaps, 0);
  EXPECT_THAT(listener->delivered,
              ElementsAre(testing::StartsWith("A 1 at"), testing::StartsWith("A 2 at")));
}

} // namespace
} // namespace GK
