#include "modules/robotpose/GKRobotPose.h"
#include "support/NoticeLines.h"
#include "support/TestModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numbers>
#include <stdexcept>

namespace GK {

class GKRobotPosePeer {
public:
  static std::string classify(const GKRobotPose& sut, const std::array<float, 11>& sample) {
    return sut.xNameOf(sut.xClassify(GKRobotPose::Sample(sample)));
  }
  static std::string compare(const GKRobotPose& sut, std::vector<float> posture,
                             std::vector<std::string> candidates) {
    return sut.xCompareWithReferencePose(std::move(posture), std::move(candidates));
  }
  static unsigned int toInt(const GKRobotPose& sut, const std::string& name) {
    return sut.xConvertPoseToInt(name);
  }
  static std::string toOfficial(std::string name) {
    GKRobotPose::xConvertRefPoseToOfficialPose(name);
    return name;
  }
  static std::map<std::string, std::array<float, 4>> references(const GKRobotPose& sut) {
    std::map<std::string, std::array<float, 4>> postures;
    for (const auto& [name, reference] : sut.fReferencePoses) {
      postures[name] = reference.posture;
    }
    return postures;
  }
};

} // namespace GK

namespace GK::test {

namespace {

using testing::Pair;
using testing::UnorderedElementsAre;
using Peer = GKRobotPosePeer;

constexpr float kPi = std::numbers::pi_v<float>;

constexpr float rad(double degrees) {
  return static_cast<float>(degrees * std::numbers::pi / 180.0);
}

/// One leg's pitches, radian.
struct Leg {
  float hip = 0.0F;
  float knee = 0.0F;
  float ankle = 0.0F;
};

/// What the sensors say, angles in radian. At rest: upright, legs stretched, in the air.
struct Situation {
  float angleX = 0.0F;
  float angleY = 0.0F;
  Leg left = {};
  Leg right = {};
  float leftContact = 0.0F;
  float rightContact = 0.0F;
  float isStand = 0.0F;
};

class GKRobotPoseClassification : public testing::Test {
protected:
  GKRobotPoseClassification() : sut(boost::make_shared<GKRobotPose>(platform.broker())) {}

  std::string classify(const Situation& s) const {
    return Peer::classify(*sut,
                          {s.angleX, s.angleY, s.left.hip, s.right.hip, s.left.knee, s.right.knee,
                           s.left.ankle, s.right.ankle, s.leftContact, s.rightContact, s.isStand});
  }

  /// With both legs alike, no standing flag and no inclination about X; angles in degrees.
  std::string classify(double hip, double knee, double ankle, double inclination,
                       float contact) const {
    const Leg leg = {rad(hip), rad(knee), rad(ankle)};
    return classify({.angleY = rad(inclination),
                     .left = leg,
                     .right = leg,
                     .leftContact = contact,
                     .rightContact = contact});
  }

