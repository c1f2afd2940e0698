// Copyright Marvolith contributors.
#include "chains/ikfk_solver.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "chains/ikfk_match.h"
#include "host/math/geometry.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

/// A chain and the buffers of its solve, so a property states only what it varies.
struct Rig {
  std::vector<IKFKJointFK> joints;
  std::vector<Quat> preferred;
  IKFKSolveInput in;
  IKFKWorkspace ws;
  std::vector<Matrix3> tms;
  std::vector<Point3> pos;
  std::vector<Quat> rot;
  std::vector<Quat> pref;
  float stretch = 0.0f;

  float Length() const {
    float l = 0.0f;
    for (std::size_t i = 1; i < joints.size(); ++i) l += joints[i].position.Length();
    return l;
  }
  Point3 Root() const { return joints.empty() ? Point3() : joints[0].position; }
  void SetGoalPs(const Point3& goal_ps) { in.goal_ws = TransMatrix(goal_ps) * in.parent_ws; }

  bool Solve() {
    in.joints_fk = joints;
    in.preferred_ls = preferred;
    tms.resize(joints.size());
    pos.resize(joints.size());
    rot.resize(joints.size());
    pref.resize(joints.size());
    IKFKSolveOutput out{tms, pos, rot, pref};
    const bool ok = SolveIKFK(in, out, ws);
    stretch = out.stretch_factor;
    return ok;
  }
};

/// A chain of n joints with bones on +X of lengths in [lo, hi], each inner joint bent towards -Y
/// by an angle in [bend_lo, bend_hi] (with a little tilt out of the plane), joint 0 placed and
/// turned at random in its parent.
Rig DrawRig(int n, float lo, float hi, float bend_lo, float bend_hi) {
  Rig r;
  r.joints.resize(n);
  if (n > 0) {
    r.joints[0].position = *GenPoint3(3.0f);
    r.joints[0].rotation = *GenRotation();
  }
  for (int i = 1; i < n; ++i) {
    r.joints[i].position = Point3(*GenFloat(lo, hi), 0, 0);
    if (i + 1 < n) {
      const Point3 axis = Normalize(Point3(*GenFloat(-0.1f, 0.1f), 0, 1));
      r.joints[i].rotation = QFromAngAxis(*GenFloat(bend_lo, bend_hi), axis);
    }
  }
  r.in.parent_ws = *GenAffine({.min_scale = 1.0f, .max_scale = 1.0f, .max_translation = 10.0f});
  r.in.last_joint_ik_rotation = false;
  return r;
}

/// The FK world transforms written out plainly: bones scaled by the joints above and by the
/// manual stretch, joint 0 turned by the rotation space, each world transform with its
/// accumulated scale in front.
std::vector<Matrix3> FKOracle(const Rig& r, float manual_stretch, const Quat& delta) {
  std::vector<Matrix3> out;
  Matrix3 above = r.in.parent_ws;
  Point3 scale(1, 1, 1);
  for (std::size_t i = 0; i < r.joints.size(); ++i) {
    const IKFKJointFK& j = r.joints[i];
    Point3 p = j.position;
    if (i > 0) p = p * scale * manual_stretch;
    scale = scale * j.scale;
    Matrix3 local = MatrixOf(i == 0 ? j.rotation * delta : j.rotation) * TransMatrix(p);
    above = local * above;
    out.push_back(ScaleMatrix(scale) * above);
  }
  return out;
}

bool AllFinite(const Rig& r) {
  auto ok = [](float v) { return std::isfinite(v); };
  for (const Matrix3& m : r.tms) {
    for (int i = 0; i < 4; ++i) {
      if (!ok(m.GetRow(i).x) || !ok(m.GetRow(i).y) || !ok(m.GetRow(i).z)) return false;
    }
  }
  for (const Quat& q : r.rot) {
    if (!ok(q.x) || !ok(q.y) || !ok(q.z) || !ok(q.w)) return false;
  }
  return ok(r.stretch);
}

