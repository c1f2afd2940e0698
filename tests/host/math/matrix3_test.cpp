// Copyright Marvolith contributors.
#include "host/math/matrix3.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

using marvolith::test::AffineGenOptions;
using marvolith::test::GenAffine;
using marvolith::test::GenAngle;
using marvolith::test::GenFloat;
using marvolith::test::GenPoint3;
using marvolith::test::GenRotation;
using marvolith::test::GenRotationMatrix;

namespace {

constexpr float kPi = std::numbers::pi_v<float>;

// True when every flag bit that is set holds for the values (within float rounding for
// SCL_IDENT, exactly for the others).
bool FlagsAreTruthful(const Matrix3& m) {
  std::uint32_t f = m.GetIdentFlags();
  bool ok = !(f & POS_IDENT) || m.GetTrans() == Point3();
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      float v = m.GetRow(i)[j];
      if (f & ROT_IDENT) ok = ok && (i == j ? v >= 0.0f : v == 0.0f);
      float dot = m.GetRow(i) % m.GetRow(j) - (i == j ? 1.0f : 0.0f);
      if (f & SCL_IDENT) ok = ok && std::fabs(dot) <= 1e-5f && m.Determinant() > 0.0f;
    }
  }
  return ok;
}

}  // namespace

TEST(Matrix3Test, RotationsAreRightHandedRowVectorTransforms) {
  EXPECT_POINT3_NEAR(Point3::XAxis * RotateZMatrix(kPi / 2), Point3::YAxis, 1e-6f);
  EXPECT_POINT3_NEAR(Point3::YAxis * RotateXMatrix(kPi / 2), Point3::ZAxis, 1e-6f);
  EXPECT_POINT3_NEAR(Point3::ZAxis * RotateYMatrix(kPi / 2), Point3::XAxis, 1e-6f);
  // A * B applies A first: scale, then move.
  Matrix3 m = ScaleMatrix(Point3(2, 2, 2)) * TransMatrix(Point3(1, 0, 0));
  EXPECT_POINT3_NEAR(Point3(1, 1, 1) * m, Point3(3, 2, 2), 0.0f);
  EXPECT_POINT3_NEAR(VectorTransform(m, Point3(1, 1, 1)), Point3(2, 2, 2), 0.0f);
}

RC_GTEST_PROP(Matrix3Property, PreAndPostOperationsMatchProducts, ()) {
  const Matrix3 m = *GenAffine();
  Point3 p = *GenPoint3(10.0f);
  Point3 s = *GenPoint3(3.0f);
  Quat q = *GenRotation();
  float a = *GenAngle();
  Matrix3 rq;
  q.MakeMatrix(rq);
  auto check = [&](const char* name, auto op, const Matrix3& expected) {
    Matrix3 got = m;
    op(got);
    RC_LOG() << name << "\n";
    RC_ASSERT_MATRIX3_NEAR(got, expected, 1e-4f);
    RC_ASSERT(FlagsAreTruthful(got));
  };
  check(
      "Translate", [&](Matrix3& x) { x.Translate(p); }, m * TransMatrix(p));
  check(
      "PreTranslate", [&](Matrix3& x) { x.PreTranslate(p); }, TransMatrix(p) * m);
  check(
      "RotateX", [&](Matrix3& x) { x.RotateX(a); }, m * RotateXMatrix(a));
  check(
      "PreRotateY", [&](Matrix3& x) { x.PreRotateY(a); }, RotateYMatrix(a) * m);
  check(
      "PreRotateZ", [&](Matrix3& x) { x.PreRotateZ(a); }, RotateZMatrix(a) * m);
  check(
      "Rotate", [&](Matrix3& x) { x.Rotate(q); }, m * rq);
  check(
      "PreRotate", [&](Matrix3& x) { x.PreRotate(q); }, rq * m);
  check(
      "PreScale", [&](Matrix3& x) { x.PreScale(s); }, ScaleMatrix(s) * m);
  check(
      "Scale with trans", [&](Matrix3& x) { x.Scale(s, true); }, m * ScaleMatrix(s));
  Matrix3 scaled = m * ScaleMatrix(s);
  scaled.SetTrans(m.GetTrans());  // the host's Scale leaves translation by default
  check(
      "Scale", [&](Matrix3& x) { x.Scale(s); }, scaled);
}

