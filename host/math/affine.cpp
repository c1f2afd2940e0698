// Copyright Marvolith contributors.
#include "host/math/affine.h"

#include "host/math/internal/mat3d.h"

namespace hmi = host_math_internal;

void decomp_affine(const Matrix3& m, AffineParts* parts) {
  if (parts == nullptr) return;
  hmi::Mat3d a = hmi::FromMatrix3(m);
  // a = s * o (row vectors: stretch first), o the orthogonal polar factor, s = a * o^T.
  hmi::Mat3d o;
  hmi::OrthogonalFactor(a, o);
  hmi::Mat3d s = hmi::Multiply(a, hmi::Transpose(o));
  for (int i = 0; i < 3; ++i) {
    for (int j = i + 1; j < 3; ++j) s.m[i][j] = s.m[j][i] = 0.5 * (s.m[i][j] + s.m[j][i]);
  }
  // A mirror: o = -r with r a proper rotation; the sign goes to f.
  double f = hmi::Determinant(o) < 0.0 ? -1.0 : 1.0;
  if (f < 0.0) {
    for (auto& row : o.m) {
      for (double& c : row) c = -c;
    }
  }
  double k[3];
  hmi::Mat3d u;
  hmi::SymmetricEigen(s, k, u);
  parts->t = m.GetTrans();
  parts->q = hmi::QuatFromRotation(o);
  parts->u = hmi::QuatFromRotation(u);
  // The stretch is positive semi-definite; rounding can leave a collapsed axis at -1e-17.
  parts->k = Point3(static_cast<float>(k[0] > 0.0 ? k[0] : 0.0),
                    static_cast<float>(k[1] > 0.0 ? k[1] : 0.0),
                    static_cast<float>(k[2] > 0.0 ? k[2] : 0.0));
  parts->f = static_cast<float>(f);
}

void comp_affine(const AffineParts& parts, Matrix3& mat) {
  // M = MatrixFromScaleValue(k * f, u) * Matrix(q) * TransMatrix(t).
  Matrix3 rot;
  parts.q.MakeMatrix(rot);
  mat = MatrixFromScaleValue(ScaleValue(parts.k * parts.f, parts.u)) * rot;
  mat.SetTrans(parts.t);
}

Matrix3 ComposeAffine(const AffineParts& parts) {
  Matrix3 m;
  comp_affine(parts, m);
  return m;
}

void DecomposeMatrix(const Matrix3& m, Point3& pos, Quat& rot, ScaleValue& scale) {
  AffineParts parts;
  decomp_affine(m, &parts);
  pos = parts.t;
  rot = parts.q;
  scale = ScaleValue(parts.k * parts.f, parts.u);
}

Point3 GetScaleLengths(const Matrix3& m) {
  return Point3(m.GetRow(0).Length(), m.GetRow(1).Length(), m.GetRow(2).Length());
}

Matrix3 MatrixFromScaleValue(const ScaleValue& s) {
  Matrix3 scale = ScaleMatrix(s.s);
  if (s.q.IsIdentity()) return scale;
  Matrix3 axis;
  s.q.MakeMatrix(axis);
  return Inverse(axis) * scale * axis;
}

void ApplyScaleValue(Matrix3& target, const ScaleValue& s) {
  target.Orthogonalize();
  if (s.s == Point3(1.0f, 1.0f, 1.0f)) return;
  target = MatrixFromScaleValue(s) * target;
}

void ApplyScaling(Matrix3& target, const ScaleValue& s) {
  target = MatrixFromScaleValue(s) * target;
}
