// Copyright Marvolith contributors.
// IKFKControl, the transform controller of every member of an IKFK chain (joint, goal, goal
// parent, swivel target): it reads the member's transform from the chain and routes writes to
// the member's own tracks.
#pragma once

#include "host/core/control.h"
#include "host/io/chunk_io.h"
#include "plugin/class_table.h"
#include "support/ref_slot_check.h"

class IParamBlock2;
class INode;

namespace marvolith {

class IKFKChain;
class IKFKLink;

/// Parameters of IKFKControl's block "params" (block id 0, reference 0), read-only to the user.
enum IKFKControlParam : ParamID {
  kIKFKCtrlChainNode = 0,  ///< node of the chain
  kIKFKCtrlType = 1,       ///< index: IKFKMemberType
  kIKFKCtrlIndex = 2,      ///< index of the joint in the chain
};
inline constexpr BlockID kIKFKControlParams = 0;

/// What a member is to its chain (the `type` parameter).
enum IKFKMemberType : int {
  kIKFKMemberJoint = 0,
  kIKFKMemberGoal = 1,
  kIKFKMemberGoalParent = 2,
  kIKFKMemberTarget = 3,
};

/// References (and sub-anims) of IKFKControl.
enum IKFKControlRef : int {
  kIKFKRefParams = 0,     ///< "Parameters"
  kIKFKRefPreferred = 1,  ///< "Preferred Rotation": a rotation controller
  kIKFKRefSub = 2,        ///< the member's own transform controller (name by type)
  kIKFKRefLink = 3,       ///< "Links": an IKFKLink (float controller)
};

/// The member controller ("IKFK Control", super class CTRL_MATRIX3_CLASS_ID).
///
/// With a chain (the TM controller of `ikfkchain_node` is an IKFKChain) a joint reads its world
/// transform from the chain's cache; a goal, goal parent or target is its parent's transform with
/// the link applied (the goal's only while the chain's goal parent is inactive), then its local
/// controller. Without a chain every read and write goes to the sub-control.
///
/// SetValue of a joint applies the packet to the joint's FK track in the frame of its FK pose;
/// of a goal, goal parent or target to the local controller under the link's frame. Moving the
/// goal (XFORM_MOVE) or the active goal parent (anything but XFORM_SET) matches FK to the new
/// pose when the chain's auto_ikfk_match is on. Nothing happens while locked.
///
/// Sub-anim 3 ("Links") exists only where links are allowed: goal parents and targets, and the
/// goal while the chain's goal parent is inactive. Saves the locked flag (one byte).
class IKFKControl : public LockableControl, public IRefSlotCheck {
 public:
  /// loading true makes no block and no tracks (the file links them). Otherwise the block, a
  /// preferred rotation (the host's default rotation controller) and a local controller (the
  /// host's default PRS) are made.
  explicit IKFKControl(bool loading = false);

  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  void* GetInterface(ULONG id) override;
  using LockableControl::GetInterface;
  bool IsLeaf() override { return false; }

  int NumSubs() override;
  Animatable* SubAnim(int i) override;
  MSTR SubAnimName(int i, bool localized = true) override;
  bool CanAssignController(int i) override { return i >= 1 && i < NumSubs(); }
  bool AssignController(Animatable* control, int i) override;
  int SubNumToRefNum(int i) override { return i >= 0 && i < NumSubs() ? i : -1; }
  int NumRefs() override { return 4; }
  RefTargetHandle GetReference(int i) override;
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  bool CanReferenceAt(int i, ReferenceTarget* target) override;

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  /// A joint below the first answers true and does nothing (it hangs from the solve); the
  /// others forward to the local controller.
  bool ChangeParents(TimeValue t,
                     const Matrix3& old_parent_ws,
                     const Matrix3& new_parent_ws,
                     const Matrix3& world_ws) override;
  Control* GetPositionController() override;
  /// The gimbal proxy built from the member's matrix while the gimbal conditions hold;
  /// otherwise the local controller's rotation controller.
  Control* GetRotationController() override;
  Control* GetScaleController() override;

  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  /// Adopts from's locked state; the value stays in the local controller, which the caller
  /// sets.
  void Copy(Control* from) override;
  RefTargetHandle Clone(RemapDir& remap) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;
  void SetLocked(bool locked, bool set_children = false) override;

  /// The chain named by `ikfkchain_node`, when that node's TM controller is an IKFKChain.
  IKFKChain* FindChain();
  /// Sets chain node, type and index (undoable through the block).
  void SetMember(INode* chain_node, int type, int index);
  int Type();
  int Index();
  /// The local controller (sub-anim 2): the joint's FK track, or the member's own transform.
  Control* SubControl() const { return sub_; }
  Control* PreferredRotation() const { return preferred_; }
  IKFKLink* Link() const;
  /// True when the member may carry links now (see the class comment).
  bool LinksAllowed();
  /// Puts a new link controller at reference 3 (undoable); false when refused.
  bool SetLink(Control* link);

  /// parent_ws with the link applied (when links are allowed, the goal's only while the chain's
  /// goal parent is inactive), then the local controller: the member's world transform. Neither
  /// reads nor writes the chain's cache.
  Matrix3 EvalMember(TimeValue t, const Matrix3& parent_ws, Interval& valid, bool skip_link);
  /// The member's local FK values (the sub-control at an identity parent): position, rotation
  /// (orthogonalised) and row lengths. Identity without a sub-control.
  void LocalValues(TimeValue t, Point3& pos, Quat& rot, Point3& scale, Interval& valid);
  /// The preferred rotation (absolute); the identity without one.
  Quat PreferredQuat(TimeValue t, Interval& valid);

  IParamBlock2* ParamBlock() const { return pblock_; }
  struct State {
    bool locked = false;
  };
  State GetState() const { return {locked_}; }
  void SetState(const State& s) { locked_ = s.locked; }
  void StateRestored() { NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  void SetJoint(IKFKChain& chain, TimeValue t, SetXFormPacket pk, int commit, GetSetMethod m);
  bool ApplyLink(TimeValue t, Matrix3& m, Interval& valid);

  IParamBlock2* pblock_ = nullptr;
  Control* preferred_ = nullptr;
  Control* sub_ = nullptr;
  Control* link_ = nullptr;
};

/// Descriptor of IKFKControl.
ClassDesc2* GetIKFKControlDesc();

}  // namespace marvolith
