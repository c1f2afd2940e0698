// Copyright Marvolith contributors.
// The two back ends of the shape library: polylines for ControlHelper's drawing and splines of
// a BezierShape for ControlShape, plus a box of the polylines' points.
#pragma once

#include <span>
#include <vector>

#include "controls/shape_library.h"
#include "host/math/box3.h"
#include "host/objects/bezier_shape.h"

namespace marvolith {

/// Receives the polylines of a figure.
class PolylineOut {
 public:
  virtual ~PolylineOut() = default;
  /// points holds at least one point and lives until the call returns; closed joins the last
  /// point to the first.
  virtual void Polyline(std::span<const Point3> points, bool closed) = 0;
};

/// Flattens a figure into polylines, in figure space. A segment with a Bezier knot at either end
/// takes steps + 1 equal parameter steps; a segment between corner knots is straight and gives
/// its end point only. A full ring gives N = 4 * steps + 4 points (angle 2 pi i / N), a partial
/// ring the share of N its sweep covers (at least one segment). A closed polyline does not repeat
/// its first point.
///
/// Every polyline is built in points, the caller's array: it is cleared for each polyline and
/// grows (allocates) only when a polyline needs more than its capacity. Nothing else allocates.
class PolylineBuilder : public FigureSink {
 public:
  /// steps is clamped to 0..kMaxFigureSteps.
  PolylineBuilder(int steps, std::vector<Point3>& points, PolylineOut& out);

  void BeginPath() override;
  void AddKnot(const FigureKnot& knot) override;
  void EndPath(bool closed) override;
  void AddRing(const FigureRing& ring) override;

  /// Points of a full ring: 4 * steps + 4.
  static int RingPointCount(int steps);

 private:
  void Segment(const FigureKnot& a, const FigureKnot& b);

  int steps_;
  std::vector<Point3>& points_;
  PolylineOut& out_;
  FigureKnot first_;
  FigureKnot last_;
  int knot_count_ = 0;
};

/// Appends a figure's paths and rings as splines to a BezierShape, in figure space: corner knots
/// as KTYPE_CORNER, Bezier knots as KTYPE_BEZIER_CORNER with their handles. A full ring is four
/// Bezier knots a quarter turn apart with handles 0.552285 of the radius; a partial ring is cut
/// into pieces of at most a quarter turn, with handles 4/3 tan(a/4) for a piece of angle a.
class SplineBuilder : public FigureSink {
 public:
  explicit SplineBuilder(BezierShape& shape) : shape_(shape) {}

  void BeginPath() override;
  void AddKnot(const FigureKnot& knot) override;
  void EndPath(bool closed) override;
  void AddRing(const FigureRing& ring) override;

 private:
  BezierShape& shape_;
  Spline3D* spline_ = nullptr;
};

/// Rebuilds shape as the figure of in (the shape set): emptied, steps set from in.steps, then
/// every path and ring of the figure as splines. IKFK and types outside the enumeration leave
/// the shape empty.
void BuildFigureShape(const FigureInput& in, BezierShape& shape);

/// Grows a box by every polyline point, each taken through tm when one is set.
class PointBoxOut : public PolylineOut {
 public:
  PointBoxOut() = default;
  explicit PointBoxOut(const Matrix3& tm) : tm_(tm), has_tm_(true) {}
  void Polyline(std::span<const Point3> points, bool closed) override;
  const Box3& Box() const { return box_; }

 private:
  Box3 box_;
  Matrix3 tm_;
  bool has_tm_ = false;
};

/// The polylines of a figure kept as plain data (tests, pictures): one vector per polyline.
struct FigurePolylines : public PolylineOut {
  struct Line {
    std::vector<Point3> points;
    bool closed = false;
  };
  std::vector<Line> lines;
  void Polyline(std::span<const Point3> points, bool closed) override {
    lines.push_back({std::vector<Point3>(points.begin(), points.end()), closed});
  }
};

/// Generates in's figure in the helper set as polylines into out, with a point array of its own.
void BuildFigurePolylines(const FigureInput& in, PolylineOut& out);

}  // namespace marvolith
