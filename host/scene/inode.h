// Copyright Marvolith contributors.
// INode: a node of the scene. It places an object in the world through its transform controller,
// under a parent node, and carries the display state the user sets (name, hide, freeze, wire
// colour, locks, bone flags, layer).
#pragma once

#include "host/core/control.h"
#include "host/core/reference.h"
#include "host/math/matrix3.h"
#include "host/math/quat.h"
#include "host/math/scale_value.h"
#include "host/scene/object.h"

class ILayer;

// Transform lock types and axes for SetTransformLock / GetTransformLock.
inline constexpr int INODE_LOCKPOS = 0;
inline constexpr int INODE_LOCKROT = 1;
inline constexpr int INODE_LOCKSCL = 2;
inline constexpr int INODE_LOCK_X = 0;
inline constexpr int INODE_LOCK_Y = 1;
inline constexpr int INODE_LOCK_Z = 2;
/// The nine lock bits as a word: bit 3 * type + axis.
inline constexpr DWORD INODE_LOCKPOS_X = 1u << 0;
inline constexpr DWORD INODE_LOCKPOS_Y = 1u << 1;
inline constexpr DWORD INODE_LOCKPOS_Z = 1u << 2;
inline constexpr DWORD INODE_LOCKROT_X = 1u << 3;
inline constexpr DWORD INODE_LOCKROT_Y = 1u << 4;
inline constexpr DWORD INODE_LOCKROT_Z = 1u << 5;
inline constexpr DWORD INODE_LOCKSCL_X = 1u << 6;
inline constexpr DWORD INODE_LOCKSCL_Y = 1u << 7;
inline constexpr DWORD INODE_LOCKSCL_Z = 1u << 8;
inline constexpr DWORD INODE_LOCK_ALL = 0x1ffu;

/// Class of the host's nodes (super class BASENODE_CLASS_ID); the root node shares it.
inline constexpr Class_ID NODE_CLASS_ID(0x1, 0);

/// A node. Nodes belong to the scene: they are deleted only by Delete (or the scene's reset),
/// never because nothing references them. A node references its transform controller, its object,
/// its parent and its layer, so it hears their changes; its children and users (constraints)
/// reference it and hear its transform changes as REFMSG_CHANGE with PART_TM.
///
/// Every change a user can make here is undoable while theHold is holding.
class INode : public ReferenceTarget {
 public:
  SClass_ID SuperClassID() override { return BASENODE_CLASS_ID; }
  Class_ID ClassID() override { return NODE_CLASS_ID; }

  // Name.
  virtual const char* GetName() = 0;
  /// Renames the node (names need not be unique; Interface::MakeNameUnique makes one that is).
  /// Dependents hear REFMSG_NODE_NAMECHANGE.
  virtual void SetName(const MSTR& name) = 0;

  // Hierarchy.
  virtual bool IsRootNode() = 0;
  /// The parent; the root node for a top-level node, null for the root itself.
  virtual INode* GetParentNode() = 0;
  virtual int NumberOfChildren() = 0;
  /// Child i in order, or null when out of range.
  virtual INode* GetChildNode(int i) = 0;
  /// Makes node the last child of this node. With keep_pos the node keeps its world transform at
  /// the current time: its controller's ChangeParents is asked to compensate. Refused (with a
  /// "Marvolith: ..." line, nothing changed) for null, the root, this node itself or one of its
  /// ancestors, and a node of another scene.
  virtual void AttachChild(INode* node, int keep_pos = 1) = 0;
  /// Attaches this node to the root node; keep_pos as in AttachChild, at time t.
  virtual void Detach(TimeValue t, int keep_pos = 1) = 0;
  /// Deletes this node. Its children move to its parent, keeping their world transform at t when
  /// keep_child_position is true; dependents hear REFMSG_TARGET_DELETED; the controller and the
  /// object are deleted when nothing else references them. The root node cannot be deleted.
  virtual void Delete(TimeValue t, int keep_child_position = 1) = 0;

