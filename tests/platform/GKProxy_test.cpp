#include "gk/GKBroker.h"
#include "gk/GKMutex.h"
#include "gk/GKProxy.h"
#include "support/PlatformFixture.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <latch>
#include <stdexcept>
#include <string_view>
#include <type_traits>

using testing::ElementsAre;
using testing::IsEmpty;

namespace GK {
namespace {

using test::errorOf;
using test::IsError;
using test::IsRefusal;
using test::TestPlatform;

/// A module that does what the test asks for.
class Server : public GKModule {
public:
  explicit Server(boost::shared_ptr<GKBroker> broker) : GKModule(broker, "Server") {
    functionName("join", "Server", "");
    addParam("text", "");
    addParam("number", "");
    setReturn("joined", "");
    bindMethod(&Server::join, this);

    functionName("names", "Server", "");
    setReturn("names", "");
    bindMethod(&Server::names, this);

    functionName("work", "Server", "");
    addParam("number", "");
    bindMethod(&Server::work, this);

    functionName("mix", "Server", "");
    addParam("factor", "");
    addParam("count", "");
    setReturn("product", "");
    bindMethod(&Server::mix, this);
  }

  std::string join(const std::string& text, const int& number) {
    return text + std::to_string(number);
  }
  std::vector<std::string> names() { return {"a", "b"}; }
  void work(const int& number) { onWork(number); }
  double mix(const double& factor, const unsigned int& count) { return factor * count; }
  void stop(const int& task) override { stopped.push_back(task); }

  std::vector<int> stopped;

