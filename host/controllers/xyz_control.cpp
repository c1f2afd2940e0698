// Copyright Marvolith contributors.
#include "host/controllers/xyz_control.h"

#include <cmath>
#include <cstdint>
#include <numbers>

#include "host/controllers/controller_classes.h"
#include "host/controllers/internal/controller_desc.h"
#include "host/controllers/internal/state_restore.h"
#include "host/controllers/internal/value_ops.h"
#include "host/core/clock.h"
#include "host/math/euler.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace hci = host_controllers_internal;

namespace {

constexpr USHORT kOrderChunk = 0x0100;
// Relative rotations are applied in steps of at most three quarters of a turn so that
// ContinuousQuatToEuler can follow them, and never more than this many steps.
constexpr float kRelativeStep = 0.75f * std::numbers::pi_v<float>;
constexpr int kMaxRelativeSteps = 256;

TimeValue Now() { return TheAnimClock().Time(); }

}  // namespace

// ---- FloatTripleControl ----

FloatTripleControl::FloatTripleControl(bool loading) {
  if (loading) return;
  HoldSuspend no_undo;  // a new controller's own parts are not an edit
  for (int i = 0; i < 3; ++i) ReplaceReference(i, NewDefaultFloatController());
}

void FloatTripleControl::SetState(const State& s) {
  locked_ = s.locked;
  order_ = s.order;
}

void FloatTripleControl::StateRestored() {
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
}

MSTR FloatTripleControl::SubAnimName(int i, bool) {
  return i >= 0 && i < 3 ? MSTR(ChannelName(i)) : MSTR();
}

bool FloatTripleControl::AssignController(Animatable* control, int i) {
  if (i < 0 || i >= 3) return false;
  if (!ReplaceTrack(this, i, dynamic_cast<Control*>(control), sub_[i], CTRL_FLOAT_CLASS_ID))
    return false;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

RefTargetHandle FloatTripleControl::GetReference(int i) {
  return i >= 0 && i < 3 ? sub_[i] : nullptr;
}

void FloatTripleControl::SetReference(int i, RefTargetHandle target) {
  if (i >= 0 && i < 3) sub_[i] = dynamic_cast<Control*>(target);
}

void FloatTripleControl::HoldState() { hci::HoldControllerState(this, "Controller Change"); }

float FloatTripleControl::Channel(int i, TimeValue t, Interval& valid) {
  float v = 0.0f;
  if (sub_[i]) sub_[i]->GetValue(t, &v, valid, CTRL_ABSOLUTE);
  return v;
}

void FloatTripleControl::SetChannel(int i, TimeValue t, float v, int commit) {
  if (sub_[i]) sub_[i]->SetValue(t, &v, commit, CTRL_ABSOLUTE);
}

void FloatTripleControl::CloneInto(FloatTripleControl* clone, RemapDir& remap) {
  for (int i = 0; i < 3; ++i) clone->ReplaceReference(i, remap.CloneRef(sub_[i]));
  clone->order_ = order_;
  clone->locked_ = locked_;
  BaseClone(this, clone, remap);
}

bool FloatTripleControl::CopyChannels(Control* from) {
  if (from->ClassID() != ClassID() || from->SuperClassID() != SuperClassID()) return false;
  auto* source = static_cast<FloatTripleControl*>(from);
  HoldState();
  for (int i = 0; i < 3; ++i) ReplaceReference(i, source->sub_[i]);
  order_ = source->order_;
  return true;
}

IOResult FloatTripleControl::Save(ISave* isave) {
  if (SaveLockChunk(isave, locked_) != IO_OK) return IO_ERROR;
  if (saves_order_) return SaveChunk(isave, kOrderChunk, std::int32_t(order_));
  return IO_OK;
}

IOResult FloatTripleControl::Load(ILoad* iload) {
  State s = GetState();
  const IOResult res = ForEachChunk(iload, [&](USHORT id) -> IOResult {
    if (id == kLockChunkID) return LoadLockChunk(iload, s.locked);
    if (id == kOrderChunk) {
      std::int32_t order = 0;
      if (LoadValue(iload, order) != IO_OK || order < 0 || order >= kEulerOrderCount)
        return IO_ERROR;
      s.order = order;
    }
    return IO_OK;
  });
  if (res == IO_OK) SetState(s);
  return res;
}

// ---- EulerXYZControl ----

EulerXYZControl::EulerXYZControl(bool loading) : FloatTripleControl(loading) {
  saves_order_ = true;
}

void* EulerXYZControl::GetInterface(ULONG id) {
  if (id == I_EULERCTRL) return static_cast<IEulerControl*>(this);
  return FloatTripleControl::GetInterface(id);
}

const char* EulerXYZControl::ChannelName(int i) {
  static const char* const kNames[3] = {"X Rotation", "Y Rotation", "Z Rotation"};
  return kNames[i];
}

void EulerXYZControl::SetOrder(int order) {
  if (order < 0 || order >= kEulerOrderCount || order == order_) return;
  HoldState();
  order_ = order;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
}

void EulerXYZControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val) return;
  float ch[3];
  for (int i = 0; i < 3; ++i) ch[i] = Channel(i, t, valid);
  float seq[3];
  for (int s = 0; s < 3; ++s) seq[s] = ch[EulerStepChannel(order_, s)];
  Quat q;
  EulerToQuat(seq, q, order_);
  if (method == CTRL_ABSOLUTE) {
    *static_cast<Quat*>(val) = q;
  } else {
    static_cast<Matrix3*>(val)->PreRotate(q);
  }
}

