// Copyright Marvolith contributors.
#include "host/math/geometry.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <numbers>

#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

using marvolith::test::GenPoint3;
using marvolith::test::MatrixOf;

namespace {

constexpr float kPi = std::numbers::pi_v<float>;

// Directions long enough that no length guard applies.
rc::Gen<Point3> GenDirection() {
  return rc::gen::apply([](const Point3& u, float len) { return u * len; },
                        marvolith::test::GenUnitVector(), marvolith::test::GenFloat(0.2f, 50.0f));
}

}  // namespace

TEST(GeometryTest, SafeDivAndXRotation) {
  EXPECT_FLOAT_EQ(SafeDiv(3.0f, -2.0f, 0.001f), -1.5f);
  EXPECT_FLOAT_EQ(SafeDiv(1.0f, 0.0f, 0.001f), 1000.0f);
  EXPECT_FLOAT_EQ(SafeDiv(1.0f, -1e-6f, 0.001f), 1000.0f)
      << "a tiny negative divisor turns positive";
  EXPECT_QUAT_NEAR(XRotation(0.5f), Quat(std::sin(-0.25f), 0, 0, std::cos(-0.25f)), 0.0f);
  EXPECT_MATRIX3_NEAR(MatrixOf(XRotation(-2.0f)), RotateXMatrix(-2.0f), 1e-6f);
}

RC_GTEST_PROP(GeometryProperty, AimAndRotationBetweenTakeOneDirectionOntoTheOther, ()) {
  Point3 a = *GenDirection();
  Point3 b = *GenDirection();
  Quat aim = AimX(b);
  RC_ASSERT_POINT3_NEAR(Point3::XAxis * MatrixOf(aim), Normalize(b), 2e-6f);
  RC_ASSERT(std::fabs(aim.x) < 1e-6f);  // shortest: the axis is normal to X
  RC_ASSERT_POINT3_NEAR(Normalize(a) * MatrixOf(RotationBetween(a, b)), Normalize(b), 5e-6f);
  RC_ASSERT(std::fabs(std::cos(AngleBetween(a, b)) - Normalize(a) % Normalize(b)) < 1e-5f);
}

TEST(GeometryTest, AimDegenerateDirections) {
  EXPECT_TRUE(AimX(Point3(0.005f, 0.005f, 0)).IsIdentity()) << "shorter than 0.01";
  EXPECT_MATRIX3_NEAR(MatrixOf(AimX(Point3(-2, 0, 0))), RotateZMatrix(kPi), 1e-6f)
      << "-X: the half turn about Z";
  const float h = std::sqrt(0.5f);
  EXPECT_QUAT_NEAR(AimX(Point3(0, 3, 0)), Quat(0, 0, -h, h), 1e-6f) << "the host's components";
  EXPECT_TRUE(RotationBetween(Point3(0.05f, 0, 0), Point3(0, 0.1f, 0)).IsIdentity())
      << "lengths multiply to below 0.01";
  EXPECT_EQ(AngleBetween(Point3(0.05f, 0, 0), Point3(0, 0.1f, 0)), 0.0f);
  EXPECT_TRUE(RotationBetween(Point3(1, 2, 3), Point3(2, 4, 6)).IsIdentity());
  for (Point3 a : {Point3(1, 2, 3), Point3::ZAxis, Point3(-4, 0, 0)}) {
    SCOPED_TRACE(testing::PrintToString(a));
    EXPECT_POINT3_NEAR(Normalize(a) * MatrixOf(RotationBetween(a, -a)), -Normalize(a), 1e-6f);
    EXPECT_NEAR(AngleBetween(a, -a), kPi, 1e-6f);
  }
}

