// Copyright Marvolith contributors.
// Spline shapes: SplineKnot, Spline3D (a chain of cubic Bezier segments through knots) and
// BezierShape (a set of splines). Plain values: copyable, comparable, saved as flat chunks.
#pragma once

#include <deque>
#include <vector>

#include "host/base/ids.h"
#include "host/math/box3.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"

class ISave;
class ILoad;

// Knot types. The numbers are the host's and are stored in files.
/// Smooth: the handles follow the neighbours (tangent parallel to next - previous).
inline constexpr int KTYPE_AUTO = 0;
/// Corner: each handle points a third of the way to its neighbour, so that the segments on both
/// sides leave the knot straight.
inline constexpr int KTYPE_CORNER = 1;
/// Bezier: the handles as given, kept in line by editors.
inline constexpr int KTYPE_BEZIER = 2;
/// Bezier corner: the handles as given, independent of each other.
inline constexpr int KTYPE_BEZIER_CORNER = 3;

// Line types: of the segment that starts at a knot.
inline constexpr int LTYPE_CURVE = 0;
/// The segment is a straight line whatever the knot types at its ends.
inline constexpr int LTYPE_LINE = 1;

// Parameter kinds of InterpCurve3D and TangentCurve3D.
/// The parameter runs evenly over the segments: segment i covers [i / n, (i + 1) / n).
inline constexpr int PARAM_SIMPLE = 0;
/// The parameter is the fraction of the spline's length.
inline constexpr int PARAM_NORMALIZED = 1;

/// One knot: a point with an incoming and an outgoing handle, both absolute positions.
class SplineKnot {
 public:
  SplineKnot() = default;
  /// k is a KTYPE_, l an LTYPE_; in and out are the handle positions.
  SplineKnot(int k, int l, const Point3& p, const Point3& in, const Point3& out)
      : ktype_(k), ltype_(l), point_(p), in_(in), out_(out) {}

  int Ktype() const { return ktype_; }
  void SetKtype(int k) { ktype_ = k; }
  int Ltype() const { return ltype_; }
  void SetLtype(int l) { ltype_ = l; }
  const Point3& Knot() const { return point_; }
  void SetKnot(const Point3& p) { point_ = p; }
  const Point3& InVec() const { return in_; }
  void SetInVec(const Point3& p) { in_ = p; }
  const Point3& OutVec() const { return out_; }
  void SetOutVec(const Point3& p) { out_ = p; }

  bool operator==(const SplineKnot&) const = default;

 private:
  int ktype_ = KTYPE_CORNER;
  int ltype_ = LTYPE_CURVE;
  Point3 point_;
  Point3 in_;
  Point3 out_;
};

/// A spline: knots joined by cubic Bezier segments, open or closed. Segment i runs from knot i
/// (its point and out handle) to knot i + 1 (its in handle and point); a closed spline adds the
/// segment from the last knot back to the first. A spline of fewer than two knots has no
/// segment.
///
/// The handles of KTYPE_AUTO and KTYPE_CORNER knots, and those on LTYPE_LINE segments, are
/// computed from the points after every change (ComputeBezPoints), so handles set on such knots
/// do not hold. Indices out of range are ignored by setters; getters answer the origin or -1.
class Spline3D {
 public:
  int KnotCount() const { return static_cast<int>(knots_.size()); }
  /// KnotCount() - 1 when open, KnotCount() when closed; 0 below two knots.
  int Segments() const;
  bool Closed() const { return closed_; }
  void SetClosed(bool closed = true);
  void SetOpen() { SetClosed(false); }

  /// Inserts k before index where (-1 or KnotCount() appends); answers its index, -1 for a bad
  /// where.
  int AddKnot(const SplineKnot& k, int where = -1);
  /// Removes knot where; false when out of range.
  bool DeleteKnot(int where);
  /// Removes every knot and opens the spline.
  void NewSpline();

  SplineKnot GetKnot(int i) const;
  void SetKnot(int i, const SplineKnot& k);
  Point3 GetKnotPoint(int i) const;
  void SetKnotPoint(int i, const Point3& p);
  Point3 GetInVec(int i) const;
  void SetInVec(int i, const Point3& p);
  Point3 GetOutVec(int i) const;
  void SetOutVec(int i, const Point3& p);
  int GetKnotType(int i) const;
  void SetKnotType(int i, int type);
  int GetLineType(int i) const;
  void SetLineType(int i, int type);

