#include "devices/meaning/EventWords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>

using namespace gk::devices;
using GK::GKValue;

TEST(EventWords, AValueWithASentenceOfItsOwnGetsIt) {
  EXPECT_EQ(eventSentence("FrontTactilTouched", GKValue(1.0F)), "Head touched in front");
  EXPECT_EQ(eventSentence("FrontTactilTouched", GKValue(0.0F)), "Head let go in front");
  EXPECT_EQ(eventSentence("footContactChanged", GKValue(false)), "Feet off the floor");
  EXPECT_EQ(eventSentence("BodyStiffnessChanged", GKValue(-1)), "Stiffness is not known");
  EXPECT_EQ(eventSentence("robotPoseChanged", GKValue("Belly")), "Lies on its belly");
}

TEST(EventWords, OtherValuesStandInTheSentenceWithTheirUnit) {
  EXPECT_EQ(eventSentence("SonarLateralLeftDetected", GKValue(0.4321F)),
            "Obstacle on the left at 0.43 m");
  EXPECT_EQ(eventSentence("BatteryChargeChanged", GKValue(87)), "Battery at 87 %");
  EXPECT_EQ(eventSentence("FrontTactilTouched", GKValue(0.5F)), "Head in front: 0.50");
  EXPECT_EQ(eventSentence("robotPoseChanged", GKValue("Handstand")), "Pose Handstand");
  EXPECT_EQ(eventSentence("HotJoinDetected", GKValue("Device/DeviceList/HeadBoard/Error")),
            "Motor board HeadBoard is too hot");
}

TEST(EventWords, WhatOthersTellAndWhatIsNoEventHasNoSentence) {
  EXPECT_EQ(eventSentence("Nothing", GKValue(1.0F)), "");
  EXPECT_EQ(eventSentence("robotPose", GKValue(7.0F)), "");
  EXPECT_EQ(eventImportance("Nothing", GKValue(1.0F)), Importance::Ordinary);
}

TEST(EventWords, AFallMattersMoreThanAnotherPose) {
  EXPECT_EQ(eventImportance("robotPoseChanged", GKValue("Back")), Importance::Alarming);
  EXPECT_EQ(eventImportance("robotPoseChanged", GKValue("Sit")), Importance::Notable);
  EXPECT_EQ(eventImportance("SonarNothingDetected", GKValue(2.5F)), Importance::Background);
}

TEST(EventWords, EachNameHasOneEntry) {
  std::set<std::string_view> names;
  for (const EventWords& words : eventWords()) {
    EXPECT_TRUE(names.insert(words.name).second) << words.name;
    EXPECT_FALSE(words.meaning.empty()) << words.name;
    EXPECT_FALSE(words.subject.empty()) << words.name;
  }
}

TEST(EventWords, ThePageAboutEventsHasThemAll) {
  std::ifstream file(GK_SOURCE_DIR "/docs/events.md");
  const std::string page{std::istreambuf_iterator<char>(file), {}};
  for (const EventWords& words : eventWords()) {
    EXPECT_THAT(page, testing::HasSubstr("`" + std::string(words.name) + "`"));
    const std::string sentence(words.sentence);
    if (sentence.empty()) {
      continue;
    }
    EXPECT_THAT(page, testing::HasSubstr(sentence));
    for (const ValueWords& value : words.values) {
      EXPECT_THAT(page, testing::HasSubstr(std::string(value.sentence)));
    }
  }
}
