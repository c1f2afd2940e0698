// Copyright Marvolith contributors.
// The shape library as a pure generator: size rule, rings, every figure in both back ends, and
// the edge cases of the figures' parameters.
#include "controls/shape_library.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

#include "controls/display_transform.h"
#include "controls/figure_builders.h"
#include "tests/support/math_matchers.h"

namespace marvolith {
namespace {

FigurePolylines Polylines(const FigureInput& in) {
  FigurePolylines out;
  BuildFigurePolylines(in, out);
  return out;
}

int SegmentCount(const FigurePolylines& p) {
  int n = 0;
  for (const auto& line : p.lines) {
    n += static_cast<int>(line.points.size()) - 1 + (line.closed ? 1 : 0);
  }
  return n;
}

Box3 PointsBox(const FigurePolylines& p) {
  PointBoxOut box;
  for (const auto& line : p.lines) box.Polyline(line.points, line.closed);
  return box.Box();
}

FigureInput OfType(int type) {
  FigureInput in;
  in.type = type;
  return in;
}

TEST(ShapeLibraryTest, SizeRuleByFamily) {
  FigureInput in;
  in.uniform = false;
  in.size = 8.0f;
  in.width = 2.0f;
  in.length = 4.0f;
  in.height = 10.0f;
  in.type = static_cast<int>(ControlType::Circle);
  EXPECT_EQ(FigureHalfExtents(in), Point3(1, 2, 1.5f)) << "plane: Z is the mean of X and Y";
  in.type = static_cast<int>(ControlType::Box);
  EXPECT_EQ(FigureHalfExtents(in), Point3(1, 2, 5));
  in.type = static_cast<int>(ControlType::Arrow);
  EXPECT_EQ(FigureHalfExtents(in), Point3(4, 4, 4)) << "size-only figures ignore uniform";
  in.uniform = true;
  in.type = static_cast<int>(ControlType::Box);
  EXPECT_EQ(FigureHalfExtents(in), Point3(4, 4, 4));
  in.size = -3.0f;
  EXPECT_EQ(FigureHalfExtents(in), Point3(0, 0, 0));
  in.size = std::nanf("");
  EXPECT_EQ(FigureHalfExtents(in), Point3(0, 0, 0));
}

TEST(ShapeLibraryTest, CircleRingHasFourStepsPlusFourPoints) {
  for (int steps : {0, 1, 6}) {
    SCOPED_TRACE(steps);
    FigureInput in = OfType(static_cast<int>(ControlType::Circle));
    in.steps = steps;
    const FigurePolylines p = Polylines(in);
    ASSERT_EQ(p.lines.size(), 1u);
    EXPECT_TRUE(p.lines[0].closed);
    EXPECT_EQ(SegmentCount(p), 4 * steps + 4);
    for (const Point3& q : p.lines[0].points) EXPECT_NEAR(Length(q), 10.0f, 1e-4f);
  }
}

TEST(ShapeLibraryTest, WarpBendsTheRingLikeASaddle) {
  FigureInput in = OfType(static_cast<int>(ControlType::Circle));
  in.steps = 0;
  in.warp_amount = 0.5f;
  const FigurePolylines p = Polylines(in);
  const auto& pts = p.lines.at(0).points;
  // Down at the X ends, up at the Y ends, by warp times the size rule's Z (10).
  EXPECT_NEAR(pts[0].z, -5.0f, 1e-4f);
  EXPECT_NEAR(pts[1].z, 5.0f, 1e-4f);
  EXPECT_NEAR(pts[2].z, -5.0f, 1e-4f);
}

TEST(ShapeLibraryTest, EveryFigureDrawsAndTheShapeSetSkipsOnlyNoneAndLettering) {
  for (int type = 0; type < kControlTypeCount; ++type) {
    SCOPED_TRACE(ControlTypeName(type));
    const FigureInput in = OfType(type);
    const int segments = SegmentCount(Polylines(in));
    BezierShape shape;
    BuildFigureShape(in, shape);
    int spline_segments = 0;
    for (int i = 0; i < shape.SplineCount(); ++i) spline_segments += shape.GetSpline(i)->Segments();
    if (type == 0) {
      EXPECT_EQ(segments, 0);
      EXPECT_EQ(shape.SplineCount(), 0);
    } else if (type == static_cast<int>(ControlType::IKFK)) {
      EXPECT_GT(segments, 0);
      EXPECT_EQ(shape.SplineCount(), 0);
    } else {
      EXPECT_GT(segments, 0);
      EXPECT_GT(spline_segments, 0);
    }
  }
  EXPECT_EQ(SegmentCount(Polylines(OfType(kControlTypeCount))), 0);
  EXPECT_EQ(SegmentCount(Polylines(OfType(-1))), 0);
}

TEST(ShapeLibraryTest, BothBackEndsDrawTheSameFigure) {
  // The polylines against the exact box of the splines: the same extent within a few percent
  // (rings are sampled exactly in one and approximated by Beziers in the other).
  for (int type = 1; type < kControlTypeCount; ++type) {
    if (type == static_cast<int>(ControlType::IKFK)) continue;
    SCOPED_TRACE(ControlTypeName(type));
    FigureInput in = OfType(type);
    in.steps = 12;
    in.warp_amount = 0.3f;
    in.corner = 3.0f;
    in.offset_line = true;
    in.pivot = Point3(2, -30, 1);
    BezierShape shape;
    BuildFigureShape(in, shape);
    const Box3 a = PointsBox(Polylines(in));
    const Box3 b = shape.GetBoundingBox();
    EXPECT_POINT3_NEAR(a.Min(), b.Min(), 0.2f);
    EXPECT_POINT3_NEAR(a.Max(), b.Max(), 0.2f);
  }
}

TEST(ShapeLibraryTest, UniformIgnoresLengthWidthAndHeight) {
  for (int type = 0; type < kControlTypeCount; ++type) {
    SCOPED_TRACE(ControlTypeName(type));
    FigureInput a = OfType(type);
    FigureInput b = a;
    b.length = 3.0f;
    b.width = 70.0f;
    b.height = 0.0f;
    const FigurePolylines pa = Polylines(a);
    const FigurePolylines pb = Polylines(b);
    ASSERT_EQ(pa.lines.size(), pb.lines.size());
    for (size_t i = 0; i < pa.lines.size(); ++i) EXPECT_EQ(pa.lines[i].points, pb.lines[i].points);
  }
}

TEST(ShapeLibraryTest, SizeZeroCollapsesEveryFigureToAPoint) {
  for (int type = 1; type < kControlTypeCount; ++type) {
    SCOPED_TRACE(ControlTypeName(type));
    FigureInput in = OfType(type);
    in.size = 0.0f;
    const Box3 box = PointsBox(Polylines(in));
    ASSERT_FALSE(box.IsEmpty());
    EXPECT_EQ(box.Min(), Point3(0, 0, 0));
    EXPECT_EQ(box.Max(), Point3(0, 0, 0));
  }
}

TEST(ShapeLibraryTest, FullThicknessArrowStaysFinite) {
  for (auto type : {ControlType::Arrow, ControlType::ArrowDouble, ControlType::Donut,
                    ControlType::Peanut, ControlType::Gear}) {
    SCOPED_TRACE(ControlTypeName(static_cast<int>(type)));
    FigureInput in = OfType(static_cast<int>(type));
    in.thickness = 1.0f;
    const FigurePolylines p = Polylines(in);
    ASSERT_FALSE(p.lines.empty());
    for (const auto& line : p.lines) {
      for (const Point3& q : line.points) {
        EXPECT_TRUE(std::isfinite(q.x) && std::isfinite(q.y) && std::isfinite(q.z));
      }
    }
  }
  // The shaft stops short of the head: the head's barbs keep their width.
  FigureInput arrow = OfType(static_cast<int>(ControlType::Arrow));
  arrow.thickness = 1.0f;
  EXPECT_NEAR(PointsBox(Polylines(arrow)).Width().x, 10.0f, 1e-4f);
}

TEST(ShapeLibraryTest, RectangleCornersRoundInWorldUnits) {
  FigureInput in = OfType(static_cast<int>(ControlType::Rectangle));
  in.uniform = false;
  in.width = 40.0f;
  in.length = 20.0f;
  in.corner = 4.0f;
  const FigurePolylines p = Polylines(in);
  const Box3 box = PointsBox(p);
  EXPECT_POINT3_NEAR(box.Max(), Point3(20, 10, 0), 1e-4f);
  // Each corner point lies on a circle of radius 4 about the corner's centre.
  for (const Point3& q : p.lines.at(0).points) {
    if (std::fabs(q.x) > 16.0f + 1e-3f && std::fabs(q.y) > 6.0f + 1e-3f) {
      const Point3 c(q.x > 0 ? 16.0f : -16.0f, q.y > 0 ? 6.0f : -6.0f, 0);
      EXPECT_NEAR(Length(q - c), 4.0f, 0.01f) << q.x << " " << q.y;
    }
  }
}

TEST(ShapeLibraryTest, OffsetLineStartsAtThePivot) {
  FigureInput in = OfType(static_cast<int>(ControlType::Circle));
  in.offset_line = true;
  in.pivot = Point3(0, 0, -25);
  FigurePolylines p = Polylines(in);
  ASSERT_EQ(p.lines.size(), 5u) << "the ring and four quadrant lines";
  EXPECT_EQ(p.lines[1].points.front(), in.pivot);
  EXPECT_POINT3_NEAR(p.lines[1].points.back(), Point3(10, 0, 0), 1e-4f);
  in.face_camera = true;
  p = Polylines(in);
  ASSERT_EQ(p.lines.size(), 2u) << "facing the camera: one line to the centre";
  EXPECT_EQ(p.lines[1].points.back(), Point3(0, 0, 0));
  in.type = 0;
  EXPECT_EQ(Polylines(in).lines.size(), 1u);
}

TEST(ShapeLibraryTest, StarHasARayPerStep) {
  FigureInput in = OfType(static_cast<int>(ControlType::Star));
  for (int steps : {0, 5, 12}) {
    in.steps = steps;
    EXPECT_EQ(SegmentCount(Polylines(in)), 3 * std::max(steps, 3)) << steps;
  }
}

TEST(ShapeLibraryTest, FaceCameraIgnoresAxisAndGizmoRotation) {
  DisplayTransformInput in;
  in.node_tm = ScaleMatrix(Point3(2, 3, 4)) * RotateXMatrix(0.3f) * TransMatrix(Point3(5, 6, 7));
  in.gizmo = RotateZMatrix(1.0f) * TransMatrix(Point3(1, 0, 0));
  in.view_tm = Inverse(RotateYMatrix(0.7f) * TransMatrix(Point3(0, -100, 0)));
  in.face_camera = true;
  in.axis = 2;
  const Matrix3 reference = ComputeDisplayTM(in);
  for (int axis : {0, 1}) {
    in.axis = axis;
    EXPECT_MATRIX3_NEAR(ComputeDisplayTM(in), reference, 1e-6f) << axis;
  }
  // The figure's X and Y follow the screen's right and up, scaled by the node's rows 0 and 1.
  const Matrix3 view_to_world = Inverse(in.view_tm);
  EXPECT_POINT3_NEAR(reference.GetRow(0), Normalize(view_to_world.GetRow(0)) * 2.0f, 1e-4f);
  EXPECT_POINT3_NEAR(reference.GetRow(1), Normalize(view_to_world.GetRow(1)) * 3.0f, 1e-4f);
  EXPECT_POINT3_NEAR(reference.GetTrans(), Point3(1, 0, 0) * in.node_tm, 1e-4f);
  // Without facing, the axis brings the figure's normal (Z) to X or Y.
  in.face_camera = false;
  in.gizmo = Matrix3();
  in.node_tm = Matrix3();
  for (int axis = 0; axis < 3; ++axis) {
    in.axis = axis;
    Point3 normal(0, 0, 0);
    normal[axis] = 1.0f;
    EXPECT_POINT3_NEAR(ComputeDisplayTM(in).VectorTransform(Point3(0, 0, 1)), normal, 1e-6f);
    EXPECT_NEAR(ComputeDisplayTM(in).Determinant(), 1.0f, 1e-6f);
  }
}

RC_GTEST_PROP(ShapeLibraryProperty, SplineBoxHoldsEveryCurvePoint, ()) {
  FigureInput in;
  in.type = *rc::gen::inRange(0, kControlTypeCount);
  in.uniform = *rc::gen::arbitrary<bool>();
  in.size = *rc::gen::inRange(0, 200) * 0.5f;
  in.width = *rc::gen::inRange(0, 200) * 0.5f;
  in.length = *rc::gen::inRange(0, 200) * 0.5f;
  in.height = *rc::gen::inRange(0, 200) * 0.5f;
  in.thickness = *rc::gen::inRange(0, 101) * 0.01f;
  in.corner = *rc::gen::inRange(0, 60) * 0.5f;
  in.steps = *rc::gen::inRange(0, 20);
  in.warp_amount = *rc::gen::inRange(-100, 101) * 0.01f;
  in.warp_axis = *rc::gen::inRange(0, 3);
  in.offset_line = *rc::gen::arbitrary<bool>();
  in.pivot = Point3(*rc::gen::inRange(-50, 50), *rc::gen::inRange(-50, 50), 3.0f);
  BezierShape shape;
  BuildFigureShape(in, shape);
  Box3 box = shape.GetBoundingBox();
  box.EnlargeBy(1e-3f * (1.0f + Length(box.Width())));
  for (int i = 0; i < shape.SplineCount(); ++i) {
    std::vector<Point3> points;
    shape.GetSpline(i)->Polyline(7, points);
    for (const Point3& p : points) RC_ASSERT(box.Contains(p));
  }
}

}  // namespace
}  // namespace marvolith
