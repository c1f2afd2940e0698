// Copyright Marvolith contributors.
#include "controllers/rig_control.h"

#include <cctype>
#include <vector>

#include "controllers/dummy_controls.h"
#include "controllers/rig_frames.h"
#include "controllers/rotation_xyz.h"
#include "host/controllers/control_interfaces.h"
#include "host/controllers/controller_classes.h"
#include "host/core/diagnostics.h"
#include "host/math/affine.h"
#include "host/math/euler.h"
#include "host/math/geometry.h"
#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "plugin/animation_manager_params.h"
#include "plugin/strings.h"
#include "support/hold_record.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace marvolith {
namespace am = animation_manager;

namespace {

constexpr int kParamsRef = 0;
constexpr SClass_ID kTrackSuper[3] = {CTRL_POSITION_CLASS_ID, CTRL_ROTATION_CLASS_ID,
                                      CTRL_SCALE_CLASS_ID};
constexpr const char* kSubNames[4] = {"Parameters", "Position", "Rotation", "Scale"};
/// Rows of the offset shorter than this give no rotation (GetOffsetRot answers the identity).
constexpr float kOffsetRowMinLength = 1e-6f;
/// Parent row lengths below this are not divided out of a straight scale.
constexpr float kStraightScaleMinLength = 1e-6f;
/// FindRigControl follows at most this many nested transform controllers.
constexpr int kMaxWrapDepth = 64;
/// The host's rotation list and Euler XYZ classes, which make up the gimbal proxy.
constexpr Class_ID kRotationListClassID(0x4b4b1003, 0);
constexpr Class_ID kEulerXYZClassID(0x2012, 0);

// Module-wide state (one thread, as everything in the host).
bool mirror_edit_enabled = true;
bool gimbal_proxy_enabled = true;
AnimHandle gimbal_proxy = 0;

// Sets connect_mirror_offset on the mirror node's RigControl as well, so the two sides of a
// pair stay connected or disconnected together.
class ConnectMirrorOffsetAccessor : public PBAccessor {
 public:
  void Set(PB2Value& v, ReferenceMaker* owner, ParamID id, int, TimeValue t) override;

