#include "extensions/fleet/FleetSettings.h"
#include "extensions/fleet/SeqRanges.h"
#include "extensions/fleet/StateReport.h"
#include "support/Environment.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <sys/stat.h>

namespace gk::fleet {

namespace {

using GK::GKValue;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::StartsWith;

struct FleetSettingsTest : testing::Test {
  FleetSettingsTest() { set("Url", "mqtt://broker"); }

  void set(const std::string& name, const GKValue& value) {
    store.set(FleetSettings::kPrefix + name, value);
  }
  void set(const std::string& name, const char* value) { set(name, GKValue(value)); }

  std::string complaint() const {
    try {
      readSettings(store);
    } catch (const SettingError& error) {
      return error.what();
    }
    return "nothing";
  }

  GK::GKMemoryStore store;
};

TEST_F(FleetSettingsTest, AddressAloneIsEnough) {
  const FleetSettings settings = readSettings(store);
  EXPECT_EQ(settings.broker.url(), "mqtt://broker:1883");
  EXPECT_EQ(settings.root, "gk");
  EXPECT_EQ(settings.site, "default");
  EXPECT_NE(settings.robot, "");
  EXPECT_THAT(settings.outbox.file, HasSubstr("fleet-" + settings.robot + ".db"));
  EXPECT_FALSE(settings.isAllowed("GKFsr"));
}

TEST_F(FleetSettingsTest, CallsAreNamesOrAll) {
  set("Calls", "GKFsr, GKSonar");
  EXPECT_TRUE(readSettings(store).isAllowed("GKSonar"));
  EXPECT_FALSE(readSettings(store).isAllowed("GKBattery"));
  set("Calls", "*");
  EXPECT_TRUE(readSettings(store).isAllowed("GKBattery"));
}

TEST_F(FleetSettingsTest, NumbersAreTakenAsTheyAreWritten) {
  set("OutboxBytes", GKValue(65536));
  set("KeepAlive", GKValue(5));
  set("BacklogRate", GKValue(2.5F));
  const FleetSettings settings = readSettings(store);
  EXPECT_EQ(settings.outbox.bytes, 65536U);
  EXPECT_EQ(settings.keepAlive, seconds(5));
  EXPECT_EQ(settings.backlogRate, 2.5);
}

TEST_F(FleetSettingsTest, EachSlipIsNamed) {
  set("Robot", "a/b");
  EXPECT_THAT(complaint(), StartsWith("Settings/GKFleet/Robot: \"a/b\" is no level"));
  set("Robot", "r1");
  set("OutboxBytes", GKValue(65535));
  EXPECT_THAT(complaint(), HasSubstr("OutboxBytes: a number from 65536"));
  set("OutboxBytes", GKValue("much"));
  EXPECT_THAT(complaint(), HasSubstr("OutboxBytes"));
  set("OutboxBytes", GKValue(65536));
  set("CaFile", "ca.crt");
  EXPECT_THAT(complaint(), HasSubstr("CaFile: this is for TLS"));
  set("CaFile", "");
  set("Calls", "GKFsr,,GKSonar");
  EXPECT_THAT(complaint(), HasSubstr("Calls"));
  set("Calls", "");
  set("Ulr", "mqtt://x");
  EXPECT_THAT(complaint(), HasSubstr("Ulr: there is no such setting; there are "));
}

TEST_F(FleetSettingsTest, AddressIsWantedAndChecked) {
  set("Url", "");
  EXPECT_THAT(complaint(), HasSubstr("Url: it is missing"));
  set("Url", "broker");
  EXPECT_THAT(complaint(), HasSubstr("Url: \"broker\" is no broker's address"));
}

TEST_F(FleetSettingsTest, PasswordFileIsForItsOwnerAlone) {
  const test::TemporaryFolder folder;
  const std::string file = folder.file("password");
  test::writeFile(file, "robot7:a:b c\n");
  set("PasswordFile", GKValue(file));
  chmod(file.c_str(), 0640);
  EXPECT_THAT(complaint(), HasSubstr("others than its owner"));
  chmod(file.c_str(), 0600);
  EXPECT_EQ(readSettings(store).user, "robot7");
  EXPECT_EQ(readSettings(store).password, "a:b c");
}

TEST_F(FleetSettingsTest, CredentialOfTheServiceManagerMayBeReadByItsGroup) {
  const test::TemporaryFolder folder;
  const std::string file = folder.file("password");
  test::writeFile(file, "u:p");
  chmod(file.c_str(), 0440);
  set("PasswordFile", GKValue(file));
  EXPECT_THAT(complaint(), HasSubstr("others than its owner"));
  const test::Environment variable("CREDENTIALS_DIRECTORY", folder.path().string());
  EXPECT_EQ(readSettings(store).user, "u");
}

TEST_F(FleetSettingsTest, PasswordIsOneLine) {
  const test::TemporaryFolder folder;
  const std::string file = folder.file("password");
  set("PasswordFile", GKValue(file));
  EXPECT_THAT(complaint(), HasSubstr("No such file"));
  for (const char* text : {"robot7", ":secret", "u:p\nmore\n"}) {
    test::writeFile(file, text);
    chmod(file.c_str(), 0600);
    EXPECT_THAT(complaint(), HasSubstr("one line USER:PASSWORD")) << text;
  }
}

TEST(SeqRanges, NeighboursAreOneRange) {
  SeqRanges sut;
  sut.add(5, 6);
  sut.add(1, 2);
  sut.add(3, 4);
  sut.add(8, 8);
  EXPECT_EQ(sut.ranges(), (SeqRanges::Map{{1, 6}, {8, 8}}));
  sut.add(2, 9);
  EXPECT_EQ(sut.ranges(), (SeqRanges::Map{{1, 9}}));
}

TEST(SeqRanges, WhatIsRemovedLeavesTheRest) {
  SeqRanges sut;
  sut.add(1, 10);
  sut.remove(4, 5);
  sut.remove(10, 12);
  sut.remove(1, 1);
  EXPECT_EQ(sut.ranges(), (SeqRanges::Map{{2, 3}, {6, 9}}));
  sut.remove(1, 100);
  EXPECT_TRUE(sut.isEmpty());
}

struct StateReportTest : testing::Test {
  bool isDue() {
    sut.look(now, store);
    return sut.isDue(now, {});
  }
  void tell() {
    sut.look(now, store);
    sut.take(now, {}, {});
  }

