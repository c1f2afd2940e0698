// Copyright Marvolith contributors.
// RigControl, the transform controller on the nodes of a generated rig: position, rotation and
// scale tracks over a stored offset (the figure pose), figure mode, offset mirroring and the
// gimbal proxy; its published interface IRigControl; and the module-wide switches it reads.
#pragma once

#include "host/io/chunk_io.h"
#include "host/script/fp_interface.h"
#include "plugin/class_table.h"
#include "support/compound_control.h"
#include "support/lock_chunk.h"
#include "support/ref_slot_check.h"

class IParamBlock2;
class INode;

namespace marvolith {

struct RigFrames;

/// Id of IRigControl; the same pair as RigControl's Class_ID.
inline constexpr Interface_ID IRIGCONTROL_ID(0x45596d56, 0x1e847b58);

/// Parameters of RigControl's block "params" (block id 0, reference 0).
enum RigControlParam : ParamID {
  kRigFigureMode = 0,           ///< bool: edits go into the offset instead of the tracks
  kRigOffsetTM = 1,             ///< Matrix3: the offset (figure pose), read at time 0
  kRigIndependentOffset = 2,    ///< bool: offset parts apply each before its own track
  kRigStraightScale = 3,        ///< bool: children inherit an orthogonal frame, scale as factors
  kRigConnectMirrorOffset = 12  ///< bool: offset edits are copied to the mirror node
};
inline constexpr BlockID kRigControlParams = 0;

/// Function ids of IRigControl, which are also the order of its virtual functions.
enum RigControlFunction : FunctionID {
  kRigGetOffsetPos = 0,
  kRigSetOffsetPos = 1,
  kRigGetOffsetRot = 2,
  kRigSetOffsetRot = 3,
  kRigGetOffsetScale = 4,
  kRigSetOffsetScale = 5,
  kRigGetOffsetTM = 6,
  kRigSetOffsetTM = 7,
  kRigGetFigureMode = 8,
  kRigSetFigureMode = 9,
  kRigResetFigure = 10,
};

/// The published interface of RigControl ("interface"): properties offset_pos, offset_rot,
/// offset_scale, offset_tm, figure_mode and the function ResetFigure.
class IRigControl : public FPMixinInterface {
 public:
  FPInterfaceDesc* GetDesc() override;