 private:
  bool busy_ = false;  // the mirror's own accessor must not echo back
};

// The class's static tables, built at module load in this order: descriptor, accessor, block,
// interface.
RigControlClassDesc rig_control_cd;
ConnectMirrorOffsetAccessor connect_mirror_accessor;
ParamBlockDesc2 rig_control_pb{
    kRigControlParams,
    "params",
    0,
    &rig_control_cd,
    P_AUTO_CONSTRUCT,
    kParamsRef,
    {
        ParamDef(kRigFigureMode, "figure_mode", TYPE_BOOL, P_RESET_DEFAULT)
            .Default(false)
            .Label("Figure Mode"),
        ParamDef(kRigOffsetTM, "offsetTM", TYPE_MATRIX3, P_RESET_DEFAULT).Default(Matrix3()),
        ParamDef(kRigIndependentOffset, "independent_offset", TYPE_BOOL, P_RESET_DEFAULT)
            .Default(true)
            .Label("Independent Offset"),
        ParamDef(kRigStraightScale, "straight_scale", TYPE_BOOL, P_RESET_DEFAULT)
            .Default(false)
            .Label("Straight Scale"),
        ParamDef(kRigConnectMirrorOffset, "connect_mirror_offset", TYPE_BOOL, P_RESET_DEFAULT)
            .Default(true)
            .Label("Connect Mirror Offset")
            .Accessor(&connect_mirror_accessor),
    }};
FPInterfaceDesc rig_control_fp{
    IRIGCONTROL_ID,
    "interface",
    FP_MIXIN,
    &rig_control_cd,
    {FPFunctionDef(kRigResetFigure, "ResetFigure", FPType::TYPE_VOID)},
    {
        FPPropertyDef(kRigGetOffsetPos, kRigSetOffsetPos, "offset_pos", FPType::TYPE_POINT3),
        FPPropertyDef(kRigGetOffsetRot, kRigSetOffsetRot, "offset_rot", FPType::TYPE_QUAT),
        FPPropertyDef(kRigGetOffsetScale, kRigSetOffsetScale, "offset_scale", FPType::TYPE_POINT3),
        FPPropertyDef(kRigGetOffsetTM, kRigSetOffsetTM, "offset_tm", FPType::TYPE_MATRIX3),
        FPPropertyDef(kRigGetFigureMode, kRigSetFigureMode, "figure_mode", FPType::TYPE_BOOL),
    }};

Matrix3 RotationMatrix(const Quat& q) {
  Matrix3 m;
  q.MakeMatrix(m);
  return m;
}

/// The mirror image of a change d across the plane normal to `axis`: the rotation's angles
/// about the two other axes are negated (XYZ Euler angles), scale and translation kept.
Matrix3 MirrorRotation(const Matrix3& d, int axis) {
  AffineParts parts;
  decomp_affine(d, &parts);
  float ang[3];
  MatrixToEuler(RotationMatrix(parts.q), ang, EULERTYPE_XYZ);
  for (int i = 0; i < 3; ++i) {
    if (i != axis) ang[i] = -ang[i];
  }
  Matrix3 rot;
  EulerToMatrix(ang, rot, EULERTYPE_XYZ);
  Matrix3 out = MatrixFromScaleValue(ScaleValue(parts.k * parts.f, parts.u)) * rot;
  out.SetTrans(parts.t);
  return out;
}

// A mirror axis names X, Y or Z; -1 (or anything else) means no mirroring about it.
bool IsMirrorAxis(int axis) { return axis >= 0 && axis <= 2; }

Control* MakeGimbalProxy() {
  HoldSuspend no_undo;  // the proxy is not part of any user's edit
  auto* list = dynamic_cast<Control*>(CreateInstance(CTRL_ROTATION_CLASS_ID, kRotationListClassID));
  auto* euler = dynamic_cast<Control*>(CreateInstance(CTRL_ROTATION_CLASS_ID, kEulerXYZClassID));
  auto* items =
      list ? dynamic_cast<IListControl*>(list->GetInterface(LIST_CONTROLLER_INTERFACE)) : nullptr;
  if (!items || !euler) {
    LogLine("Marvolith: the gimbal proxy needs the host's rotation list and Euler XYZ classes.\n");
    if (list) list->DeleteMe();
    if (euler) euler->DeleteMe();
    return nullptr;
  }
  for (int i = 0; i < 3; ++i) euler->AssignController(new DummyFloat, i);
  items->Append(new DummyRotation, "Parent Rot");
  items->Append(euler, "Euler Rot");
  items->SetActive(1);
  list->SetAFlag(A_LOCK_TARGET);  // kept while nothing references it
  gimbal_proxy = Animatable::GetHandleByAnim(list);
  return list;
}

}  // namespace

ClassDesc2* GetRigControlDesc() { return &rig_control_cd; }

// ---------------------------------------------------------------------------------------------
// Module-wide switches and the gimbal proxy.

bool MirrorEditEnabled() { return mirror_edit_enabled; }
void SetMirrorEditEnabled(bool on) { mirror_edit_enabled = on; }
MirrorEditSuspend::MirrorEditSuspend() : was_(mirror_edit_enabled) { mirror_edit_enabled = false; }
MirrorEditSuspend::~MirrorEditSuspend() { mirror_edit_enabled = was_; }

bool GimbalProxyEnabled() { return gimbal_proxy_enabled; }
void SetGimbalProxyEnabled(bool on) { gimbal_proxy_enabled = on; }

Control* GetRealRotationController(Control* control) {
  if (!control) return nullptr;
  struct Restore {
    bool was = gimbal_proxy_enabled;
    ~Restore() { gimbal_proxy_enabled = was; }
  } restore;
  gimbal_proxy_enabled = false;
  return control->GetRotationController();
}

Control* GetGimbalProxy() {
  return dynamic_cast<Control*>(Animatable::GetAnimByHandle(gimbal_proxy));
}

void ReleaseGimbalProxy() {
  Control* proxy = GetGimbalProxy();
  gimbal_proxy = 0;
  if (!proxy) return;
  HoldSuspend no_undo;
  proxy->ClearAFlag(A_LOCK_TARGET);
  proxy->DeleteMe();
}

