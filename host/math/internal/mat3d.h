// Copyright Marvolith contributors.
// Double-precision 3x3 kernels behind Matrix3, decomp_affine and the Euler conversions.
// Private to host/math.
#pragma once

#include "host/math/matrix3.h"
#include "host/math/quat.h"

namespace host_math_internal {

/// A 3x3 matrix in double, row-major, rows as in Matrix3 (row-vector convention).
struct Mat3d {
  double m[3][3];
};

/// Rows 0..2 of m.
Mat3d FromMatrix3(const Matrix3& m);
/// Writes a into rows 0..2 of out (translation and flags untouched).
void StoreRows(const Mat3d& a, Matrix3& out);
Mat3d Identity3d();
Mat3d Multiply(const Mat3d& a, const Mat3d& b);
Mat3d Transpose(const Mat3d& a);
double Determinant(const Mat3d& a);
/// True when a is singular by the kSingularRatio test (flat rows, or a zero row).
bool IsSingular(const Mat3d& a);
/// Inverse of a by cofactors; false (and out untouched) when a is singular.
bool Invert(const Mat3d& a, Mat3d& out);

/// The orthogonal factor q of the polar decomposition a = s * q (s symmetric positive
/// definite, applied first in row-vector order): the orthonormal matrix nearest to a, with the
/// sign of a's determinant. Singular a: Gram-Schmidt in row order with missing rows filled so
/// that det(q) = +1. Returns false for the singular fallback.
bool OrthogonalFactor(const Mat3d& a, Mat3d& q);

/// Symmetric eigen-decomposition s = transpose(u) * diag(k) * u with u a proper rotation whose
/// rows are the eigenvectors, chosen among the equivalent axis permutations and sign flips to be
/// nearest the identity (largest trace). s is taken symmetric (its upper triangle is read).
void SymmetricEigen(const Mat3d& s, double k[3], Mat3d& u);

/// The quaternion whose MakeMatrix is the rotation r (r taken as orthonormal, det +1); result
/// normalised, w >= 0.
Quat QuatFromRotation(const Mat3d& r);

/// The rotation part of m as Quat(Matrix3) and MatrixToEuler read it: rows normalised (zero
/// rows stay zero), and row 2 negated when the determinant is negative.
Mat3d RotationPart(const Matrix3& m);

}  // namespace host_math_internal
