// Copyright Marvolith contributors.
// IKFKChain, the transform controller of a limb's chain node: it owns the joints, goal and
// swivel target, solves the limb once per time (blended between FK and IK) and serves every
// joint's transform from that cache; its published interface IIKFKChain with the matching
// operations.
#pragma once

#include <vector>

#include "host/core/control.h"
#include "host/io/chunk_io.h"
#include "host/script/fp_interface.h"
#include "plugin/class_table.h"

class IParamBlock2;
class INode;

namespace marvolith {

class IKFKControl;
struct IKFKSolveWork;

/// Id of IIKFKChain; the same pair as IKFKChain's Class_ID.
inline constexpr Interface_ID IIKFKCHAIN_ID(0x45596d56, 0x1e847b60);

/// Parameters of IKFKChain's block "params" (block id 0, reference 0). Node parameters are not
/// referenced (the block watches them), so the chain hears their changes without depending on
/// them.
enum IKFKChainParam : ParamID {
  kIKFKJoints = 0,                  ///< node table: the joints from start to end
  kIKFKGoal = 1,                    ///< node: the IK goal
  kIKFKGoalParent = 2,              ///< node: optional space of the goal; refuses a joint's child
  kIKFKGoalInbetweenParents = 3,    ///< node table, no script name; kept, not read
  kIKFKTarget = 4,                  ///< node: the swivel target
  kIKFKRotationSpaceNode = 5,       ///< node of the rotation space
  kIKFKBlend = 6,                   ///< fraction, animatable: 0 FK, 1 IK
  kIKFKManualStretch = 7,           ///< fraction, animatable: factor on the bone lengths
  kIKFKAutoStretch = 8,             ///< fraction, animatable: how far the chain stretches
  kIKFKRotationSpace = 9,           ///< fraction, animatable: weight of the rotation space
  kIKFKFlexionBias = 10,            ///< angle, animatable
  kIKFKUseTarget = 11,              ///< bool, default true
  kIKFKSwivelAngle = 12,            ///< angle, animatable: turn of the bend plane
  kIKFKUseGoalParent = 13,          ///< bool, default true
  kIKFKUseRotationSpace = 14,       ///< bool, default true
  kIKFKAutoMatch = 15,              ///< bool: FK follows IK whenever the goal moves
  kIKFKLastJointIKRotation = 16,    ///< bool, default true: the last joint takes the goal's turn
  kIKFKKeepInitialRotSpace = 17,    ///< bool, default true
  kIKFKInitialRotSpaceOffset = 18,  ///< Matrix3
  kIKFKTargetDistPercent = 19,      ///< fraction of the chain's length, default 0.5
  kIKFKParentSpace = 20,            ///< int: 0 swivel in the goal (parent) frame, else the chain's
  kIKFKIterations = 21,             ///< int 0..9999, default 40
  kIKFKDisplayGoal = 22,            ///< int 0 never, 1 when selected, 2 always
  kIKFKDisplayTarget = 23,          ///< int, as display_goal, default 2
  kIKFKAffectHelpersDisplay = 24,   ///< bool, default true
  kIKFKSoftIK = 25,                 ///< fraction, animatable: width of the soft zone
};
inline constexpr BlockID kIKFKChainParams = 0;

/// Function ids of IIKFKChain.
enum IKFKChainFunction : FunctionID {
  kIKFKFnFK = 0,
  kIKFKFnIK = 1,
  kIKFKFnMatchFK = 2,
  kIKFKFnMatchIK = 3,
  kIKFKFnMatchManualStretch = 4,
  kIKFKFnMatchPreferredRotations = 5,
};

/// The published interface of IKFKChain ("interface"). Each function runs at the current time
/// in a hold of its own ("IKFK Change") and returns nothing.
class IIKFKChain : public FPMixinInterface {
 public:
  FPInterfaceDesc* GetDesc() override;
  /// Matches FK to the present pose, then sets ikfk_blend to 0.
  virtual void FK() = 0;
  /// Matches the goal and target to the present pose, then sets ikfk_blend to 1.
  virtual void IK() = 0;
  /// The FK joints take the pose of the solve (of pure IK with to_ik).
  virtual void MatchFK(bool to_ik) = 0;
  /// Goal and target take the pose of the joints (of pure FK with to_fk).
  virtual void MatchIK(bool to_fk) = 0;
  /// Folds the last automatic stretch factor into manual_stretch.
  virtual void MatchManualStretch() = 0;
  /// Writes the FK rotations found by the last solve into the joints' preferred rotations.
  virtual void MatchPreferredRotations() = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// What a chain is doing to its members right now; IKFKControl stops the change messages that a
/// matching write would otherwise spread through the rig.
enum class IKFKMatchState : int {
  kIdle = 0,
  kMovingGoal = 1,    ///< MatchIK writes the goal and target
  kMovingJoints = 2,  ///< MatchFK writes the joints' FK tracks
};

/// The chain solver ("IKFK Chain", super class CTRL_MATRIX3_CLASS_ID), the TM controller of the
/// chain's node. One reference and sub-anim: the parameter block.
///
/// Evaluation. One solve per time serves all joints: GetJointTM(index, ...) solves when the
/// cache is dirty or was made for another time, narrows valid by the solve's validity and
/// answers the joint's world transform. GetValue answers the last joint's. Any change of the
/// block (a parameter, or a watched node moving) marks the cache dirty. Solving allocates
/// nothing once the cache has the joint count's size.
///
/// The chain's parent is the parent node of joint 0 (the identity without one); a parent whose
/// TM controller is a RigControl, or a group head, is evaluated as its own parent's transform
/// with its controller applied. Goal and target are their nodes' parents with the member's link
/// (unless a goal parent is active) and local controller applied.
///
/// Matching writes FK tracks through XFORM_ROTATE packets and the goal through XFORM_MOVE with
/// mirror editing off around each write. Saves the locked flag (one byte); the block is a
/// reference.
class IKFKChain : public LockableControl, public IIKFKChain {
 public:
  /// loading true makes no block (the file links one).
  explicit IKFKChain(bool loading = false);
  ~IKFKChain() override;

  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  BaseInterface* GetInterface(Interface_ID id) override;
  using LockableControl::GetInterface;