// ---------------------------------------------------------------------------------------------
// IRigControl

FPInterfaceDesc* IRigControl::GetDesc() { return &rig_control_fp; }

FPStatus IRigControl::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kRigGetOffsetPos:
      return FPBind(result, p, this, &IRigControl::GetOffsetPos);
    case kRigSetOffsetPos:
      return FPBind(result, p, this, &IRigControl::SetOffsetPos);
    case kRigGetOffsetRot:
      return FPBind(result, p, this, &IRigControl::GetOffsetRot);
    case kRigSetOffsetRot:
      return FPBind(result, p, this, &IRigControl::SetOffsetRot);
    case kRigGetOffsetScale:
      return FPBind(result, p, this, &IRigControl::GetOffsetScale);
    case kRigSetOffsetScale:
      return FPBind(result, p, this, &IRigControl::SetOffsetScale);
    case kRigGetOffsetTM:
      return FPBind(result, p, this, &IRigControl::GetOffsetTM);
    case kRigSetOffsetTM:
      return FPBind(result, p, this, &IRigControl::SetOffsetTM);
    case kRigGetFigureMode:
      return FPBind(result, p, this, &IRigControl::GetFigureMode);
    case kRigSetFigureMode:
      return FPBind(result, p, this, &IRigControl::SetFigureMode);
    case kRigResetFigure:
      return FPBind(result, p, this, &IRigControl::ResetFigure);
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

// ---------------------------------------------------------------------------------------------
// RigControl: identity, references, sub-anims.

RigControl::RigControl(bool loading) {
  if (loading) return;
  HoldSuspend no_undo;  // a new controller's own parts are not an edit
  rig_control_cd.MakeAutoParamBlocks(this);
  ReplaceReference(1, NewDefaultPositionController());
  ReplaceReference(2, new RotationXYZ);
  ReplaceReference(3, NewDefaultScaleController());
}

Class_ID RigControl::ClassID() { return GetClassInfo(ClassIndex::RigControl).class_id; }

void RigControl::GetClassName(MSTR& s, bool) const { s = ClassNameOf(ClassIndex::RigControl); }

void* RigControl::GetInterface(ULONG id) {
  if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
  return CompoundControl::GetInterface(id);
}

BaseInterface* RigControl::GetInterface(Interface_ID id) {
  if (id == IRIGCONTROL_ID) return static_cast<IRigControl*>(this);
  return CompoundControl::GetInterface(id);
}

MSTR RigControl::SubAnimName(int i, bool) { return i >= 0 && i < 4 ? MSTR(kSubNames[i]) : MSTR(); }

RefTargetHandle RigControl::GetReference(int i) {
  if (i == kParamsRef) return pblock_;
  return i >= 1 && i <= 3 ? sub_[i - 1] : nullptr;
}

IParamBlock2* RigControl::GetParamBlockByID(BlockID id) {
  return id == kRigControlParams ? pblock_ : nullptr;
}

bool RigControl::CanReferenceAt(int i, ReferenceTarget* target) {
  if (!target) return false;
  if (i == kParamsRef) return target->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID;
  return i >= 1 && i <= 3 && target->SuperClassID() == kTrackSuper[i - 1] &&
         dynamic_cast<Control*>(target);
}

void RigControl::SetReference(int i, RefTargetHandle target) {
  if (i == kParamsRef) {
    pblock_ = dynamic_cast<IParamBlock2*>(target);
  } else if (i >= 1 && i <= 3) {
    sub_[i - 1] = target && target->SuperClassID() == kTrackSuper[i - 1]
                      ? dynamic_cast<Control*>(target)
                      : nullptr;
  }
}