void EulerXYZControl::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val) return;
  Interval ignored = FOREVER;
  float ch[3];
  for (int i = 0; i < 3; ++i) ch[i] = Channel(i, t, ignored);
  float seq[3];
  for (int s = 0; s < 3; ++s) seq[s] = ch[EulerStepChannel(order_, s)];
  if (method == CTRL_ABSOLUTE) {
    ContinuousQuatToEuler(Normalize(*static_cast<const Quat*>(val)), seq, order_);
  } else {
    const AngAxis aa = *static_cast<const AngAxis*>(val);
    if (!std::isfinite(aa.angle)) return;
    Quat q;
    EulerToQuat(seq, q, order_);
    int steps = static_cast<int>(std::ceil(std::fabs(aa.angle) / kRelativeStep));
    steps = steps < 1 ? 1 : (steps > kMaxRelativeSteps ? kMaxRelativeSteps : steps);
    const float step = aa.angle / static_cast<float>(steps);
    for (int k = 0; k < steps; ++k) {
      q = Normalize(q * QFromAngAxis(step, aa.axis));
      ContinuousQuatToEuler(q, seq, order_);
    }
  }
  for (int s = 0; s < 3; ++s) ch[EulerStepChannel(order_, s)] = seq[s];
  for (int i = 0; i < 3; ++i) SetChannel(i, t, ch[i], commit);
}

void EulerXYZControl::Copy(Control* from) {
  if (!from || from == this) return;
  if (!CopyChannels(from) && from->SuperClassID() == CTRL_ROTATION_CLASS_ID) {
    Quat q;
    Interval ignored = FOREVER;
    from->GetValue(Now(), &q, ignored, CTRL_ABSOLUTE);
    float seq[3];
    QuatToEuler(q, seq, order_);
    AnimateSuspend no_keys;
    for (int s = 0; s < 3; ++s) SetChannel(EulerStepChannel(order_, s), Now(), seq[s], 1);
  }
  SetLocked(IsTrackLocked(from));
  NotifyChange();
}

RefTargetHandle EulerXYZControl::Clone(RemapDir& remap) {
  auto* c = new EulerXYZControl(true);
  CloneInto(c, remap);
  return c;
}

// ---- PositionXYZControl ----

PositionXYZControl::PositionXYZControl(bool loading) : FloatTripleControl(loading) {}

const char* PositionXYZControl::ChannelName(int i) {
  static const char* const kNames[3] = {"X Position", "Y Position", "Z Position"};
  return kNames[i];
}

void PositionXYZControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val) return;
  const Point3 p(Channel(0, t, valid), Channel(1, t, valid), Channel(2, t, valid));
  if (method == CTRL_ABSOLUTE) {
    *static_cast<Point3*>(val) = p;
  } else {
    static_cast<Matrix3*>(val)->PreTranslate(p);
  }
}

