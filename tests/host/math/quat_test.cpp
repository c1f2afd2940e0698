// Copyright Marvolith contributors.
#include "host/math/quat.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <numbers>

#include "host/math/matrix3.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

using marvolith::test::GenAngle;
using marvolith::test::GenRotation;
using marvolith::test::GenUnitVector;
using marvolith::test::MatrixOf;

namespace {
constexpr float kPi = std::numbers::pi_v<float>;
}  // namespace

TEST(Point3Test, OperatorsFollowTheHostMeaning) {
  Point3 a(1, 2, 3), b(4, 5, 6);
  EXPECT_EQ(a % b, 32.0f) << "% is the dot product";
  EXPECT_EQ(Point3::XAxis ^ Point3::YAxis, Point3::ZAxis) << "^ is the right-handed cross product";
  EXPECT_EQ(a * b, Point3(4, 10, 18)) << "* of two points is component-wise";
  EXPECT_EQ(Normalize(Point3()), Point3()) << "zero stays zero";
  EXPECT_POINT3_NEAR(Normalize(Point3(1e-20f, 0, 0)), Point3::XAxis, 0.0f)
      << "tiny keeps direction";
}

TEST(QuatTest, FollowsTheHostHandedness) {
  // The quaternion of a right-handed matrix turn by a about an axis has component -sin(a/2).
  EXPECT_QUAT_NEAR(Quat(RotateXMatrix(0.8f)), Quat(-std::sin(0.4f), 0, 0, std::cos(0.4f)), 1e-6f);
  EXPECT_QUAT_NEAR(Quat(RotateYMatrix(0.8f)), Quat(0, -std::sin(0.4f), 0, std::cos(0.4f)), 1e-6f);
  EXPECT_QUAT_NEAR(Quat(RotateZMatrix(0.8f)), Quat(0, 0, -std::sin(0.4f), std::cos(0.4f)), 1e-6f);
  // So a positive AngAxis turn is left-handed: a quarter turn about +Z takes +Y onto +X.
  EXPECT_POINT3_NEAR(Point3::YAxis * MatrixOf(Quat(AngAxis(Point3::ZAxis, kPi / 2))), Point3::XAxis,
                     1e-6f);
  EXPECT_MATRIX3_NEAR(RotAngleAxisMatrix(Point3::XAxis, 0.3f), RotateXMatrix(-0.3f), 1e-6f);
}

RC_GTEST_PROP(QuatProperty, ProductOrderMatchesMatrixProduct, ()) {
  Quat a = *GenRotation();
  Quat b = *GenRotation();
  RC_ASSERT_MATRIX3_NEAR(MatrixOf(a * b), MatrixOf(a) * MatrixOf(b), 2e-6f);
  RC_ASSERT_QUAT_NEAR(a * Inverse(a * 2.0f) * 2.0f, Quat(), 2e-6f);
}

RC_GTEST_PROP(QuatProperty, ConversionsRoundTrip, ()) {
  Quat q = *GenRotation();
  Quat back(MatrixOf(q));
  RC_ASSERT_QUAT_NEAR(back, q, 1e-6f);
  RC_ASSERT(back.w >= 0.0f);
  // Row scale is ignored; a mirror reads as the rotation with row 2 negated.
  RC_ASSERT_QUAT_NEAR(Quat(ScaleMatrix(Point3(3, 0.5f, 2)) * MatrixOf(q)), q, 2e-6f);
  RC_ASSERT_QUAT_NEAR(Quat(ScaleMatrix(Point3(1, 1, -1)) * MatrixOf(q)), q, 2e-6f);
  AngAxis aa(q);
  RC_ASSERT(aa.angle >= 0.0f && aa.angle <= kPi + 1e-6f);
  RC_ASSERT_QUAT_NEAR(Quat(aa), q, 2e-6f);
}

RC_GTEST_PROP(QuatProperty, AngAxisTurnsAboutItsAxis, ()) {
  Point3 axis = *GenUnitVector();
  float angle = *GenAngle();
  Matrix3 m = MatrixOf(QFromAngAxis(angle, axis));
  RC_ASSERT_POINT3_NEAR(axis * m, axis, 2e-6f);
  RC_ASSERT_MATRIX3_NEAR(m, RotAngleAxisMatrix(axis * 3.0f, angle), 2e-6f);
}

RC_GTEST_PROP(QuatProperty, SlerpHitsItsEndsAndHalvesTheArc, ()) {
  Quat p = *GenRotation();
  Quat q = *rc::gen::weightedOneOf<Quat>({{4, GenRotation()}, {1, rc::gen::just(-p)}});
  // The ends are the inputs as given, sign included: no hemisphere flip.
  RC_ASSERT(Slerp(p, q, 0.0f).Equals(p, 2e-6f));
  RC_ASSERT(Slerp(p, q, 1.0f).Equals(q, 2e-6f));
  Quat mid = Slerp(p, q, 0.5f);
  RC_ASSERT(std::fabs(mid.Length() - 1.0f) < 1e-6f);
  RC_ASSERT(std::fabs(QDot(p, mid) - QDot(mid, q)) < 2e-6f);
}

RC_GTEST_PROP(QuatProperty, MakeClosestFlipsToTheReferenceHemisphere, ()) {
  Quat q = *GenRotation();
  Quat ref = *GenRotation();
  Quat c = q;
  MakeClosest(c, ref);
  RC_ASSERT(QDot(c, ref) >= 0.0f);
  RC_ASSERT(c == q || c == -q);
}

TEST(QuatTest, DegenerateInputsGiveTheIdentity) {
  Quat zero(0, 0, 0, 0);
  EXPECT_EQ(Normalize(zero), Quat());
  EXPECT_EQ(Inverse(zero), Quat());
  EXPECT_TRUE(MatrixOf(zero).IsIdentity());
  EXPECT_EQ(Quat(AngAxis(Point3(), 1.0f)), Quat()) << "zero axis";
  EXPECT_EQ(Quat(Matrix3(false)), Quat()) << "zero matrix";
  AngAxis none(Quat(0, 0, 0, -1));
  EXPECT_EQ(none.angle, 0.0f);
  EXPECT_EQ(none.axis, Point3::XAxis);
  Matrix3 m = TransMatrix(Point3(1, 2, 3));
  Quat(RotateYMatrix(0.5f)).MakeMatrix(m, true);
  EXPECT_EQ(m.GetTrans(), Point3(1, 2, 3)) << "MakeMatrix keeps translation only when asked";
}