  TestModules platform;
  boost::shared_ptr<GKRobotPose> sut;
};

} // namespace

// Tables

TEST_F(GKRobotPoseClassification, ReferencePosturesAreInRadian) {
  EXPECT_THAT(Peer::references(*sut),
              UnorderedElementsAre(
                  Pair("Sit1", std::array{-1.7453293F, 0.0F, 0.0F, -0.34906584F}),
                  Pair("Sit2", std::array{-1.5707964F, 2.0943952F, 0.5235988F, -0.17453292F}),
                  Pair("Sit3", std::array{-1.5707964F, 0.87266463F, 0.87266463F, -0.17453292F}),
                  Pair("Sit4", std::array{-1.3962634F, 0.0F, -0.87266463F, 0.34906584F}),
                  Pair("Frog", std::array{-1.7453293F, 2.0943952F, -1.2217305F, 0.87266463F}),
                  Pair("Knee1", std::array{-0.34906584F, 2.0943952F, 0.87266463F, 0.0F}),
                  Pair("Knee2", std::array{0.34906584F, 1.7453293F, 0.87266463F, -1.0471976F})));
}

TEST_F(GKRobotPoseClassification, CodesArePositionsInTheListOfNames) {
  unsigned int code = 0;
  for (const char* name : {"Unknown", "Stand", "Sit", "Crouch", "Knee", "Frog", "Back", "Belly",
                           "Left", "Right", "HeadBack"}) {
    EXPECT_EQ(Peer::toInt(*sut, name), code++) << name;
  }
  EXPECT_EQ(Peer::toInt(*sut, "None"), 11U);
  EXPECT_EQ(Peer::toInt(*sut, "frog"), 11U);
  EXPECT_EQ(Peer::toInt(*sut, ""), 11U);
}

TEST_F(GKRobotPoseClassification, ReferenceNamesBecomeOfficialOnes) {
  for (const char* name : {"Sit1", "Sit2", "Sit3", "Sit4"}) {
    EXPECT_EQ(Peer::toOfficial(name), "Sit");
  }
  for (const char* name : {"Stand1", "Stand2", "Stand3", "Stand4"}) {
    EXPECT_EQ(Peer::toOfficial(name), "Stand");
  }
  for (const char* name : {"Crouch1", "Crouch2"}) {
    EXPECT_EQ(Peer::toOfficial(name), "Crouch");
  }
  for (const char* name : {"Knee1", "Knee2"}) {
    EXPECT_EQ(Peer::toOfficial(name), "Knee");
  }
  for (const char* name : {"Frog", "Sit5", "Stand5", "Crouch3", "Knee3", "", "sit1"}) {
    EXPECT_EQ(Peer::toOfficial(name), name);
  }
}

// Comparison with reference postures

TEST_F(GKRobotPoseClassification, AReferencePostureMatchesItself) {
  for (const auto& [name, posture] : Peer::references(*sut)) {
    EXPECT_EQ(Peer::compare(*sut, {posture.begin(), posture.end()}, {name}),
              Peer::toOfficial(name));
  }
}

TEST_F(GKRobotPoseClassification, ADistanceOfExactlyOneStillMatches) {
  // Knees as far from "Sit1" as the normaliser is long: 125 degrees.
  const float hip = rad(-100);
  const float inclination = rad(-20);
  const float far = rad(125);
  EXPECT_EQ(Peer::compare(*sut, {hip, below(far), 0.0F, inclination}, {"Sit1"}), "Sit");
  EXPECT_EQ(Peer::compare(*sut, {hip, far, 0.0F, inclination}, {"Sit1"}), "Sit");
  EXPECT_EQ(Peer::compare(*sut, {hip, above(far), 0.0F, inclination}, {"Sit1"}), "Unknown");
}

TEST_F(GKRobotPoseClassification, EachComponentHasItsOwnNormaliser) {
  const std::array<float, 4> sit1 = {rad(-100), 0.0F, 0.0F, rad(-20)};
  const std::array<double, 4> normaliser = {128, 125, 120, 120};
  for (std::size_t i = 0; i < 4; ++i) {
    std::vector<float> posture(sit1.begin(), sit1.end());
    posture[i] = sit1[i] + rad(normaliser[i] - 0.01);
    EXPECT_EQ(Peer::compare(*sut, posture, {"Sit1"}), "Sit") << i;
    posture[i] = sit1[i] - rad(normaliser[i] - 0.01);
    EXPECT_EQ(Peer::compare(*sut, posture, {"Sit1"}), "Sit") << i;
    posture[i] = sit1[i] + rad(normaliser[i] + 0.01);
    EXPECT_EQ(Peer::compare(*sut, posture, {"Sit1"}), "Unknown") << i;
    posture[i] = sit1[i] - rad(normaliser[i] + 0.01);
    EXPECT_EQ(Peer::compare(*sut, posture, {"Sit1"}), "Unknown") << i;
  }
}

TEST_F(GKRobotPoseClassification, TheEarlierCandidateWinsATie) {
  // 0.3984375 from both: between their hips, where a step of one float either way tells them apart.
  constexpr float kHip = -0.948341489F;
  const auto compare = [&](float hip, std::vector<std::string> candidates) {
    return Peer::compare(*sut, {hip, 2.0943952F, 0.7F, -0.1F}, std::move(candidates));
  };
  EXPECT_EQ(compare(kHip, {"Knee1", "Sit2"}), "Knee");
  EXPECT_EQ(compare(kHip, {"Sit2", "Knee1"}), "Sit");
  EXPECT_EQ(compare(below(kHip), {"Knee1", "Sit2"}), "Sit");
  EXPECT_EQ(compare(above(kHip), {"Sit2", "Knee1"}), "Knee");
}

TEST_F(GKRobotPoseClassification, APostureThatIsNoNumberMatchesNothing) {
  EXPECT_EQ(Peer::compare(*sut, {kNaN, 0.0F, 0.0F, rad(-20)}, {"Sit1", "Sit4"}), "Unknown");
}

TEST_F(GKRobotPoseClassification, WithoutCandidatesNothingMatches) {
  EXPECT_EQ(Peer::compare(*sut, {0.0F, 0.0F, 0.0F, 0.0F}, {}), "Unknown");
  EXPECT_EQ(Peer::compare(*sut, {}, {}), "Unknown");
  EXPECT_EQ(Peer::compare(*sut, {rad(-100), 0.0F, 0.0F, rad(-20)}, {"Stand1"}), "Unknown");
}

TEST_F(GKRobotPoseClassification, ACandidateThatIsNotInTheTableIsPassedOver) {
  EXPECT_EQ(Peer::compare(*sut, {rad(-100), 0.0F, 0.0F, rad(-20)}, {"Stand1", "Sit1"}), "Sit");
}

TEST_F(GKRobotPoseClassification, APostureThatIsTooShortIsOutOfRange) {
  try {
    Peer::compare(*sut, {0.0F, 0.0F, 0.0F}, {"Sit1"});
    FAIL() << "three components were enough";
  } catch (const std::out_of_range& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("vector::_M_range_check"));
  }
}

