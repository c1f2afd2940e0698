// Copyright Marvolith contributors.
// The transform a control figure is drawn with: gizmo, axis permutation, face camera and
// constant screen size, as pure functions of matrices.
#pragma once

#include "host/math/matrix3.h"

namespace marvolith {

/// Factor on the view's world width that a figure of constant screen size is scaled by.
inline constexpr float kConstantScreenFactor = 0.005f;
/// Depth scale of a figure that faces the camera: flattened onto the view plane.
inline constexpr float kFaceCameraDepth = 0.001f;

/// The fixed quarter-turn that brings the figure's plane normal (its Z) to axis: X for 0, Y for
/// 1; the identity for 2 and any other value. Both are proper rotations (determinant +1).
Matrix3 AxisPermutation(int axis);

/// What the drawing transform is made of.
struct DisplayTransformInput {
  Matrix3 node_tm;  ///< the node's object TM, object to world
  Matrix3 gizmo;    ///< the `gizmo` parameter
  int axis = 2;
  bool face_camera = false;
  /// The view's affine TM (world to view); read only with face_camera.
  Matrix3 view_tm;
};

/// Figure space to world. Without face_camera: AxisPermutation(axis) * gizmo * node_tm. With
/// it: the node moved by the gizmo's translation keeps its position, its rotation becomes the
/// view's (the inverse of view_tm), and it is pre-scaled by the lengths of the node's rows 0 and
/// 1 and by kFaceCameraDepth; axis and the gizmo's rotation and scale are dropped.
Matrix3 ComputeDisplayTM(const DisplayTransformInput& in);

/// Scales tm uniformly about its origin by kConstantScreenFactor * view_width (the view's world
/// width at tm's origin); a width that is not positive and finite leaves tm as it is.
void ApplyConstantScreenSize(Matrix3& tm, float view_width);

}  // namespace marvolith
