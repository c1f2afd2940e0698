// Copyright Marvolith contributors.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

#include "constraints/root_space.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

constexpr float kTol = 2e-4f;

Matrix3 Rows(Matrix3 m) {
  m.NoTrans();
  return m;
}

bool FiniteOrthonormal(const Matrix3& m) {
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 3; ++j) {
      if (!std::isfinite(m.GetRow(i)[j])) return false;
    }
  }
  for (int i = 0; i < 3; ++i) {
    if (std::fabs(m.GetRow(i).Length() - 1.0f) > 1e-3f) return false;
    if (std::fabs(DotProd(m.GetRow(i), m.GetRow((i + 1) % 3))) > 1e-3f) return false;
  }
  return true;
}

RootParentInput Following(const Matrix3& target_ws) {
  RootParentInput in;
  in.has_target = true;
  in.target_ws = target_ws;
  in.initial_target_offset = false;
  return in;
}

TEST(RootParentTest, HeightRules) {
  // follow_vertical 0: the height is the ground, whatever the target does.
  for (float height : {-10.0f, 0.0f, 3.0f, 25.0f}) {
    SCOPED_TRACE(height);
    RootParentInput in = Following(RotateXMatrix(0.3f) * TransMatrix(Point3(1, 2, height)));
    in.follow_vertical = 0.0f;
    in.ground_offset = 4.0f;
    EXPECT_NEAR(RootParentTM(in).GetTrans().z, 4.0f, 1e-5f);
    in.vertical_offset = 7.0f;
    EXPECT_NEAR(RootParentTM(in).GetTrans().z, 4.0f, 1e-5f) << "the offset is followed too";
  }
  // use_ground on: a target below the ground leaves the root on it; above, it follows the share.
  RootParentInput in = Following(TransMatrix(Point3(0, 0, -5)));
  in.ground_offset = 2.0f;
  EXPECT_NEAR(RootParentTM(in).GetTrans().z, 2.0f, 1e-5f);
  in.target_ws = TransMatrix(Point3(0, 0, 10));
  in.follow_vertical = 0.5f;
  in.vertical_offset = 1.0f;
  EXPECT_NEAR(RootParentTM(in).GetTrans().z, 2.0f + (10.0f + 1.0f - 2.0f) * 0.5f, 1e-5f);
  // use_ground off: G is 0, so ground_offset has no effect at all, and the root goes below 0.
  in.use_ground = false;
  in.target_ws = TransMatrix(Point3(3, 1, -6));
  const Matrix3 grounded = RootParentTM(in);
  in.ground_offset = -40.0f;
  EXPECT_MATRIX3_NEAR(RootParentTM(in), grounded, 1e-5f);
  EXPECT_NEAR(grounded.GetTrans().z, (-6.0f + 1.0f) * 0.5f, 1e-5f);
}

TEST(RootParentTest, AxesSharesAndTurn) {
  const Matrix3 target = RotateZMatrix(0.5f) * TransMatrix(Point3(3, 4, 5));
  {
    SCOPED_TRACE("full follow under the identity: the root stands on the target's ground point");
    RootParentInput in = Following(target);
    const Matrix3 r = RootParentTM(in);
    EXPECT_MATRIX3_NEAR(r, RotateZMatrix(0.5f) * TransMatrix(Point3(3, 4, 5)), kTol);
  }
  {
    SCOPED_TRACE("Y up: X and Z are the ground; the turn is about Y");
    RootParentInput in = Following(RotateYMatrix(-0.8f) * TransMatrix(Point3(3, 4, 5)));
    in.vertical_axis = 1;
    in.follow_horizontal = 0.5f;
    in.follow_turning = 0.25f;
    EXPECT_MATRIX3_NEAR(RootParentTM(in), RotateYMatrix(-0.2f) * TransMatrix(Point3(1.5f, 4, 2.5f)),
                        kTol);
  }
  {
    SCOPED_TRACE("a swing about another axis adds no turn");
    RootParentInput in = Following(RotateXMatrix(1.0f) * RotateZMatrix(0.5f));
    in.use_ground = false;
    EXPECT_MATRIX3_NEAR(Rows(RootParentTM(in)), RotateZMatrix(0.5f), 1e-3f);
  }
  {
    SCOPED_TRACE("more than half a circle comes back wrapped before the share is taken");
    RootParentInput in = Following(RotateZMatrix(3.4907f));  // 200 degrees
    in.follow_turning = 0.5f;
    EXPECT_MATRIX3_NEAR(Rows(RootParentTM(in)), RotateZMatrix(-1.3963f), 1e-3f)
        << "-160 degrees halved, not 200 halved";
  }
}

