// Copyright Marvolith contributors.
#include "controls/shape_library.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "controls/internal/figure_path.h"

namespace marvolith {
namespace {

using namespace figure;

constexpr std::array<const char*, kControlTypeCount> kTypeNames = {
    "None",         "Cross",         "CrossDiagonal", "CrossAsterisk", "AxisTripod",
    "Circle",       "CircleHalf",    "CirclePointy",  "Donut",         "Sphere",
    "SphereHalf",   "Rectangle",     "Box",           "Triangle",      "Cone",
    "Cylinder",     "Arrow",         "ArrowDouble",   "ArrowCircle",   "ArrowCylinder",
    "ArrowCross",   "ArrowMixed",    "CrossFlat",     "Drop",          "Star",
    "StarSmooth",   "Peanut",        "Gear",          "Character",     "Eye",
    "Lips",         "Hand",          "Foot",          "Shoe",          "FourArrows",
    "FourPyramids", "FourTriangles", "IKFK",          "SphereIcosa",   "SphereGeo",
    "Face",         "Nose",          "Diamond"};

/// Diagonals of the asterisk, shortened so that they end inside the sphere of the cross.
constexpr float kAsteriskDiagonal = 0.707107f;
/// Ring radius and spike of CirclePointy: a spike 0.7 radii long and 0.2 radii wide, the whole
/// figure scaled so that the spike's tip lands on the unit extent.
constexpr float kPointySpike = 0.7f;
constexpr float kPointyHalfWidth = 0.1f;
/// Arrow: the shaft takes 0.75 of the length, the head the rest; shaft width per thickness.
constexpr float kArrowShaftEnd = 0.5f;
constexpr float kArrowHeadHalfWidth = 0.5f;
constexpr float kArrowShaftWidth = 0.2f;
/// Bent arrows: radius of the bend (half the unit span), band and head half widths, head length.
constexpr float kBentRadius = 0.75f;
constexpr float kBentHalfWidth = 0.1f;
constexpr float kBentHeadHalfWidth = 0.25f;
constexpr float kBentHeadLength = 0.35f;
/// ArrowCross and CrossFlat: segment fractions of an arm.
constexpr float kArmThird = 0.33f;
constexpr float kArmTwoThirds = 0.66f;
/// Star: inner radius and the tip factor (width of a ray's flat tip per angle step).
constexpr float kStarInner = 0.4f;
constexpr float kStarTip = 0.0625f;
constexpr int kStarMinRays = 3;
/// StarSmooth: inner radius, handle length, angle step.
constexpr float kSmoothStarInner = 0.23f;
constexpr float kSmoothStarTangent = 0.125f;
constexpr float kSmoothStarStep = 0.785398f;
/// Gear: sectors around the rim, tooth depth per thickness, axle hole radius.
constexpr int kGearSectors = 40;
constexpr float kGearDepth = 0.5f;
constexpr float kGearHole = 0.3f;
/// Fourfold figures: each copy turns by this about Z.
constexpr float kFourfoldTurn = -1.5708f;
/// Icosahedron vertex rings: radius and height of the two rings of five.
constexpr float kIcosaRingRadius = 0.894428f;
constexpr float kIcosaRingHeight = 0.447214f;
constexpr float kGeoRing = 0.707107f;

float NonNegative(float v) { return v > 0.0f ? v : 0.0f; }  // NaN counts as 0
float ClampTo(float v, float lo, float hi) { return v > lo ? (v < hi ? v : hi) : lo; }

Point3 Polar(float r, float a, float z = 0.0f) { return {r * std::cos(a), r * std::sin(a), z}; }

// ---------------------------------------------------------------------------------------------
// Crosses.

void WriteCross(FigureWriter& w) {
  w.Line({-1, 0, 0}, {1, 0, 0});
  w.Line({0, -1, 0}, {0, 1, 0});
  w.Line({0, 0, -1}, {0, 0, 1});
}

void WriteDiagonals(FigureWriter& w, float k) {
  constexpr Point3 kDiagonals[4] = {{1, 1, 1}, {-1, 1, 1}, {1, -1, 1}, {1, 1, -1}};
  for (const Point3& d : kDiagonals) w.Line(d * -k, d * k);
}

void WriteTripod(FigureWriter& w) {
  w.Line({0, 0, 0}, {1, 0, 0});
  w.Line({0, 0, 0}, {0, 1, 0});
  w.Line({0, 0, 0}, {0, 0, 1});
}

// ---------------------------------------------------------------------------------------------
// Circles.

FigureRing PlaneRing(float r, float warp) {
  FigureRing ring;
  ring.u = {r, 0, 0};
  ring.v = {0, r, 0};
  ring.warp = {0, 0, warp};
  return ring;
}

void WriteCirclePointy(FigureWriter& w) {
  const float r = 1.0f / (1.0f + kPointySpike);
  const float half_angle = std::asin(kPointyHalfWidth);
  const float left = kHalfPi + half_angle;
  const float right = kHalfPi - half_angle + kTwoPi;
  w.MoveTo({0, 1, 0});
  w.LineTo(Polar(r, left));
  w.ArcTo({0, 0, 0}, r, r, left, right);
  w.ClosePath();
}

// ---------------------------------------------------------------------------------------------
// Spheres.

FigureRing AxisRing(const Point3& u, const Point3& v, const Point3& center = {}) {
  FigureRing ring;
  ring.center = center;
  ring.u = u;
  ring.v = v;
  return ring;
}

void WriteSphere(FigureWriter& w) {
  w.Ring(AxisRing({1, 0, 0}, {0, 1, 0}));
  w.Ring(AxisRing({0, 1, 0}, {0, 0, 1}));
  w.Ring(AxisRing({0, 0, 1}, {1, 0, 0}));
}

void WriteSphereHalf(FigureWriter& w) {
  w.Ring(AxisRing({1, 0, 0}, {0, 1, 0}));
  // The two upright rings cut at Z 0: half turns from one side over the top to the other.
  for (const Point3& u : {Point3(0, 1, 0), Point3(1, 0, 0)}) {
    FigureRing half = AxisRing(u, {0, 0, 1});
    half.sweep = kPi;
    w.Ring(half);
  }
}

void WriteConeOrCylinder(FigureWriter& w, bool cylinder) {
  w.Ring(AxisRing({1, 0, 0}, {0, 1, 0}, {0, 0, -1}));
  if (cylinder) w.Ring(AxisRing({1, 0, 0}, {0, 1, 0}, {0, 0, 1}));
  for (int i = 0; i < 4; ++i) {
    const Point3 rim = Polar(1.0f, kHalfPi * static_cast<float>(i));
    const Point3 bottom(rim.x, rim.y, -1);
    w.Line(bottom, cylinder ? Point3(rim.x, rim.y, 1) : Point3(0, 0, 1));
  }
}

void WriteDiamond(FigureWriter& w) {
  const Point3 squares[3][4] = {
      {{1, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {0, -1, 0}},
      {{1, 0, 0}, {0, 0, 1}, {-1, 0, 0}, {0, 0, -1}},
      {{0, 1, 0}, {0, 0, 1}, {0, -1, 0}, {0, 0, -1}},
  };
  for (const auto& square : squares) w.Polygon(square, true);
}

void WriteSphereIcosa(FigureWriter& w) {
  Point3 upper[5];
  Point3 lower[5];
  const float step = kTwoPi / 5.0f;
  for (int i = 0; i < 5; ++i) {
    const float a = step * static_cast<float>(i);
    upper[i] = Polar(kIcosaRingRadius, a, kIcosaRingHeight);
    lower[i] = Polar(kIcosaRingRadius, a + 0.5f * step, -kIcosaRingHeight);
  }
  w.Polygon(upper, true);
  w.Polygon(lower, true);
  for (int i = 0; i < 5; ++i) {
    w.Line({0, 0, 1}, upper[i]);
    w.Line(upper[i], lower[i]);
    w.Line(upper[(i + 1) % 5], lower[i]);
    w.Line(lower[i], {0, 0, -1});
  }
}

void WriteSphereGeo(FigureWriter& w) {
  WriteSphere(w);
  w.Ring(AxisRing({kGeoRing, kGeoRing, 0}, {0, 0, 1}));
  w.Ring(AxisRing({-kGeoRing, kGeoRing, 0}, {0, 0, 1}));
  w.Ring(AxisRing({kGeoRing, 0, 0}, {0, kGeoRing, 0}, {0, 0, kGeoRing}));
  w.Ring(AxisRing({kGeoRing, 0, 0}, {0, kGeoRing, 0}, {0, 0, -kGeoRing}));
}

// ---------------------------------------------------------------------------------------------
// Boxes.

void WriteRectangle(FigureWriter& w, const Point3& half, float corner) {
  // The corner radius is in world units: per axis in unit space, at most the whole half side.
  const float rx = half.x > 0.0f ? std::min(corner / half.x, 1.0f) : 0.0f;
  const float ry = half.y > 0.0f ? std::min(corner / half.y, 1.0f) : 0.0f;
  if (!(rx > 0.0f && ry > 0.0f)) {
    const Point3 square[4] = {{1, 1, 0}, {-1, 1, 0}, {-1, -1, 0}, {1, -1, 0}};
    w.Polygon(square, true);
    return;
  }
  const float kx = kQuarterArcTangent * rx;
  const float ky = kQuarterArcTangent * ry;
  // Counter-clockwise from the bottom of the right side; each corner a quarter ellipse.
  w.MoveTo({1, -1 + ry, 0}, {1, -1 + ry - ky, 0});
  w.LineTo({1, 1 - ry, 0});
  w.ArcTo({1 - rx, 1 - ry, 0}, rx, ry, 0.0f, kHalfPi);
  w.LineTo({-1 + rx, 1, 0});
  w.ArcTo({-1 + rx, 1 - ry, 0}, rx, ry, kHalfPi, kPi);
  w.LineTo({-1, -1 + ry, 0});
  w.ArcTo({-1 + rx, -1 + ry, 0}, rx, ry, kPi, 1.5f * kPi);
  w.LineTo({1 - rx, -1, 0});
  w.CloseCurve({1 - rx + kx, -1, 0});
}

/// The box bent along `axis`: every point moves along the bend axis by warp times the square of
/// its coordinate on `axis`, so edges along `axis` become parabolas (exact as cubic Beziers) and
/// the others stay straight.
class BoxBend {
 public:
  BoxBend(float warp, int axis) : warp_(warp), axis_(axis), bend_(axis == 2 ? 0 : 2) {}

  Point3 At(Point3 p) const {
    p[bend_] += warp_ * p[axis_] * p[axis_];
    return p;
  }
  /// True when the edge from a to b (unit corners) curves.
  bool Curved(const Point3& a, const Point3& b) const {
    return warp_ != 0.0f && a[axis_] != b[axis_];
  }
  /// The handles of the curved edge a -> b: a parabola's quadratic control value w s0 s1,
  /// raised to cubic.
  void Handles(const Point3& a, const Point3& b, Point3& c1, Point3& c2) const {
    const float s0 = a[axis_];
    const float s1 = b[axis_];
    c1 = a + (b - a) / 3.0f;
    c2 = b + (a - b) / 3.0f;
    c1[bend_] = a[bend_] + warp_ * (s0 * s0 + 2.0f * s0 * s1) / 3.0f;
    c2[bend_] = a[bend_] + warp_ * (2.0f * s0 * s1 + s1 * s1) / 3.0f;
  }

 private:
  float warp_;
  int axis_;
  int bend_;
};

void WriteBox(FigureWriter& w, float warp, int axis) {
  const BoxBend bend(warp, axis);
  for (float z : {1.0f, -1.0f}) {
    const Point3 c[4] = {{1, 1, z}, {-1, 1, z}, {-1, -1, z}, {1, -1, z}};
    Point3 c1;
    Point3 c2;
    if (bend.Curved(c[3], c[0])) {
      bend.Handles(c[3], c[0], c1, c2);
      w.MoveTo(bend.At(c[0]), c2);
    } else {
      w.MoveTo(bend.At(c[0]));
    }
    for (int i = 0; i < 3; ++i) {
      if (bend.Curved(c[i], c[i + 1])) {
        bend.Handles(c[i], c[i + 1], c1, c2);
        w.CurveTo(c1, c2, bend.At(c[i + 1]));
      } else {
        w.LineTo(bend.At(c[i + 1]));
      }
    }
    if (bend.Curved(c[3], c[0])) {
      bend.Handles(c[3], c[0], c1, c2);
      w.CloseCurve(c1);
    } else {
      w.ClosePath();
    }
  }
  for (const Point2& corner : {Point2(1, 1), Point2(-1, 1), Point2(-1, -1), Point2(1, -1)}) {
    const Point3 bottom(corner.x, corner.y, -1);
    const Point3 top(corner.x, corner.y, 1);
    if (bend.Curved(bottom, top)) {
      Point3 c1;
      Point3 c2;
      bend.Handles(bottom, top, c1, c2);
      w.MoveTo(bend.At(bottom));
      w.CurveTo(c1, c2, bend.At(top));
      w.EndPath();
    } else {
      w.Line(bend.At(bottom), bend.At(top));
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Arrows.

void WriteArrow(FigureWriter& w, float thickness) {
  const float hw = kArrowShaftWidth * std::min(thickness, kArrowThicknessLimit);
  const float head = kArrowHeadHalfWidth;
  if (hw <= 0.0f) {
    const Point3 outline[6] = {{0, -1, 0}, {0, kArrowShaftEnd, 0},     {head, kArrowShaftEnd, 0},
                               {0, 1, 0},  {-head, kArrowShaftEnd, 0}, {0, kArrowShaftEnd, 0}};
    w.Polygon(outline, true);
    return;
  }
  // A rounded tail: a half circle of the shaft's width, closed by the straight left side.
  const float cy = -1.0f + hw;
  const Point3 start(-hw, cy, 0);
  const Point3 last(-hw, kArrowShaftEnd, 0);
  w.MoveTo(start, start + (last - start) / 3.0f);
  w.ArcTo({0, cy, 0}, hw, hw, kPi, kTwoPi);
  w.LineTo({hw, kArrowShaftEnd, 0});
  w.LineTo({head, kArrowShaftEnd, 0});
  w.LineTo({0, 1, 0});
  w.LineTo({-head, kArrowShaftEnd, 0});
  w.LineTo(last);
  w.ClosePath();
}

void WriteArrowDouble(FigureWriter& w, float thickness) {
  const float hw = kArrowShaftWidth * std::min(thickness, kArrowThicknessLimit);
  const float head = kArrowHeadHalfWidth;
  const float neck = 0.5f;
  const Point3 outline[10] = {{hw, -neck, 0},   {hw, neck, 0},   {head, neck, 0}, {0, 1, 0},
                              {-head, neck, 0}, {-hw, neck, 0},  {-hw, -neck, 0}, {-head, -neck, 0},
                              {0, -1, 0},       {head, -neck, 0}};
  w.Polygon(outline, true);
}

/// A band bent around Z from a0 to a1 with a head at a1. flat: the band's width is radial, in
/// the XY plane; else it runs along Z on a cylinder of radius 1.
void WriteBentArrow(FigureWriter& w, bool flat) {
  const float a0 = -0.75f * kPi;
  const float a1 = 0.75f * kPi;
  const float r = flat ? kBentRadius : 1.0f;
  const float tip_angle = a1 + kBentHeadLength / r;
  // A point of the band: across is the offset across its width (radial or along Z).
  auto at = [&](float a, float across) {
    return flat ? Polar(r + across, a) : Polar(r, a, across);
  };
  const Point3 start = at(a0, kBentHalfWidth);
  const Point3 last = at(a0, -kBentHalfWidth);
  w.MoveTo(start, start + (last - start) / 3.0f);
  if (flat) {
    w.ArcTo({0, 0, 0}, r + kBentHalfWidth, r + kBentHalfWidth, a0, a1);
  } else {
    w.ArcTo({0, 0, kBentHalfWidth}, r, r, a0, a1);
  }
  w.LineTo(at(a1, kBentHeadHalfWidth));
  w.LineTo(at(tip_angle, 0.0f));
  w.LineTo(at(a1, -kBentHeadHalfWidth));
  w.LineTo(at(a1, -kBentHalfWidth));
  if (flat) {
    w.ArcTo({0, 0, 0}, r - kBentHalfWidth, r - kBentHalfWidth, a1, a0);
  } else {
    w.ArcTo({0, 0, -kBentHalfWidth}, r, r, a1, a0);
  }
  w.ClosePath();
}

void WriteArrowCross(FigureWriter& w) {
  const float a = kArmThird * kArmThird;  // half width of the shafts
  // One arm along +X in local coordinates, from the inner corner before it to its last point.
  const Point2 arm[6] = {{a, -a}, {kArmTwoThirds, -a},        {kArmTwoThirds, -kArmThird},
                         {1, 0},  {kArmTwoThirds, kArmThird}, {kArmTwoThirds, a}};
  Point3 outline[24];
  for (int k = 0; k < 4; ++k) {
    const float c = std::cos(kHalfPi * static_cast<float>(k));
    const float s = std::sin(kHalfPi * static_cast<float>(k));
    for (int i = 0; i < 6; ++i) {
      const Point2& p = arm[i];
      outline[6 * k + i] = {p.x * c - p.y * s, p.x * s + p.y * c, 0};
    }
  }
  w.Polygon(outline, true);
}

void WriteArrowMixed(FigureWriter& w) {
  // A turn about Z: an open arc with a barbed end.
  const float r = 0.8f;
  const float a0 = -0.25f * kPi;
  const float a1 = 1.25f * kPi;
  w.MoveTo(Polar(r, a0));
  w.ArcTo({0, 0, 0}, r, r, a0, a1);
  w.EndPath();
  const Point3 end = Polar(r, a1);
  const Point3 back = Point3(std::sin(a1), -std::cos(a1), 0) * 0.2f;  // against the turn
  const Point3 out = Polar(0.12f, a1);
  const Point3 barb[3] = {end + back + out, end, end + back - out};
  w.Polygon(barb, false);
  // A move along Z: the axis with a four-barbed head.
  w.Line({0, 0, 0}, {0, 0, 1});
  const Point3 head_x[3] = {{0.12f, 0, 0.8f}, {0, 0, 1}, {-0.12f, 0, 0.8f}};
  const Point3 head_y[3] = {{0, 0.12f, 0.8f}, {0, 0, 1}, {0, -0.12f, 0.8f}};
  w.Polygon(head_x, false);
  w.Polygon(head_y, false);
}

void WriteCrossFlat(FigureWriter& w) {
  const float a = kArmThird;
  const Point3 outline[12] = {{1, -a, 0},  {1, a, 0},   {a, a, 0},  {a, 1, 0},
                              {-a, 1, 0},  {-a, a, 0},  {-1, a, 0}, {-1, -a, 0},
                              {-a, -a, 0}, {-a, -1, 0}, {a, -1, 0}, {a, -a, 0}};
  w.Polygon(outline, true);
}

// ---------------------------------------------------------------------------------------------
// Stars.

void WriteDrop(FigureWriter& w, float warp) {
  // A bulb of radius 0.6 about (0, -0.4) and a tip that the warp leans sideways.
  const float r = 0.6f;
  const float cy = -0.4f;
  const float k = kQuarterArcTangent * r;
  const float tx = 0.5f * warp;
  const float shoulder = 0.15f;
  w.MoveTo({tx, 1, 0}, {tx - shoulder, 0.75f, 0});
  w.CurveTo({tx + shoulder, 0.75f, 0}, {r, cy + r * 0.66f, 0}, {r, cy, 0});
  w.CurveTo({r, cy - k, 0}, {k, cy - r, 0}, {0, cy - r, 0});
  w.CurveTo({-k, cy - r, 0}, {-r, cy - k, 0}, {-r, cy, 0});
  w.CloseCurve({-r, cy + r * 0.66f, 0});
}

void WriteStar(FigureWriter& w, int steps) {
  const int rays = std::max(steps, kStarMinRays);
  const float step = kTwoPi / static_cast<float>(rays);
  const float tip = kStarTip * step;
  for (int i = 0; i < rays; ++i) {
    const float a = kHalfPi + step * static_cast<float>(i);
    if (i == 0) {
      w.MoveTo(Polar(1.0f, a - tip));
    } else {
      w.LineTo(Polar(1.0f, a - tip));
    }
    w.LineTo(Polar(1.0f, a + tip));
    w.LineTo(Polar(kStarInner, a + 0.5f * step));
  }
  w.ClosePath();
}

/// A closed loop of Bezier knots at points with unit tangents and handle lengths.
void WriteSmoothLoop(FigureWriter& w,
                     std::span<const Point3> points,
                     std::span<const Point3> tangents,
                     std::span<const float> lengths) {
  const size_t n = points.size();
  w.MoveTo(points[0], points[0] - tangents[0] * lengths[0]);
  for (size_t i = 0; i + 1 < n; ++i) {
    w.CurveTo(points[i] + tangents[i] * lengths[i],
              points[i + 1] - tangents[i + 1] * lengths[i + 1], points[i + 1]);
  }
  w.CloseCurve(points[n - 1] + tangents[n - 1] * lengths[n - 1]);
}

void WriteStarSmooth(FigureWriter& w) {
  Point3 points[8];
  Point3 tangents[8];
  float lengths[8];
  for (int i = 0; i < 8; ++i) {
    const float a = kHalfPi + kSmoothStarStep * static_cast<float>(i);
    points[i] = Polar(i % 2 == 0 ? 1.0f : kSmoothStarInner, a);
    tangents[i] = {-std::sin(a), std::cos(a), 0};
    lengths[i] = kSmoothStarTangent;
  }
  WriteSmoothLoop(w, points, tangents, lengths);
}

void WritePeanut(FigureWriter& w, float thickness) {
  // Two lobes along Y; the thickness pinches the waist.
  const float lobe = 0.6f;
  const float waist = lobe * (1.0f - thickness);
  const Point3 points[8] = {{0, 1, 0},  {-lobe, 0.5f, 0}, {-waist, 0, 0}, {-lobe, -0.5f, 0},
                            {0, -1, 0}, {lobe, -0.5f, 0}, {waist, 0, 0},  {lobe, 0.5f, 0}};
  const Point3 down(0, -1, 0);
  const Point3 up(0, 1, 0);
  const Point3 tangents[8] = {{-1, 0, 0}, down, down, down, {1, 0, 0}, up, up, up};
  const float lengths[8] = {0.33f, 0.28f, 0.2f, 0.28f, 0.33f, 0.28f, 0.2f, 0.28f};
  WriteSmoothLoop(w, points, tangents, lengths);
}

void WriteGear(FigureWriter& w, float thickness) {
  const float gap = 1.0f - kGearDepth * thickness;
  const float step = kTwoPi / static_cast<float>(kGearSectors);
  for (int k = 0; k < kGearSectors; ++k) {
    const float r = k % 2 == 0 ? 1.0f : gap;
    const float a = step * static_cast<float>(k);
    if (k == 0) {
      w.MoveTo(Polar(r, a));
    } else {
      w.LineTo(Polar(r, a));
    }
    w.LineTo(Polar(r, a + step));
  }
  w.ClosePath();
  w.Circle({0, 0, 0}, kGearHole);
}

// ---------------------------------------------------------------------------------------------
// Fourfold.

void WriteFourfold(FigureWriter& w, ControlType type) {
  for (int k = 0; k < 4; ++k) {
    w.SetTransform(RotateZMatrix(kFourfoldTurn * static_cast<float>(k)));
    switch (type) {
      case ControlType::FourArrows: {
        const Point3 arrow[7] = {{0.07f, 0.45f, 0}, {0.07f, 0.7f, 0},  {0.2f, 0.7f, 0},   {0, 1, 0},
                                 {-0.2f, 0.7f, 0},  {-0.07f, 0.7f, 0}, {-0.07f, 0.45f, 0}};
        w.Polygon(arrow, true);
        break;
      }
      case ControlType::FourPyramids: {
        const float b = 0.15f * 1.33f;  // half side of the base
        const Point3 base[4] = {{b, 0.5f, b}, {-b, 0.5f, b}, {-b, 0.5f, -b}, {b, 0.5f, -b}};
        w.Polygon(base, true);
        for (const Point3& p : base) w.Line(p, {0, 1, 0});
        break;
      }
      default: {
        const Point3 triangle[3] = {{0, 1, 0}, {-0.25f, 0.5f, 0}, {0.25f, 0.5f, 0}};
        w.Polygon(triangle, true);
        break;
      }
    }
  }
  w.SetTransform(Matrix3());
}

// ---------------------------------------------------------------------------------------------

void WriteOffsetLine(const FigureInput& in, FigureWriter& w, ControlType type, float warp) {
  const bool ring = type == ControlType::Circle || type == ControlType::Donut;
  if (ring && !in.face_camera) {
    // The ring's quadrant points 0, N/4, 2N/4 and 3N/4.
    for (int i = 0; i < 4; ++i) {
      const float a = kHalfPi * static_cast<float>(i);
      const float z = type == ControlType::Circle ? -std::cos(2.0f * a) * warp : 0.0f;
      w.RawLine(in.pivot, w.S(Point3(std::cos(a), std::sin(a), z)));
    }
    return;
  }
  w.RawLine(in.pivot, Point3(0, 0, 0));
}

}  // namespace

const char* ControlTypeName(int type) {
  return type >= 0 && type < kControlTypeCount ? kTypeNames[static_cast<size_t>(type)] : nullptr;
}

SizeRule GetSizeRule(int type) {
  switch (static_cast<ControlType>(type)) {
    case ControlType::Circle:
    case ControlType::CircleHalf:
    case ControlType::Donut:
    case ControlType::Rectangle:
      return SizeRule::kPlane;
    case ControlType::Cross:
    case ControlType::CrossDiagonal:
    case ControlType::CrossAsterisk:
    case ControlType::AxisTripod:
    case ControlType::Sphere:
    case ControlType::SphereHalf:
    case ControlType::Box:
    case ControlType::Cone:
    case ControlType::Cylinder:
    case ControlType::SphereIcosa:
    case ControlType::SphereGeo:
    case ControlType::Diamond:
      return SizeRule::kSolid;
    default:
      return SizeRule::kSizeOnly;
  }
}

Point3 FigureHalfExtents(const FigureInput& in) {
  const float scale = NonNegative(in.scale);
  const SizeRule rule = GetSizeRule(in.type);
  if (in.uniform || rule == SizeRule::kSizeOnly) {
    const float h = 0.5f * NonNegative(in.size) * scale;
    return {h, h, h};
  }
  const float x = 0.5f * NonNegative(in.width) * scale;
  const float y = 0.5f * NonNegative(in.length) * scale;
  const float z = rule == SizeRule::kPlane ? 0.5f * (x + y) : 0.5f * NonNegative(in.height) * scale;
  return {x, y, z};
}

void GenerateFigure(const FigureInput& in, FigureSet set, FigureSink& sink) {
  if (in.type < 0 || in.type >= kControlTypeCount) return;
  const auto type = static_cast<ControlType>(in.type);
  if (type == ControlType::IKFK && set == FigureSet::kShape) return;
  const Point3 half = FigureHalfExtents(in);
  FigureWriter w(sink, half);
  const float thickness = ClampTo(in.thickness, 0.0f, 1.0f);
  const float warp = ClampTo(in.warp_amount, -1.0f, 1.0f);
  const int steps = std::clamp(in.steps, 0, kMaxFigureSteps);
  const int warp_axis = std::clamp(in.warp_axis, 0, 2);

  switch (type) {
    case ControlType::None:
      break;
    case ControlType::Cross:
      WriteCross(w);
      break;
    case ControlType::CrossDiagonal:
      WriteDiagonals(w, 1.0f);
      break;
    case ControlType::CrossAsterisk:
      WriteCross(w);
      WriteDiagonals(w, kAsteriskDiagonal);
      break;
    case ControlType::AxisTripod:
      WriteTripod(w);
      break;
    case ControlType::Circle:
      w.Ring(PlaneRing(1.0f, warp));
      break;
    case ControlType::CircleHalf: {
      FigureRing ring = PlaneRing(1.0f, warp);
      ring.sweep = kPi;
      ring.chord = true;
      w.Ring(ring);
      break;
    }
    case ControlType::CirclePointy:
      WriteCirclePointy(w);
      break;
    case ControlType::Donut:
      w.Ring(PlaneRing(1.0f, 0.0f));
      w.Ring(PlaneRing(1.0f - thickness, 0.0f));
      break;
    case ControlType::Sphere:
      WriteSphere(w);
      break;
    case ControlType::SphereHalf:
      WriteSphereHalf(w);
      break;
    case ControlType::Rectangle:
      WriteRectangle(w, half, NonNegative(in.corner));
      break;
    case ControlType::Box:
      WriteBox(w, warp, warp_axis);
      break;
    case ControlType::Triangle: {
      const Point3 triangle[3] = {{0, 1, 0}, {-0.866025f, -0.5f, 0}, {0.866025f, -0.5f, 0}};
      w.Polygon(triangle, true);
      break;
    }
    case ControlType::Cone:
      WriteConeOrCylinder(w, false);
      break;
    case ControlType::Cylinder:
      WriteConeOrCylinder(w, true);
      break;
    case ControlType::Arrow:
      WriteArrow(w, thickness);
      break;
    case ControlType::ArrowDouble:
      WriteArrowDouble(w, thickness);
      break;
    case ControlType::ArrowCircle:
      WriteBentArrow(w, true);
      break;
    case ControlType::ArrowCylinder:
      WriteBentArrow(w, false);
      break;
    case ControlType::ArrowCross:
      WriteArrowCross(w);
      break;
    case ControlType::ArrowMixed:
      WriteArrowMixed(w);
      break;
    case ControlType::CrossFlat:
      WriteCrossFlat(w);
      break;
    case ControlType::Drop:
      WriteDrop(w, warp);
      break;
    case ControlType::Star:
      WriteStar(w, steps);
      break;
    case ControlType::StarSmooth:
      WriteStarSmooth(w);
      break;
    case ControlType::Peanut:
      WritePeanut(w, thickness);
      break;
    case ControlType::Gear:
      WriteGear(w, thickness);
      break;
    case ControlType::Character:
    case ControlType::Eye:
    case ControlType::Lips:
    case ControlType::Hand:
    case ControlType::Foot:
    case ControlType::Shoe:
    case ControlType::Face:
    case ControlType::Nose:
      WriteIcon(type, w);
      break;
    case ControlType::FourArrows:
    case ControlType::FourPyramids:
    case ControlType::FourTriangles:
      WriteFourfold(w, type);
      break;
    case ControlType::IKFK:
      WriteLettering(w);
      break;
    case ControlType::SphereIcosa:
      WriteSphereIcosa(w);
      break;
    case ControlType::SphereGeo:
      WriteSphereGeo(w);
      break;
    case ControlType::Diamond:
      WriteDiamond(w);
      break;
  }
  if (in.offset_line) WriteOffsetLine(in, w, type, warp);
}

}  // namespace marvolith
