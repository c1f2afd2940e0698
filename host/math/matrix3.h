// Copyright Marvolith contributors.
// Matrix3: the host's affine transform, four rows of Point3 and a flags word.
//
// Row-vector convention: a point p is transformed as p * M (rows 0..2 are the images of the X,
// Y and Z axes, row 3 the translation), so A * B applies A first. Rotations built by RotateX/Y/Z
// and the *Matrix factories are right-handed: RotateZMatrix(a) turns +X towards +Y for a > 0.
//
// Flags are promises, never requirements: a set bit guarantees that part is the identity,
// a clear bit says nothing. Every operation keeps them true by clearing what it may break.
//   POS_IDENT  row 3 is zero
//   ROT_IDENT  rows 0..2 are diagonal with no negative entry (no rotation, no mirror)
//   SCL_IDENT  rows 0..2 are orthonormal with determinant +1 (no scale, no mirror)
//   MAT_IDENT  all three: the identity
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/math/tolerances.h"

inline constexpr std::uint32_t POS_IDENT = 1;
inline constexpr std::uint32_t ROT_IDENT = 2;
inline constexpr std::uint32_t SCL_IDENT = 4;
inline constexpr std::uint32_t MAT_IDENT = POS_IDENT | ROT_IDENT | SCL_IDENT;

/// Bytes of a Matrix3 in a file: 48 of rows (12 floats, row by row, x y z) and 4 of flags.
inline constexpr std::size_t kMatrix3FileBytes = 52;

/// An affine transform in row-vector form; see the file comment. Default is the identity.
class Matrix3 {
 public:
  /// The identity.
  constexpr Matrix3()
      : m_{Point3(1, 0, 0), Point3(0, 1, 0), Point3(0, 0, 1), Point3(0, 0, 0)}, flags_(MAT_IDENT) {}
  /// The identity when init is true, the zero matrix when false (host's Matrix3(1) / (0)).
  explicit constexpr Matrix3(bool init) : Matrix3() {
    if (!init) Zero();
  }
  /// From four rows; flags are computed from the values.
  constexpr Matrix3(const Point3& r0, const Point3& r1, const Point3& r2, const Point3& r3)
      : m_{r0, r1, r2, r3}, flags_(0) {
    ValidateFlags();
  }

  /// Row i (0..3); an index outside 0..3 reads row 3. The non-const form clears every flag,
  /// since the caller may write through it.
  constexpr const Point3& operator[](int i) const { return m_[Row(i)]; }
  constexpr Point3& operator[](int i) {
    flags_ = 0;
    return m_[Row(i)];
  }
  constexpr const Point3& GetRow(int i) const { return m_[Row(i)]; }
  /// Sets row i (0..2 rotation/scale rows, 3 translation); an index outside 0..3 sets row 3.
  constexpr void SetRow(int i, const Point3& p) {
    if (Row(i) == 3) {
      SetTrans(p);
      return;
    }
    m_[i] = p;
    flags_ &= ~(ROT_IDENT | SCL_IDENT);
  }
  /// Column i (0..2) of rows 0..2; an index outside reads column 2.
  constexpr Point3 GetColumn3(int i) const { return {m_[0][i], m_[1][i], m_[2][i]}; }
  /// Column i of all four rows as (r0, r1, r2, r3).
  constexpr Point4 GetColumn(int i) const { return {m_[0][i], m_[1][i], m_[2][i], m_[3][i]}; }

  constexpr const Point3& GetTrans() const { return m_[3]; }
  constexpr void SetTrans(const Point3& p) {
    m_[3] = p;
    if (p == Point3()) {
      flags_ |= POS_IDENT;
    } else {
      flags_ &= ~POS_IDENT;
    }
  }
  constexpr void SetTrans(int i, float v) {
    Point3 t = m_[3];
    t[i] = v;
    SetTrans(t);
  }

