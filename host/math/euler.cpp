// Copyright Marvolith contributors.
#include "host/math/euler.h"

#include <cmath>
#include <numbers>

#include "host/math/internal/mat3d.h"
#include "host/math/tolerances.h"

namespace hmi = host_math_internal;

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kTwoPi = 2.0 * std::numbers::pi;

// Axis sequences, 0 = X, 1 = Y, 2 = Z.
constexpr int kSequences[kEulerOrderCount][3] = {{0, 1, 2}, {0, 2, 1}, {1, 2, 0},
                                                 {1, 0, 2}, {2, 0, 1}, {2, 1, 0},
                                                 {0, 1, 0}, {1, 2, 1}, {2, 0, 2}};

int ValidOrder(int order) { return order >= 0 && order < kEulerOrderCount ? order : 0; }

bool IsRepeated(int order) { return order >= EULERTYPE_XYX; }

struct Euler {
  double a[3];
  bool locked;
};

// The row-vector rotation matrix of q in double (q normalised on the way; zero gives identity).
hmi::Mat3d RotationOf(const Quat& q) {
  double x = q.x, y = q.y, z = q.z, w = q.w;
  double len2 = x * x + y * y + z * z + w * w;
  if (!(len2 > 0.0) || !std::isfinite(len2)) return hmi::Identity3d();
  double s = 2.0 / len2;
  return hmi::Mat3d{{{1.0 - s * (y * y + z * z), s * (x * y - w * z), s * (x * z + w * y)},
                     {s * (x * y + w * z), 1.0 - s * (x * x + z * z), s * (y * z - w * x)},
                     {s * (x * z - w * y), s * (y * z + w * x), 1.0 - s * (x * x + y * y)}}};
}

// Decomposes the row-vector rotation r. r = R_i(a0) * R_j(a1) * R_k(a2) transposes to the
// column-vector product Rc_k(a2) Rc_j(a1) Rc_i(a0), the "static axes" form of Shoemake's Euler
// conversion; mc below is that column-vector matrix. Odd axis sequences are the even formulas
// with all angles negated. The third angle is computed from the first (not on its own), so the
// triple reproduces the matrix even where the first angle is poorly conditioned.
Euler Decompose(const hmi::Mat3d& r, int order) {
  const int* seq = kSequences[ValidOrder(order)];
  int i = seq[0];
  int j = seq[1];
  int k = 3 - i - j;
  bool odd = j != (i + 1) % 3;
  double mc[3][3];
  for (int row = 0; row < 3; ++row) {
    for (int col = 0; col < 3; ++col) mc[row][col] = r.m[col][row];
  }
  Euler e{{0.0, 0.0, 0.0}, false};
  if (IsRepeated(order)) {
    // Even form Rc_i(c) Rc_j(b) Rc_i(a): mc[i][i] = cos b, (mc[i][j], mc[i][k]) = sin b (sin a,
    // cos a), rows j and k hold cos c and sin c once a is known.
    double sy = std::hypot(mc[i][j], mc[i][k]);
    e.a[1] = std::atan2(sy, mc[i][i]);
    if (sy > kGimbalLockEpsilon) {
      e.a[0] = std::atan2(mc[i][j], mc[i][k]);
    } else {
      e.locked = true;  // b is 0 or pi: only a + c (or c - a) is defined; a = 0.
    }
    double sa = std::sin(e.a[0]), ca = std::cos(e.a[0]);
    e.a[2] = std::atan2(ca * mc[k][j] - sa * mc[k][k], ca * mc[j][j] - sa * mc[j][k]);
  } else {
    // Even form Rc_k(c) Rc_j(b) Rc_i(a): mc[k][i] = -sin b, (mc[k][j], mc[k][k]) = cos b (sin a,
    // cos a), rows i and j hold sin c and cos c once a is known.
    double cy = std::hypot(mc[i][i], mc[j][i]);
    e.a[1] = std::atan2(-mc[k][i], cy);
    if (cy > kGimbalLockEpsilon) {
      e.a[0] = std::atan2(mc[k][j], mc[k][k]);
    } else {
      e.locked = true;  // b is +-pi/2: only a - c (or a + c) is defined; a = 0.
    }
    double sa = std::sin(e.a[0]), ca = std::cos(e.a[0]);
    e.a[2] = std::atan2(sa * mc[i][k] - ca * mc[i][j], ca * mc[j][j] - sa * mc[j][k]);
  }
  if (odd) {
    for (double& v : e.a) v = -v;
  }
  // -0.0 from the negation reads badly and compares equal anyway.
  for (double& v : e.a) v += 0.0;
  return e;
}

void Store(const Euler& e, float* ang) {
  for (int n = 0; n < 3; ++n) ang[n] = static_cast<float>(e.a[n]);
}

