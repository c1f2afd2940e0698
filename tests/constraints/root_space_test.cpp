// Copyright Marvolith contributors.
// RootConstraint and RotationSpace on nodes of a headless scene: following, edits through the
// node, assignment over animation, capture, undo, files.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "constraints/root_constraint.h"
#include "constraints/rotation_space.h"
#include "host/app/scene_file.h"
#include "host/controllers/controller_classes.h"
#include "host/core/clock.h"
#include "host/params/iparamb2.h"
#include "host/scene/scene.h"
#include "plugin/strings.h"
#include "support/lock_chunk.h"
#include "tests/constraints/constraint_fixture.h"
#include "tests/support/alloc_counter.h"
#include "tests/support/chunk_bytes.h"
#include "tests/support/controller_test_util.h"
#include "tests/support/math_matchers.h"
#include "tests/support/scene_checks.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {

constexpr float kTol = 2e-4f;

class RootSpaceTest : public ConstraintTest {
 protected:
  template <typename C>
  static C* Put(INode* node) {
    auto* c = new C;
    EXPECT_TRUE(node->SetTMController(c));
    return c;
  }
};

TEST_F(RootSpaceTest, RootFollowsItsTargetOnTheGround) {
  INode* pelvis = Node("pelvis", RotateZMatrix(0.5f) * TransMatrix(Point3(3, 4, 5)));
  INode* root = Node("root", TransMatrix(Point3(-1, 1, 0)));
  RootConstraint* c = Put<RootConstraint>(root);
  EXPECT_MATRIX3_NEAR(root->GetNodeTM(0), TransMatrix(Point3(-1, 1, 0)), kTol)
      << "no target: the root stays where it was";
  IParamBlock2* pb = c->ParamBlock();
  ASSERT_TRUE(pb->SetValue(kRootTarget, 0, pelvis));
  EXPECT_MATRIX3_NEAR(root->GetNodeTM(0), TransMatrix(Point3(3, 4, 0)), kTol)
      << "picking the target captures it: the root stands under it, on the ground";
  pelvis->SetNodeTM(0, RotateZMatrix(0.9f) * TransMatrix(Point3(6, 5, 8)));
  EXPECT_MATRIX3_NEAR(root->GetNodeTM(0), RotateZMatrix(0.4f) * TransMatrix(Point3(6, 5, 3)), kTol)
      << "the turn and the height since capture";
  pb->SetValue(kRootFollowVertical, 0, 0.0f);
  pb->SetValue(kRootGroundOffset, 0, 1.5f);
  for (float z : {-30.0f, 2.0f, 40.0f}) {
    pelvis->SetNodeTM(0, TransMatrix(Point3(1, 2, z)));
    EXPECT_NEAR(root->GetNodeTM(0).GetTrans().z, 1.5f, 1e-4f) << z;
  }
  // A target that would close a loop is refused: the root's own child.
  INode* child = Node("child", Matrix3(), root);
  EXPECT_FALSE(pb->SetValue(kRootTarget, 0, child));
  EXPECT_EQ(pb->GetINode(kRootTarget), pelvis);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(RootSpaceTest, RotationSpaceSharesTheTargetsRotation) {
  const Matrix3 chest_ws = RotateXMatrix(0.4f) * TransMatrix(Point3(1, 2, 3));
  const Matrix3 target_ws = RotateYMatrix(0.9f) * TransMatrix(Point3(9, 9, 9));
  INode* chest = Node("chest", chest_ws);
  INode* target = Node("target", target_ws);
  INode* head = Node("head", chest_ws, chest);
  IParamBlock2* pb = Put<RotationSpace>(head)->ParamBlock();
  ASSERT_TRUE(pb->SetValue(kSpaceTarget, 0, target));
  const Matrix3 full = head->GetNodeTM(0);
  EXPECT_FALSE(full.Equals(chest_ws, 1e-3f));
  Matrix3 rows = target_ws;
  rows.SetTrans(chest_ws.GetTrans());
  EXPECT_MATRIX3_NEAR(full, rows, kTol) << "weight 1: the target's rotation, its own position";
  pb->SetValue(kSpaceWeight, 0, 0.0f);
  EXPECT_MATRIX3_NEAR(head->GetNodeTM(0), chest_ws, kTol) << "weight 0 changes nothing";
  // The head's own edits still live in its sub-controller, under the space.
  EXPECT_FALSE(pb->SetValue(kSpaceTarget, 0, head)) << "its own node would be a loop";

  // Evaluation allocates nothing, for either class (the root follows the same target).
  INode* root = Node("root", Matrix3());
  Put<RootConstraint>(root)->ParamBlock()->SetValue(kRootTarget, 0, target);
  for (INode* n : {head, root}) {
    Control* tm = n->GetTMController();
    Matrix3 m;
    Interval valid = FOREVER;
    tm->GetValue(0, &m, valid, CTRL_RELATIVE);  // warm the target's cache
    AllocationScope scope;
    for (TimeValue t : {0, 160, 320}) {
      m = chest_ws;
      valid = FOREVER;
      tm->GetValue(t, &m, valid, CTRL_RELATIVE);
    }
    EXPECT_EQ(scope.Count(), 0u) << n->GetName() << ": evaluation allocates nothing";
  }
}

// The world transform an edit should give: the same edit on a plain PRS node with the same world
// under the same parent (the host's own transform controller is the oracle).
struct Edit {
  const char* name;
  std::function<void(INode*, const Matrix3& axis_ws)> apply;
};

std::vector<Edit> Edits() {
  const AngAxis turn(Normalize(Point3(1, 2, 3)), 0.4f);
  return {{"move", [](INode* n, const Matrix3& a) { n->Move(0, a, Point3(1, -2, 0.5f)); }},
          {"rotate about the axis point",
           [turn](INode* n, const Matrix3& a) { n->Rotate(0, a, turn, false); }},
          {"rotate about the node's origin",
           [turn](INode* n, const Matrix3& a) { n->Rotate(0, a, turn, true); }},
          {"scale about the axis point",
           [](INode* n, const Matrix3& a) { n->Scale(0, a, Point3(1.5f, 1.5f, 1.5f), false); }},
          {"scale along the axes",
           [](INode* n, const Matrix3& a) { n->Scale(0, a, Point3(1.5f, 0.8f, 1.2f), true); }},
          {"set", [](INode* n, const Matrix3&) {
             n->SetNodeTM(0, RotateYMatrix(0.7f) * TransMatrix(Point3(-2, 5, 1)));
           }}};
}

TEST_F(RootSpaceTest, EditsThroughTheNodeLandWhereAsked) {
  const Matrix3 base_ws = RotateZMatrix(0.3f) * TransMatrix(Point3(2, -1, 0.5f));
  const Matrix3 start_ws = RotateXMatrix(-0.5f) * TransMatrix(Point3(4, 1, 2));
  for (bool root_kind : {true, false}) {
    SCOPED_TRACE(root_kind ? "root constraint" : "rotation space");
    GetCOREInterface()->Reset();
    INode* base = Node("base", base_ws);
    INode* target =
        Node("target", RotateZMatrix(1.1f) * RotateXMatrix(0.3f) * TransMatrix(Point3(5, 6, 3)));
    INode* node = Node("node", start_ws, base);
    INode* oracle = Node("oracle", start_ws, base);
    if (root_kind) {
      IParamBlock2* pb = Put<RootConstraint>(node)->ParamBlock();
      pb->SetValue(kRootTarget, 0, target);
      pb->SetValue(kRootFollowTurning, 0, 0.7f);
      pb->SetValue(kRootFollowHorizontal, 0, 0.4f);
    } else {
      IParamBlock2* pb = Put<RotationSpace>(node)->ParamBlock();
      pb->SetValue(kSpaceTarget, 0, target);
      pb->SetValue(kSpaceWeight, 0, 0.6f);
    }
    for (const Edit& edit : Edits()) {
      for (int system = 0; system < 3; ++system) {
        SCOPED_TRACE(std::string(edit.name) + (system == 0   ? " in local axes"
                                               : system == 1 ? " in world axes at the node"
                                                             : " in world axes at the origin"));
        node->SetNodeTM(0, start_ws);
        oracle->SetNodeTM(0, start_ws);
        ASSERT_MATRIX3_NEAR(node->GetNodeTM(0), start_ws, kTol) << "set lands";
        const Matrix3 axis_ws = system == 0   ? node->GetNodeTM(0)
                                : system == 1 ? TransMatrix(start_ws.GetTrans())
                                              : Matrix3();
        edit.apply(node, axis_ws);
        edit.apply(oracle, axis_ws);
        const Matrix3 expected = oracle->GetNodeTM(0);
        EXPECT_FALSE(expected.Equals(start_ws, 1e-3f)) << "the edit changes something";
        EXPECT_MATRIX3_NEAR(node->GetNodeTM(0), expected, 1e-3f);
      }
    }
  }
}

TEST_F(RootSpaceTest, AssigningOverAnimationKeepsItAndUndoes) {
  const TimeValue times[3] = {0, 2400, 4800};
  for (bool root_kind : {true, false}) {
    SCOPED_TRACE(root_kind ? "root constraint" : "rotation space");
    GetCOREInterface()->Reset();
    INode* base = Node("base", TransMatrix(Point3(0, 0, 2)));
    INode* node = Node("node", Matrix3(), base);
    AnimateOn();
    node->SetNodeTM(0, TransMatrix(Point3(1, 0, 2)));
    node->SetNodeTM(4800, RotateZMatrix(1.0f) * TransMatrix(Point3(5, 3, 4)));
    AnimateOff();
    Control* animated = node->GetTMController();
    std::vector<Matrix3> before;
    for (TimeValue t : times) before.push_back(node->GetNodeTM(t));
    ASSERT_FALSE(before[0].Equals(before[2], 1e-3f)) << "the node is animated";

    theHold.Begin();
    ParentSpaceControl* c = root_kind ? static_cast<ParentSpaceControl*>(new RootConstraint)
                                      : static_cast<ParentSpaceControl*>(new RotationSpace);
    ASSERT_TRUE(node->SetTMController(c));
    theHold.Accept("Assign");
    EXPECT_EQ(c->SubController(), animated) << "the animation lives on under the constraint";
    EXPECT_EQ(c->GetPositionController(), animated->GetPositionController());
    for (int i = 0; i < 3; ++i) EXPECT_MATRIX3_NEAR(node->GetNodeTM(times[i]), before[i], kTol);

    ASSERT_TRUE(theHold.Undo());
    EXPECT_EQ(node->GetTMController(), animated);
    for (int i = 0; i < 3; ++i) EXPECT_MATRIX3_NEAR(node->GetNodeTM(times[i]), before[i], kTol);
    EXPECT_TRUE(CachesAgreeWithFreshEvaluation(2400));
    ASSERT_TRUE(theHold.Redo());
    EXPECT_EQ(node->GetTMController(), c);
    EXPECT_EQ(c->SubController(), animated);
    EXPECT_TRUE(CachesAgreeWithFreshEvaluation(2400));
  }
}

TEST_F(RootSpaceTest, CaptureAndEditsUndoAndRedo) {
  INode* pelvis = Node("pelvis", RotateZMatrix(0.5f) * TransMatrix(Point3(3, 4, 5)));
  INode* root = Node("root", TransMatrix(Point3(-1, 1, 0)));
  RootConstraint* rc = Put<RootConstraint>(root);
  IParamBlock2* pb = rc->ParamBlock();
  const Matrix3 before = root->GetNodeTM(0);

  theHold.Begin();
  pb->SetValue(kRootTarget, 0, pelvis);
  theHold.Accept("Pick Target");
  const Matrix3 captured = root->GetNodeTM(0);
  EXPECT_MATRIX3_NEAR(captured, TransMatrix(Point3(3, 4, 0)), kTol);
  theHold.Begin();
  pb->SetValue(kRootGroundOffset, 0, 2.0f);
  pb->SetValue(kRootVerticalOffset, 0, -1.0f);
  theHold.Accept("Ground");
  const Matrix3 grounded = root->GetNodeTM(0);
  EXPECT_NEAR(grounded.GetTrans().z, 2.0f, 1e-4f);

  ASSERT_TRUE(theHold.Undo());
  EXPECT_MATRIX3_NEAR(root->GetNodeTM(0), captured, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  ASSERT_TRUE(theHold.Undo());
  EXPECT_MATRIX3_NEAR(root->GetNodeTM(0), before, kTol) << "capture and pick undo together";
  EXPECT_EQ(pb->GetINode(kRootTarget), nullptr);
  EXPECT_MATRIX3_NEAR(pb->GetMatrix3(kRootInitialTargetTM), Matrix3(), 0.0f);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  ASSERT_TRUE(theHold.Redo());
  EXPECT_MATRIX3_NEAR(root->GetNodeTM(0), captured, kTol);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_MATRIX3_NEAR(root->GetNodeTM(0), grounded, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // The rotation space captures without a jump, and then follows the target's turns.
  const Matrix3 chest_ws = RotateXMatrix(0.4f) * TransMatrix(Point3(1, 2, 3));
  INode* chest = Node("chest", chest_ws);
  INode* target = Node("target", RotateYMatrix(0.9f) * TransMatrix(Point3(9, 9, 9)));
  INode* head = Node("head", TransMatrix(Point3(0, 0, 1)) * chest_ws, chest);
  IParamBlock2* sp = Put<RotationSpace>(head)->ParamBlock();
  sp->SetValue(kSpaceTarget, 0, target);
  sp->SetValue(kSpaceWeight, 0, 0.5f);
  const Matrix3 shared = head->GetNodeTM(0);
  theHold.Begin();
  sp->SetValue(kSpaceKeepInitialOffset, 0, true);
  theHold.Accept("Keep Offset");
  EXPECT_MATRIX3_NEAR(head->GetNodeTM(0), shared, kTol) << "no jump at capture";
  EXPECT_FALSE(sp->GetMatrix3(kSpaceInitialOffset).Equals(Matrix3(), 1e-3f));
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(sp->GetInt(kSpaceKeepInitialOffset), 0);
  EXPECT_MATRIX3_NEAR(sp->GetMatrix3(kSpaceInitialOffset), Matrix3(), 0.0f);
  EXPECT_MATRIX3_NEAR(head->GetNodeTM(0), shared, kTol);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
  ASSERT_TRUE(theHold.Redo());
  EXPECT_MATRIX3_NEAR(head->GetNodeTM(0), shared, kTol);
  sp->SetValue(kSpaceWeight, 0, 1.0f);
  target->SetNodeTM(0, target->GetNodeTM(0) * RotateZMatrix(0.6f));
  Matrix3 turned = head->GetNodeTM(0);
  turned.NoTrans();
  Matrix3 expected = shared * RotateZMatrix(0.6f);
  expected.NoTrans();
  EXPECT_MATRIX3_NEAR(turned, expected, kTol) << "the target's world turn since capture";
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(RootSpaceTest, LocksChunksAndClones) {
  for (bool root_kind : {true, false}) {
    SCOPED_TRACE(root_kind ? "root constraint" : "rotation space");
    auto make = [&](bool loading) {
      return root_kind ? static_cast<ParentSpaceControl*>(new RootConstraint(loading))
                       : static_cast<ParentSpaceControl*>(new RotationSpace(loading));
    };
    ParentSpaceControl* c = Keep(make(false));
    // Locked, edits do nothing; the lock is undoable.
    theHold.Begin();
    c->SetLocked(true);
    theHold.Accept("Lock");
    SetXFormPacket pk(TransMatrix(Point3(1, 2, 3)), Matrix3());
    c->SetValue(0, &pk);
    Matrix3 world;
    Interval valid = FOREVER;
    c->GetValue(0, &world, valid, CTRL_RELATIVE);
    EXPECT_MATRIX3_NEAR(world, Matrix3(), 0.0f);
    EXPECT_EQ(SaveBytes(c), ContainerChunk(1, {DataChunk(kLockChunkID, {1})}));
    ASSERT_TRUE(theHold.Undo());
    EXPECT_FALSE(c->GetLocked());
    c->SetValue(0, &pk);
    world = Matrix3();
    c->GetValue(0, &world, valid, CTRL_RELATIVE);
    EXPECT_MATRIX3_NEAR(world, TransMatrix(Point3(1, 2, 3)), kTol);

    // Unknown chunks are skipped; a damaged lock chunk fails.
    ParentSpaceControl* loaded = Keep(make(true));
    EXPECT_EQ(
        LoadBytes(loaded, ContainerChunk(1, {DataChunk(77, {9, 9}), DataChunk(kLockChunkID, {1})})),
        IO_OK);
    EXPECT_TRUE(loaded->GetLocked());
    EXPECT_NE(LoadBytes(Keep(make(true)), ContainerChunk(1, {DataChunk(kLockChunkID, {1, 2})})),
              IO_OK);

    // Sub-anims: only the sub-controller is assignable, and only to a transform controller.
    EXPECT_FALSE(c->AssignController(NewDefaultMatrix3Controller(), 0));
    Control* position = Keep(NewDefaultPositionController());
    EXPECT_FALSE(c->AssignController(position, 1));
    Control* prs = NewDefaultMatrix3Controller();
    EXPECT_TRUE(c->AssignController(prs, 1));
    EXPECT_EQ(c->SubController(), prs);
    world = Matrix3();
    c->GetValue(0, &world, valid, CTRL_RELATIVE);
    EXPECT_MATRIX3_NEAR(world, TransMatrix(Point3(1, 2, 3)), kTol) << "the new one copied the old";

    auto* clone = dynamic_cast<ParentSpaceControl*>(Keep(CloneRefHierarchy(c)));
    ASSERT_NE(clone, nullptr);
    EXPECT_NE(clone->SubController(), c->SubController());
    EXPECT_NE(clone->ParamBlock(), c->ParamBlock());
    Matrix3 cloned;
    clone->GetValue(0, &cloned, valid, CTRL_RELATIVE);
    EXPECT_MATRIX3_NEAR(cloned, world, 0.0f);
  }
}

TEST_F(RootSpaceTest, ScenesRoundTripByteForByte) {
  INode* pelvis = Node("pelvis", RotateZMatrix(0.5f) * TransMatrix(Point3(3, 4, 5)));
  INode* root = Node("root", Matrix3());
  RootConstraint* rc = Put<RootConstraint>(root);
  rc->ParamBlock()->SetValue(kRootTarget, 0, pelvis);
  rc->ParamBlock()->SetValue(kRootVerticalAxis, 0, 1);
  rc->SetLocked(true);
  INode* head = Node("head", TransMatrix(Point3(0, 1, 0)), root);
  RotationSpace* rs = Put<RotationSpace>(head);
  rs->ParamBlock()->SetValue(kSpaceTarget, 0, pelvis);
  AnimateOn();
  rs->ParamBlock()->SetValue(kSpaceWeight, 4800, 0.25f);
  pelvis->SetNodeTM(4800, RotateXMatrix(0.8f) * TransMatrix(Point3(1, 2, 7)));
  AnimateOff();
  std::vector<Matrix3> before;
  for (INode* n : {pelvis, root, head}) {
    before.push_back(n->GetNodeTM(0));
    before.push_back(n->GetNodeTM(3000));
  }

  std::vector<std::uint8_t> first, second;
  std::string error;
  ASSERT_TRUE(SaveSceneToBytes(first, &error)) << error;
  ASSERT_TRUE(LoadSceneFromBytes(first, &error)) << error;
  ASSERT_TRUE(SaveSceneToBytes(second, &error)) << error;
  EXPECT_EQ(first, second);
  int i = 0;
  for (const char* name : {"pelvis", "root", "head"}) {
    INode* n = GetCOREInterface()->GetINodeByName(name);
    ASSERT_NE(n, nullptr);
    EXPECT_MATRIX3_NEAR(n->GetNodeTM(0), before[i++], kTol) << name;
    EXPECT_MATRIX3_NEAR(n->GetNodeTM(3000), before[i++], kTol) << name;
  }
  auto* loaded =
      dynamic_cast<RootConstraint*>(GetCOREInterface()->GetINodeByName("root")->GetTMController());
  ASSERT_NE(loaded, nullptr);
  EXPECT_TRUE(loaded->GetLocked());
  EXPECT_EQ(loaded->ParamBlock()->GetINode(kRootTarget),
            GetCOREInterface()->GetINodeByName("pelvis"));
}

}  // namespace
}  // namespace marvolith::test
