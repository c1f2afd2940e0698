// Copyright Marvolith contributors.
// The manager's node gathering, its layer functions through the script dispatcher, and layer
// sets on rigs whose nodes carry manager modifiers (groups share local weights).
#include "animation/animation_manager.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "animation/animation_manager_mod.h"
#include "host/app/host_classes.h"
#include "host/scene/core_interface.h"
#include "host/script/fp_dispatch.h"
#include "host/undo/hold.h"
#include "layers/layer_control.h"
#include "layers/layer_sets.h"
#include "plugin/strings.h"
#include "tests/support/scene_objects.h"

namespace marvolith {
namespace {

using namespace animation_manager;
using Strings = std::vector<std::string>;

class AnimationManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetModuleInstance(&instance_);
    RegisterHostClasses();
    test::RegisterSceneTestClasses();
    for (ClassDesc2* cd :
         {GetAnimationManagerModDesc(), GetAnimationLayersDesc(), GetAnimLayersLocalWeightsDesc(),
          GetFloatLayersDesc(), GetPositionLayersDesc(), GetRotationLayersDesc(),
          GetScaleLayersDesc()}) {
      ClassDirectory::Get().AddClass(cd);
    }
    GetCOREInterface()->Reset();
  }
  void TearDown() override {
    GetCOREInterface()->Reset();
    theHold.Clear();
    SetModuleInstance(nullptr);
  }

  /// A node over a helper under parent; with a manager modifier when managed, whose group and
  /// root are set.
  static INode* Node(
      const char* name, INode* parent, bool managed, const char* group = "", bool root = false) {
    IDerivedObject* dob = CreateDerivedObject(new test::TestHelper);
    INode* node = GetCOREInterface()->CreateObjectNode(dob, name);
    if (parent) parent->AttachChild(node, 0);
    if (managed) {
      auto* mod = new AnimationManagerMod;
      dob->AddModifier(mod);
      IParamBlock2* pb = mod->GetParamBlockByID(kParamsBlock);
      pb->SetValue(kGroup, 0, group);
      pb->SetValue(kRoot, 0, root);
    }
    return node;
  }

  static void Select(std::vector<INode*> nodes) {
    GetCOREInterface()->ClearNodeSelection(false);
    for (INode* node : nodes) GetCOREInterface()->SelectNode(node, false);
  }

  static Strings Names(const std::vector<INode*>& nodes) {
    Strings names;
    for (INode* node : nodes) names.push_back(node->GetName());
    return names;
  }

  static Strings Gathered(DWORD flags) {
    std::vector<INode*> nodes;
    GatherNodes(nodes, flags);
    return Names(nodes);
  }

  static AnimationLayersControl* Pos(INode* node) {
    return AsLayeredControl(node->GetTMController()->GetPositionController());
  }

  static FPValue Call(const char* name,
                      std::vector<FPValue> args = {},
                      std::vector<FPKeyArg> keys = {}) {
    FPInterface* fpi = GetCOREInterface("AnimationManager");
    EXPECT_NE(fpi, nullptr);
    const FPResult r = CallFunction(fpi, name, args, keys);
    EXPECT_EQ(r.status, FPS_OK) << name;
    return r.value;
  }

  int instance_ = 0;
};

// Two rigs: rig1 (root managed) with a managed spine and an unmanaged prop under it, a limb whose
// top "arm" is a root of its own; rig2 a lone managed node.
TEST_F(AnimationManagerTest, GatheringFollowsTheRigRootsAndTheFlags) {
  INode* rig1 = Node("rig1", nullptr, true, "", true);
  INode* spine = Node("spine", rig1, true);
  Node("prop", spine, false);
  INode* arm = Node("arm", spine, true, "", true);
  INode* hand = Node("hand", arm, true);
  INode* rig2 = Node("rig2", nullptr, true);

  std::vector<INode*> kept = {rig2};
  GatherNodes(kept, kGatherWholeRig);  // an empty selection leaves the list as it was
  EXPECT_EQ(Names(kept), Strings{"rig2"});

  EXPECT_EQ(Gathered(kGatherAllNodes), (Strings{"rig1", "spine", "prop", "arm", "hand", "rig2"}));
  Select({hand, spine});
  EXPECT_EQ(Gathered(0), (Strings{"hand", "spine"}));  // the selection order
  // The whole rig: the walk up stops at the first root; tops once each, managed nodes only.
  EXPECT_EQ(Gathered(kGatherWholeRig), (Strings{"arm", "hand", "rig1", "spine"}));
  Select({hand, rig2, hand});
  EXPECT_EQ(Gathered(kGatherWholeRig), (Strings{"arm", "hand", "rig2"}));
  // Ctrl: each selected node's limb; an unmanaged selected node takes unmanaged nodes too.
  INode* prop = GetCOREInterface()->GetINodeByName("prop");
  Select({prop});
  EXPECT_EQ(Gathered(kGatherWholeRig | kGatherCtrl),
            (Strings{"rig1", "spine", "prop", "arm", "hand"}));
  EXPECT_EQ(Gathered(kGatherWholeRig | kGatherCtrl | kGatherNoLimb),
            (Strings{"rig1", "spine", "arm", "hand"}));
}

