// Copyright Marvolith contributors.
#include "chains/curve_ik_solver.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "host/math/geometry.h"
#include "tests/support/math_generators.h"  // kPi
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

constexpr float kTol = 2e-3f;
constexpr int kSmooth = static_cast<int>(CurvePointType::Smooth);
constexpr int kCorner = static_cast<int>(CurvePointType::Corner);
constexpr int kBezier = static_cast<int>(CurvePointType::Bezier);
constexpr int kBezierCorner = static_cast<int>(CurvePointType::BezierCorner);

std::vector<CurveIKPoint> Points(std::initializer_list<Point3> at, int type = kSmooth) {
  std::vector<CurveIKPoint> pts;
  for (const Point3& p : at) {
    CurveIKPoint c;
    c.tm_cs = TransMatrix(p);
    c.type = type;
    pts.push_back(c);
  }
  return pts;
}

// A solve with its buffers: joints evenly spread (i / (n - 1)), squash weight 1.
struct Chain {
  std::vector<CurveIKPoint> points;
  CurveIKParams params;
  Matrix3 space;
  std::vector<float> percents;
  std::vector<float> squash;
  std::vector<Matrix3> joints;
  CurveIKWorkspace ws;

  explicit Chain(std::vector<CurveIKPoint> pts, int joint_count = 5) : points(std::move(pts)) {
    for (int i = 0; i < joint_count; ++i) {
      percents.push_back(joint_count > 1 ? static_cast<float>(i) / (joint_count - 1) : 0.0f);
      squash.push_back(1.0f);
    }
    joints.resize(static_cast<size_t>(joint_count));
  }
  void Solve() {
    CurveIKInput in;
    in.points = points;
    in.joint_percents = percents;
    in.joint_squash = squash;
    in.params = params;
    in.space_tm = space;
    SolveCurveIK(in, ws, joints);
  }
  Point3 Pos(size_t i) const { return joints[i].GetTrans(); }
  Point3 Axis(size_t i, int row) const { return Normalize(joints[i].GetRow(row)); }
};

// An S-shaped curve of four points, curved on every span.
std::vector<CurveIKPoint> Wiggle(int type = kSmooth) {
  return Points({{0, 0, 0}, {10, 5, 0}, {20, -5, 2}, {30, 0, 0}}, type);
}

float DistanceToLine(const Point3& p, const Point3& a, const Point3& dir) {
  const Point3 d = Normalize(dir);
  const Point3 v = p - a;
  return Length(v - d * DotProd(v, d));
}

TEST(CurveIKSolverTest, FullStretchPinsTheEndsUnderEverySpace) {
  const Matrix3 turned = MatrixOf(QFromAngAxis(0.7f, Normalize(Point3(1, 2, 3))));
  const struct {
    const char* name;
    Matrix3 tm;
  } spaces[] = {{"identity", Matrix3()},
                {"moved", TransMatrix(Point3(3, -2, 5))},
                {"rotated", turned * TransMatrix(Point3(1, -2, 3))},
                {"non-uniform scale", ScaleMatrix(Point3(2, 0.5f, 1.5f)) * turned},
                {"mirrored -1 X", ScaleMatrix(Point3(-1, 1, 1)) * turned}};
  for (const auto& s : spaces) {
    SCOPED_TRACE(s.name);
    for (int type : {kSmooth, kCorner}) {
      SCOPED_TRACE(type);
      Chain c(Wiggle(type), 6);
      c.space = s.tm;
      c.Solve();
      EXPECT_POINT3_NEAR(c.Pos(0), Point3(0, 0, 0) * s.tm, kTol);
      EXPECT_POINT3_NEAR(c.Pos(5), Point3(30, 0, 0) * s.tm, kTol);
    }
  }
}

