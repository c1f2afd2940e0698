// Copyright Marvolith contributors.
// ParentConstraint in scenes of real nodes: blends, captured parent, offsets, edits through
// SetValue, pivot compensation, undo, files and the published functions.
#include "constraints/parent_constraint.h"

#include <gtest/gtest.h>

#include "controllers/rig_control.h"
#include "host/controllers/prs_control.h"
#include "host/math/affine.h"
#include "host/params/iparamb2.h"
#include "support/lock_chunk.h"
#include "tests/constraints/constraint_fixture.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/chunk_bytes.h"
#include "tests/support/controller_test_util.h"

namespace marvolith::test {
namespace {

constexpr float kTol = 2e-4f;

ParentConstraint* Constrain(INode* node) {
  auto* pc = new ParentConstraint;
  EXPECT_TRUE(node->SetTMController(pc));
  return pc;
}

Matrix3 Posed(float angle, const Point3& axis, const Point3& at) {
  return RotAngleAxisMatrix(Normalize(axis), angle) * TransMatrix(at);
}

class ParentConstraintTest : public ConstraintTest {};

TEST_F(ParentConstraintTest, AssignedOverAnAnimatedTrackKeepsItAndUndoGivesTheOldOneBack) {
  INode* parent = Node("parent", Posed(0.4f, Point3(0, 0, 1), Point3(10, 0, 0)));
  INode* node = Node("node", Matrix3(), parent);
  Control* prs = node->GetTMController();
  AnimateOn();
  node->SetNodeTM(0, Posed(0.2f, Point3(1, 0, 0), Point3(1, 2, 3)));
  node->SetNodeTM(4800, Posed(-0.5f, Point3(0, 1, 0), Point3(4, 5, 6)));
  AnimateOff();
  const Matrix3 at0 = node->GetNodeTM(0);
  const Matrix3 at1 = node->GetNodeTM(4800);

  ParentConstraint* pc = nullptr;
  Undoable("Assign", [&] { pc = Constrain(node); });
  EXPECT_EQ(pc->ChildController(), prs) << "Copy puts the replaced controller under it";
  EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), at0, kTol) << "no target: the captured parent";
  EXPECT_MATRIX3_NEAR(node->GetNodeTM(4800), at1, kTol) << "the animation plays on";
  // Without targets the node's own parent no longer reaches it.
  parent->SetNodeTM(0, TransMatrix(Point3(-5, 0, 0)));
  EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), at0, kTol);

  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(node->GetTMController(), prs);
  parent->SetNodeTM(0, Posed(0.4f, Point3(0, 0, 1), Point3(10, 0, 0)));
  EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), at0, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(ParentConstraintTest, BlendsFollowTheWeightsAndTheListOrder) {
  INode* a = Node("a", Posed(1.2f, Point3(1, 0, 0), Point3(2, 0, 0)));
  INode* b = Node("b", Posed(-0.9f, Point3(0, 1, 0), Point3(0, 4, 0)));
  INode* c = Node("c", Posed(2.0f, Point3(0, 0, 1), Point3(0, 0, 6)));
  INode* n = Node("n", TransMatrix(Point3(7, 7, 7)));
  ParentConstraint* pc = Constrain(n);
  const Matrix3 rest = n->GetNodeTM(0);

  ASSERT_TRUE(pc->AppendTarget(a, 0.0f));
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), a->GetNodeTM(0), kTol)
      << "one target is followed whatever its weight";
  ASSERT_TRUE(pc->AppendTarget(b, 0.0f));
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), rest, kTol) << "weights 0 and 0: as without targets";

  pc->SetWeight(0, 50.0f);
  pc->SetWeight(1, 50.0f);
  const Matrix3 ab = n->GetNodeTM(0);
  EXPECT_POINT3_NEAR(ab.GetTrans(), Point3(1, 2, 0), kTol);
  EXPECT_QUAT_NEAR(Quat(ab), Slerp(Quat(a->GetNodeTM(0)), Quat(b->GetNodeTM(0)), 0.5f), kTol);
  ASSERT_TRUE(pc->DeleteTarget(0));
  ASSERT_TRUE(pc->AppendTarget(a, 50.0f));
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), ab, kTol) << "two targets: order does not matter";

  ASSERT_TRUE(pc->AppendTarget(c, 50.0f));
  const Matrix3 bac = n->GetNodeTM(0);
  ASSERT_TRUE(pc->DeleteTarget(0));
  ASSERT_TRUE(pc->AppendTarget(b, 50.0f));  // a, c, b
  EXPECT_POINT3_NEAR(n->GetNodeTM(0).GetTrans(), bac.GetTrans(), kTol);
  EXPECT_GT(RotationAngleBetween(Quat(n->GetNodeTM(0)), Quat(bac)), 1e-3)
      << "three targets: the order is part of the result";

  // A mirrored target among plain ones: the blend keeps one mirrored axis, not a turned frame.
  INode* m = Node("m", ScaleMatrix(Point3(-1, 1, 1)) * RotateZMatrix(0.2f));
  INode* p = Node("p", ScaleMatrix(Point3(-1, 1, 1)) * RotateZMatrix(0.6f));
  INode* q = Node("q");
  ParentConstraint* mirror = Constrain(q);
  mirror->AppendTarget(m, 50.0f);
  mirror->AppendTarget(p, 50.0f);
  EXPECT_MATRIX3_NEAR(q->GetNodeTM(0), ScaleMatrix(Point3(-1, 1, 1)) * RotateZMatrix(0.4f), kTol);
}

