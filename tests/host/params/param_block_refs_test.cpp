// Copyright Marvolith contributors.
// Undo, references, controllers, sub-anims and clones of parameter blocks.
#include <gtest/gtest.h>

#include "host/params/iparam_block2.h"
#include "tests/host/params/param_test_objects.h"
#include "tests/support/alloc_counter.h"

namespace marvolith::test {
namespace {

TEST_F(ParamBlockTest, AutoBlockIsRegisteredMadeAndOwned) {
  ParamBlockDesc2& desc = TestBlockDesc();
  EXPECT_EQ(TestOwnerClassDesc().GetParamBlockDescByID(kTestBlock), &desc);
  EXPECT_EQ(TestOwnerClassDesc().GetParamBlockDescByID(5), nullptr);
  EXPECT_EQ(desc.version, kTestBlockVersion) << "P_VERSION's argument comes first";
  EXPECT_EQ(desc.ref_no, 0);
  EXPECT_EQ(desc.NameToIndex("IKFK_Blend"), desc.IDtoIndex(kAnimFloat));
  EXPECT_EQ(desc.NameToIndex(""), -1) << "unnamed table parameters are not found by name";
  ASSERT_NE(pb, nullptr);
  EXPECT_EQ(owner->GetReference(0), pb);
  EXPECT_EQ(pb->GetOwner(), owner);
  EXPECT_EQ(pb->GetDesc(), &desc);
  EXPECT_EQ(pb->SuperClassID(), PARAMETER_BLOCK2_CLASS_ID);
}

TEST_F(ParamBlockTest, OneRecordPerHoldPerBlock) {
  auto* other = sweep.Keep(new TestOwner);
  owner->heard.reserve(64);
  other->heard.reserve(64);
  theHold.Begin();
  {
    AllocationScope first;
    pb->SetValue(kFloat, 0, 2.0f);
    EXPECT_GT(first.Count(), 0u) << "the first change of the hold records the block";
  }
  {
    AllocationScope again;
    pb->SetValue(kFloat, 0, 3.0f);
    pb->SetValue(kInt, 0, 4);
    pb->SetValue(kMatrix, 0, TransMatrix(Point3(1.0f, 0.0f, 0.0f)));
    EXPECT_EQ(again.Count(), 0u) << "later changes of the same block record nothing";
  }
  {
    AllocationScope second_block;
    other->pblock->SetValue(kFloat, 0, 2.0f);
    EXPECT_GT(second_block.Count(), 0u);
  }
  theHold.Accept("Change");
  EXPECT_FALSE(pb->TestAFlag(A_HELD));
  theHold.Begin();
  {
    AllocationScope next_hold;
    pb->SetValue(kFloat, 0, 5.0f);
    EXPECT_GT(next_hold.Count(), 0u) << "a new hold records again";
  }
  theHold.Accept("Change");
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(pb->GetFloat(kFloat), 3.0f);
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(pb->GetFloat(kFloat), 1.5f);
  EXPECT_EQ(pb->GetInt(kInt), 3);
  EXPECT_EQ(other->pblock->GetFloat(kFloat), 1.5f);
}

TEST_F(ParamBlockTest, UndoAndRedoRestoreValuesTablesAndReferencesExactly) {
  INode* a = NewNode();
  INode* b = NewNode();
  pb->SetValue(kNode, 0, a);
  const std::string before = Dump(pb);

  theHold.Begin();
  pb->SetValue(kFloat, 0, 7.0f);
  pb->SetValue(kString, 0, "spine_3");
  pb->SetValue(kNode, 0, b);
  INode* nodes[] = {a, b, a};
  pb->Append(kTabBase + kNode, 3, nodes);
  const float w = 20.0f;
  pb->Insert(kAnimFloatTab, 1, 1, &w);
  auto* c = new FakeFloat(0.4f);
  const AnimHandle c_handle = Animatable::GetHandleByAnim(c);
  ASSERT_TRUE(pb->SetController(kAnimFloatTab, 2, c, false));
  pb->Delete(kAnimFloatTab, 0, 1);
  pb->Delete(kTabBase + kNode, 1, 1);
  pb->SetCount(kTabBase + kMatrix, 3);
  theHold.Accept("Edit");
  const std::string after = Dump(pb);
  EXPECT_EQ(pb->GetController(kAnimFloatTab, 1), c) << "the controller moved down with its entry";
  EXPECT_EQ(a->NumDependents(), 1);

  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    ASSERT_TRUE(theHold.Undo());
    EXPECT_EQ(Dump(pb), before);
    EXPECT_EQ(pb->LastNotifyParamID(), -1);
    EXPECT_EQ(owner->heard.back(), -1);
    EXPECT_EQ(b->NumDependents(), 0);
    EXPECT_EQ(pb->NumRefs(), 6);
    EXPECT_NE(Animatable::GetAnimByHandle(c_handle), nullptr) << "undo records keep it alive";
    ASSERT_TRUE(theHold.Redo());
    EXPECT_EQ(Dump(pb), after);
    EXPECT_EQ(b->NumDependents(), 1);
    EXPECT_EQ(pb->GetReference(pb->SubNumToRefNum(pb->GetAnimNum(kAnimFloatTab, 1))), c);
  }
  theHold.Clear();
  EXPECT_EQ(Animatable::GetAnimByHandle(c_handle), c) << "still referenced by the block";
}

TEST_F(ParamBlockTest, CancelledHoldChangesNothing) {
  INode* node = NewNode();
  const std::string before = Dump(pb);
  theHold.Begin();
  pb->SetValue(kPoint3, 0, Point3(1.0f, 2.0f, 3.0f));
  pb->SetValue(kNode, 0, node);
  pb->SetCount(kTabBase + kString, 4);
  auto* c = new FakeFloat();
  const AnimHandle c_handle = Animatable::GetHandleByAnim(c);
  pb->SetController(kAnimFloat, 0, c);
  theHold.Cancel();
  EXPECT_EQ(Dump(pb), before);
  EXPECT_EQ(theHold.UndoCount(), 0);
  EXPECT_EQ(node->NumDependents(), 0);
  EXPECT_EQ(Animatable::GetAnimByHandle(c_handle), nullptr)
      << "a controller used by nothing is freed";
  EXPECT_FALSE(pb->TestAFlag(A_HELD));
}

TEST_F(ParamBlockTest, DeletedNodeClearsItsEntriesAndTellsTheOwner) {
  INode* node = NewNode();
  INode* kept = NewNode();
  pb->SetValue(kNode, 0, node);
  INode* nodes[] = {node, kept};
  pb->Append(kTabBase + kNode, 2, nodes);
  pb->SetValue(kWeakNode, 0, node);
  EXPECT_EQ(node->NumDependents(), 1) << "a P_NO_REF parameter does not reference its node";
  // ...but watches it: a change of the node reaches the owner as a change of that parameter.
  owner->heard.clear();
  node->NotifyDependents(FOREVER, PART_TM, REFMSG_CHANGE);
  EXPECT_EQ(owner->heard, (std::vector<ParamID>{kNode, kWeakNode}));
  owner->heard.clear();
  test_accessor.Clear();

  theHold.Begin();
  node->DeleteMe();
  theHold.Accept("Delete");
  EXPECT_EQ(pb->GetINode(kNode), nullptr);
  EXPECT_EQ(pb->GetINode(kWeakNode), nullptr);
  ASSERT_EQ(pb->Count(kTabBase + kNode), 2) << "the entry stays, empty";
  EXPECT_EQ(pb->GetINode(kTabBase + kNode, 0, 0), nullptr);
  EXPECT_EQ(pb->GetINode(kTabBase + kNode, 0, 1), kept);
  EXPECT_EQ(owner->heard, (std::vector<ParamID>{kNode, kTabBase + kNode, kWeakNode}))
      << "the watched node's deletion is told too";
  ASSERT_EQ(test_accessor.tab_calls.size(), 1u);
  EXPECT_EQ(test_accessor.tab_calls[0].code, tab_ref_deleted);
  EXPECT_EQ(test_accessor.tab_calls[0].tab_index, 0);

  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(pb->GetINode(kNode), node);
  EXPECT_EQ(pb->GetINode(kTabBase + kNode, 0, 0), node);
  EXPECT_EQ(pb->GetINode(kWeakNode), node);
  EXPECT_EQ(node->NumDependents(), 1);
  ASSERT_TRUE(theHold.Redo());
  EXPECT_EQ(pb->GetINode(kNode), nullptr);
}

TEST_F(ParamBlockTest, ControllersHoldAnimatableValues) {
  {
    SCOPED_TRACE("refused: wrong controller kind, or a parameter that cannot be animated");
    auto* p3 = sweep.Keep(new FakePoint3);
    auto* f = sweep.Keep(new FakeFloat);
    EXPECT_FALSE(pb->SetController(kAnimFloat, 0, p3));
    EXPECT_FALSE(pb->SetController(kFloat, 0, f));
    EXPECT_FALSE(pb->SetController(kAnimFloatTab, 5, f));
  }
  auto* c = new FakeFloat(0.0f);
  owner->heard.clear();
  ASSERT_TRUE(pb->SetController(kAnimFloat, 0, c));
  EXPECT_EQ(c->value, 1.0f) << "the new controller takes the present value";
  EXPECT_EQ(owner->heard, std::vector<ParamID>{kAnimFloat});

  owner->heard.clear();
  pb->SetValue(kInt, 0, 4);
  ASSERT_TRUE(pb->SetValue(kAnimFloat, 160, 0.25f));
  EXPECT_EQ(c->value, 0.25f);
  EXPECT_EQ(c->last_set_time, 160);
  EXPECT_EQ(owner->heard, (std::vector<ParamID>{kInt, kAnimFloat}))
      << "the controller's own message reaches the owner through the block";

  pb->EnableNotifications(false);
  pb->SetValue(kInt, 0, 5);
  pb->SetValue(kAnimFloat, 0, 0.5f);
  EXPECT_EQ(owner->heard.size(), 2u);
  pb->EnableNotifications(true);

  const AnimHandle handle = Animatable::GetHandleByAnim(c);
  c->value = 0.75f;
  ASSERT_TRUE(pb->SetController(kAnimFloat, 0, nullptr));
  EXPECT_EQ(pb->GetFloat(kAnimFloat), 0.75f) << "the removed controller's value stays";
  EXPECT_EQ(Animatable::GetAnimByHandle(handle), nullptr);

  auto* d = new FakeFloat(0.6f);
  ASSERT_TRUE(pb->SetController(kAnimFloat, 0, d, false));
  owner->heard.clear();
  d->DeleteMe();
  EXPECT_EQ(pb->GetController(kAnimFloat), nullptr);
  EXPECT_FLOAT_EQ(pb->GetFloat(kAnimFloat), 0.6f) << "a deleted controller leaves its value";
  EXPECT_EQ(owner->heard, std::vector<ParamID>{kAnimFloat});
}

int factory_calls = 0;
Control* MakeFakeController(ParamType2 type) {
  ++factory_calls;
  return type == TYPE_PCNT_FRAC ? new FakeFloat() : nullptr;
}

TEST_F(ParamBlockTest, AnimateModeMakesControllersThroughTheFactory) {
  factory_calls = 0;
  AnimateOn();
  ASSERT_TRUE(pb->SetValue(kAnimFloat, 160, 0.25f));
  EXPECT_EQ(pb->GetController(kAnimFloat), nullptr) << "without a factory the value is stored";
  EXPECT_EQ(pb->GetFloat(kAnimFloat), 0.25f);

  SetParamControllerFactory(&MakeFakeController);
  ASSERT_TRUE(pb->SetValue(kFloat, 160, 2.0f));
  EXPECT_EQ(factory_calls, 0) << "a parameter that is not animatable is only stored";
  ASSERT_TRUE(pb->SetValue(kAnimFloat, 320, 0.75f));
  EXPECT_EQ(factory_calls, 1);
  auto* c = static_cast<FakeFloat*>(pb->GetController(kAnimFloat));
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->value, 0.75f);
  EXPECT_EQ(c->last_set_time, 320);
  EXPECT_EQ(c->set_count, 2) << "seeded with the present value, then set";
  ASSERT_TRUE(pb->SetValue(kAnimPoint3, 0, Point3(1.0f, 0.0f, 0.0f)));
  EXPECT_EQ(pb->GetController(kAnimPoint3), nullptr) << "the factory had none for Point3";
  EXPECT_EQ(pb->GetPoint3(kAnimPoint3), Point3(1.0f, 0.0f, 0.0f));
}