TEST(RootParentTest, SpacesAndInitialOffset) {
  const Matrix3 parent = RotateZMatrix(1.5708f) * TransMatrix(Point3(10, 0, 0));
  RootParentInput in = Following(TransMatrix(Point3(3, 4, 5)));
  in.parent_ws = parent;
  in.use_ground = false;
  in.follow_horizontal = in.follow_vertical = in.follow_turning = 0.0f;
  EXPECT_MATRIX3_NEAR(RootParentTM(in), parent, kTol) << "local: nothing followed is the parent";
  in.world = true;
  EXPECT_MATRIX3_NEAR(RootParentTM(in), Matrix3(), kTol) << "world: the parent is left out";
  in.follow_horizontal = in.follow_vertical = in.follow_turning = 1.0f;
  in.world = false;
  EXPECT_MATRIX3_NEAR(RootParentTM(in), TransMatrix(Point3(3, 4, 5)), kTol)
      << "a full follow reaches the target whatever the space";

  // No target: M is the identity, so the defaults keep the parent (the root stays at the ground).
  RootParentInput none;
  none.parent_ws = parent;
  EXPECT_MATRIX3_NEAR(RootParentTM(none), parent, kTol);
  none.ground_offset = 2.0f;
  EXPECT_MATRIX3_NEAR(RootParentTM(none), TransMatrix(Point3(0, 0, 2)) * parent, kTol);

  // The captured pose: its rotation and height come off, its horizontal position does not.
  const Matrix3 captured = RotateZMatrix(0.5f) * TransMatrix(Point3(4, 5, 6));
  RootParentInput off = Following(captured);
  off.initial_target_offset = true;
  off.initial_target_tm = RootCaptureTM(&captured, Matrix3(), false);
  EXPECT_MATRIX3_NEAR(RootParentTM(off), TransMatrix(Point3(4, 5, 0)), kTol);
  off.target_ws = RotateZMatrix(0.9f) * TransMatrix(Point3(6, 5, 8));
  EXPECT_MATRIX3_NEAR(RootParentTM(off), RotateZMatrix(0.4f) * TransMatrix(Point3(6, 5, 2)), kTol);
  EXPECT_MATRIX3_NEAR(RootCaptureTM(nullptr, parent, false), Matrix3(), 0.0f);
  EXPECT_MATRIX3_NEAR(RootCaptureTM(&captured, parent, true), captured, 0.0f);
}

TEST(RootParentTest, NonFiniteTargetLeavesTheParent) {
  const float nan = std::nanf("");
  Matrix3 bad;
  bad.SetTrans(Point3(nan, 0, 0));
  bad.SetRow(0, Point3(nan, nan, 0));
  RootParentInput in = Following(bad);
  in.parent_ws = TransMatrix(Point3(1, 2, 3));
  EXPECT_MATRIX3_NEAR(RootParentTM(in), in.parent_ws, 1e-6f);
}