TEST_F(ParentConstraintTest, RelativeTargetsKeepTheNodeWhereItWas) {
  INode* a = Node("a", Posed(0.7f, Point3(1, 2, 3), Point3(3, 0, 1)));
  INode* b =
      Node("b", ScaleMatrix(Point3(2, 1, 1)) * Posed(-1.1f, Point3(0, 1, 1), Point3(0, 5, 0)));
  INode* n = Node("n", Posed(0.3f, Point3(0, 0, 1), Point3(1, 1, 1)));
  ParentConstraint* pc = Constrain(n);
  pc->ParamBlock()->SetValue(kTargetRelative, 0, true);
  const Matrix3 world = n->GetNodeTM(0);
  ASSERT_TRUE(pc->AppendTarget(a, 50.0f));
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), world, kTol) << "first target";
  ASSERT_TRUE(pc->AppendTarget(b, 50.0f));
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), world, kTol) << "second target";
  EXPECT_MATRIX3_NEAR(pc->GetOffset(0) * a->GetNodeTM(0), world, kTol);

  // Moving a target carries the node along.
  a->Move(0, Matrix3(), Point3(0, 0, 4));
  EXPECT_NEAR(n->GetNodeTM(0).GetTrans().z, world.GetTrans().z + 2.0f, kTol) << "half the move";
  // Without relative, the targets' own transforms are blended.
  pc->ParamBlock()->SetValue(kTargetRelative, 0, false);
  EXPECT_POINT3_NEAR(n->GetNodeTM(0).GetTrans(),
                     (a->GetNodeTM(0).GetTrans() + b->GetNodeTM(0).GetTrans()) * 0.5f, kTol);
  EXPECT_FALSE(pc->SetOffset(2, Matrix3()));

  // A target added before the constraint was ever evaluated: the node's own parent is captured.
  INode* parent = Node("parent", Posed(0.9f, Point3(1, 0, 1), Point3(0, 0, 9)));
  INode* late = Node("late", Posed(0.4f, Point3(0, 1, 0), Point3(2, 2, 2)), parent);
  const Matrix3 late_world = late->GetNodeTM(0);
  ParentConstraint* late_pc = Constrain(late);
  late_pc->ParamBlock()->SetValue(kTargetRelative, 0, true);
  ASSERT_TRUE(late_pc->AppendTarget(a, 50.0f));
  EXPECT_MATRIX3_NEAR(late->GetNodeTM(0), late_world, kTol);
  EXPECT_TRUE(pc->GetOffset(-1).IsIdentity());
}

