#include "gk/DCM.h"
#include "gk/DCMProxy.h"
#include "support/PlatformFixture.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

using testing::_;
using testing::IsEmpty;

namespace GK {
namespace {

using test::errorOf;
using test::IsError;
using test::TestPlatform;
using Array = GKValue::Array;
using Kind = GKNotice::Kind;

constexpr const char* kActuator = "US/Actuator/Value";
constexpr const char* kKey = "Device/SubDeviceList/US/Actuator/Value";

GKValue command(GKValue value, GKValue time) {
  return Array{std::move(value), std::move(time)};
}
GKValue order(Array commands) {
  return Array{kActuator, "Merge", GKValue(std::move(commands))};
}

class DCMTest : public testing::Test {
protected:
  void set(const GKValue& value) { sut->set(value, GKCaller::Module); }

  TestPlatform platform;
  boost::shared_ptr<DCM> sut =
      boost::dynamic_pointer_cast<DCM>(platform.broker()->findModule("DCM"));
};

TEST_F(DCMTest, TimeIsMillisecondsSinceTheStartPlusTheOffset) {
  EXPECT_EQ(sut->getTime(0), 0);
  EXPECT_EQ(sut->getTime(-5), -5);

  GKClock::instance().sleep(20999);

  EXPECT_EQ(sut->getTime(0), 20);
  EXPECT_EQ(sut->getTime(10), 30);
}

TEST_F(DCMTest, TimeWrapsInsteadOfOverflowing) {
  platform.sleep(1);

  EXPECT_EQ(sut->getTime(std::numeric_limits<int>::max()), std::numeric_limits<int>::min());
}

TEST_F(DCMTest, ValueIsWrittenToTheActuatorAndTheOrderIsShown) {
  const GKValue sent = order({command(4.0f, 100)});

  set(sent);

  EXPECT_EQ(platform.value(kKey), GKValue(4.0f));
  const std::vector<GKNotice> notices = platform.recorder->all();
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_EQ(notices[0].kind, Kind::Order);
  EXPECT_EQ(notices[0].value, sent);
}

TEST_F(DCMTest, IntValueBecomesAFloat) {
  set(order({command(68, 100)}));

  EXPECT_EQ(platform.value(kKey), GKValue(68.0f));
}

TEST_F(DCMTest, LatestCommandWinsWhereverItStands) {
  set(order({command(1.0f, 100), command(2.0f, 300), command(3.0f, 200)}));

  EXPECT_EQ(platform.value(kKey), GKValue(2.0f));
}

TEST_F(DCMTest, LastOfTheLatestCommandsWins) {
  set(order({command(1.0f, 100), command(2.0f, 100), command(3.0f, 99)}));

  EXPECT_EQ(platform.value(kKey), GKValue(2.0f));
}

TEST_F(DCMTest, NegativeTimesAreTimesToo) {
  set(order({command(1.0f, -10), command(2.0f, -20)}));

  EXPECT_EQ(platform.value(kKey), GKValue(1.0f));
}

TEST_F(DCMTest, OrderOfAWrongShapeIsRefusedAndWritesNothing) {
  const GKValue good(Array{command(1.0f, 100)});
  const std::vector<GKValue> wrong = {
      GKValue(),
      GKValue("order"),
      GKValue(Array{}),
      GKValue(Array{kActuator, "Merge"}),
      GKValue(Array{kActuator, "Merge", good, 1}),
      GKValue(Array{1, "Merge", good}),
      GKValue(Array{kActuator, 1, good}),
      GKValue(Array{kActuator, "Merge", 1.0f}),
      order({}),
      order({GKValue(1.0f)}),
      order({GKValue(Array{1.0f})}),
      order({GKValue(Array{1.0f, 100, 1})}),
      order({command("on", 100)}),
      order({command(true, 100)}),
      order({command(GKValue(), 100)}),
      order({command(1.0f, 100.0f)}),
      order({command(1.0f, GKValue())}),
      order({command(1.0f, 100), command("off", 200)}),
  };
  for (std::size_t i = 0; i < wrong.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_THAT(errorOf([&] { set(wrong[i]); }), IsError("DCM", "set", _));
  }
  EXPECT_EQ(platform.store()->find(kKey), nullptr);
  EXPECT_THAT(platform.recorder->all(), IsEmpty());
}

TEST_F(DCMTest, BoundFormsDoTheSame) {
  EXPECT_EQ(sut->callMethod("getTime", {7}), GKValue(7));

  sut->callMethod("set", {order({command(4.0f, 100)})});

  EXPECT_EQ(platform.value(kKey), GKValue(4.0f));
}

TEST_F(DCMTest, ProxyDoesTheSame) {
  DCMProxy proxy(platform.broker());

  EXPECT_EQ(proxy.getTime(7), 7);
  proxy.set(order({command(4.0f, 100)}));

  EXPECT_EQ(platform.value(kKey), GKValue(4.0f));
}

TEST_F(DCMTest, TheBrokerGivesASpecialisedProxy) {
  const auto proxy = platform.broker()->getSpecialisedProxy<DCMProxy>(DCM::kName);
  EXPECT_EQ(proxy->getTime(7), 7);
  EXPECT_THROW(platform.broker()->getSpecialisedProxy<DCMProxy>(GKMemory::kName), GKError);
}

TEST(DCMProxy, IsAnErrorForAnotherModuleOfThatName) {
  TestPlatform platform(TestPlatform::kMemoryOnly);
  boost::make_shared<GKModule>(platform.broker(), "DCM")->initModule();
  EXPECT_THAT(
      errorOf([&] { DCMProxy sut(platform.broker()); }),
      IsError("DCMProxy", "DCMProxy", "the module is not the device communication manager"));
}

TEST(DCMProxy, IsAnErrorWithoutTheModule) {
  const TestPlatform platform(TestPlatform::kMemoryOnly);

  EXPECT_THAT(errorOf([&] { DCMProxy sut(platform.broker()); }),
              IsError("GKBroker", "getProxy", testing::HasSubstr("DCM")));
}

} // namespace
} // namespace GK
