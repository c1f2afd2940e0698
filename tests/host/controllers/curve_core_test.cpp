// Copyright Marvolith contributors.
#include "host/controllers/curve_core.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "host/controllers/keys.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

namespace keycurve {
namespace {

TEST(CurveCoreTest, AutomaticSlopesFollowTheirTypes) {
  SlopeInput in{true, true, 0, 0, 100, 10, 200, 100};  // chords 0.1 and 0.9
  EXPECT_DOUBLE_EQ(AutoSlope(BEZKEY_SMOOTH, true, in), 0.5);
  EXPECT_DOUBLE_EQ(AutoSlope(BEZKEY_LINEAR, false, in), 0.1);
  EXPECT_DOUBLE_EQ(AutoSlope(BEZKEY_LINEAR, true, in), 0.9);
  EXPECT_DOUBLE_EQ(AutoSlope(BEZKEY_FAST, true, in), 1.8);
  EXPECT_DOUBLE_EQ(AutoSlope(BEZKEY_SLOW, true, in), 0.0);
  EXPECT_DOUBLE_EQ(AutoSlope(BEZKEY_FLAT, true, in), 0.3) << "limited to 3 x the smaller chord";
  SlopeInput extreme{true, true, 0, 0, 100, 10, 200, 0};
  EXPECT_DOUBLE_EQ(AutoSlope(BEZKEY_FLAT, true, extreme), 0.0);
  SlopeInput end{false, true, 0, 0, 100, 10, 200, 30};
  EXPECT_DOUBLE_EQ(AutoSlope(BEZKEY_SMOOTH, false, end), 0.2) << "an end key takes its chord";
  EXPECT_DOUBLE_EQ(AutoSlope(BEZKEY_FLAT, true, end), 0.0) << "auto is flat at the ends";
}

TEST(CurveCoreTest, BezierSegmentMatchesHandComputedPoints) {
  // Lengths of 1/3: time is linear in u; at u = 0.5 the control values 0, 6.667, 10, 10 give 7.5.
  EXPECT_NEAR(BezierSegmentValue(50, 0, 0, 0.2, 1 / 3.0, 1 / 3.0, 100, 10, 0, 1 / 3.0, 1 / 3.0),
              7.5, 1e-9);
  // Lengths of 1/2 with flat tangents: x(u) = 1.5u(1 - u) + u^3, so u = 0.25 is reached at
  // 0.296875 of the segment, where y = 1.5625.
  EXPECT_NEAR(BezierSegmentValue(950, 0, 0, 0, 0.5, 0.5, 3200, 10, 0, 0.5, 0.5), 1.5625, 1e-9);
  EXPECT_DOUBLE_EQ(BezierSegmentValue(-5, 0, 3, 1, 0.3, 0.3, 10, 8, 1, 0.3, 0.3), 3.0);
  EXPECT_DOUBLE_EQ(BezierSegmentValue(5, 10, 3, 1, 0.3, 0.3, 10, 8, 1, 0.3, 0.3), 8.0)
      << "an empty segment gives its end value";
}

TEST(CurveCoreTest, EaseIsQuadraticThenLinear) {
  EXPECT_DOUBLE_EQ(Ease(0.3, 0, 0), 0.3);
  EXPECT_DOUBLE_EQ(Ease(0.5, 1, 0), 0.25);
  EXPECT_DOUBLE_EQ(Ease(0.5, 0.5, 0.5), 0.5);
  EXPECT_DOUBLE_EQ(EaseSlope(0.0, 0.5, 0.0), 0.0);
  EXPECT_DOUBLE_EQ(EaseSlope(1.0, 0.0, 0.0), 1.0);
}

TEST(CurveCoreTest, TCBTangentsScaleWithUnevenSpacing) {
  double in = 0, out = 0;
  TCBTangents({}, true, true, 100, 100, 10, -10, in, out);
  EXPECT_DOUBLE_EQ(in, 0.0);
  EXPECT_DOUBLE_EQ(out, 0.0);
  // A straight line of uneven spacing stays straight: slope 0.1 per tick on both sides.
  TCBTangents({}, true, true, 100, 300, 10, 30, in, out);
  EXPECT_DOUBLE_EQ(in / 100, 0.1);
  EXPECT_DOUBLE_EQ(out / 300, 0.1);
  TCBTangents({1.0, 0, 0}, true, true, 100, 100, 10, 20, in, out);
  EXPECT_DOUBLE_EQ(out, 0.0) << "full tension";
}

RC_GTEST_PROP(CurveCoreProps, QuatLogExpRoundTrip, ()) {
  const Quat q = *marvolith::test::GenRotation();
  RC_ASSERT_QUAT_NEAR(QuatExp(QuatLog(q)), q, 2e-6f);
  RC_ASSERT_QUAT_NEAR(QuatPow(q, 2.0), q * q, 2e-5f);
}

RC_GTEST_PROP(CurveCoreProps, SquadPassesThroughItsEnds, ()) {
  const Quat q0 = *marvolith::test::GenRotation();
  const Quat q1 = *marvolith::test::GenRotation();
  const Quat a = *marvolith::test::GenRotation();
  const Quat b = *marvolith::test::GenRotation();
  RC_ASSERT_QUAT_NEAR(Squad(q0, a, b, q1, 0.0f), q0, 1e-5f);
  RC_ASSERT_QUAT_NEAR(Squad(q0, a, b, q1, 1.0f), q1, 1e-5f);
}

}  // namespace
}  // namespace keycurve