  constexpr std::uint32_t GetIdentFlags() const { return flags_; }
  /// Sets flag bits. The caller promises they hold; prefer ValidateFlags.
  constexpr void SetIdentFlags(std::uint32_t f) { flags_ |= f & MAT_IDENT; }
  constexpr void ClearIdentFlag(std::uint32_t f) { flags_ &= ~f; }
  /// Recomputes the flags from the values, exactly: POS_IDENT when row 3 is exactly zero;
  /// ROT_IDENT when rows 0..2 are exactly diagonal with no negative entry; SCL_IDENT when rows
  /// 0..2 are exactly the identity.
  constexpr void ValidateFlags() {
    flags_ = 0;
    if (m_[3] == Point3()) flags_ |= POS_IDENT;
    if (m_[0].y == 0 && m_[0].z == 0 && m_[1].x == 0 && m_[1].z == 0 && m_[2].x == 0 &&
        m_[2].y == 0 && m_[0].x >= 0 && m_[1].y >= 0 && m_[2].z >= 0) {
      flags_ |= ROT_IDENT;
      if (m_[0].x == 1 && m_[1].y == 1 && m_[2].z == 1) flags_ |= SCL_IDENT;
    }
  }

  /// Sets the identity.
  constexpr void IdentityMatrix() { *this = Matrix3(); }
  /// Sets all twelve values to zero (flags: POS_IDENT only).
  constexpr void Zero() {
    m_[0] = m_[1] = m_[2] = m_[3] = Point3();
    flags_ = POS_IDENT;
  }
  /// True when this is exactly the identity (by flags, else by value).
  constexpr bool IsIdentity() const {
    if ((flags_ & MAT_IDENT) == MAT_IDENT) return true;
    return m_[0] == Point3(1, 0, 0) && m_[1] == Point3(0, 1, 0) && m_[2] == Point3(0, 0, 1) &&
           m_[3] == Point3();
  }
  /// True when all twelve values differ from m's by at most epsilon (flags ignored).
  constexpr bool Equals(const Matrix3& m, float epsilon = kMatrixEqualsEpsilon) const {
    for (int i = 0; i < 4; ++i) {
      if (!m_[i].Equals(m.m_[i], epsilon)) return false;
    }
    return true;
  }
  /// Exact comparison of the twelve values (flags ignored).
  constexpr bool operator==(const Matrix3& m) const {
    return m_[0] == m.m_[0] && m_[1] == m.m_[1] && m_[2] == m.m_[2] && m_[3] == m.m_[3];
  }

  /// Clears the translation.
  constexpr void NoTrans() {
    m_[3] = Point3();
    flags_ |= POS_IDENT;
  }
  /// Replaces rows 0..2 by a diagonal of their lengths: rotation, skew and mirroring go, the
  /// row lengths stay. Translation is kept.
  void NoRot();
  /// Normalises rows 0..2 to unit length (zero rows stay zero); skew and mirroring stay.
  void NoScale();
  /// Removes skew and scale from rows 0..2 in place: they become the nearest orthonormal rows
  /// (the orthogonal factor of the polar decomposition), so the result does not favour any row
  /// and keeps the handedness: a mirrored matrix stays mirrored (determinant -1). A singular
  /// 3x3 part (see kSingularRatio) is orthonormalised by Gram-Schmidt in row order, missing rows
  /// filled from the axis least aligned with the rows kept, with determinant +1. Translation kept.
  void Orthogonalize();

  /// this = this * TransMatrix(p): moves by p after this transform.
  constexpr void Translate(const Point3& p) {
    m_[3] += p;
    flags_ &= ~POS_IDENT;
  }
  /// this = this * RotateXMatrix(angle) (radians, right-handed). Likewise Y and Z.
  void RotateX(float angle);
  void RotateY(float angle);
  void RotateZ(float angle);
  /// this = this * Matrix(q).
  void Rotate(const Quat& q);
  /// this = this * ScaleMatrix(s) for rows 0..2; the translation row is scaled too only when
  /// trans is true (the host's default leaves it).
  void Scale(const Point3& s, bool trans = false);

  /// this = TransMatrix(p) * this: moves by p, given in this matrix's local axes, before it.
  void PreTranslate(const Point3& p);
  /// this = Matrix(q) * this.
  void PreRotate(const Quat& q);
  /// this = RotateXMatrix(angle) * this. Likewise Y and Z.
  void PreRotateX(float angle);
  void PreRotateY(float angle);
  void PreRotateZ(float angle);
  /// this = ScaleMatrix(s) * this (row i of 0..2 scaled by s[i]); with trans true the
  /// translation is scaled component-wise as well.
  void PreScale(const Point3& s, bool trans = false);

  /// Sets a pure rotation/scale/translation matrix (the others cleared).
  void SetRotate(const Quat& q);
  void SetRotateX(float angle);
  void SetRotateY(float angle);
  void SetRotateZ(float angle);
  void SetScale(const Point3& s);
  void SetTranslate(const Point3& p);