Point3 GoalAt(const Rig& r, float distance) { return r.Root() + *GenUnitVector() * distance; }

RC_GTEST_PROP(IKFKSolverLaws, BlendZeroGivesTheFKTransformsWhateverTheGoal, ()) {
  Rig r = DrawRig(*rc::gen::inRange(0, 7), 0.0f, 3.0f, -1.0f, 1.0f);
  for (IKFKJointFK& j : r.joints) {
    j.scale = Point3(*GenFloat(0.5f, 2.0f), *GenFloat(0.5f, 2.0f), *GenFloat(0.5f, 2.0f));
  }
  r.in.parent_ws = *GenAffine({.max_translation = 10.0f});
  r.in.goal_ws = *GenAffine({.max_translation = 50.0f});
  r.in.target_active = *rc::gen::arbitrary<bool>();
  r.in.target_ws = *GenAffine({.max_translation = 50.0f});
  r.in.rotation_space_delta = *GenRotation();
  r.in.ikfk_blend = 0.0f;
  r.in.manual_stretch = *GenFloat(0.5f, 2.0f);
  r.in.auto_stretch = *GenFloat(0.0f, 1.0f);
  r.in.soft_ik = *GenFloat(0.0f, 1.0f);
  r.in.flexion_bias = *GenFloat(-1.0f, 1.0f);
  r.in.last_joint_ik_rotation = true;
  RC_ASSERT(r.Solve());
  const std::vector<Matrix3> fk = FKOracle(r, r.in.manual_stretch, r.in.rotation_space_delta);
  for (std::size_t i = 0; i < fk.size(); ++i) RC_ASSERT_MATRIX3_NEAR(r.tms[i], fk[i], 2e-4f);
  RC_ASSERT(r.stretch == 1.0f);
}

RC_GTEST_PROP(IKFKSolverLaws, BoneLengthsAreKeptWithoutStretch, ()) {
  Rig r = DrawRig(*rc::gen::inRange(2, 8), 0.2f, 3.0f, -1.0f, 1.0f);
  r.SetGoalPs(GoalAt(r, *GenFloat(0.0f, 2.0f * r.Length())));
  r.in.ikfk_blend = *GenFloat(0.0f, 1.0f);
  r.in.soft_ik = *GenFloat(0.0f, 1.0f);
  r.in.flexion_bias = *GenFloat(-0.5f, 0.5f);
  r.in.swivel_angle = *GenAngle();
  RC_ASSERT(r.Solve());
  for (std::size_t i = 1; i < r.joints.size(); ++i) {
    const float bone = (r.pos[i] - r.pos[i - 1]).Length();
    RC_ASSERT(std::fabs(bone - r.joints[i].position.Length()) < 1e-4f * (1 + bone));
  }
}

RC_GTEST_PROP(IKFKSolverLaws, UnreachableGoalGivesAStraightChainAimedAtIt, ()) {
  Rig r = DrawRig(*rc::gen::inRange(2, 7), 0.2f, 3.0f, -1.0f, 1.0f);
  const Point3 goal = GoalAt(r, r.Length() * *GenFloat(1.05f, 3.0f));
  r.SetGoalPs(goal);
  RC_ASSERT(r.Solve());
  const Point3 dir = Normalize(goal - r.Root());
  float along = 0.0f;
  for (std::size_t i = 1; i < r.joints.size(); ++i) {
    along += r.joints[i].position.Length();
    RC_ASSERT_POINT3_NEAR(r.pos[i], r.Root() + dir * along, 2e-3f * r.Length());
  }
  RC_ASSERT(r.stretch == 1.0f);
}

RC_GTEST_PROP(IKFKSolverLaws, AutoStretchOneReachesAnUnreachableGoal, ()) {
  Rig r = DrawRig(*rc::gen::inRange(2, 7), 0.2f, 3.0f, -1.0f, 1.0f);
  const float d = r.Length() * *GenFloat(1.05f, 3.0f);
  const Point3 goal = GoalAt(r, d);
  r.SetGoalPs(goal);
  r.in.auto_stretch = 1.0f;
  RC_ASSERT(r.Solve());
  RC_ASSERT_POINT3_NEAR(r.pos.back(), goal, 2e-3f * d);
  RC_ASSERT(std::fabs(r.stretch - d / r.Length()) < 1e-3f * r.stretch);
}