TEST(CurveIKSolverTest, ShortChainHoldsTheEndThatBackwardsNames) {
  // A straight line of 30 units and a chain of 12: the chain keeps its length.
  Chain c(Points({{0, 0, 0}, {10, 0, 0}, {30, 0, 0}}, kCorner), 4);
  c.params.auto_stretch = 0.0f;
  c.params.chain_length = 12.0f;
  c.Solve();
  EXPECT_POINT3_NEAR(c.Pos(0), Point3(0, 0, 0), kTol);
  EXPECT_POINT3_NEAR(c.Pos(3), Point3(12, 0, 0), kTol);
  c.params.backwards = 1.0f;
  c.Solve();
  EXPECT_POINT3_NEAR(c.Pos(0), Point3(18, 0, 0), kTol);
  EXPECT_POINT3_NEAR(c.Pos(3), Point3(30, 0, 0), kTol);
  // Manual stretch scales the spacing on top.
  c.params.backwards = 0.0f;
  c.params.manual_stretch = 2.0f;
  c.Solve();
  EXPECT_POINT3_NEAR(c.Pos(3), Point3(24, 0, 0), kTol);
}

TEST(CurveIKSolverTest, ClosedLoopWrapsPercent) {
  Chain c(Points({{0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 10, 0}}), 7);
  c.params.closed = true;
  c.Solve();
  // The loop's last joint (percent 1) meets its first.
  EXPECT_POINT3_NEAR(c.Pos(6), c.Pos(0), kTol);
  const std::vector<Matrix3> at_zero = c.joints;
  c.params.percent = 1.0f;
  c.Solve();
  for (size_t i = 0; i < at_zero.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_POINT3_NEAR(c.Pos(i), at_zero[i].GetTrans(), kTol);
  }
  c.params.percent = 0.25f;
  c.Solve();
  EXPECT_POINT3_NEAR(c.Pos(0), Point3(10, 0, 0), kTol) << "a quarter of the square loop";
  EXPECT_POINT3_NEAR(c.Pos(6), Point3(10, 0, 0), kTol);
}

TEST(CurveIKSolverTest, BeyondTheEndsJointsRunOnTheEndTangents) {
  Chain c(Wiggle(), 3);
  c.params.percent = 0.2f;
  c.Solve();
  const std::span<const Point3> ctl = c.ws.SpanControls();
  const Point3 end = ctl[11], end_in = ctl[10];
  EXPECT_GT(Length(c.Pos(2) - end), 1.0f) << "not held at the end point";
  EXPECT_LT(DistanceToLine(c.Pos(2), end, end - end_in), kTol);
  EXPECT_GT(DotProd(c.Pos(2) - end, end - end_in), 0.0f);
  // About 0.2 of the curve's length past the end.
  EXPECT_NEAR(Length(c.Pos(2) - end), 0.2f * c.ws.CurveLength(), 0.05f * c.ws.CurveLength());

  c.params.percent = -0.2f;
  c.Solve();
  const Point3 start = ctl[0], start_out = ctl[1];
  EXPECT_LT(DistanceToLine(c.Pos(0), start, start_out - start), kTol);
  EXPECT_LT(DotProd(c.Pos(0) - start, start_out - start), 0.0f);
}

TEST(CurveIKSolverTest, SlideZeroSpacesJointsBySpan) {
  Chain c(Points({{0, 0, 0}, {1, 0, 0}, {10, 0, 0}}, kCorner), 3);
  c.Solve();
  EXPECT_POINT3_NEAR(c.Pos(1), Point3(5, 0, 0), kTol) << "by length";
  c.params.slide_joints = 0.0f;
  c.Solve();
  EXPECT_POINT3_NEAR(c.Pos(1), Point3(1, 0, 0), kTol) << "by control point";
  c.params.slide_joints = 0.5f;
  c.Solve();
  EXPECT_POINT3_NEAR(c.Pos(1), Point3(3, 0, 0), kTol) << "half way between the two";
}

