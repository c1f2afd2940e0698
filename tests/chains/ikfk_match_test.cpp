// Copyright Marvolith contributors.
#include "chains/ikfk_match.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "chains/ikfk_solver.h"
#include "host/math/geometry.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

/// A three-joint chain bent towards -Y by `bend` (radians), solved into its own buffers.
struct Arm {
  std::vector<IKFKJointFK> joints = std::vector<IKFKJointFK>(3);
  IKFKSolveInput in;
  IKFKWorkspace ws;
  std::vector<Matrix3> tms = std::vector<Matrix3>(3);
  std::vector<Point3> pos = std::vector<Point3>(3);
  std::vector<Quat> rot = std::vector<Quat>(3);
  std::vector<Quat> pref = std::vector<Quat>(3);

  Arm(float l1, float l2, float bend) {
    joints[0].position = *GenPoint3(3.0f);
    joints[0].rotation = *GenRotation();
    joints[1].position = Point3(l1, 0, 0);
    joints[1].rotation = QFromAngAxis(bend, Point3::ZAxis);
    joints[2].position = Point3(l2, 0, 0);
    in.last_joint_ik_rotation = false;
  }
  float Length() const { return joints[1].position.Length() + joints[2].position.Length(); }
  Point3 Root() const { return joints[0].position; }
  void SetGoalPs(const Point3& goal_ps) { in.goal_ws = TransMatrix(goal_ps) * in.parent_ws; }
  void Solve() {
    in.joints_fk = joints;
    IKFKSolveOutput out{tms, pos, rot, pref};
    RC_ASSERT(SolveIKFK(in, out, ws));
  }
};

float WrapAngle(float a) { return std::remainder(a, 2.0f * kPi); }

RC_GTEST_PROP(IKFKMatchLaws, SwivelAngleOfASolvedPoseIsTheSwivelUsed, ()) {
  const float l1 = *GenFloat(0.5f, 3.0f), l2 = *GenFloat(0.5f, 3.0f);
  const float bend = *GenFloat(0.1f, 2.0f);
  Arm arm(l1, l2, bend);
  arm.in.parent_ws = *GenAffine({.max_translation = 10.0f});
  arm.in.parent_space = *rc::gen::inRange(0, 2);
  arm.in.swivel_space_ws = *GenAffine({.max_translation = 10.0f});
  arm.in.swivel_angle = *GenFloat(-3.1f, 3.1f);
  const float lo = std::fabs(l1 - l2) + 0.05f * arm.Length();
  const Point3 goal = arm.Root() + *GenUnitVector() * *GenFloat(lo, 0.95f * arm.Length());
  arm.SetGoalPs(goal);
  const Quat qp = EffectivePreferredRotation(arm.joints[0].rotation, arm.in.parent_space,
                                             arm.in.swivel_space_ws, arm.in.parent_ws);
  // A goal behind qp's X axis is the swivel frame's singularity: the least rotation onto it
  // has no unique axis, and rounding alone may turn the frame about the aim line.
  const Point3 goal_in_qp = MatrixOf(Inverse(qp)).VectorTransform(goal - arm.Root());
  RC_PRE(AngleBetween(Normalize(goal_in_qp), -Point3::XAxis) > 0.05f);
  arm.Solve();
  const float found = SwivelAngleFromPose(arm.Root(), arm.pos[1], goal, qp);
  RC_ASSERT(std::fabs(WrapAngle(found - arm.in.swivel_angle)) < 2e-3f);
}

RC_GTEST_PROP(IKFKMatchLaws, SoftCompensationThenSoftSolvePutsTheEndBack, ()) {
  const float l1 = *GenFloat(0.5f, 3.0f), l2 = *GenFloat(0.5f, 3.0f);
  Arm arm(l1, l2, 0.5f);
  arm.in.parent_ws = *GenAffine({.min_scale = 1.0f, .max_scale = 1.0f, .max_translation = 10.0f});
  arm.in.soft_ik = *GenFloat(0.05f, 0.5f);
  const float l = arm.Length(), z = arm.in.soft_ik * l;
  // An end inside the soft zone, up to where the zone's logarithm starts to lose precision.
  // (and out of the folded range below |L1 - L2|, which no goal reaches).
  const float lo = std::max(l - z, std::fabs(l1 - l2) + 0.01f * l), hi = l - 0.02f * z;
  RC_PRE(lo < hi);
  const Point3 end = arm.Root() + *GenUnitVector() * *GenFloat(lo, hi);
  arm.SetGoalPs(SoftMatchGoal(arm.Root(), end, l, arm.in.soft_ik, 0.0f));
  arm.Solve();
  RC_ASSERT_POINT3_NEAR(arm.pos[2], end, 1e-3f * l);
}

TEST(IKFKMatch, SoftCompensationBounds) {
  // Outside the zone, without a zone, or fully automatic stretch: the goal stays.
  EXPECT_EQ(SoftMatchGoalScale(5.0f, 10.0f, 0.2f, 0.0f), 1.0f);
  EXPECT_EQ(SoftMatchGoalScale(9.5f, 10.0f, 0.0f, 0.0f), 1.0f);
  EXPECT_EQ(SoftMatchGoalScale(9.5f, 10.0f, 0.2f, 1.0f), 1.0f);
  // At or past the length the ratio is held at its floor: far out, but finite.
  const float far = SoftMatchGoalScale(10.0f, 10.0f, 0.2f, 0.0f);
  EXPECT_TRUE(std::isfinite(far));
  EXPECT_NEAR(far * 10.0f, 8.0f - std::log(kSoftMatchMinRatio) * 2.0f, 1e-3f);
  EXPECT_EQ(SoftMatchGoalScale(12.0f, 10.0f, 0.2f, 0.0f) * 12.0f, far * 10.0f);
  // Half automatic: half of the compensation.
  const float full = SoftMatchGoalScale(9.5f, 10.0f, 0.2f, 0.0f);
  EXPECT_NEAR(SoftMatchGoalScale(9.5f, 10.0f, 0.2f, 0.5f), (full + 1.0f) * 0.5f, 1e-6f);
}

