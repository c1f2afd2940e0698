// Copyright Marvolith contributors.
// GoogleTest comparisons of host math values with readable failure output:
//   EXPECT_POINT3_NEAR(a, b, tol)   every component within tol
//   EXPECT_QUAT_NEAR(a, b, tol)     same rotation: a or -a within tol of b, per component
//   EXPECT_MATRIX3_NEAR(a, b, tol)  all twelve values within tol (flags ignored)
// (ASSERT_ forms alike), and RC_ASSERT_*_NEAR for rapidcheck properties.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/math/scale_value.h"

// Printers found by argument-dependent lookup (the host types live in the global namespace), so
// gtest and the failure messages below show values instead of bytes.
inline void PrintTo(const Point3& p, std::ostream* os) {
  *os << std::setprecision(9) << "(" << p.x << ", " << p.y << ", " << p.z << ")";
}
inline void PrintTo(const Quat& q, std::ostream* os) {
  *os << std::setprecision(9) << "Quat(" << q.x << ", " << q.y << ", " << q.z << ", " << q.w << ")";
}
inline void PrintTo(const Matrix3& m, std::ostream* os) {
  *os << "Matrix3[";
  for (int i = 0; i < 4; ++i) {
    if (i > 0) *os << ", ";
    PrintTo(m.GetRow(i), os);
  }
  *os << " flags " << m.GetIdentFlags() << "]";
}
inline void PrintTo(const ScaleValue& s, std::ostream* os) {
  *os << "ScaleValue{";
  PrintTo(s.s, os);
  *os << ", ";
  PrintTo(s.q, os);
  *os << "}";
}

namespace marvolith::test {

/// The rotation matrix of q (the "Matrix(q)" of the documents).
inline Matrix3 MatrixOf(const Quat& q) {
  Matrix3 m;
  q.MakeMatrix(m);
  return m;
}

template <typename T>
std::string Show(const T& value) {
  std::ostringstream os;
  PrintTo(value, &os);
  return os.str();
}

/// Largest absolute difference of the first count components (NaN when either side has a NaN).
template <typename V>
float MaxComponentDifference(const V& a, const V& b, int count) {
  float d = 0.0f;
  for (int i = 0; i < count; ++i) {
    float e = std::fabs(a[i] - b[i]);
    if (!(e <= d) && !std::isnan(d)) d = e;  // a NaN, once seen, stays
  }
  return d;
}
inline float MaxDifference(const Point3& a, const Point3& b) {
  return MaxComponentDifference(a, b, 3);
}
inline float MaxDifference(const Quat& a, const Quat& b) { return MaxComponentDifference(a, b, 4); }

/// Angle in radians of the rotation that takes a to b (0 for q and -q); NaN for zero input.
inline double RotationAngleBetween(const Quat& a, const Quat& b) {
  double dot = double(a.x) * b.x + double(a.y) * b.y + double(a.z) * b.z + double(a.w) * b.w;
  double c = std::fabs(dot) / (double(a.Length()) * double(b.Length()));
  return 2.0 * std::acos(c > 1.0 ? 1.0 : c);
}

inline ::testing::AssertionResult Point3Near(const char* a_expr,
                                             const char* b_expr,
                                             const char* tol_expr,
                                             const Point3& a,
                                             const Point3& b,
                                             float tol) {
  float d = MaxDifference(a, b);
  if (d <= tol) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << a_expr << " and " << b_expr << " differ by " << d << ", more than " << tol_expr << " = "
         << tol << "\n  " << a_expr << " = " << Show(a) << "\n  " << b_expr << " = " << Show(b);
}

inline ::testing::AssertionResult QuatNear(const char* a_expr,
                                           const char* b_expr,
                                           const char* tol_expr,
                                           const Quat& a,
                                           const Quat& b,
                                           float tol) {
  float same = MaxDifference(a, b);
  float flipped = MaxDifference(-a, b);
  float d = same <= flipped ? same : flipped;
  if (d <= tol) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << a_expr << " and " << b_expr << " are not the same rotation: closest components (q "
         << "or -q) differ by " << d << ", more than " << tol_expr << " = " << tol
         << "; rotation between them " << RotationAngleBetween(a, b) << " rad\n  " << a_expr
         << " = " << Show(a) << "\n  " << b_expr << " = " << Show(b);
}

inline ::testing::AssertionResult Matrix3Near(const char* a_expr,
                                              const char* b_expr,
                                              const char* tol_expr,
                                              const Matrix3& a,
                                              const Matrix3& b,
                                              float tol) {
  float d = 0.0f;
  int worst_row = 0, worst_col = 0;
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 3; ++c) {
      float e = std::fabs(a.GetRow(r)[c] - b.GetRow(r)[c]);
      if (!(e <= d) && !std::isnan(d)) {
        d = e;
        worst_row = r;
        worst_col = c;
      }
    }
  }
  if (d <= tol) return ::testing::AssertionSuccess();
  auto failure = ::testing::AssertionFailure();
  failure << a_expr << " and " << b_expr << " differ by " << d << " at row " << worst_row
          << " column " << worst_col << ", more than " << tol_expr << " = " << tol;
  for (int r = 0; r < 4; ++r) {
    failure << "\n  row " << r << ": " << Show(a.GetRow(r)) << "  vs  " << Show(b.GetRow(r));
  }
  return failure;
}

}  // namespace marvolith::test

#define EXPECT_POINT3_NEAR(a, b, tol) EXPECT_PRED_FORMAT3(::marvolith::test::Point3Near, a, b, tol)
#define ASSERT_POINT3_NEAR(a, b, tol) ASSERT_PRED_FORMAT3(::marvolith::test::Point3Near, a, b, tol)
#define EXPECT_QUAT_NEAR(a, b, tol) EXPECT_PRED_FORMAT3(::marvolith::test::QuatNear, a, b, tol)
#define ASSERT_QUAT_NEAR(a, b, tol) ASSERT_PRED_FORMAT3(::marvolith::test::QuatNear, a, b, tol)
#define EXPECT_MATRIX3_NEAR(a, b, tol) \
  EXPECT_PRED_FORMAT3(::marvolith::test::Matrix3Near, a, b, tol)
#define ASSERT_MATRIX3_NEAR(a, b, tol) \
  ASSERT_PRED_FORMAT3(::marvolith::test::Matrix3Near, a, b, tol)

// rapidcheck forms: fail the property with the same message. Use inside RC_GTEST_PROP only.
#define MV_RC_NEAR_(fn, a, b, tol)                                          \
  do {                                                                      \
    ::testing::AssertionResult mv_rc_result_ = fn(#a, #b, #tol, a, b, tol); \
    if (!mv_rc_result_) RC_FAIL(mv_rc_result_.message());                   \
  } while (false)
#define RC_ASSERT_POINT3_NEAR(a, b, tol) MV_RC_NEAR_(::marvolith::test::Point3Near, a, b, tol)
#define RC_ASSERT_QUAT_NEAR(a, b, tol) MV_RC_NEAR_(::marvolith::test::QuatNear, a, b, tol)
#define RC_ASSERT_MATRIX3_NEAR(a, b, tol) MV_RC_NEAR_(::marvolith::test::Matrix3Near, a, b, tol)
