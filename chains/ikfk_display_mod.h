// Copyright Marvolith contributors.
// IKFKDisplayMod, the modifier that shrinks an IKFK control's shape as the chain blends away
// from the mode the control belongs to, and the pure rule that gives its scale factor.
#pragma once

#include "host/params/iparamb2.h"
#include "host/scene/object.h"

class ClassDesc2;

namespace marvolith {

/// What the modifier learned of its node, for IKFKDisplayFactor.
struct IKFKDisplayInput {
  /// The node's transform controller is an IKFKControl.
  bool is_ikfk_control = false;
  /// That control's chain node carries an IKFKChain whose `affect_helpers_display` is on.
  bool chain_affects_display = false;
  /// The control's `type`: 0 a joint (an FK control), above 0 the goal, goal parent or target.
  int type = 0;
  /// The chain's `ikfk_blend` at the time: 0 pure FK, 1 pure IK.
  float blend = 1.0f;
};

/// The factor by which the shape is scaled about its centre:
///   - not an IKFKControl: 0.5;
///   - an IKFKControl whose chain is missing or does not affect the display: 1;
///   - else the blend for type above 0 (goal, goal parent, target), 1 - blend for joints.
/// The result is clamped to [0, 1], so a blend animated past its range neither grows nor mirrors
/// the shape; a NaN blend gives 1 (the shape as built).
float IKFKDisplayFactor(const IKFKDisplayInput& in);

/// The modifier "IKFK Display" (an empty parameter block, reference 0). ModifyObject scales the
/// points of a deformable object about the centre of their bounding box by IKFKDisplayFactor
/// read for the node at t, and narrows the object's validity by what it read (the blend's
/// track). Objects without points, or that do not deform, pass unchanged. The modifier holds
/// no reference to the chain: a chain whose blend or display switch changes drops its members'
/// world states (INode::InvalidateWS) so that they are modified again.
class IKFKDisplayMod : public Modifier {
 public:
  /// With loading true no block is made (the file links one).
  explicit IKFKDisplayMod(bool loading = false);

  Class_ID ClassID() override;
  void GetClassName(MSTR& s, bool localized = true) const override;

  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  int NumSubs() override { return 1; }
  Animatable* SubAnim(int i) override { return i == 0 ? pblock_ : nullptr; }
  MSTR SubAnimName(int i, bool localized = true) override;
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }

  ChannelMask ChannelsUsed() override { return GEOM_CHANNEL | TOPO_CHANNEL; }
  ChannelMask ChannelsChanged() override { return GEOM_CHANNEL; }
  void ModifyObject(TimeValue t, ModContext& mc, ObjectState* os, INode* node) override;

  RefTargetHandle Clone(RemapDir& remap) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  IParamBlock2* pblock_ = nullptr;
};

/// The IKFKDisplayInput of node at t: its transform controller and, through the control's block
/// (id 0 the chain node, id 1 the type), the chain's block (id 6 the blend, read at t and
/// narrowing valid; id 24 the display switch). A null node gives the default input.
IKFKDisplayInput ReadIKFKDisplayInput(INode* node, TimeValue t, Interval& valid);

/// The class descriptor (module table index 65).
ClassDesc2* GetIKFKDisplayModDesc();

}  // namespace marvolith
