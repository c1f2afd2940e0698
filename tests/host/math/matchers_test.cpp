// Copyright Marvolith contributors.
// The shared math matchers must fail when they should, and say why.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <limits>

#include "tests/support/math_matchers.h"

TEST(MathMatchersTest, FailWithTheValuesAndTheWorstDifference) {
  EXPECT_NONFATAL_FAILURE(EXPECT_POINT3_NEAR(Point3(1, 2, 3), Point3(1, 2, 3.1f), 0.01f),
                          "differ by 0.0999");
  EXPECT_NONFATAL_FAILURE(EXPECT_MATRIX3_NEAR(Matrix3(), TransMatrix(Point3(0, 0.5f, 0)), 1e-6f),
                          "at row 3 column 1");
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_NONFATAL_FAILURE(EXPECT_POINT3_NEAR(Point3(nan, 0, 0), Point3(), 1.0f), "differ by nan");
  EXPECT_NONFATAL_FAILURE(EXPECT_QUAT_NEAR(Quat(1, 0, 0, 0), Quat(), 0.1f),
                          "not the same rotation");
}

TEST(MathMatchersTest, QuatNearTreatsQAndMinusQAsOneRotation) {
  Quat q(0.5f, -0.5f, 0.5f, 0.5f);
  EXPECT_QUAT_NEAR(q, -q, 0.0f);
  EXPECT_QUAT_NEAR(q, q, 0.0f);
}
