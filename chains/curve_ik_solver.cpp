// Copyright Marvolith contributors.
#include "chains/curve_ik_solver.h"

#include <algorithm>
#include <cmath>

#include "host/math/affine.h"
#include "host/math/geometry.h"

namespace marvolith {
namespace {

constexpr float kTwoPi = 6.2831855f;
/// A Bezier end derivative shorter than this (squared) gives no direction to extrapolate along.
constexpr float kMinDerivativeSquared = 1e-12f;
/// Rows whose dot products stay below this share of their squared lengths count as orthogonal.
constexpr float kOrthogonalTolerance = 1e-6f;
/// Floor of the squash base, so that pow never sees zero or a negative base.
constexpr float kMinSquashBase = 1e-6f;

float Finite(float v, float fallback) { return std::isfinite(v) ? v : fallback; }

CurvePointType TypeOf(int type) {
  return type >= 0 && type <= 3 ? static_cast<CurvePointType>(type) : CurvePointType::Corner;
}

Matrix3 MatrixOf(const Quat& q) {
  Matrix3 m;
  q.MakeMatrix(m);
  return m;
}

// The rotation of a point's transform. Quat(m) ignores row lengths, so only a skewed frame
// needs the (costly) orthogonalisation first.
Quat FrameRotation(const Matrix3& tm) {
  const Point3 r0 = tm.GetRow(0), r1 = tm.GetRow(1), r2 = tm.GetRow(2);
  const float tol =
      kOrthogonalTolerance * (LengthSquared(r0) + LengthSquared(r1) + LengthSquared(r2));
  if (std::fabs(DotProd(r0, r1)) <= tol && std::fabs(DotProd(r0, r2)) <= tol &&
      std::fabs(DotProd(r1, r2)) <= tol) {
    return Quat(tm);
  }
  Matrix3 frame = tm;
  frame.NoTrans();
  frame.Orthogonalize();
  return Normalize(Quat(frame));
}

// v in the frame of the rotation q: v times the transpose of q's (orthonormal) matrix.
Point3 IntoFrame(const Point3& v, const Quat& q) {
  const Matrix3 m = MatrixOf(q);
  return {DotProd(v, m.GetRow(0)), DotProd(v, m.GetRow(1)), DotProd(v, m.GetRow(2))};
}

// The cubic Bezier (1-u)^3 P0 + 3 (1-u)^2 u P1 + 3 (1-u) u^2 P2 + u^3 P3.
Point3 BezierAt(const Point3* c, float u) {
  const float v = 1.0f - u;
  return c[0] * (v * v * v) + c[1] * (3.0f * v * v * u) + c[2] * (3.0f * v * u * u) +
         c[3] * (u * u * u);
}

// Lerp of a per-point table at span k and fraction v; past the table's end (the closing span of
// a loop, a lone point) the last entry stands.
float TableAt(const std::vector<float>& table, int k, float v) {
  const int n = static_cast<int>(table.size());
  if (n == 0) return 0.0f;
  if (k + 1 < n) return table[k] + (table[k + 1] - table[k]) * v;
  return table[n - 1];
}

}  // namespace

// The curve's construction over the workspace: tangents, samples, wave and lengths.
struct CurveBuilder {
  std::span<const CurveIKPoint> pts;
  CurveIKWorkspace& ws;
  int n;
  bool closed;

  // A neighbour's index, wrapped on a loop; -1 when it lies beyond an open curve's end.
  int Neighbour(int j) const {
    if (closed) return ((j % n) + n) % n;
    return j >= 0 && j < n ? j : -1;
  }
  const CurveIKPoint& Point(int j) const { return pts[static_cast<size_t>(j % n)]; }
  Point3 Pos(int j) const { return ws.point_tms_[static_cast<size_t>(j)].GetTrans(); }

