#include "gk/GKExtractor.h"
#include "gk/GKProxy.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <sstream>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace GK {
namespace {

/// An extractor that writes down which hooks are called.
class Probe : public GKExtractor {
public:
  explicit Probe(boost::shared_ptr<GKBroker> broker) : GKExtractor(broker, "Probe") {}

  std::vector<std::string> calls;
  std::function<void()> onStart = [] {};
  std::function<void()> onStop = [] {};

private:
  void xStartDetection(int period, float precision) override {
    calls.push_back(text("start", period, precision));
    onStart();
  }
  void xUpdateParameters(int period, float precision) override {
    calls.push_back(text("update", period, precision));
  }
  void xStopDetection() override {
    calls.emplace_back("stop");
    onStop();
  }

  static std::string text(const char* hook, int period, float precision) {
    std::ostringstream line;
    line << hook << " " << period << " " << precision;
    return line.str();
  }
};

struct GKExtractorTest : testing::Test {
  test::TestPlatform platform;
  boost::shared_ptr<Probe> sut = GKModule::createModule<Probe>(platform.broker());

  GKValue entry(const char* name, int period, float precision) {
    return GKValue(GKValue::Array{name, period, precision});
  }
};

void expectError(const std::function<void()>& action, const std::string& module,
                 const std::string& method, const std::string& description) {
  try {
    action();
    ADD_FAILURE() << "no GKError";
  } catch (const GKError& error) {
    EXPECT_EQ(error.getModule(), module);
    EXPECT_EQ(error.getMethod(), method);
    EXPECT_EQ(error.getDescription(), description);
  }
}

TEST_F(GKExtractorTest, FirstSubscriberStartsDetectionWithoutAnyLogLine) {
  sut->subscribe("A", 30, 0.5f);
  EXPECT_THAT(sut->calls, ElementsAre("start 30 0.5"));
  EXPECT_EQ(sut->getCurrentPeriod(), 30);
  EXPECT_EQ(sut->getCurrentPrecision(), 0.5f);
  EXPECT_THAT(platform.recorder->logLines(), IsEmpty());
}

TEST_F(GKExtractorTest, PeriodBelowOneBecomesOneWithAWarning) {
  sut->subscribe("A", 0, 0.5f);
  EXPECT_THAT(sut->calls, ElementsAre("start 1 0.5"));
  EXPECT_EQ(sut->getCurrentPeriod(), 1);
  EXPECT_EQ(sut->getCurrentPrecision(), 0.5f);
  EXPECT_THAT(platform.recorder->logLines(),
              ElementsAre("3 core.extractor subscribe: Probe requested period is too small; "
                          "subscribe with period = 1 ms."));
}

TEST_F(GKExtractorTest, NegativePeriodBecomesOneAndPeriodOneIsTaken) {
  sut->subscribe("A", -7, 0.0f);
  EXPECT_EQ(sut->getMyPeriod("A"), 1);
  platform.recorder->clear();
  sut->unsubscribe("A");
  sut->subscribe("A", 1, 0.0f);
  EXPECT_EQ(sut->getMyPeriod("A"), 1);
  EXPECT_THAT(platform.recorder->logLines(),
              ElementsAre("4 core.extractor unsubscribe: Probe received unsubscribe from A"));
}

TEST_F(GKExtractorTest, FurtherSubscriberUpdatesToSmallestPeriodAndLargestPrecision) {
  sut->subscribe("A", 30, 0.5f);
  sut->subscribe("B", 100, 0.1f);
  EXPECT_THAT(sut->calls, ElementsAre("start 30 0.5", "update 30 0.5"));
  EXPECT_EQ(sut->getCurrentPeriod(), 30);
  EXPECT_EQ(sut->getCurrentPrecision(), 0.5f);
  sut->subscribe("C", 10, 0.75f);
  EXPECT_EQ(sut->getCurrentPeriod(), 10);
  EXPECT_EQ(sut->getCurrentPrecision(), 0.75f);
  EXPECT_THAT(platform.recorder->logLines(),
              ElementsAre("4 core.extractor subscribe: Probe received subscribe from B",
                          "4 core.extractor subscribe: Probe received subscribe from C"));
}

TEST_F(GKExtractorTest, RepeatedSubscriptionWarnsAndUpdates) {
  sut->subscribe("A", 30, 0.5f);
  sut->subscribe("A", 60, 0.25f);
  EXPECT_THAT(sut->calls, ElementsAre("start 30 0.5", "update 60 0.25"));
  EXPECT_THAT(platform.recorder->logLines(),
              ElementsAre("3 core.extractor subscribe: Probe the module is already subscribed: "
                          "will just update the parameters.",
                          "4 core.extractor subscribe: Probe received subscribe from A"));
}

TEST_F(GKExtractorTest, SubscriptionByNameTakesTheDefaults) {
  sut->subscribe("A");
  EXPECT_THAT(sut->calls, ElementsAre("start 30 0"));
  EXPECT_EQ(sut->getMyPeriod("A"), 30);
  EXPECT_EQ(sut->getMyPrecision("A"), 0.0f);
}

TEST_F(GKExtractorTest, FailedStartLeavesNobodySubscribed) {
  sut->onStart = [] { throw GKError("Probe", "xStartDetection", "no"); };
  expectError([&] { sut->subscribe("A", 30, 0.5f); }, "Probe", "xStartDetection", "no");
  EXPECT_EQ(sut->getSubscribersInfo().size(), 0u);
  EXPECT_EQ(sut->getCurrentPeriod(), -1);
  EXPECT_EQ(sut->getCurrentPrecision(), -1.0f);

  sut->onStart = [] {};
  sut->subscribe("A", 30, 0.5f);
  EXPECT_THAT(sut->calls, ElementsAre("start 30 0.5", "start 30 0.5"));
}

TEST_F(GKExtractorTest, LastSubscriberToLeaveStopsDetection) {
  sut->subscribe("A", 30, 0.5f);
  sut->subscribe("B", 100, 0.1f);
  sut->calls.clear();
  sut->unsubscribe("A");
  EXPECT_THAT(sut->calls, ElementsAre("update 100 0.1"));
  sut->calls.clear();
  platform.recorder->clear();
  sut->unsubscribe("B");
  EXPECT_THAT(sut->calls, ElementsAre("stop"));
  EXPECT_EQ(sut->getCurrentPeriod(), -1);
  EXPECT_EQ(sut->getCurrentPrecision(), -1.0f);
  EXPECT_THAT(platform.recorder->logLines(),
              ElementsAre("4 core.extractor unsubscribe: Probe received unsubscribe from B"));
}

TEST_F(GKExtractorTest, FailedStopKeepsTheEntryAwayAndTheCurrentValues) {
  sut->subscribe("A", 30, 0.5f);
  sut->onStop = [] { throw GKError("Probe", "xStopDetection", "no"); };
  expectError([&] { sut->unsubscribe("A"); }, "Probe", "xStopDetection", "no");
  EXPECT_EQ(sut->getSubscribersInfo().size(), 0u);
  EXPECT_EQ(sut->getCurrentPeriod(), 30);
  EXPECT_THAT(platform.recorder->logLines(), IsEmpty());
}

TEST_F(GKExtractorTest, UnsubscribingAnUnknownNameWarnsAndFails) {
  sut->subscribe("A", 30, 0.5f);
  expectError([&] { sut->unsubscribe("X"); }, "GKExtractor",
              "received unsubscribe from non-subscribed module: ", "X");
  EXPECT_THAT(
      platform.recorder->logLines(),
      ElementsAre("3 core.extractor unsubscribe: Probe received unsubscribe from non-subscribed "
                  "module X"));
  EXPECT_EQ(sut->getSubscribersInfo(), GKValue(GKValue::Array{entry("A", 30, 0.5f)}));
  EXPECT_THAT(sut->calls, ElementsAre("start 30 0.5"));
}

TEST_F(GKExtractorTest, UpdatedPeriodHasNoLowerBound) {
  sut->subscribe("A", 30, 0.5f);
  sut->updatePeriod("A", -5);
  EXPECT_EQ(sut->getMyPeriod("A"), -5);
  EXPECT_THAT(sut->calls, ElementsAre("start 30 0.5", "update -5 0.5"));
}

TEST_F(GKExtractorTest, UpdatedPrecisionReachesTheHookEvenWhenTheMaximumStays) {
  sut->subscribe("A", 30, 0.5f);
  sut->subscribe("B", 40, 0.25f);
  sut->calls.clear();
  sut->updatePrecision("B", 0.125f);
  EXPECT_EQ(sut->getMyPrecision("B"), 0.125f);
  EXPECT_EQ(sut->getMyPeriod("B"), 40);
  EXPECT_THAT(sut->calls, ElementsAre("update 30 0.5"));
}

TEST_F(GKExtractorTest, UpdatingAnUnknownNameFailsAndChangesNothing) {
  sut->subscribe("A", 30, 0.5f);
  expectError([&] { sut->updatePeriod("X", 1); }, "GKExtractor",
              "updateParam: unknown module name: ", "X");
  expectError([&] { sut->updatePrecision("X", 1.0f); }, "GKExtractor",
              "updateParam: unknown module name: ", "X");
  EXPECT_EQ(sut->getSubscribersInfo(), GKValue(GKValue::Array{entry("A", 30, 0.5f)}));
  EXPECT_THAT(sut->calls, ElementsAre("start 30 0.5"));
}

TEST_F(GKExtractorTest, AskingForAnUnknownNameMakesItASubscriber) {
  EXPECT_EQ(sut->getMyPeriod("X"), -1);
  EXPECT_EQ(sut->getSubscribersInfo(), GKValue(GKValue::Array{entry("X", -1, -1.0f)}));
  EXPECT_THAT(sut->calls, IsEmpty());

  sut->subscribe("A", 50, 0.0f);
  EXPECT_THAT(sut->calls, ElementsAre("update -1 0"));
  EXPECT_EQ(sut->getCurrentPeriod(), -1);

  sut->unsubscribe("A");
  EXPECT_THAT(sut->calls, ElementsAre("update -1 0", "update -1 -1"));
  sut->unsubscribe("X");
  EXPECT_EQ(sut->calls.back(), "stop");
}

TEST_F(GKExtractorTest, AskingForAnUnknownPrecisionMakesItASubscriber) {
  EXPECT_EQ(sut->getMyPrecision("X"), -1.0f);
  EXPECT_EQ(sut->getSubscribersInfo().size(), 1u);
}

TEST_F(GKExtractorTest, PrecisionThatIsNotANumberOnlyWinsInFirstPlace) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  sut->subscribe("A", 30, 0.5f);
  sut->subscribe("B", 30, nan);
  EXPECT_EQ(sut->getCurrentPrecision(), 0.5f);
  sut->updatePrecision("A", nan);
  sut->updatePrecision("B", 0.5f);
  EXPECT_TRUE(std::isnan(sut->getCurrentPrecision()));
}