// The axis tables: each of the six is the rotation that takes its axis onto +X (or -X), the
// matrix form has exact entries and agrees with the quaternion, and none mirrors.
TEST(GeometryTest, AxisTablesBringTheChosenAxisOntoX) {
  const Point3 axes[3] = {Point3::XAxis, Point3::YAxis, Point3::ZAxis};
  for (int axis = 0; axis < 3; ++axis) {
    for (bool flip : {false, true}) {
      SCOPED_TRACE(testing::Message() << "axis " << axis << (flip ? " flipped" : ""));
      const Point3 onto = flip ? -Point3::XAxis : Point3::XAxis;
      const Matrix3 m = AxisMatrix(axis, flip);
      EXPECT_EQ(m.GetRow(axis), onto) << "exact entries";
      EXPECT_POINT3_NEAR(axes[axis] * MatrixOf(AxisQuat(axis, flip)), onto, 1e-6f);
      EXPECT_MATRIX3_NEAR(m, MatrixOf(AxisQuat(axis, flip)), 1e-6f);
      EXPECT_FALSE(m.Parity()) << "a flip turns, it does not mirror";
      EXPECT_NEAR(AxisQuat(axis, flip).Length(), 1.0f, 1e-6f);
    }
  }
  EXPECT_EQ(AxisMatrix(7, false), AxisMatrix(2, false)) << "out-of-range axes read as Z";
  EXPECT_EQ(AxisQuat(-1, true), AxisQuat(2, true));
}

RC_GTEST_PROP(GeometryProperty, LookFrameIsARightHandedFrameTowardsItsPoints, ()) {
  Point3 o = *GenPoint3(50.0f);
  Point3 a = o + *GenDirection();
  Point3 b = o + *GenDirection();
  RC_PRE(std::fabs(Normalize(a - o) % Normalize(b - o)) < 0.999f);
  Matrix3 f = LookFrame(o, a, b);
  RC_ASSERT(f.GetTrans() == o);
  RC_ASSERT_POINT3_NEAR(f.GetRow(0), Normalize(a - o), 1e-5f);
  RC_ASSERT(std::fabs(f.GetRow(2) % (b - o)) < 1e-3f * (b - o).Length());  // b in the XY plane
  RC_ASSERT(f.GetRow(1) % (b - o) > 0.0f);                                 // on the +Y side
  Matrix3 rows = f;
  rows.NoTrans();
  RC_ASSERT_MATRIX3_NEAR(rows * Inverse(rows), Matrix3(), 1e-5f);
  RC_ASSERT(std::fabs(f.Determinant() - 1.0f) < 1e-5f);
  RC_ASSERT_MATRIX3_NEAR(AimFrame(a - o, b - o), rows, 0.0f);
}

TEST(GeometryTest, LookFrameDegenerateInput) {
  Point3 o(1, 2, 3);
  EXPECT_MATRIX3_NEAR(LookFrame(o, o, o + Point3(0, 5, 0)), TransMatrix(o), 1e-6f)
      << "aim point at the origin: X is +X";
  EXPECT_MATRIX3_NEAR(LookFrame(o, o + Point3(3, 0, 0), o + Point3(7, 0, 0)), TransMatrix(o), 1e-6f)
      << "up point on the aim line: Z from the least aligned world axis";
  Matrix3 g = AimFrame(Point3(0, 0, 2), Point3());
  EXPECT_POINT3_NEAR(g.GetRow(0), Point3::ZAxis, 0.0f);
  EXPECT_NEAR(g.Determinant(), 1.0f, 1e-6f);
}