TEST_F(ParamBlockTest, SubAnimsAndReferencesFollowTables) {
  // Animatable: ikfk_blend, anim_point3, then the two weight entries.
  ASSERT_EQ(pb->NumSubs(), 4);
  int tab = 0;
  EXPECT_EQ(pb->AnimNumToParamID(0, tab), kAnimFloat);
  EXPECT_EQ(tab, -1);
  EXPECT_EQ(pb->AnimNumToParamID(3, tab), kAnimFloatTab);
  EXPECT_EQ(tab, 1);
  EXPECT_EQ(pb->AnimNumToParamID(4, tab), -1);
  EXPECT_EQ(pb->SubAnimName(0), "IKFK Blend");
  EXPECT_EQ(pb->SubAnimName(1), "anim_point3");
  EXPECT_EQ(pb->SubAnimName(3), "Parent Weight 2");
  // Display units come from the parameter's type: ikfk_blend is a fraction shown in percent.
  EXPECT_FLOAT_EQ(pb->GetParamDimension(0)->Convert(0.25f), 25.0f);
  EXPECT_EQ(pb->GetParamDimension(3), defaultDim);
  EXPECT_EQ(pb->GetParamDimension(4), defaultDim);

  pb->Insert(kAnimFloatTab, 0, 1, static_cast<const float*>(nullptr));
  EXPECT_EQ(pb->NumSubs(), 5);
  EXPECT_EQ(pb->GetAnimNum(kAnimFloatTab, 2), 4);
  auto* c = new FakeFloat();
  ASSERT_TRUE(pb->CanAssignController(3));
  // A parameter without a controller still shows a track, so walks over the tracks meet it.
  Animatable* plain = pb->SubAnim(3);
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(plain->SuperClassID(), PARAM_VALUE_SUPER_CLASS_ID);
  EXPECT_EQ(plain->ClassID(), PARAM_VALUE_CLASS_ID);
  EXPECT_EQ(plain->NumKeys(), NOT_KEYFRAMEABLE);
  EXPECT_EQ(pb->SubAnim(5), nullptr) << "past the last entry";
  ASSERT_TRUE(pb->AssignController(c, 3));
  EXPECT_EQ(pb->GetController(kAnimFloatTab, 1), c);
  EXPECT_EQ(pb->SubAnim(3), c);
  EXPECT_EQ(pb->GetReference(pb->SubNumToRefNum(3)), c);
  EXPECT_EQ(c->NumDependents(), 1);

  INode* node = NewNode();
  pb->SetValue(kNode, 0, node);
  // References: target, curve_ctrl, ikfk_blend, anim_point3, three weights, then the empty
  // node and reference-target tables.
  EXPECT_EQ(pb->NumRefs(), 7);
  EXPECT_EQ(pb->GetReference(0), node);
  EXPECT_EQ(pb->GetReference(5), c);
  pb->Delete(kAnimFloatTab, 0, 1);
  EXPECT_EQ(pb->GetReference(4), c) << "numbers shift with the table";
}

