// Copyright Marvolith contributors.
// The headless node: the INode the scene creates. Private to host/scene.
#pragma once

#include <functional>
#include <vector>

#include "host/scene/inode.h"
#include "host/scene/layer.h"
#include "support/ref_slot_check.h"

namespace marvolith_scene {

/// Reference slots of a node.
enum NodeRef {
  kTMRef = 0,
  kObjRef = 1,
  kParentRef = 2,
  kLayerRef = 3,
  kVisRef = 4,
  kNodeRefCount = 5
};

// Bits of NodeState::flags.
inline constexpr DWORD kNodeHidden = 1u << 0;
inline constexpr DWORD kNodeFrozen = 1u << 1;
inline constexpr DWORD kNodeBone = 1u << 2;
inline constexpr DWORD kNodeBoneAutoAlign = 1u << 3;
inline constexpr DWORD kNodeBoneFreezeLen = 1u << 4;
inline constexpr DWORD kNodeRoot = 1u << 5;
inline constexpr DWORD kNodeGroupHead = 1u << 6;
inline constexpr DWORD kNodeGroupMember = 1u << 7;

/// The user-visible state of a node that undo records and the file keep as one value.
struct NodeState {
  MSTR name;
  DWORD wire_color = 0x00b4b4b4;
  DWORD flags = 0;
  DWORD locks = 0;
  Point3 offset_pos;
  Quat offset_rot;
  ScaleValue offset_scale;
  bool operator==(const NodeState&) const = default;
};

/// A node of the headless scene.
///
/// Transform cache: one matrix with the interval over which it holds. It is dropped when the
/// controller or the parent reports a transform change (reference messages), when the controller
/// or the parent is replaced, and by InvalidateTM. A message that arrives while the node is
/// evaluating marks the result being computed as stale, so it is returned but not kept.
///
/// Re-entry: a node asked for its transform while it is computing it (a dependency cycle that the
/// callers' validators should have refused) answers the result of its last completed evaluation
/// (the identity before the first) with validity narrowed to the instant asked for, and logs the
/// cycle once per evaluation.
class Node final : public INode, public IRefSlotCheck {
 public:
  explicit Node(bool root);
  ~Node() override;

  void GetClassName(MSTR& s, bool localized = true) const override { s = "Node"; }
  int NumRefs() override { return kNodeRefCount; }
  RefTargetHandle GetReference(int i) override;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;
  void* GetInterface(ULONG id) override;
  using INode::GetInterface;
  bool CanReferenceAt(int i, ReferenceTarget* target) override;

  int NumSubs() override { return 3; }
  Animatable* SubAnim(int i) override;
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override;
  bool CanAssignController(int sub_anim) override { return sub_anim == 0 || sub_anim == 2; }
  bool AssignController(Animatable* control, int sub_anim) override;

  const char* GetName() override { return state_.name.c_str(); }
  void SetName(const MSTR& name) override;

  bool IsRootNode() override { return (state_.flags & kNodeRoot) != 0; }
  INode* GetParentNode() override { return parent_; }
  int NumberOfChildren() override { return static_cast<int>(children_.size()); }
  INode* GetChildNode(int i) override;
  void AttachChild(INode* node, int keep_pos = 1) override;
  void Detach(TimeValue t, int keep_pos = 1) override;
  void Delete(TimeValue t, int keep_child_position = 1) override;

  Matrix3 GetNodeTM(TimeValue t, Interval* valid = nullptr) override;
  void SetNodeTM(TimeValue t, const Matrix3& tm) override;
  Matrix3 GetParentTM(TimeValue t) override;
  Matrix3 GetObjectTM(TimeValue t, Interval* valid = nullptr) override;
  Matrix3 GetObjTMBeforeWSM(TimeValue t, Interval* valid = nullptr) override {
    return GetObjectTM(t, valid);
  }
  Matrix3 GetObjTMAfterWSM(TimeValue t, Interval* valid = nullptr) override {
    return GetObjectTM(t, valid);
  }
  void InvalidateTM() override;
  void InvalidateTreeTM() override;
  void InvalidateWS() override;
  void Move(TimeValue t,
            const Matrix3& tm_axis,
            const Point3& val,
            bool local_origin,
            bool affect_kids,
            int pivot_mode,
            bool ignore_locks) override;
  void Rotate(TimeValue t,
              const Matrix3& tm_axis,
              const AngAxis& val,
              bool local_origin,
              bool affect_kids,
              int pivot_mode,
              bool ignore_locks) override;
  void Rotate(TimeValue t,
              const Matrix3& tm_axis,
              const Quat& val,
              bool local_origin,
              bool affect_kids,
              int pivot_mode,
              bool ignore_locks) override;
  void Scale(TimeValue t,
             const Matrix3& tm_axis,
             const Point3& val,
             bool local_origin,
             bool affect_kids,
             int pivot_mode,
             bool ignore_locks) override;

