// Copyright Marvolith contributors.
// Structural edits (controllers replaced, nodes built and deleted) under undo and redo, and
// evaluation that survives a throwing controller. After every undo and redo each node's cached
// transform must equal a cache-free evaluation.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <stdexcept>

#include "host/controllers/control_interfaces.h"
#include "host/controllers/controller_classes.h"
#include "host/controllers/list_control.h"
#include "host/scene/core_interface.h"
#include "host/scene/scene.h"
#include "host/undo/hold.h"
#include "tests/support/math_matchers.h"
#include "tests/support/scene_checks.h"
#include "tests/support/scene_objects.h"

namespace marvolith::test {
namespace {

Control* PositionTrackAt(const Point3& p) {
  Control* c = NewDefaultPositionController();
  Point3 v = p;
  c->SetValue(0, &v, 1, CTRL_ABSOLUTE);
  return c;
}

class StructuralUndoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterSceneTestClasses();
    GetCOREInterface()->Reset();
  }
  void TearDown() override { GetCOREInterface()->Reset(); }
};

TEST_F(StructuralUndoTest, ReplacedSubControllersReachTheNodeOnUndoAndRedo) {
  INode* node = GetCOREInterface()->CreateObjectNode(nullptr, "prs");
  Control* prs = node->GetTMController();
  ASSERT_NE(prs->GetPositionController(), nullptr);
  node->GetNodeTM(0);  // fills the cache

  // The new track adopts the old one's value on assignment; then it moves.
  theHold.Begin();
  Control* track = NewDefaultPositionController();
  prs->SetPositionController(track);
  Point3 at(5, 0, 0);
  track->SetValue(0, &at, 1, CTRL_ABSOLUTE);
  theHold.Accept("Assign");
  EXPECT_POINT3_NEAR(node->GetNodeTM(0).GetTrans(), Point3(5, 0, 0), 1e-5f);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_POINT3_NEAR(node->GetNodeTM(0).GetTrans(), Point3(0, 0, 0), 1e-5f);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_POINT3_NEAR(node->GetNodeTM(0).GetTrans(), Point3(5, 0, 0), 1e-5f);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // A list's item replaced in a hold, then undone and redone.
  auto* list = new ListControl(CTRL_POSITION_CLASS_ID);
  theHold.Begin();
  prs->SetPositionController(list);
  theHold.Accept("List");
  ASSERT_GE(list->GetListCount(), 1);
  const Point3 before = node->GetNodeTM(0).GetTrans();
  theHold.Begin();
  Control* item = NewDefaultPositionController();
  ASSERT_TRUE(list->SetSubCtrl(0, item));
  Point3 moved(0, 7, 0);
  item->SetValue(0, &moved, 1, CTRL_ABSOLUTE);
  theHold.Accept("Item");
  const Point3 after = node->GetNodeTM(0).GetTrans();
  EXPECT_GT(MaxDifference(before, after), 1.0f) << "the new item moves the node";
  ASSERT_TRUE(theHold.Undo());
  EXPECT_POINT3_NEAR(node->GetNodeTM(0).GetTrans(), before, 1e-5f);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_POINT3_NEAR(node->GetNodeTM(0).GetTrans(), after, 1e-5f);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

TEST_F(StructuralUndoTest, DeletionsTellTheUsersOnRedo) {
  INode* target = MakeTestNode("target", nullptr, Point3(4, 0, 0));
  INode* follower = MakeTestNode("follower");
  static_cast<TestTransform*>(follower->GetTMController())->SetTarget(target);
  EXPECT_POINT3_NEAR(follower->GetNodeTM(0).GetTrans(), Point3(4, 0, 0), 1e-5f);

  theHold.Begin();
  target->Delete(0, 0);
  theHold.Accept("Delete");
  EXPECT_POINT3_NEAR(follower->GetNodeTM(0).GetTrans(), Point3(0, 0, 0), 1e-5f);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_POINT3_NEAR(follower->GetNodeTM(0).GetTrans(), Point3(4, 0, 0), 1e-5f);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_POINT3_NEAR(follower->GetNodeTM(0).GetTrans(), Point3(0, 0, 0), 1e-5f)
      << "the redone deletion empties the follower's slot and must drop its node's cache";

  // Deleting a node's transform controller itself.
  INode* lone = MakeTestNode("lone", nullptr, Point3(0, 3, 0));
  INode* user = MakeTestNode("user");
  static_cast<TestTransform*>(user->GetTMController())->SetTarget(lone);
  EXPECT_POINT3_NEAR(user->GetNodeTM(0).GetTrans(), Point3(0, 3, 0), 1e-5f);
  theHold.Begin();
  lone->GetTMController()->DeleteMe();
  theHold.Accept("Delete controller");
  EXPECT_POINT3_NEAR(lone->GetNodeTM(0).GetTrans(), Point3(0, 0, 0), 1e-5f);
  EXPECT_POINT3_NEAR(user->GetNodeTM(0).GetTrans(), Point3(0, 0, 0), 1e-5f);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_POINT3_NEAR(user->GetNodeTM(0).GetTrans(), Point3(0, 3, 0), 1e-5f);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_POINT3_NEAR(user->GetNodeTM(0).GetTrans(), Point3(0, 0, 0), 1e-5f);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));
}

