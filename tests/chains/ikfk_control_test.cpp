// Copyright Marvolith contributors.
// The chain's options seen through its members: rotation space, stretch folding, the swivel
// written back by a match, links on the goal, the gimbal proxy, members without a chain, and
// evaluation without allocation.
#include "controllers/rig_control.h"
#include "host/core/clock.h"
#include "host/gfx/draw_scene.h"
#include "host/gfx/graphics_window.h"
#include "host/gfx/headless_viewport.h"
#include "tests/chains/ikfk_chain_fixture.h"
#include "tests/support/alloc_counter.h"

namespace marvolith::test {

TEST_F(IKFKChainTest, RotationSpaceTurnsTheFKRootAndMatchesUndoIt) {
  // The arm starts away from its parent's origin, so that turning about the root differs from
  // turning about the parent.
  INode* torso = Node("torso", TransMatrix({1, 0, 1}));
  std::vector<Point3> points = ArmPoints();
  for (Point3& p : points) p += Point3(3, 2, 1);
  const Limb limb = MakeLimb(Bones(points, torso));
  ASSERT_TRUE(limb.chain);
  IParamBlock2* pb = limb.Params();
  INode* space = Node("space");
  pb->SetValue(kIKFKRotationSpaceNode, 0, space);
  pb->SetValue(kIKFKBlend, 0, 0.0f);
  const std::vector<Matrix3> rest = limb.Pose();
  const Point3 root = rest[0].GetTrans();
  auto about_root = [&](float angle) {
    return TransMatrix(-root) * RotateZMatrix(angle) * TransMatrix(root);
  };
  space->SetNodeTM(0, RotateZMatrix(1.5707963f));
  // The whole FK arm turns with the space about its root.
  for (size_t i = 0; i < rest.size(); ++i) {
    SCOPED_TRACE(::testing::Message() << "joint " << i);
    EXPECT_MATRIX3_NEAR(limb.members[i]->GetNodeTM(0), rest[i] * about_root(1.5707963f), 1e-4f);
  }
  // Half the weight, half the turn.
  pb->SetValue(kIKFKRotationSpace, 0, 0.5f);
  EXPECT_POINT3_NEAR(limb.members[2]->GetNodeTM(0).GetTrans(),
                     rest[2].GetTrans() * about_root(0.7853982f), 1e-3f);
  pb->SetValue(kIKFKRotationSpace, 0, 1.0f);

  // A joint write under the space lands where asked.
  Matrix3 want = limb.members[0]->GetNodeTM(0);
  want.PreRotateY(-0.3f);
  limb.members[0]->SetNodeTM(0, want);
  EXPECT_MATRIX3_NEAR(limb.members[0]->GetNodeTM(0), want, 1e-4f);
  want.SetTrans(want.GetTrans() + Point3(0, 0, 2));
  limb.members[0]->SetNodeTM(0, want);
  EXPECT_MATRIX3_NEAR(limb.members[0]->GetNodeTM(0), want, 1e-4f) << "and moved";
  limb.members[0]->Move(0, Matrix3(), Point3(1, -1, 0));
  EXPECT_POINT3_NEAR(limb.members[0]->GetNodeTM(0).GetTrans(), want.GetTrans() + Point3(1, -1, 0),
                     1e-4f);
  want = limb.members[0]->GetNodeTM(0);
  const Point3 o = want.GetTrans();
  limb.members[0]->Rotate(0, Matrix3(), AngAxis(Point3(0, 0, 1), 0.3f), true);
  want = want * TransMatrix(-o) * RotAngleAxisMatrix(Point3(0, 0, 1), 0.3f) * TransMatrix(o);
  EXPECT_MATRIX3_NEAR(limb.members[0]->GetNodeTM(0), want, 1e-4f) << "and turned";

  // IK and back: the FK pose comes back with the space's turn taken out of the FK track.
  const std::vector<Matrix3> fk = limb.Pose();
  limb.chain->MatchIK(0, true, true, -1, true, true);
  pb->SetValue(kIKFKBlend, 0, 1.0f);
  ExpectPoseNear(limb.Pose(), fk, 1e-3f, true);
  limb.chain->MatchFK(0, false, true, -1);
  pb->SetValue(kIKFKBlend, 0, 0.0f);
  ExpectPoseNear(limb.Pose(), fk, 1e-3f, true);
  EXPECT_MATRIX3_NEAR(limb.members[0]->GetNodeTM(0), fk[0], 1e-3f);
}

TEST_F(IKFKChainTest, AutomaticStretchFoldsIntoManualStretch) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  IParamBlock2* pb = limb.Params();
  const float length = limb.BoneLengths()[0] + limb.BoneLengths()[1];
  const Point3 far(length * 1.5f, 0, 0);
  limb.goal->SetNodeTM(0, TransMatrix(far));
  EXPECT_LT(limb.members[2]->GetNodeTM(0).GetTrans().x, length + 1e-3f) << "no stretch yet";
  pb->SetValue(kIKFKAutoStretch, 0, 1.0f);
  EXPECT_POINT3_NEAR(limb.members[2]->GetNodeTM(0).GetTrans(), far, 1e-3f);
  EXPECT_NEAR(limb.chain->StretchFactor(), 1.5f, 1e-3f);