void PositionXYZControl::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val) return;
  const Point3 p = *static_cast<const Point3*>(val);
  for (int i = 0; i < 3; ++i) {
    Control* c = KeySub(i);
    float v = p[i];
    if (c) c->SetValue(t, &v, commit, method);
  }
}

void PositionXYZControl::Copy(Control* from) {
  if (!from || from == this) return;
  if (!CopyChannels(from) && (from->SuperClassID() == CTRL_POSITION_CLASS_ID ||
                              from->SuperClassID() == CTRL_POINT3_CLASS_ID)) {
    Point3 p;
    Interval ignored = FOREVER;
    from->GetValue(Now(), &p, ignored, CTRL_ABSOLUTE);
    AnimateSuspend no_keys;
    for (int i = 0; i < 3; ++i) SetChannel(i, Now(), p[i], 1);
  }
  SetLocked(IsTrackLocked(from));
  NotifyChange();
}

RefTargetHandle PositionXYZControl::Clone(RemapDir& remap) {
  auto* c = new PositionXYZControl(true);
  CloneInto(c, remap);
  return c;
}

// ---- ScaleXYZControl ----

ScaleXYZControl::ScaleXYZControl(bool loading) : FloatTripleControl(loading) {
  if (loading) return;
  HoldSuspend no_undo;
  AnimateSuspend no_keys;
  for (int i = 0; i < 3; ++i) SetChannel(i, 0, 1.0f, 1);
}

const char* ScaleXYZControl::ChannelName(int i) {
  static const char* const kNames[3] = {"X Scale", "Y Scale", "Z Scale"};
  return kNames[i];
}

void ScaleXYZControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val) return;
  const ScaleValue s(Point3(Channel(0, t, valid), Channel(1, t, valid), Channel(2, t, valid)));
  if (method == CTRL_ABSOLUTE) {
    *static_cast<ScaleValue*>(val) = s;
  } else {
    ApplyScaleValue(*static_cast<Matrix3*>(val), s);
  }
}

void ScaleXYZControl::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val) return;
  ScaleValue target = *static_cast<const ScaleValue*>(val);
  if (method != CTRL_ABSOLUTE) {
    Interval ignored = FOREVER;
    const ScaleValue current(
        Point3(Channel(0, t, ignored), Channel(1, t, ignored), Channel(2, t, ignored)));
    target = hci::RelativeTarget(current, val);
  }
  for (int i = 0; i < 3; ++i) SetChannel(i, t, target.s[i], commit);
}

void ScaleXYZControl::Copy(Control* from) {
  if (!from || from == this) return;
  if (!CopyChannels(from) && from->SuperClassID() == CTRL_SCALE_CLASS_ID) {
    ScaleValue s;
    Interval ignored = FOREVER;
    from->GetValue(Now(), &s, ignored, CTRL_ABSOLUTE);
    AnimateSuspend no_keys;
    for (int i = 0; i < 3; ++i) SetChannel(i, Now(), s.s[i], 1);
  }
  SetLocked(IsTrackLocked(from));
  NotifyChange();
}

RefTargetHandle ScaleXYZControl::Clone(RemapDir& remap) {
  auto* c = new ScaleXYZControl(true);
  CloneInto(c, remap);
  return c;
}

// ---- Class descriptors ----

ClassDesc2* EulerXYZClassDesc() {
  static hci::ControllerDesc desc(
      "Euler XYZ", "Euler_XYZ", CTRL_ROTATION_CLASS_ID, Class_ID(0x2012, 0),
      [](bool loading) -> Animatable* { return new EulerXYZControl(loading); });
  return &desc;
}

ClassDesc2* PositionXYZClassDesc() {
  static hci::ControllerDesc desc(
      "Position XYZ", "Position_XYZ", CTRL_POSITION_CLASS_ID, Class_ID(0x118F7E02, 0xFFEE238A),
      [](bool loading) -> Animatable* { return new PositionXYZControl(loading); });
  return &desc;
}

ClassDesc2* ScaleXYZClassDesc() {
  static hci::ControllerDesc desc(
      "Scale XYZ", "ScaleXYZ", CTRL_SCALE_CLASS_ID, Class_ID(0x118F7C01, 0xFEEE238B),
      [](bool loading) -> Animatable* { return new ScaleXYZControl(loading); });
  return &desc;
}
