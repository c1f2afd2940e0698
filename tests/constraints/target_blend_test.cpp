// Copyright Marvolith contributors.
// The multi-target blend over plain matrices: the stable decomposition of mirrored transforms,
// the order rule of the running slerp, and the relative-change helpers.
#include "constraints/target_blend.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cmath>

#include "host/math/affine.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

constexpr float kTol = 2e-4f;

Matrix3 Blend(std::initializer_list<std::pair<Matrix3, float>> inputs) {
  TargetBlend blend;
  for (const auto& [m, w] : inputs) blend.Add(StableDecompose(m), w);
  return blend.Result();
}

bool Finite(const Matrix3& m) {
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 3; ++c) {
      if (!std::isfinite(m.GetRow(r)[c])) return false;
    }
  }
  return true;
}

RC_GTEST_PROP(TargetBlendProperty, StableDecompositionRecomposesEveryAffineMatrix, ()) {
  const Matrix3 m = *GenAffine();
  const BlendParts parts = StableDecompose(m);
  RC_ASSERT_MATRIX3_NEAR(ComposeBlendParts(parts), m, 1e-3f * (1.0f + Length(m.GetTrans())));
  RC_ASSERT(std::fabs(parts.q.Length() - 1.0f) < 1e-5f);
}

RC_GTEST_PROP(TargetBlendProperty, RigidTransformsDecomposeAsTheFullDecompositionDoes, ()) {
  const Matrix3 m = *GenRotationMatrix() * TransMatrix(*GenPoint3(100.0f));
  const BlendParts parts = StableDecompose(m);
  AffineParts full;
  decomp_affine(m, &full);
  RC_ASSERT(parts.k == Point3(1, 1, 1));
  RC_ASSERT(parts.u.IsIdentity());
  RC_ASSERT(RotationAngleBetween(parts.q, full.q) < 1e-3);
  RC_ASSERT(parts.q.w >= 0.0f);
  RC_ASSERT_MATRIX3_NEAR(ComposeBlendParts(parts), m, 1e-4f);
}

RC_GTEST_PROP(TargetBlendProperty, BlendsOfRandomTargetsAreFiniteRotationsWithScale, ()) {
  const int n = *rc::gen::inRange(1, 6);
  TargetBlend blend;
  for (int i = 0; i < n; ++i) {
    blend.Add(StableDecompose(*GenAffine()), *GenFloat(0.0f, 100.0f));
  }
  RC_PRE(blend.HasBlend());
  const BlendParts parts = blend.Parts();
  RC_ASSERT(std::fabs(parts.q.Length() - 1.0f) < 1e-5f);
  RC_ASSERT(std::fabs(parts.u.Length() - 1.0f) < 1e-5f);
  RC_ASSERT(parts.q.w >= 0.0f);
  const Matrix3 m = blend.Result();
  RC_ASSERT(Finite(m));
  // Orthonormal with scale: taking the blended stretch off leaves a pure rotation.
  Matrix3 rot = Inverse(ComposeBlendParts({Point3(), Quat(), parts.k, parts.u})) * m;
  rot.NoTrans();
  if (parts.k.x * parts.k.y * parts.k.z != 0.0f) {
    RC_ASSERT_MATRIX3_NEAR(rot, MatrixOf(parts.q), 1e-3f);
  }
}

TEST(TargetBlendTest, MirroredTargetsCarryTheirSignOnOneAxisAndDoNotFlip) {
  const Matrix3 turn = RotateZMatrix(0.3f) * RotateXMatrix(0.2f);
  const Matrix3 mirrored = ScaleMatrix(Point3(-1, 1, 1)) * turn * TransMatrix(Point3(1, 2, 3));
  const BlendParts parts = StableDecompose(mirrored);
  EXPECT_POINT3_NEAR(parts.k, Point3(-1, 1, 1), 1e-5f) << "the first axis takes the sign";
  EXPECT_MATRIX3_NEAR(MatrixOf(parts.q), turn, 1e-5f) << "the rotation is the one put in";
  // A mirror along Y: the rotation left by the Y sign is nearest the identity.
  const BlendParts y = StableDecompose(ScaleMatrix(Point3(1, -2, 1)) * turn);
  EXPECT_POINT3_NEAR(y.k, Point3(1, -2, 1), 1e-5f);

  // Two mirrored targets that differ by a turn about Z blend half way, still mirrored in X,
  // with Y and Z kept where the inputs have them.
  const Matrix3 a = ScaleMatrix(Point3(-1, 1, 1)) * RotateZMatrix(0.2f);
  const Matrix3 b = ScaleMatrix(Point3(-1, 1, 1)) * RotateZMatrix(0.6f);
  EXPECT_MATRIX3_NEAR(Blend({{a, 50}, {b, 50}}),
                      ScaleMatrix(Point3(-1, 1, 1)) * RotateZMatrix(0.4f), kTol);
}

