#include "modules/sensors/GKSensors.h"
#include "support/LoadedModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace GK {

/// Single steps of the loop, and the siblings one by one.
class GKSensorsPeer {
public:
  static void extractSonar(GKSensors& sensors) { sensors.xExtractSonar(); }
  static void extractFeet(GKSensors& sensors) { sensors.xExtractFSR(); }
  static void extractPose(GKSensors& sensors) { sensors.xExtractRobotPose(); }
  static void extractBattery(GKSensors& sensors) { sensors.xExtractBattery(); }
  static bool enterLoop(GKSensors& sensors) { return sensors.xEnterLoop(); }
  static bool leaveLoop(GKSensors& sensors) { return sensors.xLeaveLoop(); }
};

namespace {

struct GKSensorsSiblingsTest : test::LoadedModules {
  GKSensors& loaded() {
    loadAndTick();
    return dynamic_cast<GKSensors&>(*platform.broker()->findModule("GKSensors"));
  }
  float value(const std::string& key) { return platform.store()->get(key)->toFloat(); }
};

TEST_F(GKSensorsSiblingsTest, TheSonarTakesTheDistancesOfTheLatestTick) {
  GKSensors& sut = loaded();
  platform.broker()->getProxy("GKSonar", 0)->callVoid("subscribe", std::string("client"));
  platform.set("Device/SubDeviceList/US/Left/Sensor/Value", 0.4f);
  platform.set("Device/SubDeviceList/US/Right/Sensor/Value", 0.5f);
  tick();
  GKSensorsPeer::extractSonar(sut);
  const auto filtered =
      platform.broker()->getProxy("GKSonar", 0)->call<std::vector<float>>("_getFilteredValues");
  EXPECT_EQ(filtered, (std::vector<float>{0.5f, 0.4f}));
}

TEST_F(GKSensorsSiblingsTest, TheFeetTakeOneSampleMore) {
  GKSensors& sut = loaded();
  platform.set("Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value", 10.0f);
  GKSensorsPeer::extractFeet(sut);
  EXPECT_EQ(value("leftFootTotalWeight"), 1.0f); // one of ten samples
}

TEST_F(GKSensorsSiblingsTest, ThePoseLastsOneTickLonger) {
  GKSensors& sut = loaded();
  const float before = value("robotPoseSince");
  GKSensorsPeer::extractPose(sut);
  EXPECT_FLOAT_EQ(value("robotPoseSince"), before + 0.02f);
}

TEST_F(GKSensorsSiblingsTest, TheBatteryTellsAChangedCharge) {
  GKSensors& sut = loaded();
  platform.set("Device/SubDeviceList/Battery/Charge/Sensor/Value", 0.25f);
  GKSensorsPeer::extractBattery(sut);
  EXPECT_THAT(raised("BatteryChargeChanged"), testing::ElementsAre(GKValue(25)));
}

// The loop's end

TEST_F(GKSensorsSiblingsTest, ARestartWhileTheLoopIsLeavingKeepsItGoing) {
  GKSensors& sut = loaded();
  sut.unsubscribe("sensors");
  tick();
  ASSERT_TRUE(platform.recorder->ticks().empty());
  // Here stands a loop that has seen detection off, and has not yet said that it is gone.
  sut.subscribe("client", 20, 0.0F);
  ASSERT_TRUE(GKSensorsPeer::enterLoop(sut));
  platform.sleep(10);
  ASSERT_TRUE(platform.recorder->ticks().empty()) << "the restart's own loop has found it running";

  EXPECT_TRUE(GKSensorsPeer::leaveLoop(sut));
  EXPECT_FALSE(GKSensorsPeer::enterLoop(sut)) << "it is the one loop again";
}

TEST_F(GKSensorsSiblingsTest, ALoopThatIsToEndLeavesForTheNextOne) {
  GKSensors& sut = loaded();
  sut.unsubscribe("sensors");
  tick();

  EXPECT_FALSE(GKSensorsPeer::leaveLoop(sut));
  sut.subscribe("client", 20, 0.0F);
  platform.sleep(10);
  EXPECT_EQ(platform.recorder->ticks().size(), 1U);
}

} // namespace
} // namespace GK