  bool ReadOut(int j, Point3& t) const {
    const CurveIKPoint& p = Point(j);
    if (p.use_tangent_nodes) {
      if (!p.has_out_node) return false;
      t = p.out_node_cs;
      return true;
    }
    t = p.inner_out * ws.point_tms_[static_cast<size_t>(j)];
    return true;
  }
  bool ReadIn(int j, Point3& t) const {
    const CurveIKPoint& p = Point(j);
    if (p.use_tangent_nodes) {
      if (!p.has_in_node) return false;
      t = p.in_node_cs;
      return true;
    }
    t = p.inner_in * ws.point_tms_[static_cast<size_t>(j)];
    return true;
  }

  // P1 of the span a..b for point a of type `type`; false when a counts as Corner.
  bool OutTangent(int a, int b, CurvePointType type, Point3& p1) const {
    const Point3 p0 = Pos(a), p3 = Pos(b);
    switch (type) {
      case CurvePointType::Smooth:
        if (const int prev = Neighbour(a - 1); prev >= 0) {
          p1 = p0 + (p3 - Pos(prev)) * kCurveCentredTangent;
          return true;
        }
        break;
      case CurvePointType::Bezier:
      case CurvePointType::BezierCorner:
        if (ReadOut(a, p1)) return true;
        break;
      case CurvePointType::Corner:
        break;
    }
    if (const int next = Neighbour(b + 1); next >= 0) {
      p1 = p0 + (p3 - (p0 * 0.75f + Pos(next) * 0.25f)) * kCurveOneSidedTangent;
    } else {
      p1 = p0 + (p3 - p0) * kCurveChordTangent;
    }
    return false;
  }

  // P2 of the span a..b for point b of type `type`; false when b counts as Corner.
  bool InTangent(int a, int b, CurvePointType type, Point3& p2) const {
    const Point3 p0 = Pos(a), p3 = Pos(b);
    Point3 t;
    switch (type) {
      case CurvePointType::Smooth:
        if (const int next = Neighbour(b + 1); next >= 0) {
          p2 = p3 + (p0 - Pos(next)) * kCurveCentredTangent;
          return true;
        }
        break;
      case CurvePointType::Bezier:
        // The in tangent mirrors the out tangent, so both stay on one line.
        if (ReadOut(b, t)) {
          p2 = p3 * 2.0f - t;
          return true;
        }
        break;
      case CurvePointType::BezierCorner:
        if (ReadIn(b, p2)) return true;
        break;
      case CurvePointType::Corner:
        break;
    }
    if (const int prev = Neighbour(a - 1); prev >= 0) {
      p2 = p3 + (p0 - (p3 * 0.75f + Pos(prev) * 0.25f)) * kCurveOneSidedTangent;
    } else {
      p2 = p3 + (p0 - p3) * kCurveChordTangent;
    }
    return false;
  }

  void MeasureLengths() {
    float total = 0.0f;
    for (size_t i = 0; i < ws.samples_.size(); ++i) {
      if (i > 0) total += Length(ws.samples_[i].pos - ws.samples_[i - 1].pos);
      ws.samples_[i].length = total;
    }
    ws.curve_length_ = total;
  }

  // Adds the wave to the sample positions; tangents and lengths are those before the wave.
  void AddWave(const CurveIKParams& p) {
    const float wave_length = SafeDiv(1.0f, p.wave_length, kCurveMinLength);
    std::vector<CurveSample>& s = ws.samples_;
    Point3 prev_orig = s.empty() ? Point3() : s[0].pos;
    for (size_t j = 0; j < s.size(); ++j) {
      const Point3 orig = s[j].pos;
      const Point3 tangent = j + 1 < s.size() ? s[j + 1].pos - orig : orig - prev_orig;
      prev_orig = orig;
      const int k = s[j].span;
      const float u = static_cast<float>(s[j].step) / static_cast<float>(ws.steps_);
      const float twist_here = TableAt(ws.twists_, k, u);
      const float amp_here = TableAt(ws.amplitudes_, k, u);
      Quat q;
      if (p.use_points_rotation) {
        const Quat frame = PointRotation(k, u);
        q = AimX(IntoFrame(tangent, frame)) * frame;
      } else {
        q = AimX(tangent);
      }
      Matrix3 m = MatrixOf(q);
      m.PreRotateX(p.wave_orientation + twist_here);
      const float value = std::sin((p.wave_phase - s[j].length * wave_length) * kTwoPi) *
                          p.wave_amplitude * amp_here;
      s[j].pos += VectorTransform(m, Point3(0.0f, 0.0f, value));
    }
  }