RC_GTEST_PROP(IKFKSolverLaws, TwoBoneReachesReachableGoalsExactly, ()) {
  Rig r = DrawRig(3, 0.5f, 3.0f, 0.0f, 2.0f);
  const float l1 = r.joints[1].position.Length(), l2 = r.joints[2].position.Length();
  const Point3 goal = GoalAt(r, *GenFloat(std::fabs(l1 - l2) + 0.01f, l1 + l2 - 0.01f));
  r.SetGoalPs(goal);
  r.in.swivel_angle = *GenAngle();
  r.in.target_active = *rc::gen::arbitrary<bool>();
  r.in.target_ws = TransMatrix(*GenPoint3(10.0f)) * r.in.parent_ws;
  RC_ASSERT(r.Solve());
  RC_ASSERT_POINT3_NEAR(r.pos[2], goal, 1e-4f * (1 + r.Length()));
  if (r.in.target_active) {
    // The elbow bends towards the target: in the plane root-goal-target, on the target's side.
    const Point3 target = r.in.target_ws.GetTrans() * Inverse(r.in.parent_ws);
    const Matrix3 plane = LookFrame(r.Root(), goal, target);
    const Point3 e = Inverse(plane).PointTransform(r.pos[1]);
    const Point3 to_goal = Normalize(goal - r.Root()), to_target = Normalize(target - r.Root());
    // A target (nearly) on the line leaves the plane to LookFrame's fallback: only finiteness.
    if (AngleBetween(to_goal, to_target) > 0.05f && AngleBetween(to_goal, -to_target) > 0.05f) {
      RC_ASSERT(std::fabs(e.z) < 1e-3f * r.Length());
      RC_ASSERT(e.y >= -1e-4f);
    }
  }
}

RC_GTEST_PROP(IKFKSolverLaws, NJointSearchReachesReachableGoals, ()) {
  Rig r = DrawRig(*rc::gen::inRange(4, 8), 1.0f, 2.0f, 0.1f, 0.8f);
  const Point3 goal = GoalAt(r, r.Length() * *GenFloat(0.5f, 0.95f));
  r.SetGoalPs(goal);
  r.in.iterations = 100;
  r.in.swivel_angle = *GenAngle();
  r.in.flexion_bias = *GenFloat(-0.2f, 0.2f);
  RC_ASSERT(r.Solve());
  RC_ASSERT_POINT3_NEAR(r.pos.back(), goal, 1e-3f * r.Length());
}

RC_GTEST_PROP(IKFKSolverLaws, BlendTurnsEachJointFromFKToIKInWorld, ()) {
  Rig r = DrawRig(*rc::gen::inRange(2, 7), 0.2f, 3.0f, -1.0f, 1.0f);
  r.SetGoalPs(GoalAt(r, *GenFloat(0.0f, 1.5f * r.Length())));
  r.in.swivel_angle = *GenAngle();
  r.in.last_joint_ik_rotation = *rc::gen::arbitrary<bool>();
  r.in.goal_ws = MatrixOf(*GenRotation()) * r.in.goal_ws;
  const float w = *GenFloat(0.0f, 1.0f);
  std::vector<Quat> fk, ik;
  for (float blend : {0.0f, 1.0f}) {
    r.in.ikfk_blend = blend;
    RC_ASSERT(r.Solve());
    for (const Matrix3& m : r.tms) (blend == 0.0f ? fk : ik).push_back(Quat(m));
  }
  r.in.ikfk_blend = w;
  RC_ASSERT(r.Solve());
  for (std::size_t i = 0; i < r.tms.size(); ++i) {
    Quat to = ik[i];
    to.MakeClosest(fk[i]);
    // FK and IK half a turn apart have no one short way: rounding picks the path.
    if (QDot(to, fk[i]) < 0.05f) continue;
    RC_ASSERT_QUAT_NEAR(Quat(r.tms[i]), Slerp(fk[i], to, w), 5e-4f);
  }
}

