#include "formats/text/NearestNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace gk::formats {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(NearestNames, FewLettersDiffer) {
  const std::vector<std::string> names = {"GKSonar", "GKSensors", "GKFsr", "GKBattery"};
  EXPECT_THAT(nearestNames("GKSonr", names), ElementsAre("GKSonar"));
  EXPECT_THAT(nearestNames("gksensor", names), ElementsAre("GKSensors"));
  EXPECT_THAT(nearestNames("nothing like it", names), IsEmpty());
}

TEST(NearestNames, APartOfANameFindsIt) {
  EXPECT_THAT(nearestNames("Battery", {"GKBattery", "GKSonar"}), ElementsAre("GKBattery"));
}

TEST(NearestNames, ThreeAreEnough) {
  EXPECT_THAT(nearestNames("a1", {"a5", "a4", "a3", "a2"}), ElementsAre("a2", "a3", "a4"));
}

TEST(NearestNames, AreAskedFor) {
  EXPECT_EQ(didYouMean({}), "");
  EXPECT_EQ(didYouMean({"a"}), "; did you mean a?");
  EXPECT_EQ(didYouMean({"a", "b"}), "; did you mean a or b?");
  EXPECT_EQ(didYouMean({"a", "b", "c"}), "; did you mean a, b or c?");
}

} // namespace
} // namespace gk::formats