  void SetObjOffsetPos(const Point3& p) override;
  Point3 GetObjOffsetPos() override { return state_.offset_pos; }
  void SetObjOffsetRot(const Quat& q) override;
  Quat GetObjOffsetRot() override { return state_.offset_rot; }
  void SetObjOffsetScale(const ScaleValue& sv) override;
  ScaleValue GetObjOffsetScale() override { return state_.offset_scale; }

  Control* GetTMController() override { return tm_; }
  bool SetTMController(Control* m3cont) override;

  Object* GetObjectRef() override { return obj_; }
  void SetObjectRef(Object* obj) override;
  Object* GetObjOrWSMRef() override { return obj_; }
  const ObjectState& EvalWorldState(TimeValue t, bool eval_hidden = true) override;

  bool Selected() override;
  void Hide(bool on) override;
  bool IsHidden(DWORD hflags = 0, bool for_renderer = false) override;
  void Freeze(bool on) override;
  bool IsFrozen() override;
  DWORD GetWireColor() override { return state_.wire_color; }
  void SetWireColor(DWORD color) override;
  void NodeInvalidateRect(TimeValue t) override;

  void SetTransformLock(int type, int axis, bool on) override;
  bool GetTransformLock(int type, int axis) override;
  DWORD GetTransformLockBits() override { return state_.locks; }
  void SetTransformLockBits(DWORD bits) override;

  void SetBoneNodeOnOff(bool on, TimeValue t) override { SetFlag(kNodeBone, on); }
  bool GetBoneNodeOnOff() override { return (state_.flags & kNodeBone) != 0; }
  void SetBoneAutoAlign(bool on) override { SetFlag(kNodeBoneAutoAlign, on); }
  bool GetBoneAutoAlign() override { return (state_.flags & kNodeBoneAutoAlign) != 0; }
  void SetBoneFreezeLen(bool on) override { SetFlag(kNodeBoneFreezeLen, on); }
  bool GetBoneFreezeLen() override { return (state_.flags & kNodeBoneFreezeLen) != 0; }

  ILayer* GetNodeLayer() override { return layer_; }

  bool IsGroupHead() override { return (state_.flags & kNodeGroupHead) != 0; }
  void SetGroupHead(bool on) override { SetFlag(kNodeGroupHead, on); }
  bool IsGroupMember() override { return (state_.flags & kNodeGroupMember) != 0; }
  void SetGroupMember(bool on) override { SetFlag(kNodeGroupMember, on); }

  Control* GetVisController() override { return vis_; }
  bool SetVisController(Control* cont) override;
  float GetVisibility(TimeValue t, Interval* valid = nullptr) override;
  void SetVisibility(TimeValue t, float vis) override;

  // Host-internal.
  const NodeState& State() const { return state_; }
  /// Applies a whole state (undo, redo), telling dependents what changed.
  void ApplyState(const NodeState& s);
  /// The children as handles (undo records keep these).
  std::vector<AnimHandle> ChildHandles() const;
  /// Reorders the children: those listed (and still children) first in that order, then the
  /// others in their present order.
  void SetChildOrderByHandles(const std::vector<AnimHandle>& order);
  std::vector<Node*>& Children() { return children_; }
  /// Attaches child under this node at time t; the shared body of AttachChild, Detach and
  /// Delete. False (with a log line) when refused.
  bool Attach(Node* child, bool keep_pos, TimeValue t);
  /// The top ancestor (the root node of the node's scene, or the top of a loose tree).
  Node* TopAncestor();

 protected:
  void SetReference(int i, RefTargetHandle target) override;

 private:
  void RecordState();
  void SetFlag(DWORD bit, bool on);
  void DropOwnTM();
  void NotifyTM();
  Matrix3 ObjectOffset() const;
  /// Runs packet through the controller at t, keeping the children's world transforms when
  /// affect_kids is false.
  void SendPacket(TimeValue t, SetXFormPacket& packet, bool affect_kids);
  /// The part of world-space direction dir_ws that locked axes of kind type (in the node's own
  /// axes at t) leave free.
  Point3 MaskLockedAxes(TimeValue t, int type, const Point3& dir_ws);

  Control* tm_ = nullptr;
  Object* obj_ = nullptr;
  Node* parent_ = nullptr;
  ILayer* layer_ = nullptr;
  Control* vis_ = nullptr;
  std::vector<Node*> children_;
  NodeState state_;

  Matrix3 tm_cache_;
  Interval tm_valid_ = NEVER;
  Matrix3 last_tm_;
  bool evaluating_ = false;
  bool stale_during_eval_ = false;

  ObjectState ws_;
  Interval ws_valid_ = NEVER;
  bool ws_evaluating_ = false;
  bool ws_stale_during_eval_ = false;
};

/// name if taken(name) is false; else name without its trailing digits followed by the smallest
/// number from 1 (at least three digits) that makes a name not taken. An empty name is treated
/// as fallback.
MSTR MakeUniqueName(const MSTR& name,
                    const MSTR& fallback,
                    const std::function<bool(const MSTR&)>& taken);

/// A new layer manager holding the default layer "0" as its current layer.
ILayerManager* NewLayerManager(bool loading);
/// A new layer (not yet in a manager).
ILayer* NewLayer(const MSTR& name);

}  // namespace marvolith_scene
