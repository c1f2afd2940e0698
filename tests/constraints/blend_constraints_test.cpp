// Copyright Marvolith contributors.
// ScaleConstraint and TransformConstraint in scenes: the start value taken from the replaced
// track, blends in local and world mode, relative mode, undo and files.
#include "constraints/blend_constraints.h"

#include <gtest/gtest.h>

#include "host/math/affine.h"
#include "host/params/iparamb2.h"
#include "tests/constraints/constraint_fixture.h"
#include "tests/support/chunk_bytes.h"
#include "tests/support/controller_test_util.h"

namespace marvolith::test {
namespace {

constexpr float kTol = 2e-4f;

ScaleConstraint* ConstrainScale(INode* node) {
  auto* sc = new ScaleConstraint;
  EXPECT_TRUE(node->GetTMController()->SetScaleController(sc));
  return sc;
}

TransformConstraint* ConstrainTransform(INode* node) {
  auto* tc = new TransformConstraint;
  EXPECT_TRUE(node->SetTMController(tc));
  return tc;
}

class BlendConstraintTest : public ConstraintTest {};

TEST_F(BlendConstraintTest, ScaleConstraintStartsFromTheReplacedTrackAndBlendsTargetScales) {
  INode* parent = Node("parent", ScaleMatrix(Point3(2, 2, 2)));
  INode* a = Node("a", ScaleMatrix(Point3(3, 1, 1)), parent);  // local scale 1.5, 0.5, 0.5
  INode* b = Node("b", ScaleMatrix(Point3(1, 1, 4)));
  INode* n = Node("n", ScaleMatrix(Point3(1, 2, 1)) * TransMatrix(Point3(0, 0, 5)));
  const Matrix3 before = n->GetNodeTM(0);
  ScaleConstraint* sc = nullptr;
  Undoable("Assign", [&] { sc = ConstrainScale(n); });
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), before, kTol) << "the replaced track's scale is kept";

  sc->ParamBlock()->SetValue(kTargetLocalWorld, 0, 1);  // world
  ASSERT_TRUE(sc->AppendTarget(a, 50.0f));
  ASSERT_TRUE(sc->AppendTarget(b, 50.0f));
  EXPECT_POINT3_NEAR(GetScaleLengths(n->GetNodeTM(0)), Point3(2, 1, 2.5f), kTol);
  sc->ParamBlock()->SetValue(kTargetLocalWorld, 0, 0);  // local: a's scale under its parent
  EXPECT_POINT3_NEAR(GetScaleLengths(n->GetNodeTM(0)), Point3(1.25f, 0.75f, 2.25f), kTol);
  EXPECT_POINT3_NEAR(n->GetNodeTM(0).GetTrans(), Point3(0, 0, 5), kTol) << "position untouched";

  // Relative: the blend is measured from the moment the target count changed.
  sc->ParamBlock()->SetValue(kTargetRelative, 0, true);
  sc->DeleteTarget(1);
  EXPECT_POINT3_NEAR(GetScaleLengths(n->GetNodeTM(0)), Point3(1, 2, 1), kTol)
      << "the initial scale, not a jump";
  a->Scale(0, a->GetNodeTM(0), Point3(2, 1, 1), true);
  EXPECT_POINT3_NEAR(GetScaleLengths(n->GetNodeTM(0)), Point3(2, 2, 1), kTol);

  sc->SetWeight(0, 0.0f);
  EXPECT_POINT3_NEAR(GetScaleLengths(n->GetNodeTM(0)), Point3(1, 2, 1), kTol) << "zero weight";
  ScaleValue abs;
  Interval valid = FOREVER;
  sc->GetValue(0, &abs, valid, CTRL_ABSOLUTE);
  EXPECT_TRUE(std::isfinite(abs.s.x));

