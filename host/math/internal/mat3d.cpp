// Copyright Marvolith contributors.
#include "host/math/internal/mat3d.h"

#include <cmath>

#include "host/math/tolerances.h"

namespace host_math_internal {
namespace {

double RowLength(const double r[3]) { return std::sqrt(r[0] * r[0] + r[1] * r[1] + r[2] * r[2]); }

double Dot(const double a[3], const double b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

void Cross(const double a[3], const double b[3], double out[3]) {
  out[0] = a[1] * b[2] - a[2] * b[1];
  out[1] = a[2] * b[0] - a[0] * b[2];
  out[2] = a[0] * b[1] - a[1] * b[0];
}

double Frobenius(const Mat3d& a) {
  double s = 0.0;
  for (const auto& row : a.m) s += Dot(row, row);
  return std::sqrt(s);
}

// Gram-Schmidt for a singular matrix. Rows are taken in order; a row is kept when what is left
// of it after removing the kept directions is a real direction (relative length above 1e-6).
// At most two rows are kept, since the third of a singular matrix carries no new direction;
// missing rows are completed so that the frame is right-handed.
void GramSchmidtFallback(const Mat3d& a, Mat3d& q) {
  bool kept[3] = {false, false, false};
  int kept_count = 0;
  for (int i = 0; i < 3 && kept_count < 2; ++i) {
    double len = RowLength(a.m[i]);
    if (!(len > 0.0) || !std::isfinite(len)) continue;
    double r[3] = {a.m[i][0], a.m[i][1], a.m[i][2]};
    for (int j = 0; j < 3; ++j) {
      if (!kept[j]) continue;
      double d = Dot(r, q.m[j]);
      for (int c = 0; c < 3; ++c) r[c] -= d * q.m[j][c];
    }
    double rest = RowLength(r);
    if (rest <= 1e-6 * len) continue;
    for (int c = 0; c < 3; ++c) q.m[i][c] = r[c] / rest;
    kept[i] = true;
    ++kept_count;
  }
  if (kept_count == 0) {
    q = Identity3d();
    return;
  }
  if (kept_count == 1) {
    int a_index = kept[0] ? 0 : (kept[1] ? 1 : 2);
    int b_index = (a_index + 1) % 3;
    // The world axis least aligned with the kept row gives the second direction.
    const double* e = q.m[a_index];
    int least = 0;
    for (int c = 1; c < 3; ++c) {
      if (std::fabs(e[c]) < std::fabs(e[least])) least = c;
    }
    double r[3] = {0.0, 0.0, 0.0};
    r[least] = 1.0;
    double d = Dot(r, e);
    for (int c = 0; c < 3; ++c) r[c] -= d * e[c];
    double rest = RowLength(r);
    for (int c = 0; c < 3; ++c) q.m[b_index][c] = r[c] / rest;
    kept[b_index] = true;
  }
  // Exactly one row is missing: with the cyclic order (i, i+1, i+2), row i = row i+1 x row i+2.
  int missing = !kept[0] ? 0 : (!kept[1] ? 1 : 2);
  Cross(q.m[(missing + 1) % 3], q.m[(missing + 2) % 3], q.m[missing]);
}

}  // namespace

Mat3d FromMatrix3(const Matrix3& m) {
  Mat3d a;
  for (int i = 0; i < 3; ++i) {
    const Point3& r = m.GetRow(i);
    a.m[i][0] = r.x;
    a.m[i][1] = r.y;
    a.m[i][2] = r.z;
  }
  return a;
}

void StoreRows(const Mat3d& a, Matrix3& out) {
  for (int i = 0; i < 3; ++i) {
    out.SetRow(i, Point3(static_cast<float>(a.m[i][0]), static_cast<float>(a.m[i][1]),
                         static_cast<float>(a.m[i][2])));
  }
}

Mat3d Identity3d() { return Mat3d{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}; }

Mat3d Multiply(const Mat3d& a, const Mat3d& b) {
  Mat3d r;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      r.m[i][j] = a.m[i][0] * b.m[0][j] + a.m[i][1] * b.m[1][j] + a.m[i][2] * b.m[2][j];
    }
  }
  return r;
}

Mat3d Transpose(const Mat3d& a) {
  Mat3d r;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) r.m[i][j] = a.m[j][i];
  }
  return r;
}

double Determinant(const Mat3d& a) {
  double c[3];
  Cross(a.m[1], a.m[2], c);
  return Dot(a.m[0], c);
}

bool IsSingular(const Mat3d& a) {
  double lengths = RowLength(a.m[0]) * RowLength(a.m[1]) * RowLength(a.m[2]);
  if (!(lengths > 0.0) || !std::isfinite(lengths)) return true;
  return !(std::fabs(Determinant(a)) > kSingularRatio * lengths);
}

