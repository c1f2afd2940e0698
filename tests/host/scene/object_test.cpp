// Copyright Marvolith contributors.
#include "host/scene/object.h"

#include <gtest/gtest.h>

#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/scene/layer.h"
#include "host/scene/scene.h"
#include "host/undo/hold.h"
#include "tests/support/math_matchers.h"
#include "tests/support/scene_objects.h"

namespace marvolith::test {
namespace {

class ObjectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterSceneTestClasses();
    GetCOREInterface()->Reset();
  }
  void TearDown() override { GetCOREInterface()->Reset(); }
  Interface* ip = GetCOREInterface();
};

TEST_F(ObjectTest, ModifierStackEvaluatesBottomUpOnACopyWithNarrowedValidity) {
  auto* base = new TestHelper;
  base->size = 2.0f;
  base->validity = Interval(-100, 1000);
  IDerivedObject* dob = CreateDerivedObject(base);
  INode* node = ip->CreateObjectNode(dob, "n");
  auto* lower = new TestModifier;  // x3, then x2 on top: order does not change a product, the
  lower->factor = 3.0f;            // validity and the call order are what is checked
  lower->validity = Interval(0, 500);
  auto* upper = new TestModifier;
  dob->AddModifier(lower);
  dob->AddModifier(upper);  // before 0: the new top
  ASSERT_EQ(dob->GetModifier(0), upper);
  EXPECT_EQ(dob->FindBaseObject(), base);

  const ObjectState& os = node->EvalWorldState(10);
  auto* result = dynamic_cast<TestHelper*>(os.obj);
  ASSERT_NE(result, nullptr);
  EXPECT_NE(result, base) << "modifiers that change geometry get a copy";
  EXPECT_FLOAT_EQ(result->size, 12.0f);
  EXPECT_FLOAT_EQ(base->size, 2.0f);
  EXPECT_EQ(os.Validity(), Interval(0, 500));
  EXPECT_EQ(upper->last_node, node);

  node->EvalWorldState(20);
  EXPECT_EQ(upper->calls, 1) << "cached within the validity";
  upper->SetFactor(10.0f);
  EXPECT_FLOAT_EQ(static_cast<TestHelper*>(node->EvalWorldState(20).obj)->size, 60.0f);
  lower->DisableMod();
  EXPECT_FLOAT_EQ(static_cast<TestHelper*>(node->EvalWorldState(20).obj)->size, 20.0f);
  EXPECT_EQ(node->EvalWorldState(20).Validity(), Interval(-100, 1000));
  lower->EnableMod();
  EXPECT_FLOAT_EQ(static_cast<TestHelper*>(dob->EvalStack(20, nullptr, 1).obj)->size, 6.0f)
      << "up to the lower modifier only";
}

TEST_F(ObjectTest, StackEditsAndObjectReferenceAreUndoable) {
  IDerivedObject* dob = CreateDerivedObject(new TestHelper);
  INode* node = ip->CreateObjectNode(dob, "n");
  auto* a = new TestModifier;
  auto* b = new TestModifier;
  auto* c = new TestModifier;
  dob->AddModifier(a);
  dob->AddModifier(b);
  theHold.Clear();

  theHold.Begin();
  dob->AddModifier(c, nullptr, 1);  // between b (top) and a
  dob->DeleteModifier(0);           // b goes
  b = nullptr;
  theHold.Accept("Stack");
  ASSERT_EQ(dob->NumModifiers(), 2);
  EXPECT_EQ(dob->GetModifier(0), c);
  theHold.Undo();
  ASSERT_EQ(dob->NumModifiers(), 2);
  EXPECT_EQ(dob->GetModifier(1), a);
  b = static_cast<TestModifier*>(dob->GetModifier(0));
  ASSERT_NE(b, nullptr);
  EXPECT_FLOAT_EQ(static_cast<TestHelper*>(node->EvalWorldState(0).obj)->size, 40.0f);
  theHold.Redo();
  EXPECT_EQ(dob->GetModifier(0), c);
  EXPECT_EQ(dob->GetModifier(1), a);

  theHold.Begin();
  node->SetObjectRef(new TestHelper);
  c->SetName("Named");
  theHold.Accept("Replace");
  EXPECT_EQ(node->GetObjectRef()->ClassID(), TestHelper::kClassID);
  theHold.Undo();
  EXPECT_EQ(node->GetObjectRef(), dob);
  EXPECT_EQ(c->GetName(), "TestModifier");
  EXPECT_FLOAT_EQ(static_cast<TestHelper*>(node->EvalWorldState(0).obj)->size, 40.0f);
}