  GK::GKMemoryStore store;
  StateReport::Time now{seconds(1000)};
  StateReport sut;
};

TEST_F(StateReportTest, ChangeIsToldAfterASecondAtTheEarliest) {
  EXPECT_TRUE(isDue());
  tell();
  store.set("robotPoseChanged", GKValue("Sit"));
  now += milliseconds(999);
  EXPECT_FALSE(isDue());
  now += milliseconds(1);
  EXPECT_TRUE(isDue());
}

TEST_F(StateReportTest, WithoutChangeItIsToldEveryHalfMinute) {
  tell();
  now += milliseconds(29999);
  EXPECT_FALSE(isDue());
  now += milliseconds(1);
  EXPECT_TRUE(isDue());
}

TEST_F(StateReportTest, WhatMattersIsAHundredthOfTheCharge) {
  const std::string charge = "Device/SubDeviceList/Battery/Charge/Sensor/Value";
  store.set(charge, GKValue(0.800F));
  tell();
  now += seconds(5);
  store.set(charge, GKValue(0.803F));
  EXPECT_FALSE(isDue());
  store.set(charge, GKValue(0.790F));
  EXPECT_TRUE(isDue());
}

TEST_F(StateReportTest, LoopsAreToldForTheTimeSinceTheLastState) {
  tell();
  now += seconds(2);
  sut.look(now, store);
  const auto state = sut.take(now, {{"GKSensors", 100, 1, 2000, 3000}}, {});
  ASSERT_EQ(state.loops.size(), 1U);
  EXPECT_EQ(state.loops[0].rate, 50.0);
  EXPECT_EQ(state.loops[0].lateness, 0.002);
  EXPECT_EQ(state.loops[0].work, 0.003);
}

} // namespace

} // namespace gk::fleet
