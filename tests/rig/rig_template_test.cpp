// Copyright Marvolith contributors.
// The template's point primitives: names, mirroring, edits kept by name, derived points.
#include "rig/rig_template.h"

#include <gtest/gtest.h>

#include <cmath>

#include "rig/rig_params.h"

namespace marvolith::test {
namespace {

TEST(RigPointNames, ComposeSidePrefixAndOneBasedSuffixes) {
  EXPECT_EQ(ComposePointName("finger", kSideLeft, 1, 2), "l_finger_2_3");
  EXPECT_EQ(ComposePointName("spine", kSideNone, 0, -1), "spine_1");
  EXPECT_EQ(ComposePointName("head", kSideCenter, -1, -1), "head");
  EXPECT_EQ(ComposePointName("hand", kSideRight, -1, -1), "r_hand");
  EXPECT_EQ(ComposePointName("hand", kSideBoth, -1, -1), "hand");
  // A sub index without an index still appends.
  EXPECT_EQ(ComposePointName("toe", kSideRight, -1, 0), "r_toe_1");
}

TEST(RigTypes, NamesAndNumbersBothResolve) {
  EXPECT_EQ(RigTypeFromText("quadruped"), kRigTypeQuadruped);
  EXPECT_EQ(RigTypeFromText("CENTAUR"), kRigTypeCentaur);
  EXPECT_EQ(RigTypeFromText("27"), kRigTypeTentacle);
  EXPECT_EQ(RigTypeFromText("28"), -1);
  EXPECT_EQ(RigTypeFromText("-1"), -1);
  EXPECT_EQ(RigTypeFromText("3x"), -1);
  EXPECT_EQ(RigTypeFromText(""), -1);
  for (int type = 0; type < kRigTypeCount; ++type)
    EXPECT_EQ(RigTypeFromText(RigTypeName(type)), type);
  EXPECT_EQ(RigTypeName(kRigTypeCount), nullptr);
}

TEST(RigParams, DefaultsAndIntKinds) {
  const RigParamValues p;
  EXPECT_EQ(p[kRigSide], 2);
  EXPECT_EQ(p[kRigUseSpineBones], 1);
  EXPECT_EQ(p[kRigUseNasolabialBones], 1);
  EXPECT_EQ(p[kRigTongueBones], 4);
  EXPECT_EQ(p[kRigFingers], 5);
  EXPECT_EQ(p[kRigParamIdCount + 5], 0);
  EXPECT_TRUE(IsRigIntParam(kRigSelectedComponent));
  EXPECT_FALSE(IsRigIntParam(kRigHelperSize));
  EXPECT_FALSE(IsRigIntParam(kRigColor3));
  EXPECT_FALSE(IsRigIntParam(kRigName));
}

// A two-point arm made sided through a translated transform.
struct Arm {
  SidedIndex upper, fore;
};
Arm MakeArm(RigTemplate& t, int side, bool keep = true) {
  const Matrix3 tm = TransMatrix(Point3(-0.1f, 0.0f, 1.0f));
  Arm a;
  a.upper = t.AddSidedPoint(kComponentArms, "upper_arm", -1, Point3(-0.2f, 0.1f, 0.0f), {}, tm,
                            side, keep, kPointBonePreview);
  a.fore = t.AddSidedPoint(kComponentArms, "forearm", -1, Point3(-0.5f, 0.05f, -0.25f), a.upper, tm,
                           side, keep, kPointBonePreview);
  return a;
}

TEST(RigTemplatePoints, LeftIsTheRightMirroredInX) {
  RigTemplate t;
  t.BeginRegeneration(true);
  const Arm a = MakeArm(t, kSideBoth);
  t.EndRegeneration();
  ASSERT_EQ(t.NumPoints(), 4);
  const RigPoint& r = t.Points()[a.fore.right];
  const RigPoint& l = t.Points()[a.fore.left];
  EXPECT_EQ(r.name, "r_forearm");
  EXPECT_EQ(l.name, "l_forearm");
  EXPECT_TRUE(r.IsRight() && !r.IsLeft());
  EXPECT_TRUE(l.IsLeft() && !l.IsRight());
  EXPECT_FLOAT_EQ(r.pos.x, -0.6f);
  EXPECT_FLOAT_EQ(l.pos.x, 0.6f);
  EXPECT_FLOAT_EQ(l.pos.y, r.pos.y);
  EXPECT_FLOAT_EQ(l.pos.z, r.pos.z);
  // Parents stay on their own side, and the first child gives the bone's direction.
  EXPECT_EQ(r.parent, a.upper.right);
  EXPECT_EQ(l.parent, a.upper.left);
  EXPECT_EQ(t.Points()[a.upper.left].first_child, a.fore.left);
}

TEST(RigTemplatePoints, OneSideOrCenterOnly) {
  RigTemplate t;
  t.BeginRegeneration(true);
  const Arm right = MakeArm(t, kSideRight);
  EXPECT_EQ(right.upper.left, -1);
  const Arm center = MakeArm(t, kSideCenter);
  EXPECT_EQ(center.upper.right, center.upper.left);
  t.EndRegeneration();
  EXPECT_EQ(t.Find("r_upper_arm"), 0);
  EXPECT_EQ(t.Find("upper_arm"), 2);
  EXPECT_EQ(t.Find("l_upper_arm"), -1);
}

TEST(RigTemplatePoints, EditsSurviveARegenerationByName) {
  RigTemplate t;
  t.BeginRegeneration(true);
  MakeArm(t, kSideBoth);
  t.EndRegeneration();
  RigPoint& moved = t.Points()[t.Find("l_forearm")];
  moved.pos = Point3(3, 4, 5);
  moved.selected = 1;

  t.BeginRegeneration(false);
  MakeArm(t, kSideBoth);
  t.AddPoint(kComponentArms, "hand", -1, Point3(1, 1, 1), -1, Matrix3(), true, 0);
  t.EndRegeneration();
  const RigPoint& kept = t.Points()[t.Find("l_forearm")];
  EXPECT_EQ(kept.pos, Point3(3, 4, 5));
  EXPECT_EQ(kept.selected, 1);
  EXPECT_EQ(t.Points()[t.Find("hand")].pos, Point3(1, 1, 1));

  // A type change forgets every edit.
  t.BeginRegeneration(true);
  MakeArm(t, kSideBoth);
  t.EndRegeneration();
  EXPECT_FLOAT_EQ(t.Points()[t.Find("l_forearm")].pos.x, 0.6f);
}

TEST(RigTemplatePoints, WithoutKeepingTheSelectedComponentIsSelected) {
  RigTemplate t;
  t.SetSelectedComponent(kComponentArms);
  t.BeginRegeneration(true);
  const Arm a = MakeArm(t, kSideRight, false);
  const SidedIndex twist = t.AddDerivedPoint(kComponentArms, "upper_arm_twist", 0, a.upper, a.fore,
                                             0.5f, a.upper, kSideRight);
  const int other = t.AddPoint(kComponentSpine, "pelvis", -1, Point3(), -1, Matrix3(), false, 0);
  t.EndRegeneration();
  EXPECT_EQ(t.Points()[a.upper.right].selected, 1);
  EXPECT_EQ(t.Points()[twist.right].selected, 0);
  EXPECT_EQ(t.Points()[other].selected, 0);
}

TEST(RigTemplatePoints, DerivedPointsFollowTheirAnchors) {
  RigTemplate t;
  t.BeginRegeneration(true);
  const Arm a = MakeArm(t, kSideBoth);
  const SidedIndex twist = t.AddDerivedPoint(kComponentArms, "upper_arm_twist", 1, a.upper, a.fore,
                                             0.25f, a.upper, kSideBoth);
  t.EndRegeneration();
  const RigPoint& d = t.Points()[twist.left];
  EXPECT_EQ(d.name, "l_upper_arm_twist_2");
  EXPECT_TRUE(d.Hidden());
  EXPECT_TRUE(d.IsLeft());
  // A hidden point never becomes the bone direction of its parent.
  EXPECT_EQ(t.Points()[a.upper.left].first_child, a.fore.left);
  ASSERT_EQ(t.DerivedFrom(a.fore.left).size(), 1u);

  t.Points()[a.fore.left].pos = Point3(2, 0, 0);
  t.Points()[a.upper.left].pos = Point3(0, 0, 0);
  t.UpdateDependants();
  EXPECT_EQ(t.Points()[twist.left].pos, Point3(0.5f, 0, 0));
  // The right side's anchors did not move, so its derived point stays put.
  const Point3 right_before = t.Points()[twist.right].pos;
  t.UpdateDependants();
  EXPECT_EQ(t.Points()[twist.right].pos, right_before);

  // After a regeneration that keeps the moved anchors, the derived point is back on their line.
  t.BeginRegeneration(false);
  MakeArm(t, kSideBoth);
  const Arm again{{t.Find("r_upper_arm"), t.Find("l_upper_arm")},
                  {t.Find("r_forearm"), t.Find("l_forearm")}};
  t.AddDerivedPoint(kComponentArms, "upper_arm_twist", 1, again.upper, again.fore, 0.25f,
                    again.upper, kSideBoth);
  t.EndRegeneration();
  EXPECT_EQ(t.Points()[t.Find("l_upper_arm_twist_2")].pos, Point3(0.5f, 0, 0));
}

TEST(RigTemplatePoints, BadIndicesMakeNoLinks) {
  RigTemplate t;
  t.BeginRegeneration(true);
  const int p = t.AddPoint(kComponentSpine, "pelvis", -1, Point3(), 7, Matrix3(), false, 0, 9);
  const SidedIndex d =
      t.AddDerivedPoint(kComponentSpine, "x", -1, {p, p}, {5, 5}, 0.5f, {}, kSideCenter);
  t.EndRegeneration();
  EXPECT_EQ(t.Points()[p].parent, -1);
  EXPECT_EQ(t.Points()[p].link1, -1);
  EXPECT_EQ(d.right, -1);
  EXPECT_EQ(t.NumPoints(), 1);
  EXPECT_TRUE(t.DerivedFrom(42).empty());
}

}  // namespace
}  // namespace marvolith::test