TEST(TargetBlendTest, TwoWeightsAverageInAnyOrderThreeDependOnTheOrder) {
  const Matrix3 a = RotateXMatrix(1.2f) * TransMatrix(Point3(2, 0, 0));
  const Matrix3 b = RotateYMatrix(-0.9f) * TransMatrix(Point3(0, 4, 0));
  const Matrix3 c = RotateZMatrix(2.0f) * TransMatrix(Point3(0, 0, 6));
  EXPECT_MATRIX3_NEAR(Blend({{a, 50}, {b, 50}}), Blend({{b, 50}, {a, 50}}), 1e-5f);
  const Matrix3 ab = Blend({{a, 50}, {b, 50}});
  EXPECT_POINT3_NEAR(ab.GetTrans(), Point3(1, 2, 0), 1e-5f);
  EXPECT_QUAT_NEAR(Quat(ab), Slerp(Quat(a), Quat(b), 0.5f), 1e-5f) << "slerp half way";

  const Matrix3 abc = Blend({{a, 50}, {b, 50}, {c, 50}});
  const Matrix3 cba = Blend({{c, 50}, {b, 50}, {a, 50}});
  EXPECT_POINT3_NEAR(abc.GetTrans(), cba.GetTrans(), 1e-5f) << "positions are a plain average";
  EXPECT_GT(RotationAngleBetween(Quat(abc), Quat(cba)), 1e-3) << "the running slerp is ordered";
}

TEST(TargetBlendTest, ZeroWeightsGiveNoBlendAndKeepThePreviousFraction) {
  TargetBlend none;
  none.Add(StableDecompose(RotateXMatrix(1.0f)), 0.0f);
  none.Add(StableDecompose(RotateYMatrix(1.0f)), 0.0f);
  EXPECT_FALSE(none.HasBlend());

  // A zero weight after a real one changes nothing; before one, it is replaced.
  const Matrix3 a = RotateXMatrix(0.5f) * TransMatrix(Point3(1, 1, 1));
  const Matrix3 b = RotateYMatrix(0.5f);
  EXPECT_MATRIX3_NEAR(Blend({{a, 30}, {b, 0}}), a, 1e-5f);
  EXPECT_MATRIX3_NEAR(Blend({{b, 0}, {a, 30}}), a, 1e-5f);
}

TEST(TargetBlendTest, RelativeChangesApplyToTheBase) {
  const Matrix3 base = RotateZMatrix(0.3f) * TransMatrix(Point3(5, 0, 0));
  const Matrix3 from = RotateXMatrix(0.2f) * TransMatrix(Point3(1, 1, 1));
  EXPECT_MATRIX3_NEAR(ApplyBlendChange(base, from, from), base, 1e-5f) << "no change";
  const Matrix3 to = ScaleMatrix(Point3(2, 1, 1)) * from * TransMatrix(Point3(0, 3, 0));
  const Matrix3 moved = ApplyBlendChange(base, from, to);
  EXPECT_POINT3_NEAR(moved.GetTrans(), base.GetTrans() + Point3(0, 3, 0), 1e-4f);
  EXPECT_POINT3_NEAR(GetScaleLengths(moved), Point3(2, 1, 1), 1e-4f);

  const ScaleValue base_s(Point3(2, 2, 2));
  EXPECT_POINT3_NEAR(
      RelativeScale(ScaleValue(Point3(3, 1, 4)), ScaleValue(Point3(3, 1, 2)), base_s).s,
      Point3(2, 2, 4), 1e-6f);
  EXPECT_POINT3_NEAR(
      RelativeScale(ScaleValue(Point3(3, 1, 4)), ScaleValue(Point3(0, 1, 1)), base_s).s,
      Point3(6, 2, 8), 1e-6f)
      << "a zero reference factor divides by nothing";
}

}  // namespace
}  // namespace marvolith::test