RC_GTEST_PROP(IKFKSolverLaws, NJointSearchWithATargetReachesAndBendsTowardsIt, ()) {
  Rig r = DrawRig(*rc::gen::inRange(4, 7), 1.0f, 2.0f, 0.1f, 0.6f);
  const Point3 goal = GoalAt(r, r.Length() * *GenFloat(0.5f, 0.95f));
  r.SetGoalPs(goal);
  r.in.iterations = 100;
  r.in.target_active = true;
  const Point3 target = *GenPoint3(10.0f);
  r.in.target_ws = TransMatrix(target) * r.in.parent_ws;
  const Point3 to_goal = Normalize(goal - r.Root()), to_target = Normalize(target - r.Root());
  RC_PRE(AngleBetween(to_goal, to_target) > 0.1f && AngleBetween(to_goal, -to_target) > 0.1f);
  RC_ASSERT(r.Solve());
  RC_ASSERT_POINT3_NEAR(r.pos.back(), goal, 1e-3f * r.Length());
  // The drawn chains bend one way, so every inner joint bulges to the target's side.
  const Matrix3 plane_inv = Inverse(LookFrame(r.Root(), goal, target));
  for (std::size_t i = 1; i + 1 < r.pos.size(); ++i) {
    const Point3 p = plane_inv.PointTransform(r.pos[i]);
    RC_ASSERT(std::fabs(p.z) < 0.15f * r.Length());
    RC_ASSERT(p.y > -1e-3f * r.Length());
  }
}

TEST(IKFKSolver, ClosingStopsWhereTheChainFoldsPast) {
  // A goal on the root: closing curls the chain until more bend would lengthen it again.
  // Without the stop the search would run every bend to pi, the chain zigzagging one bone out.
  for (int n : {4, 6}) {
    SCOPED_TRACE(n);
    Rig r;
    r.joints.resize(n);
    for (int i = 1; i < n; ++i) {
      r.joints[i].position = Point3(1, 0, 0);
      r.joints[i].rotation = QFromAngAxis(0.2f, Point3::ZAxis);
    }
    r.in.last_joint_ik_rotation = false;
    r.SetGoalPs(Point3(0, 0, 0));
    r.in.iterations = 0;
    ASSERT_TRUE(r.Solve());
    const float start = r.pos.back().Length();
    r.in.iterations = 200;
    ASSERT_TRUE(r.Solve());
    EXPECT_TRUE(AllFinite(r));
    EXPECT_LT(r.pos.back().Length(), 0.2f * start);
    for (int i = 1; i + 1 < n; ++i) {
      const float bend = AngleBetween(r.pos[i] - r.pos[i - 1], r.pos[i + 1] - r.pos[i]);
      EXPECT_LT(bend, 3.0f);
      EXPECT_GT(bend, 0.2f);
    }
  }
}

TEST(IKFKSolver, SoftZoneNeverSnapsStraight) {
  // A goal walked through the chain's length: with soft_ik 0.1 the end trails the goal from the
  // zone's start on, stays below the length and keeps bending, and moves steadily.
  Rig r;
  r.joints.resize(3);
  r.joints[1].position = Point3(2, 0, 0);
  r.joints[2].position = Point3(1.5f, 0, 0);
  r.joints[1].rotation = QFromAngAxis(0.5f, Point3::ZAxis);
  r.in.last_joint_ik_rotation = false;
  r.in.soft_ik = 0.1f;
  const float l = 3.5f;
  float last = 0.0f;
  for (float d = 0.8f * l; d <= 1.2f * l; d += 0.01f * l) {
    SCOPED_TRACE(d);
    r.SetGoalPs(Point3(0, d, 0));
    ASSERT_TRUE(r.Solve());
    const float reach = r.pos[2].Length();
    EXPECT_LT(reach, l);
    if (d > 0.9f * l + 1e-4f) {
      EXPECT_LT(reach, d);
    }
    EXPECT_NEAR(reach, SoftIKLimit(d, l, 0.1f), 1e-4f);
    EXPECT_GT(AngleBetween(r.pos[1], r.pos[2] - r.pos[1]), 1e-3f);
    EXPECT_GT(reach, last);
    last = reach;
  }
}

