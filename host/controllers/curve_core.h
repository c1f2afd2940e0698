// Copyright Marvolith contributors.
// The pure interpolation core of the keyframe controllers: automatic Bezier slopes, Bezier
// segments with handle lengths, Kochanek-Bartels (TCB) tangents and ease, quaternion squad.
// Plain numbers in, numbers out: no keys, controllers or undo.
#pragma once

#include "host/math/point3.h"
#include "host/math/quat.h"

namespace keycurve {

/// A key and its neighbours on one channel, for slope computation. Times in ticks.
struct SlopeInput {
  bool has_prev = false;
  bool has_next = false;
  double t_prev = 0.0;
  double v_prev = 0.0;
  double t = 0.0;
  double v = 0.0;
  double t_next = 0.0;
  double v_next = 0.0;
};

/// The slope dv/dt (value per tick, forward in time) of one side of a key whose tangent type is
/// automatic. With c_in and c_out the chords to the previous and next key:
///   smooth (0): (v_next - v_prev) / (t_next - t_prev); at an end key the one chord there is;
///   linear (1): the chord of that side (at an end, the other chord, so the line goes on);
///   stepped (2), slow (4): 0 (slow eases into and out of the key);
///   fast (3): twice the chord of that side (the other chord at an end);
///   auto (6): 0 at an end key and at a local extreme (chords of opposite sign or one of them
///     0); otherwise the smooth slope limited to three times the smaller chord, so the curve never
///     overshoots its neighbours (the Fritsch-Carlson bound).
/// Custom (5) keeps the stored tangent and is not computed here: the answer is 0. A key
/// without neighbours answers 0 for every type.
double AutoSlope(int type, bool out_side, const SlopeInput& in);

/// Value at time t of the Bezier segment between key a and key b, as a cubic Bezier in the
/// (time, value) plane with the control points
///   (ta, va), (ta + la * dt, va + out_tan * la * dt), (tb - lb * dt, vb + in_tan * lb * dt),
///   (tb, vb)   with dt = tb - ta,
/// la and lb the handle lengths as fractions of dt. The curve's parameter is found from t by
/// solving the time polynomial (Newton with a bisection bracket); with lengths of 1/3 it is
/// linear in time. The time axis uses the lengths clamped to 0..1, which keeps the time
/// polynomial monotonic; the value axis uses len_value_a and len_value_b as given (longer than 1
/// only for unconstrained handles). t is clamped to the segment; dt <= 0 gives vb.
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
                          double len_value_b);

/// The ease of a TCB segment: maps the segment fraction s (0..1) to the spline parameter. a is
/// the ease out of the segment's first key, b the ease in of its second, each clamped to 0..1
/// and scaled down together when their sum exceeds 1. The curve is quadratic over the first a
/// and the last b of the segment and linear between, with slope 1 / (1 - (a + b) / 2) in the
/// middle; a = b = 0 is the identity.
double Ease(double s, double a, double b);
/// d Ease / d s.
double EaseSlope(double s, double a, double b);

/// Tension, continuity and bias of one TCB key, each -1..1.
struct TCBParams {
  double tens = 0.0;
  double cont = 0.0;
  double bias = 0.0;
};

/// Kochanek-Bartels tangents of a key on one channel, in value per unit of the spline parameter
/// of the adjacent segment: incoming (for the segment that ends here) and outgoing (for the one
/// that starts here). g_prev = v - v_prev, g_next = v_next - v; dt_prev and dt_next are the
/// segment lengths in ticks, which rescale the tangents so that speed is continuous across keys
/// of uneven spacing. An end key takes its one chord scaled by (1 - tension), so two keys of
/// default parameters make a straight line.
void TCBTangents(const TCBParams& p,
                 bool has_prev,
                 bool has_next,
                 double dt_prev,
                 double dt_next,
                 double g_prev,
                 double g_next,
                 double& incoming,
                 double& outgoing);

/// Cubic Hermite at u in 0..1 from p0 with tangent m0 to p1 with tangent m1.
double Hermite(double u, double p0, double m0, double p1, double m1);
/// d Hermite / d u.
double HermiteSlope(double u, double p0, double m0, double p1, double m1);

/// Logarithm of a rotation: unit axis times half the angle, the angle taken the short way
/// (q and -q give the same answer). The identity gives zero.
Point3 QuatLog(const Quat& q);
/// Inverse of QuatLog: (n sin |v|, cos |v|) with n = v / |v|; zero gives the identity.
Quat QuatExp(const Point3& v);
/// q turned n times as far about its own axis (n may be negative or fractional); the angle of q
/// is taken the short way.
Quat QuatPow(const Quat& q, double n);
/// Spherical quadrangle interpolation from q0 to q1 with inner controls a (after q0) and b
/// (before q1): Slerp(Slerp(q0, q1, u), Slerp(a, b, u), 2u(1 - u)), each pair made closest.
Quat Squad(const Quat& q0, const Quat& a, const Quat& b, const Quat& q1, float u);

}  // namespace keycurve