RC_GTEST_PROP(IKFKMatchLaws, PlacedTargetGivesBackTheElbow, ()) {
  const float l1 = *GenFloat(0.5f, 3.0f), l2 = *GenFloat(0.5f, 3.0f);
  const float bend = *GenFloat(0.1f, 2.5f);
  Arm arm(l1, l2, bend);
  arm.in.parent_ws = *GenAffine({.max_translation = 10.0f});
  arm.in.ikfk_blend = 0.0f;
  arm.Solve();
  const std::vector<Matrix3> fk = arm.tms;
  const Point3 first = fk[0].GetTrans(), mid = fk[1].GetTrans(), last = fk[2].GetTrans();
  // A pose this straight in world takes the preferred plane instead: another test covers it.
  RC_PRE(AngleBetween(Normalize(last - first), Normalize(mid - first)) > 0.03f);
  const float percent = *GenFloat(0.1f, 2.0f);
  const Point3 target =
      MatchTargetPosition(first, mid, last, arm.Length(), percent, Quat(), arm.in.parent_ws);
  arm.in.ikfk_blend = 1.0f;
  arm.in.goal_ws = TransMatrix(last);
  arm.in.target_active = true;
  arm.in.target_ws = TransMatrix(target);
  arm.in.swivel_angle = *GenAngle();  // a target overrides the swivel
  arm.Solve();
  RC_ASSERT_POINT3_NEAR(arm.tms[1].GetTrans(), mid, 2e-3f * (1.0f + arm.Length()));
  RC_ASSERT(std::fabs((target - mid).Length() - percent * arm.Length()) < 1e-3f * arm.Length());
}

TEST(IKFKMatch, StraightChainTakesTheTargetPlaneFromThePreferredFrame) {
  const Matrix3 parent = RotateZMatrix(0.5f) * TransMatrix(Point3(1, 2, 3));
  const Point3 first = Point3(0, 0, 0) * parent, mid = Point3(2, 0, 0) * parent;
  const Point3 last = Point3(4, 0.01f, 0) * parent;  // under the 0.02 rad threshold
  const Quat frame = XRotation(0.7f);
  const Point3 target = MatchTargetPosition(first, mid, last, 4.0f, 0.5f, frame, parent);
  const Point3 expected =
      mid + parent.VectorTransform(Point3(0, std::cos(0.7f), std::sin(0.7f)) * 2);
  EXPECT_POINT3_NEAR(target, expected, 1e-5f);
  // Everything on one point: no direction, the target stays on the mid joint.
  EXPECT_POINT3_NEAR(MatchTargetPosition(mid, mid, mid, 0.0f, 0.5f, frame, parent), mid, 0.0f);
}

RC_GTEST_PROP(IKFKMatchLaws, FKDeltaTakesTheCurrentRotationToTheSolvedOne, ()) {
  const Quat solved = *GenRotation(), current = *GenRotation(), space = *GenRotation();
  const bool first = *rc::gen::arbitrary<bool>();
  const Quat delta = MatchFKDelta(solved, current, first, first ? space : Quat());
  // The short way, and after the write (and the rotation space for joint 0) the solved rotation.
  RC_ASSERT(delta.w >= -1e-6f);
  RC_ASSERT_QUAT_NEAR(first ? delta * current * space : delta * current, solved, 1e-5f);
}

RC_GTEST_PROP(IKFKMatchLaws, RotationSpaceDeltaFollowsTheSpaceByItsWeight, ()) {
  const Matrix3 space = *GenAffine({.allow_mirror = false});
  const Matrix3 parent = *GenAffine({.allow_mirror = false});
  Matrix3 relative = space * Inverse(parent);
  relative.Orthogonalize();
  const Quat full = RotationSpaceDelta(space, parent, false, Matrix3(), 1.0f);
  RC_ASSERT_QUAT_NEAR(full, Quat(relative), 1e-4f);
  RC_ASSERT(full.w >= 0.0f);
  RC_ASSERT_QUAT_NEAR(RotationSpaceDelta(space, parent, false, Matrix3(), 0.0f), Quat(), 0.0f);
  const Quat half = RotationSpaceDelta(space, parent, false, Matrix3(), 0.5f);
  RC_ASSERT_QUAT_NEAR(half * half, full, 1e-4f);
  // An initial offset taken at the current pose cancels the space: no jump when it is kept.
  const Matrix3 offset = parent * Inverse(space);
  RC_ASSERT_QUAT_NEAR(RotationSpaceDelta(space, parent, true, offset, 1.0f), Quat(), 1e-4f);
}

RC_GTEST_PROP(IKFKMatchLaws, JointFKValuesComeBackFromTheLocalMatrix, ()) {
  const Point3 s(*GenFloat(0.2f, 3.0f), *GenFloat(0.2f, 3.0f), *GenFloat(0.2f, 3.0f));
  const Quat q = *GenRotation();
  const Point3 p = *GenPoint3(10.0f);
  const IKFKJointFK fk = JointFKFromMatrix(ScaleMatrix(s) * MatrixOf(q) * TransMatrix(p));
  RC_ASSERT_POINT3_NEAR(fk.position, p, 1e-5f);
  RC_ASSERT_POINT3_NEAR(fk.scale, s, 1e-4f);
  RC_ASSERT_QUAT_NEAR(fk.rotation, q, 1e-4f);
}

}  // namespace
}  // namespace marvolith::test
