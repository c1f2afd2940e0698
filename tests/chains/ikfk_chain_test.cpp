// Copyright Marvolith contributors.
// The IKFK chain and its members in scenes built by CreateIKFKSolver: FK and IK poses, matching
// both ways, the cache against moving nodes and undo, files, script errors.
#include <cmath>

#include "controllers/rig_control.h"
#include "host/core/clock.h"
#include "host/script/script_errors.h"
#include "tests/chains/ikfk_chain_fixture.h"

namespace marvolith::test {

TEST_F(IKFKChainTest, BlendZeroIsTheFKPoseWhateverTheGoal) {
  for (const auto& points : {ArmPoints(), LegPoints()}) {
    SCOPED_TRACE(::testing::Message() << points.size() << " joints");
    GetCOREInterface()->Reset();
    const Limb limb = MakeLimb(Bones(points));
    ASSERT_TRUE(limb.chain);
    ASSERT_EQ(limb.members.size(), points.size());
    // A new chain sits on its bones, in IK.
    ExpectPoseNear(
        limb.Pose(),
        [&] {
          std::vector<Matrix3> bones;
          for (INode* b : limb.bones) bones.push_back(b->GetNodeTM(0));
          return bones;
        }(),
        1e-4f);

    limb.goal->SetNodeTM(0, TransMatrix({3, 40, -7}));
    const Point3 end_ik = limb.members.back()->GetNodeTM(0).GetTrans();
    EXPECT_GT(Length(end_ik - limb.bones.back()->GetNodeTM(0).GetTrans()), 1.0f)
        << "in IK the far goal pulls the chain";
    ASSERT_TRUE(limb.Params()->SetValue(kIKFKBlend, 0, 0.0f));
    for (size_t i = 0; i < limb.members.size(); ++i) {
      SCOPED_TRACE(::testing::Message() << "joint " << i);
      EXPECT_MATRIX3_NEAR(limb.members[i]->GetNodeTM(0), limb.bones[i]->GetNodeTM(0), 1e-5f);
    }
    // A write to a joint in FK lands where asked, and the joints below follow rigidly.
    const std::vector<float> lengths = limb.BoneLengths();
    Matrix3 turned = limb.members[1]->GetNodeTM(0);
    turned.PreRotateZ(0.4f);
    limb.members[1]->SetNodeTM(0, turned);
    EXPECT_MATRIX3_NEAR(limb.members[1]->GetNodeTM(0), turned, 1e-4f);
    const std::vector<float> after = limb.BoneLengths();
    for (size_t i = 0; i < lengths.size(); ++i) EXPECT_NEAR(after[i], lengths[i], 1e-4f);
  }
}

TEST_F(IKFKChainTest, MatchRoundTripsKeepThePoseAndTheBones) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  limb.goal->SetNodeTM(0, TransMatrix({13, 4, 7}));
  const std::vector<Matrix3> start = limb.Pose();
  const std::vector<float> lengths = limb.BoneLengths();
  IParamBlock2* pb = limb.Params();
  for (int round = 0; round < 100; ++round) {
    limb.chain->MatchFK(0, false, true, -1);
    pb->SetValue(kIKFKBlend, 0, 0.0f);
    if (round == 0) {
      SCOPED_TRACE("FK after the first MatchFK");
      ExpectPoseNear(limb.Pose(), start, 1e-4f);
    }
    limb.chain->MatchIK(0, true, true, -1, true, true);
    pb->SetValue(kIKFKBlend, 0, 1.0f);
    if (round == 0) {
      SCOPED_TRACE("IK after the first MatchIK");
      ExpectPoseNear(limb.Pose(), start, 1e-4f);
    }
  }
  SCOPED_TRACE("after 100 round trips");
  ExpectPoseNear(limb.Pose(), start, 1e-4f);
  const std::vector<float> after = limb.BoneLengths();
  for (size_t i = 0; i < lengths.size(); ++i) EXPECT_NEAR(after[i], lengths[i], 1e-4f);
}

TEST_F(IKFKChainTest, SwitchingModesWithTheInterfaceDoesNotMoveTheEnd) {
  for (const auto& points : {ArmPoints(), LegPoints()}) {
    SCOPED_TRACE(::testing::Message() << points.size() << " joints");
    GetCOREInterface()->Reset();
    const Limb limb = MakeLimb(Bones(points));
    ASSERT_TRUE(limb.chain);
    limb.goal->SetNodeTM(0, TransMatrix({points.back().x - 5, 3, 4}));
    const Point3 end_ik = limb.members.back()->GetNodeTM(0).GetTrans();

    limb.chain->FK();
    EXPECT_FLOAT_EQ(limb.Params()->GetFloat(kIKFKBlend), 0.0f);
    EXPECT_POINT3_NEAR(limb.members.back()->GetNodeTM(0).GetTrans(), end_ik, 1e-3f);
    EXPECT_EQ(theHold.UndoName(0), "IKFK Change");

    // Pose the FK chain, then go back to IK with a match: the end stays.
    Matrix3 root = limb.members[0]->GetNodeTM(0);
    root.PreRotateY(0.3f);
    limb.members[0]->SetNodeTM(0, root);
    const Point3 end_fk = limb.members.back()->GetNodeTM(0).GetTrans();
    EXPECT_GT(Length(end_fk - end_ik), 1.0f);
    limb.chain->IK();
    EXPECT_FLOAT_EQ(limb.Params()->GetFloat(kIKFKBlend), 1.0f);
    EXPECT_POINT3_NEAR(limb.members.back()->GetNodeTM(0).GetTrans(), end_fk, 1e-3f);
    EXPECT_POINT3_NEAR(limb.goal->GetNodeTM(0).GetTrans(), end_fk, 1e-3f);
  }
}