  while (theHold.UndoCount() > 0) ASSERT_TRUE(theHold.Undo());
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), before, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(BlendConstraintTest, TransformConstraintBlendsWholeTransformsLocalOrWorld) {
  INode* parent = Node("parent", TransMatrix(Point3(0, 0, 10)));
  INode* a = Node("a", RotateZMatrix(0.4f) * TransMatrix(Point3(2, 0, 10)), parent);
  INode* b = Node("b", RotateZMatrix(0.8f) * TransMatrix(Point3(0, 4, 0)));
  INode* n_parent = Node("np", TransMatrix(Point3(100, 0, 0)));
  INode* n = Node("n", TransMatrix(Point3(101, 1, 1)), n_parent);
  const Matrix3 before = n->GetNodeTM(0);
  TransformConstraint* tc = nullptr;
  Undoable("Assign", [&] { tc = ConstrainTransform(n); });
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), before, kTol) << "the base is the replaced transform";

  tc->ParamBlock()->SetValue(kTargetLocalWorld, 0, 1);
  tc->AppendTarget(a, 50.0f);
  tc->AppendTarget(b, 50.0f);
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), RotateZMatrix(0.6f) * TransMatrix(Point3(1, 2, 5)), kTol)
      << "world: the blend is the node's world";
  tc->ParamBlock()->SetValue(kTargetLocalWorld, 0, 0);
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), RotateZMatrix(0.6f) * TransMatrix(Point3(101, 2, 0)), kTol)
      << "local: the blend of local transforms under the node's own parent";

  // Relative in world mode: adding keeps the node, moving a target moves it by the change.
  tc->ParamBlock()->SetValue(kTargetLocalWorld, 0, 1);
  tc->ParamBlock()->SetValue(kTargetRelative, 0, true);
  tc->DeleteTarget(1);
  const Matrix3 kept = n->GetNodeTM(0);
  a->Move(0, Matrix3(), Point3(0, 3, 0));
  EXPECT_POINT3_NEAR(n->GetNodeTM(0).GetTrans(), kept.GetTrans() + Point3(0, 3, 0), kTol);

  while (theHold.UndoCount() > 0) ASSERT_TRUE(theHold.Undo());
  EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), before, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  while (theHold.RedoCount() > 0) ASSERT_TRUE(theHold.Redo());
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(BlendConstraintTest, CopyLockAndFilesKeepTheState) {
  INode* a = Node("a", ScaleMatrix(Point3(2, 3, 4)) * TransMatrix(Point3(1, 0, 0)));
  INode* n = Node("n", TransMatrix(Point3(0, 2, 0)));
  INode* m = Node("m", RotateXMatrix(0.3f) * TransMatrix(Point3(0, 0, 3)));
  ScaleConstraint* sc = ConstrainScale(n);
  sc->AppendTarget(a, 40.0f);
  sc->ParamBlock()->SetValue(kTargetRelative, 0, true);
  TransformConstraint* tc = ConstrainTransform(m);
  tc->AppendTarget(a, 60.0f);
  tc->SetLocked(true);
  const Matrix3 n_world = n->GetNodeTM(0);
  const Matrix3 m_world = m->GetNodeTM(0);

  // A copy from the same class takes its block (a clone of it) and lock; a locked one refuses.
  auto* copy = static_cast<TransformConstraint*>(GetTransformConstraintDesc()->Create(false));
  copy->Copy(tc);
  EXPECT_TRUE(copy->GetLocked());
  EXPECT_EQ(copy->GetNumTargets(), 1);
  EXPECT_NE(copy->ParamBlock(), tc->ParamBlock());
  auto* other = static_cast<TransformConstraint*>(GetTransformConstraintDesc()->Create(false));
  other->Copy(copy);
  copy->Copy(other);  // locked: nothing
  EXPECT_TRUE(copy->GetLocked());
  copy->DeleteMe();
  other->DeleteMe();

  // The locked flag is a 4-byte chunk of its own.
  const Bytes saved = SaveBytes(tc);
  TransformConstraint* loaded =
      static_cast<TransformConstraint*>(GetTransformConstraintDesc()->Create(true));
  ASSERT_EQ(LoadBytes(loaded, saved), IO_OK);
  EXPECT_TRUE(loaded->GetLocked());
  EXPECT_FALSE(loaded->GetState().first_evaluation) << "the stored start values are used";
  ASSERT_EQ(LoadBytes(loaded, ContainerChunk(1, {DataChunk(0x1234, Bytes{9})})), IO_OK);
  EXPECT_TRUE(loaded->GetState().first_evaluation) << "missing: taken again";
  loaded->DeleteMe();

  RoundTrip();
  EXPECT_MATRIX3_NEAR(GetCOREInterface()->GetINodeByName("n")->GetNodeTM(0), n_world, kTol);
  EXPECT_MATRIX3_NEAR(GetCOREInterface()->GetINodeByName("m")->GetNodeTM(0), m_world, kTol);
}

}  // namespace
}  // namespace marvolith::test
