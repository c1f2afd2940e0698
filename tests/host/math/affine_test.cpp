// Copyright Marvolith contributors.
#include "host/math/affine.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <numbers>

#include "host/math/euler.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

using marvolith::test::GenAffine;
using marvolith::test::GenRotationMatrix;

using marvolith::test::MatrixOf;

namespace {
constexpr float kPi = std::numbers::pi_v<float>;
}  // namespace

RC_GTEST_PROP(AffineProperty, DecompositionRecomposes, ()) {
  Matrix3 m = *GenAffine();
  AffineParts parts;
  decomp_affine(m, &parts);
  RC_ASSERT_MATRIX3_NEAR(ComposeAffine(parts), m, 1e-5f);
  RC_ASSERT(parts.f == (m.Parity() ? -1.0f : 1.0f));
  RC_ASSERT(parts.k.x >= 0.0f && parts.k.y >= 0.0f && parts.k.z >= 0.0f);
  RC_ASSERT(std::fabs(parts.q.Length() - 1.0f) < 1e-6f && parts.q.w >= 0.0f);
  RC_ASSERT(std::fabs(parts.u.Length() - 1.0f) < 1e-6f);
  // The shared form: scale value (k * f along u), then rotation, then position.
  Point3 pos;
  Quat rot;
  ScaleValue scale;
  DecomposeMatrix(m, pos, rot, scale);
  RC_ASSERT_MATRIX3_NEAR(MatrixFromScaleValue(scale) * MatrixOf(rot) * TransMatrix(pos), m, 1e-5f);
  RC_ASSERT(scale.s == parts.k * parts.f);
}

RC_GTEST_PROP(AffineProperty, AxisAlignedScaleComesBackAsIs, ()) {
  // Factors either equal or well apart: nearly equal ones leave the stretch axes ill-defined.
  auto factor = rc::gen::element(0.25f, 0.5f, 1.0f, 2.0f, 3.5f);
  Point3 k(*factor, *factor, *factor);
  Matrix3 rot = *GenRotationMatrix();
  AffineParts parts;
  decomp_affine(ScaleMatrix(k) * rot * TransMatrix(Point3(1, 2, 3)), &parts);
  RC_ASSERT_QUAT_NEAR(parts.u, Quat(), 1e-5f);
  RC_ASSERT_POINT3_NEAR(parts.k, k, 1e-5f);
  RC_ASSERT_QUAT_NEAR(parts.q, Quat(rot), 1e-5f);
  RC_ASSERT(parts.t == Point3(1, 2, 3));
}

TEST(AffineTest, MirrorShowsAsNegativeFactors) {
  Matrix3 m = ScaleMatrix(Point3(-2, 1, 1)) * RotateZMatrix(0.4f);
  AffineParts parts;
  decomp_affine(m, &parts);
  EXPECT_EQ(parts.f, -1.0f);
  EXPECT_POINT3_NEAR(parts.k, Point3(2, 1, 1), 1e-6f);
  // -2,1,1 = (2,1,1) * -1 followed by a half turn about X, which joins the rotation.
  EXPECT_QUAT_NEAR(parts.q, Quat(RotateXMatrix(kPi) * RotateZMatrix(0.4f)), 1e-6f);
}

TEST(AffineTest, SingularMatricesStayDefined) {
  // A collapsed Z axis: rotation from the two good rows, factor 0 on the third.
  Matrix3 rot = RotateXMatrix(0.3f) * RotateYMatrix(-1.1f);
  Matrix3 flat = ScaleMatrix(Point3(2, 3, 0)) * rot;
  AffineParts parts;
  decomp_affine(flat, &parts);
  EXPECT_EQ(parts.f, 1.0f);
  EXPECT_POINT3_NEAR(parts.k, Point3(2, 3, 0), 1e-6f);
  EXPECT_QUAT_NEAR(parts.q, Quat(rot), 1e-6f);
  EXPECT_MATRIX3_NEAR(ComposeAffine(parts), flat, 1e-6f);
  decomp_affine(Matrix3(false), &parts);
  EXPECT_EQ(parts.k, Point3());
  EXPECT_TRUE(parts.q.IsIdentity());
  decomp_affine(flat, nullptr);  // a null result is ignored
}

TEST(AffineTest, ScaleValueHelpers) {
  EXPECT_POINT3_NEAR(GetScaleLengths(ScaleMatrix(Point3(-2, 3, 4)) * RotateZMatrix(1.0f)),
                     Point3(2, 3, 4), 1e-6f);
  {
    SCOPED_TRACE("factor 2 along the first axis of a frame turned 90 degrees about Z: along Y");
    Matrix3 s = MatrixFromScaleValue(ScaleValue(Point3(2, 1, 1), Quat(RotateZMatrix(kPi / 2))));
    EXPECT_POINT3_NEAR(Point3::YAxis * s, Point3(0, 2, 0), 1e-6f);
    EXPECT_POINT3_NEAR(Point3::XAxis * s, Point3::XAxis, 1e-6f);
  }
  Matrix3 target =
      ScaleMatrix(Point3(5, 5, 5)) * RotateYMatrix(0.6f) * TransMatrix(Point3(1, 2, 3));
  Matrix3 clean = RotateYMatrix(0.6f) * TransMatrix(Point3(1, 2, 3));
  {
    SCOPED_TRACE("unit factors only orthogonalise");
    Matrix3 m = target;
    ApplyScaleValue(m, ScaleValue(Point3(1, 1, 1), Quat(RotateZMatrix(0.3f))));
    EXPECT_MATRIX3_NEAR(m, clean, 1e-6f);
  }
  {
    SCOPED_TRACE("other factors replace the scale, applied first");
    Matrix3 m = target;
    ApplyScaleValue(m, ScaleValue(Point3(2, 3, 4)));
    EXPECT_MATRIX3_NEAR(m, ScaleMatrix(Point3(2, 3, 4)) * clean, 1e-5f);
  }
  {
    SCOPED_TRACE("ApplyScaling multiplies with the scale already there");
    Matrix3 m = target;
    ApplyScaling(m, ScaleValue(Point3(2, 3, 4)));
    EXPECT_MATRIX3_NEAR(m, ScaleMatrix(Point3(10, 15, 20)) * clean, 1e-5f);
  }
}

TEST(AffineTest, MathKernelsAllocateNothing) {
  Matrix3 m = ScaleMatrix(Point3(1, 2, 3)) * RotateXMatrix(0.2f) * ScaleMatrix(Point3(-1, 1, 1));
  marvolith::test::AllocationScope scope;
  AffineParts parts;
  decomp_affine(m, &parts);
  Matrix3 back = ComposeAffine(parts);
  ApplyScaleValue(back, ScaleValue(Point3(2, 2, 2)));
  float ang[3] = {0.1f, 0.2f, 0.3f};
  ContinuousQuatToEuler(Slerp(parts.q, Quat(back), 0.3f), ang, EULERTYPE_YZX);
  MatrixToEuler(back, ang, EULERTYPE_ZXZ);
  EXPECT_EQ(scope.Count(), 0u);
}
