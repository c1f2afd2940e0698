// Copyright Marvolith contributors.
#include "controllers/float_math.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

#include "controllers/twist_pose_math.h"
#include "host/math/euler.h"
#include "host/math/geometry.h"
#include "tests/support/math_generators.h"

namespace marvolith::test {
namespace {

ConnectionMapping Range(float in0, float in1, float out0, float out1, bool clamp) {
  ConnectionMapping m;
  m.transform = static_cast<int>(ConnectionTransform::Range);
  m.input_min = in0;
  m.input_max = in1;
  m.output_min = out0;
  m.output_max = out1;
  m.clamp = clamp;
  return m;
}

TEST(ConnectionMappingTest, RangeGuardsAndClampsEitherWay) {
  {
    SCOPED_TRACE("equal input limits divide by the guard, not by zero");
    const float y = ConnectionForward(Range(5, 5, 0, 10, false), 5.5f);
    EXPECT_TRUE(std::isfinite(y));
    EXPECT_NEAR(y, 0.5f / 0.001f * 10.0f, 1.0f);
  }
  {
    SCOPED_TRACE("reversed limits clamp to the lesser and the greater");
    const ConnectionMapping m = Range(10, 0, 0, 100, true);
    EXPECT_FLOAT_EQ(ConnectionForward(m, -5.0f), 100.0f);  // limited to 0, the far end
    EXPECT_FLOAT_EQ(ConnectionForward(m, 20.0f), 0.0f);
    EXPECT_FLOAT_EQ(ConnectionForward(m, 2.5f), 75.0f);
  }
  {
    SCOPED_TRACE("clamped inverse stays in the input range");
    EXPECT_FLOAT_EQ(ConnectionInverse(Range(0, 10, 0, 100, true), 150.0f), 10.0f);
    EXPECT_FLOAT_EQ(ConnectionInverse(Range(0, 10, 0, 100, false), 150.0f), 15.0f);
  }
  ConnectionMapping w;
  w.transform = static_cast<int>(ConnectionTransform::OffsetWeight);
  w.weight = 0.0f;
  w.offset = 1.0f;
  EXPECT_FLOAT_EQ(ConnectionInverse(w, 2.0f), 1000.0f) << "weight 0 writes back through 0.001";
  w.transform = 4;
  EXPECT_FLOAT_EQ(ConnectionForward(w, 7.0f), 7.0f) << "transform 4 behaves as None";
}

RC_GTEST_PROP(ConnectionMappingLaws, InverseUndoesForward, ()) {
  const auto mode =
      *rc::gen::element(ConnectionTransform::OffsetWeight, ConnectionTransform::Range);
  ConnectionMapping m;
  m.transform = static_cast<int>(mode);
  m.offset = *rc::gen::inRange(-100, 100);
  m.weight = *rc::gen::element(-2.0f, -0.5f, 0.25f, 3.0f);
  m.input_min = *rc::gen::inRange(-50, 0);
  m.input_max = m.input_min + *rc::gen::element(1.0f, 7.5f, 40.0f);
  m.output_min = *rc::gen::inRange(-50, 50);
  m.output_max = m.output_min + *rc::gen::element(-30.0f, 2.0f, 90.0f);
  const float x = *rc::gen::inRange(-200, 200) * 0.5f;
  const float back = ConnectionInverse(m, ConnectionForward(m, x));
  RC_ASSERT(std::fabs(back - x) <= 1e-3f * (1.0f + std::fabs(x)));
}

TEST(FloatOperationTest, TableOfOperations) {
  struct Case {
    FloatOp op;
    float a, b, expected;
  };
  const Case cases[] = {
      {FloatOp::Add, 2, 3, 5},
      {FloatOp::Subtract, 2, 3, -1},
      {FloatOp::Multiply, 2, 3, 6},
      {FloatOp::Divide, 3, 0, 30000},          // by exactly 0: a * 10000
      {FloatOp::Divide, 1, -0.00005f, 10000},  // a tiny negative divisor turns positive
      {FloatOp::Average, 2, 3, 2.5f},
      {FloatOp::Power, 2, 3, 8},
      {FloatOp::Min, 2, 3, 2},
      {FloatOp::Max, 2, 3, 3},
      {FloatOp::Mod, 5, 3, -1},       // IEEE remainder rounds 5/3 to 2
      {FloatOp::Power, -8, 0.5f, 0},  // not finite: 0
      {FloatOp::Mod, 5, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.op));
    EXPECT_FLOAT_EQ(FloatOperationValue(static_cast<int>(c.op), c.a, c.b, false), c.expected);
    EXPECT_FLOAT_EQ(FloatOperationValue(static_cast<int>(c.op), c.a, c.b, true), -c.expected);
  }
}

RC_GTEST_PROP(FloatOperationLaws, SolvingForAGivesTheValueBack, ()) {
  const int op = *rc::gen::inRange(0, 6);  // the invertible ones: Add .. Power
  const bool negative = *rc::gen::arbitrary<bool>();
  const float b = *rc::gen::element(-3.0f, 0.5f, 2.0f, 4.0f);
  const float v = *rc::gen::inRange(1, 400) * 0.25f;
  const float want = negative ? -v : v;
  float a = 0.0f;
  if (op == static_cast<int>(FloatOp::Power) && (b < 0 || negative)) return;
  RC_ASSERT(FloatOperationSolveA(op, want, b, negative, a));
  RC_ASSERT(std::fabs(FloatOperationValue(op, a, b, negative) - want) <= 1e-3f * (1 + v));
}

TEST(FloatWaveTest, EachShapeKeepsItsStartAndPeriod) {
  WaveInput in;
  in.amplitude = 2.0f;
  in.offset = 10.0f;
  const float start[] = {0.0f, -1.0f, -1.0f, -1.0f};  // Sine, Loop, ZigZag, Half Sine at phase 0
  for (int type = 0; type < 4; ++type) {
    SCOPED_TRACE(type);
    in.type = type;
    in.phase = 0.0f;
    EXPECT_NEAR(WaveValue(in), 10.0f + 2.0f * start[type], 1e-5f);
    in.phase = 300.0f;  // three whole periods later
    EXPECT_NEAR(WaveValue(in), 10.0f + 2.0f * start[type], 1e-4f);
  }
  in.type = static_cast<int>(WaveType::ZigZag);
  in.phase = 50.0f;
  EXPECT_NEAR(WaveValue(in), 12.0f, 1e-5f) << "zigzag peaks half way";
  in.phase = 75.0f;
  EXPECT_NEAR(WaveValue(in), 10.0f, 1e-5f);
  in.alignment = static_cast<int>(WaveAlignment::Bottom);
  EXPECT_NEAR(WaveValue(in), 12.0f, 1e-5f);
  in.type = static_cast<int>(WaveType::Loop);
  in.alignment = 0;
  in.wave_length = 0.0f;
  in.phase = 0.00005f;  // x = 0.5 through the 0.0001 guard
  EXPECT_NEAR(WaveValue(in), 10.0f, 1e-4f);
}

TEST(AngleReadersTest, TwistAboutAndEulerComponent) {
  for (int axis = 0; axis < 3; ++axis) {
    SCOPED_TRACE(axis);
    Point3 n;
    n[axis] = 1.0f;
    const Matrix3 turn = RotAngleAxisMatrix(n, -0.7f);  // right-handed 0.7 about the axis
    EXPECT_NEAR(TwistAbout(Quat(turn), axis), 0.7f, 1e-5f);
    // A swing about another axis adds no twist.
    Point3 m;
    m[(axis + 1) % 3] = 1.0f;
    EXPECT_NEAR(TwistAbout(Quat(turn) * QFromAngAxis(0.4f, m), axis), 0.7f, 1e-5f);
    EXPECT_NEAR(TwistAbout(QFromAngAxis(3.0f, m), axis), 0.0f, 1e-6f);
  }
  // The quaternion's 3.5 is a right-handed -3.5, which wraps past -pi.
  EXPECT_NEAR(TwistAbout(QFromAngAxis(3.5f, Point3(0, 0, 1)), 2), 6.2831855f - 3.5f, 1e-5f);
}

RC_GTEST_PROP(AngleReaderLaws, EulerComponentsRebuildTheRotation, ()) {
  const int order = *rc::gen::inRange(0, kEulerOrderCount);
  const Quat q = *GenRotation();
  float seq[3];
  // Channels as the host's Euler controller holds them, back in sequence order.
  const int a0 = EulerOrderAxis(order, 0), a1 = EulerOrderAxis(order, 1),
            a2 = EulerOrderAxis(order, 2);
  seq[0] = EulerComponent(q, order, a0);
  seq[1] = EulerComponent(q, order, a1);
  seq[2] = EulerComponent(q, order, a2 != a0 ? a2 : 3 - a0 - a1);
  Quat back;
  EulerToQuat(seq, back, order);
  RC_ASSERT(back.EqualsRotation(q, 1e-4f));
}

// ---- Twist poses core ----

Matrix3 Frame(const Quat& q) {
  Matrix3 m;
  q.MakeMatrix(m);
  return m;
}

TEST(TwistPoseCoreTest, WeightsAndFallbacks) {
  const Matrix3 rest;
  {
    SCOPED_TRACE("a single pose: its companion row is the zero of the twist");
    const float twists[] = {0.25f};
    const Matrix3 poses[] = {rest};
    const TwistPoseResult r =
        SolveTwistPoses(Frame(QFromAngAxis(0.5f, Point3(1, 0, 0))), 0, poses, twists);
    EXPECT_NEAR(r.twist, 0.5f, 1e-5f);  // in the quaternion's sense about +X
    EXPECT_NEAR(r.base_twist, 0.25f, 1e-6f);
  }
  {
    SCOPED_TRACE("pointing exactly at a pose beyond the reach of the other");
    const Matrix3 poses[] = {rest, Frame(QFromAngAxis(2.0f, Point3(0, 0, 1)))};
    const float twists[] = {0.1f, 0.9f};
    const TwistPoseResult r = SolveTwistPoses(poses[1], 0, poses, twists);
    EXPECT_NEAR(r.base_twist, 0.9f, 1e-5f);
    EXPECT_NEAR(r.twist, 0.0f, 1e-5f);
  }
  {
    SCOPED_TRACE("a quarter turn from every pose reads the nearest");
    const Matrix3 poses[] = {Frame(QFromAngAxis(2.5f, Point3(0, 0, 1))), rest};
    const float twists[] = {0.3f, -0.6f};
    const Matrix3 c = Frame(QFromAngAxis(-1.5707964f, Point3(0, 0, 1)));  // X onto +Y
    const TwistPoseResult r = SolveTwistPoses(c, 0, poses, twists);
    EXPECT_NEAR(r.base_twist, -0.6f, 1e-6f) << "the rest pose is nearer";
    EXPECT_TRUE(std::isfinite(r.twist));
  }
  {
    SCOPED_TRACE("no poses: the reference space's companion axis");
    const TwistPoseResult r =
        SolveTwistPoses(Frame(QFromAngAxis(-0.3f, Point3(0, 1, 0))), 1, {}, {});
    EXPECT_NEAR(r.twist, -0.3f, 1e-5f);
    EXPECT_EQ(r.base_twist, 0.0f);
  }
}

TEST(AngleReadersTest, AxesOutsideTheRangeReadAsZ) {
  // Unequal turns about all three axes, so reading the wrong axis shows.
  const Quat q = QFromAngAxis(0.3f, Point3(1, 0, 0)) * QFromAngAxis(-0.5f, Point3(0, 1, 0)) *
                 QFromAngAxis(0.9f, Point3(0, 0, 1));
  const Matrix3 poses[] = {Frame(QFromAngAxis(0.2f, Point3(0, 1, 0)))};
  const float twists[] = {0.4f};
  for (int axis : {-1, 3, 7}) {
    SCOPED_TRACE(axis);
    EXPECT_EQ(TwistAbout(q, axis), TwistAbout(q, 2));
    EXPECT_EQ(EulerComponent(q, EULERTYPE_YXZ, axis), EulerComponent(q, EULERTYPE_YXZ, 2));
    const TwistPoseResult r = SolveTwistPoses(Frame(q), axis, poses, twists);
    const TwistPoseResult z = SolveTwistPoses(Frame(q), 2, poses, twists);
    EXPECT_EQ(r.twist, z.twist);
    EXPECT_EQ(r.base_twist, z.base_twist);
  }
}

// The twist of a frame turned about its own axis grows with the turn, whatever the poses and
// the swing (no flip within the reach of the poses).
RC_GTEST_PROP(TwistPoseLaws, OwnTurnAddsToTheTwist, ()) {
  const int axis = *rc::gen::inRange(0, 3);
  Point3 n;
  n[axis] = 1.0f;
  const Matrix3 base = Frame(*GenRotation());
  const float turn = *rc::gen::inRange(-150, 150) * 0.01f;
  const Matrix3 poses[] = {base};
  const float twists[] = {0.0f};
  const Matrix3 turned = Frame(QFromAngAxis(turn, n)) * base;
  RC_ASSERT(std::fabs(SolveTwistPoses(turned, axis, poses, twists).twist - turn) < 1e-3f);
}

}  // namespace
}  // namespace marvolith::test
