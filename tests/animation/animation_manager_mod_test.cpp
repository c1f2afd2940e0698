// Copyright Marvolith contributors.
#include "animation/animation_manager_mod.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

#include "host/app/host_classes.h"
#include "host/app/scene_file.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"
#include "tests/support/scene_objects.h"

namespace marvolith {
namespace {

using namespace animation_manager;
using test::TestHelper;

class AnimationManagerModTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetModuleInstance(&instance_);
    RegisterHostClasses();
    test::RegisterSceneTestClasses();
    ClassDirectory::Get().AddClass(GetAnimationManagerModDesc());
    GetCOREInterface()->Reset();
  }
  void TearDown() override {
    GetCOREInterface()->Reset();
    SetModuleInstance(nullptr);
  }

  /// A node named name over a helper, with a manager modifier on its stack.
  static AnimationManagerMod* MakeManagedNode(const char* name, INode** node_out = nullptr) {
    IDerivedObject* dob = CreateDerivedObject(new TestHelper);
    INode* node = GetCOREInterface()->CreateObjectNode(dob, name);
    auto* mod = new AnimationManagerMod;
    dob->AddModifier(mod);
    if (node_out) *node_out = node;
    return mod;
  }
  static IParamBlock2* Block(AnimationManagerMod* mod) {
    return mod->GetParamBlockByID(kParamsBlock);
  }

  int instance_ = 0;
};

TEST_F(AnimationManagerModTest, BlockFollowsTheParameterTable) {
  AnimationManagerMod mod;
  IParamBlock2* pb = Block(&mod);
  ASSERT_NE(pb, nullptr);
  EXPECT_EQ(mod.GetReference(AnimationManagerMod::kParamsRef), pb);
  EXPECT_EQ(pb->GetOwner(), &mod);
  struct Param {
    ParamID id;
    const char* script_name;
    ParamType2 type;
    int flags;
    const char* label;
  };
  const Param table[] = {
      {kTags, "tags", TYPE_STRING, 32, "Tags"},
      {kRoot, "root", TYPE_BOOL, 32, "Root"},
      {kMirrorPosAxis, "mirror_pos_axis", TYPE_INT, 32, "Mirror Pos Axis"},
      {kMirrorRotAxis, "mirror_rot_axis", TYPE_INT, 32, "Mirror Rot Axis"},
      {kUseMirrorPos, "use_mirror_pos", TYPE_BOOL, 32, "Mirror Position"},
      {kUseMirrorRot, "use_mirror_rot", TYPE_BOOL, 32, "Mirror Rotation"},
      {kUseMirrorNode, "use_mirror_node", TYPE_BOOL, 32, "Use Mirror Node"},
      {kMirrorNode, "mirror_node", TYPE_INODE, 256, "Mirror Node"},
      {kUseRetargetSize, "use_retarget_size", TYPE_BOOL, 32, "Use Retarget Size"},
      {kRetargetSize, "retarget_size", TYPE_WORLD, 32, "Retarget Size"},
      {kGroup, "group", TYPE_STRING, 32, "Tags"},
  };
  ParamBlockDesc2* desc = pb->GetDesc();
  EXPECT_EQ(desc->Count(), 11) << "id 1 is not used";
  EXPECT_STREQ(desc->int_name, "params");
  EXPECT_EQ(desc->cd, GetAnimationManagerModDesc());
  for (const Param& p : table) {
    SCOPED_TRACE(p.script_name);
    const ParamDef* def = desc->GetParamDef(p.id);
    ASSERT_NE(def, nullptr);
    EXPECT_STREQ(def->int_name, p.script_name);
    EXPECT_EQ(def->type, p.type);
    EXPECT_EQ(def->flags, p.flags);
    EXPECT_STREQ(def->DisplayName(), p.label);
    EXPECT_STREQ(GetString(def->local_name), p.label) << "the label is the string table's text";
  }
  EXPECT_EQ(desc->GetParamDef(kGroup)->local_name, desc->GetParamDef(kTags)->local_name);

  // Defaults that readers depend on: mirror about Z, partner by node, a retarget size of 10.
  EXPECT_EQ(pb->GetInt(kMirrorPosAxis), 2);
  EXPECT_EQ(pb->GetInt(kMirrorRotAxis), 2);
  EXPECT_EQ(pb->GetInt(kUseMirrorNode), 1);
  EXPECT_FLOAT_EQ(pb->GetFloat(kRetargetSize), 10.0f);
  EXPECT_STREQ(pb->GetStr(kTags), "");
  EXPECT_EQ(pb->GetINode(kMirrorNode), nullptr);
  // Axes stay among X, Y and Z.
  pb->SetValue(kMirrorPosAxis, 0, 7);
  EXPECT_EQ(pb->GetInt(kMirrorPosAxis), 2);
  pb->SetValue(kMirrorRotAxis, 0, -1);
  EXPECT_EQ(pb->GetInt(kMirrorRotAxis), 0);

  MSTR name;
  mod.GetClassName(name);
  EXPECT_EQ(name, "Animation Manager");
  AnimationManagerMod loading(true);
  EXPECT_EQ(Block(&loading), nullptr) << "a loading instance waits for its block from the file";
}