TEST(IKFKSolver, TriangleCasesOfTheTwoBoneSolver) {
  Rig r;
  r.joints.resize(3);
  r.joints[1].rotation = QFromAngAxis(0.4f, Point3::ZAxis);
  r.in.last_joint_ik_rotation = false;
  const Point3 goal(0, 0.5f, 0);
  r.SetGoalPs(goal);
  {
    SCOPED_TRACE("L2 - L1 > D: the elbow folds back along the line, x = -L1");
    r.joints[1].position = Point3(1, 0, 0);
    r.joints[2].position = Point3(2, 0, 0);
    ASSERT_TRUE(r.Solve());
    EXPECT_POINT3_NEAR(r.pos[1], Point3(0, -1, 0), 1e-4f);
    EXPECT_POINT3_NEAR(r.pos[2], Point3(0, 1, 0), 1e-4f);
  }
  {
    SCOPED_TRACE("L1 - L2 > D: the elbow lies ahead on the line, x = L1");
    r.joints[1].position = Point3(2, 0, 0);
    r.joints[2].position = Point3(1, 0, 0);
    ASSERT_TRUE(r.Solve());
    EXPECT_POINT3_NEAR(r.pos[1], Point3(0, 2, 0), 1e-4f);
    EXPECT_POINT3_NEAR(r.pos[2], Point3(0, 1, 0), 1e-4f);
  }
}

TEST(IKFKSolver, NoIterationsKeepsTheBiasAdjustedFKBend) {
  Rig r;
  r.joints.resize(5);
  const float bends[] = {0.3f, 0.5f, 0.7f};
  for (int i = 1; i < 5; ++i) r.joints[i].position = Point3(1.0f + 0.2f * i, 0, 0);
  for (int i = 1; i < 4; ++i) r.joints[i].rotation = QFromAngAxis(bends[i - 1], Point3::ZAxis);
  r.in.last_joint_ik_rotation = false;
  r.in.iterations = 0;
  r.in.flexion_bias = 0.1f;
  r.in.swivel_angle = 0.4f;
  r.SetGoalPs(Point3(1, 2, 3));
  ASSERT_TRUE(r.Solve());
  const float ramp[] = {1.0f, 0.0f, -1.0f};
  for (int i = 1; i < 4; ++i) {
    SCOPED_TRACE(i);
    const float bend = AngleBetween(r.pos[i] - r.pos[i - 1], r.pos[i + 1] - r.pos[i]);
    EXPECT_NEAR(bend, bends[i - 1] + ramp[i - 1] * 0.1f, 1e-4f);
  }
  // The chain is still aimed: its end lies on the root -> goal line.
  EXPECT_LT(AngleBetween(r.pos[4], Point3(1, 2, 3)), 1e-4f);
  // A bias past the limit: the search starts at 179 degrees, not beyond.
  r.in.flexion_bias = 3.0f;
  ASSERT_TRUE(r.Solve());
  EXPECT_NEAR(AngleBetween(r.pos[1] - r.pos[0], r.pos[2] - r.pos[1]), kIKFKMaxStartAngle, 1e-3f);
}

