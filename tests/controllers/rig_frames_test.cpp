// Copyright Marvolith contributors.
#include "controllers/rig_frames.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "controllers/rig_control.h"
#include "controllers/rotation_xyz.h"
#include "host/app/host_classes.h"
#include "host/math/affine.h"
#include "host/params/iparamb2.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/math_generators.h"
#include "tests/support/math_matchers.h"

namespace marvolith::test {
namespace {

constexpr float kTol = 2e-4f;
const Matrix3 kMirrorX = ScaleMatrix(Point3(-1, 1, 1));

struct Case {
  const char* name;
  Matrix3 tm;
};

std::vector<Case> Parents() {
  const Matrix3 turned = MatrixOf(QFromAngAxis(0.7f, Normalize(Point3(1, 2, 3))));
  const Matrix3 placed = turned * TransMatrix(Point3(1, -2, 3));
  return {{"identity", Matrix3()},
          {"moved", TransMatrix(Point3(3, -2, 5))},
          {"rotated", placed},
          {"non-uniform scale", ScaleMatrix(Point3(2.0f, 0.5f, 1.5f)) * placed},
          {"skewed", RotateYMatrix(-0.4f) * ScaleMatrix(Point3(0.3f, 2.5f, 1.0f)) * placed},
          {"mirrored -1 X", kMirrorX * placed}};
}

// Offsets of unit scale first (none, posed, left side), then one stretched along tilted axes.
constexpr int kUnitScaleOffsets = 3;
std::vector<Case> Offsets() {
  const Matrix3 posed = RotateZMatrix(0.4f) * RotateXMatrix(-0.3f) * TransMatrix(Point3(1, 2, -1));
  const Matrix3 tilt = MatrixOf(QFromAngAxis(0.5f, Normalize(Point3(1, 1, 0))));
  return {{"none", Matrix3()},
          {"posed", posed},
          {"left side", kMirrorX * posed},
          {"stretched", Inverse(tilt) * ScaleMatrix(Point3(1.5f, 0.7f, 2.0f)) * tilt * posed}};
}

struct Tracks {
  Point3 p;
  Quat q;
  ScaleValue s;
};

const Tracks kPosed{Point3(0.5f, -1, 2), QFromAngAxis(0.8f, Normalize(Point3(1, 0, 1))),
                    ScaleValue(Point3(1.2f, 0.9f, 1.4f))};

Matrix3 Ortho(Matrix3 m) {
  m.Orthogonalize();
  return m;
}

// The tracks applied between the frame steps as the host's default tracks apply themselves to a
// matrix (relative GetValue): move, turn, then scale, which orthogonalises what it scales.
Matrix3 Evaluate(const RigFrames& f, const Tracks& k) {
  Matrix3 m = f.position_ws;
  m.PreTranslate(k.p);
  m = f.TurnFrame(m, f.in.straight_scale);
  m.PreRotate(k.q);
  ApplyScaleValue(m, k.s);
  return f.Finish(m);
}

// The world written out from the offset's parts, independently of the frame steps. Without
// straight_scale any offset; with it, offsets of unit scale and an axis-aligned track scale.
Matrix3 Expected(const RigFrameInput& in, const Tracks& k) {
  Point3 op;
  Quat oq;
  ScaleValue os;
  DecomposeMatrix(in.offset, op, oq, os);
  const Matrix3 stretch = MatrixFromScaleValue(os);
  const Matrix3 moved = in.independent_offset
                            ? TransMatrix(k.p) * TransMatrix(op) * in.parent_ws
                            : Inverse(stretch) * TransMatrix(k.p) * in.offset * in.parent_ws;
  const Matrix3 lead = in.independent_offset ? MatrixOf(oq) : Matrix3();
  if (!in.straight_scale) {
    return stretch * MatrixFromScaleValue(k.s) * Ortho(MatrixOf(k.q) * lead * moved);
  }
  return stretch * ScaleMatrix(GetScaleLengths(in.parent_ws) * k.s.s) * MatrixOf(k.q) * lead *
         Ortho(moved);
}

TEST(RigFramesTest, TracksComposeAsTheContractSaysUnderEveryParent) {
  for (const Case& parent : Parents()) {
    for (int o = 0; o < static_cast<int>(Offsets().size()); ++o) {
      for (int mode = 0; mode < 4; ++mode) {
        RigFrameInput in;
        in.parent_ws = parent.tm;
        in.offset = Offsets()[o].tm;
        in.independent_offset = mode & 1;
        in.straight_scale = mode & 2;
        if (in.straight_scale && o >= kUnitScaleOffsets) continue;  // no closed form
        SCOPED_TRACE(std::string(parent.name) + ", offset " + Offsets()[o].name + ", mode " +
                     std::to_string(mode));
        const RigFrames f = RigTrackFrames(in);
        EXPECT_MATRIX3_NEAR(Evaluate(f, kPosed), Expected(in, kPosed), kTol);
        EXPECT_MATRIX3_NEAR(f.rotation_ws, f.TurnFrame(f.position_ws, false), 0)
            << "the edits' turning frame is the evaluation's with the position track at rest";
      }
    }
  }
  RigFrameInput in;
  in.parent_ws = Parents()[4].tm;
  in.offset = Offsets()[3].tm;
  in.straight_scale = true;
  AllocationScope scope;
  const Matrix3 world = Evaluate(RigTrackFrames(in), kPosed);
  EXPECT_EQ(scope.Count(), 0u) << "the core allocates nothing";
  EXPECT_TRUE(std::isfinite(world.GetRow(0).x));
}

// The frame steps give the written-out world under random parents (skew and mirrors included),
// offsets and tracks, in both offset modes.
RC_GTEST_PROP(RigFramesLaws, EvaluationMatchesTheWrittenOutWorld, ()) {
  AffineGenOptions small;
  small.max_translation = 5.0f;
  RigFrameInput in;
  in.parent_ws = *GenAffine(small);
  in.offset = *GenAffine(small);
  in.independent_offset = *rc::gen::arbitrary<bool>();
  Tracks k;
  k.p = *GenPoint3(5.0f);
  k.q = *GenRotation();
  k.s = ScaleValue(Point3(*GenFloat(0.3f, 3.0f), *GenFloat(0.3f, 3.0f), *GenFloat(0.3f, 3.0f)),
                   *GenRotation());
  RC_ASSERT_MATRIX3_NEAR(Evaluate(RigTrackFrames(in), k), Expected(in, k), 5e-3f);
}

TEST(RigFramesTest, FigureModeTakesEditsInTheParentsFrame) {
  for (const Case& parent : Parents()) {
    SCOPED_TRACE(parent.name);
    RigFrameInput in;
    in.parent_ws = parent.tm;
    in.offset = Offsets()[3].tm;
    in.figure_mode = true;
    in.straight_scale = true;
    const RigFrames f = RigTrackFrames(in);
    EXPECT_MATRIX3_NEAR(f.position_ws, parent.tm, 0);
    EXPECT_MATRIX3_NEAR(f.rotation_ws, parent.tm, 0);
    const Matrix3 any = Offsets()[1].tm * parent.tm;
    EXPECT_MATRIX3_NEAR(f.TurnFrame(any, true), any, 0) << "no offset part goes in";
    EXPECT_MATRIX3_NEAR(f.Finish(any), any, 0);
  }
}

TEST(RigFramesTest, AtRestBothOffsetModesGiveTheSameWorld) {
  // ResetFigure stores the local transform as the offset and zeroes the tracks; the world only
  // stays put if the two ways of applying the offset agree at rest.
  const Tracks rest;
  for (const Case& parent : Parents()) {
    for (const Case& offset : Offsets()) {
      SCOPED_TRACE(std::string(parent.name) + ", offset " + offset.name);
      RigFrameInput in;
      in.parent_ws = parent.tm;
      in.offset = offset.tm;
      const Matrix3 independent = Evaluate(RigTrackFrames(in), rest);
      in.independent_offset = false;
      EXPECT_MATRIX3_NEAR(Evaluate(RigTrackFrames(in), rest), independent, kTol);
      if (std::string(parent.name) != "skewed" && std::string(parent.name) != "non-uniform scale") {
        EXPECT_MATRIX3_NEAR(independent, offset.tm * parent.tm, kTol)
            << "an orthogonal parent carries the offset whole";
      }
    }
  }
}

TEST(RigFramesTest, CollapsedOffsetStaysFiniteAndCollapsed) {
  const Matrix3 flat = ScaleMatrix(Point3(1, 0, 1)) * Offsets()[1].tm;
  for (bool independent : {true, false}) {
    SCOPED_TRACE(independent ? "independent" : "whole");
    RigFrameInput in;
    in.parent_ws = Parents()[3].tm;
    in.offset = flat;
    in.independent_offset = independent;
    const RigFrames f = RigTrackFrames(in);
    const Matrix3 world = Evaluate(f, kPosed);
    for (const Matrix3& m : {f.inverse_stretch, f.rotation_ws, world}) {
      for (int r = 0; r < 4; ++r) {
        const Point3 row = m.GetRow(r);
        EXPECT_TRUE(std::isfinite(row.x) && std::isfinite(row.y) && std::isfinite(row.z))
            << "row " << r << " of " << Show(m);
      }
    }
    EXPECT_NEAR(world.Determinant(), 0.0f, 1e-5f) << "the flat direction stays flat";
  }
}

class RigFramesControllerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    for (ClassDesc2* cd : {GetRigControlDesc(), GetRotationXYZDesc()}) {
      if (ClassDirectory::Get().AddClass(cd)) added_.push_back(cd);
    }
  }
  void TearDown() override {
    for (ClassDesc2* cd : added_) ClassDirectory::Get().RemoveClass(cd);
  }