TEST_F(AnimationManagerModTest, MirrorNodeIsWatchedNotReferencedAndNeverTheNodeItself) {
  INode* left = nullptr;
  INode* right = nullptr;
  AnimationManagerMod* mod = MakeManagedNode("l_hand", &left);
  MakeManagedNode("r_hand", &right);
  IParamBlock2* pb = Block(mod);
  ASSERT_EQ(FindAnimationManagerMod(left), mod);

  const int dependents = right->NumDependents();
  EXPECT_TRUE(pb->SetValue(kMirrorNode, 0, right));
  EXPECT_EQ(pb->GetINode(kMirrorNode), right);
  EXPECT_EQ(right->NumDependents(), dependents) << "the block holds no reference to the mirror";

  EXPECT_FALSE(pb->SetValue(kMirrorNode, 0, left)) << "a node is not its own mirror";
  EXPECT_EQ(pb->GetINode(kMirrorNode), right);
  EXPECT_TRUE(pb->SetValue(kMirrorNode, 0, static_cast<INode*>(nullptr)));
  EXPECT_TRUE(pb->SetValue(kMirrorNode, 0, right));

  // An instanced modifier belongs to every node that carries it.
  IDerivedObject* dob = CreateDerivedObject(new TestHelper);
  INode* twin = GetCOREInterface()->CreateObjectNode(dob, "twin");
  dob->AddModifier(mod);
  std::vector<INode*> nodes;
  CollectModifierNodes(mod, nodes);
  EXPECT_EQ(nodes.size(), 2u);
  EXPECT_FALSE(pb->SetValue(kMirrorNode, 0, twin));

  GetCOREInterface()->DeleteNode(right);
  EXPECT_EQ(pb->GetINode(kMirrorNode), nullptr) << "a deleted mirror reads as none";
}

TEST_F(AnimationManagerModTest, PassesTheObjectThroughAndStopsLayerMessages) {
  INode* node = nullptr;
  AnimationManagerMod* mod = MakeManagedNode("ctrl", &node);
  auto* dob = static_cast<IDerivedObject*>(node->GetObjectRef());
  const ObjectState& os = node->EvalWorldState(0);
  EXPECT_EQ(os.obj, dob->GetObjRef()) << "the object below, not a copy";

  // The layer references take only the layer classes.
  auto* helper = new TestHelper;
  EXPECT_FALSE(mod->SetAnimationLayers(helper));
  EXPECT_FALSE(mod->SetLocalWeights(helper));
  EXPECT_FALSE(mod->CanReferenceAt(AnimationManagerMod::kParamsRef, helper));
  EXPECT_EQ(mod->GetAnimationLayers(), nullptr);
  helper->MaybeAutoDelete();
  EXPECT_TRUE(mod->SetAnimationLayers(nullptr));
}

TEST_F(AnimationManagerModTest, CloneCopiesTheBlock) {
  INode* node = nullptr;
  INode* other = nullptr;
  AnimationManagerMod* mod = MakeManagedNode("l_arm", &node);
  MakeManagedNode("r_arm", &other);
  Block(mod)->SetValue(kTags, 0, "l_arm,arm");
  Block(mod)->SetValue(kMirrorNode, 0, other);
  Block(mod)->SetValue(kRetargetSize, 0, 4.5f);

  auto* copy = static_cast<AnimationManagerMod*>(CloneRefHierarchy(mod));
  ASSERT_NE(copy, nullptr);
  ASSERT_NE(Block(copy), nullptr);
  EXPECT_NE(Block(copy), Block(mod));
  EXPECT_STREQ(Block(copy)->GetStr(kTags), "l_arm,arm");
  EXPECT_EQ(Block(copy)->GetINode(kMirrorNode), other);
  EXPECT_FLOAT_EQ(Block(copy)->GetFloat(kRetargetSize), 4.5f);
  Block(copy)->SetValue(kTags, 0, "changed");
  EXPECT_STREQ(Block(mod)->GetStr(kTags), "l_arm,arm");
  copy->MaybeAutoDelete();
}

