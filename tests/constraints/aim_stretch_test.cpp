// Copyright Marvolith contributors.
// The aim and stretch constraints in scenes of real nodes: evaluation, invalidation, undo,
// assignment, files, loops and the view line.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "constraints/aim_constraint.h"
#include "constraints/aim_frames.h"
#include "constraints/stretch_constraint.h"
#include "host/app/scene_file.h"
#include "host/gfx/draw_scene.h"
#include "host/gfx/headless_viewport.h"
#include "host/io/chunk_stream.h"
#include "host/math/affine.h"
#include "host/params/iparamb2.h"
#include "host/scene/core_interface.h"
#include "host/scene/scene.h"
#include "host/script/fp_dispatch.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"
#include "support/lock_chunk.h"
#include "tests/constraints/constraint_fixture.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/math_matchers.h"
#include "tests/support/scene_checks.h"

namespace marvolith::test {
namespace {

constexpr float kTol = 2e-4f;

Point3 Dir(const Matrix3& m, int axis, bool flip = false) {
  const Point3 row = Normalize(m.GetRow(axis));
  return flip ? -row : row;
}

class AimStretchTest : public ConstraintTest {
 protected:
  // An eye at pos whose rotation aims at target.
  AimConstraint* Aim(INode* eye, INode* target) {
    auto* aim = new AimConstraint;
    EXPECT_TRUE(eye->GetTMController()->SetRotationController(aim));
    EXPECT_TRUE(aim->ParamBlock()->SetValue(kAimTarget, 0, target));
    return aim;
  }
  StretchConstraint* Stretch(INode* node, INode* start, INode* end) {
    auto* c = new StretchConstraint;
    node->SetTMController(c);
    c->ParamBlock()->SetValue(kStretchStart, 0, start);
    c->ParamBlock()->SetValue(kStretchEnd, 0, end);
    return c;
  }