RC_GTEST_PROP(Matrix3Property, InverseUndoesTheMatrix, ()) {
  AffineGenOptions options;
  options.max_translation = 10.0f;
  Matrix3 m = *GenAffine(options);
  RC_ASSERT_MATRIX3_NEAR(m * Inverse(m), Matrix3(), 2e-5f);
  RC_ASSERT_MATRIX3_NEAR(Inverse(m) * m, Matrix3(), 2e-5f);
  Matrix3 inv = m;
  RC_ASSERT(inv.Invert());
  RC_ASSERT(inv == Inverse(m));
}

TEST(Matrix3Test, NonInvertibleGivesTheInverseTranslationOnly) {
  const Matrix3 singular[] = {
      Matrix3(Point3(1, 0, 0), Point3(0, 1, 0), Point3(0, 0, 0), Point3(1, 2, 3)),
      Matrix3(Point3(1, 2, 3), Point3(2, 4, 6), Point3(0, 0, 1), Point3(1, 2, 3)),
      // Well shaped, but the inverse of the denormal row overflows float.
      Matrix3(Point3(1e-39f, 0, 0), Point3(0, 1, 0), Point3(0, 0, 1), Point3(1, 2, 3)),
  };
  for (const Matrix3& m : singular) {
    SCOPED_TRACE(testing::PrintToString(m));
    Matrix3 inv = m;
    EXPECT_FALSE(inv.Invert());
    EXPECT_MATRIX3_NEAR(inv, TransMatrix(Point3(-1, -2, -3)), 0.0f);
    EXPECT_POINT3_NEAR(m.GetTrans() * inv, Point3(), 0.0f) << "the origin still maps back";
  }
}

RC_GTEST_PROP(Matrix3Property, OrthogonalizeKeepsThePolarRotationAndHandedness, ()) {
  // m = stretch * mirror * rotation: the nearest orthonormal matrix is mirror * rotation.
  Matrix3 axes = *GenRotationMatrix();
  Point3 k(*GenFloat(0.25f, 4), *GenFloat(0.25f, 4), *GenFloat(0.25f, 4));
  Matrix3 rot = *GenRotationMatrix();
  bool mirror = *rc::gen::arbitrary<bool>();
  Matrix3 flip = ScaleMatrix(mirror ? Point3(-1, 1, 1) : Point3(1, 1, 1));
  Matrix3 m = Inverse(axes) * ScaleMatrix(k) * axes * flip * rot;
  m.SetTrans(Point3(5, 6, 7));
  Matrix3 o = m;
  o.Orthogonalize();
  Matrix3 expected = flip * rot;
  expected.SetTrans(Point3(5, 6, 7));
  RC_ASSERT_MATRIX3_NEAR(o, expected, 2e-5f);
  RC_ASSERT(o.Parity() == mirror);
  RC_ASSERT(FlagsAreTruthful(o));
}

TEST(Matrix3Test, OrthogonalizeOfSingularRowsBuildsARightHandedFrame) {
  Matrix3 flat(Point3(2, 0, 0), Point3(0, 3, 0), Point3(), Point3());
  flat.Orthogonalize();
  EXPECT_MATRIX3_NEAR(flat, Matrix3(), 1e-6f) << "the missing row is row 0 x row 1";
  Matrix3 one_row(Point3(), Point3(0, 0, 5), Point3(), Point3());
  one_row.Orthogonalize();
  EXPECT_MATRIX3_NEAR(one_row, Matrix3(Point3(0, 1, 0), Point3(0, 0, 1), Point3(1, 0, 0), Point3()),
                      1e-6f)
      << "row 2 from the world axis least aligned with row 1, row 0 completes the frame";
  Matrix3 zero(false);
  zero.Orthogonalize();
  EXPECT_TRUE(zero.IsIdentity());
}