TEST_F(GKExtractorTest, SubscribersInfoIsSortedByName) {
  EXPECT_EQ(sut->getSubscribersInfo(), GKValue(GKValue::Array{}));
  sut->subscribe("B", 100, 0.1f);
  sut->subscribe("a", 5, 0.0f);
  sut->subscribe("A", 30, 0.5f);
  EXPECT_EQ(
      sut->getSubscribersInfo(),
      GKValue(GKValue::Array{entry("A", 30, 0.5f), entry("B", 100, 0.1f), entry("a", 5, 0.0f)}));
}

TEST_F(GKExtractorTest, OutputNamesAreTheDeclaredEventsOfTheModule) {
  EXPECT_THAT(sut->getOutputNames(), IsEmpty());
  platform.memory().declareEvent("Second", "Probe", GKCaller::Module);
  platform.memory().declareEvent("Other", "Somebody", GKCaller::Module);
  platform.memory().declareEvent("First", "Probe", GKCaller::Module);
  EXPECT_THAT(sut->getOutputNames(), ElementsAre("Second", "First"));
}

TEST_F(GKExtractorTest, StatusPageOfAnIdleExtractor) {
  EXPECT_EQ(sut->httpGet(), "<html><body><h3>Subscribed Modules<h3>None<br />"
                            "<h3>Events generated by extractor.<h3><h6></h6></body></html>");
}

