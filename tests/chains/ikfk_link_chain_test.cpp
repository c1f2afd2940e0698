// Copyright Marvolith contributors.
// Links and the display modifier on a chain made by CreateIKFKSolver.
#include <gtest/gtest.h>

#include "chains/ikfk_display_mod.h"
#include "chains/ikfk_link.h"
#include "tests/chains/ikfk_chain_fixture.h"

namespace marvolith::test {
namespace {

constexpr TimeValue kFrameTicks = 160;

TEST_F(IKFKChainTest, AGoalLinkCarriesTheGoalAndTheChainWithoutAJump) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_NE(limb.goal, nullptr);
  IKFKLink* link = dynamic_cast<IKFKControl*>(limb.goal->GetTMController())->Link();
  ASSERT_NE(link, nullptr);
  INode* hand_space = Node("space", TransMatrix(Point3(5, 5, 0)));
  const Matrix3 goal_home = limb.goal->GetNodeTM(0);
  const Matrix3 wrist_home = limb.members.back()->GetNodeTM(0);

  ASSERT_TRUE(link->AddTarget(hand_space, 0));  // keeps the goal where it is
  EXPECT_MATRIX3_NEAR(limb.goal->GetNodeTM(0), goal_home, 1e-4f);
  // The space moves; the goal follows it, and the wrist the goal.
  hand_space->SetNodeTM(10 * kFrameTicks, TransMatrix(Point3(5, 5, 1)));
  limb.goal->InvalidateTM();
  EXPECT_POINT3_NEAR(limb.goal->GetNodeTM(10 * kFrameTicks).GetTrans(),
                     goal_home.GetTrans() + Point3(0, 0, 1), 1e-4f);
  EXPECT_POINT3_NEAR(limb.members.back()->GetNodeTM(10 * kFrameTicks).GetTrans(),
                     wrist_home.GetTrans() + Point3(0, 0, 1), 1e-3f);
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(10 * kFrameTicks));
  EXPECT_EQ(FindOwnerNode(link), limb.goal) << "the link finds its goal through the control";
}

TEST_F(IKFKChainTest, TheDisplayModifierReadsTheRealChainLayout) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  limb.Params()->SetValue(kIKFKBlend, 0, 0.3f);
  Interval valid = FOREVER;
  const IKFKDisplayInput goal = ReadIKFKDisplayInput(limb.goal, 0, valid);
  EXPECT_TRUE(goal.is_ikfk_control && goal.chain_affects_display);
  EXPECT_EQ(goal.type, 1);
  EXPECT_FLOAT_EQ(goal.blend, 0.3f);
  const IKFKDisplayInput joint = ReadIKFKDisplayInput(limb.members[1], 0, valid);
  EXPECT_EQ(joint.type, 0);
  EXPECT_FLOAT_EQ(IKFKDisplayFactor(joint), 0.7f);
  limb.Params()->SetValue(kIKFKAffectHelpersDisplay, 0, false);
  EXPECT_EQ(IKFKDisplayFactor(ReadIKFKDisplayInput(limb.goal, 0, valid)), 1.0f);
  EXPECT_EQ(IKFKDisplayFactor(ReadIKFKDisplayInput(limb.bones[0], 0, valid)), 0.5f);
}

}  // namespace
}  // namespace marvolith::test