  // The points' rotation interpolated along span k at fraction v (clamped to the span).
  Quat PointRotation(int k, float v) const {
    const std::vector<Quat>& r = ws.point_rots_;
    const size_t a = static_cast<size_t>(std::min(k, static_cast<int>(r.size()) - 1));
    if (a + 1 >= r.size()) return r[a];
    Quat b = r[a + 1];
    MakeClosest(b, r[a]);
    return Slerp(r[a], b, std::clamp(v, 0.0f, 1.0f));
  }

  Point3 PointScale(int k, float v) const {
    const std::vector<Point3>& s = ws.point_scales_;
    const size_t a = static_cast<size_t>(std::min(k, static_cast<int>(s.size()) - 1));
    if (a + 1 >= s.size()) return s[a];
    return s[a] + (s[a + 1] - s[a]) * std::clamp(v, 0.0f, 1.0f);
  }

  void Build(const CurveIKParams& p) {
    const int ext = n + (closed ? 1 : 0);
    ws.point_tms_.resize(static_cast<size_t>(ext));
    ws.point_rots_.resize(static_cast<size_t>(ext));
    ws.point_scales_.resize(static_cast<size_t>(ext));
    for (int j = 0; j < ext; ++j) {
      const Matrix3& tm = pts[static_cast<size_t>(j % n)].tm_cs;
      ws.point_tms_[static_cast<size_t>(j)] = tm;
      ws.point_rots_[static_cast<size_t>(j)] = FrameRotation(tm);
      ws.point_scales_[static_cast<size_t>(j)] = GetScaleLengths(tm);
    }
    ws.twists_.resize(static_cast<size_t>(n));
    ws.amplitudes_.resize(static_cast<size_t>(n));
    for (int j = 0; j < n; ++j) {
      float tw = Finite(pts[static_cast<size_t>(j)].twist, 0.0f);
      if (p.additive_twist && j > 0) tw += ws.twists_[static_cast<size_t>(j - 1)];
      ws.twists_[static_cast<size_t>(j)] = tw;
      ws.amplitudes_[static_cast<size_t>(j)] =
          Finite(pts[static_cast<size_t>(j)].wave_amplitude, 0);
    }

    const int spans = ext - 1;
    ws.span_count_ = spans;
    ws.controls_.resize(static_cast<size_t>(4 * spans));
    ws.curved_.resize(static_cast<size_t>(spans));
    size_t sample_count = 1;  // the closing sample
    for (int i = 0; i < spans; ++i) {
      Point3* c = &ws.controls_[static_cast<size_t>(4 * i)];
      c[0] = Pos(i);
      c[3] = Pos(i + 1);
      const bool out_curved = OutTangent(i, i + 1, TypeOf(Point(i).type), c[1]);
      const bool in_curved = InTangent(i, i + 1, TypeOf(Point(i + 1).type), c[2]);
      const bool curved = out_curved || in_curved || p.use_wave;
      ws.curved_[static_cast<size_t>(i)] = curved ? 1 : 0;
      sample_count += curved ? static_cast<size_t>(ws.steps_) : 1;
    }
    ws.samples_.resize(sample_count);
    CurveSample* out = ws.samples_.data();
    const float inv_steps = 1.0f / static_cast<float>(ws.steps_);
    for (int i = 0; i < spans; ++i) {
      const Point3* c = &ws.controls_[static_cast<size_t>(4 * i)];
      if (!ws.curved_[static_cast<size_t>(i)]) {
        *out++ = {0.0f, c[0], i, 0, true};
        continue;
      }
      for (int k = 0; k < ws.steps_; ++k) {
        *out++ = {0.0f, BezierAt(c, static_cast<float>(k) * inv_steps), i, k, false};
      }
    }
    *out = {0.0f, Pos(spans), std::max(spans - 1, 0), ws.steps_, false};
    MeasureLengths();
    ws.waved_ = p.use_wave && p.wave_amplitude != 0.0f && spans > 0;
    if (ws.waved_) {
      AddWave(p);
      MeasureLengths();
    }
    ws.point_lengths_.resize(static_cast<size_t>(spans + 1));
    for (const CurveSample& s : ws.samples_) {
      if (s.step == 0) ws.point_lengths_[static_cast<size_t>(s.span)] = s.length;
    }
    ws.point_lengths_[static_cast<size_t>(spans)] = ws.curve_length_;
  }

