// Copyright Marvolith contributors.
#include "controllers/twist_pose_math.h"

#include <algorithm>
#include <cmath>

#include "host/math/geometry.h"

namespace marvolith {
namespace {

Point3 UnitAxis(int axis) {
  Point3 p;
  p[axis] = 1.0f;
  return p;
}

}  // namespace

TwistPoseAccumulator::TwistPoseAccumulator(const Matrix3& frame, int axis)
    : frame_(frame), axis_(AxisOrZ(axis)), companion_(TwistCompanionAxis(axis_)) {}

void TwistPoseAccumulator::Add(const Matrix3& pose, float twist) {
  const float d = AngleBetween(frame_.GetRow(axis_), pose.GetRow(axis_));
  const Point3 ref = pose.GetRow(companion_);
  if (count_ == 0 || d < nearest_angle_) {
    nearest_angle_ = d;
    nearest_ref_ = ref;
    nearest_twist_ = twist;
  }
  ++count_;
  if (d < kTwistPoseReach) {
    const float w = 1.0f - d / kTwistPoseReach;
    weighted_ref_ += ref * w;
    weighted_twist_ += twist * w;
    weight_sum_ += w;
  }
}

TwistPoseResult TwistPoseAccumulator::Finish() const {
  TwistPoseResult r;
  Point3 v = UnitAxis(companion_);  // no poses: the reference space's own companion axis
  if (weight_sum_ > 0.0f) {
    v = weighted_ref_ / weight_sum_;
    r.base_twist = weighted_twist_ / weight_sum_;
  } else if (count_ > 0) {
    v = nearest_ref_;
    r.base_twist = nearest_twist_;
  }
  // F: the frame's axis row kept, the companion row turned towards V. AimFrame gives
  // X = axis, Y nearest V, Z = X x V; for the odd orders (axis, companion, third) the third
  // row of a right-handed frame is companion x axis = -Z.
  const Matrix3 aim = AimFrame(frame_.GetRow(axis_), v);
  Point3 f[3];
  f[axis_] = aim.GetRow(0);
  f[companion_] = aim.GetRow(1);
  f[3 - axis_ - companion_] = -aim.GetRow(2);
  // D = frame * Inverse(F), F orthonormal: D[i][j] = frame row i . F row j.
  auto d = [&](int i, int j) { return DotProd(frame_.GetRow(i), f[j]); };
  switch (axis_) {
    case 0:
      r.twist = std::atan2(d(2, 1), d(2, 2));
      break;
    case 1:
      r.twist = std::atan2(d(0, 2), d(2, 2));
      break;
    default:
      r.twist = std::atan2(d(1, 0), d(0, 0));
      break;
  }
  return r;
}

TwistPoseResult SolveTwistPoses(const Matrix3& frame,
                                int axis,
                                std::span<const Matrix3> poses,
                                std::span<const float> twists) {
  TwistPoseAccumulator acc(frame, axis);
  const size_t n = std::min(poses.size(), twists.size());
  for (size_t i = 0; i < n; ++i) acc.Add(poses[i], twists[i]);
  return acc.Finish();
}

}  // namespace marvolith