bool Invert(const Mat3d& a, Mat3d& out) {
  if (IsSingular(a)) return false;
  // Inverse = transpose of the cofactor matrix over the determinant; the cofactor rows are the
  // cross products of the other two rows.
  double c0[3], c1[3], c2[3];
  Cross(a.m[1], a.m[2], c0);
  Cross(a.m[2], a.m[0], c1);
  Cross(a.m[0], a.m[1], c2);
  double inv_det = 1.0 / Dot(a.m[0], c0);
  for (int i = 0; i < 3; ++i) {
    out.m[i][0] = c0[i] * inv_det;
    out.m[i][1] = c1[i] * inv_det;
    out.m[i][2] = c2[i] * inv_det;
  }
  return true;
}

bool OrthogonalFactor(const Mat3d& a, Mat3d& q) {
  if (IsSingular(a)) {
    GramSchmidtFallback(a, q);
    return false;
  }
  // Scaled Newton iteration X <- (g X + inverse(X)^T / g) / 2 (Higham); it converges to the
  // orthogonal polar factor, keeping the determinant's sign. The Frobenius scaling g speeds up
  // badly scaled input and is dropped near convergence, where the plain step is quadratic.
  Mat3d x = a;
  bool scale = true;
  for (int iter = 0; iter < kPolarMaxIterations; ++iter) {
    Mat3d inv;
    if (!Invert(x, inv)) break;
    double g = scale ? std::sqrt(Frobenius(inv) / Frobenius(x)) : 1.0;
    Mat3d next;
    double change = 0.0;
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) {
        next.m[i][j] = 0.5 * (g * x.m[i][j] + inv.m[j][i] / g);
        double d = next.m[i][j] - x.m[i][j];
        change += d * d;
      }
    }
    x = next;
    change = std::sqrt(change);
    if (change < 1e-2) scale = false;
    if (change < kPolarTolerance) break;
  }
  q = x;
  return true;
}

void SymmetricEigen(const Mat3d& s, double k[3], Mat3d& u) {
  // Cyclic Jacobi: each rotation P zeroes one off-diagonal pair, a <- P^T a P, v <- v P, so
  // that s = v diag(a) v^T with the eigenvectors in the columns of v.
  Mat3d a = s;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < i; ++j) a.m[i][j] = a.m[j][i];
  }
  Mat3d v = Identity3d();
  for (int sweep = 0; sweep < kJacobiMaxSweeps; ++sweep) {
    double off = a.m[0][1] * a.m[0][1] + a.m[0][2] * a.m[0][2] + a.m[1][2] * a.m[1][2];
    double diag = a.m[0][0] * a.m[0][0] + a.m[1][1] * a.m[1][1] + a.m[2][2] * a.m[2][2];
    if (off <= kJacobiTolerance * diag || off == 0.0) break;
    static constexpr int kPairs[3][2] = {{0, 1}, {0, 2}, {1, 2}};
    for (const auto& pair : kPairs) {
      int p = pair[0], q = pair[1];
      if (a.m[p][q] == 0.0) continue;
      double theta = (a.m[q][q] - a.m[p][p]) / (2.0 * a.m[p][q]);
      double t = (theta >= 0.0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
      double c = 1.0 / std::sqrt(t * t + 1.0);
      double sn = t * c;
      Mat3d rot = Identity3d();
      rot.m[p][p] = c;
      rot.m[q][q] = c;
      rot.m[p][q] = sn;
      rot.m[q][p] = -sn;
      a = Multiply(Transpose(rot), Multiply(a, rot));
      a.m[p][q] = a.m[q][p] = 0.0;
      v = Multiply(v, rot);
    }
  }
  Mat3d raw = Transpose(v);
  double raw_k[3] = {a.m[0][0], a.m[1][1], a.m[2][2]};
  // Eigenvector signs are free: make the frame proper.
  if (Determinant(raw) < 0.0) {
    for (double& c : raw.m[2]) c = -c;
  }
  // Among the 24 proper signed permutations P, u = P raw with k permuted alike describes the
  // same stretch; take the one nearest the identity (largest trace), first one on ties.
  static constexpr int kPerms[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1},
                                       {0, 2, 1}, {2, 1, 0}, {1, 0, 2}};
  double best_trace = -1e300;
  for (int p = 0; p < 6; ++p) {
    double perm_sign = p < 3 ? 1.0 : -1.0;
    for (int signs = 0; signs < 8; ++signs) {
      double sg[3] = {(signs & 1) ? -1.0 : 1.0, (signs & 2) ? -1.0 : 1.0, (signs & 4) ? -1.0 : 1.0};
      if (perm_sign * sg[0] * sg[1] * sg[2] < 0.0) continue;
      double trace = 0.0;
      for (int i = 0; i < 3; ++i) trace += sg[i] * raw.m[kPerms[p][i]][i];
      if (trace > best_trace + 1e-12) {
        best_trace = trace;
        for (int i = 0; i < 3; ++i) {
          k[i] = raw_k[kPerms[p][i]];
          for (int c = 0; c < 3; ++c) u.m[i][c] = sg[i] * raw.m[kPerms[p][i]][c];
        }
      }
    }
  }
  // Equal eigenvalues leave their axes free within their plane (or entirely): turn them to the
  // choice nearest the identity, so a uniform scale has u = identity whatever the rounding did.
  double largest = std::fmax(std::fabs(k[0]), std::fmax(std::fabs(k[1]), std::fabs(k[2])));
  double tol = kEigenEqualRatio * largest;
  bool eq01 = std::fabs(k[0] - k[1]) <= tol, eq02 = std::fabs(k[0] - k[2]) <= tol,
       eq12 = std::fabs(k[1] - k[2]) <= tol;
  if (eq01 && eq02 && eq12) {
    u = Identity3d();
    return;
  }
  int ia = -1, ib = -1;
  if (eq01) {
    ia = 0, ib = 1;
  } else if (eq12) {
    ia = 1, ib = 2;
  } else if (eq02) {
    ia = 0, ib = 2;
  }
  if (ia < 0) return;
  // Rows ia and ib span the plane; turning them by t keeps the frame proper. Maximise
  // u[ia][ia] + u[ib][ib] = cos t (p[ia] + q[ib]) + sin t (q[ia] - p[ib]).
  double p[3] = {u.m[ia][0], u.m[ia][1], u.m[ia][2]};
  double q[3] = {u.m[ib][0], u.m[ib][1], u.m[ib][2]};
  double t = std::atan2(q[ia] - p[ib], p[ia] + q[ib]);
  double c = std::cos(t), sn = std::sin(t);
  for (int i = 0; i < 3; ++i) {
    u.m[ia][i] = c * p[i] + sn * q[i];
    u.m[ib][i] = -sn * p[i] + c * q[i];
  }
}

