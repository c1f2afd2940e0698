// Copyright Marvolith contributors.
#include "animation/animation_manager_mod.h"

#include <algorithm>

#include "host/scene/inode.h"
#include "plugin/class_table.h"
#include "plugin/strings.h"

namespace marvolith {
namespace {

using namespace animation_manager;

class AnimationManagerModClassDesc : public MarvolithClassDesc {
 public:
  AnimationManagerModClassDesc() : MarvolithClassDesc(ClassIndex::AnimationManagerMod) {}
  Animatable* Create(bool loading) override { return new AnimationManagerMod(loading); }
};

/// A node cannot be its own mirror: refuses a node that carries the modifier that owns the block.
/// Null (no mirror) always passes.
class MirrorNodeValidator : public PBValidator {
 public:
  bool Validate(PB2Value& v, ReferenceMaker* owner, ParamID id, int tab_index) override {
    INode* node = v.GetINode();
    auto* mod = dynamic_cast<Modifier*>(owner);
    if (!node || !mod) return true;
    std::vector<INode*> nodes;
    CollectModifierNodes(mod, nodes);
    return std::find(nodes.begin(), nodes.end(), node) == nodes.end();
  }
};

// Static construction order within this file: the descriptor, the validator, then the block
// table that names both.
AnimationManagerModClassDesc g_desc;
MirrorNodeValidator g_mirror_node_validator;

ParamBlockDesc2 g_params(
    kParamsBlock,
    "params",
    0,
    &g_desc,
    P_AUTO_CONSTRUCT,
    AnimationManagerMod::kParamsRef,
    {
        ParamDef(kTags, "tags", TYPE_STRING, P_RESET_DEFAULT, IDS_AM_TAGS)
            .Default("")
            .Label("Tags"),
        ParamDef(kRoot, "root", TYPE_BOOL, P_RESET_DEFAULT, IDS_AM_ROOT)
            .Default(false)
            .Label("Root"),
        // Axes are 0 X, 1 Y, 2 Z; the range keeps written values among them.
        ParamDef(
            kMirrorPosAxis, "mirror_pos_axis", TYPE_INT, P_RESET_DEFAULT, IDS_AM_MIRROR_POS_AXIS)
            .Default(2)
            .Range(0, 2)
            .Label("Mirror Pos Axis"),
        ParamDef(
            kMirrorRotAxis, "mirror_rot_axis", TYPE_INT, P_RESET_DEFAULT, IDS_AM_MIRROR_ROT_AXIS)
            .Default(2)
            .Range(0, 2)
            .Label("Mirror Rot Axis"),
        ParamDef(kUseMirrorPos, "use_mirror_pos", TYPE_BOOL, P_RESET_DEFAULT, IDS_AM_USE_MIRROR_POS)
            .Default(false)
            .Label("Mirror Position"),
        ParamDef(kUseMirrorRot, "use_mirror_rot", TYPE_BOOL, P_RESET_DEFAULT, IDS_AM_USE_MIRROR_ROT)
            .Default(false)
            .Label("Mirror Rotation"),
        ParamDef(
            kUseMirrorNode, "use_mirror_node", TYPE_BOOL, P_RESET_DEFAULT, IDS_AM_USE_MIRROR_NODE)
            .Default(true)
            .Label("Use Mirror Node"),
        ParamDef(kMirrorNode, "mirror_node", TYPE_INODE, P_NO_REF, IDS_AM_MIRROR_NODE)
            .Validator(&g_mirror_node_validator)
            .Label("Mirror Node"),
        ParamDef(kUseRetargetSize,
                 "use_retarget_size",
                 TYPE_BOOL,
                 P_RESET_DEFAULT,
                 IDS_AM_USE_RETARGET_SIZE)
            .Default(false)
            .Label("Use Retarget Size"),
        ParamDef(kRetargetSize, "retarget_size", TYPE_WORLD, P_RESET_DEFAULT, IDS_AM_RETARGET_SIZE)
            .Default(10.0f)
            .Label("Retarget Size"),
        // The same label as tags: the rollout shows its own "Group:".
        ParamDef(kGroup, "group", TYPE_STRING, P_RESET_DEFAULT, IDS_AM_TAGS)
            .Default("")
            .Label("Tags"),
    });

bool IsClass(ReferenceTarget* target, ClassIndex index) {
  const ClassInfo& info = GetClassInfo(index);
  return target && target->SuperClassID() == info.super_class && target->ClassID() == info.class_id;
}

void CollectNodesFrom(ReferenceTarget* target, std::vector<INode*>& nodes, int depth) {
  // Derived objects may sit on derived objects; a few levels cover every real stack and keep a
  // damaged graph from recursing without end.
  if (depth > 8) return;
  DependentIterator it(target);
  while (ReferenceMaker* maker = it.Next()) {
    const SClass_ID sclass = maker->SuperClassID();
    if (sclass == BASENODE_CLASS_ID) {
      auto* node = static_cast<INode*>(maker);
      if (node->GetObjectRef() == target &&
          std::find(nodes.begin(), nodes.end(), node) == nodes.end()) {
        nodes.push_back(node);
      }
    } else if (sclass == GEN_DERIVOB_CLASS_ID) {
      CollectNodesFrom(static_cast<ReferenceTarget*>(maker), nodes, depth + 1);
    }
  }
}

}  // namespace

ClassDesc2* GetAnimationManagerModDesc() { return &g_desc; }

AnimationManagerMod::AnimationManagerMod(bool loading) {
  if (!loading) g_desc.MakeAutoParamBlocks(this);
}

void AnimationManagerMod::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::AnimationManagerMod);
}

