#include "formats/text/NamePattern.h"

#include <gtest/gtest.h>

namespace {

using gk::formats::isMeant;
using gk::formats::isPattern;

TEST(NamePattern, AWordIsPartOfTheNamesThatItMeans) {
  EXPECT_TRUE(isMeant("robotPoseChanged", "Pose"));
  EXPECT_TRUE(isMeant("robotPoseChanged", ""));
  EXPECT_FALSE(isMeant("robotPoseChanged", "pose"));
}

TEST(NamePattern, APatternFitsTheWholeName) {
  EXPECT_TRUE(isMeant("Head/Touch/Front", "*/Touch/*"));
  EXPECT_FALSE(isMeant("Head/Touch/Front", "Touch/*"));
  EXPECT_TRUE(isMeant("Head/Touch/Front", "Head/Touch/[FM]ront"));
  EXPECT_TRUE(isMeant("LeftBumper", "????Bumper"));
  EXPECT_FALSE(isMeant("RightBumper", "????Bumper"));
}

TEST(NamePattern, OnlyWildcardsMakeAPattern) {
  for (const char* pattern : {"a*", "a?", "[a]"}) {
    EXPECT_TRUE(isPattern(pattern)) << pattern;
  }
  EXPECT_FALSE(isPattern("Device/SubDeviceList"));
}

} // namespace