std::vector<std::uint8_t> SaveBytes() {
  std::vector<std::uint8_t> bytes;
  std::string error;
  EXPECT_TRUE(SaveSceneToBytes(bytes, &error)) << error;
  return bytes;
}

TEST_F(AnimationManagerModTest, SavesAndLoadsWithTheSceneAndResavesTheSameBytes) {
  INode* left = nullptr;
  INode* right = nullptr;
  AnimationManagerMod* l = MakeManagedNode("rig_ctrl_l_hand", &left);
  AnimationManagerMod* r = MakeManagedNode("rig_ctrl_r_hand", &right);
  IParamBlock2* lb = Block(l);
  lb->SetValue(kTags, 0, "l_hand,l_ik_hand");
  lb->SetValue(kGroup, 0, "arms");
  lb->SetValue(kRoot, 0, true);
  lb->SetValue(kMirrorPosAxis, 0, 0);
  lb->SetValue(kUseMirrorPos, 0, true);
  lb->SetValue(kUseMirrorNode, 0, false);
  lb->SetValue(kUseRetargetSize, 0, true);
  lb->SetValue(kRetargetSize, 0, 12.25f);
  lb->SetValue(kMirrorNode, 0, right);
  Block(r)->SetValue(kMirrorNode, 0, left);
  l->SetName("Manager");

  const std::vector<std::uint8_t> bytes = SaveBytes();
  std::string error;
  ASSERT_TRUE(LoadSceneFromBytes(bytes, &error)) << error;
  Interface* ip = GetCOREInterface();
  INode* left2 = ip->GetINodeByName("rig_ctrl_l_hand");
  INode* right2 = ip->GetINodeByName("rig_ctrl_r_hand");
  ASSERT_NE(left2, nullptr);
  ASSERT_NE(right2, nullptr);
  AnimationManagerMod* l2 = FindAnimationManagerMod(left2);
  ASSERT_NE(l2, nullptr);
  IParamBlock2* b = Block(l2);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->GetOwner(), l2);
  EXPECT_STREQ(b->GetStr(kTags), "l_hand,l_ik_hand");
  EXPECT_STREQ(b->GetStr(kGroup), "arms");
  EXPECT_EQ(b->GetInt(kRoot), 1);
  EXPECT_EQ(b->GetInt(kMirrorPosAxis), 0);
  EXPECT_EQ(b->GetInt(kMirrorRotAxis), 2);
  EXPECT_EQ(b->GetInt(kUseMirrorPos), 1);
  EXPECT_EQ(b->GetInt(kUseMirrorNode), 0);
  EXPECT_EQ(b->GetInt(kUseRetargetSize), 1);
  EXPECT_FLOAT_EQ(b->GetFloat(kRetargetSize), 12.25f);
  EXPECT_EQ(b->GetINode(kMirrorNode), right2);
  EXPECT_EQ(Block(FindAnimationManagerMod(right2))->GetINode(kMirrorNode), left2);
  EXPECT_EQ(l2->GetName(), "Manager");
  EXPECT_EQ(SaveBytes(), bytes) << "saving the loaded scene gives the same bytes";
}

RC_GTEST_FIXTURE_PROP(AnimationManagerModTest,
                      AnyBlockValuesSurviveSaveLoadSave,
                      (const std::string& tags, int axis, bool root, float size)) {
  GetCOREInterface()->Reset();
  AnimationManagerMod* mod = MakeManagedNode("node");
  IParamBlock2* pb = Block(mod);
  pb->SetValue(kTags, 0, tags.c_str());
  pb->SetValue(kMirrorRotAxis, 0, axis);
  pb->SetValue(kRoot, 0, root);
  pb->SetValue(kRetargetSize, 0, size);
  const std::string stored_tags = pb->GetStr(kTags);
  const int stored_axis = pb->GetInt(kMirrorRotAxis);

  std::vector<std::uint8_t> bytes;
  RC_ASSERT(SaveSceneToBytes(bytes));
  RC_ASSERT(LoadSceneFromBytes(bytes));
  IParamBlock2* b = Block(FindAnimationManagerMod(GetCOREInterface()->GetINodeByName("node")));
  RC_ASSERT(b != nullptr);
  RC_ASSERT(std::string(b->GetStr(kTags)) == stored_tags);
  RC_ASSERT(b->GetInt(kMirrorRotAxis) == stored_axis);
  RC_ASSERT(b->GetInt(kRoot) == (root ? 1 : 0));
  std::vector<std::uint8_t> again;
  RC_ASSERT(SaveSceneToBytes(again));
  RC_ASSERT(again == bytes);
}

}  // namespace
}  // namespace marvolith