IParamBlock2* AnimationManagerMod::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

RefTargetHandle AnimationManagerMod::GetReference(int i) {
  switch (i) {
    case kParamsRef:
      return pblock_;
    case kLayersRef:
      return layers_;
    case kLocalWeightsRef:
      return local_weights_;
    default:
      return nullptr;
  }
}

void AnimationManagerMod::SetReference(int i, RefTargetHandle target) {
  switch (i) {
    case kParamsRef:
      pblock_ = dynamic_cast<IParamBlock2*>(target);
      break;
    case kLayersRef:
      layers_ = target;
      break;
    case kLocalWeightsRef:
      local_weights_ = target;
      break;
    default:
      break;
  }
}

RefResult AnimationManagerMod::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID&, RefMessage, bool) {
  if (target && target != pblock_ && (target == layers_ || target == local_weights_))
    return REF_STOP;
  return REF_SUCCEED;
}

RefTargetHandle AnimationManagerMod::Clone(RemapDir& remap) {
  auto* mod = new AnimationManagerMod(true);
  for (int i = 0; i < kNumRefs; ++i) mod->ReplaceReference(i, remap.CloneRef(GetReference(i)));
  BaseClone(this, mod, remap);
  return mod;
}

void* AnimationManagerMod::GetInterface(ULONG id) {
  if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
  return Modifier::GetInterface(id);
}

bool AnimationManagerMod::CanReferenceAt(int i, ReferenceTarget* target) {
  switch (i) {
    case kParamsRef: {
      auto* block = dynamic_cast<IParamBlock2*>(target);
      return block && block->GetDesc() == &g_params;
    }
    case kLayersRef:
      return IsClass(target, ClassIndex::AnimationLayers);
    case kLocalWeightsRef:
      return IsClass(target, ClassIndex::AnimLayersLocalWeights);
    default:
      return false;
  }
}

bool AnimationManagerMod::SetAnimationLayers(ReferenceTarget* layers) {
  if (layers && !CanReferenceAt(kLayersRef, layers)) return false;
  return ReplaceReference(kLayersRef, layers) == REF_SUCCEED;
}

bool AnimationManagerMod::SetLocalWeights(ReferenceTarget* weights) {
  if (weights && !CanReferenceAt(kLocalWeightsRef, weights)) return false;
  return ReplaceReference(kLocalWeightsRef, weights) == REF_SUCCEED;
}

AnimationManagerMod* FindAnimationManagerMod(INode* node) {
  if (!node) return nullptr;
  Object* obj = node->GetObjectRef();
  for (int depth = 0; obj && obj->SuperClassID() == GEN_DERIVOB_CLASS_ID && depth < 8; ++depth) {
    auto* dob = static_cast<IDerivedObject*>(obj);
    for (int i = 0; i < dob->NumModifiers(); ++i) {
      if (auto* mod = dynamic_cast<AnimationManagerMod*>(dob->GetModifier(i))) return mod;
    }
    obj = dob->GetObjRef();
  }
  return nullptr;
}

void CollectModifierNodes(Modifier* mod, std::vector<INode*>& nodes) {
  if (mod) CollectNodesFrom(mod, nodes, 0);
}

}  // namespace marvolith
