// Copyright Marvolith contributors.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

#include "host/controllers/controller_classes.h"
#include "host/core/diagnostics.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/scene/scene.h"
#include "host/undo/hold.h"
#include "tests/support/math_matchers.h"
#include "tests/support/scene_objects.h"
#include "tests/support/test_objects.h"

namespace marvolith::test {
namespace {

class NodeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterSceneTestClasses();
    GetCOREInterface()->Reset();
  }
  void TearDown() override { GetCOREInterface()->Reset(); }

  static TestTransform* Ctrl(INode* n) { return static_cast<TestTransform*>(n->GetTMController()); }
  Interface* ip = GetCOREInterface();
};

// A transform controller holding one fixed local matrix, whatever its scale or mirroring.
class FixedTransform : public Control {
 public:
  explicit FixedTransform(const Matrix3& m) : local(m) {}
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  void GetValue(TimeValue, void* v, Interval&, GetSetMethod) override {
    *static_cast<Matrix3*>(v) = local * *static_cast<Matrix3*>(v);
  }
  void SetValue(TimeValue, void*, int, GetSetMethod) override {}
  Matrix3 local;
};

// The plain oracle: the product of the controllers' local transforms up the parent chain,
// below stop.
Matrix3 ChainProduct(INode* node, INode* stop, TimeValue t) {
  Matrix3 world;
  for (INode* n = node; n != stop; n = n->GetParentNode()) {
    Interval iv = FOREVER;
    world = world * static_cast<TestTransform*>(n->GetTMController())->Local(t, iv);
  }
  return world;
}

TEST_F(NodeTest, WorldTransformFollowsKeyedHierarchyUnderEveryParentTransform) {
  struct Case {
    const char* name;
    Matrix3 parent;
  };
  Matrix3 moved = TransMatrix(Point3(5, -2, 7));
  Matrix3 rotated = RotateXMatrix(0.7f) * RotateZMatrix(-1.1f);
  Matrix3 scaled = ScaleMatrix(Point3(2, 0.5f, 3));
  Matrix3 mirrored = ScaleMatrix(Point3(-1, 1, 1)) * TransMatrix(Point3(1, 2, 3));
  for (const Case& c : {Case{"identity", Matrix3()}, Case{"moved", moved}, Case{"rotated", rotated},
                        Case{"scaled", scaled}, Case{"mirrored", mirrored}}) {
    SCOPED_TRACE(c.name);
    ip->Reset();
    INode* top = MakeTestNode("top");
    top->SetTMController(new FixedTransform(c.parent));
    INode* mid = MakeTestNode("mid", top);
    Ctrl(mid)->AddKey(0, Point3(10, 0, 0), 0.0f);
    Ctrl(mid)->AddKey(100, Point3(10, 20, 0), 1.0f);
    INode* tip = MakeTestNode("tip", mid, Point3(0, 5, 0), 0.25f);
    for (TimeValue t : {-50, 0, 40, 100, 300}) {
      Interval valid = FOREVER;
      Matrix3 tip_ws = tip->GetNodeTM(t, &valid);
      EXPECT_MATRIX3_NEAR(tip_ws, ChainProduct(tip, top, t) * c.parent, 1e-4f) << t;
      EXPECT_TRUE(valid.InInterval(t));
      EXPECT_MATRIX3_NEAR(tip->GetParentTM(t), mid->GetNodeTM(t), 0) << t;
    }
    Interval valid = FOREVER;
    tip->GetNodeTM(40, &valid);
    EXPECT_EQ(valid, Interval(40, 40)) << "between keys the result holds for the instant";
    valid = FOREVER;
    tip->GetNodeTM(300, &valid);
    EXPECT_EQ(valid, Interval(100, TIME_PosInfinity)) << "constant after the last key";
  }
}