TEST(CurveIKSolverTest, SamplesFollowThePointTypes) {
  {
    SCOPED_TRACE("two Smooth points lack their neighbours: one straight span");
    Chain c(Points({{0, 0, 0}, {10, 0, 0}}), 2);
    c.params.steps = 4;
    c.Solve();
    EXPECT_EQ(c.ws.SpanCount(), 1);
    EXPECT_EQ(c.ws.Samples().size(), 2u);
    EXPECT_TRUE(c.ws.Samples()[0].corner);
    EXPECT_POINT3_NEAR(c.Pos(1), Point3(10, 0, 0), kTol);
    SCOPED_TRACE("closed, they do have neighbours: two curved spans");
    c.params.closed = true;
    c.Solve();
    EXPECT_EQ(c.ws.SpanCount(), 2);
    EXPECT_EQ(c.ws.Samples().size(), 9u);
    EXPECT_FALSE(c.ws.Samples()[0].corner);
  }
  {
    SCOPED_TRACE("Corner ends: one corner sample per span");
    Chain c(Points({{0, 0, 0}, {10, 0, 0}, {10, 10, 0}}, kCorner), 2);
    c.Solve();
    ASSERT_EQ(c.ws.Samples().size(), 3u);
    EXPECT_TRUE(c.ws.Samples()[0].corner);
    EXPECT_TRUE(c.ws.Samples()[1].corner);
    EXPECT_NEAR(c.ws.CurveLength(), 20.0f, kTol);
    ASSERT_EQ(c.ws.PointLengths().size(), 3u);
    EXPECT_NEAR(c.ws.PointLengths()[1], 10.0f, kTol);
    c.params.use_wave = true;
    c.Solve();
    EXPECT_EQ(c.ws.Samples().size(), 33u) << "the wave needs every span sampled";
  }
  {
    SCOPED_TRACE("steps 0 counts as 1");
    Chain one(Wiggle(), 4), zero(Wiggle(), 4);
    one.params.steps = 1;
    zero.params.steps = 0;
    one.Solve();
    zero.Solve();
    EXPECT_EQ(zero.ws.StepsPerSpan(), 1);
    for (size_t i = 0; i < 4; ++i) EXPECT_MATRIX3_NEAR(zero.joints[i], one.joints[i], 1e-5f);
  }
}

TEST(CurveIKSolverTest, TangentRulesByType) {
  std::vector<CurveIKPoint> pts = Points({{0, 0, 0}, {10, 0, 0}, {20, 0, 0}}, kBezier);
  pts[0].has_out_node = true;
  pts[0].out_node_cs = Point3(2, 3, 0);
  pts[1].has_out_node = true;
  pts[1].out_node_cs = Point3(13, 1, 0);
  pts[1].has_in_node = true;
  pts[1].in_node_cs = Point3(8, 4, 0);
  Chain c(pts, 2);
  c.Solve();
  std::span<const Point3> ctl = c.ws.SpanControls();
  EXPECT_POINT3_NEAR(ctl[1], Point3(2, 3, 0), kTol);
  EXPECT_POINT3_NEAR(ctl[2], Point3(7, -1, 0), kTol) << "Bezier mirrors its out tangent";

  c.points[1].type = kBezierCorner;
  c.Solve();
  ctl = c.ws.SpanControls();
  EXPECT_POINT3_NEAR(ctl[2], Point3(8, 4, 0), kTol) << "BezierCorner has its own in tangent";

  // Stored tangents are in the frame of the point.
  c.points[1].use_tangent_nodes = false;
  c.points[1].inner_in = Point3(0, 1, 0);
  c.points[1].tm_cs = RotateZMatrix(kPi / 2) * TransMatrix(Point3(10, 0, 0));
  c.Solve();
  ctl = c.ws.SpanControls();
  EXPECT_POINT3_NEAR(ctl[2], Point3(10, 0, 0) + VectorTransform(RotateZMatrix(kPi / 2), {0, 1, 0}),
                     kTol);

  // Missing nodes make Corner points, and so does a Smooth end without its neighbour: both
  // spans are straight lines.
  c.points = Points({{0, 0, 0}, {10, 0, 0}, {20, 5, 0}}, kBezier);
  c.points[2].type = kSmooth;
  c.Solve();
  ASSERT_EQ(c.ws.Samples().size(), 3u);
  EXPECT_TRUE(c.ws.Samples()[0].corner);
  EXPECT_TRUE(c.ws.Samples()[1].corner);
  // A Smooth middle point curves both spans; the Corner start's one-sided rule looks past the
  // span's far end, the Smooth point's centred rule at both its neighbours.
  c.points[1].type = kSmooth;
  c.points[2].type = kCorner;
  c.Solve();
  EXPECT_FALSE(c.ws.Samples()[0].corner);
  ctl = c.ws.SpanControls();
  EXPECT_POINT3_NEAR(ctl[1], (Point3(10, 0, 0) - Point3(5, 1.25f, 0)) * 0.666f, kTol);
  EXPECT_POINT3_NEAR(ctl[2], Point3(10, 0, 0) + (Point3(0, 0, 0) - Point3(20, 5, 0)) * 0.165f,
                     kTol);
  EXPECT_POINT3_NEAR(ctl[5], Point3(10, 0, 0) + (Point3(20, 5, 0) - Point3(0, 0, 0)) * 0.165f,
                     kTol);
}

