// Copyright Marvolith contributors.
#include "host/math/matrix3.h"

#include <cmath>
#include <cstring>

#include "host/math/internal/mat3d.h"

namespace hmi = host_math_internal;

namespace {

bool IsFinite(const Point3& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

}  // namespace

void Matrix3::NoRot() {
  Point3 lengths(m_[0].Length(), m_[1].Length(), m_[2].Length());
  m_[0] = Point3(lengths.x, 0, 0);
  m_[1] = Point3(0, lengths.y, 0);
  m_[2] = Point3(0, 0, lengths.z);
  flags_ |= ROT_IDENT;
  if (lengths != Point3(1, 1, 1)) flags_ &= ~SCL_IDENT;
}

void Matrix3::NoScale() {
  // Normalising keeps a diagonal non-negative and unit rows unit, so both flags stay true.
  for (int i = 0; i < 3; ++i) m_[i] = m_[i].Normalize();
}

void Matrix3::Orthogonalize() {
  hmi::Mat3d q;
  hmi::OrthogonalFactor(hmi::FromMatrix3(*this), q);
  std::uint32_t pos = flags_ & POS_IDENT;
  hmi::StoreRows(q, *this);
  flags_ = pos;
  if (m_[0] == Point3(1, 0, 0) && m_[1] == Point3(0, 1, 0) && m_[2] == Point3(0, 0, 1)) {
    flags_ |= ROT_IDENT | SCL_IDENT;
  } else if (hmi::Determinant(q) > 0.0) {
    flags_ |= SCL_IDENT;
  }
}

void Matrix3::RotateX(float angle) { *this = *this * RotateXMatrix(angle); }
void Matrix3::RotateY(float angle) { *this = *this * RotateYMatrix(angle); }
void Matrix3::RotateZ(float angle) { *this = *this * RotateZMatrix(angle); }

void Matrix3::Rotate(const Quat& q) {
  Matrix3 r;
  q.MakeMatrix(r);
  *this = *this * r;
}

void Matrix3::Scale(const Point3& s, bool trans) {
  for (int i = 0; i < 3; ++i) m_[i] *= s;
  if (trans) m_[3] *= s;
  if (s != Point3(1, 1, 1)) flags_ &= ~SCL_IDENT;
  if (s.x < 0 || s.y < 0 || s.z < 0) flags_ &= ~ROT_IDENT;
}

void Matrix3::PreTranslate(const Point3& p) {
  m_[3] += VectorTransform(p);
  if (p != Point3()) flags_ &= ~POS_IDENT;
}

// The rotation matrices have a zero translation, so R * this keeps this translation exactly.
void Matrix3::PreRotate(const Quat& q) {
  Matrix3 r;
  q.MakeMatrix(r);
  *this = r * *this;
}

void Matrix3::PreRotateX(float angle) { *this = RotateXMatrix(angle) * *this; }
void Matrix3::PreRotateY(float angle) { *this = RotateYMatrix(angle) * *this; }
void Matrix3::PreRotateZ(float angle) { *this = RotateZMatrix(angle) * *this; }

void Matrix3::PreScale(const Point3& s, bool trans) {
  for (int i = 0; i < 3; ++i) m_[i] *= s[i];
  if (trans) m_[3] *= s;
  if (s != Point3(1, 1, 1)) flags_ &= ~SCL_IDENT;
  if (s.x < 0 || s.y < 0 || s.z < 0) flags_ &= ~ROT_IDENT;
}

void Matrix3::SetRotate(const Quat& q) { q.MakeMatrix(*this); }
void Matrix3::SetRotateX(float angle) { *this = RotateXMatrix(angle); }
void Matrix3::SetRotateY(float angle) { *this = RotateYMatrix(angle); }
void Matrix3::SetRotateZ(float angle) { *this = RotateZMatrix(angle); }
void Matrix3::SetScale(const Point3& s) { *this = ScaleMatrix(s); }
void Matrix3::SetTranslate(const Point3& p) { *this = TransMatrix(p); }

bool Matrix3::Invert() {
  hmi::Mat3d inv;
  bool ok = hmi::Invert(hmi::FromMatrix3(*this), inv);
  Matrix3 r;
  if (ok) {
    hmi::StoreRows(inv, r);
    ok = IsFinite(r.m_[0]) && IsFinite(r.m_[1]) && IsFinite(r.m_[2]);
  }
  if (!ok) {
    // No inverse: keep only the translation's inverse (documented fallback).
    Point3 t = -m_[3];
    IdentityMatrix();
    SetTrans(t);
    return false;
  }
  // inverse(L * T) = inverse(T) * inverse(L): the new translation is -t * inverse(L).
  r.m_[3] = -r.VectorTransform(m_[3]);
  // Inverses of a non-negative diagonal, of a rotation and of a zero translation keep each
  // property, so the flags carry over.
  r.flags_ = flags_;
  *this = r;
  return true;
}

float Matrix3::Determinant() const {
  return static_cast<float>(hmi::Determinant(hmi::FromMatrix3(*this)));
}

void Matrix3::WriteBytes(std::span<std::byte, kMatrix3FileBytes> out) const {
  std::memcpy(out.data(), m_, sizeof(m_));
  std::memcpy(out.data() + sizeof(m_), &flags_, sizeof(flags_));
}

void Matrix3::ReadBytes(std::span<const std::byte, kMatrix3FileBytes> in) {
  std::memcpy(m_, in.data(), sizeof(m_));
  std::memcpy(&flags_, in.data() + sizeof(m_), sizeof(flags_));
  if ((flags_ & POS_IDENT) && m_[3] != Point3()) flags_ &= ~POS_IDENT;
  if (flags_ & ROT_IDENT) {
    bool diagonal = m_[0].y == 0 && m_[0].z == 0 && m_[1].x == 0 && m_[1].z == 0 && m_[2].x == 0 &&
                    m_[2].y == 0 && m_[0].x >= 0 && m_[1].y >= 0 && m_[2].z >= 0;
    if (!diagonal) flags_ &= ~ROT_IDENT;
  }
  if (flags_ & SCL_IDENT) {
    // Orthonormal with determinant +1, to float precision.
    constexpr float kEps = 1e-5f;
    bool ok = true;
    for (int i = 0; i < 3 && ok; ++i) {
      for (int j = 0; j < 3 && ok; ++j) {
        float d = m_[i] % m_[j] - (i == j ? 1.0f : 0.0f);
        ok = std::fabs(d) <= kEps;
      }
    }
    if (!ok || !(Determinant() > 0.0f)) flags_ &= ~SCL_IDENT;
  }
}

Matrix3 Inverse(const Matrix3& m) {
  Matrix3 r = m;
  r.Invert();
  return r;
}

Matrix3 ScaleMatrix(const Point3& s) {
  Matrix3 r;
  r.PreScale(s);
  return r;
}

Matrix3 TransMatrix(const Point3& p) {
  Matrix3 r;
  r.SetTrans(p);
  return r;
}

// Row-vector rotation matrices: row i is the image of axis i.
Matrix3 RotateXMatrix(float angle) {
  float c = std::cos(angle), s = std::sin(angle);
  Matrix3 r(Point3(1, 0, 0), Point3(0, c, s), Point3(0, -s, c), Point3());
  r.SetIdentFlags(SCL_IDENT);
  return r;
}

Matrix3 RotateYMatrix(float angle) {
  float c = std::cos(angle), s = std::sin(angle);
  Matrix3 r(Point3(c, 0, -s), Point3(0, 1, 0), Point3(s, 0, c), Point3());
  r.SetIdentFlags(SCL_IDENT);
  return r;
}

Matrix3 RotateZMatrix(float angle) {
  float c = std::cos(angle), s = std::sin(angle);
  Matrix3 r(Point3(c, s, 0), Point3(-s, c, 0), Point3(0, 0, 1), Point3());
  r.SetIdentFlags(SCL_IDENT);
  return r;
}

Matrix3 RotAngleAxisMatrix(const Point3& axis, float angle) {
  Matrix3 r;
  QFromAngAxis(angle, axis).MakeMatrix(r);
  return r;
}