TEST_F(NodeTest, CacheIsDroppedByKeysParentsReparentingAndDeletedTargets) {
  INode* a = MakeTestNode("a", nullptr, Point3(1, 0, 0));
  INode* b = MakeTestNode("b", a, Point3(0, 1, 0));
  INode* c = MakeTestNode("c", b, Point3(0, 0, 1));
  INode* other = MakeTestNode("other", nullptr, Point3(100, 0, 0));
  EXPECT_POINT3_NEAR(c->GetNodeTM(0).GetTrans(), Point3(1, 1, 1), 1e-6f);
  {
    SCOPED_TRACE("key change on the top");
    Ctrl(a)->SetConstant(Point3(2, 0, 0), 0);
    EXPECT_POINT3_NEAR(c->GetNodeTM(0).GetTrans(), Point3(2, 1, 1), 1e-6f);
  }
  {
    SCOPED_TRACE("moving the middle through the node");
    b->Move(0, Matrix3(), Point3(0, 0, 5));
    EXPECT_POINT3_NEAR(c->GetNodeTM(0).GetTrans(), Point3(2, 1, 6), 1e-6f);
  }
  {
    SCOPED_TRACE("reparenting without keeping the position");
    other->AttachChild(b, 0);
    EXPECT_EQ(b->GetParentNode(), other);
    EXPECT_POINT3_NEAR(c->GetNodeTM(0).GetTrans(), Point3(100, 1, 6), 1e-6f);
  }
  {
    SCOPED_TRACE("reparenting keeping the position");
    Matrix3 before = c->GetNodeTM(0);
    a->AttachChild(b, 1);
    EXPECT_MATRIX3_NEAR(c->GetNodeTM(0), before, 1e-5f);
    Ctrl(a)->SetConstant(Point3(3, 0, 0), 0);
    EXPECT_POINT3_NEAR(c->GetNodeTM(0).GetTrans(), before.GetTrans() + Point3(1, 0, 0), 1e-5f);
  }
  {
    SCOPED_TRACE("a constraint target that moves, then goes");
    INode* follower = MakeTestNode("follower", nullptr, Point3(0, 0, 1));
    Ctrl(follower)->SetTarget(other);
    EXPECT_POINT3_NEAR(follower->GetNodeTM(0).GetTrans(), Point3(100, 0, 1), 1e-6f);
    Ctrl(other)->SetConstant(Point3(50, 0, 0), 0);
    EXPECT_POINT3_NEAR(follower->GetNodeTM(0).GetTrans(), Point3(50, 0, 1), 1e-6f);
    other->Delete(0);
    EXPECT_EQ(Ctrl(follower)->GetReference(0), nullptr);
    EXPECT_POINT3_NEAR(follower->GetNodeTM(0).GetTrans(), Point3(0, 0, 1), 1e-6f);
  }
}

TEST_F(NodeTest, UndoRedoOfKeysReparentingAndDeletion) {
  INode* a = MakeTestNode("a", nullptr, Point3(1, 0, 0));
  INode* b = MakeTestNode("b", nullptr, Point3(0, 2, 0));
  INode* k1 = MakeTestNode("k1", a, Point3(0, 0, 1));
  INode* k2 = MakeTestNode("k2", a, Point3(0, 0, 2));
  INode* k3 = MakeTestNode("k3", a, Point3(0, 0, 3));
  theHold.Clear();
  const Matrix3 k2_before = k2->GetNodeTM(0);
  {
    SCOPED_TRACE("key edit");
    theHold.Begin();
    Ctrl(a)->SetConstant(Point3(7, 0, 0), 0);
    theHold.Accept("Move");
    EXPECT_POINT3_NEAR(k2->GetNodeTM(0).GetTrans(), Point3(7, 0, 2), 1e-6f);
    theHold.Undo();
    EXPECT_MATRIX3_NEAR(k2->GetNodeTM(0), k2_before, 1e-6f);
    theHold.Redo();
    EXPECT_POINT3_NEAR(k2->GetNodeTM(0).GetTrans(), Point3(7, 0, 2), 1e-6f);
    theHold.Undo();
  }
  {
    SCOPED_TRACE("reparent the middle child");
    theHold.Begin();
    b->AttachChild(k2, 0);
    theHold.Accept("Link");
    EXPECT_POINT3_NEAR(k2->GetNodeTM(0).GetTrans(), Point3(0, 2, 2), 1e-6f);
    theHold.Undo();
    ASSERT_EQ(a->NumberOfChildren(), 3);
    EXPECT_EQ(a->GetChildNode(1), k2) << "child order comes back";
    EXPECT_EQ(b->NumberOfChildren(), 0);
    EXPECT_MATRIX3_NEAR(k2->GetNodeTM(0), k2_before, 1e-6f);
    theHold.Redo();
    EXPECT_EQ(k2->GetParentNode(), b);
    EXPECT_POINT3_NEAR(k2->GetNodeTM(0).GetTrans(), Point3(0, 2, 2), 1e-6f);
    theHold.Undo();
  }
  {
    SCOPED_TRACE("delete the parent: children move up keeping their place");
    const Matrix3 k3_ws = k3->GetNodeTM(0);
    theHold.Begin();
    ip->DeleteNode(a);
    theHold.Accept("Delete");
    EXPECT_EQ(ip->GetINodeByName("a"), nullptr);
    EXPECT_EQ(k3->GetParentNode(), ip->GetRootNode());
    EXPECT_MATRIX3_NEAR(k3->GetNodeTM(0), k3_ws, 1e-6f);
    theHold.Undo();
    ASSERT_EQ(ip->GetINodeByName("a"), a);
    ASSERT_EQ(a->NumberOfChildren(), 3);
    EXPECT_EQ(a->GetChildNode(0), k1);
    EXPECT_EQ(a->GetChildNode(2), k3);
    EXPECT_MATRIX3_NEAR(k3->GetNodeTM(0), k3_ws, 1e-6f);
    Ctrl(a)->SetConstant(Point3(), 0);  // the controller came back with its dependents
    EXPECT_POINT3_NEAR(k3->GetNodeTM(0).GetTrans(), Point3(0, 0, 3), 1e-6f);
    theHold.Redo();
    EXPECT_EQ(Animatable::GetAnimByHandle(Animatable::GetHandleByAnim(a)), nullptr);
  }
}