bool RigControl::AssignController(Animatable* control, int i) {
  if (!CanAssignController(i)) return false;
  if (!ReplaceTrack(this, i, dynamic_cast<Control*>(control), sub_[i - 1], kTrackSuper[i - 1]))
    return false;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

void RigControl::HoldState() {
  // The block and tracks record their own changes.
  PutStateRestore(this, "Controller Change");
}

// ---------------------------------------------------------------------------------------------
// Evaluation.

void RigControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  if (!pblock_ || !val) return;
  Matrix3& tm_ws = *static_cast<Matrix3*>(val);
  const Matrix3 offset = pblock_->GetMatrix3(kRigOffsetTM);  // not animated: read at 0
  if (pblock_->GetInt(kRigFigureMode) != 0) {
    tm_ws = offset * tm_ws;  // the figure pose alone; the tracks are not seen
    return;
  }
  RigFrameInput in;
  in.parent_ws = tm_ws;
  in.offset = offset;
  in.independent_offset = pblock_->GetInt(kRigIndependentOffset) != 0;
  in.straight_scale = pblock_->GetInt(kRigStraightScale) != 0;
  const RigFrames frames = RigTrackFrames(in);
  // tm_ws enters as the parent's world transform and leaves as this node's. The tracks apply
  // themselves to it in turn (relative GetValue), between the frame steps. The offset's stretch
  // goes in last (Finish): ResetFigure moves the scale track's value into the offset, so the
  // world must keep it where the track's own orthogonalising would drop it.
  tm_ws = frames.position_ws;
  if (sub_[0]) sub_[0]->GetValue(t, val, valid, CTRL_RELATIVE);
  tm_ws = frames.TurnFrame(tm_ws, in.straight_scale);
  if (sub_[1]) sub_[1]->GetValue(t, val, valid, CTRL_RELATIVE);
  if (sub_[2]) sub_[2]->GetValue(t, val, valid, CTRL_RELATIVE);
  tm_ws = frames.Finish(tm_ws);
}

void RigControl::SetWorld(TimeValue t,
                          const SetXFormPacket& pk,
                          const RigFrames& frames,
                          int commit) {
  // The position is the target's origin seen from the frame the position track starts from.
  Matrix3 frame_ws = frames.position_ws;
  Point3 p = (pk.tmAxis * Inverse(frame_ws)).GetTrans();
  frame_ws.PreTranslate(p);
  // Rotation and scale are solved in the orthogonal frame they act in: the scale track's
  // relative GetValue orthogonalises what it is applied to (straight_scale does explicitly).
  // world = S(Os) * S(s) * q * frame, so q and s split S(Os)^-1 * world * frame^-1.
  frame_ws = frames.TurnFrame(frame_ws, true);
  Point3 unused_pos;
  Quat q;
  ScaleValue s;
  DecomposeMatrix(frames.inverse_stretch * pk.tmAxis * Inverse(frame_ws), unused_pos, q, s);
  if (frames.in.straight_scale) {
    // GetValue puts the parent's row lengths back as factors, so they are divided out here.
    s.q.Identity();
    for (int i = 0; i < 3; ++i) {
      if (frames.parent_lengths[i] > kStraightScaleMinLength) s.s[i] /= frames.parent_lengths[i];
    }
  }
  if (sub_[0]) sub_[0]->SetValue(t, &p, commit, CTRL_ABSOLUTE);
  if (sub_[1]) sub_[1]->SetValue(t, &q, commit, CTRL_ABSOLUTE);
  if (sub_[2]) sub_[2]->SetValue(t, &s, commit, CTRL_ABSOLUTE);
}