Quat QuatFromRotation(const Mat3d& r) {
  // Shepperd's method on the largest of w, x, y, z, inverting MakeMatrix:
  //   row 0 = (1-2(yy+zz), 2(xy-wz), 2(xz+wy))
  //   row 1 = (2(xy+wz), 1-2(xx+zz), 2(yz-wx))
  //   row 2 = (2(xz-wy), 2(yz+wx), 1-2(xx+yy))
  const auto& m = r.m;
  double trace = m[0][0] + m[1][1] + m[2][2];
  double x, y, z, w;
  if (trace >= m[0][0] && trace >= m[1][1] && trace >= m[2][2]) {
    double s = std::sqrt(std::fmax(trace + 1.0, 0.0)) * 2.0;  // 4w
    if (s == 0.0) return Quat();
    w = 0.25 * s;
    x = (m[2][1] - m[1][2]) / s;
    y = (m[0][2] - m[2][0]) / s;
    z = (m[1][0] - m[0][1]) / s;
  } else if (m[0][0] >= m[1][1] && m[0][0] >= m[2][2]) {
    double s = std::sqrt(std::fmax(1.0 + m[0][0] - m[1][1] - m[2][2], 0.0)) * 2.0;  // 4x
    if (s == 0.0) return Quat();
    x = 0.25 * s;
    w = (m[2][1] - m[1][2]) / s;
    y = (m[0][1] + m[1][0]) / s;
    z = (m[0][2] + m[2][0]) / s;
  } else if (m[1][1] >= m[2][2]) {
    double s = std::sqrt(std::fmax(1.0 + m[1][1] - m[0][0] - m[2][2], 0.0)) * 2.0;  // 4y
    if (s == 0.0) return Quat();
    y = 0.25 * s;
    w = (m[0][2] - m[2][0]) / s;
    x = (m[0][1] + m[1][0]) / s;
    z = (m[1][2] + m[2][1]) / s;
  } else {
    double s = std::sqrt(std::fmax(1.0 + m[2][2] - m[0][0] - m[1][1], 0.0)) * 2.0;  // 4z
    if (s == 0.0) return Quat();
    z = 0.25 * s;
    w = (m[1][0] - m[0][1]) / s;
    x = (m[0][2] + m[2][0]) / s;
    y = (m[1][2] + m[2][1]) / s;
  }
  double len = std::sqrt(x * x + y * y + z * z + w * w);
  if (!(len > 0.0) || !std::isfinite(len)) return Quat();
  if (w < 0.0) len = -len;
  return Quat(static_cast<float>(x / len), static_cast<float>(y / len), static_cast<float>(z / len),
              static_cast<float>(w / len));
}

Mat3d RotationPart(const Matrix3& m) {
  Mat3d a = FromMatrix3(m);
  for (auto& row : a.m) {
    double len = RowLength(row);
    if (len > 0.0) {
      for (double& c : row) c /= len;
    }
  }
  if (Determinant(a) < 0.0) {
    for (double& c : a.m[2]) c = -c;
  }
  return a;
}

}  // namespace host_math_internal