TEST_F(IKFKChainTest, GoalMovedByItsParentIsFollowedAtTheSameTime) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  INode* space = Node("space", TransMatrix({20, 0, 0}));
  space->AttachChild(limb.goal, 1);
  EXPECT_POINT3_NEAR(limb.goal->GetNodeTM(0).GetTrans(), Point3(20, 0, 0), 1e-4f)
      << "attaching keeps the goal in place";
  for (const Point3& p : {Point3(16, 2, 3), Point3(12, -4, 1), Point3(15, 0, -6)}) {
    space->SetNodeTM(0, TransMatrix(p));
    const Point3 end = limb.members.back()->GetNodeTM(0).GetTrans();
    EXPECT_POINT3_NEAR(end, p, 1e-3f) << "the end reaches the goal's new place";
    EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));
  }
  // The chain's own parent moving is seen the same way.
  INode* shoulder = Node("shoulder");
  shoulder->AttachChild(limb.members[0], 1);
  shoulder->SetNodeTM(0, TransMatrix({0, 0, 3}));
  EXPECT_POINT3_NEAR(limb.members[0]->GetNodeTM(0).GetTrans(), Point3(0, 0, 3), 1e-4f);
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));
  // A rig transform as the parent is evaluated from its own parent.
  ASSERT_TRUE(shoulder->SetTMController(new RigControl));
  INode* torso = Node("torso");
  torso->AttachChild(shoulder, 1);
  torso->SetNodeTM(0, TransMatrix({2, 1, 0}));
  EXPECT_POINT3_NEAR(limb.members[0]->GetNodeTM(0).GetTrans(), Point3(2, 1, 3), 1e-4f);
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));
}

TEST_F(IKFKChainTest, UndoAndRedoResolveTheChain) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  IParamBlock2* pb = limb.Params();
  Undoable("goal", [&] { limb.goal->SetNodeTM(0, TransMatrix({12, 5, 5})); });
  const std::vector<Matrix3> ik = limb.Pose();

  Undoable("blend", [&] { pb->SetValue(kIKFKBlend, 0, 0.0f); });
  const std::vector<Matrix3> fk = limb.Pose();
  EXPECT_GT(Length(fk.back().GetTrans() - ik.back().GetTrans()), 1.0f);
  ASSERT_TRUE(theHold.Undo());
  ExpectPoseNear(limb.Pose(), ik, 1e-5f);
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));
  ASSERT_TRUE(theHold.Redo());
  ExpectPoseNear(limb.Pose(), fk, 1e-5f);
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));

  // A match is one undo step that takes the FK tracks back.
  limb.chain->MatchFK(true);
  EXPECT_EQ(theHold.UndoName(0), "IKFK Change");
  ExpectPoseNear(limb.Pose(), ik, 1e-4f);
  ASSERT_TRUE(theHold.Undo());
  ExpectPoseNear(limb.Pose(), fk, 1e-5f);
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));
  ASSERT_TRUE(theHold.Redo());
  ExpectPoseNear(limb.Pose(), ik, 1e-4f);
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));
}

TEST_F(IKFKChainTest, AutoMatchKeepsFKWithTheMovingGoal) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  IParamBlock2* pb = limb.Params();
  pb->SetValue(kIKFKAutoMatch, 0, true);
  limb.goal->Move(0, Matrix3(), Point3(-4, 3, 2));
  const std::vector<Matrix3> ik = limb.Pose();
  EXPECT_POINT3_NEAR(ik.back().GetTrans(), Point3(16, 3, 2), 1e-3f);
  pb->SetValue(kIKFKBlend, 0, 0.0f);
  // The last joint keeps its own FK rotation (it takes the goal's only in IK).
  const std::vector<Matrix3> fk = limb.Pose();
  for (size_t i = 0; i < fk.size(); ++i) {
    SCOPED_TRACE(::testing::Message() << "FK followed the goal's move, joint " << i);
    if (i + 1 < fk.size()) {
      EXPECT_MATRIX3_NEAR(fk[i], ik[i], 1e-3f);
    } else {
      EXPECT_POINT3_NEAR(fk[i].GetTrans(), ik[i].GetTrans(), 1e-3f);
    }
  }
}

