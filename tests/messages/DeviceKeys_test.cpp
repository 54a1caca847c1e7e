#include "messages/keys/DeviceKeys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

using namespace gk::messages;
using GK::GKValue;

namespace {

const DeviceKey& key(std::string_view name) {
  const DeviceKey* found = findDeviceKey(name);
  if (found == nullptr) {
    throw std::out_of_range("no device key " + std::string(name));
  }
  return *found;
}

/// Number of keys that begin and end so.
std::ptrdiff_t countOf(std::string_view begin, std::string_view end) {
  return std::ranges::count_if(deviceKeys(), [&](const DeviceKey& device) {
    return device.name.starts_with(begin) && device.name.ends_with(end);
  });
}

} // namespace

TEST(DeviceKeys, AreSortedAndDifferent) {
  EXPECT_TRUE(std::ranges::is_sorted(deviceKeys(), {}, &DeviceKey::name));
  EXPECT_EQ(std::ranges::adjacent_find(deviceKeys(), {}, &DeviceKey::name), deviceKeys().end());
}

TEST(DeviceKeys, AllGroupsAreComplete) {
  EXPECT_EQ(countOf("Device/SubDeviceList/", "/Hardness/Actuator/Max"), 25);
  EXPECT_EQ(countOf("Device/SubDeviceList/", "/Hardness/Actuator/Value"), 25);
  EXPECT_EQ(countOf("Device/SubDeviceList/", "/Temperature/Sensor/Value"), 25);
  EXPECT_EQ(countOf("Device/SubDeviceList/", "/ElectricCurrent/Sensor/Value"), 25);
  EXPECT_EQ(countOf("Device/SubDeviceList/", "/Position/Sensor/Value"), 6);
  EXPECT_EQ(countOf("Device/DeviceList/", "/Error"), 11);
  EXPECT_EQ(countOf("Device/SubDeviceList/Head/Touch/", "/Sensor/Value"), 3);
  EXPECT_EQ(countOf("Device/SubDeviceList/LHand/Touch/", "/Sensor/Value"), 3);
  EXPECT_EQ(countOf("Device/SubDeviceList/RHand/Touch/", "/Sensor/Value"), 3);
  EXPECT_EQ(countOf("Device/SubDeviceList/LFoot/Bumper/", "/Sensor/Value"), 2);
  EXPECT_EQ(countOf("Device/SubDeviceList/RFoot/Bumper/", "/Sensor/Value"), 2);
  EXPECT_EQ(countOf("Device/SubDeviceList/US/", "/Sensor/Value"), 2);
  EXPECT_EQ(countOf("RobotConfig/Body/Device/", "/Version"), 3);
  EXPECT_EQ(countOf("Device/SubDeviceList/Battery/", ""), 4);
  // Beside these the chest button, two weights, two angles and the standing flag.
  EXPECT_EQ(deviceKeys().size(), 145U);
}

TEST(DeviceKeys, StartValuesAreThoseOfARobotAtRest) {
  const std::pair<const char*, GKValue> expected[] = {
      {"Device/SubDeviceList/LFoot/Bumper/Right/Sensor/Value", 0.0F},
      {"Device/SubDeviceList/RFoot/Bumper/Left/Sensor/Value", 0.0F},
      {"Device/SubDeviceList/ChestBoard/Button/Sensor/Value", 0.0F},
      {"Device/SubDeviceList/Head/Touch/Middle/Sensor/Value", 0.0F},
      {"Device/SubDeviceList/LHand/Touch/Back/Sensor/Value", 0.0F},
      {"Device/SubDeviceList/US/Left/Sensor/Value", 2.55F},
      {"Device/SubDeviceList/US/Right/Sensor/Value", 2.55F},
      {"Device/SubDeviceList/HeadPitch/Hardness/Actuator/Max", 1.0F},
      {"Device/SubDeviceList/RWristYaw/Hardness/Actuator/Value", 0.0F},
      {"Device/SubDeviceList/LHand/Temperature/Sensor/Value", 30.0F},
      {"Device/SubDeviceList/LHipYawPitch/ElectricCurrent/Sensor/Value", 0.0F},
      {"Device/SubDeviceList/RAnklePitch/Position/Sensor/Value", 0.0F},
      {"Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value", 0.0F},
      {"Device/SubDeviceList/RFoot/FSR/TotalWeight/Sensor/Value", 0.0F},
      {"Device/SubDeviceList/InertialSensor/AngleX/Sensor/Value", 0.0F},
      {"Device/SubDeviceList/InertialSensor/AngleY/Sensor/Value", 0.0F},
      {"Motion/IsStand", 0.0F},
      {"Device/DeviceList/RightThighBoard/Error", 0},
      {"RobotConfig/Body/Device/Legs/Version", 1},
      {"RobotConfig/Body/Device/Foot/Left/Version", 1},
      {"RobotConfig/Body/Device/Foot/Right/Version", 1},
      {"Device/SubDeviceList/Battery/Charge/Sensor/Value", 1.0F},
      {"Device/SubDeviceList/Battery/Charge/Sensor/Status", 0},
      {"Device/SubDeviceList/Battery/Charge/Sensor/CellVoltageMin", 0},
      {"Device/SubDeviceList/Battery/Current/Sensor/Value", 0.0F}};
  for (const auto& [name, start] : expected) {
    EXPECT_EQ(key(name).start, start) << name;
  }
}

