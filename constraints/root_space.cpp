// Copyright Marvolith contributors.
#include "constraints/root_space.h"

#include <algorithm>
#include <cmath>

#include "controllers/float_math.h"
#include "host/math/geometry.h"

namespace marvolith {
namespace {

bool Finite(const Point3& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

bool Finite(const Quat& q) {
  return std::isfinite(q.x) && std::isfinite(q.y) && std::isfinite(q.z) && std::isfinite(q.w);
}

// The rotation of m without its scale, skew or translation.
Quat RotationOf(Matrix3 m) {
  m.Orthogonalize();
  m.NoTrans();
  return Quat(m);
}

void PreRotateAbout(Matrix3& m, int axis, float angle) {
  switch (axis) {
    case 0:
      m.PreRotateX(angle);
      break;
    case 1:
      m.PreRotateY(angle);
      break;
    default:
      m.PreRotateZ(angle);
      break;
  }
}

}  // namespace

Matrix3 RootParentTM(const RootParentInput& in) {
  const int v = AxisOrZ(in.vertical_axis);
  const int h1 = (v + 1) % 3;
  const int h2 = (v + 2) % 3;
  const float ground = in.use_ground ? in.ground_offset : 0.0f;
  Matrix3 parent_ws = in.world ? Matrix3() : in.parent_ws;

  Matrix3 m;  // the target relative to the parent (or world); the identity without a target
  if (in.has_target) {
    m = in.world ? in.target_ws : in.target_ws * Inverse(parent_ws);
    if (in.initial_target_offset) {
      // Relative to the captured pose: its rotation comes off whole, but of its position only the
      // height, so the root stays under the target across the ground.
      Matrix3 captured = in.initial_target_tm;
      const Point3 captured_pos = captured.GetTrans();
      captured.NoTrans();
      m = Inverse(captured) * m;
      Point3 pos = m.GetTrans();
      pos[v] -= captured_pos[v];
      m.SetTrans(pos);
    }
  }

  const Point3 target_pos = m.GetTrans();
  Point3 move;
  float height = ground + (target_pos[v] + in.vertical_offset - ground) * in.follow_vertical;
  if (in.use_ground) height = std::max(ground, height);
  move[v] = height;
  move[h1] = target_pos[h1] * in.follow_horizontal;
  move[h2] = target_pos[h2] * in.follow_horizontal;
  if (!Finite(move)) move = Point3();

  const Quat q = RotationOf(m);
  float turn = Finite(q) ? TwistAbout(q, v) * in.follow_turning : 0.0f;
  if (!std::isfinite(turn)) turn = 0.0f;

  parent_ws.PreTranslate(move);
  PreRotateAbout(parent_ws, v, turn);
  return parent_ws;
}

Matrix3 RootCaptureTM(const Matrix3* target_ws, const Matrix3& parent_ws, bool world) {
  if (!target_ws) return Matrix3();
  return world ? *target_ws : *target_ws * Inverse(parent_ws);
}

Matrix3 SpaceParentTM(const SpaceParentInput& in) {
  if (!in.has_target) return in.parent_ws;
  Matrix3 m = in.target_ws;
  if (in.keep_initial_offset) m = in.initial_offset * m;
  Quat q = RotationOf(m * Inverse(in.parent_ws));
  if (!Finite(q)) q = Quat();
  const Quat identity;
  MakeClosest(q, identity);  // the short arc: a share of a turn never goes the long way round
  const Quat share = Slerp(identity, q, in.weight);
  Matrix3 r;
  share.MakeMatrix(r);
  return r * in.parent_ws;
}

Matrix3 SpaceCaptureOffset(const Matrix3& target_ws, const Matrix3& parent_ws) {
  Matrix3 r;
  Inverse(RotationOf(target_ws * Inverse(parent_ws))).MakeMatrix(r);
  return r;
}

Point3 TurnAboutPivot(const Point3& point_ws, const Matrix3& axis_ws, const AngAxis& aa) {
  const Point3 center_ws = axis_ws.GetTrans();
  const Point3 axis = Normalize(VectorTransform(axis_ws, aa.axis));
  return center_ws + VectorTransform(RotAngleAxisMatrix(axis, aa.angle), point_ws - center_ws);
}

Point3 ScaleAboutPivot(const Point3& point_ws, const Matrix3& axis_ws, const Point3& factors) {
  Matrix3 axes_ws = axis_ws;
  axes_ws.Orthogonalize();
  axes_ws.NoTrans();
  const Point3 center_ws = axis_ws.GetTrans();
  const Point3 local = VectorTransform(Inverse(axes_ws), point_ws - center_ws) * factors;
  return center_ws + VectorTransform(axes_ws, local);
}

}  // namespace marvolith