RC_GTEST_PROP(Matrix3Property, FlagsStayTruthfulThroughAnyOperations, ()) {
  using Op = void (*)(Matrix3&, const Point3&);
  static constexpr Op kOps[] = {
      [](Matrix3& x, const Point3& p) { x.Translate(p); },
      [](Matrix3& x, const Point3& p) { x.PreTranslate(p); },
      [](Matrix3& x, const Point3&) { x.RotateZ(0.5f); },
      [](Matrix3& x, const Point3&) { x.PreRotate(*GenRotation()); },
      [](Matrix3& x, const Point3& p) { x.Scale(p, true); },
      [](Matrix3& x, const Point3& p) { x.PreScale(p); },
      [](Matrix3& x, const Point3&) { x.NoTrans(); },
      [](Matrix3& x, const Point3&) { x.NoRot(); },
      [](Matrix3& x, const Point3&) { x.NoScale(); },
      [](Matrix3& x, const Point3&) { x.Orthogonalize(); },
      [](Matrix3& x, const Point3&) { x.Invert(); },
      [](Matrix3& x, const Point3& p) { x.SetTrans(p); },
      [](Matrix3& x, const Point3&) { x = x * *GenAffine(); },
  };
  Matrix3 m;
  int steps = *rc::gen::inRange(1, 12);
  for (int i = 0; i < steps; ++i) {
    int op = *rc::gen::inRange(0, int(std::size(kOps)));
    kOps[op](m, *rc::gen::element(Point3(), Point3(1, 1, 1), Point3(2, -1, 0.5f), Point3(0, 1, 0)));
    RC_LOG() << "op " << op << "\n";
    RC_ASSERT(FlagsAreTruthful(m));
  }
}

TEST(Matrix3Test, IdentityParityAndRowRemoval) {
  Matrix3 m(Point3(1, 0, 0), Point3(0, 1, 0), Point3(0, 0, 1), Point3());
  m[0].x = 1.0f;  // a write through operator[] clears the promises, not the truth
  EXPECT_EQ(m.GetIdentFlags(), 0u);
  EXPECT_TRUE(m.IsIdentity());
  EXPECT_FALSE(TransMatrix(Point3(0, 0, 9e-7f)).IsIdentity());
  EXPECT_TRUE(TransMatrix(Point3(0, 0, 9e-7f)).Equals(Matrix3(), kMatrixEqualsEpsilon));
  EXPECT_TRUE(ScaleMatrix(Point3(-1, 1, 1)).Parity());
  EXPECT_FALSE((ScaleMatrix(Point3(-1, 1, 1)) * ScaleMatrix(Point3(1, -1, 1))).Parity());
  Matrix3 srt = ScaleMatrix(Point3(2, 3, 4)) * RotateZMatrix(0.7f) * TransMatrix(Point3(1, 2, 3));
  Matrix3 no_rot = srt, no_scale = srt;
  no_rot.NoRot();
  no_scale.NoScale();
  EXPECT_MATRIX3_NEAR(no_rot, ScaleMatrix(Point3(2, 3, 4)) * TransMatrix(Point3(1, 2, 3)), 1e-6f);
  EXPECT_MATRIX3_NEAR(no_scale, RotateZMatrix(0.7f) * TransMatrix(Point3(1, 2, 3)), 1e-6f);
}

TEST(Matrix3Test, FileFormIsFiftyTwoBytesAtDocumentedOffsets) {
  // Built by hand: twelve little-endian floats row by row, then the flags word at offset 48.
  std::array<std::byte, kMatrix3FileBytes> bytes{};
  const float values[12] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 10, 20, 30};
  std::memcpy(bytes.data(), values, sizeof(values));
  const std::uint32_t flags = SCL_IDENT;
  std::memcpy(bytes.data() + 48, &flags, 4);
  Matrix3 m;
  m.ReadBytes(bytes);
  EXPECT_MATRIX3_NEAR(m, RotateZMatrix(kPi / 2) * TransMatrix(Point3(10, 20, 30)), 1e-6f);
  EXPECT_EQ(m.GetIdentFlags(), SCL_IDENT);
  std::array<std::byte, kMatrix3FileBytes> again{};
  m.WriteBytes(again);
  EXPECT_EQ(std::memcmp(bytes.data(), again.data(), kMatrix3FileBytes), 0) << "load -> save";

  // A flags word that claims identity parts the rows lack is not believed.
  const std::uint32_t lying = MAT_IDENT;
  std::memcpy(bytes.data() + 48, &lying, 4);
  m.ReadBytes(bytes);
  EXPECT_EQ(m.GetIdentFlags(), SCL_IDENT);
  EXPECT_FALSE(m.IsIdentity());
}
