// Copyright Marvolith contributors.
#include "constraints/aim_frames.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <string>

#include "host/math/affine.h"
#include "host/math/geometry.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

constexpr float kTol = 2e-4f;

bool Finite(const Matrix3& m) {
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 3; ++c) {
      if (!std::isfinite(m[r][c])) return false;
    }
  }
  return true;
}

// The signed unit axis a node's row `axis` stands for, through flip.
Point3 AimRow(const Matrix3& m, int axis, bool flip) {
  const Point3 row = Normalize(m.GetRow(axis));
  return flip ? -row : row;
}

Matrix3 Rigid(const Matrix3& rot, const Point3& pos) { return rot * TransMatrix(pos); }

// Every axis choice turns the chosen axis at the target, from any rigid or uniformly scaled
// frame, and leaves an orthonormal right-handed frame at the frame's origin.
RC_GTEST_PROP(AimFrameLaws, EveryAxisChoicePointsTheAimAxisAtTheTarget, ()) {
  const float scale = *GenFloat(0.2f, 4.0f);
  const Matrix3 a_ws =
      ScaleMatrix(Point3(scale, scale, scale)) * Rigid(*GenRotationMatrix(), *GenPoint3(50.0f));
  // Far enough that the target stays beyond the aim's minimum length in the node's own scale
  // (up to 4), where the aim has no direction and keeps the identity.
  const Point3 offset = *GenUnitVector() * *GenFloat(0.05f, 100.0f);
  const Point3 target_ws = a_ws.GetTrans() + offset;
  for (int combo = 0; combo < 36; ++combo) {
    AimAxes axes;
    axes.aim_axis = combo % 3;
    axes.aim_flip = (combo / 3) % 2;
    axes.align_axis = (combo / 6) % 3;
    axes.align_flip = combo / 18;
    const AimResult r = AimAt(a_ws, target_ws, axes);
    Matrix3 world = r.World();
    RC_ASSERT(Finite(world));
    RC_ASSERT_POINT3_NEAR(world.GetTrans(), a_ws.GetTrans(), 1e-3f);
    world.NoTrans();
    world = ScaleMatrix(Point3(1 / scale, 1 / scale, 1 / scale)) * world;
    for (int i = 0; i < 3; ++i) {
      RC_ASSERT(std::fabs(world.GetRow(i).Length() - 1.0f) < 1e-3f);
      RC_ASSERT(std::fabs(DotProd(world.GetRow(i), world.GetRow((i + 1) % 3))) < 1e-3f);
    }
    RC_ASSERT(DotProd(CrossProd(world.GetRow(0), world.GetRow(1)), world.GetRow(2)) > 0.0f);
    const float along = DotProd(AimRow(world, axes.aim_axis, axes.aim_flip), Normalize(offset));
    RC_ASSERT(along > 1.0f - 1e-3f);
  }
}

TEST(AimFrames, AlignChoosesWhoseAxesTheFrameKeeps) {
  const Matrix3 node_ws = Rigid(RotateXMatrix(0.8f) * RotateZMatrix(0.3f), Point3(9, 9, 9));
  Matrix3 node_axes = node_ws;
  node_axes.NoTrans();
  for (float angle : {0.0f, 0.9f, 2.5f, -1.7f}) {
    SCOPED_TRACE(angle);
    const Matrix3 parent_ws =
        Rigid(RotateYMatrix(angle) * RotateXMatrix(angle * 0.5f), Point3(1, -2, 3));
    const Matrix3 world = AimAlignFrame(parent_ws, 0, nullptr);
    EXPECT_MATRIX3_NEAR(world, TransMatrix(Point3(1, -2, 3)), kTol) << "world axes at P";
    EXPECT_MATRIX3_NEAR(AimAlignFrame(parent_ws, 1, &node_ws), parent_ws, 0.0f);
    EXPECT_MATRIX3_NEAR(AimAlignFrame(parent_ws, 2, &node_ws),
                        node_axes * TransMatrix(Point3(1, -2, 3)), kTol)
        << "the node's axes at P";
    EXPECT_MATRIX3_NEAR(AimAlignFrame(parent_ws, 2, nullptr), world, kTol)
        << "node align without a node reads as world";
  }
}