TEST_F(AnimationManagerTest, GroupsShareLocalWeightsWhateverTheirCase) {
  INode* a = Node("a", nullptr, true, "Body", true);
  INode* b = Node("b", nullptr, true, "body", true);
  INode* c = Node("c", nullptr, true, "Face", true);
  INode* d = Node("d", nullptr, true);
  EnableLayers({a, b, c, d}, false);

  AnimLayersLocalWeights* body = Pos(a)->GetLocalWeights();
  ASSERT_NE(body, nullptr);
  EXPECT_EQ(Pos(b)->GetLocalWeights(), body);
  // Another group, and a node of no group, have weights of their own.
  EXPECT_NE(Pos(c)->GetLocalWeights(), body);
  EXPECT_NE(Pos(d)->GetLocalWeights(), body);
  EXPECT_NE(Pos(d)->GetLocalWeights(), Pos(c)->GetLocalWeights());
  AnimationLayers* set = Pos(a)->GetAnimationLayers();
  for (INode* node : {a, b, c, d}) {
    SCOPED_TRACE(node->GetName());
    AnimationManagerMod* mod = FindAnimationManagerMod(node);
    EXPECT_EQ(mod->GetAnimationLayers(), set);
    EXPECT_EQ(mod->GetLocalWeights(), Pos(node)->GetLocalWeights());
    EXPECT_EQ(Pos(node)->GetAnimationLayers(), set);
  }
  EXPECT_EQ(GetAnimLayers({a, b}).local_weights, body);
  EXPECT_EQ(GetAnimLayers({a, c}).local_weights, nullptr) << "one set, two groups";

  // The modifiers let go on disabling and hold again on undo.
  DisableLayers({a, b, c, d});
  for (INode* node : {a, b, c, d}) {
    AnimationManagerMod* mod = FindAnimationManagerMod(node);
    EXPECT_TRUE(!mod->GetAnimationLayers() && !mod->GetLocalWeights()) << node->GetName();
  }
  ASSERT_TRUE(theHold.Undo());
  EXPECT_EQ(FindAnimationManagerMod(b)->GetLocalWeights(), body);
}

// The script runs the functions on nodes and on a selection; these are the rig and group forms.
TEST_F(AnimationManagerTest, LayerFunctionsActOnTheSelectionsRigAndGroup) {
  INode* root = Node("root", nullptr, true, "Body", true);
  INode* child = Node("child", root, true, "Body");
  INode* other = Node("other", nullptr, false);
  Select({child});
  Call("EnableLayers");  // the whole rig of the selection
  ASSERT_NE(Pos(root), nullptr);
  ASSERT_NE(Pos(child), nullptr);
  EXPECT_EQ(Pos(other), nullptr);

  // The local weight functions reach the weights the selected group shares, in percent.
  Call("addAdjustmentLayer", {}, {{"name", FPValue("fix")}});
  Call("SetLayerLocalWeight", {FPValue(2), FPValue(20.0f)});
  Interval valid = FOREVER;
  EXPECT_FLOAT_EQ(Pos(root)->GetLocalWeights()->GetWeight(1, 0, valid), 0.2f);
  EXPECT_NEAR(Call("GetLayerLocalWeight", {FPValue(2)}).AsFloat(), 20.0f, 1e-4f);

  Call("DisableLayers");
  EXPECT_EQ(Pos(root), nullptr);
  EXPECT_EQ(Pos(child), nullptr);

  // The rig gathering passes over nodes without a manager modifier.
  Select({other});
  Call("EnableLayers");
  EXPECT_EQ(Pos(other), nullptr);
}

}  // namespace
}  // namespace marvolith