TEST_F(NodeTest, CreationNamesControllerAndDisplayStateAreUndoable) {
  INode* n = nullptr;
  theHold.Begin();
  n = ip->CreateObjectNode(new TestHelper);
  theHold.Accept("Create");
  EXPECT_STREQ(n->GetName(), "TestHelper001");
  EXPECT_STREQ(ip->CreateObjectNode(new TestHelper)->GetName(), "TestHelper002");
  ASSERT_NE(n->GetNodeLayer(), nullptr);
  EXPECT_EQ(n->GetNodeLayer()->GetName(), "0");
  theHold.Undo();
  EXPECT_EQ(ip->GetINodeByName("TestHelper001"), nullptr);
  theHold.Redo();
  ASSERT_EQ(ip->GetINodeByName("TestHelper001"), n);
  EXPECT_NE(n->GetObjectRef(), nullptr);

  TestTarget listener;
  listener.ReplaceReference(0, n);
  theHold.Begin();
  n->SetName("Renamed");
  n->Hide(true);
  n->Freeze(true);
  n->SetWireColor(0x00112233);
  n->SetTransformLock(INODE_LOCKROT, INODE_LOCK_Y, true);
  n->SetBoneNodeOnOff(true, 0);
  auto* c = new TestTransform;
  EXPECT_TRUE(n->SetTMController(c));
  theHold.Accept("Edit");
  EXPECT_EQ(listener.Count(REFMSG_NODE_NAMECHANGE), 1);
  EXPECT_EQ(n->GetTransformLockBits(), INODE_LOCKROT_Y);
  EXPECT_TRUE(n->IsHidden() && n->IsFrozen() && n->GetBoneNodeOnOff());
  EXPECT_EQ(FindOwnerNode(c), n);
  theHold.Undo();
  EXPECT_STREQ(n->GetName(), "TestHelper001");
  EXPECT_FALSE(n->IsHidden() || n->IsFrozen() || n->GetBoneNodeOnOff());
  EXPECT_NE(n->GetWireColor(), 0x00112233u);
  EXPECT_EQ(n->GetTransformLockBits(), 0u);
  EXPECT_NE(n->GetTMController(), c);
  EXPECT_EQ(listener.Count(REFMSG_NODE_NAMECHANGE), 2);
  theHold.Redo();
  EXPECT_STREQ(n->GetName(), "Renamed");
  EXPECT_EQ(n->GetTMController(), c);
  EXPECT_EQ(n->GetWireColor(), 0x00112233u);
  listener.DeleteAllRefsFromMe();

  EXPECT_FALSE(n->SetTMController(nullptr));
  MSTR name = "Renamed";
  ip->MakeNameUnique(name);
  EXPECT_EQ(name, "Renamed001");
  name = "Box12";
  ip->MakeNameUnique(name);
  EXPECT_EQ(name, "Box12") << "a free name stays";
}

