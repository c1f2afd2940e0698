// Copyright Marvolith contributors.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

#include "host/io/chunk_stream.h"
#include "host/objects/spline_shape.h"
#include "host/scene/inode.h"
#include "tests/host/objects/object_test_util.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

SplineKnot Corner(float x, float y, float z = 0) {
  const Point3 p(x, y, z);
  return SplineKnot(KTYPE_CORNER, LTYPE_CURVE, p, p, p);
}

constexpr float kTol = 1e-4f;

TEST(Spline3D, CornerKnotsGiveStraightSegmentsOpenOrClosed) {
  Spline3D s;
  for (const SplineKnot& k : {Corner(0, 0), Corner(3, 0), Corner(3, 1)}) s.AddKnot(k);
  EXPECT_EQ(s.Segments(), 2);
  EXPECT_POINT3_NEAR(s.GetOutVec(0), Point3(1, 0, 0), kTol);  // a third of the way to the next knot
  EXPECT_POINT3_NEAR(s.InterpBezier3D(0, 0.5f), Point3(1.5f, 0, 0), kTol);
  EXPECT_POINT3_NEAR(s.InterpCurve3D(0.5f), Point3(3, 0, 0), kTol)
      << "simple: half of the segments";
  EXPECT_POINT3_NEAR(s.InterpCurve3D(0.5f, PARAM_NORMALIZED), Point3(2, 0, 0), kTol)
      << "half of length 4";
  EXPECT_POINT3_NEAR(s.InterpCurve3D(1.0f), Point3(3, 1, 0), kTol);
  EXPECT_NEAR(s.SplineLength(), 4.0f, 1e-5f);
  EXPECT_POINT3_NEAR(s.TangentCurve3D(0.75f), Point3(0, 1, 0), kTol);

  s.SetClosed();
  EXPECT_EQ(s.Segments(), 3);
  EXPECT_POINT3_NEAR(s.InterpCurve3D(1.0f), Point3(0, 0, 0), kTol)
      << "a closed spline ends where it began";
  EXPECT_NEAR(s.SplineLength(), 4.0f + std::sqrt(10.0f), 1e-4f);
  EXPECT_POINT3_NEAR(s.InterpBezier3D(2, 0.5f), Point3(1.5f, 0.5f, 0), kTol);
  std::vector<Point3> poly;
  s.Polyline(1, poly);
  ASSERT_EQ(poly.size(), 7u);
  EXPECT_POINT3_NEAR(poly[1], Point3(1.5f, 0, 0), kTol);
  EXPECT_EQ(poly.back(), poly.front());

  Spline3D empty;
  EXPECT_EQ(empty.InterpCurve3D(0.3f), Point3());
  EXPECT_TRUE(empty.GetBBox().IsEmpty());
  empty.AddKnot(Corner(1, 2, 3));
  EXPECT_EQ(empty.Segments(), 0);
  EXPECT_EQ(empty.InterpCurve3D(0.7f, PARAM_NORMALIZED), Point3(1, 2, 3));
}

TEST(Spline3D, BezierKnotsFollowTheirHandles) {
  // P0 (0,0), P1 (1,2), P2 (3,2), P3 (4,0): B(1/2) = (P0 + 3 P1 + 3 P2 + P3) / 8 = (2, 1.5).
  Spline3D s;
  s.AddKnot(
      SplineKnot(KTYPE_BEZIER, LTYPE_CURVE, Point3(0, 0, 0), Point3(-1, -2, 0), Point3(1, 2, 0)));
  s.AddKnot(SplineKnot(KTYPE_BEZIER_CORNER, LTYPE_CURVE, Point3(4, 0, 0), Point3(3, 2, 0),
                       Point3(9, 9, 9)));
  EXPECT_POINT3_NEAR(s.InterpBezier3D(0, 0.5f), Point3(2, 1.5f, 0), kTol);
  // B(1/4) = (27 P0 + 27 P1 + 9 P2 + P3) / 64 = (58/64, 72/64).
  EXPECT_POINT3_NEAR(s.InterpBezier3D(0, 0.25f), Point3(58.0f / 64, 72.0f / 64, 0), kTol);
  EXPECT_POINT3_NEAR(s.TangentBezier3D(0, 0.5f), Point3(1, 0, 0), kTol);
  EXPECT_POINT3_NEAR(s.GetOutVec(1), Point3(9, 9, 9), kTol) << "Bezier handles are kept as given";

  const Box3 box = s.GetBBox();
  EXPECT_NEAR(box.Max().y, 1.5f, 1e-5f) << "the curve's top, not its handles'";
  EXPECT_NEAR(box.Min().x, 0.0f, 1e-6f);
  EXPECT_NEAR(box.Max().x, 4.0f, 1e-6f);

  s.SetLineType(0, LTYPE_LINE);
  EXPECT_POINT3_NEAR(s.InterpBezier3D(0, 0.25f), Point3(1, 0, 0), kTol)
      << "a line segment is straight";
  s.SetKnotType(1, KTYPE_CORNER);
  s.SetLineType(0, LTYPE_CURVE);
  s.SetKnotPoint(1, Point3(4, 4, 0));
  EXPECT_POINT3_NEAR(s.GetInVec(1), Point3(8.0f / 3, 8.0f / 3, 0), kTol);
  EXPECT_POINT3_NEAR(s.GetOutVec(1), Point3(4, 4, 0), kTol)
      << "an open end's outgoing handle sits on it";
}