  /// Translation of the offset; zero without a parameter block.
  virtual Point3 GetOffsetPos() = 0;
  /// Replaces the offset's translation (through SetOffsetTM).
  virtual void SetOffsetPos(Point3 p) = 0;
  /// Rotation of the offset with right-handed axes: a mirrored offset (negative determinant)
  /// has its row 2 negated first. Identity when a row is shorter than 1e-6 or without a block.
  virtual Quat GetOffsetRot() = 0;
  /// Rebuilds the offset from q, GetOffsetScale and GetOffsetPos (through SetOffsetTM).
  virtual void SetOffsetRot(Quat q) = 0;
  /// Lengths of the offset's rows 0..2, z negated for a mirrored offset; (1, 1, 1) without a
  /// block.
  virtual Point3 GetOffsetScale() = 0;
  /// Rebuilds the offset from GetOffsetRot, factors s and GetOffsetPos (through SetOffsetTM).
  virtual void SetOffsetScale(Point3 s) = 0;
  /// The offset; the identity without a block.
  virtual Matrix3 GetOffsetTM() = 0;
  /// Stores m as the offset through the mirror-aware store (not counted as a user edit).
  virtual void SetOffsetTM(Matrix3 m) = 0;
  virtual bool GetFigureMode() = 0;
  /// Sets figure mode on every RigControl of the rig: from the rig's root (found through the
  /// manager modifier's `root` flag) down through all descendants, and on this controller.
  virtual void SetFigureMode(bool mode) = 0;
  /// Makes the node's present local transform its figure pose and zeroes the tracks, keeping
  /// the world transform at the current time. Undoable ("Reset Figure").
  virtual void ResetFigure() = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// The rig transform ("Rig Transform", super class CTRL_MATRIX3_CLASS_ID).
///
/// References and sub-anims: 0 the parameter block ("Parameters"), 1 position ("Position"),
/// 2 rotation ("Rotation"), 3 scale ("Scale"); 1..3 are assignable to controllers of the
/// matching super class. A new controller makes the host's default position and scale tracks
/// and a RotationXYZ; one made for loading makes nothing.
///
/// GetValue turns the parent matrix into the world matrix. With offset O split by the shared
/// decomposition into Op, Oq, Os (independent_offset) the tracks p, q, s apply as
///   world = S(Os) * S(s) * Ortho(q * Oq * T(p) * T(Op) * parent)
/// (the host's scale tracks orthogonalise what they are applied to, so the parent's scale
/// reaches the position but not the axes, as with the host's PRS; the offset's scale is applied
/// after the track so that it survives). Without independent_offset O goes whole in front of
/// the position track, which so moves in the offset's scaled frame; the offset's stretch then
/// comes out and goes in after the scale track as above:
///   world = S(Os) * S(s) * Ortho(q * S(Os)^-1 * T(p) * O * parent).
/// So with the tracks at rest either mode gives S(Os) * Ortho(Oq * T(Op) * parent), which is
/// what ResetFigure relies on. straight_scale re-applies the parent's row lengths and the node's
/// own factors as pure factors on an orthogonal frame. In
/// figure mode the world is O * parent and the tracks are not evaluated. With O the identity
/// the result is the host PRS's. Evaluation allocates nothing.
///
/// SetValue takes a SetXFormPacket. XFORM_SET reaches tmAxis under tmParent exactly (with
/// straight_scale: a tmAxis without skew, under an offset of unit scale); XFORM_MOVE, XFORM_ROTATE
/// and XFORM_SCALE apply their delta, given in the axes of tmAxis, about the node's own origin. In
/// figure mode the edit goes into the offset through the mirror-aware store. A right-side node
/// edited in local coordinates mirrors moves and turns (see MirrorEditEnabled). Nothing happens
/// while locked.
///
/// Saves its locked flag (chunk kLockChunkID, one byte); the block and tracks are references.
class RigControl : public CompoundControl, public IRigControl, public IRefSlotCheck {
 public:
  /// With loading true no block and no tracks are made (the file provides them).
  explicit RigControl(bool loading = false);

  struct State {
    bool locked = false;
  };
  State GetState() const { return {locked_}; }
  void SetState(const State& s) { locked_ = s.locked; }
  void StateRestored() { NotifyChange(); }

  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  void* GetInterface(ULONG id) override;
  BaseInterface* GetInterface(Interface_ID id) override;

  int NumSubs() override { return 4; }
  Animatable* SubAnim(int i) override { return GetReference(i); }
  MSTR SubAnimName(int i, bool localized = true) override;
  bool CanAssignController(int i) override { return i >= 1 && i <= 3; }
  /// Puts control at track i (1..3), where it adopts the old track's value (Copy); false for
  /// another index, a controller of the wrong kind or one that would close a loop.
  bool AssignController(Animatable* control, int i) override;
  int SubNumToRefNum(int i) override { return i >= 0 && i < 4 ? i : -1; }
  int NumRefs() override { return 4; }
  RefTargetHandle GetReference(int i) override;
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  bool CanReferenceAt(int i, ReferenceTarget* target) override;

  Control* GetPositionController() override { return sub_[0]; }
  /// The rotation track, or the shared gimbal proxy while the gimbal conditions hold (see
  /// GetRealRotationController).
  Control* GetRotationController() override;
  Control* GetScaleController() override { return sub_[2]; }
  bool SetPositionController(Control* c) override { return AssignController(c, 1); }
  bool SetRotationController(Control* c) override { return AssignController(c, 2); }
  bool SetScaleController(Control* c) override { return AssignController(c, 3); }

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  /// XFORM_SET of world_ws under new_parent_ws; answers true.
  bool ChangeParents(TimeValue t,
                     const Matrix3& old_parent_ws,
                     const Matrix3& new_parent_ws,
                     const Matrix3& world_ws) override;
  /// With KEYAT_POSITION, KEYAT_ROTATION or KEYAT_SCALE in flags only those tracks count.
  bool IsKeyAtTime(TimeValue t, DWORD flags) override { return IsTransformKeyAtTime(t, flags); }
  /// from's local transform at the current time becomes the offset; the tracks stay at rest,
  /// so the node keeps its place with its pose held in the offset. Takes from's locked state.
  void Copy(Control* from) override;
  RefTargetHandle Clone(RemapDir& remap) override;

  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