TEST_F(NodeTest, LinkingRefusesLoopsAndTheRoot) {
  INode* a = MakeTestNode("a");
  INode* b = MakeTestNode("b", a);
  INode* c = MakeTestNode("c", b);
  std::vector<std::string> lines;
  auto old = SetLogSink([&lines](std::string_view l) { lines.emplace_back(l); });
  c->AttachChild(a);
  c->AttachChild(c);
  a->AttachChild(ip->GetRootNode());
  INode* follower = MakeTestNode("f");
  Ctrl(follower)->SetTarget(a);
  follower->AttachChild(a, 0);  // a would depend on follower, which depends on a
  ip->GetRootNode()->Delete(0);
  SetLogSink(old);
  EXPECT_EQ(a->GetParentNode(), ip->GetRootNode());
  EXPECT_EQ(c->GetParentNode(), b);
  EXPECT_EQ(lines.size(), 5u);
  for (const auto& l : lines) EXPECT_EQ(l.rfind("Marvolith: ", 0), 0u) << l;
}

TEST_F(NodeTest, DependencyCycleGivesLastResultInsteadOfRecursing) {
  INode* a = MakeTestNode("a", nullptr, Point3(1, 0, 0));
  INode* b = MakeTestNode("b", nullptr, Point3(0, 1, 0));
  EXPECT_POINT3_NEAR(a->GetNodeTM(0).GetTrans(), Point3(1, 0, 0), 1e-6f);
  // Weak pointers, as parameter blocks keep for nodes they do not hold: references would have
  // refused the loop.
  Ctrl(a)->weak_target = b;
  Ctrl(b)->weak_target = a;
  a->InvalidateTM();
  b->InvalidateTM();
  std::vector<std::string> lines;
  auto old = SetLogSink([&lines](std::string_view l) { lines.emplace_back(l); });
  Interval valid = FOREVER;
  Matrix3 a_ws = a->GetNodeTM(5, &valid);
  SetLogSink(old);
  // b evaluated a re-entrantly and got its last result (1,0,0): b = (1,1,0), a = (2,1,0).
  EXPECT_POINT3_NEAR(a_ws.GetTrans(), Point3(2, 1, 0), 1e-6f);
  EXPECT_EQ(valid, Interval(5, 5));
  EXPECT_FALSE(lines.empty());
  Ctrl(a)->weak_target = Ctrl(b)->weak_target = nullptr;
}

TEST_F(NodeTest, MovesRespectLocksAndCanLeaveChildrenInPlace) {
  INode* a = MakeTestNode("a", nullptr, Point3(), 0.5f);
  INode* kid = MakeTestNode("kid", a, Point3(3, 0, 0));
  a->SetTransformLock(INODE_LOCKPOS, INODE_LOCK_X, true);
  const Matrix3 a0 = a->GetNodeTM(0);
  a->Move(0, Matrix3(), Point3(4, 4, 4));
  Point3 moved = a->GetNodeTM(0).GetTrans() - a0.GetTrans();
  EXPECT_NEAR(DotProd(moved, Normalize(a0.GetRow(0))), 0.0f, 1e-5f) << "local X is locked";
  EXPECT_NEAR(moved.z, 4.0f, 1e-5f);
  a->Move(0, Matrix3(), Point3(4, 4, 4), false, true, 0, /*ignore_locks=*/true);
  EXPECT_POINT3_NEAR(a->GetNodeTM(0).GetTrans() - a0.GetTrans(), moved + Point3(4, 4, 4), 1e-5f);

  const Matrix3 kid_ws = kid->GetNodeTM(0);
  a->Move(0, Matrix3(), Point3(0, 0, -9), false, /*affect_kids=*/false, 0, true);
  EXPECT_MATRIX3_NEAR(kid->GetNodeTM(0), kid_ws, 1e-5f);
  a->SetTransformLock(INODE_LOCKROT, INODE_LOCK_Z, true);
  const Matrix3 before_rot = a->GetNodeTM(0);
  a->Rotate(0, Matrix3(), AngAxis(Point3(0, 0, 1), 0.3f), true);
  EXPECT_MATRIX3_NEAR(a->GetNodeTM(0), before_rot, 1e-6f) << "the only axis is locked";
}