TEST(Spline3D, SmoothKnotsAreTangentToTheirNeighbours) {
  Spline3D s;
  for (const Point3& p : {Point3(0, 0, 0), Point3(2, 2, 0), Point3(6, 0, 0)})
    s.AddKnot(SplineKnot(KTYPE_AUTO, LTYPE_CURVE, p, p, p));
  const Point3 in = s.GetInVec(1) - Point3(2, 2, 0);
  const Point3 out = s.GetOutVec(1) - Point3(2, 2, 0);
  EXPECT_POINT3_NEAR(Normalize(out), Normalize(Point3(6, 0, 0)), kTol);
  EXPECT_POINT3_NEAR(Normalize(in), -Normalize(Point3(6, 0, 0)), kTol);
  EXPECT_NEAR(Length(out), std::sqrt(20.0f) / 3, 1e-5f);
  EXPECT_POINT3_NEAR(s.TangentBezier3D(0, 1.0f), s.TangentBezier3D(1, 0.0f), kTol);
}

RC_GTEST_PROP(Spline3D, NormalizedParameterWalksTheLengthOfAPolyline, ()) {
  const auto xs = *rc::gen::container<std::vector<int>>(rc::gen::inRange(-50, 50));
  RC_PRE(xs.size() >= 4);
  Spline3D s;
  for (size_t i = 0; i + 1 < xs.size(); i += 2) s.AddKnot(Corner(float(xs[i]), float(xs[i + 1])));
  const float total = s.SplineLength();
  RC_PRE(total > 1.0f);
  const float u = *rc::gen::inRange(0, 1001) / 1000.0f;
  const Point3 p = s.InterpCurve3D(u, PARAM_NORMALIZED);
  // Walk the chords by hand to where u of the length lies.
  float left = u * total;
  Point3 expected = s.GetKnotPoint(s.KnotCount() - 1);
  for (int k = 0; k + 1 < s.KnotCount(); ++k) {
    const Point3 a = s.GetKnotPoint(k), b = s.GetKnotPoint(k + 1);
    const float len = Length(b - a);
    if (left <= len && len > 0) {
      expected = a + (b - a) * (left / len);
      break;
    }
    left -= len;
  }
  RC_ASSERT(Length(p - expected) < 1e-3f * std::max(1.0f, total));
}

TEST(BezierShape, SavesItsKnotsAndRejectsDamage) {
  BezierShape shape;
  shape.steps = 3;
  Spline3D* a = shape.NewSpline();
  Spline3D* b = shape.NewSpline();  // a stays valid: splines live in a deque
  a->AddKnot(Corner(0, 0));
  a->AddKnot(
      SplineKnot(KTYPE_BEZIER, LTYPE_LINE, Point3(1, 1, 1), Point3(0, 1, 1), Point3(2, 1, 1)));
  a->SetClosed();
  b->AddKnot(SplineKnot(KTYPE_AUTO, LTYPE_CURVE, Point3(5, 0, 0), Point3(), Point3()));
  shape.Transform(TransMatrix(Point3(0, 0, 10)));
  EXPECT_POINT3_NEAR(shape.GetSpline(1)->GetKnotPoint(0), Point3(5, 0, 10), kTol);

  ChunkWriter w;
  ASSERT_EQ(shape.Save(&w), IO_OK);
  BezierShape loaded;
  ChunkReader r(w.Bytes());
  ASSERT_EQ(loaded.Load(&r), IO_OK);
  EXPECT_TRUE(loaded == shape);
  ChunkWriter again;
  ASSERT_EQ(loaded.Save(&again), IO_OK);
  EXPECT_EQ(again.Bytes(), w.Bytes());

  // Offsets: steps chunk 0..9, spline container 10..15, closed chunk 16..22, knots chunk
  // header 23..28, first knot's type at 29.
  std::vector<std::uint8_t> bad = w.Bytes();
  bad[29] = 7;
  ChunkReader rb(bad);
  EXPECT_EQ(loaded.Load(&rb), IO_ERROR);
  EXPECT_EQ(loaded.SplineCount(), 0);
  std::vector<std::uint8_t> cut(w.Bytes().begin(), w.Bytes().end() - 5);
  ChunkReader rc(cut);
  EXPECT_EQ(loaded.Load(&rc), IO_ERROR);
}

TEST_F(ObjectTest, SplineShapeEditsAreUndoable) {
  auto* obj = Make<SplineShape>(SHAPE_CLASS_ID, SPLINESHAPE_CLASSID);
  ASSERT_NE(obj, nullptr);
  INode* node = ip->CreateObjectNode(obj, "line");
  Undoable([&] {
    obj->EditShape([](BezierShape& s) {
      Spline3D* sp = s.NewSpline();
      sp->AddKnot(Corner(0, 0));
      sp->AddKnot(Corner(0, 8));
    });
    obj->EditShape([](BezierShape& s) { s.GetSpline(0)->AddKnot(Corner(6, 8)); });
  });
  ASSERT_EQ(obj->NumberOfCurves(), 1);
  EXPECT_NEAR(obj->LengthOfCurve(0, 0), 14.0f, 1e-5f);
  EXPECT_POINT3_NEAR(obj->InterpCurve3D(0, 0, 0.5f), Point3(0, 7, 0), kTol);
  EXPECT_EQ(obj->InterpCurve3D(0, 3, 0.5f), Point3()) << "no such curve";
  Box3 box;
  node->SetNodeTM(0, TransMatrix(Point3(0, 0, 5)));
  obj->GetWorldBoundBox(0, node, nullptr, box);
  EXPECT_EQ(box.Max(), Point3(6, 8, 5));

  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(obj->NumberOfCurves(), 0) << "one record covers both edits of the hold";
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(obj->GetShape().GetSpline(0)->KnotCount(), 3);
}

}  // namespace
}  // namespace marvolith::test