TEST(SpaceParentTest, WeightsOffsetAndShortArc) {
  const Matrix3 parent = RotateXMatrix(0.4f) * TransMatrix(Point3(1, 2, 3));
  const Matrix3 target = RotateYMatrix(0.9f) * RotateZMatrix(-0.3f) * TransMatrix(Point3(9, 9, 9));
  SpaceParentInput in;
  in.parent_ws = parent;
  in.has_target = true;
  in.target_ws = target;
  in.weight = 0.0f;
  EXPECT_MATRIX3_NEAR(SpaceParentTM(in), parent, 1e-5f) << "weight 0 changes nothing";
  in.weight = 1.0f;
  const Matrix3 full = SpaceParentTM(in);
  EXPECT_MATRIX3_NEAR(Rows(full), Rows(target), kTol) << "weight 1 takes the target's rotation";
  EXPECT_POINT3_NEAR(full.GetTrans(), parent.GetTrans(), 1e-5f) << "and keeps the position";

  in.keep_initial_offset = true;
  in.initial_offset = SpaceCaptureOffset(target, parent);
  EXPECT_MATRIX3_NEAR(SpaceParentTM(in), parent, kTol) << "at capture the space is the parent";
  in.target_ws = target * RotateZMatrix(0.6f);
  Matrix3 turned_parent = Rows(parent) * RotateZMatrix(0.6f);
  turned_parent.SetTrans(parent.GetTrans());
  EXPECT_MATRIX3_NEAR(SpaceParentTM(in), turned_parent, kTol)
      << "after it, the target's world turn since capture";

  // A share of a turn goes the short way: 350 degrees is -10, so half of it is -5.
  SpaceParentInput arc;
  arc.has_target = true;
  arc.target_ws = RotateZMatrix(6.1087f);
  arc.weight = 0.5f;
  EXPECT_MATRIX3_NEAR(SpaceParentTM(arc), RotateZMatrix(-0.0873f), 1e-3f);

  SpaceParentInput none;
  none.parent_ws = parent;
  EXPECT_MATRIX3_NEAR(SpaceParentTM(none), parent, 0.0f) << "no target: the parent as it came";
}

RC_GTEST_PROP(RootSpaceCores, ResultsAreFiniteFrames, ()) {
  const auto rigid = [] {
    return rc::gen::apply([](const Matrix3& r, const Point3& t) { return r * TransMatrix(t); },
                          GenRotationMatrix(), GenPoint3(100.0f));
  };
  RootParentInput in;
  in.parent_ws = *rigid();
  in.has_target = *rc::gen::arbitrary<bool>();
  in.target_ws = *GenAffine();
  in.initial_target_offset = *rc::gen::arbitrary<bool>();
  in.initial_target_tm = *rigid();
  in.vertical_axis = *rc::gen::inRange(0, 3);
  in.world = *rc::gen::arbitrary<bool>();
  in.follow_horizontal = *GenFloat(0, 1);
  in.follow_vertical = *GenFloat(0, 1);
  in.follow_turning = *GenFloat(0, 1);
  in.vertical_offset = *GenFloat(-100, 100);
  in.ground_offset = *GenFloat(-100, 100);
  in.use_ground = *rc::gen::arbitrary<bool>();
  const Matrix3 root = RootParentTM(in);
  RC_ASSERT(FiniteOrthonormal(root));
  if (in.use_ground) {
    // The height above the ground, measured in the parent's frame the move was made in.
    const Matrix3 base = in.world ? Matrix3() : in.parent_ws;
    const Point3 local = (root * Inverse(base)).GetTrans();
    RC_ASSERT(local[in.vertical_axis] >= in.ground_offset - 1e-3f);
  }

  SpaceParentInput space;
  space.parent_ws = in.parent_ws;
  space.has_target = true;
  space.target_ws = *GenAffine();
  space.weight = *GenFloat(0, 1);
  space.keep_initial_offset = *rc::gen::arbitrary<bool>();
  space.initial_offset = SpaceCaptureOffset(*GenAffine(), in.parent_ws);
  const Matrix3 turned = SpaceParentTM(space);
  RC_ASSERT(FiniteOrthonormal(turned));
  RC_ASSERT(MaxDifference(turned.GetTrans(), in.parent_ws.GetTrans()) < 1e-3f);
}

}  // namespace
}  // namespace marvolith::test