  std::function<void(int)> onWork = [](int) {};
};

class ProxyTest : public testing::Test {
protected:
  TestPlatform platform{TestPlatform::kNoServices};
  boost::shared_ptr<Server> server = GKModule::createModule<Server>(platform.broker());
  boost::shared_ptr<GKProxy> sut = platform.broker()->getProxy("Server", 0);
};

TEST_F(ProxyTest, CallConvertsArgumentsAndResult) {
  EXPECT_EQ(sut->call<std::string>("join", "x", 7), "x7");
  EXPECT_EQ(sut->call<GKValue>("join", std::string("x"), GKValue(7)), GKValue("x7"));
  EXPECT_THAT(sut->call<std::vector<std::string>>("names"), ElementsAre("a", "b"));
}

TEST_F(ProxyTest, NumbersAndTextsOfOtherTypesTravelToo) {
  EXPECT_EQ(sut->call<double>("mix", 0.5, 3U), 1.5);
  EXPECT_EQ(sut->call<std::string>("join", std::string_view("x"), 7U), "x7");
}

TEST_F(ProxyTest, AnUnsignedNumberTravelsOnlyAsFarAsAnIntGoes) {
  constexpr unsigned int kLargest = 2147483647;
  EXPECT_EQ(sut->call<double>("mix", 1.0, kLargest), 2147483648.0); // as the nearest float
  EXPECT_THAT(
      errorOf([this] { sut->call<double>("mix", 1.0, kLargest + 1); }),
      IsError("convertToGKValue", "convertToGKValue", "2147483648 is more than an int can hold"));
  EXPECT_THAT(errorOf([this] { sut->call<double>("mix", 1.0, -1); }),
              IsError("convertFromGKValue", "convertFromGKValue", "-1 is negative"));
}

static_assert(std::is_constructible_v<GKValue, bool>);
static_assert(!std::is_constructible_v<GKValue, void*> && !std::is_constructible_v<GKValue, int*>);
static_assert(!std::is_constructible_v<GKValue, std::nullptr_t>);

TEST_F(ProxyTest, StopReachesTheModuleWithTheTasksNumber) {
  std::vector<int> running;
  server->onWork = [&](int) { running.push_back(GKTask::current()->number); };

  const int first = sut->postCall("work", 1);
  const int second = sut->postCall("work", 2);
  platform.sleep(0);
  sut->stop(second);

  EXPECT_NE(first, 0);
  EXPECT_NE(first, second);
  EXPECT_THAT(running, ElementsAre(first, second));
  EXPECT_THAT(server->stopped, ElementsAre(second));
}

TEST_F(ProxyTest, ResultOfAnotherTypeIsRefused) {
  EXPECT_THAT(errorOf([this] { sut->call<int>("join", "x", 7); }), IsRefusal("string", "int"));
  EXPECT_THAT(errorOf([this] { sut->call<int>("work", 7); }), IsRefusal("invalid", "int"));
}

TEST_F(ProxyTest, CallVoidDropsTheResult) {
  int worked = 0;
  server->onWork = [&](int number) { worked = number; };

  sut->callVoid("join", "x", 7);
  sut->callVoid("work", 3);

  EXPECT_EQ(worked, 3);
}

TEST_F(ProxyTest, CallsRaiseWhatTheMethodRaises) {
  server->onWork = [](int) { throw std::out_of_range("far"); };

  EXPECT_THROW(sut->callVoid("work", 1), std::out_of_range);
  EXPECT_THAT(errorOf([this] { sut->callVoid("work", "x"); }), IsRefusal("string", "int"));
  EXPECT_THAT(errorOf([this] { sut->callVoid("fly"); }),
              IsError("Server", "fly", "no such method"));
  EXPECT_THAT(platform.recorder->logLines(), IsEmpty());
}

TEST_F(ProxyTest, ModuleIsLocalAndKeptAlive) {
  const boost::weak_ptr<Server> module = server;
  EXPECT_TRUE(sut->isLocal());
  EXPECT_EQ(sut->getModule(), server);

  server.reset();
  platform.shutdown();
  EXPECT_FALSE(module.expired());

  sut.reset();
  EXPECT_TRUE(module.expired());
}

TEST_F(ProxyTest, PostedCallRunsLaterInATaskOfItsOwn) {
  std::vector<std::string> tasks;
  server->onWork = [&](int) {
    const GKTask* task = GKTask::current();
    tasks.push_back(task->module + "." + task->method);
  };

  sut->postCall("work", 1);
  EXPECT_THAT(tasks, IsEmpty());
  platform.sleep(0);

  EXPECT_THAT(tasks, ElementsAre("Server.work"));
  EXPECT_EQ(GKTask::current(), nullptr);
}

TEST_F(ProxyTest, ErrorsOfPostedCallsAreLoggedAndNothingDies) {
  std::vector<int> worked;
  server->onWork = [&](int number) {
    switch (number) {
    case 1:
      throw GKError("Server", "work", "tired");
    case 2:
      throw std::out_of_range("far");
    case 3:
      throw 42;
    default:
      worked.push_back(number);
    }
  };

  for (int number = 1; number <= 4; ++number) {
    sut->postCall("work", number);
  }
  sut->postCall("fly");
  sut->postCall("work", "x");
  platform.sleep(0);

  EXPECT_THAT(worked, ElementsAre(4));
  EXPECT_THAT(platform.recorder->logLines(),
              ElementsAre("2 platform.proxy postCall: Server.work: Server::work: tired",
                          "2 platform.proxy postCall: Server.work: far",
                          "2 platform.proxy postCall: Server.work: unknown exception",
                          "2 platform.proxy postCall: Server.fly: Server::fly: no such method",
                          "2 platform.proxy postCall: Server.work: "
                          "convertFromGKValue::convertFromGKValue: "
                          "Parameter type is string instead of int"));
}

TEST_F(ProxyTest, PostedCallStartsWhileManyEarlierOnesSleep) {
  std::vector<GKMicros> starts;
  server->onWork = [&](int) {
    starts.push_back(GKClock::instance().elapsed());
    zu::os::msleep(3600000);
  };

  for (int number = 0; number < 200; ++number) {
    sut->postCall("work", number);
  }
  platform.sleep(1);

  EXPECT_THAT(starts, testing::AllOf(testing::SizeIs(200), testing::Each(0)));
}

TEST_F(ProxyTest, PostedCallKeepsItsModuleUntilItHasRun) {
  const boost::weak_ptr<Server> module = server;
  server->onWork = [&](int) { zu::os::msleep(10); };
  sut->postCall("work", 1);
  platform.sleep(1);

  server.reset();
  sut.reset();
  platform.shutdown();

  EXPECT_TRUE(module.expired());
  EXPECT_EQ(GKClock::instance().elapsed(), 10000);
}

TEST(GKProxyInRealTime, PostedCallsRunSideBySide) {
  constexpr int kCalls = 64;
  GKClock::install(nullptr);
  const auto broker = boost::make_shared<GKBroker>("real", nullptr);
  {
    const auto server = GKModule::createModule<Server>(broker);
    GKProxy sut(server);
    // Nobody gets on before all have come: no call may wait for an earlier one to end.
    std::latch everybody(kCalls + 1);
    server->onWork = [&](int) { everybody.arrive_and_wait(); };

    for (int number = 0; number < kCalls; ++number) {
      sut.postCall("work", number);
    }
    everybody.arrive_and_wait();
    broker->shutdown();
  }
  GKClock::install(nullptr);
}

} // namespace
} // namespace GK