  limb.chain->MatchManualStretch();
  EXPECT_NEAR(pb->GetFloat(kIKFKManualStretch), 1.5f, 1e-3f);
  pb->SetValue(kIKFKAutoStretch, 0, 0.0f);
  EXPECT_POINT3_NEAR(limb.members[2]->GetNodeTM(0).GetTrans(), far, 1e-3f)
      << "the manual stretch now reaches alone";
  ASSERT_TRUE(theHold.Undo());  // the auto_stretch write was not in a hold: this is the match
  EXPECT_NEAR(pb->GetFloat(kIKFKManualStretch), 1.0f, 1e-6f);
}

TEST_F(IKFKChainTest, MatchIKPushesTheGoalOutOfTheSoftZone) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));  // nearly straight: inside a wide soft zone
  ASSERT_TRUE(limb.chain);
  IParamBlock2* pb = limb.Params();
  pb->SetValue(kIKFKSoftIK, 0, 0.3f);
  pb->SetValue(kIKFKBlend, 0, 0.0f);
  const std::vector<Matrix3> fk = limb.Pose();
  limb.chain->MatchIK(true);
  const Point3 goal = limb.goal->GetNodeTM(0).GetTrans();
  EXPECT_GT(goal.x, fk.back().GetTrans().x + 0.01f) << "the goal sits beyond the end";
  pb->SetValue(kIKFKBlend, 0, 1.0f);
  ExpectPoseNear(limb.Pose(), fk, 1e-3f, true);
}

TEST_F(IKFKChainTest, MatchIKWithoutTargetWritesTheSwivel) {
  for (const auto& points : {ArmPoints(), LegPoints()}) {
    SCOPED_TRACE(::testing::Message() << points.size() << " joints");
    GetCOREInterface()->Reset();
    const Limb limb = MakeLimb(Bones(points));
    ASSERT_TRUE(limb.chain);
    IParamBlock2* pb = limb.Params();
    pb->SetValue(kIKFKUseTarget, 0, false);
    pb->SetValue(kIKFKBlend, 0, 0.0f);
    // Roll the FK limb about its root -> end line: only a swivel can say that in IK.
    Matrix3 root = limb.members[0]->GetNodeTM(0);
    const Point3 line = Normalize(points.back() - points.front());
    root = root * RotAngleAxisMatrix(line, 0.7f);
    limb.members[0]->SetNodeTM(0, root);
    const std::vector<Matrix3> fk = limb.Pose();
    limb.chain->MatchIK(true);
    EXPECT_GT(std::fabs(pb->GetFloat(kIKFKSwivelAngle)), 0.1f);
    pb->SetValue(kIKFKBlend, 0, 1.0f);
    if (points.size() == 3) {
      ExpectPoseNear(limb.Pose(), fk, 1e-3f, true);
    } else {
      EXPECT_POINT3_NEAR(limb.Pose().back().GetTrans(), fk.back().GetTrans(), 1e-3f);
    }
  }
}

