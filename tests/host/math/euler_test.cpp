// Copyright Marvolith contributors.
#include "host/math/euler.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <numbers>

#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

using marvolith::test::GenAngle;
using marvolith::test::GenEulerAwayFromLock;
using marvolith::test::GenFloat;
using marvolith::test::GenRotation;

namespace {

constexpr float kPi = std::numbers::pi_v<float>;

// Distance of two angles modulo whole turns.
float TurnDistance(float a, float b) {
  float d = std::fmod(std::fabs(a - b), 2.0f * kPi);
  return d > kPi ? 2.0f * kPi - d : d;
}

Matrix3 AxisMatrix(int axis, float angle) {
  return axis == 0 ? RotateXMatrix(angle)
                   : (axis == 1 ? RotateYMatrix(angle) : RotateZMatrix(angle));
}

}  // namespace

TEST(EulerTest, OrdersApplyTheirAxesFirstToLast) {
  // The host's table of sequences, 0 = X, 1 = Y, 2 = Z.
  const int sequences[9][3] = {{0, 1, 2}, {0, 2, 1}, {1, 2, 0}, {1, 0, 2}, {2, 0, 1},
                               {2, 1, 0}, {0, 1, 0}, {1, 2, 1}, {2, 0, 2}};
  const float ang[3] = {0.3f, -0.7f, 1.1f};
  for (int order = 0; order < 9; ++order) {
    SCOPED_TRACE(order);
    const int* s = sequences[order];
    Matrix3 expected =
        AxisMatrix(s[0], ang[0]) * AxisMatrix(s[1], ang[1]) * AxisMatrix(s[2], ang[2]);
    Matrix3 m;
    EulerToMatrix(ang, m, order);
    EXPECT_MATRIX3_NEAR(m, expected, 1e-6f);
    Quat q;
    EulerToQuat(ang, q, order);
    EXPECT_QUAT_NEAR(q, Quat(expected), 1e-6f);
  }
  Matrix3 bad, xyz;
  EulerToMatrix(ang, bad, 9);
  EulerToMatrix(ang, xyz, EULERTYPE_XYZ);
  EXPECT_MATRIX3_NEAR(bad, xyz, 0.0f) << "an unknown order reads as XYZ";
}

TEST(EulerTest, StepsFillThreeDistinctChannels) {
  // A controller with X, Y, Z channels holds each step in one of them; a repeated-axis order's
  // third step must not overwrite the first step's channel.
  const int expected[9][3] = {{0, 1, 2}, {0, 2, 1}, {1, 2, 0}, {1, 0, 2}, {2, 0, 1},
                              {2, 1, 0}, {0, 1, 2}, {1, 2, 0}, {2, 0, 1}};
  for (int order = 0; order < 9; ++order) {
    SCOPED_TRACE(order);
    for (int step = 0; step < 3; ++step) {
      EXPECT_EQ(EulerStepChannel(order, step), expected[order][step]) << "step " << step;
    }
  }
  EXPECT_EQ(EulerStepChannel(-1, 2), 2) << "an unknown order reads as XYZ";
  EXPECT_EQ(EulerStepChannel(EULERTYPE_ZXZ, 7), 1) << "a step past 2 reads as the third";
}

RC_GTEST_PROP(EulerProperty, RoundTripsInAllOrdersAwayFromGimbalLock, ()) {
  int order = *rc::gen::inRange(0, 9);
  Point3 e = *GenEulerAwayFromLock(order);
  const float ang[3] = {e.x, e.y, e.z};
  Matrix3 m;
  EulerToMatrix(ang, m, order);
  float from_matrix[3], from_quat[3];
  MatrixToEuler(m, from_matrix, order);
  Quat q;
  EulerToQuat(ang, q, order);
  QuatToEuler(q, from_quat, order);
  for (int i = 0; i < 3; ++i) {
    RC_ASSERT(TurnDistance(from_matrix[i], ang[i]) < 2e-4f);
    RC_ASSERT(TurnDistance(from_quat[i], ang[i]) < 2e-4f);
  }
  // Scale on the rows is ignored.
  float from_scaled[3];
  MatrixToEuler(ScaleMatrix(Point3(2, 0.5f, 3)) * m, from_scaled, order);
  for (int i = 0; i < 3; ++i) RC_ASSERT(TurnDistance(from_scaled[i], ang[i]) < 2e-4f);
}

