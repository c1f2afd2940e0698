// Copyright Marvolith contributors.
#include "constraints/aim_frames.h"

#include <algorithm>
#include <cmath>

#include "host/math/affine.h"
#include "host/math/geometry.h"
#include "host/math/scale_value.h"

namespace marvolith {
namespace {

Matrix3 RotationMatrix(const Quat& q) {
  Matrix3 m;
  q.MakeMatrix(m);
  return m;
}

ScaleValue ScaleOf(const Matrix3& m) {
  Point3 pos;
  Quat rot;
  ScaleValue s;
  DecomposeMatrix(m, pos, rot, s);
  return s;
}

}  // namespace

Matrix3 AimAlignFrame(const Matrix3& parent_ws, int align, const Matrix3* align_node_ws) {
  if (align == static_cast<int>(AimAlign::Parent)) return parent_ws;
  // M takes the parent's axes to the wanted ones; only its rotation goes in front of P, so the
  // frame keeps P's origin (the node's position) and the wanted axes.
  Matrix3 m = align == static_cast<int>(AimAlign::Node) && align_node_ws
                  ? *align_node_ws * Inverse(parent_ws)
                  : Inverse(parent_ws);
  m.Orthogonalize();
  m.NoTrans();
  return RotationMatrix(Quat(m)) * parent_ws;
}

Matrix3 AimResult::World() const { return RotationMatrix(q) * frame; }

AimResult AimAt(const Matrix3& a_ws, const Point3& target_ws, const AimAxes& axes) {
  AimResult r;
  r.frame = AxisMatrix(axes.align_axis, axes.align_flip) * a_ws;
  r.p = target_ws * Inverse(r.frame);
  r.q = AxisQuat(axes.aim_axis, axes.aim_flip) * AimX(r.p);
  return r;
}

Matrix3 StretchBaseFrame(const StretchInput& in) {
  const Matrix3& start_or_parent = in.start_ws ? *in.start_ws : in.parent_ws;
  Matrix3 f;  // None, and End without an end: the identity
  switch (static_cast<StretchSource>(in.align)) {
    case StretchSource::Parent:
      f = in.parent_ws;
      break;
    case StretchSource::Start:
      f = start_or_parent;
      break;
    case StretchSource::End:
      if (in.end_ws) f = *in.end_ws;
      break;
    case StretchSource::None:
      break;
  }
  if (in.inherit_scale != in.align) {
    ScaleValue s;  // None, and End without an active end: factors 1
    switch (static_cast<StretchSource>(in.inherit_scale)) {
      case StretchSource::Parent:
        s = ScaleOf(in.parent_ws);
        break;
      case StretchSource::Start:
        s = ScaleOf(start_or_parent);
        break;
      case StretchSource::End:
        if (in.end_ws && in.end_active) s = ScaleOf(*in.end_ws);
        break;
      case StretchSource::None:
        break;
    }
    ApplyScaleValue(f, s);
  }
  if (in.align != static_cast<int>(StretchSource::Start)) f.SetTrans(start_or_parent.GetTrans());
  return f;
}

Point3 StretchFactors(float d, float length, float stretch, float squash, int aim_axis) {
  const float dist = std::max(d, kStretchMinLength);
  const float rest = std::max(length, kStretchMinLength);
  const float a = std::pow(dist / rest, stretch);
  const float b = std::pow(rest / dist, squash);
  Point3 factors(b, b, b);
  factors[AxisOrZ(aim_axis)] = a;
  return factors;
}

StretchResult StretchFrame(const StretchInput& in) {
  StretchResult r;
  r.tm_ws = StretchBaseFrame(in);
  if (!in.end_active || !in.end_ws) return r;  // no end to aim at: the frame stands
  const AimResult aim = AimAt(r.tm_ws, in.end_ws->GetTrans(), in.axes);
  r.tm_ws = aim.World();
  if (in.stretch_active) {
    r.measured = true;
    r.distance = std::max(aim.p.Length(), kStretchMinLength);
    r.tm_ws = ScaleMatrix(
                  StretchFactors(r.distance, in.length, in.stretch, in.squash, in.axes.aim_axis)) *
              r.tm_ws;
  }
  return r;
}

}  // namespace marvolith