TEST_F(IKFKChainTest, GoalLinksCarryTheGoalWithoutAJump) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  IKFKControl* goal = IKFKChain::MemberControl(limb.goal);
  ASSERT_TRUE(goal);
  ASSERT_TRUE(goal->SetLink(new IKFKLink));
  INode* hand_space = Node("hand space", TransMatrix({5, 5, 0}));
  ASSERT_TRUE(goal->Link()->AddTarget(hand_space, 0, true));
  EXPECT_POINT3_NEAR(limb.goal->GetNodeTM(0).GetTrans(), Point3(20, 0, 0), 1e-4f)
      << "adding the link keeps the goal in place";
  hand_space->SetNodeTM(0, TransMatrix({1, 5, 3}));
  EXPECT_POINT3_NEAR(limb.goal->GetNodeTM(0).GetTrans(), Point3(16, 0, 3), 1e-4f);
  EXPECT_POINT3_NEAR(limb.members[2]->GetNodeTM(0).GetTrans(), Point3(16, 0, 3), 1e-3f);
  EXPECT_EQ(FindOwnerNode(goal->Link()), limb.goal)
      << "the link finds its goal through the control";
  // A match writes the goal through its link: it lands on the FK end.
  limb.Params()->SetValue(kIKFKBlend, 0, 0.0f);
  limb.chain->MatchIK(false);
  EXPECT_POINT3_NEAR(limb.goal->GetNodeTM(0).GetTrans(), Point3(20, 0, 0), 1e-3f);
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));
}

TEST_F(IKFKChainTest, GimbalCoordinatesShowTheJointsEulerAxes) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  limb.Params()->SetValue(kIKFKBlend, 0, 0.0f);
  Control* member = limb.members[1]->GetTMController();
  Control* real = member->GetRotationController();
  ASSERT_TRUE(real && real->GetInterface(I_EULERCTRL));
  GetCOREInterface()->SetRefCoordSys(COORDS_GIMBAL);
  Control* proxy = member->GetRotationController();
  ASSERT_TRUE(proxy);
  EXPECT_NE(proxy, real);
  EXPECT_EQ(proxy, GetGimbalProxy());
  // The proxy's frame and Euler axes make up the joint's world rotation.
  Matrix3 world;
  Interval valid = FOREVER;
  proxy->GetValue(0, &world, valid, CTRL_RELATIVE);
  EXPECT_QUAT_NEAR(Quat(world), Quat(limb.members[1]->GetNodeTM(0)), 1e-4f);
  GetCOREInterface()->SetPivotMode(PIV_PIVOT_ONLY);
  EXPECT_EQ(member->GetRotationController(), real);
  GetCOREInterface()->SetPivotMode(0);
  GetCOREInterface()->SetRefCoordSys(COORDS_LOCAL);
  EXPECT_EQ(member->GetRotationController(), real);
  ReleaseGimbalProxy();
}

TEST_F(IKFKChainTest, MembersWithoutAChainAreTheirLocalController) {
  INode* parent = Node("parent", TransMatrix({1, 2, 3}));
  INode* node = Node("node", Matrix3(), parent);
  auto* member = new IKFKControl;
  node->SetTMController(member);
  const Matrix3 want = RotateYMatrix(0.5f) * TransMatrix({4, 0, 0});
  node->SetNodeTM(0, want);
  EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), want, 1e-5f);
  EXPECT_EQ(member->FindChain(), nullptr);
  member->SetLocked(true);
  node->SetNodeTM(0, TransMatrix({9, 9, 9}));
  EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), want, 1e-5f) << "locked";
  // A member of a node that is not a chain finds none.
  member->SetMember(parent, kIKFKMemberJoint, 0);
  EXPECT_EQ(member->FindChain(), nullptr);
  EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), want, 1e-5f);
}

TEST_F(IKFKChainTest, SolvingAgainAllocatesNothing) {
  for (const auto& points : {ArmPoints(), LegPoints()}) {
    SCOPED_TRACE(::testing::Message() << points.size() << " joints");
    GetCOREInterface()->Reset();
    const Limb limb = MakeLimb(Bones(points));
    ASSERT_TRUE(limb.chain);
    limb.Params()->SetValue(kIKFKBlend, 0, 0.5f);
    limb.goal->SetNodeTM(0, TransMatrix({points.back().x - 4, 2, 3}));
    Matrix3 tm;
    Interval valid = FOREVER;
    limb.chain->GetJointTM(0, 0, tm, valid);
    AllocationScope scope;
    for (TimeValue t : {0, 160, 320}) {
      limb.chain->MarkDirty();
      for (int i = 0; i < limb.chain->NumJoints(); ++i) limb.chain->GetJointTM(i, t, tm, valid);
    }
    EXPECT_EQ(scope.Count(), 0u);
    EXPECT_FALSE(limb.chain->GetJointTM(limb.chain->NumJoints(), 0, tm, valid));
    EXPECT_FALSE(limb.chain->GetJointTM(-1, 0, tm, valid));
  }
}