// As Store, for angles that carry whole turns: one that a float cannot hold within
// kEulerTurnRoundoff loses its turns, so that the floats still give the rotation.
void StoreTurns(const Euler& e, float* ang) {
  for (int n = 0; n < 3; ++n) {
    const double a = e.a[n];
    float f = static_cast<float>(a);
    if (std::fabs(static_cast<double>(f) - a) > kEulerTurnRoundoff) {
      f = static_cast<float>(std::remainder(a, kTwoPi));
    }
    ang[n] = f;
  }
}

// x plus the whole turns that bring it within pi of near.
double WrapNear(double x, double near) { return x + kTwoPi * std::round((near - x) / kTwoPi); }

// The quaternion of a right-handed turn by angle about axis (see quat.h for the sign).
Quat AxisTurn(int axis, float angle) {
  float s = -std::sin(0.5f * angle);
  float c = std::cos(0.5f * angle);
  return Quat(axis == 0 ? s : 0.0f, axis == 1 ? s : 0.0f, axis == 2 ? s : 0.0f, c);
}

}  // namespace

int EulerOrderAxis(int order, int step) {
  return kSequences[ValidOrder(order)][step >= 0 && step < 3 ? step : 2];
}

int EulerStepChannel(int order, int step) {
  const int a0 = EulerOrderAxis(order, 0);
  const int a1 = EulerOrderAxis(order, 1);
  if (step <= 0) return a0;
  if (step == 1) return a1;
  const int a2 = EulerOrderAxis(order, 2);
  return a2 != a0 ? a2 : 3 - a0 - a1;  // repeated axis: the channel left over
}

void QuatToEuler(const Quat& q, float* ang, int order) {
  Store(Decompose(RotationOf(q), order), ang);
}

void EulerToQuat(const float* ang, Quat& q, int order) {
  const int* seq = kSequences[ValidOrder(order)];
  q = AxisTurn(seq[0], ang[0]) * AxisTurn(seq[1], ang[1]) * AxisTurn(seq[2], ang[2]);
}

void MatrixToEuler(const Matrix3& mat, float* ang, int order) {
  Store(Decompose(hmi::RotationPart(mat), order), ang);
}

void EulerToMatrix(const float* ang, Matrix3& mat, int order) {
  const int* seq = kSequences[ValidOrder(order)];
  mat.IdentityMatrix();
  for (int n = 0; n < 3; ++n) {
    switch (seq[n]) {
      case 0:
        mat.RotateX(ang[n]);
        break;
      case 1:
        mat.RotateY(ang[n]);
        break;
      default:
        mat.RotateZ(ang[n]);
        break;
    }
  }
}

void ContinuousQuatToEuler(const Quat& q, float* ang, int order) {
  double prev[3] = {ang[0], ang[1], ang[2]};
  Euler e = Decompose(RotationOf(q), order);
  if (!std::isfinite(prev[0]) || !std::isfinite(prev[1]) || !std::isfinite(prev[2])) {
    Store(e, ang);
    return;
  }
  bool repeated = IsRepeated(ValidOrder(order));
  Euler best = e;
  if (e.locked) {
    // Gimbal lock: the family (t, b, c0 + sigma t) all give q. sigma is +1 where the rotation
    // depends on a - c and -1 where on a + c: Tait-Bryan by the sign of b (flipped for odd
    // sequences), repeated axes by whether b is pi or 0.
    double sigma;
    if (repeated) {
      sigma = e.a[1] > 0.5 * kPi ? 1.0 : -1.0;
    } else {
      const int* seq = kSequences[ValidOrder(order)];
      bool odd = seq[1] != (seq[0] + 1) % 3;
      sigma = (e.a[1] > 0.0 ? 1.0 : -1.0) * (odd ? -1.0 : 1.0);
    }
    // Least squares over t of (t - prev0)^2 + (c0 + sigma t - prev2)^2, with c0 first moved by
    // whole turns next to prev2 - sigma prev0: the free turn is split evenly.
    double c0 = WrapNear(e.a[2], prev[2] - sigma * prev[0]);
    double t = 0.5 * (prev[0] + sigma * (prev[2] - c0));
    best.a[0] = t;
    best.a[2] = c0 + sigma * t;
    best.a[1] = WrapNear(e.a[1], prev[1]);
  } else {
    // Two solution branches; each angle then takes the whole turns nearest its previous value.
    Euler flipped = e;
    flipped.a[0] = e.a[0] + kPi;
    flipped.a[1] = repeated ? -e.a[1] : kPi - e.a[1];
    flipped.a[2] = e.a[2] + kPi;
    double best_cost = 0.0;
    for (int branch = 0; branch < 2; ++branch) {
      Euler c = branch == 0 ? e : flipped;
      double cost = 0.0;
      for (int n = 0; n < 3; ++n) {
        c.a[n] = WrapNear(c.a[n], prev[n]);
        cost += (c.a[n] - prev[n]) * (c.a[n] - prev[n]);
      }
      if (branch == 0 || cost < best_cost) {
        best = c;
        best_cost = cost;
      }
    }
  }
  StoreTurns(best, ang);
}