  /// Recomputes the computed handles (see the class comment). Every change calls it; callers
  /// need not.
  void ComputeBezPoints();

  /// The point at t (0..1, clamped) of segment; the first knot's point (or the origin) when the
  /// segment does not exist.
  Point3 InterpBezier3D(int segment, float t) const;
  /// The unit tangent at t of segment. Where the derivative vanishes (a handle on its knot) the
  /// direction is taken just inside the segment, then from the chord; a segment whose four
  /// points coincide answers the zero vector.
  Point3 TangentBezier3D(int segment, float t) const;
  /// The point at u (0..1, clamped) along the spline; ptype PARAM_SIMPLE or PARAM_NORMALIZED.
  /// A spline without segments answers its only knot, or the origin.
  Point3 InterpCurve3D(float u, int ptype = PARAM_SIMPLE) const;
  /// The unit tangent at u, as InterpCurve3D places it.
  Point3 TangentCurve3D(float u, int ptype = PARAM_SIMPLE) const;
  /// Length of segment, as the sum of kArcSteps chords (exact for straight segments).
  float SegmentLength(int segment) const;
  float SplineLength() const;
  /// Chords per segment of SegmentLength and of PARAM_NORMALIZED.
  static constexpr int kArcSteps = 64;

  /// The exact box of the curve (the segments' extremes, not their handles), each point taken
  /// through tm when given. A single knot gives a point; no knot an empty box.
  Box3 GetBBox(const Matrix3* tm = nullptr) const;
  /// Moves every point and handle by tm.
  void Transform(const Matrix3& tm);
  /// Appends the polyline of the curve: each segment in steps + 1 equal parameter steps
  /// (steps clamped to 0..100), knots included; a closed spline ends on its first point again.
  void Polyline(int steps, std::vector<Point3>& out) const;

  bool operator==(const Spline3D&) const = default;

 private:
  // The four control points of segment (which must exist).
  void SegmentPoints(int segment, Point3 (&p)[4]) const;
  // Segment and local parameter of u.
  void Locate(float u, int ptype, int& segment, float& t) const;

  std::vector<SplineKnot> knots_;
  bool closed_ = false;
};

/// A shape of splines. Splines are kept in a deque, so the pointer NewSpline answers stays
/// valid while other splines are added; deleting splines or NewShape invalidates it.
class BezierShape {
 public:
  /// Removes every spline.
  void NewShape() { splines_.clear(); }
  /// Appends an empty spline and answers it.
  Spline3D* NewSpline();
  /// Appends a copy of spline and answers it.
  Spline3D* AddSpline(const Spline3D& spline);
  int SplineCount() const { return static_cast<int>(splines_.size()); }
  /// Spline i, or null when out of range.
  Spline3D* GetSpline(int i);
  const Spline3D* GetSpline(int i) const;
  /// Removes spline i; false when out of range.
  bool DeleteSpline(int i);

  /// Interpolation steps per segment for drawing the shape (0..100, default 6).
  int steps = 6;

  /// Moves every spline by tm.
  void Transform(const Matrix3& tm);
  /// The union of the splines' exact boxes (through tm when given); empty without knots.
  Box3 GetBoundingBox(const Matrix3* tm = nullptr) const;

  /// Writes the shape as flat chunks, little-endian:
  ///   0x0001 steps (i32)
  ///   0x0010 one per spline (container):
  ///     0x0011 closed (u8, 0 or 1)
  ///     0x0012 knots, 44 bytes each: knot type (i32), line type (i32), point, in handle and
  ///            out handle (3 x 3 f32)
  IOResult Save(ISave* isave) const;
  /// Reads what Save wrote into this shape (emptied first). Unknown chunks are skipped.
  /// IO_ERROR, the shape left empty, for a chunk of the wrong size or a knot or line type
  /// outside the host's numbers.
  IOResult Load(ILoad* iload);

  bool operator==(const BezierShape&) const = default;

 private:
  std::deque<Spline3D> splines_;
};
