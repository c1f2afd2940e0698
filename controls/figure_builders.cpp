// Copyright Marvolith contributors.
#include "controls/figure_builders.h"

#include <algorithm>
#include <cmath>

namespace marvolith {
namespace {

constexpr float kTwoPi = 2.0f * std::numbers::pi_v<float>;
constexpr float kQuarterTurn = 0.5f * std::numbers::pi_v<float>;

/// The point of ring at angle a: center + u cos a + v sin a - warp cos 2a.
Point3 RingPoint(const FigureRing& r, float a) {
  return r.center + r.u * std::cos(a) + r.v * std::sin(a) - r.warp * std::cos(2.0f * a);
}
/// Its derivative by a.
Point3 RingTangent(const FigureRing& r, float a) {
  return r.v * std::cos(a) - r.u * std::sin(a) + r.warp * (2.0f * std::sin(2.0f * a));
}

/// Cubic Bezier at t (de Casteljau-free Bernstein form).
Point3 Cubic(const Point3& p0, const Point3& p1, const Point3& p2, const Point3& p3, float t) {
  const float s = 1.0f - t;
  return p0 * (s * s * s) + p1 * (3.0f * s * s * t) + p2 * (3.0f * s * t * t) + p3 * (t * t * t);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Polylines.

PolylineBuilder::PolylineBuilder(int steps, std::vector<Point3>& points, PolylineOut& out)
    : steps_(std::clamp(steps, 0, kMaxFigureSteps)), points_(points), out_(out) {}

int PolylineBuilder::RingPointCount(int steps) {
  return 4 * std::clamp(steps, 0, kMaxFigureSteps) + 4;
}

void PolylineBuilder::BeginPath() {
  points_.clear();
  knot_count_ = 0;
}

void PolylineBuilder::Segment(const FigureKnot& a, const FigureKnot& b) {
  if (!a.bezier && !b.bezier) {
    points_.push_back(b.p);
    return;
  }
  // A corner end leaves straight towards a third of the way to the other end (host rule).
  const Point3 p1 = a.bezier ? a.out : a.p + (b.p - a.p) / 3.0f;
  const Point3 p2 = b.bezier ? b.in : b.p + (a.p - b.p) / 3.0f;
  const int n = steps_ + 1;
  for (int i = 1; i < n; ++i) {
    points_.push_back(Cubic(a.p, p1, p2, b.p, static_cast<float>(i) / static_cast<float>(n)));
  }
  points_.push_back(b.p);
}

void PolylineBuilder::AddKnot(const FigureKnot& knot) {
  if (knot_count_ == 0) {
    first_ = knot;
    points_.push_back(knot.p);
  } else {
    Segment(last_, knot);
  }
  last_ = knot;
  ++knot_count_;
}

void PolylineBuilder::EndPath(bool closed) {
  if (knot_count_ == 0) return;
  if (closed && knot_count_ > 1) {
    // The closing segment ends on the first point, which the polyline does not repeat.
    Segment(last_, first_);
    points_.pop_back();
  }
  out_.Polyline(points_, closed && knot_count_ > 1);
  points_.clear();
  knot_count_ = 0;
}

void PolylineBuilder::AddRing(const FigureRing& ring) {
  points_.clear();
  const int full = RingPointCount(steps_);
  if (ring.Full()) {
    for (int i = 0; i < full; ++i) {
      points_.push_back(
          RingPoint(ring, ring.start + kTwoPi * static_cast<float>(i) / static_cast<float>(full)));
    }
    out_.Polyline(points_, true);
  } else {
    const int segments = std::max(1, static_cast<int>(std::lround(static_cast<float>(full) *
                                                                  std::fabs(ring.sweep) / kTwoPi)));
    for (int i = 0; i <= segments; ++i) {
      points_.push_back(RingPoint(
          ring, ring.start + ring.sweep * static_cast<float>(i) / static_cast<float>(segments)));
    }
    out_.Polyline(points_, ring.chord);
  }
  points_.clear();
}

// ---------------------------------------------------------------------------------------------
// Splines.

void SplineBuilder::BeginPath() { spline_ = shape_.NewSpline(); }

void SplineBuilder::AddKnot(const FigureKnot& knot) {
  if (!spline_) BeginPath();
  spline_->AddKnot(knot.bezier
                       ? SplineKnot(KTYPE_BEZIER_CORNER, LTYPE_CURVE, knot.p, knot.in, knot.out)
                       : SplineKnot(KTYPE_CORNER, LTYPE_CURVE, knot.p, knot.p, knot.p));
}

void SplineBuilder::EndPath(bool closed) {
  if (!spline_) return;
  spline_->SetClosed(closed && spline_->KnotCount() > 1);
  spline_ = nullptr;
}

void SplineBuilder::AddRing(const FigureRing& ring) {
  Spline3D* s = shape_.NewSpline();
  const bool full = ring.Full();
  const float sweep = full ? kTwoPi : ring.sweep;
  const int pieces =
      std::max(1, static_cast<int>(std::ceil(std::fabs(sweep) / kQuarterTurn - 1e-4f)));
  const float da = sweep / static_cast<float>(pieces);
  // Handle length per unit of the angle derivative: 4/3 tan(da / 4), 0.552285 for a quarter.
  const float k = 4.0f / 3.0f * std::tan(da / 4.0f);
  const int knots = full ? pieces : pieces + 1;
  for (int i = 0; i < knots; ++i) {
    const float a = ring.start + da * static_cast<float>(i);
    const Point3 p = RingPoint(ring, a);
    const Point3 d = RingTangent(ring, a) * k;
    s->AddKnot(SplineKnot(KTYPE_BEZIER_CORNER, LTYPE_CURVE, p, p - d, p + d));
  }
  if (full) {
    s->SetClosed(true);
  } else if (ring.chord) {
    // The chord is straight: its handles lie on it.
    s->SetClosed(true);
    s->SetLineType(knots - 1, LTYPE_LINE);
  } else {
    s->SetInVec(0, s->GetKnotPoint(0));
    s->SetOutVec(knots - 1, s->GetKnotPoint(knots - 1));
  }
}

void BuildFigureShape(const FigureInput& in, BezierShape& shape) {
  shape.NewShape();
  shape.steps = std::clamp(in.steps, 0, 100);
  SplineBuilder builder(shape);
  GenerateFigure(in, FigureSet::kShape, builder);
}

// ---------------------------------------------------------------------------------------------

void PointBoxOut::Polyline(std::span<const Point3> points, bool) {
  for (const Point3& p : points) box_ += has_tm_ ? p * tm_ : p;
}

void BuildFigurePolylines(const FigureInput& in, PolylineOut& out) {
  std::vector<Point3> points;
  PolylineBuilder builder(in.steps, points, out);
  GenerateFigure(in, FigureSet::kHelper, builder);
}

}  // namespace marvolith