// Builds three nodes as a rig builder does: created with the hold on, wired with it suspended.
struct Built {
  INode* a;
  INode* b;
  INode* c;
};
Built BuildWithSuspendedHold(INode* outsider) {
  Interface* ip = GetCOREInterface();
  Built out{ip->CreateObjectNode(nullptr, "a"), ip->CreateObjectNode(nullptr, "b"),
            ip->CreateObjectNode(nullptr, "c")};
  HoldSuspend quiet;
  for (INode* n : {out.a, out.b, out.c}) n->SetTMController(new TestTransform);
  static_cast<TestTransform*>(out.a->GetTMController())->SetConstant(Point3(1, 0, 0), 0.0f);
  static_cast<TestTransform*>(out.b->GetTMController())->SetConstant(Point3(0, 2, 0), 0.5f);
  out.a->AttachChild(out.b, 0);
  static_cast<TestTransform*>(out.c->GetTMController())->SetTarget(out.b);
  // A node that existed before now depends on the new ones.
  static_cast<TestTransform*>(outsider->GetTMController())->SetTarget(out.c);
  return out;
}

TEST_F(StructuralUndoTest, BuilderCreationUndoesWholeAndRedoesAsUndone) {
  INode* outsider = MakeTestNode("outsider", nullptr, Point3(0, 0, 9));
  const int live_before = Animatable::LiveCount();
  theHold.Begin();
  Built built = BuildWithSuspendedHold(outsider);
  theHold.Accept("Build");
  const AnimHandle ha = Animatable::GetHandleByAnim(built.a);
  const AnimHandle hc = Animatable::GetHandleByAnim(built.c);
  const Matrix3 outsider_built = outsider->GetNodeTM(0);
  const Matrix3 c_built = built.c->GetNodeTM(0);

  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(AllNodes().size(), 1u) << "every node of the build is gone";
  EXPECT_EQ(Animatable::GetAnimByHandle(ha), nullptr);
  EXPECT_EQ(outsider->GetTMController()->GetReference(0), nullptr)
      << "the outsider's reference to a removed node is emptied";
  EXPECT_POINT3_NEAR(outsider->GetNodeTM(0).GetTrans(), Point3(0, 0, 9), 1e-5f);
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  ASSERT_TRUE(theHold.Redo());
  ASSERT_EQ(AllNodes().size(), 4u);
  auto* a = static_cast<INode*>(Animatable::GetAnimByHandle(ha));
  auto* c = static_cast<INode*>(Animatable::GetAnimByHandle(hc));
  ASSERT_NE(a, nullptr);
  ASSERT_EQ(a->NumberOfChildren(), 1);
  EXPECT_STREQ(a->GetChildNode(0)->GetName(), "b") << "parents and children come back";
  EXPECT_EQ(outsider->GetTMController()->GetReference(0), c);
  EXPECT_TRUE(c->GetNodeTM(0).Equals(c_built, 1e-5f)) << "controllers and targets come back";
  EXPECT_TRUE(outsider->GetNodeTM(0).Equals(outsider_built, 1e-5f));
  EXPECT_TRUE(CachesAgreeWithFreshEvaluation(0));

  // Undo again and drop the redo: everything the build made is freed.
  ASSERT_TRUE(theHold.Undo());
  theHold.Clear();
  EXPECT_EQ(Animatable::LiveCount(), live_before);
}