  // ArcParam: the segment (sample s to s + 1) and the fraction in it of the curve parameter u.
  // Beyond the ends the first or last segment is extended: f below 0 or above 1.
  void ArcParam(float u, float slide, int& seg, float& f) const {
    const std::vector<CurveSample>& s = ws.samples_;
    const int last = static_cast<int>(s.size()) - 1;
    const float c = ws.curve_length_;
    if (u <= 0.0f) {
      seg = 0;
      f = SafeDiv(c, s[1].length - s[0].length, kCurveMinLength) * u;
      return;
    }
    if (u >= 1.0f) {
      seg = last - 1;
      f = 1.0f + SafeDiv(c, s[last].length - s[last - 1].length, kCurveMinLength) * (u - 1.0f);
      return;
    }
    float x = u * c;
    if (slide < 1.0f) {
      // Spaced by control point: the length at u's place when each span takes an equal share.
      const float y = static_cast<float>(ws.span_count_) * u;
      const int a = std::clamp(static_cast<int>(std::floor(y)), 0, ws.span_count_ - 1);
      const float l0 = ws.point_lengths_[static_cast<size_t>(a)];
      const float l1 = ws.point_lengths_[static_cast<size_t>(a + 1)];
      const float at = l0 + (l1 - l0) * (y - static_cast<float>(a));
      x = (x - at) * slide + at;
    }
    const auto it = std::upper_bound(s.begin(), s.end(), x,
                                     [](float v, const CurveSample& e) { return v < e.length; });
    if (it == s.end()) {  // nothing longer: a curve of no length
      seg = 0;
      f = u;
      return;
    }
    seg = std::max(static_cast<int>(it - s.begin()) - 1, 0);
    f = SafeDiv(x - s[static_cast<size_t>(seg)].length,
                s[static_cast<size_t>(seg) + 1].length - s[static_cast<size_t>(seg)].length,
                kCurveMinLength);
  }