TEST_F(ParamBlockTest, CloneCopiesValuesAndClonesControllersWithItsOwner) {
  INode* node = NewNode();
  pb->SetValue(kString, 0, "l_hand");
  pb->SetValue(kNode, 0, node);
  pb->SetCount(kAnimFloatTab, 3);
  auto* c = new FakeFloat(0.3f);
  pb->SetController(kAnimFloat, 0, c, false);

  auto* copy = sweep.Keep(static_cast<TestOwner*>(CloneRefHierarchy(owner)));
  ASSERT_NE(copy, nullptr);
  IParamBlock2* cpb = copy->pblock;
  ASSERT_NE(cpb, nullptr);
  ASSERT_NE(cpb, pb);
  EXPECT_EQ(cpb->GetOwner(), copy);
  EXPECT_STREQ(cpb->GetStr(kString), "l_hand");
  EXPECT_EQ(cpb->GetINode(kNode), node) << "nodes are shared, not cloned";
  EXPECT_EQ(node->NumDependents(), 2);
  EXPECT_EQ(cpb->Count(kAnimFloatTab), 3);
  ASSERT_NE(cpb->GetController(kAnimFloat), nullptr);
  EXPECT_NE(cpb->GetController(kAnimFloat), c);
  EXPECT_FLOAT_EQ(cpb->GetFloat(kAnimFloat), 0.3f);
  cpb->SetValue(kString, 0, "r_hand");
  EXPECT_STREQ(pb->GetStr(kString), "l_hand");
}

}  // namespace
}  // namespace marvolith::test