TEST_F(GKRobotPoseClassification, MoreComponentsThanNeededAreIgnored) {
  EXPECT_EQ(Peer::compare(*sut, {rad(-100), 0.0F, 0.0F, rad(-20), 100.0F}, {"Sit1"}), "Sit");
}

// Which leg counts

TEST_F(GKRobotPoseClassification, TheLegOnTheGroundCounts) {
  const Leg crouched = {0.0F, rad(115), rad(-45)};
  const Leg straight = {};
  const auto classifyWith = [&](float left, float right) {
    return classify({.left = crouched,
                     .right = straight,
                     .leftContact = left,
                     .rightContact = right,
                     .isStand = 1.0F});
  };
  EXPECT_EQ(classifyWith(1.0F, 0.0F), "Crouch");
  EXPECT_EQ(classifyWith(0.0F, 1.0F), "Stand");
  EXPECT_EQ(classifyWith(0.0F, 0.0F), "Stand");
  EXPECT_EQ(classifyWith(1.0F, 1.0F), "Stand");
}

TEST_F(GKRobotPoseClassification, WithBothFeetOrNoneTheMeanCounts) {
  // Neither leg crouches by itself: one is too straight, the other one's ankle is.
  const Leg left = {0.0F, rad(150), rad(-30)};
  const Leg right = {0.0F, rad(80), rad(-60)};
  const auto classifyWith = [&](float leftContact, float rightContact) {
    return classify({.left = left,
                     .right = right,
                     .leftContact = leftContact,
                     .rightContact = rightContact,
                     .isStand = 1.0F});
  };
  EXPECT_EQ(classifyWith(0.0F, 0.0F), "Crouch");
  EXPECT_EQ(classifyWith(1.0F, 1.0F), "Crouch");
  EXPECT_EQ(classifyWith(1.0F, 0.0F), "Stand");
  EXPECT_EQ(classifyWith(0.0F, 1.0F), "Stand");
}

