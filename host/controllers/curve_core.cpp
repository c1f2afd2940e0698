// Copyright Marvolith contributors.
#include "host/controllers/curve_core.h"

#include <cmath>

#include "host/controllers/keys.h"

namespace keycurve {

namespace {

double Clamp01(double v) { return !(v > 0.0) ? 0.0 : (v > 1.0 ? 1.0 : v); }

// Chord slope of one side; false when that neighbour is missing or coincides in time.
bool Chord(bool has, double t0, double v0, double t1, double v1, double& slope) {
  if (!has || !(t1 - t0 > 0.0)) return false;
  slope = (v1 - v0) / (t1 - t0);
  return true;
}

double Cubic(double u, double p0, double p1, double p2, double p3) {
  double w = 1.0 - u;
  return w * w * w * p0 + 3.0 * w * w * u * p1 + 3.0 * w * u * u * p2 + u * u * u * p3;
}

double CubicSlope(double u, double p0, double p1, double p2, double p3) {
  double w = 1.0 - u;
  return 3.0 * (w * w * (p1 - p0) + 2.0 * w * u * (p2 - p1) + u * u * (p3 - p2));
}

// The parameter u of the time polynomial with control values 0, x1, x2, 1 at which it reaches s.
// x1 and x2 lie in 0..1, so the polynomial is monotonic and u is unique.
double SolveTime(double s, double x1, double x2) {
  if (s <= 0.0) return 0.0;
  if (s >= 1.0) return 1.0;
  // Lengths of one third give x(u) = u: the common case needs no iteration.
  if (std::fabs(x1 - 1.0 / 3.0) < 1e-9 && std::fabs(x2 - 2.0 / 3.0) < 1e-9) return s;
  double lo = 0.0, hi = 1.0, u = s;
  for (int i = 0; i < 40; ++i) {
    double x = Cubic(u, 0.0, x1, x2, 1.0) - s;
    if (std::fabs(x) < 1e-12) break;
    if (x > 0.0) {
      hi = u;
    } else {
      lo = u;
    }
    double d = CubicSlope(u, 0.0, x1, x2, 1.0);
    double next = d > 1e-9 ? u - x / d : -1.0;
    // Newton's step, unless it leaves the bracket (flat spots): then bisection.
    u = (next > lo && next < hi) ? next : 0.5 * (lo + hi);
  }
  return u;
}

}  // namespace

double AutoSlope(int type, bool out_side, const SlopeInput& in) {
  double c_in = 0.0, c_out = 0.0;
  bool has_in = Chord(in.has_prev, in.t_prev, in.v_prev, in.t, in.v, c_in);
  bool has_out = Chord(in.has_next, in.t, in.v, in.t_next, in.v_next, c_out);
  if (!has_in && !has_out) return 0.0;
  // The chord of this side, or the other one at an end key.
  double side = out_side ? (has_out ? c_out : c_in) : (has_in ? c_in : c_out);
  switch (type) {
    case BEZKEY_SMOOTH:
      if (has_in && has_out) return (in.v_next - in.v_prev) / (in.t_next - in.t_prev);
      return has_in ? c_in : c_out;
    case BEZKEY_LINEAR:
      return side;
    case BEZKEY_FAST:
      return 2.0 * side;
    case BEZKEY_FLAT: {
      if (!has_in || !has_out) return 0.0;
      // Local extreme or a flat side: a flat tangent keeps the curve inside its keys.
      if (c_in * c_out <= 0.0) return 0.0;
      double smooth = (in.v_next - in.v_prev) / (in.t_next - in.t_prev);
      double limit = 3.0 * std::fmin(std::fabs(c_in), std::fabs(c_out));
      return std::fabs(smooth) > limit ? std::copysign(limit, smooth) : smooth;
    }
    case BEZKEY_STEP:
    case BEZKEY_SLOW:
    default:
      return 0.0;
  }
}

double BezierSegmentValue(double t,
                          double ta,
                          double va,
                          double out_tan,
                          double la,
                          double len_value_a,
                          double tb,
                          double vb,
                          double in_tan,
                          double lb,
                          double len_value_b) {
  double dt = tb - ta;
  if (!(dt > 0.0)) return vb;
  double s = (t - ta) / dt;
  double u = SolveTime(s, Clamp01(la), 1.0 - Clamp01(lb));
  double y1 = va + out_tan * len_value_a * dt;
  double y2 = vb + in_tan * len_value_b * dt;
  return Cubic(u, va, y1, y2, vb);
}

double Ease(double s, double a, double b) {
  if (s <= 0.0) return 0.0;
  if (s >= 1.0) return 1.0;
  a = Clamp01(a);
  b = Clamp01(b);
  double sum = a + b;
  if (sum <= 0.0) return s;
  if (sum > 1.0) {
    a /= sum;
    b /= sum;
  }
  double k = 1.0 / (2.0 - a - b);
  if (s < a) return k / a * s * s;
  if (s < 1.0 - b) return k * (2.0 * s - a);
  double r = 1.0 - s;
  return 1.0 - k / b * r * r;
}

double EaseSlope(double s, double a, double b) {
  a = Clamp01(a);
  b = Clamp01(b);
  double sum = a + b;
  if (sum <= 0.0) return 1.0;
  if (sum > 1.0) {
    a /= sum;
    b /= sum;
  }
  double k = 1.0 / (2.0 - a - b);
  if (s < a) return 2.0 * k * s / a;
  if (s <= 1.0 - b || b <= 0.0) return 2.0 * k;
  return 2.0 * k * (1.0 - s) / b;
}

void TCBTangents(const TCBParams& p,
                 bool has_prev,
                 bool has_next,
                 double dt_prev,
                 double dt_next,
                 double g_prev,
                 double g_next,
                 double& incoming,
                 double& outgoing) {
  double t = p.tens, c = p.cont, b = p.bias;
  if (has_prev && has_next) {
    // Kochanek-Bartels: the outgoing (source) and incoming (destination) derivatives.
    double out = 0.5 * (1 - t) * ((1 + c) * (1 + b) * g_prev + (1 - c) * (1 - b) * g_next);
    double in = 0.5 * (1 - t) * ((1 - c) * (1 + b) * g_prev + (1 + c) * (1 - b) * g_next);
    // Uneven key spacing: scale each side by its share of the two intervals.
    double total = dt_prev + dt_next;
    if (total > 0.0) {
      out *= 2.0 * dt_next / total;
      in *= 2.0 * dt_prev / total;
    }
    incoming = in;
    outgoing = out;
  } else if (has_next) {
    incoming = outgoing = (1 - t) * g_next;
  } else if (has_prev) {
    incoming = outgoing = (1 - t) * g_prev;
  } else {
    incoming = outgoing = 0.0;
  }
}

double Hermite(double u, double p0, double m0, double p1, double m1) {
  double u2 = u * u, u3 = u2 * u;
  return (2 * u3 - 3 * u2 + 1) * p0 + (u3 - 2 * u2 + u) * m0 + (-2 * u3 + 3 * u2) * p1 +
         (u3 - u2) * m1;
}

double HermiteSlope(double u, double p0, double m0, double p1, double m1) {
  double u2 = u * u;
  return (6 * u2 - 6 * u) * p0 + (3 * u2 - 4 * u + 1) * m0 + (-6 * u2 + 6 * u) * p1 +
         (3 * u2 - 2 * u) * m1;
}

Point3 QuatLog(const Quat& q) {
  Quat n = Normalize(q);
  if (n.w < 0.0f) n = -n;
  double len = std::sqrt(double(n.x) * n.x + double(n.y) * n.y + double(n.z) * n.z);
  if (!(len > 0.0)) return Point3();
  double half = std::atan2(len, double(n.w));
  double f = half / len;
  return Point3(static_cast<float>(n.x * f), static_cast<float>(n.y * f),
                static_cast<float>(n.z * f));
}

Quat QuatExp(const Point3& v) {
  double len = std::sqrt(double(v.x) * v.x + double(v.y) * v.y + double(v.z) * v.z);
  if (!(len > 0.0)) return Quat();
  double f = std::sin(len) / len;
  return Quat(static_cast<float>(v.x * f), static_cast<float>(v.y * f), static_cast<float>(v.z * f),
              static_cast<float>(std::cos(len)));
}

Quat QuatPow(const Quat& q, double n) {
  Point3 log = QuatLog(q);
  return QuatExp(log * static_cast<float>(n));
}

Quat Squad(const Quat& q0, const Quat& a, const Quat& b, const Quat& q1, float u) {
  Quat end = q1;
  end.MakeClosest(q0);
  Quat c = Slerp(q0, end, u);
  Quat inner_b = b;
  inner_b.MakeClosest(a);
  Quat d = Slerp(a, inner_b, u);
  d.MakeClosest(c);
  return Slerp(c, d, 2.0f * u * (1.0f - u));
}

}  // namespace keycurve