void RigControl::SetValue(TimeValue t, void* val, int commit, GetSetMethod) {
  if (GetLocked() || !pblock_ || !val) return;
  const SetXFormPacket& pk = *static_cast<const SetXFormPacket*>(val);
  RigFrameInput in;
  in.parent_ws = pk.tmParent;
  in.offset = pblock_->GetMatrix3(kRigOffsetTM);
  in.figure_mode = pblock_->GetInt(kRigFigureMode) != 0;
  in.independent_offset = pblock_->GetInt(kRigIndependentOffset) != 0;
  in.straight_scale = pblock_->GetInt(kRigStraightScale) != 0;
  const RigFrames frames = RigTrackFrames(in);
  const bool figure = in.figure_mode;
  const bool straight = in.straight_scale;
  Matrix3 offset = in.offset;
  const Mirror mirror = MirrorTest();

  switch (pk.command) {
    case XFORM_SET:
      if (figure) {
        SetOffsetTM(pk.tmAxis * Inverse(pk.tmParent));
      } else {
        SetWorld(t, pk, frames, commit);
      }
      break;

    case XFORM_MOVE: {
      // In figure mode position_ws is the parent: the move goes into the offset.
      const Matrix3& frame_ws = frames.position_ws;
      Point3 d = pk.p;
      if (IsMirrorAxis(mirror.move_axis)) d[mirror.move_axis] = -d[mirror.move_axis];
      d = VectorTransform(pk.tmAxis * Inverse(frame_ws), d);
      if (figure) {
        offset.Translate(d);
        StoreOffset(offset, true);
      } else if (sub_[0]) {
        sub_[0]->SetValue(t, &d, commit, CTRL_RELATIVE);
      }
      break;
    }

    case XFORM_ROTATE: {
      Matrix3 frame_ws = frames.rotation_ws;
      AngAxis aa = pk.aa;
      if (IsMirrorAxis(mirror.rot_axis)) {
        for (int i = 0; i < 3; ++i) {
          if (i != mirror.rot_axis) aa.axis[i] = -aa.axis[i];
        }
      }
      frame_ws.Orthogonalize();
      aa.axis = VectorTransform(pk.tmAxis * Inverse(frame_ws), aa.axis);
      // A mirroring frame reverses the sense of a turn seen through it.
      if (frame_ws.Parity()) aa.angle = -aa.angle;
      if (!figure) {
        if (sub_[1]) sub_[1]->SetValue(t, &aa, commit, CTRL_RELATIVE);
        break;
      }
      AffineParts parts;
      decomp_affine(offset, &parts);
      parts.q = Normalize(parts.q * Quat(aa));
      StoreOffset(ComposeAffine(parts), true);
      break;
    }

    case XFORM_SCALE: {
      if (figure) {
        if (straight) {
          ApplyScaleValue(offset, ScaleValue(GetScaleLengths(offset) * pk.p));
        } else {
          const Matrix3 axis_ps = pk.tmAxis * Inverse(pk.tmParent);
          offset = offset * Inverse(axis_ps);
          offset.Scale(pk.p, false);
          offset = offset * axis_ps;
        }
        StoreOffset(offset, true);
        break;
      }
      if (!sub_[2]) break;
      // The frame the scale track is applied to (the offset's scale comes after it).
      Matrix3 frame_ws = frames.rotation_ws;
      Interval ignored = FOREVER;
      if (sub_[1]) sub_[1]->GetValue(t, &frame_ws, ignored, CTRL_RELATIVE);
      ScaleValue delta(pk.p);
      if (!straight) {
        frame_ws.Orthogonalize();
        delta.q = Quat(pk.tmAxis * Inverse(frame_ws));
      }
      sub_[2]->SetValue(t, &delta, commit, CTRL_RELATIVE);
      break;
    }
  }
}

RigControl::Mirror RigControl::MirrorTest() {
  Mirror m;
  if (!mirror_edit_enabled || GetCOREInterface()->GetRefCoordSys() != COORDS_LOCAL) return m;
  INode* node = FindOwnerNode(this);
  if (!node || !node->Selected()) return m;
  IParamBlock2* mp = am::FindManagerParams(node);
  if (!mp) return m;
  const char* tags = mp->GetStr(am::kTags);
  if (std::tolower(static_cast<unsigned char>(tags[0])) != 'r' || tags[1] != '_') return m;
  if (mp->GetInt(am::kUseMirrorPos) != 0) m.move_axis = mp->GetInt(am::kMirrorPosAxis);
  if (mp->GetInt(am::kUseMirrorRot) != 0) m.rot_axis = mp->GetInt(am::kMirrorRotAxis);
  return m;
}

