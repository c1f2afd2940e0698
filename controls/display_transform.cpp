// Copyright Marvolith contributors.
#include "controls/display_transform.h"

#include <cmath>

#include "host/math/affine.h"

namespace marvolith {

Matrix3 AxisPermutation(int axis) {
  switch (axis) {
    case 0:  // Z to X, X to -Z: a quarter turn about Y
      return Matrix3(Point3(0, 0, -1), Point3(0, 1, 0), Point3(1, 0, 0), Point3(0, 0, 0));
    case 1:  // Z to Y, Y to -Z: a quarter turn about X
      return Matrix3(Point3(1, 0, 0), Point3(0, 0, -1), Point3(0, 1, 0), Point3(0, 0, 0));
    default:
      return Matrix3();
  }
}

Matrix3 ComputeDisplayTM(const DisplayTransformInput& in) {
  if (!in.face_camera) return AxisPermutation(in.axis) * in.gizmo * in.node_tm;
  Matrix3 tm = in.node_tm;
  tm.PreTranslate(in.gizmo.GetTrans());
  const Point3 pos = tm.GetTrans();
  const Point3 lengths = GetScaleLengths(tm);
  // The camera's frame (view to world) carries the figure's XY plane onto the screen.
  Matrix3 facing = Inverse(in.view_tm);
  facing.SetTrans(pos);
  facing.PreScale(Point3(lengths.x, lengths.y, kFaceCameraDepth));
  return facing;
}

void ApplyConstantScreenSize(Matrix3& tm, float view_width) {
  if (!(view_width > 0.0f) || !std::isfinite(view_width)) return;
  const float s = kConstantScreenFactor * view_width;
  tm.PreScale(Point3(s, s, s));
}

}  // namespace marvolith