TEST_F(ParentConstraintTest, ListEditsAnswerTheirFailuresAndUndoAsOneStep) {
  INode* a = Node("a", TransMatrix(Point3(1, 0, 0)));
  INode* b = Node("b", TransMatrix(Point3(0, 3, 0)));
  INode* n = Node("n");
  INode* child = Node("child", Matrix3(), n);
  ParentConstraint* pc = Constrain(n);
  EXPECT_FALSE(pc->AppendTarget(child, 50.0f)) << "a node below the constrained one is a loop";
  EXPECT_FALSE(pc->AppendTarget(n, 50.0f)) << "its own node";
  ASSERT_TRUE(pc->AppendTarget(a, 50.0f));
  EXPECT_FALSE(pc->AppendTarget(a, 10.0f)) << "already a target";
  EXPECT_FALSE(pc->ParamBlock()->SetValue(kTargetList, 0, child, 0))
      << "the list itself refuses a loop";
  EXPECT_EQ(pc->GetNode(0), a);
  EXPECT_EQ(pc->GetNumTargets(), 1);
  EXPECT_EQ(theHold.UndoCount(), 1) << "one entry per append, none for a refusal";

  ASSERT_TRUE(pc->AppendTarget(b, 25.0f));
  EXPECT_EQ(pc->GetNode(1), b);
  EXPECT_EQ(pc->GetNode(2), nullptr);
  EXPECT_FLOAT_EQ(pc->GetWeight(1), 25.0f);
  EXPECT_FLOAT_EQ(pc->GetWeight(5), 0.0f);
  EXPECT_FALSE(pc->SetWeight(2, 1.0f));
  EXPECT_FALSE(pc->DeleteTarget(-1));
  EXPECT_TRUE(pc->DeleteTarget(7)) << "past the end deletes nothing and answers true";
  EXPECT_EQ(pc->GetNumTargets(), 2);

  const Matrix3 with_two = n->GetNodeTM(0);
  ASSERT_TRUE(pc->DeleteTarget(0));
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), b->GetNodeTM(0), kTol);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(pc->GetNumTargets(), 2);
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), with_two, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  ASSERT_TRUE(theHold.Undo());  // append b
  ASSERT_TRUE(theHold.Undo());  // append a
  EXPECT_EQ(pc->GetNumTargets(), 0);
  EXPECT_TRUE(n->GetNodeTM(0).IsIdentity());
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  ASSERT_TRUE(theHold.Redo());
  ASSERT_TRUE(theHold.Redo());
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(pc->GetNumTargets(), 1);
  EXPECT_EQ(pc->GetNode(0), b);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // A deleted target node leaves a null entry that counts as the identity with its weight.
  pc->AppendTarget(a, 50.0f);
  b->Delete(0);
  EXPECT_EQ(pc->GetNumTargets(), 2);
  EXPECT_POINT3_NEAR(n->GetNodeTM(0).GetTrans(), Point3(50.0f / 75.0f, 0, 0), kTol)
      << "b (weight 25) at the origin, a (weight 50) at X 1";
}

TEST_F(ParentConstraintTest, EditsThroughTheConstraintLandWhereThePacketAsks) {
  INode* a = Node("a", Posed(0.6f, Point3(1, 1, 0), Point3(4, 0, 0)));
  INode* b = Node("b", Posed(-0.4f, Point3(0, 0, 1), Point3(0, 2, 2)));
  INode* n = Node("n");
  ParentConstraint* pc = Constrain(n);
  pc->AppendTarget(a, 50.0f);
  pc->AppendTarget(b, 30.0f);
  const Matrix3 local_axes = n->GetNodeTM(0);

  const Matrix3 goal = Posed(1.0f, Point3(1, -2, 0.5f), Point3(-3, 8, 1));
  n->SetNodeTM(0, goal);
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), goal, kTol) << "set";

  Matrix3 before = n->GetNodeTM(0);
  n->Move(0, Matrix3(), Point3(1, 2, 3));
  EXPECT_POINT3_NEAR(n->GetNodeTM(0).GetTrans(), before.GetTrans() + Point3(1, 2, 3), kTol)
      << "world move";
  before = n->GetNodeTM(0);
  n->Move(0, before, Point3(2, 0, 0));
  EXPECT_POINT3_NEAR(n->GetNodeTM(0).GetTrans(),
                     before.GetTrans() + Normalize(before.GetRow(0)) * 2.0f, kTol)
      << "local move";

  before = n->GetNodeTM(0);
  const Quat turn = QFromAngAxis(0.5f, Point3(0, 0, 1));
  n->Rotate(0, TransMatrix(before.GetTrans()), turn, true);
  EXPECT_MATRIX3_NEAR(
      Matrix3(n->GetNodeTM(0)),
      before * TransMatrix(-before.GetTrans()) * MatrixOf(turn) * TransMatrix(before.GetTrans()),
      kTol)
      << "world rotate about the pivot";
  before = n->GetNodeTM(0);
  n->Rotate(0, before, turn, true);
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), MatrixOf(turn) * before, kTol) << "local rotate";

  before = n->GetNodeTM(0);
  n->Scale(0, before, Point3(2, 1, 1), true);
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), ScaleMatrix(Point3(2, 1, 1)) * before, kTol)
      << "local scale";
  (void)local_axes;

  // The targets still lead: moving one moves the node by its weighted share.
  before = n->GetNodeTM(0);
  a->Move(0, Matrix3(), Point3(0, 0, 8));
  EXPECT_NEAR(n->GetNodeTM(0).GetTrans().z - before.GetTrans().z, 8.0f * 50.0f / 80.0f, 2e-3f);
}