  // Transforms (world space).
  /// The node's world transform at t: the TM controller evaluated relative to the parent's world
  /// transform (the parent's transform without a controller). valid, when given, is narrowed to
  /// the interval over which the result holds. Cached per node.
  virtual Matrix3 GetNodeTM(TimeValue t, Interval* valid = nullptr) = 0;
  /// Makes the world transform tm at t through the controller (an XFORM_SET packet). Locks do not
  /// apply. Nothing happens without a controller or while its track is locked.
  virtual void SetNodeTM(TimeValue t, const Matrix3& tm) = 0;
  /// The parent's world transform; the identity for a top-level node or the root.
  virtual Matrix3 GetParentTM(TimeValue t) = 0;
  /// The object's world transform: the object offset (scale, rotation, position) applied before
  /// the node transform.
  virtual Matrix3 GetObjectTM(TimeValue t, Interval* valid = nullptr) = 0;
  /// As GetObjectTM: the headless host has no world-space modifiers.
  virtual Matrix3 GetObjTMBeforeWSM(TimeValue t, Interval* valid = nullptr) = 0;
  virtual Matrix3 GetObjTMAfterWSM(TimeValue t, Interval* valid = nullptr) = 0;
  /// Drops the cached transform of this node and its descendants and tells dependents
  /// REFMSG_CHANGE with PART_TM.
  virtual void InvalidateTM() = 0;
  /// Drops the cached transforms of this node and every descendant without messages.
  virtual void InvalidateTreeTM() = 0;
  /// Drops the cached world state (the object after its modifiers).
  virtual void InvalidateWS() = 0;
  /// Moves by val, given in the axes of tm_axis, at t (an XFORM_MOVE packet). Locked position
  /// axes (in the node's own axes) are left out unless ignore_locks. With affect_kids false the
  /// children keep their world transforms. pivot_mode is accepted for the host's signature; the
  /// headless host moves the node and its pivot together.
  virtual void Move(TimeValue t,
                    const Matrix3& tm_axis,
                    const Point3& val,
                    bool local_origin = false,
                    bool affect_kids = true,
                    int pivot_mode = 0,
                    bool ignore_locks = false) = 0;
  /// Rotates by val about tm_axis (its origin, or the node's own when local_origin). Locked
  /// rotation axes are taken out of the rotation's axis in the node's own axes.
  virtual void Rotate(TimeValue t,
                      const Matrix3& tm_axis,
                      const AngAxis& val,
                      bool local_origin = false,
                      bool affect_kids = true,
                      int pivot_mode = 0,
                      bool ignore_locks = false) = 0;
  virtual void Rotate(TimeValue t,
                      const Matrix3& tm_axis,
                      const Quat& val,
                      bool local_origin = false,
                      bool affect_kids = true,
                      int pivot_mode = 0,
                      bool ignore_locks = false) = 0;
  /// Scales by the factors val along tm_axis. Locked scale axes keep a factor of 1.
  virtual void Scale(TimeValue t,
                     const Matrix3& tm_axis,
                     const Point3& val,
                     bool local_origin = false,
                     bool affect_kids = true,
                     int pivot_mode = 0,
                     bool ignore_locks = false) = 0;

  // Object offset: the pivot's placement of the object, applied before the node transform as
  // scale, then rotation, then position. Undoable; the world state is invalidated.
  virtual void SetObjOffsetPos(const Point3& p) = 0;
  virtual Point3 GetObjOffsetPos() = 0;
  virtual void SetObjOffsetRot(const Quat& q) = 0;
  virtual Quat GetObjOffsetRot() = 0;
  virtual void SetObjOffsetScale(const ScaleValue& sv) = 0;
  virtual ScaleValue GetObjOffsetScale() = 0;

  // Controller.
  virtual Control* GetTMController() = 0;
  /// Assigns a transform (matrix3) controller; false, nothing changed, for null, a controller of
  /// another super class or one whose reference would close a loop. The new controller first
  /// adopts the old one's value through Copy (so a posed node stays in place); the old controller
  /// is deleted when nothing else references it. Undoable.
  virtual bool SetTMController(Control* m3cont) = 0;