  /// Inverts in place. A singular 3x3 part (see kSingularRatio), or one whose inverse would not
  /// be finite in float, has no inverse: the result is then the pure translation by -trans, so
  /// the matrix's origin still maps back to zero. Returns false in that case.
  bool Invert();

  /// Determinant of rows 0..2.
  float Determinant() const;
  /// True when the determinant is negative (a mirroring transform).
  bool Parity() const { return Determinant() < 0.0f; }

  /// p * M, translation included.
  constexpr Point3 PointTransform(const Point3& p) const {
    return {p.x * m_[0].x + p.y * m_[1].x + p.z * m_[2].x + m_[3].x,
            p.x * m_[0].y + p.y * m_[1].y + p.z * m_[2].y + m_[3].y,
            p.x * m_[0].z + p.y * m_[1].z + p.z * m_[2].z + m_[3].z};
  }
  /// v * M without translation: for directions.
  constexpr Point3 VectorTransform(const Point3& v) const {
    return {v.x * m_[0].x + v.y * m_[1].x + v.z * m_[2].x,
            v.x * m_[0].y + v.y * m_[1].y + v.z * m_[2].y,
            v.x * m_[0].z + v.y * m_[1].z + v.z * m_[2].z};
  }

  /// Composition: (A * B) applies A first.
  constexpr Matrix3 operator*(const Matrix3& b) const {
    Matrix3 r;
    for (int i = 0; i < 3; ++i) r.m_[i] = b.VectorTransform(m_[i]);
    r.m_[3] = b.PointTransform(m_[3]);
    r.flags_ = flags_ & b.flags_;
    return r;
  }
  constexpr Matrix3& operator*=(const Matrix3& b) { return *this = *this * b; }

  /// Writes the 52-byte file form: rows 0..3 as x, y, z floats, then the flags word, all in the
  /// machine's (little-endian) byte order.
  void WriteBytes(std::span<std::byte, kMatrix3FileBytes> out) const;
  /// Reads the 52-byte file form. A stored flag bit that the values contradict is cleared (a
  /// file cannot make a matrix claim identity parts it lacks); honest flags are kept as read, so
  /// writing again gives the same bytes.
  void ReadBytes(std::span<const std::byte, kMatrix3FileBytes> in);

 private:
  static constexpr int Row(int i) { return i >= 0 && i < 3 ? i : 3; }

  Point3 m_[4];
  std::uint32_t flags_;
};

static_assert(sizeof(Matrix3) == kMatrix3FileBytes && std::is_trivially_copyable_v<Matrix3> &&
                  std::is_standard_layout_v<Matrix3>,
              "Matrix3 is 48 bytes of rows and 4 of flags, as in files");

/// p * m, translation included.
constexpr Point3 operator*(const Point3& p, const Matrix3& m) { return m.PointTransform(p); }
/// Same as p * m (the host allows both spellings).
constexpr Point3 operator*(const Matrix3& m, const Point3& p) { return m.PointTransform(p); }
/// v * m without translation.
constexpr Point3 VectorTransform(const Matrix3& m, const Point3& v) { return m.VectorTransform(v); }
/// As m.VectorTransform(v) (host's argument order variant).
constexpr Point3 VectorTransform(const Point3& v, const Matrix3& m) { return m.VectorTransform(v); }

/// The inverse of m; a non-invertible m gives the pure translation by -m.GetTrans() (see
/// Matrix3::Invert).
Matrix3 Inverse(const Matrix3& m);
/// Diagonal scale matrix.
Matrix3 ScaleMatrix(const Point3& s);
/// Pure translation.
Matrix3 TransMatrix(const Point3& p);
/// Right-handed rotation about X by angle radians: Y turns towards Z. Likewise Y (Z towards X)
/// and Z (X towards Y).
Matrix3 RotateXMatrix(float angle);
Matrix3 RotateYMatrix(float angle);
Matrix3 RotateZMatrix(float angle);
/// The rotation of AngAxis(axis, angle), i.e. Quat(AngAxis(axis, angle)).MakeMatrix(): in the
/// quaternion's sense, so RotAngleAxisMatrix(XAxis, a) equals RotateXMatrix(-a). A zero axis
/// gives the identity.
Matrix3 RotAngleAxisMatrix(const Point3& axis, float angle);