TEST(DeviceKeys, TheTypeIsThatOfTheStartValue) {
  for (const DeviceKey& device : deviceKeys()) {
    EXPECT_EQ(device.start.type(),
              device.type == KeyType::Int ? GKValue::Type::Int : GKValue::Type::Float)
        << device.name;
    EXPECT_NE(device.type, KeyType::Any) << device.name;
  }
}

TEST(DeviceKeys, OnlyErrorsVersionsAndBatteryBitsAreInts) {
  EXPECT_EQ(std::ranges::count(deviceKeys(), KeyType::Int, &DeviceKey::type), 11 + 3 + 2);
}

TEST(DeviceKeys, QuantitiesHaveUnits) {
  EXPECT_EQ(key("Device/SubDeviceList/US/Left/Sensor/Value").unit, "m");
  EXPECT_EQ(key("Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value").unit, "kg");
  EXPECT_EQ(key("Device/SubDeviceList/LKneePitch/Position/Sensor/Value").unit, "rad");
  EXPECT_EQ(key("Device/SubDeviceList/InertialSensor/AngleX/Sensor/Value").unit, "rad");
  EXPECT_EQ(key("Device/SubDeviceList/HeadYaw/Temperature/Sensor/Value").unit, "degC");
  EXPECT_EQ(key("Device/SubDeviceList/HeadYaw/ElectricCurrent/Sensor/Value").unit, "A");
  EXPECT_EQ(key("Device/SubDeviceList/Battery/Current/Sensor/Value").unit, "A");
  EXPECT_EQ(key("Motion/IsStand").unit, "");
  for (const DeviceKey& device : deviceKeys()) {
    EXPECT_FALSE(device.meaning.empty()) << device.name;
  }
}

TEST(DeviceKeys, EveryKeyIsFound) {
  for (const DeviceKey& device : deviceKeys()) {
    EXPECT_EQ(findDeviceKey(device.name), &device);
    EXPECT_EQ(keyTypeOf(device.name), device.type);
  }
}

TEST(DeviceKeys, TheSimulatedRobotServesAllOfThemAndMore) {
  const auto& all = simulatedKeys();
  EXPECT_TRUE(std::ranges::is_sorted(all, {}, &DeviceKey::name));
  EXPECT_EQ(std::ranges::adjacent_find(all, {}, &DeviceKey::name), all.end());
  for (const DeviceKey& device : deviceKeys()) {
    EXPECT_EQ(std::ranges::count(all, device.name, &DeviceKey::name), 1) << device.name;
  }
  const auto count = [&all](std::string_view end) {
    return std::ranges::count_if(all, [end](const DeviceKey& k) { return k.name.ends_with(end); });
  };
  EXPECT_EQ(count("/Position/Actuator/Value"), 25);
  EXPECT_EQ(count("/Position/Sensor/Value"), 26);
  EXPECT_EQ(std::ranges::count(all, Server::World, &DeviceKey::server), 14 + 2 + 2 + 2 + 3);
}

TEST(DeviceKeys, TheStartValueHasTheTypeAndLiesInTheRange) {
  for (const DeviceKey& device : simulatedKeys()) {
    EXPECT_EQ(device.start.typeName(), typeName(device.type)) << device.name;
    // The elbows cannot be stretched out altogether.
    if (device.range && !(device.name.find("ElbowRoll") != device.name.npos)) {
      EXPECT_GE(device.start.toFloat(), device.range->least) << device.name;
      EXPECT_LE(device.start.toFloat(), device.range->most) << device.name;
    }
  }
}

TEST(DeviceKeys, OtherKeysAreNotFoundAndTakeAnything) {
  for (const char* name :
       {"", "footContact", "leftFootContact", "Device/SubDeviceList/", "motion/isstand",
        "Device/SubDeviceList/RHipYawPitch/Hardness/Actuator/Value", "Simulation/",
        "Simulation/Wind"}) {
    EXPECT_EQ(findDeviceKey(name), nullptr) << name;
    EXPECT_EQ(keyTypeOf(name), KeyType::Any) << name;
  }
}
