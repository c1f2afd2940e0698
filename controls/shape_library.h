// Copyright Marvolith contributors.
// The shape library: the 43 wire figures of the control objects as a pure generator. A figure is
// described once, in one vocabulary of paths (corner and Bezier knots) and rings, and reaches
// one of two back ends: polylines for ControlHelper's drawing (figure_builders.h) or splines of
// a BezierShape for ControlShape.
#pragma once

#include <numbers>

#include "host/math/matrix3.h"
#include "host/math/point3.h"

namespace marvolith {

/// The figure types. The values are stored in scene files (parameter `type`).
enum class ControlType : int {
  None = 0,
  Cross = 1,
  CrossDiagonal = 2,
  CrossAsterisk = 3,
  AxisTripod = 4,
  Circle = 5,
  CircleHalf = 6,
  CirclePointy = 7,
  Donut = 8,
  Sphere = 9,
  SphereHalf = 10,
  Rectangle = 11,
  Box = 12,
  Triangle = 13,
  Cone = 14,
  Cylinder = 15,
  Arrow = 16,
  ArrowDouble = 17,
  ArrowCircle = 18,
  ArrowCylinder = 19,
  ArrowCross = 20,
  ArrowMixed = 21,
  CrossFlat = 22,
  Drop = 23,
  Star = 24,
  StarSmooth = 25,
  Peanut = 26,
  Gear = 27,
  Character = 28,
  Eye = 29,
  Lips = 30,
  Hand = 31,
  Foot = 32,
  Shoe = 33,
  FourArrows = 34,
  FourPyramids = 35,
  FourTriangles = 36,
  IKFK = 37,
  SphereIcosa = 38,
  SphereGeo = 39,
  Face = 40,
  Nose = 41,
  Diamond = 42,
};

/// Number of figure types; valid values are 0 .. kControlTypeCount - 1.
inline constexpr int kControlTypeCount = 43;

/// The script name of type ("Sphere"); null outside the enumeration.
const char* ControlTypeName(int type);

/// How a figure reads its extents.
enum class SizeRule {
  kSizeOnly,  ///< always `size`, whatever `uniform` says
  kPlane,     ///< `size`, or `width` (X), `length` (Y) and their mean (Z)
  kSolid,     ///< `size`, or `width` (X), `length` (Y) and `height` (Z)
};
/// The size rule of type; kSizeOnly outside the enumeration.
SizeRule GetSizeRule(int type);

/// Most `steps` a figure takes; larger values are clamped.
inline constexpr int kMaxFigureSteps = 999;
/// Shaft thickness limit of the arrows, so that a thickness of 1 still leaves a head.
inline constexpr float kArrowThicknessLimit = 0.999f;
/// Tangent length of a Bezier quarter circle of radius 1: 4/3 tan(pi/8).
inline constexpr float kQuarterArcTangent = 0.552285f;

/// What a figure is built from: the values of the control objects' parameter block, in stored
/// units (lengths in world units, percentages as fractions). Values outside their ranges are
/// clamped by the generator: lengths below 0 (and NaN) count as 0, `thickness` is taken in
/// 0..1, `warp_amount` in -1..1, `steps` in 0..kMaxFigureSteps, `warp_axis` in 0..2.
struct FigureInput {
  int type = static_cast<int>(ControlType::Sphere);
  bool uniform = true;
  float size = 20.0f;
  float length = 20.0f;
  float width = 20.0f;
  float height = 20.0f;
  float thickness = 0.5f;
  float corner = 0.0f;
  int steps = 6;
  float warp_amount = 0.0f;
  int warp_axis = 0;
  bool offset_line = false;
  bool face_camera = false;
  /// Factor on the figure's extents (ControlShape's `scale`); the offset line is not scaled.
  float scale = 1.0f;
  /// The object's pivot in figure space (the origin before gizmo and axis), where the offset line
  /// starts.
  Point3 pivot;
};

/// The half extents of the figure by the size rule: X, Y and Z scale of the unit figure, each
/// >= 0 (times `scale`).
Point3 FigureHalfExtents(const FigureInput& in);

/// One knot of a figure path, in figure space. A corner knot ignores its handles: each segment
/// at it leaves straight towards a third of the way to its neighbour, as the host's corner knots
/// do, so a segment between two corner knots is a straight line. A Bezier knot keeps both
/// handles as given (absolute positions). The first knot's `in` handle serves the closing
/// segment of a closed path.
struct FigureKnot {
  Point3 p;
  Point3 in;
  Point3 out;
  bool bezier = false;
};

/// A ring: the points center + u cos(a) + v sin(a) - warp cos(2a) for a from start over sweep
/// (radians; a full turn is a closed ring). A partial ring is open, or closed by its chord.
struct FigureRing {
  Point3 center;
  Point3 u{1.0f, 0.0f, 0.0f};
  Point3 v{0.0f, 1.0f, 0.0f};
  Point3 warp;
  float start = 0.0f;
  float sweep = 2.0f * std::numbers::pi_v<float>;
  bool chord = false;
  /// True when sweep covers a whole turn.
  bool Full() const { return sweep >= 2.0f * std::numbers::pi_v<float> - 1e-6f; }
};

/// Receives a figure: paths of knots and rings, in figure space, in drawing order.
class FigureSink {
 public:
  virtual ~FigureSink() = default;
  virtual void BeginPath() = 0;
  virtual void AddKnot(const FigureKnot& knot) = 0;
  /// Ends the path begun last; a closed path joins its last knot to its first.
  virtual void EndPath(bool closed) = 0;
  virtual void AddRing(const FigureRing& ring) = 0;
};

/// Which generator set a figure is built for. The shape set has no generator for IKFK.
enum class FigureSet { kHelper, kShape };

/// Builds the figure of in.type into sink, scaled by FigureHalfExtents and followed by the offset
/// line when in.offset_line is on: four lines from the pivot to the quadrant points of the ring
/// for Circle and Donut without face_camera, else one line from the pivot to the figure's centre
/// (None draws that line alone). A type outside the enumeration gives nothing; so does IKFK in
/// the shape set. Allocates nothing.
void GenerateFigure(const FigureInput& in, FigureSet set, FigureSink& sink);

}  // namespace marvolith