void RigControl::StoreOffset(const Matrix3& n, bool user_edit) {
  if (!pblock_) return;
  auto store = [&] { pblock_->SetValue(kRigOffsetTM, 0, n); };
  if (pblock_->GetInt(kRigConnectMirrorOffset) == 0) return store();
  IParamBlock2* mp = am::FindManagerParams(FindOwnerNode(this));
  if (!mp) return store();
  const bool use_pos = mp->GetInt(am::kUseMirrorPos) != 0;
  const bool use_rot = mp->GetInt(am::kUseMirrorRot) != 0;
  if (!use_pos && !use_rot) return store();
  Matrix3 change = n * Inverse(pblock_->GetMatrix3(kRigOffsetTM));
  INode* mirror = mp->GetINode(am::kMirrorNode);
  if (!mirror) return store();
  // Both sides moved together: each takes its own edit.
  if (user_edit && mirror->Selected()) return store();
  RigControl* other = FindRigControl(mirror->GetTMController());
  if (other && other != this && other->pblock_) {
    const int pos_axis = mp->GetInt(am::kMirrorPosAxis);
    const int rot_axis = mp->GetInt(am::kMirrorRotAxis);
    if (use_pos && IsMirrorAxis(pos_axis)) {
      Point3 tr = change.GetTrans();
      tr[pos_axis] = -tr[pos_axis];
      change.SetTrans(tr);
    }
    if (use_rot && IsMirrorAxis(rot_axis)) change = MirrorRotation(change, rot_axis);
    // Straight to the mirror's block, so that its own mirror store does not run back here.
    other->pblock_->SetValue(kRigOffsetTM, 0, change * other->pblock_->GetMatrix3(kRigOffsetTM));
  }
  store();
}

bool RigControl::ChangeParents(TimeValue t,
                               const Matrix3&,
                               const Matrix3& new_parent_ws,
                               const Matrix3& world_ws) {
  SetXFormPacket pk(world_ws, new_parent_ws);
  SetValue(t, &pk, 1, CTRL_RELATIVE);
  return true;
}

void RigControl::Copy(Control* from) {
  if (!from || from == this || !pblock_) return;
  if (from->SuperClassID() == CTRL_MATRIX3_CLASS_ID) {
    Matrix3 local;  // from's world under an identity parent: its local transform
    Interval ignored = FOREVER;
    from->GetValue(GetCOREInterface()->GetTime(), &local, ignored, CTRL_RELATIVE);
    pblock_->SetValue(kRigOffsetTM, 0, local);
  }
  SetLocked(IsTrackLocked(from));
  NotifyChange();
}

RefTargetHandle RigControl::Clone(RemapDir& remap) {
  auto* c = new RigControl(true);
  for (int i = 0; i < 4; ++i) c->ReplaceReference(i, remap.CloneRef(GetReference(i)));
  c->locked_ = locked_;
  BaseClone(this, c, remap);
  return c;
}

IOResult RigControl::Save(ISave* isave) { return SaveLockChunk(isave, locked_); }

IOResult RigControl::Load(ILoad* iload) {
  State s = GetState();
  const IOResult res = LoadLockOnly(iload, s.locked);
  if (res == IO_OK) SetState(s);
  return res;
}

// ---------------------------------------------------------------------------------------------
// The offset and figure mode.

Point3 RigControl::GetOffsetPos() { return GetOffsetTM().GetTrans(); }

void RigControl::SetOffsetPos(Point3 p) {
  Matrix3 m = GetOffsetTM();
  m.SetTrans(p);
  SetOffsetTM(m);
}

Quat RigControl::GetOffsetRot() {
  if (!pblock_) return Quat();
  Matrix3 m = GetOffsetTM();
  m.NoTrans();
  const Point3 r0 = m.GetRow(0), r1 = m.GetRow(1), r2 = m.GetRow(2);
  if (r0.Length() <= kOffsetRowMinLength || r1.Length() <= kOffsetRowMinLength ||
      r2.Length() <= kOffsetRowMinLength) {
    return Quat();
  }
  // A mirrored offset keeps right-handed axes by turning its Z row round.
  if (DotProd(CrossProd(r0, r1), r2) < 0.0f) m.SetRow(2, -r2);
  m.Orthogonalize();
  return Quat(m);
}

void RigControl::SetOffsetRot(Quat q) {
  Matrix3 m = RotationMatrix(q);
  m.PreScale(GetOffsetScale());
  m.SetTrans(GetOffsetPos());
  SetOffsetTM(m);
}

