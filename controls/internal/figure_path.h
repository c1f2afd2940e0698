// Copyright Marvolith contributors.
// FigureWriter: how figure code speaks to a FigureSink. Figures are authored in unit space (the
// half extents are 1) with a small path language (move, line, curve, arc, close) and rings; the
// writer scales every point by the half extents and turns the commands into knots.
#pragma once

#include <cmath>
#include <span>

#include "controls/shape_library.h"

namespace marvolith::figure {

inline constexpr float kPi = std::numbers::pi_v<float>;
inline constexpr float kHalfPi = 0.5f * kPi;
inline constexpr float kTwoPi = 2.0f * kPi;

/// One command of a figure table in icon space (about -0.5 .. 0.5, twice as small as unit
/// space). kCurve takes two handles and an end point; kClose after a curve that ends on the
/// path's start closes with that curve.
struct PathCmd {
  enum Op { kMove, kLine, kCurve, kClose, kEnd } op;
  float x1 = 0, y1 = 0, x2 = 0, y2 = 0, x = 0, y = 0;
};
constexpr PathCmd M(float x, float y) { return {PathCmd::kMove, 0, 0, 0, 0, x, y}; }
constexpr PathCmd L(float x, float y) { return {PathCmd::kLine, 0, 0, 0, 0, x, y}; }
constexpr PathCmd C(float x1, float y1, float x2, float y2, float x, float y) {
  return {PathCmd::kCurve, x1, y1, x2, y2, x, y};
}
constexpr PathCmd Z() { return {PathCmd::kClose}; }
/// Ends an open path.
constexpr PathCmd E() { return {PathCmd::kEnd}; }

class FigureWriter {
 public:
  FigureWriter(FigureSink& sink, const Point3& half_extents) : sink_(sink), scale_(half_extents) {}

  /// A unit-space point in figure space (the transform set by SetTransform applies).
  Point3 S(const Point3& p) const { return P(p); }
  /// Applies a unit-space transform to the points that follow (identity to clear).
  void SetTransform(const Matrix3& tm) { tm_ = tm; }

  // Paths. Points are in unit space.
  /// Starts a path at p with a corner knot.
  void MoveTo(const Point3& p);
  /// Starts a path at p with a Bezier knot whose incoming handle (for the closing segment) is in.
  void MoveTo(const Point3& p, const Point3& in);
  /// A straight segment to p; a p on the current point is skipped.
  void LineTo(const Point3& p);
  void CurveTo(const Point3& c1, const Point3& c2, const Point3& p);
  /// An arc about center in the plane z = center.z from angle a0 to a1 (radians, either way) with
  /// radii rx and ry, in pieces of at most a quarter turn; the path must stand at its start.
  void ArcTo(const Point3& center, float rx, float ry, float a0, float a1);
  /// Closes with a straight segment to the start.
  void ClosePath();
  /// Closes with a curve to the start whose handle at the last knot is c1 (the handle at the
  /// start is the one given to MoveTo).
  void CloseCurve(const Point3& c1);
  /// Ends an open path.
  void EndPath();

  /// An open two-knot path from a to b.
  void Line(const Point3& a, const Point3& b);
  /// The same in figure space: neither transformed nor scaled.
  void RawLine(const Point3& a, const Point3& b);
  /// A path of corner knots through points.
  void Polygon(std::span<const Point3> points, bool closed);
  /// A ring; all fields in unit space.
  void Ring(const FigureRing& ring);
  /// A circle of radius r about center in the XY plane.
  void Circle(const Point3& center, float r) {
    FigureRing ring;
    ring.center = center;
    ring.u = {r, 0, 0};
    ring.v = {0, r, 0};
    Ring(ring);
  }

  /// Runs a table of commands in icon space (doubled into unit space).
  void Table(std::span<const PathCmd> cmds);

 private:
  Point3 P(const Point3& p) const { return tm_.PointTransform(p) * scale_; }
  Point3 V(const Point3& v) const { return tm_.VectorTransform(v) * scale_; }
  void Emit();

  FigureSink& sink_;
  Point3 scale_;
  Matrix3 tm_;
  FigureKnot pending_;  // the knot whose outgoing segment is not known yet (figure space)
  Point3 start_;        // the path's first point (figure space)
  bool open_ = false;
};

/// The fixed outlines (Character, Eye, Lips, Hand, Foot, Shoe, Face, Nose) in unit space; other
/// types write nothing.
void WriteIcon(ControlType type, FigureWriter& w);
/// The letters "IKFK" from straight strokes.
void WriteLettering(FigureWriter& w);

}  // namespace marvolith::figure