TEST(AimFrames, TargetOnTheOriginOnlyRelabelsTheFrame) {
  const Matrix3 a_ws = Rigid(RotateZMatrix(0.4f), Point3(2, 0, 0));
  AimAxes axes;
  axes.aim_axis = 1;
  axes.align_axis = 2;
  const AimResult r = AimAt(a_ws, Point3(2, 0, 0), axes);
  EXPECT_QUAT_NEAR(r.q, AxisQuat(1, false), 1e-6f);
  EXPECT_TRUE(Finite(r.World()));
}

TEST(StretchFactors, RestSquashAndFloors) {
  EXPECT_POINT3_NEAR(StretchFactors(20, 20, 1, 1, 0), Point3(1, 1, 1), 1e-6f);
  EXPECT_POINT3_NEAR(StretchFactors(40, 20, 1, 1, 0), Point3(2, 0.5f, 0.5f), 1e-6f);
  EXPECT_POINT3_NEAR(StretchFactors(40, 20, 1, 0, 1), Point3(1, 2, 1), 1e-6f)
      << "squash 0 keeps the side axes; the aim axis is Y";
  EXPECT_POINT3_NEAR(StretchFactors(40, 20, 0.5f, 2, 2), Point3(0.25f, 0.25f, std::sqrt(2.0f)),
                     1e-5f);
  EXPECT_POINT3_NEAR(StretchFactors(40, 20, 1, 1, 7), Point3(0.5f, 0.5f, 2), 1e-6f)
      << "axes past 2 read as Z";
  const Point3 floored = StretchFactors(0, 0, 1, 1, 0);
  EXPECT_POINT3_NEAR(floored, Point3(1, 1, 1), 1e-6f) << "both floored at 0.001";
  const Point3 on_start = StretchFactors(0, 20, 1, 1, 0);
  EXPECT_NEAR(on_start.x, 0.001f / 20, 1e-9f);
  EXPECT_NEAR(on_start.y, 20 / 0.001f, 1.0f);
}

StretchInput Input(const Matrix3& parent_ws, const Matrix3* start_ws, const Matrix3* end_ws) {
  StretchInput in;
  in.parent_ws = parent_ws;
  in.start_ws = start_ws;
  in.end_ws = end_ws;
  in.end_active = end_ws != nullptr;
  return in;
}

TEST(StretchFrames, FrameAndScaleSources) {
  const Matrix3 parent_ws =
      ScaleMatrix(Point3(2, 2, 2)) * Rigid(RotateZMatrix(0.5f), Point3(1, 0, 0));
  const Matrix3 start_ws =
      ScaleMatrix(Point3(3, 1, 1)) * Rigid(RotateXMatrix(0.7f), Point3(0, 5, 0));
  const Matrix3 end_ws = ScaleMatrix(Point3(1, 4, 1)) * Rigid(RotateYMatrix(0.2f), Point3(0, 5, 9));
  Matrix3 start_axes = Rigid(RotateXMatrix(0.7f), Point3());
  Matrix3 end_axes = Rigid(RotateYMatrix(0.2f), Point3());
  Matrix3 parent_axes = Rigid(RotateZMatrix(0.5f), Point3());
  const Point3 at_start(0, 5, 0);
  struct Case {
    int align, inherit;
    bool with_start, end_active;
    Matrix3 expect;
  };
  const Case cases[] = {
      {2, 2, true, true, start_ws},
      {2, 0, true, true, start_axes * TransMatrix(at_start)},
      {2, 1, true, true, ScaleMatrix(Point3(2, 2, 2)) * start_axes * TransMatrix(at_start)},
      {2, 3, true, true, ScaleMatrix(Point3(1, 4, 1)) * start_axes * TransMatrix(at_start)},
      {2, 3, true, false, start_axes * TransMatrix(at_start)},  // inactive end: factors 1
      {2, 2, false, true, parent_ws},                           // no start: the parent
      {1, 2, true, true, ScaleMatrix(Point3(3, 1, 1)) * parent_axes * TransMatrix(at_start)},
      {1, 1, false, true, parent_ws},
      {3, 3, true, true, ScaleMatrix(Point3(1, 4, 1)) * end_axes * TransMatrix(at_start)},
      {3, 0, true, false, end_axes * TransMatrix(at_start)},  // a set end frames even inactive
      {0, 2, true, true, ScaleMatrix(Point3(3, 1, 1)) * TransMatrix(at_start)},
      {0, 0, false, true, TransMatrix(Point3(1, 0, 0))},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("align " + std::to_string(c.align) + " inherit " + std::to_string(c.inherit) +
                 (c.with_start ? " start" : "") + (c.end_active ? " end" : ""));
    StretchInput in = Input(parent_ws, c.with_start ? &start_ws : nullptr, &end_ws);
    in.align = c.align;
    in.inherit_scale = c.inherit;
    in.end_active = c.end_active;
    EXPECT_MATRIX3_NEAR(StretchBaseFrame(in), c.expect, kTol);
  }
  StretchInput no_end = Input(parent_ws, &start_ws, nullptr);
  no_end.align = 3;
  no_end.inherit_scale = 3;
  EXPECT_MATRIX3_NEAR(StretchBaseFrame(no_end), TransMatrix(at_start), kTol)
      << "align end without an end: the identity at the start";
}

