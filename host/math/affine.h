// Copyright Marvolith contributors.
// Affine decomposition (decomp_affine) and the shared scale helpers built on it.
//
// Composition order, row vectors (applied left to right):
//   M = Inverse(U) * ScaleMatrix(k) * U * (f I) * Matrix(q) * TransMatrix(t),  U = Matrix(u)
// that is: stretch by k along the axes of u, mirror through the origin when f = -1, rotate by q,
// move by t. The first three factors are MatrixFromScaleValue(ScaleValue(k, u)); f commutes with
// them, so M = MatrixFromScaleValue(ScaleValue(k * f, u)) * Matrix(q) * TransMatrix(t).
#pragma once

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/math/scale_value.h"

/// The parts of an affine matrix; see the file comment for how they compose.
struct AffineParts {
  Point3 t;                    ///< translation
  Quat q;                      ///< essential rotation, unit, w >= 0
  Quat u;                      ///< stretch rotation: the axes the factors k act along, unit
  Point3 k{1.0f, 1.0f, 1.0f};  ///< stretch factors, >= 0
  float f = 1.0f;              ///< sign of the determinant: -1 for a mirroring matrix, else +1
};

/// Polar decomposition of m (the host's decomp_affine): the rotation/mirror factor is the
/// orthonormal matrix nearest m's 3x3 part, the stretch is what remains, then split along its
/// eigen-axes u with factors k (the axis order and signs of u chosen nearest the identity, so an
/// axis-aligned scale has u = identity). Recomposes exactly (within float rounding) for
/// non-singular m. A singular m (a zero or flat scale, see kSingularRatio) gets its rotation by
/// Gram-Schmidt of the rows (Matrix3::Orthogonalize's fallback), f = +1, and the collapsed
/// directions factor 0; skew in a singular matrix is not recovered. A null parts does nothing.
void decomp_affine(const Matrix3& m, AffineParts* parts);

/// Recomposes parts into mat (the host's comp_affine), in the order of the file comment.
void comp_affine(const AffineParts& parts, Matrix3& mat);
/// As comp_affine, returning the matrix.
Matrix3 ComposeAffine(const AffineParts& parts);

/// The shared decomposition of a transform into position pos = t, rotation rot = q and a
/// ScaleValue of factors k * f along the stretch axes u, so that
/// m = MatrixFromScaleValue(scale) * Matrix(rot) * TransMatrix(pos). A mirror so shows as all
/// three factors negative.
void DecomposeMatrix(const Matrix3& m, Point3& pos, Quat& rot, ScaleValue& scale);

/// A matrix's scale taken as the lengths of its rows 0, 1 and 2 (never negative; mirroring and
/// skew are not seen).
Point3 GetScaleLengths(const Matrix3& m);

/// ScaleMatrix(s.s), and when s.q is not the identity, Inverse(axis) * ScaleMatrix(s.s) * axis
/// with axis = Matrix(s.q). No translation.
Matrix3 MatrixFromScaleValue(const ScaleValue& s);

/// Orthogonalises target; then, unless the factors are exactly 1, 1, 1, the target becomes
/// MatrixFromScaleValue(s) * target (the scale applied before it). Translation is kept.
void ApplyScaleValue(Matrix3& target, const ScaleValue& s);

/// The host's ApplyScaling: target = MatrixFromScaleValue(s) * target, without orthogonalising
/// first, so it multiplies with whatever scale target already has.
void ApplyScaling(Matrix3& target, const ScaleValue& s);