TEST_F(ParentConstraintTest, PacketsThatOnlyCarryAParentOrAnAncestorsScaleAreNotApplied) {
  INode* a = Node("a", TransMatrix(Point3(5, 0, 0)));
  INode* parent = Node("parent", TransMatrix(Point3(0, 0, 3)));
  INode* n = Node("n", TransMatrix(Point3(1, 1, 1)), parent);
  ParentConstraint* pc = Constrain(n);
  pc->AppendTarget(a, 50.0f);
  const Matrix3 world = n->GetNodeTM(0);  // the constraint sees the parent transform here
  const Matrix3 p0 = parent->GetNodeTM(0);
  const Point3 d(0, 4, 0);

  // The host moving the node back after its parent moved by d: the packet lands on the old
  // parent transform, so it carries no edit of the user's.
  const SetXFormPacket back(-d, p0 * TransMatrix(d), Matrix3());
  Undoable("Parent Moved", [&] {
    SetXFormPacket pk = back;
    pc->SetValue(0, &pk);
  });
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), world, kTol) << "not applied";
  // A selected node takes the packet as an edit; so does any packet outside a hold.
  GetCOREInterface()->SelectNode(n);
  Undoable("Move", [&] {
    SetXFormPacket pk = back;
    pc->SetValue(0, &pk);
  });
  EXPECT_POINT3_NEAR(n->GetNodeTM(0).GetTrans(), world.GetTrans() - d, kTol);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), world, kTol);

  // Scaling a node whose ancestor is selected too: the ancestor's scale is not taken twice.
  GetCOREInterface()->SelectNode(parent, false);
  Undoable("Scale", [&] { n->Scale(0, world, Point3(2, 2, 2), true); });
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), world, kTol);
  GetCOREInterface()->DeSelectNode(parent);
  Undoable("Scale", [&] { n->Scale(0, world, Point3(2, 2, 2), true); });
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), ScaleMatrix(Point3(2, 2, 2)) * world, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(ParentConstraintTest, GimbalModeShowsTheChildsEulerTrackInTheBlendedFrame) {
  INode* a = Node("a", RotateZMatrix(0.7f) * TransMatrix(Point3(5, 0, 0)));
  INode* n = Node("n");
  ParentConstraint* pc = Constrain(n);
  pc->AppendTarget(a, 50.0f);
  Control* real = pc->GetRotationController();
  ASSERT_NE(real, nullptr);
  GetCOREInterface()->SetRefCoordSys(COORDS_GIMBAL);
  Control* proxy = pc->GetRotationController();
  ASSERT_NE(proxy, real) << "the shared proxy stands in for the Euler track";
  Quat frame;
  Interval valid = FOREVER;
  static_cast<Control*>(proxy->SubAnim(0))->GetValue(0, &frame, valid, CTRL_ABSOLUTE);
  EXPECT_QUAT_NEAR(frame, Quat(RotateZMatrix(0.7f)), kTol) << "its parent rotation is the blend";
  GetCOREInterface()->SetPivotMode(PIV_PIVOT_ONLY);
  EXPECT_EQ(pc->GetRotationController(), real);
  GetCOREInterface()->SetRefCoordSys(COORDS_WORLD);
  ReleaseGimbalProxy();
}

TEST_F(ParentConstraintTest, EditingATargetsPivotLeavesTheNodeInPlace) {
  for (bool relative : {true, false}) {
    SCOPED_TRACE(relative ? "relative" : "not relative");
    GetCOREInterface()->Reset();
    INode* a = Node("a", Posed(0.5f, Point3(0, 0, 1), Point3(2, 0, 0)));
    INode* b = Node("b", TransMatrix(Point3(0, 6, 0)));
    INode* n = Node("n", Posed(0.2f, Point3(1, 0, 0), Point3(1, 1, 1)));
    ParentConstraint* pc = Constrain(n);
    pc->ParamBlock()->SetValue(kTargetRelative, 0, relative);
    pc->AppendTarget(a, 50.0f);
    pc->AppendTarget(b, 50.0f);
    const Matrix3 world = n->GetNodeTM(0);  // also brings the trackers up to date
    const Matrix3 object_ws = a->GetObjectTM(0);

    // The pivot of a moves, its object stays: the node TM moves and the offset takes it back.
    GetCOREInterface()->SelectNode(a);
    GetCOREInterface()->SetPivotMode(PIV_PIVOT_ONLY);
    Undoable("Move Pivot", [&] {
      const Point3 d(0, 0, 3);
      a->Move(0, Matrix3(), d);
      const Point3 d_local = VectorTransform(Inverse(a->GetNodeTM(0)), d);
      a->SetObjOffsetPos(a->GetObjOffsetPos() - d_local);
    });
    EXPECT_MATRIX3_NEAR(a->GetObjectTM(0), object_ws, kTol) << "the object did not move";
    EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), world, kTol);
    EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

    // An ordinary move of the target (no pivot mode) moves the node.
    GetCOREInterface()->SetPivotMode(PIV_NONE);
    Undoable("Move", [&] { a->Move(0, Matrix3(), Point3(0, 0, 2)); });
    EXPECT_NEAR(n->GetNodeTM(0).GetTrans().z, world.GetTrans().z + 1.0f, kTol);

    ASSERT_TRUE(theHold.Undo());
    ASSERT_TRUE(theHold.Undo());
    EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), world, kTol);
    EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  }
}