  // The position at segment seg, fraction f: on the Bezier of a curved span (its end tangents
  // beyond the curve's ends), else on the sample line.
  Point3 PositionAt(int seg, float f) const {
    const CurveSample& s0 = ws.samples_[static_cast<size_t>(seg)];
    const CurveSample& s1 = ws.samples_[static_cast<size_t>(seg) + 1];
    const Point3 line = s0.pos + (s1.pos - s0.pos) * f;
    if (s0.corner || ws.waved_ || !ws.curved_[static_cast<size_t>(s0.span)]) return line;
    const Point3* c = &ws.controls_[static_cast<size_t>(4 * s0.span)];
    const float w = (static_cast<float>(s0.step) + f) / static_cast<float>(ws.steps_);
    if (w < 0.0f) {
      const Point3 d = (c[1] - c[0]) * 3.0f;
      return LengthSquared(d) < kMinDerivativeSquared ? line : c[0] + d * w;
    }
    if (w > 1.0f) {
      const Point3 d = (c[3] - c[2]) * 3.0f;
      return LengthSquared(d) < kMinDerivativeSquared ? line : c[3] + d * (w - 1.0f);
    }
    return BezierAt(c, w);
  }
};

void SolveCurveIK(const CurveIKInput& in, CurveIKWorkspace& ws, std::span<Matrix3> joints_ws) {
  const size_t joint_count = joints_ws.size();
  if (in.joint_percents.size() != joint_count || in.joint_squash.size() != joint_count) return;

  CurveIKParams p = in.params;
  p.percent = Finite(p.percent, 0.0f);
  p.rotation = Finite(p.rotation, 0.0f);
  p.twist = Finite(p.twist, 0.0f);
  p.manual_stretch = Finite(p.manual_stretch, 1.0f);
  p.auto_stretch = Finite(p.auto_stretch, 1.0f);
  p.squash = Finite(p.squash, 0.0f);
  p.backwards = Finite(p.backwards, 0.0f);
  p.slide_joints = Finite(p.slide_joints, 1.0f);
  p.chain_length = Finite(p.chain_length, 0.0f);
  p.wave_amplitude = Finite(p.wave_amplitude, 0.0f);
  p.wave_length = Finite(p.wave_length, 0.0f);
  p.wave_orientation = Finite(p.wave_orientation, 0.0f);
  p.wave_phase = Finite(p.wave_phase, 0.0f);

  ws.steps_ = std::max(p.steps, 1);
  const int n = static_cast<int>(in.points.size());
  if (n < 1) {
    ws.samples_.clear();
    ws.point_lengths_.clear();
    ws.controls_.clear();
    ws.point_tms_.clear();
    ws.curve_length_ = 0.0f;
    ws.span_count_ = 0;
    return;
  }
  const bool closed = p.closed && n >= 2;  // a lone point has no loop to close
  CurveBuilder b{in.points, ws, n, closed};
  b.Build(p);
  if (joint_count == 0) return;

  // Joints: the share of the curve the chain covers, and where it starts.
  const float c = ws.curve_length_;
  const float ln = p.chain_length, as = p.auto_stretch, ms = p.manual_stretch;
  const float fit = SafeDiv(ln, c, kCurveMinLength) * (1.0f - as) + as;
  const float scale = fit * ms;
  const float offset = (1.0f - scale) * p.backwards + p.percent;

  ws.joint_f_.resize(joint_count);
  ws.joint_seg_.resize(joint_count);
  ws.joint_rot_.resize(joint_count);
  const bool single = ws.samples_.size() < 2;
  for (size_t i = 0; i < joint_count; ++i) {
    float u = scale * Finite(in.joint_percents[i], 0.0f) + offset;
    if (!std::isfinite(u)) u = 0.0f;
    if (closed) u -= std::floor(u);
    int seg = 0;
    float f = 0.0f;
    if (!single) b.ArcParam(u, p.slide_joints, seg, f);
    ws.joint_seg_[i] = seg;
    ws.joint_f_[i] = f;
    Matrix3& m = joints_ws[i];
    m.IdentityMatrix();
    m.SetTrans(single ? ws.samples_[0].pos : b.PositionAt(seg, f));
  }

  // Orientation: the points' rotation along the span, then the curve's direction.
  const auto span_and_v = [&](size_t i, int& k, float& v) {
    if (single) {
      k = 0;
      v = 0.0f;
      return;
    }
    const CurveSample& s0 = ws.samples_[static_cast<size_t>(ws.joint_seg_[i])];
    k = s0.span;
    v = s0.corner ? ws.joint_f_[i]
                  : (static_cast<float>(s0.step) + ws.joint_f_[i]) / static_cast<float>(ws.steps_);
  };
  const CurveFollow follow = static_cast<CurveFollow>(std::clamp(p.follow_type, 0, 2));
  for (size_t i = 0; i < joint_count; ++i) {
    int k = 0;
    float v = 0.0f;
    span_and_v(i, k, v);
    const Quat points_q = p.use_points_rotation ? b.PointRotation(k, v) : Quat();
    Point3 dir;
    bool aim = false;
    if (follow == CurveFollow::Child && joint_count > 1) {
      if (i + 1 < joint_count) {
        dir = joints_ws[i + 1].GetTrans() - joints_ws[i].GetTrans();
        aim = true;
      } else {
        ws.joint_rot_[i] = ws.joint_rot_[i - 1];
        continue;
      }
    } else if (follow != CurveFollow::None && !single) {
      const size_t seg = static_cast<size_t>(ws.joint_seg_[i]);
      dir = ws.samples_[seg + 1].pos - ws.samples_[seg].pos;
      aim = true;
    }
    ws.joint_rot_[i] = aim ? AimX(IntoFrame(dir, points_q)) * points_q : points_q;
  }

  // Twist, aim axis, point scale, squash, and into world space.
  const Matrix3 joint_axes = AxisMatrix(p.aim_axis, p.aim_axis_flip);
  const bool relabel = p.aim_axis != 0 || p.aim_axis_flip;
  const float squash_base = std::max(
      SafeDiv(ln, ms * c, kCurveMinLength) * as + SafeDiv(1.0f, ms, kCurveMinLength) * (1.0f - as),
      kMinSquashBase);
  for (size_t i = 0; i < joint_count; ++i) {
    int k = 0;
    float v = 0.0f;
    span_and_v(i, k, v);
    const float t_i = Finite(in.joint_percents[i], 0.0f);
    Matrix3& m = joints_ws[i];
    const Point3 pos = m.GetTrans();
    // The twist about the joint's X goes first: XRotation(a) * q is PreRotateX(a) on q's matrix.
    const float base = p.rotation + p.twist * std::clamp(t_i, 0.0f, 1.0f);
    const float twist = base + TableAt(ws.twists_, k, std::clamp(v, 0.0f, 1.0f));
    m = MatrixOf(XRotation(twist) * ws.joint_rot_[i]);
    m.SetTrans(pos);
    if (relabel) m = joint_axes * m;
    if (p.use_points_scale) m.PreScale(b.PointScale(k, v));
    if (p.squash != 0.0f) {
      // The joint's weight has taken the chain's squash once already; the exponent takes it
      // again, so the response grows with its square.
      const float weight = Finite(in.joint_squash[i], 0.0f) * p.squash;
      const float e = p.squash * weight;
      const float factor = std::pow(squash_base, e);
      if (std::isfinite(factor)) m.PreScale(Point3(factor, factor, factor));
    }
    m = m * in.space_tm;
  }
}

void SmoothPointTangents(std::span<const Matrix3> point_tms,
                         bool closed,
                         std::span<Point3> in_local,
                         std::span<Point3> out_local) {
  const size_t count = point_tms.size();
  if (in_local.size() != count || out_local.size() != count || count == 0) return;
  const int n = static_cast<int>(count);
  if (n == 1) {
    in_local[0] = out_local[0] = Point3();
    return;
  }
  closed = closed && n >= 2;
  CurveIKWorkspace ws;
  ws.point_tms_.assign(point_tms.begin(), point_tms.end());
  if (closed) ws.point_tms_.push_back(point_tms[0]);
  CurveBuilder b{{}, ws, n, closed};
  const int spans = n - (closed ? 0 : 1);
  for (int i = 0; i < n; ++i) {
    const Point3 pos = point_tms[static_cast<size_t>(i)].GetTrans();
    Point3 out, in;
    const bool has_out = i < spans;
    const bool has_in = closed || i > 0;
    if (has_out) b.OutTangent(i, i + 1, CurvePointType::Smooth, out);
    if (has_in) {
      const int a = closed && i == 0 ? n - 1 : i - 1;
      const int at = closed && i == 0 ? n : i;
      b.InTangent(a, at, CurvePointType::Smooth, in);
    }
    if (!has_out) out = pos * 2.0f - in;
    if (!has_in) in = pos * 2.0f - out;
    const Matrix3 inv = Inverse(point_tms[static_cast<size_t>(i)]);
    in_local[static_cast<size_t>(i)] = in * inv;
    out_local[static_cast<size_t>(i)] = out * inv;
  }
}

}  // namespace marvolith