TEST_F(GKRobotPoseClassification, AContactThatIsNoNumberCountsForTheLegs) {
  const Leg crouched = {0.0F, rad(115), rad(-45)};
  EXPECT_EQ(classify({.left = crouched, .leftContact = kNaN, .isStand = 1.0F}), "Crouch");
  EXPECT_EQ(classify({.right = crouched, .rightContact = kNaN, .isStand = 1.0F}), "Crouch");
  EXPECT_EQ(classify({.right = crouched, .leftContact = kNaN, .isStand = 1.0F}), "Stand");
}

// Standing

TEST_F(GKRobotPoseClassification, CrouchingNeedsKneesAboveAndAnklesBelowTheLimits) {
  const auto classifyStanding = [&](float knee, float ankle) {
    const Leg leg = {0.0F, knee, ankle};
    return classify({.left = leg, .right = leg, .isStand = 1.0F});
  };
  EXPECT_EQ(classifyStanding(rad(111), rad(-41)), "Crouch");
  EXPECT_EQ(classifyStanding(above(rad(110)), rad(-41)), "Crouch");
  EXPECT_EQ(classifyStanding(rad(110), rad(-41)), "Stand");
  EXPECT_EQ(classifyStanding(below(rad(110)), rad(-41)), "Stand");
  EXPECT_EQ(classifyStanding(rad(111), below(rad(-40))), "Crouch");
  EXPECT_EQ(classifyStanding(rad(111), rad(-40)), "Stand");
  EXPECT_EQ(classifyStanding(rad(111), above(rad(-40))), "Stand");
  EXPECT_EQ(classifyStanding(kNaN, rad(-41)), "Stand");
  EXPECT_EQ(classifyStanding(rad(111), kNaN), "Stand");
}

TEST_F(GKRobotPoseClassification, AStandingRobotStandsHoweverItIsInclined) {
  EXPECT_EQ(classify({.angleX = kPi, .angleY = kPi, .isStand = 1.0F}), "Stand");
  EXPECT_EQ(classify({.isStand = -1.0F}), "Stand");
  EXPECT_EQ(classify({.isStand = kNaN}), "Stand");
  EXPECT_EQ(classify({.isStand = -0.0F}), "Sit");
}

// Lying

TEST_F(GKRobotPoseClassification, AnInclinationOfTheLimitIsLying) {
  const float limit = rad(45);
  // Nearly there, stretched legs are too far from every posture.
  EXPECT_EQ(classify({.angleY = below(limit)}), "Unknown");
  EXPECT_EQ(classify({.angleY = limit}), "Belly");
  EXPECT_EQ(classify({.angleY = above(limit)}), "Belly");
  EXPECT_EQ(classify({.angleY = -limit}), "Back");
  EXPECT_EQ(classify({.angleX = below(limit)}), "Sit");
  EXPECT_EQ(classify({.angleX = limit}), "Right");
  EXPECT_EQ(classify({.angleX = above(limit)}), "Right");
  EXPECT_EQ(classify({.angleX = -limit}), "Left");
}

TEST_F(GKRobotPoseClassification, TheGreaterInclinationTellsTheSide) {
  EXPECT_EQ(classify({.angleX = rad(60), .angleY = rad(50)}), "Right");
  EXPECT_EQ(classify({.angleX = rad(-60), .angleY = rad(50)}), "Left");
  EXPECT_EQ(classify({.angleX = rad(50), .angleY = rad(60)}), "Belly");
  EXPECT_EQ(classify({.angleX = rad(50), .angleY = rad(-60)}), "Back");
}

TEST_F(GKRobotPoseClassification, EqualInclinationsAreBellyOrBack) {
  EXPECT_EQ(classify({.angleX = rad(60), .angleY = rad(60)}), "Belly");
  EXPECT_EQ(classify({.angleX = rad(60), .angleY = rad(-60)}), "Back");
  EXPECT_EQ(classify({.angleX = rad(-60), .angleY = rad(60)}), "Belly");
}