TEST(GeometryTest, ClipSegmentToRectCases) {
  const Point2 lo(0, 0), hi(10, 5);
  {
    SCOPED_TRACE("crossing the whole rectangle: both ends land on sides, depth follows");
    Point3 a(-10, 2, 0), b(20, 2, 30);
    ASSERT_TRUE(ClipSegmentToRect(a, b, lo, hi));
    EXPECT_EQ(a, Point3(0, 2, 10));
    EXPECT_EQ(b, Point3(10, 2, 20));
  }
  {
    SCOPED_TRACE("diagonal: in at the corner, out through the top");
    Point3 a(-2, -4, 0), b(6, 12, 0);  // meets x = 0 at y = 0 and y = 5 at x = 2.5
    ASSERT_TRUE(ClipSegmentToRect(a, b, lo, hi));
    EXPECT_NEAR(a.x, 0.0f, 1e-6f);
    EXPECT_NEAR(a.y, 0.0f, 1e-6f);
    EXPECT_NEAR(b.x, 2.5f, 1e-6f);
    EXPECT_NEAR(b.y, 5.0f, 1e-6f);
  }
  {
    SCOPED_TRACE("inside: untouched");
    Point3 a(1.1f, 0.3f, 7), b(9.7f, 4.9f, -2);
    const Point3 a0 = a, b0 = b;
    ASSERT_TRUE(ClipSegmentToRect(a, b, lo, hi));
    EXPECT_EQ(a, a0);
    EXPECT_EQ(b, b0);
  }
  {
    SCOPED_TRACE("misses: false and untouched, also when its line would cross");
    Point3 a(-5, 8, 1), b(1, 12, 1);  // beyond the top, heading away
    ASSERT_FALSE(ClipSegmentToRect(a, b, lo, hi));
    EXPECT_EQ(a, Point3(-5, 8, 1));
    Point3 c(-5, 0, 0), d(-1, 20, 0);  // its line enters, the segment stops short
    EXPECT_FALSE(ClipSegmentToRect(c, d, lo, hi));
    Point3 e(-1, 1, 0), f(-1, 4, 0);  // parallel to the left side, outside it
    EXPECT_FALSE(ClipSegmentToRect(e, f, lo, hi));
  }
  {
    SCOPED_TRACE("edges count as inside; points and empty rectangles");
    Point3 a(10, -3, 0), b(10, 8, 0);  // along the right side
    ASSERT_TRUE(ClipSegmentToRect(a, b, lo, hi));
    EXPECT_EQ(a, Point3(10, 0, 0));
    EXPECT_EQ(b, Point3(10, 5, 0));
    Point3 p(3, 3, 0), q(3, 3, 0);
    EXPECT_TRUE(ClipSegmentToRect(p, q, lo, hi));
    Point3 r(11, 3, 0), s(11, 3, 0);
    EXPECT_FALSE(ClipSegmentToRect(r, s, lo, hi));
    Point3 u(-20, 3, 0), v(20, 3, 0);
    EXPECT_FALSE(ClipSegmentToRect(u, v, hi, lo)) << "lo above hi";
  }
}

// What survives the clip lies in the rectangle and on the original segment, in the same order.
RC_GTEST_PROP(GeometryProperty, ClippedSegmentStaysOnItsLineInsideTheRect, ()) {
  const Point3 a0 = *marvolith::test::GenPoint3(100.0f);
  const Point3 b0 = *marvolith::test::GenPoint3(100.0f);
  const Point2 lo(-20, -10), hi(30, 40);
  Point3 a = a0, b = b0;
  if (!ClipSegmentToRect(a, b, lo, hi)) return;
  const Point3 d = b0 - a0;
  for (const Point3& c : {a, b}) {
    RC_ASSERT(c.x >= lo.x - 1e-3f && c.x <= hi.x + 1e-3f);
    RC_ASSERT(c.y >= lo.y - 1e-3f && c.y <= hi.y + 1e-3f);
    RC_ASSERT(Length(CrossProd(c - a0, d)) <= 1e-3f * (1.0f + Length(d) * Length(d)));
  }
  RC_ASSERT(DotProd(b - a, d) >= -1e-3f);
}

// The trig-free forms must give the same quaternion as the trig ones, sign included: solvers
// compose them with other rotations, so -q is not an acceptable stand-in here.
RC_GTEST_PROP(GeometryProperty, HalfAngleOfMatchesHalfOfAtan2, ()) {
  const float a = *marvolith::test::GenFloat(-kPi, kPi);
  const float r = *marvolith::test::GenFloat(1e-3f, 100.0f);
  const float c = r * std::cos(a), s = r * std::sin(a);
  const double half = 0.5 * std::atan2(double(s), double(c));
  const HalfAngle h = HalfAngleOf(c, s);
  RC_ASSERT(std::fabs(h.cos - std::cos(half)) < 1e-6);
  RC_ASSERT(std::fabs(h.sin - std::sin(half)) < 1e-6);
}

