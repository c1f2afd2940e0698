// Copyright Marvolith contributors.
#include "chains/ikfk_match.h"

#include <algorithm>
#include <cmath>

#include "chains/ikfk_solver.h"
#include "host/math/geometry.h"

namespace marvolith {
namespace {

float Clamp01(float v) { return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f; }  // NaN reads as 0

}  // namespace

float SoftMatchGoalScale(float distance, float chain_length, float soft_ik, float auto_stretch) {
  const float soft = Clamp01(soft_ik);
  const float a = Clamp01(auto_stretch);
  const float z = soft * chain_length;
  const float soft_start = chain_length - z;
  if (!(soft > 0.0f) || !(a < 1.0f) || !(z > 0.0f) || !(distance > soft_start) ||
      !(distance > 0.0f)) {
    return 1.0f;
  }
  // Inverse of the soft limit S(D2) = L - exp(-(D2 - softStart) / z) * z = D.
  const float x = std::max((chain_length - distance) / z, kSoftMatchMinRatio);
  const float d2 = soft_start - std::log(x) * z;
  return (d2 / distance) * (1.0f - a) + a;
}

Point3 SoftMatchGoal(
    const Point3& root, const Point3& end, float chain_length, float soft_ik, float auto_stretch) {
  const Point3 offset = end - root;
  return root + offset * SoftMatchGoalScale(offset.Length(), chain_length, soft_ik, auto_stretch);
}

Point3 MatchTargetPosition(const Point3& first_ws,
                           const Point3& mid_ws,
                           const Point3& last_ws,
                           float chain_length,
                           float target_dist_percent,
                           const Quat& preferred_frame_ps,
                           const Matrix3& parent_ws) {
  Point3 bend;
  if (AngleBetween(Normalize(last_ws - first_ws), Normalize(mid_ws - first_ws)) >=
      kTargetPlaneMinAngle) {
    bend = LookFrame(first_ws, last_ws, mid_ws).GetRow(1);
  } else {
    // Straight (or too short to tell): the plane the solve would use without a target.
    Matrix3 frame;
    preferred_frame_ps.MakeMatrix(frame);
    bend = Normalize(parent_ws.VectorTransform(frame.GetRow(1)));
  }
  return mid_ws + bend * (target_dist_percent * chain_length);
}

float SwivelAngleFromPose(const Point3& root_ps,
                          const Point3& elbow_ps,
                          const Point3& goal_ps,
                          const Quat& qp) {
  Matrix3 frame;
  SwivelFrame(root_ps, goal_ps, qp, 0.0f).MakeMatrix(frame);
  // The elbow in the frame; its x is along the aim line, (y, z) its offset around it.
  const Point3 e = Inverse(frame).VectorTransform(elbow_ps - root_ps);
  if (e.y * e.y + e.z * e.z <= 0.0f) return 0.0f;
  return std::atan2(e.z, e.y);
}

Quat MatchFKDelta(const Quat& solved_ls,
                  const Quat& current_fk_ls,
                  bool first_joint,
                  const Quat& rotation_space_delta) {
  Quat q = solved_ls;
  if (first_joint) q = q * Inverse(rotation_space_delta);
  q.MakeClosest(current_fk_ls);
  return Normalize(q * Inverse(current_fk_ls));
}

}  // namespace marvolith