TEST_F(GKRobotPoseClassification, OnItsHeadNeedsMoreThanTheLimit) {
  const float limit = rad(130);
  EXPECT_EQ(classify({.angleX = below(limit)}), "Right");
  EXPECT_EQ(classify({.angleX = limit}), "Right");
  EXPECT_EQ(classify({.angleX = above(limit)}), "HeadBack");
  EXPECT_EQ(classify({.angleX = -above(limit)}), "HeadBack");
  EXPECT_EQ(classify({.angleY = limit}), "Belly");
  EXPECT_EQ(classify({.angleY = above(limit)}), "HeadBack");
  EXPECT_EQ(classify({.angleY = -above(limit)}), "HeadBack");
}

TEST_F(GKRobotPoseClassification, AnInclinationThatIsNoNumberIsLying) {
  EXPECT_EQ(classify({.angleY = kNaN}), "Back");
  EXPECT_EQ(classify({.angleX = kNaN}), "Back");
  EXPECT_EQ(classify({.angleX = kNaN, .angleY = 0.1F}), "Belly");
  EXPECT_EQ(classify({.angleX = rad(131), .angleY = kNaN}), "HeadBack");
}

// Near upright

TEST_F(GKRobotPoseClassification, ASampleOfAReferencePostureIsThatPose) {
  EXPECT_EQ(classify(-100, 0, 0, -20, 0.0F), "Sit");
  EXPECT_EQ(classify(-90, 120, 30, -10, 0.0F), "Sit");
  EXPECT_EQ(classify(-90, 50, 50, -10, 0.0F), "Sit");
  EXPECT_EQ(classify(-80, 0, -50, 20, 0.0F), "Sit");
  EXPECT_EQ(classify(-20, 120, 50, 0, 0.0F), "Knee");
}

TEST_F(GKRobotPoseClassification, StretchedLegsInTheAirAreSitting) {
  // Nearest is "Sit1": 100/128 + 20/120, about 0.948.
  EXPECT_EQ(classify({}), "Sit");
}

TEST_F(GKRobotPoseClassification, StretchedLegsOnTheGroundAreUnknown) {
  // "Sit1" is no candidate here; nearest is "Sit4": 80/128 + 50/120 + 20/120, about 1.208.
  EXPECT_EQ(classify({.leftContact = 1.0F}), "Unknown");
  EXPECT_EQ(classify({.rightContact = 1.0F}), "Unknown");
  EXPECT_EQ(classify({.leftContact = 1.0F, .rightContact = 1.0F}), "Unknown");
}

TEST_F(GKRobotPoseClassification, AFrogNeedsAFootOnTheGround) {
  // 40 degrees: at the 50 of the reference posture the robot counts as lying.
  EXPECT_EQ(classify(-100, 120, -70, 40, 1.0F), "Frog");
  EXPECT_EQ(classify(-100, 120, -70, 40, 0.0F), "Unknown");
}

TEST_F(GKRobotPoseClassification, KneelingUprightNeedsBothFeetInTheAir) {
  EXPECT_EQ(classify(-20, 120, 50, 0, 0.0F), "Knee");
  EXPECT_EQ(classify(-20, 120, 50, 0, 1.0F), "Sit"); // "Sit2" is nearer than "Knee2"
}

TEST_F(GKRobotPoseClassification, KneelingLeantBackWorksEitherWay) {
  EXPECT_EQ(classify(20, 100, 50, -40, 0.0F), "Knee");
  EXPECT_EQ(classify(20, 100, 50, -40, 1.0F), "Knee");
}

TEST_F(GKRobotPoseClassification, ARightContactThatIsNoNumberIsNoneForTheCandidates) {
  const Leg kneeling = {rad(-20), rad(120), rad(50)};
  EXPECT_EQ(classify({.right = kneeling, .rightContact = kNaN}), "Knee");
  EXPECT_EQ(classify({.right = kneeling, .rightContact = 1.0F}), "Sit");
  EXPECT_EQ(classify({.left = kneeling, .leftContact = kNaN}), "Sit");
}

TEST_F(GKRobotPoseClassification, AJointThatIsNoNumberIsUnknown) {
  const Leg leg = {kNaN, 0.0F, 0.0F};
  EXPECT_EQ(classify({.left = leg}), "Unknown");
}

} // namespace GK::test