Point3 RigControl::GetOffsetScale() {
  if (!pblock_) return Point3(1.0f, 1.0f, 1.0f);
  const Matrix3 m = GetOffsetTM();
  Point3 s = GetScaleLengths(m);
  if (DotProd(CrossProd(m.GetRow(0), m.GetRow(1)), m.GetRow(2)) < 0.0f) s.z = -s.z;
  return s;
}

void RigControl::SetOffsetScale(Point3 s) {
  Matrix3 m = RotationMatrix(GetOffsetRot());
  m.PreScale(s);
  m.SetTrans(GetOffsetPos());
  SetOffsetTM(m);
}

Matrix3 RigControl::GetOffsetTM() {
  return pblock_ ? pblock_->GetMatrix3(kRigOffsetTM) : Matrix3();
}

void RigControl::SetOffsetTM(Matrix3 m) { StoreOffset(m, false); }

bool RigControl::GetFigureMode() { return pblock_ && pblock_->GetInt(kRigFigureMode) != 0; }

void RigControl::SetFigureMode(bool mode) {
  if (!pblock_) return;
  if (INode* root = am::FindRigRoot(FindOwnerNode(this))) {
    std::vector<INode*> todo{root};
    while (!todo.empty()) {
      INode* node = todo.back();
      todo.pop_back();
      RigControl* rc = FindRigControl(node->GetTMController());
      if (rc && rc->pblock_ && rc->GetFigureMode() != mode) {
        rc->pblock_->SetValue(kRigFigureMode, 0, mode);
      }
      for (int i = node->NumberOfChildren() - 1; i >= 0; --i) {
        if (INode* child = node->GetChildNode(i)) todo.push_back(child);
      }
    }
  }
  if (GetFigureMode() != mode) pblock_->SetValue(kRigFigureMode, 0, mode);
}

void RigControl::ResetFigure() {
  if (GetLocked() || !pblock_) return;
  Interface* ip = GetCOREInterface();
  const TimeValue t = ip->GetTime();
  Matrix3 local;
  Interval ignored = FOREVER;
  GetValue(t, &local, ignored, CTRL_RELATIVE);
  const bool began = !theHold.Holding();
  if (began) theHold.Begin();
  if (sub_[0]) {
    Point3 zero;
    sub_[0]->SetValue(t, &zero, 1, CTRL_ABSOLUTE);
  }
  if (Control* rot = sub_[1]) {
    if (rot->GetInterface(I_EULERCTRL)) {
      for (Control* axis : {rot->GetXController(), rot->GetYController(), rot->GetZController()}) {
        float zero = 0.0f;
        if (axis) axis->SetValue(t, &zero, 1, CTRL_ABSOLUTE);
      }
    } else {
      Quat identity;
      rot->SetValue(t, &identity, 1, CTRL_ABSOLUTE);
    }
  }
  if (sub_[2]) {
    ScaleValue one;
    sub_[2]->SetValue(t, &one, 1, CTRL_ABSOLUTE);
  }
  pblock_->SetValue(kRigOffsetTM, 0, local);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  if (began) theHold.Accept("Reset Figure");
  ip->RedrawViews(t);
}

// ---------------------------------------------------------------------------------------------
// The gimbal proxy.

Control* RigControl::GetRotationController() {
  Control* rot = sub_[1];
  if (!gimbal_proxy_enabled || !rot || !pblock_) return rot;
  Interface* ip = GetCOREInterface();
  if (ip->GetRefCoordSys() != COORDS_GIMBAL || ip->GetPivotMode() == PIV_PIVOT_ONLY) return rot;
  if (GetFigureMode() || !rot->GetInterface(I_EULERCTRL)) return rot;
  Control* proxy = GimbalProxy();
  return proxy ? proxy : rot;
}