TEST(StretchFrames, AimsStretchesAndMeasures) {
  const Matrix3 start_ws = Rigid(RotateZMatrix(0.3f), Point3(1, 2, 3));
  for (int aim_axis = 0; aim_axis < 3; ++aim_axis) {
    for (float squash : {1.0f, 0.0f}) {
      SCOPED_TRACE("aim " + std::to_string(aim_axis) + " squash " + std::to_string(squash));
      const Matrix3 end_ws = TransMatrix(Point3(1, 2, 3) + Point3(10, 20, -20));  // 30 away
      StretchInput in = Input(Matrix3(), &start_ws, &end_ws);
      in.axes.aim_axis = aim_axis;
      in.squash = squash;
      in.length = 15.0f;
      const StretchResult r = StretchFrame(in);
      ASSERT_TRUE(r.measured);
      EXPECT_NEAR(r.distance, 30.0f, 1e-3f);
      EXPECT_POINT3_NEAR(r.tm_ws.GetTrans(), Point3(1, 2, 3), kTol);
      EXPECT_NEAR(r.tm_ws.GetRow(aim_axis).Length(), 2.0f, kTol);
      EXPECT_GT(DotProd(Normalize(r.tm_ws.GetRow(aim_axis)), Normalize(Point3(10, 20, -20))),
                1.0f - 1e-4f);
      const float side = squash == 0.0f ? 1.0f : 0.5f;
      EXPECT_NEAR(r.tm_ws.GetRow((aim_axis + 1) % 3).Length(), side, kTol);
      EXPECT_NEAR(r.tm_ws.GetRow((aim_axis + 2) % 3).Length(), side, kTol);

      in.length = 30.0f;
      EXPECT_POINT3_NEAR(GetScaleLengths(StretchFrame(in).tm_ws), Point3(1, 1, 1), kTol)
          << "at rest length";
      in.stretch_active = false;
      const StretchResult unscaled = StretchFrame(in);
      EXPECT_FALSE(unscaled.measured);
      EXPECT_POINT3_NEAR(GetScaleLengths(unscaled.tm_ws), Point3(1, 1, 1), kTol);
    }
  }
}

TEST(StretchFrames, EndOnTheStartAndMissingEndsStayFinite) {
  const Matrix3 start_ws = Rigid(RotateYMatrix(1.1f), Point3(4, 4, 4));
  StretchInput in = Input(Matrix3(), &start_ws, &start_ws);
  const StretchResult on_start = StretchFrame(in);
  EXPECT_TRUE(on_start.measured);
  EXPECT_FLOAT_EQ(on_start.distance, kStretchMinLength);
  EXPECT_TRUE(Finite(on_start.tm_ws));

  in.end_active = false;  // use_end off: the frame, unmeasured
  const StretchResult inactive = StretchFrame(in);
  EXPECT_FALSE(inactive.measured);
  EXPECT_MATRIX3_NEAR(inactive.tm_ws, StretchBaseFrame(in), 0.0f);
  in.end_ws = nullptr;
  in.end_active = true;  // no end node at all
  EXPECT_MATRIX3_NEAR(StretchFrame(in).tm_ws, start_ws, kTol);
}

}  // namespace
}  // namespace marvolith::test
