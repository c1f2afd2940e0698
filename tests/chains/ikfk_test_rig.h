// Copyright Marvolith contributors.
// A chain for the solver tests: FK values, solve input and the buffers of its solve, drawn at
// random inside rapidcheck properties or built by hand.
#pragma once

#include <vector>

#include "chains/ikfk_solver.h"
#include "tests/support/math_generators.h"

namespace marvolith::test {

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
inline Rig DrawRig(int n, float lo, float hi, float bend_lo, float bend_hi) {
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

/// Three joints, bones l1 and l2, the middle joint bent towards -Y by `bend` radians, joint 0
/// placed and turned at random under an identity parent.
inline Rig DrawArm(float l1, float l2, float bend) {
  Rig r;
  r.joints.resize(3);
  r.joints[0].position = *GenPoint3(3.0f);
  r.joints[0].rotation = *GenRotation();
  r.joints[1].position = Point3(l1, 0, 0);
  r.joints[1].rotation = QFromAngAxis(bend, Point3::ZAxis);
  r.joints[2].position = Point3(l2, 0, 0);
  r.in.last_joint_ik_rotation = false;
  return r;
}

}  // namespace marvolith::test