TEST_F(ObjectTest, CustomAttributesLiveCloneAndDieWithTheirOwner) {
  auto* helper = new TestHelper;
  INode* node = ip->CreateObjectNode(helper, "n");
  helper->AllocCustAttribContainer();
  ICustAttribContainer* cc = helper->GetCustAttribContainer();
  ASSERT_NE(cc, nullptr);
  EXPECT_EQ(cc->GetOwner(), helper);
  theHold.Clear();

  theHold.Begin();
  auto* first = new TestAttrib;
  first->value = 1.0f;
  cc->AppendCustAttrib(first);
  auto* second = new TestAttrib;
  second->value = 2.0f;
  cc->InsertCustAttrib(0, second);
  theHold.Accept("Add attributes");
  ASSERT_EQ(cc->GetNumCustAttribs(), 2);
  EXPECT_EQ(cc->GetCustAttrib(0), second);
  EXPECT_EQ(cc->SubAnim(1), first);
  theHold.Undo();
  EXPECT_EQ(cc->GetNumCustAttribs(), 0);
  theHold.Redo();
  ASSERT_EQ(cc->GetNumCustAttribs(), 2);

  theHold.Begin();
  cc->RemoveCustAttrib(0);
  theHold.Accept("Remove");
  EXPECT_EQ(cc->GetCustAttrib(0), first);
  theHold.Undo();
  EXPECT_EQ(cc->GetCustAttrib(0), second);
  EXPECT_EQ(cc->GetCustAttrib(1), first);

  auto* copy = static_cast<TestHelper*>(CloneRefHierarchy(helper));
  ICustAttribContainer* copied = copy->GetCustAttribContainer();
  ASSERT_NE(copied, nullptr);
  ASSERT_EQ(copied->GetNumCustAttribs(), 2);
  EXPECT_NE(copied->GetCustAttrib(1), first);
  EXPECT_FLOAT_EQ(static_cast<TestAttrib*>(copied->GetCustAttrib(1))->value, 1.0f);
  EXPECT_EQ(copied->GetOwner(), copy);
  copy->DeleteMe();

  const AnimHandle cc_handle = Animatable::GetHandleByAnim(cc);
  const AnimHandle attr_handle = Animatable::GetHandleByAnim(first);
  theHold.Begin();
  node->Delete(0);
  theHold.Accept("Delete");
  EXPECT_EQ(ip->GetINodeByName("n"), nullptr);
  theHold.Undo();
  EXPECT_EQ(helper->GetCustAttribContainer(), cc);
  EXPECT_EQ(cc->GetCustAttrib(1), first);
  theHold.Clear();
  node->Delete(0);
  EXPECT_EQ(Animatable::FindAnimIncludingDeleted(cc_handle), nullptr) << "freed with its owner";
  EXPECT_EQ(Animatable::FindAnimIncludingDeleted(attr_handle), nullptr);
}

TEST_F(ObjectTest, LayersNestHideAndRefuseLoopsAndBusyDeletes) {
  ILayerManager* layers = ip->GetLayerManager();
  ASSERT_EQ(layers->GetLayerCount(), 1);
  ILayer* zero = layers->GetLayer("0");
  ASSERT_NE(zero, nullptr);
  INode* n = ip->CreateObjectNode(nullptr, "n");
  EXPECT_EQ(n->GetNodeLayer(), zero);

  theHold.Begin();
  ILayer* rig = layers->CreateLayer("rig");
  ILayer* bones = layers->CreateLayer("bones");
  EXPECT_EQ(layers->CreateLayer("rig")->GetName(), "rig001");
  EXPECT_TRUE(bones->SetParentLayer(rig));
  EXPECT_TRUE(bones->AddToLayer(n));
  rig->Hide(true);
  EXPECT_TRUE(layers->SetCurrentLayer("rig001"));
  INode* in_current = ip->CreateObjectNode(nullptr);
  theHold.Accept("Layers");
  EXPECT_EQ(in_current->GetNodeLayer()->GetName(), "rig001");
  EXPECT_FALSE(layers->DeleteLayer("rig001")) << "it holds the new node";
  EXPECT_EQ(rig->GetChildLayer(0), bones);
  EXPECT_FALSE(rig->SetParentLayer(bones)) << "a layer cannot nest in its own child";
  EXPECT_FALSE(zero->SetName("zero"));
  EXPECT_FALSE(bones->SetName("rig"));
  EXPECT_TRUE(n->IsHidden()) << "through the parent layer";
  EXPECT_FALSE(layers->DeleteLayer("bones")) << "it holds a node";
  EXPECT_FALSE(layers->DeleteLayer("0"));
  Tab<INode*> nodes;
  bones->Nodes(nodes);
  ASSERT_EQ(nodes.Count(), 1);

  theHold.Undo();
  EXPECT_EQ(n->GetNodeLayer(), zero);
  EXPECT_FALSE(n->IsHidden());
  EXPECT_EQ(layers->GetLayerCount(), 1);
  EXPECT_EQ(ip->GetRootNode()->NumberOfChildren(), 1);
}

}  // namespace
}  // namespace marvolith::test