  int NumSubs() override { return 1; }
  Animatable* SubAnim(int i) override;
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int i) override { return i == 0 ? 0 : -1; }
  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override;
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  bool IsKeyable() override { return false; }

  /// The last joint's world transform (val is replaced, whatever the method); val unchanged
  /// without joints.
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  /// The chain's node follows the solve: nothing to set.
  void SetValue(TimeValue, void*, int = 1, GetSetMethod = CTRL_ABSOLUTE) override {}
  /// Draws the joints as a line from the root through each joint, and the goal and target as
  /// small crosses when display_goal and display_target ask for them.
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;

  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  void Copy(Control* from) override;
  RefTargetHandle Clone(RemapDir& remap) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;
  void SetLocked(bool locked, bool set_children = false) override;

  /// World transform of joint index at t into val (val unchanged for an index out of range);
  /// valid narrows by the solve's validity. False for an index out of range.
  bool GetJointTM(int index, TimeValue t, Matrix3& val, Interval& valid);
  /// The joint's position in the chain's parent frame; the origin for a bad index.
  Point3 GetJointPosition(int index, TimeValue t);

  // Members.
  IParamBlock2* ParamBlock() const { return pblock_; }
  int NumJoints();
  INode* JointNode(int index);
  INode* GoalNode();
  INode* TargetNode();
  INode* GoalParentNode();
  /// use_target and target set.
  bool TargetActive();
  /// use_goal_parent and goal_parent set.
  bool GoalParentActive();
  /// use_rotation_space and rotation_space_node set.
  bool RotationSpaceActive();
  /// The IKFKControl on node (a chain member), or null.
  static IKFKControl* MemberControl(INode* node);