TEST(GeometryTest, HalfAngleOfEdges) {
  const HalfAngle zero = HalfAngleOf(0.0f, 0.0f);
  EXPECT_EQ(zero.cos, 1.0f);
  EXPECT_EQ(zero.sin, 0.0f);
  const HalfAngle ahead = HalfAngleOf(3.0f, 0.0f);
  EXPECT_EQ(ahead.cos, 1.0f);
  EXPECT_EQ(ahead.sin, 0.0f);
  // Straight back: +pi for +0, -pi for -0, as atan2 reads the sign of zero.
  const HalfAngle back = HalfAngleOf(-2.0f, 0.0f);
  EXPECT_EQ(back.cos, 0.0f);
  EXPECT_EQ(back.sin, 1.0f);
  EXPECT_EQ(HalfAngleOf(-2.0f, -0.0f).sin, -1.0f);
  const HalfAngle up = HalfAngleOf(0.0f, 5.0f);
  EXPECT_NEAR(up.cos, std::sqrt(0.5f), 1e-7f);
  EXPECT_NEAR(up.sin, std::sqrt(0.5f), 1e-7f);
}

RC_GTEST_PROP(GeometryProperty, AimXFastMatchesAimX, ()) {
  // Any direction, and ones within a hair of the X line either way, where AimX's own angle
  // is most delicate.
  const Point3 v = *rc::gen::oneOf(
      GenDirection(), rc::gen::apply([](float x, float y, float z) { return Point3(x, y, z); },
                                     rc::gen::element(-3.0f, -0.5f, 0.5f, 3.0f),
                                     marvolith::test::GenFloat(-1e-4f, 1e-4f),
                                     marvolith::test::GenFloat(-1e-4f, 1e-4f)));
  const Quat slow = AimX(v), fast = AimXFast(v);
  RC_ASSERT(std::fabs(fast.x - slow.x) < 2e-6f);
  RC_ASSERT(std::fabs(fast.y - slow.y) < 2e-6f);
  RC_ASSERT(std::fabs(fast.z - slow.z) < 2e-6f);
  RC_ASSERT(std::fabs(fast.w - slow.w) < 2e-6f);
}

TEST(GeometryTest, AimXFastKeepsTheDegenerateCases) {
  for (const Point3& v : {Point3(0.005f, 0.005f, 0), Point3(2, 0, 0), Point3(-2, 0, 0),
                          Point3(-2, 1e-30f, 0), Point3(0, 0, 0)}) {
    const Quat slow = AimX(v), fast = AimXFast(v);
    EXPECT_EQ(fast.x, slow.x);
    EXPECT_EQ(fast.y, slow.y);
    EXPECT_EQ(fast.z, slow.z);
    EXPECT_EQ(fast.w, slow.w);
  }
}

RC_GTEST_PROP(GeometryProperty, InverseOfRigidMatchesInverse, ()) {
  const Matrix3 rigid = *marvolith::test::GenAffine(
      {.min_scale = 1.0f, .max_scale = 1.0f, .allow_mirror = true, .max_translation = 100.0f});
  RC_ASSERT_MATRIX3_NEAR(InverseOfRigid(rigid), Inverse(rigid), 1e-4f);
  RC_ASSERT_MATRIX3_NEAR(rigid * InverseOfRigid(rigid), Matrix3(), 1e-4f);
  // Anything stretched is no rotation: the transpose would be wrong, so the general inverse
  // must answer, bit for bit.
  const Matrix3 scaled = *marvolith::test::GenAffine({.min_scale = 0.5f, .max_scale = 2.0f});
  const float stretch = *marvolith::test::GenFloat(1.001f, 1.5f);
  for (const Matrix3& m : {scaled, ScaleMatrix(Point3(1, stretch, 1)) * rigid}) {
    RC_ASSERT_MATRIX3_NEAR(InverseOfRigid(m), Inverse(m), 0.0f);
  }
}

TEST(GeometryTest, InverseOfRigidKeepsTheSingularFallback) {
  Matrix3 flat = TransMatrix(Point3(1, 2, 3));
  flat.SetRow(2, Point3());
  EXPECT_MATRIX3_NEAR(InverseOfRigid(flat), Inverse(flat), 0.0f);
}
