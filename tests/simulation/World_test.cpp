#include "devices/DeviceLayer.h"
#include "devices/sim/World.h"
#include "messages/keys/DeviceKeys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace gk::devices;
using namespace gk::messages;
using GK::GKValue;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct WorldTest : testing::Test {
  WorldTest() {
    DeviceLayer(store, simulatedKeys()).publish();
    sut.bind();
  }

  std::shared_ptr<GK::GKMemoryStore> store = std::make_shared<GK::GKMemoryStore>();
  World sut{store};
};

} // namespace

TEST_F(WorldTest, AdmitsEachStartValue) {
  for (const DeviceKey& key : simulatedKeys()) {
    if (key.server == Server::World) {
      EXPECT_THAT(sut.admit(key.name, key.start), IsEmpty()) << key.name;
    }
  }
}

TEST_F(WorldTest, AFloatKeyTakesAnIntToo) {
  EXPECT_THAT(sut.admit(kPushXKey, 10), IsEmpty());
}

TEST_F(WorldTest, RefusesAKeyThatIsNotThere) {
  EXPECT_EQ(sut.admit("Simulation/Wind", 1.0F), "the simulated robot has no key Simulation/Wind");
}

TEST_F(WorldTest, RefusesWhatTheRobotWritesItself) {
  EXPECT_EQ(sut.admit(kMovingKey, true),
            "Simulation/Moving is written by the simulated robot itself");
}

TEST_F(WorldTest, RefusesOtherTypes) {
  EXPECT_EQ(sut.admit(kChargerKey, 1),
            "Simulation/Charger/Plugged takes a bool, not a value of type int");
  EXPECT_EQ(sut.admit(kPushXKey, "much"),
            "Simulation/Push/X takes a float, not a value of type string");
  EXPECT_EQ(sut.admit(kPostureKey, 3.0F),
            "Simulation/Posture takes a string, not a value of type float");
}

TEST_F(WorldTest, RefusesValuesOutOfRange) {
  EXPECT_EQ(sut.admit(kHoistHeightKey, 2.0F),
            "Simulation/Hoist/Height takes 0.1 to 1.0 m, not 2.0");
  EXPECT_THAT(sut.admit(kHoistHeightKey, 1.0F), IsEmpty());
  EXPECT_THAT(sut.admit(kHoistHeightKey, std::nextafter(1.0F, 2.0F)), HasSubstr("takes 0.1 to"));
  EXPECT_THAT(sut.admit(kHoistHeightKey, 0.1F), IsEmpty());
  EXPECT_THAT(sut.admit(kHoistHeightKey, std::nextafter(0.1F, 0.0F)), HasSubstr("takes 0.1 to"));
}

TEST_F(WorldTest, RefusesNumbersThatAreNone) {
  for (const float value :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
    EXPECT_EQ(sut.admit(kPushYKey, value), "Simulation/Push/Y takes a finite number");
  }
}

TEST_F(WorldTest, RefusesAnUnknownPostureByNamingAllOthers) {
  EXPECT_EQ(sut.admit(kPostureKey, "Dance"),
            "Simulation/Posture: there is no posture \"Dance\", only Stand, Crouch, Sit, Knee, "
            "Frog, Back, Belly, Left, Right, HeadBack");
  EXPECT_EQ(sut.takeOrder(), nullptr);
}

TEST_F(WorldTest, AnOrderedPostureIsTakenOnceEvenIfItIsTheSame) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(sut.admit(kPostureKey, "Sit"), IsEmpty());
    const Posture* order = sut.takeOrder();
    ASSERT_NE(order, nullptr);
    EXPECT_EQ(order->name, "Sit");
    EXPECT_EQ(sut.takeOrder(), nullptr);
  }
}

TEST_F(WorldTest, SaysWhatTheKeysSay) {
  store->set(kPushXKey, -3.0F);
  store->set(kHoistHoldKey, true);
  store->set(kLeftObstacleKey, 0.5F);
  store->set(touchKey(touchSensors()[4]), true);
  sut.read();
  EXPECT_EQ(sut.push(), (Vector{-3, 0, 0}));
  EXPECT_TRUE(sut.isHeld());
  EXPECT_DOUBLE_EQ(sut.obstacle(Side::Left), 0.5);
  EXPECT_TRUE(std::isinf(sut.obstacle(Side::Right)));
  EXPECT_TRUE(sut.isTouched(4));
  EXPECT_FALSE(sut.isTouched(5));
}

TEST_F(WorldTest, ValuesThatGotPastTheCheckChangeNothing) {
  store->set(kAmbientKey, 40.0F);
  store->set(kChargerKey, true);
  sut.read();
  store->set(kAmbientKey, std::numeric_limits<float>::quiet_NaN());
  store->set(kChargerKey, 0.0F);
  sut.read();
  EXPECT_DOUBLE_EQ(sut.ambient(), 40.0);
  EXPECT_TRUE(sut.isPlugged());
}