  Interface* ip = GetCOREInterface();
};

TEST_F(AimStretchTest, AimTurnsTheChosenAxisAtTheTargetAndFollowsIt) {
  INode* target = Node("target", TransMatrix(Point3(10, 5, -3)));
  INode* eye = Node("eye", TransMatrix(Point3(1, 1, 1)));
  AimConstraint* aim = Aim(eye, target);
  IParamBlock2* pb = aim->ParamBlock();
  for (int axis = 0; axis < 3; ++axis) {
    for (bool flip : {false, true}) {
      SCOPED_TRACE("axis " + std::to_string(axis) + (flip ? " flipped" : ""));
      pb->SetValue(kAimAimAxis, 0, axis);
      pb->SetValue(kAimAimAxisFlip, 0, flip);
      const Matrix3 tm = eye->GetNodeTM(0);
      EXPECT_POINT3_NEAR(tm.GetTrans(), Point3(1, 1, 1), kTol);
      EXPECT_POINT3_NEAR(Dir(tm, axis, flip), Normalize(Point3(9, 4, -4)), kTol);
    }
  }
  target->SetNodeTM(0, TransMatrix(Point3(1, 1, -20)));
  EXPECT_POINT3_NEAR(Dir(eye->GetNodeTM(0), 2, true), Point3(0, 0, -1), kTol)
      << "the target's move reaches the eye";
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // Absolute: the rotation within the aim frame, as the frame rules give it.
  Quat q = ValueAt<Quat>(aim, 0);
  AimAxes axes;
  axes.aim_axis = 2;
  axes.aim_flip = true;
  EXPECT_QUAT_NEAR(q, AimAt(TransMatrix(Point3(1, 1, 1)), Point3(1, 1, -20), axes).q, 1e-5f);

  // Without a target (or with use_target off): the frame, and the identity in absolute mode.
  const Matrix3 parent = RotateXMatrix(0.5f) * TransMatrix(Point3(3, 0, 0));
  pb->SetValue(kAimUseTarget, 0, false);
  EXPECT_MATRIX3_NEAR(WorldAt(aim, 0, parent), parent, 0.0f);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(aim, 0), Quat(), 0.0f);
  pb->SetValue(kAimUseTarget, 0, true);
  pb->SetValue(kAimTarget, 0, static_cast<INode*>(nullptr));
  EXPECT_MATRIX3_NEAR(WorldAt(aim, 0, parent), parent, 0.0f);
  EXPECT_QUAT_NEAR(ValueAt<Quat>(aim, 0), Quat(), 0.0f);
  EXPECT_MATRIX3_NEAR(aim->KeptParent(), parent, 0.0f) << "relative evaluations keep P";
}

TEST_F(AimStretchTest, AlignKeepsWorldUpOrFollowsTheAlignNode) {
  INode* target = Node("target", TransMatrix(Point3(10, 0, 5)));
  INode* parent = Node("parent");
  INode* eye = Node("eye", Matrix3(), parent);
  INode* up = Node("up", RotateXMatrix(0.9f));
  AimConstraint* aim = Aim(eye, target);
  IParamBlock2* pb = aim->ParamBlock();
  pb->SetValue(kAimAlignAxis, 0, 2);
  pb->SetValue(kAimAlign, 0, 0);
  const Matrix3 world_up = eye->GetNodeTM(0);
  for (float angle : {0.7f, 1.9f, -2.4f}) {
    SCOPED_TRACE(angle);
    parent->SetNodeTM(0, RotateZMatrix(angle) * RotateYMatrix(angle * 0.3f));
    pb->SetValue(kAimAlign, 0, 0);
    EXPECT_MATRIX3_NEAR(eye->GetNodeTM(0), world_up, kTol) << "world up ignores the parent";
    pb->SetValue(kAimAlign, 0, 1);
    EXPECT_FALSE(eye->GetNodeTM(0).Equals(world_up, 1e-3f)) << "parent up turns with it";
    EXPECT_POINT3_NEAR(Dir(eye->GetNodeTM(0), 0), Normalize(Point3(10, 0, 5)), kTol);
  }
  pb->SetValue(kAimAlign, 0, 2);
  pb->SetValue(kAimAlignNode, 0, up);
  AimAxes axes;
  axes.align_axis = 2;
  auto expect = [&] {
    Matrix3 up_axes = up->GetNodeTM(0);
    up_axes.NoTrans();
    return AimAt(up_axes, Point3(10, 0, 5), axes).World();
  };
  EXPECT_MATRIX3_NEAR(eye->GetNodeTM(0), expect(), kTol);
  up->SetNodeTM(0, RotateYMatrix(-0.6f) * TransMatrix(Point3(0, 50, 0)));
  EXPECT_MATRIX3_NEAR(eye->GetNodeTM(0), expect(), kTol)
      << "turning the align node reaches the eye";
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(AimStretchTest, StretchSpansStartToEnd) {
  INode* start = Node("start", RotateZMatrix(0.4f) * TransMatrix(Point3(0, 0, 2)));
  INode* end = Node("end", TransMatrix(Point3(0, 30, 2)));
  INode* bone = Node("bone");
  StretchConstraint* c = Stretch(bone, start, end);
  IParamBlock2* pb = c->ParamBlock();
  pb->SetValue(kStretchLength, 0, 15.0f);
  Matrix3 tm = bone->GetNodeTM(0);
  EXPECT_POINT3_NEAR(tm.GetTrans(), Point3(0, 0, 2), kTol);
  EXPECT_POINT3_NEAR(Dir(tm, 0), Point3(0, 1, 0), kTol);
  EXPECT_POINT3_NEAR(GetScaleLengths(tm), Point3(2, 0.5f, 0.5f), kTol);
  EXPECT_NEAR(c->CurrentLength(), 30.0f, 1e-3f);

  pb->SetValue(kStretchSquash, 0, 0.0f);
  EXPECT_POINT3_NEAR(GetScaleLengths(bone->GetNodeTM(0)), Point3(2, 1, 1), kTol)
      << "squash 0 keeps the side axes";
  pb->SetValue(kStretchLength, 0, 30.0f);
  EXPECT_POINT3_NEAR(GetScaleLengths(bone->GetNodeTM(0)), Point3(1, 1, 1), kTol)
      << "at rest length";

  end->SetNodeTM(0, start->GetNodeTM(0));  // the end on the start
  tm = bone->GetNodeTM(0);
  EXPECT_FLOAT_EQ(c->CurrentLength(), kStretchMinLength);
  for (int i = 0; i < 4; ++i) {
    for (int k = 0; k < 3; ++k) EXPECT_TRUE(std::isfinite(tm[i][k]));
  }

  // Scale from the start: kept with inherit_scale 2, dropped with 0.
  end->SetNodeTM(0, TransMatrix(Point3(0, 30, 2)));
  pb->SetValue(kStretchScaleActive, 0, false);
  start->SetNodeTM(0, ScaleMatrix(Point3(3, 3, 3)) * TransMatrix(Point3(0, 0, 2)));
  EXPECT_POINT3_NEAR(GetScaleLengths(bone->GetNodeTM(0)), Point3(3, 3, 3), kTol);
  pb->SetValue(kStretchInheritScale, 0, 0);
  EXPECT_POINT3_NEAR(GetScaleLengths(bone->GetNodeTM(0)), Point3(1, 1, 1), kTol);

  // Without an active end the node stays in the frame: the start's transform, not aimed.
  pb->SetValue(kStretchInheritScale, 0, 2);
  pb->SetValue(kStretchScaleActive, 0, true);
  pb->SetValue(kStretchUseEnd, 0, false);
  EXPECT_MATRIX3_NEAR(bone->GetNodeTM(0), start->GetNodeTM(0), kTol);
  pb->SetValue(kStretchUseEnd, 0, true);
  end->Delete(0);
  EXPECT_MATRIX3_NEAR(bone->GetNodeTM(0), start->GetNodeTM(0), kTol) << "end deleted";
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(AimStretchTest, EditsAndResetLengthUndoAndRedo) {
  INode* start = Node("start");
  INode* end = Node("end", TransMatrix(Point3(25, 0, 0)));
  INode* bone = Node("bone");
  INode* child = Node("child", TransMatrix(Point3(5, 0, 0)), bone);
  StretchConstraint* c = Stretch(bone, start, end);
  theHold.Clear();
  const Matrix3 rest = bone->GetNodeTM(0);
  const Matrix3 rest_child = child->GetNodeTM(0);

  theHold.Begin();
  c->ParamBlock()->SetValue(kStretchAimAxis, 0, 1);
  theHold.Accept("Aim Axis");
  const Matrix3 turned = bone->GetNodeTM(0);
  EXPECT_POINT3_NEAR(Dir(turned, 1), Point3(1, 0, 0), kTol);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_MATRIX3_NEAR(bone->GetNodeTM(0), rest, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  ASSERT_TRUE(theHold.Redo());
  EXPECT_MATRIX3_NEAR(bone->GetNodeTM(0), turned, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // ResetLength through the published interface: its own hold, named from the string table.
  FPResult r = CallFunction(GetFPInterface(c, ISTRETCHCONSTRAINT_ID), "ResetLength", {});
  ASSERT_EQ(r.status, FPS_OK);
  EXPECT_NEAR(c->ParamBlock()->GetFloat(kStretchLength), 25.0f, 1e-4f);
  EXPECT_POINT3_NEAR(GetScaleLengths(bone->GetNodeTM(0)), Point3(1, 1, 1), kTol);
  EXPECT_STREQ(theHold.UndoName().c_str(), GetString(IDS_RESET_LENGTH));
  ASSERT_TRUE(theHold.Undo());
  EXPECT_NEAR(c->ParamBlock()->GetFloat(kStretchLength), 20.0f, 1e-6f);
  EXPECT_MATRIX3_NEAR(bone->GetNodeTM(0), turned, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  ASSERT_TRUE(theHold.Redo());
  EXPECT_NEAR(c->ParamBlock()->GetFloat(kStretchLength), 25.0f, 1e-4f);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // Inside a running hold it adds to that hold; locked or without stretching it does nothing.
  end->SetNodeTM(0, TransMatrix(Point3(40, 0, 0)));
  theHold.Begin();
  c->ParamBlock()->SetValue(kStretchSquash, 0, 0.5f);
  c->ResetLength();
  theHold.Accept("Both");
  EXPECT_NEAR(c->ParamBlock()->GetFloat(kStretchLength), 40.0f, 1e-4f);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_NEAR(c->ParamBlock()->GetFloat(kStretchLength), 25.0f, 1e-4f);
  EXPECT_NEAR(c->ParamBlock()->GetFloat(kStretchSquash), 1.0f, 1e-6f);
  c->SetLocked(true);
  c->ResetLength();
  EXPECT_NEAR(c->ParamBlock()->GetFloat(kStretchLength), 25.0f, 1e-4f) << "locked";
  c->SetLocked(false);
  c->ParamBlock()->SetValue(kStretchScaleActive, 0, false);
  c->ResetLength();
  EXPECT_NEAR(c->ParamBlock()->GetFloat(kStretchLength), 25.0f, 1e-4f) << "stretching off";
  EXPECT_FALSE(child->GetNodeTM(0).Equals(rest_child, 1e-3f)) << "children follow";
}

TEST_F(AimStretchTest, AssigningOverAnAnimatedTrackUndoesToTheTrack) {
  INode* target = Node("target", TransMatrix(Point3(0, 10, 0)));
  INode* eye = Node("eye");
  Control* prs = eye->GetTMController();
  Control* old_rot = prs->GetRotationController();
  AnimateOn();
  Quat turn = QFromAngAxis(1.0f, Point3::XAxis);
  old_rot->SetValue(4800, &turn, 1, CTRL_ABSOLUTE);
  AnimateOff();
  auto* locked = static_cast<ILockedTrack*>(old_rot->GetInterface(I_LOCKED));
  ASSERT_NE(locked, nullptr);
  locked->SetLocked(true);
  const Matrix3 before = eye->GetNodeTM(4800);
  theHold.Clear();

  theHold.Begin();
  auto* aim = new AimConstraint;
  ASSERT_TRUE(prs->SetRotationController(aim));
  aim->ParamBlock()->SetValue(kAimTarget, 0, target);
  theHold.Accept("Assign");
  EXPECT_TRUE(aim->GetLocked()) << "Copy takes the locked state";
  EXPECT_POINT3_NEAR(Dir(eye->GetNodeTM(4800), 0), Point3(0, 1, 0), kTol);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(prs->GetRotationController(), old_rot);
  EXPECT_MATRIX3_NEAR(eye->GetNodeTM(4800), before, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(4800));
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(prs->GetRotationController(), aim);
  EXPECT_POINT3_NEAR(Dir(eye->GetNodeTM(4800), 0), Point3(0, 1, 0), kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(4800));

  // The locked flag is an undoable edit of its own.
  theHold.Begin();
  aim->SetLocked(false);
  theHold.Accept("Unlock");
  ASSERT_TRUE(theHold.Undo());
  EXPECT_TRUE(aim->GetLocked());
}

TEST_F(AimStretchTest, NodeParametersRefuseLoops) {
  INode* eye = Node("eye");
  INode* child = Node("child", TransMatrix(Point3(1, 0, 0)), eye);
  INode* other = Node("other", TransMatrix(Point3(0, 5, 0)));
  AimConstraint* aim = Aim(eye, other);
  for (ParamID id : {kAimTarget, kAimAlignNode}) {
    SCOPED_TRACE(id);
    for (INode* bad : {eye, child}) {
      EXPECT_FALSE(aim->ParamBlock()->SetValue(id, 0, bad)) << bad->GetName();
    }
  }
  EXPECT_EQ(aim->ParamBlock()->GetINode(kAimTarget), other);
  EXPECT_EQ(aim->ParamBlock()->GetINode(kAimAlignNode), nullptr);

  INode* bone = Node("bone");
  INode* tip = Node("tip", Matrix3(), bone);
  StretchConstraint* c = Stretch(bone, other, nullptr);
  for (ParamID id : {kStretchStart, kStretchEnd}) {
    EXPECT_FALSE(c->ParamBlock()->SetValue(id, 0, tip)) << id;
    EXPECT_FALSE(c->ParamBlock()->SetValue(id, 0, bone)) << id;
  }
  EXPECT_EQ(c->ParamBlock()->GetINode(kStretchStart), other);
  EXPECT_EQ(c->ParamBlock()->GetINode(kStretchEnd), nullptr);
  // A node constrained to the bone's child is downstream of the bone too; and the bone's start
  // cannot aim at that child.
  INode* watcher = Node("watcher");
  AimConstraint* follower = Aim(watcher, tip);
  EXPECT_EQ(follower->ParamBlock()->GetINode(kAimTarget), tip);
  EXPECT_FALSE(c->ParamBlock()->SetValue(kStretchEnd, 0, watcher)) << "watcher follows the bone";
  AimConstraint* start_aim = new AimConstraint;
  ASSERT_TRUE(other->GetTMController()->SetRotationController(start_aim));
  EXPECT_FALSE(start_aim->ParamBlock()->SetValue(kAimTarget, 0, tip)) << "start -> tip -> bone";
}

TEST_F(AimStretchTest, ScenesRoundTripByteForByteAndKeepTheLock) {
  INode* start = Node("start", RotateYMatrix(0.3f) * TransMatrix(Point3(1, 2, 3)));
  INode* end = Node("end", TransMatrix(Point3(20, 2, 3)));
  INode* bone = Node("bone");
  StretchConstraint* c = Stretch(bone, start, end);
  c->ParamBlock()->SetValue(kStretchSquash, 0, 0.25f);
  c->SetLocked(true);
  INode* eye = Node("eye", TransMatrix(Point3(0, -5, 0)));
  AimConstraint* aim = Aim(eye, end);
  aim->ParamBlock()->SetValue(kAimAlignAxis, 0, 1);
  aim->ParamBlock()->SetValue(kAimAlign, 0, 2);
  aim->ParamBlock()->SetValue(kAimAlignNode, 0, start);
  std::vector<Matrix3> before;
  for (INode* n : {bone, eye}) before.push_back(n->GetNodeTM(0));

  std::vector<std::uint8_t> first, second;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);
  INode* bone2 = ip->GetINodeByName("bone");
  INode* eye2 = ip->GetINodeByName("eye");
  ASSERT_TRUE(bone2 && eye2);
  EXPECT_MATRIX3_NEAR(bone2->GetNodeTM(0), before[0], kTol);
  EXPECT_MATRIX3_NEAR(eye2->GetNodeTM(0), before[1], kTol);
  auto* c2 = dynamic_cast<StretchConstraint*>(bone2->GetTMController());
  ASSERT_NE(c2, nullptr);
  EXPECT_TRUE(c2->GetLocked());
  auto* aim2 = dynamic_cast<AimConstraint*>(eye2->GetTMController()->GetRotationController());
  ASSERT_NE(aim2, nullptr);
  EXPECT_FALSE(aim2->GetLocked());

  // Unknown chunks are skipped; a damaged lock chunk is an error.
  ChunkWriter w;
  w.BeginChunk(1);
  w.BeginChunk(0x7777);
  w.EndChunk();
  EXPECT_EQ(SaveLockChunk(&w, true), IO_OK);
  w.EndChunk();
  auto* fresh = new AimConstraint(true);
  EXPECT_EQ(LoadBytes(fresh, w.Bytes()), IO_OK);
  EXPECT_TRUE(fresh->GetLocked());
  ChunkWriter bad;
  bad.BeginChunk(1);
  bad.BeginChunk(kLockChunkID);
  const std::uint16_t two = 1;
  ULONG written = 0;
  bad.Write(&two, sizeof two, &written);
  bad.EndChunk();
  bad.EndChunk();
  EXPECT_EQ(LoadBytes(fresh, bad.Bytes()), IO_ERROR);
  fresh->DeleteMe();
}

TEST_F(AimStretchTest, ClonesOwnTheirBlocks) {
  INode* target = Node("target", TransMatrix(Point3(0, 0, 10)));
  INode* eye = Node("eye");
  AimConstraint* aim = Aim(eye, target);
  aim->SetLocked(true);
  auto* clone = dynamic_cast<AimConstraint*>(CloneRefHierarchy(aim));
  ASSERT_NE(clone, nullptr);
  EXPECT_TRUE(clone->GetLocked());
  EXPECT_EQ(clone->ParamBlock()->GetINode(kAimTarget), target);
  clone->ParamBlock()->SetValue(kAimAimAxis, 0, 2);
  EXPECT_EQ(aim->ParamBlock()->GetInt(kAimAimAxis), 0);
  INode* twin = Node("twin");
  twin->GetTMController()->SetRotationController(clone);
  EXPECT_POINT3_NEAR(Dir(twin->GetNodeTM(0), 2), Point3(0, 0, 1), kTol);

  INode* bone = Node("bone");
  StretchConstraint* c = Stretch(bone, eye, target);
  auto* sclone = dynamic_cast<StretchConstraint*>(CloneRefHierarchy(c));
  ASSERT_NE(sclone, nullptr);
  INode* bone2 = Node("bone2");
  bone2->SetTMController(sclone);
  EXPECT_MATRIX3_NEAR(bone2->GetNodeTM(0), bone->GetNodeTM(0), kTol);
}

TEST_F(AimStretchTest, EvaluationAllocatesNothing) {
  INode* start = Node("start", TransMatrix(Point3(1, 0, 0)));
  INode* end = Node("end", TransMatrix(Point3(1, 12, 0)));
  INode* bone = Node("bone");
  StretchConstraint* c = Stretch(bone, start, end);
  INode* eye = Node("eye");
  AimConstraint* aim = Aim(eye, end);
  aim->ParamBlock()->SetValue(kAimAlign, 0, 2);
  aim->ParamBlock()->SetValue(kAimAlignNode, 0, start);
  bone->GetNodeTM(0);
  eye->GetNodeTM(0);
  Matrix3 m;
  Quat q;
  AllocationScope scope;
  for (int i = 0; i < 10; ++i) {
    Interval iv = FOREVER;
    m = Matrix3();
    c->GetValue(0, &m, iv, CTRL_RELATIVE);
    aim->GetValue(0, &m, iv, CTRL_RELATIVE);
    aim->GetValue(0, &q, iv, CTRL_ABSOLUTE);
  }
  EXPECT_EQ(scope.Count(), 0u);
}

TEST_F(AimStretchTest, ViewLinesAreDrawnAlongTheAimAxis) {
  INode* target = Node("target", TransMatrix(Point3(0, 0, 8)));
  INode* eye = Node("eye", TransMatrix(Point3(2, 0, 0)));
  AimConstraint* aim = Aim(eye, target);
  aim->ParamBlock()->SetValue(kAimAimAxis, 0, 1);
  aim->ParamBlock()->SetValue(kAimViewlineLength, 0, 3.0f);
  INode* start = Node("start", TransMatrix(Point3(0, 0, 0)));
  INode* bone = Node("bone");
  StretchConstraint* c = Stretch(bone, start, target);
  c->ParamBlock()->SetValue(kStretchViewlineLength, 0, 0.5f);
  c->ParamBlock()->SetValue(kStretchViewlineLengthAbs, 0, false);

  HeadlessViewport vpt;
  auto last_line = [&](INode* node) -> std::vector<Point3> {
    vpt.BeginFrame();
    DrawScene(0, vpt);
    const DisplayList& list = vpt.GetDisplayList();
    std::vector<Point3> pts;
    for (const DisplayPrimitive& p : list.primitives) {
      if (p.node == Animatable::GetHandleByAnim(node) && p.kind == PrimitiveKind::kPolyline) {
        pts.assign(list.Points(p).begin(), list.Points(p).end());
      }
    }
    return pts;
  };
  const float to_target = (Point3(0, 0, 8) - Point3(2, 0, 0)).Length();
  std::vector<Point3> line = last_line(eye);
  ASSERT_EQ(line.size(), 2u);
  EXPECT_POINT3_NEAR(line[0], Point3(2, 0, 0), kTol);
  EXPECT_POINT3_NEAR(line[1], Point3(2, 0, 0) + Normalize(Point3(-2, 0, 8)) * 3.0f, kTol);
  aim->ParamBlock()->SetValue(kAimViewlineLengthAbs, 0, false);
  line = last_line(eye);
  ASSERT_EQ(line.size(), 2u);
  EXPECT_NEAR((line[1] - line[0]).Length(), 3.0f * to_target, 1e-3f);

  line = last_line(bone);
  ASSERT_EQ(line.size(), 2u);
  EXPECT_POINT3_NEAR(line[1], Point3(0, 0, 4), kTol) << "half the distance to the end";
  aim->ParamBlock()->SetValue(kAimUseTarget, 0, false);
  c->ParamBlock()->SetValue(kStretchUseEnd, 0, false);
  EXPECT_EQ(aim->Display(0, eye, &vpt, 0), 0);
  EXPECT_EQ(c->Display(0, bone, &vpt, 0), 0);
}

}  // namespace
}  // namespace marvolith::test