Control* RigControl::GimbalProxy() {
  Control* rot = sub_[1];
  auto* euler = static_cast<IEulerControl*>(rot->GetInterface(I_EULERCTRL));

  // The orthogonal frame the rotation track turns in: parent, offset translation (or the whole
  // offset) and the position track. The offset's rotation, when applied on its own, goes into
  // the axes' offsets as Euler angles of the track's order.
  const TimeValue t = GetCOREInterface()->GetTime();
  INode* node = FindOwnerNode(this);
  RigFrameInput in;
  in.parent_ws = node ? node->GetParentTM(t) : Matrix3();
  in.offset = GetOffsetTM();
  in.independent_offset = pblock_->GetInt(kRigIndependentOffset) != 0;
  const RigFrames frames = RigTrackFrames(in);
  float offset_ang[3] = {0.0f, 0.0f, 0.0f};
  if (in.independent_offset) {
    float seq[3];
    MatrixToEuler(RotationMatrix(frames.offset_rot), seq, euler->GetOrder());
    for (int step = 0; step < 3; ++step) {
      offset_ang[EulerStepChannel(euler->GetOrder(), step)] = seq[step];
    }
  }
  Matrix3 frame_ws = frames.position_ws;
  Interval ignored = FOREVER;
  if (sub_[0]) sub_[0]->GetValue(t, &frame_ws, ignored, CTRL_RELATIVE);
  return ShowGimbalProxy(rot, frames.AxesFrame(frame_ws, true), offset_ang);
}

Control* ShowGimbalProxy(Control* rot, const Matrix3& frame_ws, const float offset_angles[3]) {
  auto* euler = rot ? static_cast<IEulerControl*>(rot->GetInterface(I_EULERCTRL)) : nullptr;
  if (!euler) return nullptr;
  Control* list = GetGimbalProxy();
  if (!list) list = MakeGimbalProxy();
  auto* items =
      list ? dynamic_cast<IListControl*>(list->GetInterface(LIST_CONTROLLER_INTERFACE)) : nullptr;
  if (!items || items->GetListCount() != 2) return nullptr;
  auto* parent_rot = dynamic_cast<DummyRotation*>(items->GetSubCtrl(0));
  Control* proxy_euler = items->GetSubCtrl(1);
  auto* proxy_order =
      proxy_euler ? static_cast<IEulerControl*>(proxy_euler->GetInterface(I_EULERCTRL)) : nullptr;
  if (!parent_rot || !proxy_order) return nullptr;

  HoldSuspend no_undo;
  parent_rot->Set(Quat(frame_ws), false);
  proxy_order->SetOrder(euler->GetOrder());
  Control* axes[3] = {rot->GetXController(), rot->GetYController(), rot->GetZController()};
  for (int i = 0; i < 3; ++i) {
    auto* dummy = dynamic_cast<DummyFloat*>(proxy_euler->SubAnim(i));
    if (dummy) dummy->Set(axes[i], offset_angles[i]);
  }
  return list;
}

RigControl* FindRigControl(Animatable* control) {
  const Class_ID rig_id = GetClassInfo(ClassIndex::RigControl).class_id;
  for (int depth = 0; control && depth < kMaxWrapDepth; ++depth) {
    if (control->SuperClassID() == CTRL_MATRIX3_CLASS_ID && control->ClassID() == rig_id) {
      return dynamic_cast<RigControl*>(control);
    }
    Animatable* next = nullptr;
    for (int i = 0, n = control->NumSubs(); i < n && !next; ++i) {
      Animatable* sub = control->SubAnim(i);
      if (sub && sub->SuperClassID() == CTRL_MATRIX3_CLASS_ID) next = sub;
    }
    control = next;
  }
  return nullptr;
}

// ---------------------------------------------------------------------------------------------

void ConnectMirrorOffsetAccessor::Set(
    PB2Value& v, ReferenceMaker* owner, ParamID, int, TimeValue t) {
  if (busy_) return;
  auto* rc = dynamic_cast<RigControl*>(owner);
  IParamBlock2* mp = rc ? am::FindManagerParams(FindOwnerNode(rc)) : nullptr;
  INode* mirror = mp ? mp->GetINode(am::kMirrorNode) : nullptr;
  RigControl* other = mirror ? FindRigControl(mirror->GetTMController()) : nullptr;
  if (!other || other == rc || !other->ParamBlock()) return;
  busy_ = true;
  other->ParamBlock()->SetValue(kRigConnectMirrorOffset, t, v.GetInt());
  busy_ = false;
}

}  // namespace marvolith