  // Object.
  /// The object reference: a base object or a derived object holding a modifier stack.
  virtual Object* GetObjectRef() = 0;
  /// Replaces the object reference (null clears it). Undoable.
  virtual void SetObjectRef(Object* obj) = 0;
  /// The same as GetObjectRef: the headless host has no world-space modifiers.
  virtual Object* GetObjOrWSMRef() = 0;
  /// The object after its modifier stack at t, with the validity of base object and modifiers
  /// intersected. Cached per node; the reference stays valid until the next evaluation. A node
  /// without an object gives a state with a null obj.
  virtual const ObjectState& EvalWorldState(TimeValue t, bool eval_hidden = true) = 0;

  // Display state.
  /// Selection lives in the core interface (SelectNode); this answers whether the node is in it.
  virtual bool Selected() = 0;
  virtual void Hide(bool on) = 0;
  /// True when the node is hidden itself or its layer (or a parent layer) is hidden.
  virtual bool IsHidden(DWORD hflags = 0, bool for_renderer = false) = 0;
  virtual void Freeze(bool on) = 0;
  /// True when the node is frozen itself or its layer (or a parent layer) is frozen.
  virtual bool IsFrozen() = 0;
  /// The wire colour as 0x00BBGGRR.
  virtual DWORD GetWireColor() = 0;
  virtual void SetWireColor(DWORD color) = 0;
  /// Asks for the node's screen area to be drawn again; viewports are not kept headless, so the
  /// core interface's redraw count is the only effect.
  virtual void NodeInvalidateRect(TimeValue t) = 0;

  // Transform locks: type INODE_LOCKPOS/ROT/SCL, axis INODE_LOCK_X/Y/Z. Out of range ignored.
  virtual void SetTransformLock(int type, int axis, bool on) = 0;
  virtual bool GetTransformLock(int type, int axis) = 0;
  /// The nine lock bits (INODE_LOCKPOS_X ... INODE_LOCKSCL_Z).
  virtual DWORD GetTransformLockBits() = 0;
  virtual void SetTransformLockBits(DWORD bits) = 0;

  // Bones. The flags are kept and saved; the headless host does not realign bones interactively.
  virtual void SetBoneNodeOnOff(bool on, TimeValue t) = 0;
  virtual bool GetBoneNodeOnOff() = 0;
  virtual void SetBoneAutoAlign(bool on) = 0;
  virtual bool GetBoneAutoAlign() = 0;
  virtual void SetBoneFreezeLen(bool on) = 0;
  virtual bool GetBoneFreezeLen() = 0;

  // Layer.
  /// The node's host layer; every node of the scene has one ("0" unless moved).
  virtual ILayer* GetNodeLayer() = 0;

  // Groups. The flags are kept, saved and undoable; the headless host has no group commands.
  /// True for the head of a group: its transform is the group's, applied over its members.
  virtual bool IsGroupHead() = 0;
  virtual void SetGroupHead(bool on) = 0;
  virtual bool IsGroupMember() = 0;
  virtual void SetGroupMember(bool on) = 0;

  // Visibility track: an optional float controller (sub-anim 2, "Visibility").
  /// The visibility controller, or null when the node has none.
  virtual Control* GetVisController() = 0;
  /// Assigns a float controller as the visibility track (null removes it); false, nothing
  /// changed, for a controller of another super class or one that would close a loop. The new
  /// controller adopts the old one's value (Copy). Undoable.
  virtual bool SetVisController(Control* cont) = 0;
  /// The visibility at t: the track's value, 1 without a track. valid, when given, is narrowed.
  virtual float GetVisibility(TimeValue t, Interval* valid = nullptr) = 0;
  /// Sets the visibility at t through the track (keyed in animate mode), first making the host's
  /// default float track when there is none. Undoable.
  virtual void SetVisibility(TimeValue t, float vis) = 0;
};

/// The node that control animates: the first node among control's dependents whose TM
/// controller is control, looking through dependents that are matrix3 controllers (a list or a
/// layer holding control). Null when there is none; an instanced controller answers one of its
/// nodes.
INode* FindOwnerNode(Control* control);