TEST_F(GKExtractorTest, StatusPageListsSubscribersAndEvents) {
  platform.memory().declareEvent("Second", "Probe", GKCaller::Module);
  platform.memory().declareEvent("First", "Probe", GKCaller::Module);
  sut->subscribe("B", 1000000, 0.1f);
  sut->subscribe("A", 30, 0.5f);
  // 0.1f is 0.100000001490116..., which has six significant digits as 0.1.
  EXPECT_EQ(sut->httpGet(), "<html><body><h3>Subscribed Modules<h3>"
                            "<table id=\"subscribersdetails\" class=\"memory\">"
                            "<tr><th>Name</th><th>parameters</th></tr>\n"
                            "\n<tr><th align=\"left\">A</th><td>\n30 0.5</td></tr>\n"
                            "\n<tr><th align=\"left\">B</th><td>\n1000000 0.1</td></tr>\n"
                            "</table>"
                            "<h3>Events generated by extractor.<h3>"
                            "<h6>Second<br />First<br /></h6></body></html>");
}

TEST_F(GKExtractorTest, StatusPageDoesNotWaitForAHookThatSleeps) {
  sut->onStart = [] { zu::os::msleep(1000); };
  platform.broker()->getProxy("Probe", 0)->postCall("subscribe", std::string("A"));
  platform.sleep(500);
  const GKMicros before = GKClock::instance().elapsed();
  // The subscription is still starting: its subscriber is not there yet.
  EXPECT_THAT(sut->httpGet(), testing::HasSubstr("None<br />"));
  EXPECT_EQ(sut->getSubscribersInfo().size(), 0u);
  EXPECT_EQ(GKClock::instance().elapsed(), before);
  // A query that takes the lock waits for the hook.
  EXPECT_EQ(sut->getCurrentPeriod(), 30);
  EXPECT_EQ(GKClock::instance().elapsed(), 1000000);
}