TEST_F(IKFKChainTest, GoalParentRefusesNodesThatHangFromTheJoints) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  IParamBlock2* pb = limb.Params();
  INode* below_joint = Node("below", Matrix3(), limb.members[1]);
  INode* free = Node("free", TransMatrix({5, 5, 5}));
  EXPECT_FALSE(pb->SetValue(kIKFKGoalParent, 0, limb.members[1]));
  EXPECT_FALSE(pb->SetValue(kIKFKGoalParent, 0, below_joint));
  EXPECT_EQ(pb->GetINode(kIKFKGoalParent), nullptr);
  // A goal parent that is a member of the chain itself (it reads the chain's node) is fine.
  INode* member_parent = Node("goal parent", TransMatrix({20, 0, 0}));
  auto* gp = new IKFKControl;
  member_parent->SetTMController(gp);
  gp->SetMember(limb.chain_node, kIKFKMemberGoalParent, 0);
  EXPECT_TRUE(pb->SetValue(kIKFKGoalParent, 0, member_parent));
  EXPECT_TRUE(pb->SetValue(kIKFKGoalParent, 0, free));

  // The goal's links exist only while the goal parent is not active.
  IKFKControl* goal = IKFKChain::MemberControl(limb.goal);
  ASSERT_TRUE(goal);
  EXPECT_EQ(goal->NumSubs(), 3);
  pb->SetValue(kIKFKUseGoalParent, 0, false);
  EXPECT_EQ(goal->NumSubs(), 4);
  EXPECT_EQ(goal->SubAnimName(3), "Links");
}

TEST_F(IKFKChainTest, ClonedAndSavedChainsEvaluateAsBefore) {
  {
    const Limb limb = MakeLimb(Bones(LegPoints()));
    ASSERT_TRUE(limb.chain);
    limb.goal->SetNodeTM(0, TransMatrix({18, 4, 5}));
    limb.Params()->SetValue(kIKFKSoftIK, 0, 0.1f);
    limb.chain->SetLocked(true);
    SCOPED_TRACE("a clone reads the same members but owns its block");
    auto* clone = dynamic_cast<IKFKChain*>(CloneRefHierarchy(limb.chain));
    ASSERT_TRUE(clone);
    Matrix3 a, b;
    Interval valid = FOREVER;
    clone->GetValue(0, &a, valid);
    limb.chain->GetValue(0, &b, valid);
    EXPECT_MATRIX3_NEAR(a, b, 1e-5f);
    clone->ParamBlock()->SetValue(kIKFKBlend, 0, 0.0f);
    EXPECT_FLOAT_EQ(limb.Params()->GetFloat(kIKFKBlend), 1.0f);
    clone->DeleteMe();
  }
  std::vector<Matrix3> before;
  for (INode* n : AllNodes()) before.push_back(n->GetNodeTM(0));
  RoundTrip();
  const std::vector<INode*> nodes = AllNodes();
  ASSERT_EQ(nodes.size(), before.size());
  for (size_t i = 0; i < nodes.size(); ++i) {
    SCOPED_TRACE(nodes[i]->GetName());
    EXPECT_MATRIX3_NEAR(nodes[i]->GetNodeTM(0), before[i], 1e-5f);
  }
  auto* chain =
      dynamic_cast<IKFKChain*>(GetCOREInterface()->GetINodeByName("IKFKChain")->GetTMController());
  ASSERT_TRUE(chain);
  EXPECT_TRUE(chain->GetLocked());
  EXPECT_FLOAT_EQ(chain->ParamBlock()->GetFloat(kIKFKSoftIK), 0.1f);
}

TEST_F(IKFKChainTest, CreateIKFKSolverChecksItsArguments) {
  const std::vector<INode*> arm = Bones(ArmPoints());
  INode* other = Node("other");
  auto call_with = [](std::vector<FPValue> args) {
    PrimitiveCall call;
    call.function = "CreateIKFKSolver";
    call.args = args;
    return CreateIKFKSolver(call);
  };
  auto error_of = [&](std::vector<FPValue> args) -> std::string {
    try {
      call_with(std::move(args));
    } catch (const RuntimeError& e) {
      return e.Text();
    }
    return "no error";
  };
  // The argument count and types are checked from a script, where their texts are seen.
  EXPECT_EQ(error_of({FPValue(static_cast<INode*>(nullptr)), FPValue(arm[2])}),
            "Expected a valid Node for Start Joint, in function CreateIKFKSolver");
  EXPECT_EQ(error_of({FPValue(arm[0]), FPValue(static_cast<INode*>(nullptr))}),
            "Expected a valid Node for End Joint, in function CreateIKFKSolver");

  // A start that is not above the end: undefined, nothing made.
  const size_t count = AllNodes().size();
  EXPECT_EQ(call_with({FPValue(other), FPValue(arm[2])}).Type(), FPValue().Type());
  EXPECT_EQ(call_with({FPValue(arm[2]), FPValue(arm[0])}).Type(), FPValue().Type());
  EXPECT_EQ(AllNodes().size(), count);

  // One undo step makes and unmakes the whole chain.
  const Limb limb = MakeLimb(arm);
  ASSERT_TRUE(limb.chain);
  EXPECT_EQ(AllNodes().size(), count + 6);
  EXPECT_EQ(theHold.UndoName(0), "Create IKFK Solver");
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(AllNodes().size(), count);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(AllNodes().size(), count + 6);
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));
}

}  // namespace marvolith::test