TEST(CurveIKSolverTest, WaveOnlyWithAmplitude) {
  Chain plain(Wiggle(), 8), waved(Wiggle(), 8);
  waved.params.use_wave = true;
  waved.params.wave_amplitude = 0.0f;
  plain.Solve();
  waved.Solve();
  for (size_t i = 0; i < 8; ++i) EXPECT_POINT3_NEAR(waved.Pos(i), plain.Pos(i), kTol);

  // A wave along a straight line along X (Z of the aimed frame is world Z) moves samples in Z.
  Chain line(Points({{0, 0, 0}, {40, 0, 0}}, kCorner), 9);
  line.params.use_wave = true;
  line.params.wave_amplitude = 2.0f;
  line.params.wave_length = 40.0f;
  line.params.wave_phase = 0.25f;
  line.Solve();
  EXPECT_NEAR(line.ws.Samples()[0].pos.z, 2.0f, kTol) << "sin(0.25 turn) at the start";
  EXPECT_NEAR(line.ws.Samples()[0].pos.y, 0.0f, kTol);
  float high = 0.0f;
  for (const CurveSample& s : line.ws.Samples()) high = std::max(high, std::fabs(s.pos.z));
  EXPECT_NEAR(high, 2.0f, 0.1f);
  EXPECT_GT(line.ws.CurveLength(), 40.5f) << "lengths are measured after the wave";

  line.params.wave_length = 0.0f;
  line.Solve();
  for (size_t i = 0; i < 9; ++i) {
    EXPECT_TRUE(std::isfinite(line.Pos(i).x + line.Pos(i).y + line.Pos(i).z));
  }
}

TEST(CurveIKSolverTest, FollowTypesTurnTheJoints) {
  // A straight line along +Y: Tangent and Child both aim X along it.
  Chain c(Points({{0, 0, 0}, {0, 10, 0}, {0, 20, 0}}, kCorner), 3);
  for (int follow : {1, 2}) {
    SCOPED_TRACE(follow);
    c.params.follow_type = follow;
    c.Solve();
    for (size_t i = 0; i < 3; ++i) EXPECT_POINT3_NEAR(c.Axis(i, 0), Point3(0, 1, 0), kTol);
  }
  c.params.follow_type = 0;
  c.Solve();
  EXPECT_POINT3_NEAR(c.Axis(1, 0), Point3(1, 0, 0), kTol) << "None keeps the points' frame";

  // Child: each joint aims at the next; the last copies the one before.
  Chain bent(Points({{0, 0, 0}, {10, 0, 0}, {10, 10, 0}}, kCorner), 3);
  bent.params.follow_type = 2;
  bent.params.slide_joints = 0.0f;
  bent.Solve();
  EXPECT_POINT3_NEAR(bent.Axis(0, 0), Point3(1, 0, 0), kTol);
  EXPECT_POINT3_NEAR(bent.Axis(1, 0), Point3(0, 1, 0), kTol);
  EXPECT_POINT3_NEAR(bent.Axis(2, 0), Point3(0, 1, 0), kTol);

  // The points' rotation is carried along: a point turned about X turns the joints about X.
  Chain turned(Points({{0, 0, 0}, {10, 0, 0}}, kCorner), 3);
  turned.params.follow_type = 1;
  turned.points[1].tm_cs = RotateXMatrix(kPi / 2) * TransMatrix(Point3(10, 0, 0));
  turned.Solve();
  EXPECT_POINT3_NEAR(turned.Axis(2, 1), Point3(0, 0, 1), kTol);
  EXPECT_POINT3_NEAR(turned.Axis(1, 1), Normalize(Point3(0, 1, 1)), kTol) << "half way, slerped";
  turned.params.use_points_rotation = false;
  turned.Solve();
  EXPECT_POINT3_NEAR(turned.Axis(2, 1), Point3(0, 1, 0), kTol);

  // The aim axis: Y serves along the curve.
  c.params.follow_type = 1;
  c.params.aim_axis = 1;
  c.Solve();
  EXPECT_POINT3_NEAR(c.Axis(1, 1), Point3(0, 1, 0), kTol);
  c.params.aim_axis_flip = true;
  c.Solve();
  EXPECT_POINT3_NEAR(c.Axis(1, 1), Point3(0, -1, 0), kTol);
}

