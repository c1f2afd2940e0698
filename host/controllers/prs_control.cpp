// Copyright Marvolith contributors.
#include "host/controllers/prs_control.h"

#include "host/controllers/controller_classes.h"
#include "host/controllers/internal/controller_desc.h"
#include "host/controllers/internal/state_restore.h"
#include "host/core/clock.h"
#include "host/math/affine.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace hci = host_controllers_internal;

namespace {

constexpr SClass_ID kSubSuper[3] = {CTRL_POSITION_CLASS_ID, CTRL_ROTATION_CLASS_ID,
                                    CTRL_SCALE_CLASS_ID};
constexpr const char* kSubNames[3] = {"Position", "Rotation", "Scale"};

// The rotation part of m, without translation: the frame the scale controller's axes and the
// rotation controller's axis live in once ApplyScaleValue has orthogonalised it.
Matrix3 OrthoFrame(const Matrix3& m) {
  Matrix3 f = m;
  f.Orthogonalize();
  f.NoTrans();
  return f;
}

}  // namespace

PRSControl::PRSControl(bool loading) {
  if (loading) return;
  HoldSuspend no_undo;  // a new controller's own parts are not an edit
  ReplaceReference(0, NewDefaultPositionController());
  ReplaceReference(1, NewDefaultRotationController());
  ReplaceReference(2, NewDefaultScaleController());
}

MSTR PRSControl::SubAnimName(int i, bool) { return i >= 0 && i < 3 ? MSTR(kSubNames[i]) : MSTR(); }

bool PRSControl::AssignController(Animatable* control, int i) {
  if (i < 0 || i >= 3) return false;
  if (!ReplaceTrack(this, i, dynamic_cast<Control*>(control), sub_[i], kSubSuper[i])) return false;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

void PRSControl::SetReference(int i, RefTargetHandle target) {
  if (i >= 0 && i < 3) sub_[i] = dynamic_cast<Control*>(target);
}

void PRSControl::HoldState() { hci::HoldControllerState(this, "Controller Change"); }

void PRSControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  if (!val) return;
  // world = S * R * Ortho(T * parent): each track applies itself before what is there.
  for (Control* c : sub_) {
    if (c) c->GetValue(t, val, valid, CTRL_RELATIVE);
  }
}

void PRSControl::SetWorld(TimeValue t,
                          const Matrix3& world_ws,
                          const Matrix3& parent_ws,
                          int commit) {
  Point3 p = (world_ws * Inverse(parent_ws)).GetTrans();
  Matrix3 local = world_ws * Inverse(OrthoFrame(parent_ws));
  local.NoTrans();
  Point3 unused;
  Quat q;
  ScaleValue s;
  DecomposeMatrix(local, unused, q, s);
  if (sub_[0]) sub_[0]->SetValue(t, &p, commit, CTRL_ABSOLUTE);
  if (sub_[1]) sub_[1]->SetValue(t, &q, commit, CTRL_ABSOLUTE);
  if (sub_[2]) sub_[2]->SetValue(t, &s, commit, CTRL_ABSOLUTE);
}

void PRSControl::SetPositionInWorld(TimeValue t,
                                    const Point3& pos_ws,
                                    const Matrix3& parent_ws,
                                    int commit) {
  if (!sub_[0]) return;
  Point3 p = Inverse(parent_ws).PointTransform(pos_ws);
  sub_[0]->SetValue(t, &p, commit, CTRL_ABSOLUTE);
}

