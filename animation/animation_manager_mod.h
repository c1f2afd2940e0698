// Copyright Marvolith contributors.
// AnimationManagerMod: the modifier on every rig control that tells the animation manager how
// the node belongs to its rig (root, group, tags), how it mirrors and its retarget size.
#pragma once

#include <vector>

#include "host/params/iparam_block2.h"
#include "host/registry/class_desc.h"
#include "host/scene/object.h"
#include "plugin/animation_manager_params.h"
#include "support/ref_slot_check.h"

namespace marvolith {

/// The manager's modifier. It changes nothing of the object below it; it is scene data that the
/// manager, the clipboard, mirroring and the rig transform read.
///
/// References: 0 the parameter block ("params", ids in plugin/animation_manager_params.h), 1 the
/// AnimationLayers of the node's layered tracks, 2 their AnimLayersLocalWeights. The block holds
/// every value and is saved as reference 0; the modifier itself writes no chunks. `mirror_node`
/// is kept by handle, not referenced: it reads null once that node is deleted, and a node cannot
/// be its own mirror (the validator refuses a node that carries this modifier).
class AnimationManagerMod : public Modifier, public IRefSlotCheck {
 public:
  static constexpr int kParamsRef = 0;
  static constexpr int kLayersRef = 1;
  static constexpr int kLocalWeightsRef = 2;
  static constexpr int kNumRefs = 3;

  /// A new modifier with its block at the table's defaults; with loading true the block is left
  /// for the scene file to supply.
  explicit AnimationManagerMod(bool loading = false);

  Class_ID ClassID() override { return animation_manager::kClassID; }
  /// "Animation Manager" (from the module's string table; "" before the module is attached).
  void GetClassName(MSTR& s, bool localized = true) const override;

  /// Leaves *os as it is.
  void ModifyObject(TimeValue t, ModContext& mc, ObjectState* os, INode* node) override {}
  ChannelMask ChannelsUsed() override { return 0; }
  ChannelMask ChannelsChanged() override { return 0; }

  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;

  int NumRefs() override { return kNumRefs; }
  RefTargetHandle GetReference(int i) override;
  /// Changes of the block travel on to the node; those of the layer objects stop here, since
  /// they change nothing of the object.
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  /// A new modifier whose references are cloned through remap.
  RefTargetHandle Clone(RemapDir& remap) override;

  /// Answers the IRefSlotCheck part for I_REFSLOTCHECK.
  void* GetInterface(ULONG id) override;
  using Modifier::GetInterface;
  /// Slot 0 takes a block of this class's descriptor, slot 1 an AnimationLayers object, slot 2
  /// an AnimLayersLocalWeights object (each by super class and Class_ID).
  bool CanReferenceAt(int i, ReferenceTarget* target) override;

  /// The AnimationLayers of the node's layered tracks, or null.
  ReferenceTarget* GetAnimationLayers() const { return layers_; }
  /// Points reference 1 at layers (null clears). False, and nothing changes, for an object that
  /// is not an AnimationLayers. Undoable.
  bool SetAnimationLayers(ReferenceTarget* layers);
  /// The AnimLayersLocalWeights of the node's group, or null.
  ReferenceTarget* GetLocalWeights() const { return local_weights_; }
  /// Points reference 2 at weights (null clears); false for another class. Undoable.
  bool SetLocalWeights(ReferenceTarget* weights);

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  IParamBlock2* pblock_ = nullptr;
  ReferenceTarget* layers_ = nullptr;
  ReferenceTarget* local_weights_ = nullptr;
};

/// The descriptor of AnimationManagerMod (class table row AnimationManagerMod).
ClassDesc2* GetAnimationManagerModDesc();

/// The first AnimationManagerMod in the modifier stacks of node, from the top down; null when
/// node is null or has none.
AnimationManagerMod* FindAnimationManagerMod(INode* node);

/// The nodes whose object references lead, through derived objects, to mod; appended to nodes
/// once each. An instanced modifier has several.
void CollectModifierNodes(Modifier* mod, std::vector<INode*>& nodes);

}  // namespace marvolith
