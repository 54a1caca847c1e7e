#include "gk/GKError.h"

#include <gtest/gtest.h>

#include <utility>

namespace GK {
namespace {

TEST(GKError, CarriesModuleMethodAndDescription) {
  const GKError sut("GKSonar", "init", "no DCM");

  EXPECT_EQ(sut.getModule(), "GKSonar");
  EXPECT_EQ(sut.getMethod(), "init");
  EXPECT_EQ(sut.getDescription(), "no DCM");
}

TEST(GKError, TextJoinsAllThree) {
  const GKError sut("GKSonar", "init", "no DCM");

  EXPECT_EQ(sut.toString(), "GKSonar::init: no DCM");
  EXPECT_STREQ(sut.what(), "GKSonar::init: no DCM");
}

TEST(GKError, KnowsTheRaisingStatement) {
  const GKError sut("m", "f", "d");
  const int line = __LINE__ - 1;

  EXPECT_STREQ(sut.getFile(), __FILE__);
  EXPECT_EQ(sut.getLine(), line);
}

TEST(GKError, PlaceCanBeLeftOut) {
  const GKError sut("m", "f", "d", "", 0);

  EXPECT_STREQ(sut.getFile(), "");
  EXPECT_EQ(sut.getLine(), 0);
}

TEST(GKError, CopyHasTheSameContentAndPlace) {
  const GKError original("m", "f", "d", "file", 12);

  const GKError sut(original);

  EXPECT_EQ(sut.toString(), original.toString());
  EXPECT_EQ(sut.getDescription(), "d");
  EXPECT_STREQ(sut.getFile(), "file");
  EXPECT_EQ(sut.getLine(), 12);
}

TEST(GKError, AssignmentReplacesEverything) {
  GKError sut("m", "f", "d");

  sut = GKError("other", "g", "e", "file", 3);

  EXPECT_EQ(sut.toString(), "other::g: e");
  EXPECT_EQ(sut.getModule(), "other");
  EXPECT_EQ(sut.getLine(), 3);
}

TEST(GKError, CopyAssignmentLeavesTheOriginalAsItIs) {
  const GKError original("m", "f", "d", "file", 12);
  GKError sut("other", "g", "e");

  sut = original;

  EXPECT_EQ(sut.toString(), "m::f: d");
  EXPECT_STREQ(sut.getFile(), "file");
  EXPECT_EQ(original.toString(), "m::f: d");
}

TEST(GKError, CanBeCaughtAsStandardException) {
  EXPECT_THROW(throw GKError("m", "f", "d"), std::runtime_error);
}

} // namespace
} // namespace GK