TEST_F(GKExtractorTest, SubscribersMayBeListedWhileOthersComeAndGo) {
  sut->subscribe("always", 30, 0.5f);
  std::thread changer([&] {
    for (int i = 0; i < 200; ++i) {
      sut->subscribe("sometimes", 40, 0.5f);
      sut->unsubscribe("sometimes");
    }
  });
  std::size_t smallest = 2;
  std::size_t largest = 1;
  for (int i = 0; i < 200; ++i) {
    const std::size_t size = sut->getSubscribersInfo().size();
    smallest = std::min(smallest, size);
    largest = std::max(largest, size);
  }
  changer.join();
  EXPECT_GE(smallest, 1u);
  EXPECT_LE(largest, 2u);
}

TEST_F(GKExtractorTest, RemoteCallsReachBothFormsOfSubscribe) {
  const auto proxy = platform.broker()->getProxy("Probe", 0);
  proxy->callVoid("subscribe", std::string("A"));
  proxy->callVoid("subscribe", std::string("B"), 40, 0.5f);
  EXPECT_EQ(sut->getSubscribersInfo(),
            GKValue(GKValue::Array{entry("A", 30, 0.0f), entry("B", 40, 0.5f)}));
  // A float parameter takes an int, an int parameter takes no float.
  proxy->callVoid("updatePrecision", std::string("B"), 2);
  EXPECT_EQ(sut->getMyPrecision("B"), 2.0f);
  expectError([&] { proxy->callVoid("updatePeriod", std::string("B"), 50.0f); },
              "convertFromGKValue", "convertFromGKValue", "Parameter type is float instead of int");
  EXPECT_EQ(sut->getMyPeriod("B"), 40);
}

TEST_F(GKExtractorTest, BindsItsMethodsInOrderUnderItsOwnClassName) {
  std::vector<std::string> names;
  for (const GKMethodDescription& method : sut->getMethods()) {
    names.push_back(method.name);
    EXPECT_EQ(method.module, "GKExtractor");
  }
  EXPECT_THAT(names,
              ElementsAre("subscribe", "subscribe", "unsubscribe", "updatePeriod",
                          "updatePrecision", "getCurrentPeriod", "getCurrentPrecision",
                          "getMyPeriod", "getMyPrecision", "getSubscribersInfo", "getOutputNames"));
}

TEST_F(GKExtractorTest, ResultsHaveTheirNamesAndTexts) {
  std::vector<std::string> results;
  for (const GKMethodDescription& method : sut->getMethods()) {
    if (!method.result.name.empty()) {
      results.push_back(method.name + ": " + method.result.type + " " + method.result.name + ", " +
                        method.result.description);
    }
  }
  EXPECT_THAT(
      results,
      ElementsAre("getCurrentPeriod: int period, Refresh period (in milliseconds).",
                  "getCurrentPrecision: float precision, Precision of the extractor.",
                  "getMyPeriod: int period, Refresh period (in milliseconds).",
                  "getMyPrecision: float precision, precision of the extractor",
                  "getSubscribersInfo: value subscribersInfo, Array of names and parameters of all "
                  "subscribers.",
                  "getOutputNames: vector of string outputNames, Array of values updated by this "
                  "extractor in GKMemory"));
}

TEST_F(GKExtractorTest, TextsOfMyPrecisionAreLowerCase) {
  const GKMethodDescription method = sut->getMethods()[8];
  ASSERT_EQ(method.params.size(), 1u);
  EXPECT_EQ(method.description, "Gets the precision for a specific subscription.");
  EXPECT_EQ(method.params[0].name, "name");
  EXPECT_EQ(method.params[0].description, "name of the module which has subscribed");
  EXPECT_EQ(method.result.name, "precision");
  EXPECT_EQ(method.result.description, "precision of the extractor");
}

TEST(GKExtractor, StatusPageNeedsTheMemoryService) {
  test::TestPlatform platform(test::TestPlatform::kNoServices);
  const auto sut = GKModule::createModule<Probe>(platform.broker());
  EXPECT_THROW(sut->httpGet(), GKError);
  EXPECT_THROW(sut->getOutputNames(), GKError);
}

} // namespace
} // namespace GK
