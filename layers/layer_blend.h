// Copyright Marvolith contributors.
// The arithmetic of layered tracks, free of scene objects: how a stack of layers folds into one
// value, how a value wanted on screen becomes a value for the active layer, and the tangents of
// a baked key. The layered controllers feed these from their layer and weight controllers; a
// compiled evaluation path feeds them from its own cores. Nothing here allocates.
#pragma once

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/math/scale_value.h"

namespace marvolith {

/// Layer types as the stack stores them.
inline constexpr int kLayerAdjustment = 0;
inline constexpr int kLayerOverride = 1;

/// One layer's share in a blend at one time.
struct LayerShare {
  /// w = global weight * local weight; not clamped, so above 1 overshoots and below 0 reverses.
  float weight = 0.0f;
  /// An Adjustment layer above the base adds to what lies under it; any other layer restarts
  /// from the initial value (an Override, and always the base layer).
  bool additive = false;
};

/// True when layer `index` of the given type adds to the layers under it (never the base).
constexpr bool IsAdditiveLayer(int index, int type) { return index > 0 && type != kLayerOverride; }

// ---------------------------------------------------------------------------------------------
// One blending step per kind. `before` is the running value before the layer, `after` the value
// the layer produced when it applied itself (relative) to its source; the step leaves the new
// running value. The loops below call them; a compiled path calls them directly.

/// r + (s - r) * w.
constexpr float BlendFloatStep(float before, float after, float w) {
  return (after - before) * w + before;
}

/// Position: p moves towards the translation of m by w, componentwise, and m takes p as its
/// translation.
void BlendPositionStep(Matrix3& m, Point3& p, float w);

/// Scale: v (stretch and stretch rotation of the running value) moves towards the affine parts
/// of m by w (stretch lerped, rotation slerped the short way); m is orthogonalised and, unless
/// all three stretch factors are exactly 1, pre-multiplied by the scale matrix of v.
void BlendScaleStep(Matrix3& m, ScaleValue& v, float w);

/// Quaternion rotation: q slerps the short way towards the rotation of m by w; m keeps its
/// translation, sign, stretch and stretch rotation and takes q as its rotation.
void BlendRotationStep(Matrix3& m, Quat& q, float w);

/// Euler rotation, angles by axis (e[0] about X, e[1] about Y, e[2] about Z): an additive layer
/// adds w * e, another one moves acc towards e by w.
void BlendEulerStep(float acc[3], const float e[3], float w, bool additive);

// ---------------------------------------------------------------------------------------------
// The loops. A `Layers` source provides, for each layer index in [first, last):
//   bool Share(int i, LayerShare& out)  -- false skips the layer (ignored, weight exactly 0, no
//                                          controller); the loop itself also skips weight 0;
//   void Apply(int i, T& value)          -- the layer's controller applied relative to value
//                                          (float: adds; matrices: applies itself);
// and, for the Euler loop, ReadEuler(int i, float e[3]) with the layer's angles by axis.

/// Float layers. `initial` is 0 for an absolute read, the incoming value for a relative one.
template <class Layers>
float BlendFloatLayers(float initial, int first, int last, Layers&& layers) {
  float s = initial;
  float r = initial;
  for (int i = first; i < last; ++i) {
    LayerShare share;
    if (!layers.Share(i, share) || share.weight == 0.0f) continue;
    if (!share.additive) s = initial;
    layers.Apply(i, s);
    r = BlendFloatStep(r, s, share.weight);
    s = r;
  }
  return r;
}

/// Position layers from m0 (identity for an absolute read); answers the blended matrix, whose
/// translation is the absolute value.
template <class Layers>
Matrix3 BlendPositionLayers(const Matrix3& m0, int first, int last, Layers&& layers) {
  Matrix3 m = m0;
  Point3 p = m.GetTrans();
  for (int i = first; i < last; ++i) {
    LayerShare share;
    if (!layers.Share(i, share) || share.weight == 0.0f) continue;
    if (!share.additive) m = m0;
    layers.Apply(i, m);
    BlendPositionStep(m, p, share.weight);
  }
  return m;
}

/// Scale layers from m0; `v` starts as the affine parts of m0 and ends as the absolute value.
template <class Layers>
Matrix3 BlendScaleLayers(const Matrix3& m0, ScaleValue& v, int first, int last, Layers&& layers);

/// Quaternion rotation layers from m0; `q` ends as the absolute value.
template <class Layers>
Matrix3 BlendRotationLayers(const Matrix3& m0, Quat& q, int first, int last, Layers&& layers);

/// Euler rotation layers: acc (by axis) starts at zero, whatever the incoming value, and sums
/// angles, so turns beyond 360 degrees are kept.
template <class Layers>
void BlendEulerLayers(float acc[3], int first, int last, Layers&& layers) {
  acc[0] = acc[1] = acc[2] = 0.0f;
  for (int i = first; i < last; ++i) {
    LayerShare share;
    if (!layers.Share(i, share) || share.weight == 0.0f) continue;
    float e[3] = {0.0f, 0.0f, 0.0f};
    layers.ReadEuler(i, e);
    BlendEulerStep(acc, e, share.weight, share.additive);
  }
}

/// The parts of m0 a scale blend starts from.
ScaleValue ScaleValueOf(const Matrix3& m0);
/// The rotation a quaternion blend starts from.
Quat RotationOf(const Matrix3& m0);

template <class Layers>
Matrix3 BlendScaleLayers(const Matrix3& m0, ScaleValue& v, int first, int last, Layers&& layers) {
  Matrix3 m = m0;
  v = ScaleValueOf(m0);
  for (int i = first; i < last; ++i) {
    LayerShare share;
    if (!layers.Share(i, share) || share.weight == 0.0f) continue;
    if (!share.additive) m = m0;
    layers.Apply(i, m);
    BlendScaleStep(m, v, share.weight);
  }
  return m;
}

template <class Layers>
Matrix3 BlendRotationLayers(const Matrix3& m0, Quat& q, int first, int last, Layers&& layers) {
  Matrix3 m = m0;
  q = RotationOf(m0);
  for (int i = first; i < last; ++i) {
    LayerShare share;
    if (!layers.Share(i, share) || share.weight == 0.0f) continue;
    if (!share.additive) m = m0;
    layers.Apply(i, m);
    BlendRotationStep(m, q, share.weight);
  }
  return m;
}

// ---------------------------------------------------------------------------------------------
// Euler helpers. Orders 0..5 as host/math/euler.h; angles are kept by axis here, not in order
// sequence.

/// The rotation matrix of angles by axis, applied in the order's sequence.
Matrix3 EulerByAxisToMatrix(const float by_axis[3], int order);
/// Angles by axis of q in the given order.
void QuatToEulerByAxis(const Quat& q, int order, float by_axis[3]);
/// Angles by axis of q closest to the present ones held in by_axis.
void ContinuousQuatToEulerByAxis(const Quat& q, int order, float by_axis[3]);
/// Applies a relative turn to the Euler angles `by_axis` in steps of at most 135 degrees, so
/// that the angles stay continuous through large turns (200 degrees: 135, then 65).
void ApplyEulerTurn(float by_axis[3], int order, const AngAxis& turn);

// ---------------------------------------------------------------------------------------------
// Writing through the active layer: given the value wanted on screen and the blend of the
// layers under the active one (`below`), the value the active layer must hold. `w` is the
// active layer's weight and must not be 0 (the controllers refuse to write then).

/// (v - f * below) / w, f = 1 - w for an Override layer and 1 for an Adjustment one.
float SolveFloatLayer(float v, float below, float w, int type);
Point3 SolvePositionLayer(const Point3& v, const Point3& below, float w, int type);
/// Scale: stretch (v.s - below.s * (1 - w)) / w for both types; rotation the closest slerp from
/// below.q to v.q by 1 / w. For an Adjustment layer the result is then taken relative to below
/// (Inverse(below.q) * q, stretch divided by below's); false when a component of below.s is 0
/// there, and nothing is to be written.
bool SolveScaleLayer(
    const ScaleValue& v, const ScaleValue& below, float w, int type, ScaleValue& out);
/// Quaternion rotation: the closest slerp from below to q by 1 / w, then for an Adjustment layer
/// times Inverse(below).
Quat SolveRotationLayer(const Quat& q, const Quat& below, float w, int type);
/// Euler rotation, by axis: Adjustment (acc - below) / w, Override (acc - (1 - w) * below) / w.
void SolveEulerLayer(const float acc[3], const float below[3], float w, int type, float out[3]);

// ---------------------------------------------------------------------------------------------
// Baking a stack into one keyed controller.

/// Tangents of a baked key at value v, with a and c the values half a frame (h ticks) before
/// and after: in = -(v - a) / h, out = (c - v) / h.
struct BakedTangents {
  float in = 0.0f;
  float out = 0.0f;
};
BakedTangents BakeTangents(float v, float a, float c, int h);
/// The handle length of baked keys: the 32-bit float 0x3EAAAA9F (0.333333).
float BakedTangentLength();

}  // namespace marvolith