  // IRigControl.
  Point3 GetOffsetPos() override;
  void SetOffsetPos(Point3 p) override;
  Quat GetOffsetRot() override;
  void SetOffsetRot(Quat q) override;
  Point3 GetOffsetScale() override;
  void SetOffsetScale(Point3 s) override;
  Matrix3 GetOffsetTM() override;
  void SetOffsetTM(Matrix3 m) override;
  bool GetFigureMode() override;
  void SetFigureMode(bool mode) override;
  void ResetFigure() override;

  /// The mirror-aware store of a new offset n. When connect_mirror_offset is on and the node's
  /// manager modifier mirrors position or rotation and names a mirror node, the change of the
  /// offset, mirrored along the modifier's axes, is applied to the mirror node's RigControl
  /// (written straight to its block, so it does not echo back). A user edit made while the
  /// mirror node is selected too is not copied: that node takes its own edit.
  void StoreOffset(const Matrix3& n, bool user_edit);

  /// The parameter block; null for a controller made for loading until its file is linked.
  IParamBlock2* ParamBlock() const { return pblock_; }

 protected:
  void SetReference(int i, RefTargetHandle target) override;
  int NumKeySubs() override { return 3; }
  Control* KeySub(int i) override { return i >= 0 && i < 3 ? sub_[i] : nullptr; }
  void HoldState() override;

 private:
  struct Mirror {
    int move_axis = -1;
    int rot_axis = -1;
  };
  Mirror MirrorTest();
  void SetWorld(TimeValue t, const SetXFormPacket& pk, const RigFrames& frames, int commit);
  Control* GimbalProxy();

  IParamBlock2* pblock_ = nullptr;
  Control* sub_[3] = {nullptr, nullptr, nullptr};
};

/// The RigControl under a transform controller: control itself when it is one, else the first
/// sub-anim of super class CTRL_MATRIX3_CLASS_ID, followed down (a layer or list around it).
/// Null when there is none.
RigControl* FindRigControl(Animatable* control);

// Module-wide switches. Both are on unless a caller turned them off.

/// Mirror editing: while on, a right-side node ("r_" tags) edited in local coordinates mirrors
/// its moves and turns along its manager's mirror axes. Solver matching turns it off around its
/// own writes.
bool MirrorEditEnabled();
void SetMirrorEditEnabled(bool on);
/// Turns mirror editing off for a scope (also when an exception passes).
class MirrorEditSuspend {
 public:
  MirrorEditSuspend();
  ~MirrorEditSuspend();
  MirrorEditSuspend(const MirrorEditSuspend&) = delete;
  MirrorEditSuspend& operator=(const MirrorEditSuspend&) = delete;

 private:
  bool was_;
};

/// The gimbal proxy: while on, RigControl::GetRotationController answers the shared proxy in
/// gimbal coordinates (pivot mode other than pivot-only, not in figure mode, an Euler track).
bool GimbalProxyEnabled();
void SetGimbalProxyEnabled(bool on);
/// The real rotation track of control (any transform controller): GetRotationController with
/// the gimbal switch off, restored afterwards also when an exception passes. Null for null.
Control* GetRealRotationController(Control* control);
/// The shared gimbal proxy (a rotation list "Parent Rot" / "Euler Rot"), or null before the
/// first one was handed out.
Control* GetGimbalProxy();
/// Fills the shared gimbal proxy for the Euler track rot turning in the orthogonal frame frame_ws
/// (its "Parent Rot"), with offset_angles (radians, by channel X, Y, Z) added to the axes, and
/// answers it. Null when rot is not an Euler track or the proxy cannot be made.
Control* ShowGimbalProxy(Control* rot, const Matrix3& frame_ws, const float offset_angles[3]);
/// Deletes the shared gimbal proxy (module shutdown, tests); a later hand-out makes a new one.
void ReleaseGimbalProxy();

/// Descriptor of RigControl; identity and names from the module's class table.
class RigControlClassDesc : public MarvolithClassDesc {
 public:
  RigControlClassDesc() : MarvolithClassDesc(ClassIndex::RigControl) {}
  Animatable* Create(bool loading = false) override { return new RigControl(loading); }
};
ClassDesc2* GetRigControlDesc();

}  // namespace marvolith