TEST_F(IKFKChainTest, JointWritesInIKMatchFirstAndTheEndMovesTheGoal) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  limb.Params()->SetValue(kIKFKAutoMatch, 0, true);
  limb.goal->SetNodeTM(0, TransMatrix({14, 3, 4}));
  const std::vector<Matrix3> ik = limb.Pose();
  // Turning the end joint while IK shows: the goal takes the new turn, so the joint shows it.
  Matrix3 want = ik[2];
  want.PreRotateZ(0.5f);
  limb.members[2]->SetNodeTM(0, want);
  EXPECT_MATRIX3_NEAR(limb.members[2]->GetNodeTM(0), want, 1e-3f);
  EXPECT_POINT3_NEAR(limb.goal->GetNodeTM(0).GetTrans(), want.GetTrans(), 1e-3f);
  // The FK tracks took the IK pose before the write: FK shows the same limb.
  limb.Params()->SetValue(kIKFKBlend, 0, 0.0f);
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(::testing::Message() << "joint " << i);
    EXPECT_MATRIX3_NEAR(limb.members[i]->GetNodeTM(0), i < 2 ? ik[i] : want, 1e-3f);
  }
}

TEST_F(IKFKChainTest, DeletedGoalLeavesTheFKPoseUntilUndone) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  limb.goal->SetNodeTM(0, TransMatrix({14, 3, 4}));
  const std::vector<Matrix3> ik = limb.Pose();
  Undoable("delete goal", [&] { GetCOREInterface()->DeleteNode(limb.goal); });
  EXPECT_EQ(limb.chain->GoalNode(), nullptr);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_MATRIX3_NEAR(limb.members[i]->GetNodeTM(0), limb.bones[i]->GetNodeTM(0), 1e-4f);
  }
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));
  ASSERT_TRUE(theHold.Undo());
  ASSERT_NE(limb.chain->GoalNode(), nullptr);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_MATRIX3_NEAR(limb.members[i]->GetNodeTM(0), ik[i], 1e-4f);
  }
  EXPECT_TRUE(ChainsAgreeWithFreshSolve(0));
}

TEST_F(IKFKChainTest, DisplayDrawsBonesGoalAndTarget) {
  const Limb limb = MakeLimb(Bones(ArmPoints()));
  ASSERT_TRUE(limb.chain);
  limb.goal->SetNodeTM(0, TransMatrix({14, 2, 5}));
  HeadlessViewport vpt;
  struct Drawn {
    std::vector<std::vector<Point3>> lines;
    int markers = 0;
  };
  auto drawn = [&] {
    vpt.BeginFrame();
    DrawScene(0, vpt);  // the scene draws (the chain among it) ...
    vpt.BeginFrame();   // ... and the chain's own drawing is looked at alone
    EXPECT_EQ(limb.chain->Display(0, limb.chain_node, &vpt, 0), 1);
    const DisplayList& list = vpt.GetDisplayList();
    Drawn d;
    for (const DisplayPrimitive& p : list.primitives) {
      if (p.kind == PrimitiveKind::kPolyline) {
        d.lines.emplace_back(list.Points(p).begin(), list.Points(p).end());
      } else if (p.kind == PrimitiveKind::kMarker) {
        ++d.markers;
      }
    }
    return d;
  };
  const std::vector<Matrix3> pose = limb.Pose();
  Drawn d = drawn();
  ASSERT_EQ(d.lines.size(), 3u) << "two bones and the target's line; the goal only when selected";
  for (size_t i = 0; i < 2; ++i) {
    ASSERT_EQ(d.lines[i].size(), 2u);
    EXPECT_POINT3_NEAR(d.lines[i][0], pose[i].GetTrans(), 1e-4f);
    EXPECT_POINT3_NEAR(d.lines[i][1], pose[i + 1].GetTrans(), 1e-4f);
  }
  EXPECT_POINT3_NEAR(d.lines[2][1], limb.target->GetNodeTM(0).GetTrans(), 1e-4f);
  EXPECT_EQ(d.markers, 1);
  GetCOREInterface()->SelectNode(limb.chain_node);
  d = drawn();
  EXPECT_EQ(d.lines.size(), 4u);
  EXPECT_EQ(d.markers, 2);
  limb.Params()->SetValue(kIKFKDisplayTarget, 0, 0);
  limb.Params()->SetValue(kIKFKDisplayGoal, 0, 0);
  d = drawn();
  EXPECT_EQ(d.lines.size(), 2u);
  EXPECT_EQ(d.markers, 0);
}

}  // namespace marvolith::test