TEST(EulerTest, GimbalLockPutsTheWholeTurnOnTheThirdAngle) {
  for (int order = 0; order < 9; ++order) {
    for (float sign : {1.0f, -1.0f}) {
      SCOPED_TRACE(testing::Message() << "order " << order << " sign " << sign);
      float middle = order >= EULERTYPE_XYX ? (sign > 0 ? 0.0f : kPi) : sign * kPi / 2;
      const float ang[3] = {0.4f, middle, -0.9f};
      Matrix3 m;
      EulerToMatrix(ang, m, order);
      float got[3];
      MatrixToEuler(m, got, order);
      EXPECT_EQ(got[0], 0.0f);
      EXPECT_NEAR(TurnDistance(got[1], middle), 0.0f, 1e-3f);
      Matrix3 back;
      EulerToMatrix(got, back, order);
      EXPECT_MATRIX3_NEAR(back, m, 2e-6f);
    }
  }
}

RC_GTEST_PROP(EulerProperty, ContinuousStaysWithinHalfATurnOfThePrevious, ()) {
  int order = *rc::gen::inRange(0, 9);
  // Rotations near gimbal lock too: exact locks come from Euler triples at the limit.
  bool at_lock = *rc::gen::inRange(0, 4) == 0;
  Quat q = *GenRotation();
  if (at_lock) {
    float middle = order >= EULERTYPE_XYX ? *rc::gen::element(0.0f, kPi)
                                          : *rc::gen::element(-kPi / 2, kPi / 2);
    const float lock[3] = {*GenAngle(), middle, *GenAngle()};
    EulerToQuat(lock, q, order);
  }
  float ang[3] = {*GenFloat(-10, 10), *GenFloat(-10, 10), *GenFloat(-10, 10)};
  const float prev[3] = {ang[0], ang[1], ang[2]};
  ContinuousQuatToEuler(q, ang, order);
  for (int i = 0; i < 3; ++i) RC_ASSERT(std::fabs(ang[i] - prev[i]) <= kPi + 1e-5f);
  Quat back;
  EulerToQuat(ang, back, order);
  RC_ASSERT_QUAT_NEAR(back, q, 2e-5f);
}

TEST(EulerTest, ContinuousKeepsTheTurnsOfASweep) {
  // Three whole turns about Z in steps of 0.1 rad: the Z angle must climb, never jump back.
  for (int order : {EULERTYPE_XYZ, EULERTYPE_ZYX, EULERTYPE_YXZ}) {
    SCOPED_TRACE(order);
    float ang[3] = {0, 0, 0};
    int z_step = order == EULERTYPE_XYZ ? 2 : (order == EULERTYPE_ZYX ? 0 : 2);
    for (int step = 1; step <= 190; ++step) {
      Quat q(RotateZMatrix(0.1f * step));
      ContinuousQuatToEuler(q, ang, order);
    }
    EXPECT_NEAR(ang[z_step], 19.0f, 1e-4f);
    EXPECT_NEAR(ang[(z_step + 1) % 3], 0.0f, 1e-5f);
  }
}

TEST(EulerTest, ContinuousSharesTheFreeTurnAtGimbalLock) {
  // XYZ with Y at +90 degrees depends on X - Z only: from previous (1, pi/2, 1) the rotation with
  // X - Z = -0.2 is reached by moving each outer angle by 0.1.
  const float target[3] = {0.9f, kPi / 2, 1.1f};
  Quat q;
  EulerToQuat(target, q, EULERTYPE_XYZ);
  float ang[3] = {1.0f, kPi / 2, 1.0f};
  ContinuousQuatToEuler(q, ang, EULERTYPE_XYZ);
  EXPECT_NEAR(ang[0], 0.9f, 1e-3f);
  EXPECT_NEAR(ang[1], kPi / 2, 1e-3f);
  EXPECT_NEAR(ang[2], 1.1f, 1e-3f);
}