TEST_F(ParentConstraintTest, ScenesRoundTripByteForByteAndCaptureWhenTheParentIsMissing) {
  INode* a = Node("a", Posed(0.5f, Point3(0, 1, 1), Point3(2, 0, 0)));
  INode* b = Node("b", TransMatrix(Point3(0, 6, 0)));
  INode* n = Node("n", Posed(0.2f, Point3(1, 0, 0), Point3(1, 1, 1)));
  ParentConstraint* pc = Constrain(n);
  pc->ParamBlock()->SetValue(kTargetRelative, 0, true);
  pc->AppendTarget(a, 70.0f);
  pc->AppendTarget(b, 20.0f);
  pc->SetLocked(true);
  INode* lone = Node("lone", Posed(1.0f, Point3(0, 0, 1), Point3(5, 5, 5)));
  Constrain(lone);
  const Matrix3 n_world = n->GetNodeTM(0);
  const Matrix3 lone_world = lone->GetNodeTM(0);

  RoundTrip();
  INode* n2 = GetCOREInterface()->GetINodeByName("n");
  INode* lone2 = GetCOREInterface()->GetINodeByName("lone");
  ASSERT_TRUE(n2 && lone2);
  EXPECT_MATRIX3_NEAR(n2->GetNodeTM(0), n_world, kTol);
  EXPECT_MATRIX3_NEAR(lone2->GetNodeTM(0), lone_world, kTol);
  auto* pc2 = dynamic_cast<ParentConstraint*>(n2->GetTMController());
  ASSERT_NE(pc2, nullptr);
  EXPECT_TRUE(pc2->GetLocked());
  EXPECT_EQ(pc2->GetNumTargets(), 2);

  // A file without the captured parent captures it again at the first evaluation.
  auto* fresh = static_cast<ParentConstraint*>(GetParentConstraintDesc()->Create(true));
  ASSERT_EQ(LoadBytes(fresh, ContainerChunk(1, {DataChunk(kLockChunkID, Bytes{0}),
                                                DataChunk(0x7777, Bytes{1, 2, 3})})),
            IO_OK)
      << "the unknown chunk is skipped";
  Matrix3 parent = TransMatrix(Point3(3, 2, 1));
  Interval valid = FOREVER;
  fresh->GetValue(0, &parent, valid, CTRL_RELATIVE);
  EXPECT_MATRIX3_NEAR(fresh->LastParentTM(), TransMatrix(Point3(3, 2, 1)), 0.0f);
  fresh->DeleteMe();
}

TEST_F(ParentConstraintTest, EvaluationAllocatesNothingOnChangingTargets) {
  INode* targets[4];
  for (int i = 0; i < 4; ++i) {
    targets[i] = Node("t", Posed(0.3f * i, Point3(1, i, 2), Point3(i, 2.0f * i, 1)));
  }
  INode* n = Node("n");
  ParentConstraint* pc = Constrain(n);
  for (INode* t : targets) pc->AppendTarget(t, 25.0f);
  Matrix3 tm;
  Interval valid = FOREVER;
  pc->GetValue(0, &tm, valid, CTRL_RELATIVE);  // sizes the trackers
  AllocationScope counter;
  for (int k = 0; k < 20; ++k) {
    for (INode* t : targets) t->GetNodeTM(0);  // targets evaluated (cached), as the scene would
    tm = Matrix3();
    valid = FOREVER;
    pc->GetValue(0, &tm, valid, CTRL_RELATIVE);
  }
  EXPECT_EQ(counter.Count(), 0u);
}

}  // namespace
}  // namespace marvolith::test