 private:
  std::vector<ClassDesc2*> added_;
};

TEST_F(RigFramesControllerTest, ControllerEvaluatesTheCoreWithItsTracks) {
  for (const Case& parent : Parents()) {
    for (const Case& offset : Offsets()) {
      for (int mode = 0; mode < 4; ++mode) {
        SCOPED_TRACE(std::string(parent.name) + ", offset " + offset.name + ", mode " +
                     std::to_string(mode));
        RigFrameInput in;
        in.parent_ws = parent.tm;
        in.offset = offset.tm;
        in.independent_offset = mode & 1;
        in.straight_scale = mode & 2;
        auto* rc = new RigControl;
        rc->ParamBlock()->SetValue(kRigOffsetTM, 0, in.offset);
        rc->ParamBlock()->SetValue(kRigIndependentOffset, 0, in.independent_offset);
        rc->ParamBlock()->SetValue(kRigStraightScale, 0, in.straight_scale);
        rc->GetPositionController()->SetValue(0, const_cast<Point3*>(&kPosed.p));
        GetRealRotationController(rc)->SetValue(0, const_cast<Quat*>(&kPosed.q));
        rc->GetScaleController()->SetValue(0, const_cast<ScaleValue*>(&kPosed.s));
        Matrix3 world = parent.tm;
        Interval valid = FOREVER;
        rc->GetValue(0, &world, valid, CTRL_RELATIVE);
        EXPECT_MATRIX3_NEAR(world, Evaluate(RigTrackFrames(in), kPosed), kTol);

        // An edit to a world lands there: the edit paths solve in the same frames.
        const Matrix3 target =
            RotateYMatrix(0.6f) * RotateZMatrix(-1.2f) * TransMatrix(Point3(-3, 1, 7));
        SetXFormPacket set(target, parent.tm);
        rc->SetValue(0, &set);
        world = parent.tm;
        rc->GetValue(0, &world, valid, CTRL_RELATIVE);
        if (!in.straight_scale || offset.name != std::string("stretched")) {
          EXPECT_MATRIX3_NEAR(world, target, kTol) << "set";
        }
        rc->DeleteMe();
      }
    }
  }
}

}  // namespace
}  // namespace marvolith::test