TEST_F(NodeTest, ObjectTransformAppliesTheOffsetBeforeTheNode) {
  INode* n = MakeTestNode("n", nullptr, Point3(10, 0, 0), 0.4f);
  n->SetObjOffsetPos(Point3(1, 2, 3));
  n->SetObjOffsetRot(Quat(RotateYMatrix(0.3f)));
  n->SetObjOffsetScale(ScaleValue(Point3(-1, 1, 1)));
  Matrix3 offset =
      ScaleMatrix(Point3(-1, 1, 1)) * RotateYMatrix(0.3f) * TransMatrix(Point3(1, 2, 3));
  EXPECT_MATRIX3_NEAR(n->GetObjectTM(0), offset * n->GetNodeTM(0), 1e-5f);
}

// A matrix3 controller that only wraps another, as a list or a layer does.
class Wrapper : public Control {
 public:
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int) override { return inner_; }
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  void GetValue(TimeValue t, void* v, Interval& iv, GetSetMethod m) override {
    inner_->GetValue(t, v, iv, m);
  }
  void SetValue(TimeValue t, void* v, int c, GetSetMethod m) override {
    inner_->SetValue(t, v, c, m);
  }

 protected:
  void SetReference(int, RefTargetHandle t) override { inner_ = static_cast<Control*>(t); }

 private:
  Control* inner_ = nullptr;
};

TEST_F(NodeTest, OwnerLookupLooksThroughMatrixControllers) {
  INode* n = MakeTestNode("n");
  TestTransform* inner = Ctrl(n);
  EXPECT_EQ(FindOwnerNode(inner), n);
  auto* wrap = new Wrapper;
  wrap->ReplaceReference(0, inner);
  n->SetTMController(wrap);
  EXPECT_EQ(FindOwnerNode(inner), n);
  auto* loose = new TestTransform;
  EXPECT_EQ(FindOwnerNode(loose), nullptr);
  loose->DeleteMe();
  EXPECT_EQ(FindOwnerNode(nullptr), nullptr);
}

// What a user sees of the scene: each node (by handle, pre-order) with its parent, name, colour,
// hidden flag and world position.
struct NodeView {
  AnimHandle handle;
  AnimHandle parent;
  std::string name;
  DWORD wire;
  bool hidden;
  Point3 pos;
  bool operator==(const NodeView& o) const {
    return handle == o.handle && parent == o.parent && name == o.name && wire == o.wire &&
           hidden == o.hidden && pos.Equals(o.pos, 1e-4f);
  }
};

std::vector<NodeView> View() {
  std::vector<INode*> nodes;
  Scene::Active().CollectNodes(nodes);
  std::vector<NodeView> out;
  for (INode* n : nodes) {
    out.push_back({Animatable::GetHandleByAnim(n), Animatable::GetHandleByAnim(n->GetParentNode()),
                   n->GetName(), n->GetWireColor(), n->IsHidden(), n->GetNodeTM(0).GetTrans()});
  }
  return out;
}

RC_GTEST_PROP(NodeUndoProperty, RandomEditsUndoToTheStartAndRedoToTheEnd, ()) {
  RegisterSceneTestClasses();
  Interface* ip = GetCOREInterface();
  ip->Reset();
  for (int i = 0; i < 5; ++i)
    MakeTestNode(("n" + std::to_string(i)).c_str(), nullptr, Point3(i, 0, 0));
  theHold.Clear();
  const std::vector<NodeView> start = View();
  const int steps = *rc::gen::inRange(1, 12);
  int entries = 0;
  for (int s = 0; s < steps; ++s) {
    std::vector<INode*> nodes;
    Scene::Active().CollectNodes(nodes);
    if (nodes.empty()) break;
    auto pick = [&nodes]() { return nodes[*rc::gen::inRange<size_t>(0, nodes.size())]; };
    INode* a = pick();
    INode* b = pick();
    theHold.Begin();
    switch (*rc::gen::inRange(0, 7)) {
      case 0:
        b->AttachChild(a, *rc::gen::arbitrary<bool>());
        break;
      case 1:
        a->Delete(0, *rc::gen::arbitrary<bool>());
        break;
      case 2:
        a->SetName("r" + std::to_string(s));
        break;
      case 3:
        a->Hide(!a->IsHidden());
        break;
      case 4:
        a->SetWireColor(*rc::gen::inRange<DWORD>(0, 0xffffff));
        break;
      case 5:
        a->Move(0, Matrix3(), Point3(1, 2, 3), false, *rc::gen::arbitrary<bool>());
        break;
      case 6:
        MakeTestNode(("c" + std::to_string(s)).c_str(), a, Point3(0, 0, 1));
        break;
    }
    theHold.Accept("Edit");
    entries = theHold.UndoCount();
  }
  const std::vector<NodeView> end = View();
  while (theHold.Undo()) {
  }
  RC_ASSERT(View() == start);
  for (int i = 0; i < entries; ++i) theHold.Redo();
  RC_ASSERT(View() == end);
  ip->Reset();
}

}  // namespace
}  // namespace marvolith::test