TEST_F(StructuralUndoTest, AThrowingControllerLeavesTheNodeUsable) {
  // A controller that throws while broken, as a Tab index out of range would.
  class Flaky : public TestTransform {
   public:
    void GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod m) override {
      if (broken) throw std::out_of_range("Invalid index passed into a Max SDK Tab::operator[]");
      TestTransform::GetValue(t, val, valid, m);
    }
    bool broken = true;
  };
  INode* parent = MakeTestNode("parent");
  auto* flaky = new Flaky;
  parent->SetTMController(flaky);
  flaky->SetConstant(Point3(2, 0, 0), 0.0f);
  INode* child = MakeTestNode("child", parent, Point3(0, 1, 0));

  EXPECT_THROW(child->GetNodeTM(0), std::out_of_range) << "the exception reaches the caller";
  EXPECT_THROW(parent->GetNodeTM(0), std::out_of_range);
  flaky->broken = false;
  parent->InvalidateTM();
  EXPECT_POINT3_NEAR(child->GetNodeTM(0).GetTrans(), Point3(2, 1, 0), 1e-5f)
      << "no evaluation flag stays set after the exception";
  EXPECT_POINT3_NEAR(parent->GetNodeTM(0).GetTrans(), Point3(2, 0, 0), 1e-5f);
}

// Random structural edits: assignments of every kind, references to other nodes, deletions of
// controllers and nodes, builder-style creation. Undo all, redo all: the scene evaluates as it
// did, and every cache agrees with a fresh evaluation.
RC_GTEST_PROP(StructuralUndoProperty, EveryCacheDropsUnderUndoAndRedo, ()) {
  RegisterSceneTestClasses();
  Interface* ip = GetCOREInterface();
  ip->Reset();
  for (int i = 0; i < 4; ++i) {
    INode* n = ip->CreateObjectNode(nullptr, ("n" + std::to_string(i)).c_str());
    Point3 at(float(i), 0, 0);
    n->GetTMController()->GetPositionController()->SetValue(0, &at, 1, CTRL_ABSOLUTE);
  }
  theHold.Clear();
  auto positions = [] {
    std::vector<std::pair<std::string, Point3>> out;
    for (INode* n : AllNodes()) out.emplace_back(n->GetName(), n->GetNodeTM(0).GetTrans());
    return out;
  };
  const auto start = positions();
  const int steps = *rc::gen::inRange(1, 10);
  int entries = 0;
  for (int s = 0; s < steps; ++s) {
    std::vector<INode*> nodes = AllNodes();
    if (nodes.empty()) break;
    auto pick = [&nodes]() { return nodes[*rc::gen::inRange<size_t>(0, nodes.size())]; };
    INode* a = pick();
    INode* b = pick();
    Control* tm = a->GetTMController();
    const Point3 p(float(s), float(s % 3), 1.0f);
    theHold.Begin();
    switch (*rc::gen::inRange(0, 8)) {
      case 0:
        if (tm && tm->GetPositionController()) tm->SetPositionController(PositionTrackAt(p));
        break;
      case 1:
        if (tm && tm->GetRotationController())
          tm->SetRotationController(NewDefaultRotationController());
        break;
      case 2:
        if (tm && tm->GetScaleController()) tm->SetScaleController(NewDefaultScaleController());
        break;
      case 3:
        if (tm && tm->GetPositionController()) {
          auto* list = new ListControl(CTRL_POSITION_CLASS_ID);
          list->Append(PositionTrackAt(p));
          list->Append(PositionTrackAt(p * 0.5f));
          tm->SetPositionController(list);
        }
        break;
      case 4: {
        // A transform that follows another node (when that closes no loop).
        auto* follow = new TestTransform;
        follow->SetConstant(p, 0.0f);
        if (a->SetTMController(follow) && a != b) follow->SetTarget(b);
        break;
      }
      case 5:
        if (tm) tm->DeleteMe();
        break;
      case 6:
        a->Delete(0, *rc::gen::arbitrary<bool>());
        break;
      case 7: {
        INode* made = ip->CreateObjectNode(nullptr, ("m" + std::to_string(s)).c_str());
        HoldSuspend quiet;
        auto* follow = new TestTransform;
        follow->SetConstant(p, 0.0f);
        made->SetTMController(follow);
        follow->SetTarget(b);
        b->AttachChild(made, 0);
        break;
      }
    }
    theHold.Accept("Edit");
    entries = theHold.UndoCount();
    RC_ASSERT(CachesAgreeWithFreshEvaluation(0));
  }
  const auto end = positions();
  while (theHold.Undo()) RC_ASSERT(CachesAgreeWithFreshEvaluation(0));
  RC_ASSERT(positions() == start);
  for (int i = 0; i < entries; ++i) {
    theHold.Redo();
    RC_ASSERT(CachesAgreeWithFreshEvaluation(0));
  }
  RC_ASSERT(positions() == end);
  ip->Reset();
}

}  // namespace
}  // namespace marvolith::test