  /// The chain's parent frame at t (see the class comment); valid narrows.
  Matrix3 ChainParentTM(TimeValue t, Interval& valid);
  /// The world transform of a goal, target or goal parent node at t: its parent, the member's
  /// link unless skip_link, its local controller. A node without an IKFKControl is read as it
  /// is. The identity for null.
  Matrix3 MemberTM(INode* node, TimeValue t, Interval& valid, bool skip_link);
  /// The rotation space rotation at t (identity when inactive), computed anew.
  Quat RotationSpaceDelta(TimeValue t, Interval& valid);

  /// The FK joints take the solved rotations (of a pure IK solve with to_ik): all joints, or
  /// only index when it is 0 or above; the last joint only with include_last.
  void MatchFK(TimeValue t, bool to_ik, bool include_last, int index);
  /// Goal (move_goal) and target (move_target) take the pose of the joints (of a pure FK solve
  /// with to_fk and a negative index); without a target, swivel_angle is written.
  void MatchIK(
      TimeValue t, bool to_fk, bool include_last, int index, bool move_goal, bool move_target);

  // IIKFKChain, at the current time, each in its own hold.
  void FK() override;
  void IK() override;
  void MatchFK(bool to_ik) override;
  void MatchIK(bool to_fk) override;
  void MatchManualStretch() override;
  void MatchPreferredRotations() override;

  /// Forces a new solve at the next evaluation.
  void MarkDirty() { dirty_ = true; }
  bool IsDirty() const { return dirty_; }
  bool ForceFK() const { return force_fk_; }
  /// While set, solves run with ikfk_blend 0 and goal moves do not match FK; not saved.
  void SetForceFK(bool on) {
    force_fk_ = on;
    dirty_ = true;
  }
  IKFKMatchState MatchState() const { return match_state_; }
  /// The last automatic stretch factor (1 when none applied).
  float StretchFactor() const { return stretch_factor_; }
  /// The FK rotations (local) found by the last solve.
  const std::vector<Quat>& PreferredRotations() const { return preferred_rotations_; }
  /// Member transforms kept by the members' own evaluation (see IKFKControl::GetValue).
  void KeepGoalTM(const Matrix3& m) { goal_tm_ = m; }
  void KeepGoalParentTM(const Matrix3& m) { goal_parent_tm_ = m; }
  void KeepTargetTM(const Matrix3& m) { target_tm_ = m; }
  /// auto_ikfk_match is on, forceFK is clear and no match is running.
  bool AutoMatchWanted();
  /// Drops the cached transforms of every member node (joints, goal, goal parent, target) so
  /// viewports redraw and nodes re-read the chain.
  void InvalidateMembers();

  /// What undo records keep: the locked flag.
  struct State {
    bool locked = false;
  };
  State GetState() const { return {locked_}; }
  void SetState(const State& s) { locked_ = s.locked; }
  void StateRestored();

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  void EnsureSolved(TimeValue t);
  void Solve(TimeValue t, int partial, float blend_override = -1.0f);
  /// Runs fn in a hold of its own ("IKFK Change") unless one is open already.
  template <typename F>
  void InHold(F&& fn);
  void WriteGoalMove(TimeValue t, INode* goal, const Matrix3& want_ws, bool with_rotation);
  void WriteTargetPlace(TimeValue t, INode* target, const Point3& pos_ws);
  void SetBlend(TimeValue t, float blend);

  IParamBlock2* pblock_ = nullptr;

  // The cached solution.
  TimeValue solved_time_ = 0;
  bool dirty_ = true;
  Interval validity_;
  std::vector<Matrix3> joint_tms_;
  std::vector<Point3> joint_positions_;
  std::vector<Quat> joint_rotations_;
  std::vector<Quat> preferred_rotations_;
  float stretch_factor_ = 1.0f;
  Matrix3 parent_tm_;
  Matrix3 goal_tm_;
  Matrix3 target_tm_;
  Matrix3 goal_parent_tm_;
  Quat rotation_space_delta_;
  bool force_fk_ = false;
  IKFKMatchState match_state_ = IKFKMatchState::kIdle;
  /// Scratch of the solver core, sized by the joint count.
  IKFKSolveWork* work_ = nullptr;
};

/// Descriptor of IKFKChain.
ClassDesc2* GetIKFKChainDesc();

}  // namespace marvolith