void PRSControl::SetValue(TimeValue t, void* val, int commit, GetSetMethod) {
  if (GetLocked() || !val) return;
  const SetXFormPacket& pk = *static_cast<const SetXFormPacket*>(val);
  Interval ignored = FOREVER;
  switch (pk.command) {
    case XFORM_SET:
      SetWorld(t, pk.tmAxis, pk.tmParent, commit);
      break;
    case XFORM_MOVE: {
      if (!sub_[0]) break;
      // The move given in the axis system, expressed in the parent's (scaled) axes.
      Point3 d = VectorTransform(pk.tmAxis * Inverse(pk.tmParent), pk.p);
      sub_[0]->SetValue(t, &d, commit, CTRL_RELATIVE);
      break;
    }
    case XFORM_ROTATE: {
      Matrix3 world_ws = pk.tmParent;
      GetValue(t, &world_ws, ignored, CTRL_RELATIVE);
      const Point3 axis_ws = Normalize(VectorTransform(pk.tmAxis, pk.aa.axis));
      if (sub_[1]) {
        // The same turn seen from the parent frame F: the axis maps through Inverse(F); a
        // mirroring F reverses the sense of the turn.
        const Matrix3 frame_ws = OrthoFrame(pk.tmParent);
        AngAxis rel(Normalize(VectorTransform(Inverse(frame_ws), axis_ws)),
                    frame_ws.Parity() ? -pk.aa.angle : pk.aa.angle);
        sub_[1]->SetValue(t, &rel, commit, CTRL_RELATIVE);
      }
      if (!pk.localOrigin) {
        const Point3 center_ws = pk.tmAxis.GetTrans();
        const Matrix3 turn = RotAngleAxisMatrix(axis_ws, pk.aa.angle);
        SetPositionInWorld(t, center_ws + VectorTransform(turn, world_ws.GetTrans() - center_ws),
                           pk.tmParent, commit);
      }
      break;
    }
    case XFORM_SCALE: {
      Matrix3 world_ws = pk.tmParent;
      GetValue(t, &world_ws, ignored, CTRL_RELATIVE);
      if (sub_[2]) {
        // The scale axes relative to the frame the scale applies in: parent, position and
        // rotation, orthogonalised as ApplyScaleValue does.
        Matrix3 frame_ws = pk.tmParent;
        if (sub_[0]) sub_[0]->GetValue(t, &frame_ws, ignored, CTRL_RELATIVE);
        if (sub_[1]) sub_[1]->GetValue(t, &frame_ws, ignored, CTRL_RELATIVE);
        frame_ws.Orthogonalize();
        ScaleValue delta(pk.p, Quat(pk.tmAxis * Inverse(frame_ws)));
        sub_[2]->SetValue(t, &delta, commit, CTRL_RELATIVE);
      }
      if (!pk.localOrigin) {
        const Matrix3 axes_ws = OrthoFrame(pk.tmAxis);
        const Point3 center_ws = pk.tmAxis.GetTrans();
        const Point3 offset =
            VectorTransform(Inverse(axes_ws), world_ws.GetTrans() - center_ws) * pk.p;
        SetPositionInWorld(t, center_ws + VectorTransform(axes_ws, offset), pk.tmParent, commit);
      }
      break;
    }
  }
}

bool PRSControl::ChangeParents(TimeValue t,
                               const Matrix3&,
                               const Matrix3& new_parent,
                               const Matrix3& tm) {
  SetXFormPacket pk(tm, new_parent);
  SetValue(t, &pk, 1, CTRL_RELATIVE);
  return true;
}

void PRSControl::Copy(Control* from) {
  if (!from || from == this) return;
  Control* parts[3] = {from->GetPositionController(), from->GetRotationController(),
                       from->GetScaleController()};
  bool missing = false;
  for (int i = 0; i < 3; ++i) {
    if (parts[i] && parts[i]->SuperClassID() == kSubSuper[i]) {
      ReplaceReference(i, parts[i]);
    } else {
      parts[i] = nullptr;
      missing = true;
    }
  }
  if (missing && from->SuperClassID() == CTRL_MATRIX3_CLASS_ID) {
    // The parts it lacks come from its local matrix (the world under an identity parent).
    const TimeValue now = TheAnimClock().Time();
    Matrix3 local;
    Interval ignored = FOREVER;
    from->GetValue(now, &local, ignored, CTRL_RELATIVE);
    Point3 p;
    Quat q;
    ScaleValue s;
    DecomposeMatrix(local, p, q, s);
    void* values[3] = {&p, &q, &s};
    AnimateSuspend no_keys;
    for (int i = 0; i < 3; ++i) {
      if (!parts[i] && sub_[i]) sub_[i]->SetValue(now, values[i], 1, CTRL_ABSOLUTE);
    }
  }
  SetLocked(IsTrackLocked(from));
  NotifyChange();
}

RefTargetHandle PRSControl::Clone(RemapDir& remap) {
  auto* c = new PRSControl(true);
  for (int i = 0; i < 3; ++i) c->ReplaceReference(i, remap.CloneRef(sub_[i]));
  c->locked_ = locked_;
  BaseClone(this, c, remap);
  return c;
}

IOResult PRSControl::Save(ISave* isave) { return SaveLockChunk(isave, locked_); }

IOResult PRSControl::Load(ILoad* iload) {
  State s = GetState();
  const IOResult res = LoadLockOnly(iload, s.locked);
  if (res == IO_OK) SetState(s);
  return res;
}

ClassDesc2* PRSClassDesc() {
  static hci::ControllerDesc desc(
      "Position/Rotation/Scale", "PRS", CTRL_MATRIX3_CLASS_ID, Class_ID(kPRSClassIDPartA, 0),
      [](bool loading) -> Animatable* { return new PRSControl(loading); });
  return &desc;
}