TEST(CurveIKSolverTest, TwistRampsFromRotationToTwist) {
  Chain c(Points({{0, 0, 0}, {10, 0, 0}}, kCorner), 3);
  c.params.rotation = kPi / 2;
  c.params.twist = kPi / 2;
  c.Solve();
  EXPECT_POINT3_NEAR(c.Axis(0, 1), Point3(0, 0, 1), kTol);
  EXPECT_POINT3_NEAR(c.Axis(1, 1), Normalize(Point3(0, -1, 1)), kTol);
  EXPECT_POINT3_NEAR(c.Axis(2, 1), Point3(0, -1, 0), kTol);

  // Point twists interpolate along the span; additive ones add up.
  Chain p(Points({{0, 0, 0}, {10, 0, 0}, {20, 0, 0}}, kCorner), 3);
  p.points[1].twist = kPi / 2;
  p.points[2].twist = kPi / 2;
  p.Solve();
  EXPECT_POINT3_NEAR(p.Axis(2, 1), Point3(0, 0, 1), kTol);
  p.params.additive_twist = true;
  p.Solve();
  EXPECT_POINT3_NEAR(p.Axis(2, 1), Point3(0, -1, 0), kTol);
}

TEST(CurveIKSolverTest, ScaleAndSquash) {
  Chain c(Points({{0, 0, 0}, {10, 0, 0}}, kCorner), 3);
  c.points[1].tm_cs = ScaleMatrix(Point3(3, 3, 3)) * TransMatrix(Point3(10, 0, 0));
  c.Solve();
  EXPECT_NEAR(Length(c.joints[1].GetRow(1)), 2.0f, kTol) << "half way between 1 and 3";
  c.params.use_points_scale = false;
  c.Solve();
  EXPECT_NEAR(Length(c.joints[1].GetRow(1)), 1.0f, kTol);

  // Stretched to twice its rest length: the squash thins each joint by its weight.
  c.params.chain_length = 5.0f;
  c.params.squash = 1.0f;
  c.squash = {0.0f, 1.0f, 2.0f};
  c.Solve();
  EXPECT_NEAR(Length(c.joints[0].GetRow(1)), 1.0f, kTol);
  EXPECT_NEAR(Length(c.joints[1].GetRow(1)), 0.5f, kTol);
  EXPECT_NEAR(Length(c.joints[2].GetRow(2)), 0.25f, kTol);
}

TEST(CurveIKSolverTest, DegenerateInputStaysFinite) {
  const auto finite = [](const Matrix3& m) {
    for (int r = 0; r < 4; ++r) {
      for (int k = 0; k < 3; ++k) {
        if (!std::isfinite(m.GetRow(r)[k])) return false;
      }
    }
    return true;
  };
  {
    SCOPED_TRACE("coincident points");
    Chain c(Points({{1, 1, 1}, {1, 1, 1}, {1, 1, 1}}), 4);
    c.params.squash = 1.0f;
    c.params.percent = 0.5f;
    c.Solve();
    for (const Matrix3& m : c.joints) EXPECT_TRUE(finite(m));
  }
  {
    SCOPED_TRACE("one point holds every joint");
    Chain c(Points({{4, 5, 6}}), 3);
    c.params.closed = true;
    c.Solve();
    for (size_t i = 0; i < 3; ++i) EXPECT_POINT3_NEAR(c.Pos(i), Point3(4, 5, 6), kTol);
  }
  {
    SCOPED_TRACE("NaN parameters");
    Chain c(Wiggle(), 4);
    c.params.percent = std::nanf("");
    c.params.manual_stretch = std::nanf("");
    c.percents[2] = std::nanf("");
    c.Solve();
    for (const Matrix3& m : c.joints) EXPECT_TRUE(finite(m));
  }
  {
    SCOPED_TRACE("no points leaves the joints");
    Chain c({}, 2);
    c.joints[0] = TransMatrix(Point3(7, 7, 7));
    c.Solve();
    EXPECT_POINT3_NEAR(c.Pos(0), Point3(7, 7, 7), 0.0f);
    EXPECT_TRUE(c.ws.Samples().empty());
  }
}

}  // namespace
}  // namespace marvolith::test
