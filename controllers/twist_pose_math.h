// Copyright Marvolith contributors.
// The pure core of the twist pose readers: the twist of a frame about one axis, measured against
// stored poses weighted by how near the frame's axis lies to each.
#pragma once

#include <span>

#include "host/math/matrix3.h"

namespace marvolith {

/// Below this angle between the frame's axis and a pose's axis (a quarter turn) the pose has a
/// weight; at and beyond it none.
inline constexpr float kTwistPoseReach = 1.5707964f;

/// The companion row of a twist axis: the row whose direction fixes the zero of the twist
/// (2 for axis 0, 0 for axis 1, 1 for axis 2).
constexpr int TwistCompanionAxis(int axis) { return axis == 0 ? 2 : (axis == 1 ? 0 : 1); }

/// What the poses give: the twist angle of the frame and the base twist of the poses.
struct TwistPoseResult {
  float twist = 0.0f;       ///< radians, in the quaternion's (left-handed) sense about the axis
  float base_twist = 0.0f;  ///< the poses' twists blended by the same weights
};

/// Measures one frame against poses fed one at a time, without allocating.
///
///   TwistPoseAccumulator acc(c, axis);
///   for (...) acc.Add(pose_i, twist_i);
///   TwistPoseResult r = acc.Finish();
///
/// Each pose i weighs w_i = 1 - d_i / kTwistPoseReach, d_i the angle between row `axis` of the
/// frame and of the pose, 0 from a quarter turn on. The reference vector V is the weighted mean
/// of the poses' companion rows and the base twist the weighted mean of their twists. When no
/// pose has a weight, the nearest pose (the first of equals) alone gives V and the base twist.
/// Without poses V is the companion axis of the frame's reference space and the base twist 0.
///
/// The frame F keeps the frame's axis row and turns its companion row as near V as it can (the
/// LookFrame form; V along the axis falls back to the world axis least aligned with it).
/// D = frame * Inverse(F) is a turn about the axis, and the twist is atan2 of its entries:
/// axis 0 (D[2][2], D[2][1]), axis 1 (D[2][2], D[0][2]), axis 2 (D[0][0], D[1][0]). An axis outside
/// 0..2 reads as Z. Frames may carry scale and translation; only row directions matter.
class TwistPoseAccumulator {
 public:
  TwistPoseAccumulator(const Matrix3& frame, int axis);
  void Add(const Matrix3& pose, float twist);
  TwistPoseResult Finish() const;

 private:
  Matrix3 frame_;
  int axis_;
  int companion_;
  Point3 weighted_ref_;
  float weighted_twist_ = 0.0f;
  float weight_sum_ = 0.0f;
  int count_ = 0;
  float nearest_angle_ = 0.0f;
  Point3 nearest_ref_;
  float nearest_twist_ = 0.0f;
};

/// The accumulator over whole tables; entries beyond the shorter table are ignored.
TwistPoseResult SolveTwistPoses(const Matrix3& frame,
                                int axis,
                                std::span<const Matrix3> poses,
                                std::span<const float> twists);

}  // namespace marvolith