TEST(IKFKSolver, DegenerateChainsStayFinite) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (int n = 0; n <= 6; ++n) {
    for (int c = 0; c < 5; ++c) {
      SCOPED_TRACE(::testing::Message() << n << " joints, case " << c);
      Rig r;
      r.joints.resize(n);
      for (int i = 1; i < n; ++i) r.joints[i].position = Point3(c == 0 ? 0.0f : 1.0f, 0, 0);
      r.in.target_active = true;
      r.in.last_joint_ik_rotation = true;
      r.in.soft_ik = 0.2f;
      r.in.auto_stretch = 0.5f;
      r.in.ikfk_blend = 0.7f;
      if (c == 1) r.SetGoalPs(Point3());  // goal on the root
      if (c == 2) {                       // target on the root -> goal line
        r.SetGoalPs(Point3(2, 0, 0));
        r.in.target_ws = TransMatrix(Point3(5, 0, 0));
      }
      if (c == 3) {
        r.in.ikfk_blend = nan;
        r.in.soft_ik = nan;
        r.in.swivel_angle = nan;
        r.in.manual_stretch = nan;
        r.in.auto_stretch = nan;
        r.in.flexion_bias = nan;
      }
      if (c == 4 && n > 0) {  // every bone and the goal on the root
        for (IKFKJointFK& j : r.joints) j.position = Point3();
        r.in.target_active = false;
      }
      ASSERT_TRUE(r.Solve());
      EXPECT_TRUE(AllFinite(r));
    }
  }
}

TEST(IKFKSolver, LastJointAndPartialRotations) {
  Rig r;
  r.joints.resize(3);
  r.joints[1].position = Point3(2, 0, 0);
  r.joints[2].position = Point3(2, 0, 0);
  r.joints[1].rotation = QFromAngAxis(0.6f, Point3::ZAxis);
  r.joints[2].rotation = QFromAngAxis(0.3f, Point3::YAxis);
  const Quat goal_rot = QFromAngAxis(1.1f, Normalize(Point3(1, 2, 0)));
  r.in.parent_ws = RotateZMatrix(0.3f) * TransMatrix(Point3(1, 2, 3));
  r.in.goal_ws = MatrixOf(goal_rot) * TransMatrix(Point3(1, 3, 0)) * r.in.parent_ws;
  r.in.last_joint_ik_rotation = true;
  ASSERT_TRUE(r.Solve());
  EXPECT_QUAT_NEAR(Quat(r.tms[2]), Quat(r.in.goal_ws), 1e-5f);
  const std::vector<Quat> full = r.rot;
  for (int k = 0; k < 3; ++k) {
    SCOPED_TRACE(k);
    r.in.partial = k;
    ASSERT_TRUE(r.Solve());
    for (int i = 0; i < 3; ++i) {
      EXPECT_QUAT_NEAR(r.rot[i], i == k ? full[i] : r.joints[i].rotation, 1e-6f);
    }
  }
}

TEST(IKFKSolver, RefusesMismatchedBuffers) {
  Rig r;
  r.joints.resize(3);
  std::vector<Quat> wrong(2);
  r.preferred = wrong;
  EXPECT_FALSE(r.Solve());
  r.preferred.clear();
  r.in.joints_fk = r.joints;
  std::vector<Matrix3> tms(2);
  std::vector<Point3> pos(3);
  std::vector<Quat> rot(3), pref(3);
  IKFKSolveOutput out{tms, pos, rot, pref};
  EXPECT_FALSE(SolveIKFK(r.in, out, r.ws));
}

TEST(IKFKSolver, SolvingAgainAllocatesNothing) {
  for (int n : {3, 6}) {
    Rig r;
    r.joints.resize(n);
    for (int i = 1; i < n; ++i) {
      r.joints[i].position = Point3(1, 0, 0);
      r.joints[i].rotation = QFromAngAxis(0.3f, Point3::ZAxis);
    }
    r.SetGoalPs(Point3(1, 2, 0.5f));
    r.in.ikfk_blend = 0.6f;
    ASSERT_TRUE(r.Solve());
    const AllocationScope scope;
    for (int k = 0; k < 10; ++k) ASSERT_TRUE(r.Solve());
    EXPECT_EQ(scope.Count(), 0u) << n << " joints";
  }
}

}  // namespace
}  // namespace marvolith::test