namespace marvolith::test {
namespace {

TEST_F(NodeTest, VisibilityTrackGroupFlagsAndBatchDeletionAreUndoable) {
  Interface* ip = GetCOREInterface();
  INode* a = ip->CreateObjectNode(nullptr, "a");
  EXPECT_FLOAT_EQ(a->GetVisibility(0), 1.0f) << "no track: fully visible";
  EXPECT_EQ(a->SubAnim(2), nullptr);
  theHold.Begin();
  a->SetVisibility(0, 0.25f);
  a->SetGroupHead(true);
  theHold.Accept("vis");
  ASSERT_NE(a->GetVisController(), nullptr);
  EXPECT_EQ(a->SubAnim(2), a->GetVisController());
  EXPECT_EQ(a->SubAnimName(2), "Visibility");
  EXPECT_FLOAT_EQ(a->GetVisibility(0), 0.25f);
  EXPECT_TRUE(a->IsGroupHead());
  EXPECT_FALSE(a->IsGroupMember());
  theHold.Undo();
  EXPECT_EQ(a->GetVisController(), nullptr);
  EXPECT_FALSE(a->IsGroupHead());
  theHold.Redo();
  EXPECT_FLOAT_EQ(a->GetVisibility(0), 0.25f);
  EXPECT_FALSE(a->SetVisController(NewDefaultPositionController())) << "floats only";

  // Deleting many nodes: nulls, repeats and the root are skipped; a child that stays keeps its
  // world transform; one redraw; undo brings all back.
  INode* b = ip->CreateObjectNode(nullptr, "b");
  INode* kid = ip->CreateObjectNode(nullptr, "kid");
  b->SetNodeTM(0, TransMatrix(Point3(5, 0, 0)));
  b->AttachChild(kid, 0);
  const Matrix3 kid_ws = kid->GetNodeTM(0);
  Tab<INode*> doomed;
  for (INode* n : {a, static_cast<INode*>(nullptr), b, a, ip->GetRootNode()}) doomed.Append(1, &n);
  const int redraws = ip->RedrawCount();
  theHold.Begin();
  GetCOREInterface13()->DeleteNodes(doomed);
  theHold.Accept("Delete");
  EXPECT_EQ(ip->GetINodeByName("a"), nullptr);
  EXPECT_EQ(ip->GetINodeByName("b"), nullptr);
  EXPECT_EQ(kid->GetParentNode(), ip->GetRootNode());
  EXPECT_MATRIX3_NEAR(kid->GetNodeTM(0), kid_ws, 1e-5f);
  EXPECT_EQ(ip->RedrawCount(), redraws + 1);
  theHold.Undo();
  ASSERT_EQ(ip->GetINodeByName("b"), b);
  EXPECT_EQ(kid->GetParentNode(), b);
  EXPECT_FLOAT_EQ(ip->GetINodeByName("a")->GetVisibility(0), 0.25f);

  // Redraw off nests; a stray enable does not turn it on early.
  ip->DisableSceneRedraw();
  ip->DisableSceneRedraw();
  ip->RedrawViews(0);
  ip->EnableSceneRedraw();
  ip->RedrawViews(0);
  EXPECT_TRUE(ip->IsSceneRedrawDisabled());
  EXPECT_EQ(ip->RedrawCount(), redraws + 1);
  ip->EnableSceneRedraw();
  ip->EnableSceneRedraw();
  ip->RedrawViews(0);
  EXPECT_EQ(ip->RedrawCount(), redraws + 2);
}

}  // namespace
}  // namespace marvolith::test
