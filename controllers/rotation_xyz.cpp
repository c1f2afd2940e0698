// Copyright Marvolith contributors.
#include "controllers/rotation_xyz.h"

#include <cmath>
#include <cstdint>

#include "host/controllers/controller_classes.h"
#include "host/io/chunk_io.h"
#include "host/math/euler.h"
#include "host/math/matrix3.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"
#include "support/track_assign.h"

namespace marvolith {
namespace {

constexpr USHORT kJointParamsChunk = 4098;
constexpr USHORT kJointRecordChunk = 144;
constexpr USHORT kOrderChunk = 4099;
constexpr USHORT kLockedChunk = 9525;
// Orders are written with this mark added, so that files that wrote the bare order tell apart.
constexpr std::int32_t kOrderMark = 100;
// Orders 0..5 are Tait-Bryan and decompose continuously; 6..8 repeat an axis.
constexpr int kLastTaitBryanOrder = 5;

// The descriptor, built at module load.
RotationXYZClassDesc rotation_xyz_cd;

int ValidOrder(int order) { return order >= 0 && order < kEulerOrderCount ? order : 0; }

// this = this * rotation about axis (0 X, 1 Y, 2 Z), right-handed.
void RotateAbout(Matrix3& m, int axis, float angle) {
  if (axis == 0) {
    m.RotateX(angle);
  } else if (axis == 1) {
    m.RotateY(angle);
  } else {
    m.RotateZ(angle);
  }
}

Matrix3 AxisRotation(int axis, float angle) {
  Matrix3 m;
  RotateAbout(m, axis, angle);
  return m;
}

// The matrix of seq: the identity turned about each axis of the sequence in turn.
Matrix3 SequenceMatrix(const float seq[3], int order) {
  Matrix3 m;
  for (int s = 0; s < 3; ++s) RotateAbout(m, EulerOrderAxis(order, s), seq[s]);
  return m;
}

bool Finite(const Point3& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

}  // namespace

// ---- Pure core ----

Quat EulerSequenceToQuat(const float seq[3], int order) {
  return Quat(SequenceMatrix(seq, ValidOrder(order)));
}

void EulerGimbalAxes(const float seq[3], int order, Point3 axes[3]) {
  const int o = ValidOrder(order);
  const int a0 = EulerOrderAxis(o, 0);
  const int a1 = EulerOrderAxis(o, 1);
  const int a2 = EulerOrderAxis(o, 2);
  // With rotation = R0 * R1 * R2 (R0 applied first), step 2 turns about its own parent-space
  // axis, step 1 about its axis carried by R2, step 0 about its axis carried by R1 * R2. The
  // turning axis of a right-handed angle is the reverse of the quaternion's sense.
  Matrix3 g;
  axes[2] = -g.GetRow(a2);
  g = AxisRotation(a2, seq[2]);
  axes[1] = -g.GetRow(a1);
  g = AxisRotation(a1, seq[1]) * g;
  axes[0] = -g.GetRow(a0);
}

EulerTurnResult TurnEulerSequence(float seq[3], int order, const AngAxis& turn) {
  EulerTurnResult result;
  const float length = Length(turn.axis);
  if (!std::isfinite(turn.angle) || !Finite(turn.axis) || !(length > 0.0f)) return result;
  const Point3 axis = turn.axis / length;
  const int o = ValidOrder(order);

  // About one gimbal axis only its channel moves, and whole turns stay.
  Point3 gimbal[3];
  EulerGimbalAxes(seq, o, gimbal);
  for (int k = 0; k < 3; ++k) {
    const float d = DotProd(axis, gimbal[k]);
    if (std::fabs(std::fabs(d) - 1.0f) <= kGimbalAxisTolerance) {
      seq[k] += d > 0.0f ? turn.angle : -turn.angle;
      result.gimbal_step = k;
      return result;
    }
  }

  Quat q = EulerSequenceToQuat(seq, o);
  if (o > kLastTaitBryanOrder) {
    // Repeated-axis orders have no continuous decomposition here: decompose, then put back the
    // whole turns the angles held.
    const float before[3] = {seq[0], seq[1], seq[2]};
    QuatToEuler(Normalize(q * QFromAngAxis(turn.angle, axis)), seq, o);
    for (int i = 0; i < 3; ++i) seq[i] += std::trunc(before[i] / kWholeTurn) * kWholeTurn;
    result.steps = 1;
    return result;
  }

  // Steps short enough for ContinuousQuatToEuler to follow: a long turn keeps its turns.
  int steps = static_cast<int>(std::ceil(std::fabs(turn.angle) / kEulerRelativeStep));
  steps = steps < 1 ? 1 : (steps > kEulerMaxRelativeSteps ? kEulerMaxRelativeSteps : steps);
  const Quat step = QFromAngAxis(turn.angle / static_cast<float>(steps), axis);
  for (int k = 0; k < steps; ++k) {
    q = Normalize(q * step);
    ContinuousQuatToEuler(q, seq, o);
  }
  result.steps = steps;
  return result;
}

void SetEulerSequence(float seq[3], int order, const Quat& q) {
  const int o = ValidOrder(order);
  if (o > kLastTaitBryanOrder) {
    QuatToEuler(q, seq, o);
  } else {
    ContinuousQuatToEuler(q, seq, o);
  }
}

// ---- Restore records ----

// Brackets the channel writes of one SetValue. Undo runs the records backwards: the closing
// record (opens false) blocks the controller before the channels restore themselves, the opening
// one unblocks it afterwards and empties the cache, so nothing is read from a half-restored set
// of channels. Redo runs forwards, the same way round.
class RotationXYZ::SetValueRestore : public RestoreObj {
 public:
  SetValueRestore(RotationXYZ* c, bool opens)
      : handle_(Animatable::GetHandleByAnim(c)), opens_(opens) {}
  void Restore(int) override {
    if (RotationXYZ* c = Get()) opens_ ? Unblock(c) : c->SetBlocked(true);
  }
  void Redo() override {
    if (RotationXYZ* c = Get()) opens_ ? c->SetBlocked(true) : Unblock(c);
  }
  void EndHold() override {
    if (RotationXYZ* c = Get()) c->ClearAFlag(A_HELD);
  }
  MSTR Description() override { return "Rotation XYZ"; }

 private:
  static void Unblock(RotationXYZ* c) {
    c->SetBlocked(false);
    c->StateRestored();
  }
  RotationXYZ* Get() { return dynamic_cast<RotationXYZ*>(Animatable::GetAnimByHandle(handle_)); }
  AnimHandle handle_;
  bool opens_;
};

class RotationXYZ::RotationXYZOrderRestore : public RestoreObj {
 public:
  RotationXYZOrderRestore(RotationXYZ* c, int old_order, int new_order)
      : handle_(Animatable::GetHandleByAnim(c)), old_(old_order), new_(new_order) {}
  void Restore(int) override { Apply(old_); }
  void Redo() override { Apply(new_); }
  MSTR Description() override { return "Change Euler Order"; }

 private:
  void Apply(int order) {
    auto* c = dynamic_cast<RotationXYZ*>(Animatable::GetAnimByHandle(handle_));
    if (!c) return;
    c->order_ = order;
    c->NotifyOrderChanged();
  }
  AnimHandle handle_;
  int old_;
  int new_;
};

// The controller's own state (locked flag, order) before a change other than SetOrder.
class RotationXYZ::StateRestore : public RestoreObj {
 public:
  explicit StateRestore(RotationXYZ* c)
      : handle_(Animatable::GetHandleByAnim(c)), before_(c->GetState()) {}
  void Restore(int is_undo) override {
    RotationXYZ* c = Get();
    if (!c) return;
    if (is_undo) after_ = c->GetState();
    c->SetState(before_);
    c->StateRestored();
  }
  void Redo() override {
    if (RotationXYZ* c = Get()) {
      c->SetState(after_);
      c->StateRestored();
    }
  }
  MSTR Description() override { return "Rotation XYZ"; }

 private:
  RotationXYZ* Get() { return dynamic_cast<RotationXYZ*>(Animatable::GetAnimByHandle(handle_)); }
  AnimHandle handle_;
  State before_;
  State after_;
};

// ---- RotationXYZ ----

RotationXYZ::RotationXYZ(bool loading) {
  if (loading) return;
  HoldSuspend no_undo;  // a new controller's own channels are not an edit
  for (int i = 0; i < 3; ++i) ReplaceReference(i, NewDefaultFloatController());
}

RotationXYZ::~RotationXYZ() = default;

Class_ID RotationXYZ::ClassID() { return GetClassInfo(ClassIndex::RotationXYZ).class_id; }

void RotationXYZ::GetClassName(MSTR& s, bool) const { s = ClassNameOf(ClassIndex::RotationXYZ); }

void* RotationXYZ::GetInterface(ULONG id) {
  if (id == I_EULERCTRL) return static_cast<IEulerControl*>(this);
  return CompoundControl::GetInterface(id);
}

Animatable* RotationXYZ::SubAnim(int i) { return i >= 0 && i < 3 ? sub_[i] : nullptr; }

MSTR RotationXYZ::SubAnimName(int i, bool) {
  static const char* const kNames[3] = {"X Rotation", "Y Rotation", "Z Rotation"};
  return i >= 0 && i < 3 ? MSTR(kNames[i]) : MSTR();
}

bool RotationXYZ::AssignController(Animatable* control, int i) {
  if (i < 0 || i >= 3) return false;
  if (!ReplaceTrack(this, i, dynamic_cast<Control*>(control), sub_[i], CTRL_FLOAT_CLASS_ID))
    return false;
  cache_valid_.SetEmpty();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

RefTargetHandle RotationXYZ::GetReference(int i) { return i >= 0 && i < 3 ? sub_[i] : nullptr; }

void RotationXYZ::SetReference(int i, RefTargetHandle target) {
  if (i < 0 || i >= 3) return;
  // Only float controllers are channels: anything else would be read as a float.
  auto* c = dynamic_cast<Control*>(target);
  sub_[i] = c && c->SuperClassID() == CTRL_FLOAT_CLASS_ID ? c : nullptr;
  if (!blocked_) cache_valid_.SetEmpty();
}

RefResult RotationXYZ::NotifyRefChanged(
    const Interval&, RefTargetHandle, PartID&, RefMessage, bool) {
  if (!blocked_) cache_valid_.SetEmpty();
  return REF_SUCCEED;
}

RefTargetHandle RotationXYZ::Clone(RemapDir& remap) {
  auto* c = new RotationXYZ(true);
  for (int i = 0; i < 3; ++i) c->ReplaceReference(i, remap.CloneRef(sub_[i]));
  c->order_ = order_;
  c->locked_ = locked_;
  c->older_order_ = older_order_;
  c->SetJointParams(joint_params_.get());
  BaseClone(this, c, remap);
  return c;
}

void RotationXYZ::ReadChannels(TimeValue t, float ch[3], Interval& valid) {
  for (int i = 0; i < 3; ++i) {
    ch[i] = 0.0f;
    if (sub_[i]) sub_[i]->GetValue(t, &ch[i], valid, CTRL_ABSOLUTE);
  }
}

void RotationXYZ::ReadSequence(TimeValue t, float seq[3]) {
  float ch[3];
  Interval ignored = FOREVER;
  ReadChannels(t, ch, ignored);
  for (int s = 0; s < 3; ++s) seq[s] = ch[EulerStepChannel(order_, s)];
}

void RotationXYZ::Refresh(TimeValue t) {
  if (blocked_ || cache_valid_.InInterval(t)) return;
  float ch[3];
  Interval valid = FOREVER;
  ReadChannels(t, ch, valid);
  if (!valid.InInterval(t)) valid.SetInstant(t);  // a channel that broke the interval
  cached_euler_ = Point3(ch);
  cache_valid_ = valid;
}

void RotationXYZ::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val) return;
  Refresh(t);
  valid &= cache_valid_;
  float seq[3];
  for (int s = 0; s < 3; ++s) seq[s] = cached_euler_[EulerStepChannel(order_, s)];
  const Matrix3 rotation = SequenceMatrix(seq, order_);
  if (method == CTRL_ABSOLUTE) {
    *static_cast<Quat*>(val) = Quat(rotation);
  } else {
    Matrix3& m = *static_cast<Matrix3*>(val);
    m = rotation * m;
  }
}

bool RotationXYZ::LastKeyBefore(TimeValue t, TimeValue& key_time) {
  if (t == TIME_NegInfinity) return false;
  bool found = false;
  for (Control* c : sub_) {
    if (!c) continue;
    Tab<TimeValue> times;
    c->GetKeyTimes(times, Interval(TIME_NegInfinity, t - 1), 0);
    for (int k = 0; k < times.Count(); ++k) {
      if (!found || times[k] > key_time) key_time = times[k];
      found = true;
    }
  }
  return found;
}

void RotationXYZ::SetValue(TimeValue t, void* val, int, GetSetMethod method) {
  if (GetLocked() || !val) return;
  float seq[3];
  ReadSequence(t, seq);
  if (method == CTRL_ABSOLUTE) {
    const Quat q = Normalize(*static_cast<const Quat*>(val));
    if (!std::isfinite(q.x) || !std::isfinite(q.y) || !std::isfinite(q.z) || !std::isfinite(q.w)) {
      return;
    }
    // While keying, continue from the last key, not from the interpolated angles at t.
    TimeValue key_time = 0;
    if (order_ <= kLastTaitBryanOrder && Animating() && LastKeyBefore(t, key_time)) {
      ReadSequence(key_time, seq);
    }
    SetEulerSequence(seq, order_, q);
  } else {
    const EulerTurnResult r = TurnEulerSequence(seq, order_, *static_cast<const AngAxis*>(val));
    if (r.gimbal_step < 0 && r.steps == 0) return;  // no turn
  }
  WriteSequence(t, seq);
}

void RotationXYZ::WriteSequence(TimeValue t, const float seq[3]) {
  float ch[3];
  for (int s = 0; s < 3; ++s) ch[EulerStepChannel(order_, s)] = seq[s];
  cached_euler_ = Point3(ch);
  cache_valid_.SetInstant(t);
  blocked_ = true;
  const bool held = HoldWantsRecord(this);
  if (held) theHold.Put(new SetValueRestore(this, true));
  for (int i = 0; i < 3; ++i) {
    if (sub_[i]) sub_[i]->SetValue(t, &ch[i], 1, CTRL_ABSOLUTE);
  }
  if (held) theHold.Put(new SetValueRestore(this, false));
  blocked_ = false;
  cache_valid_.SetEmpty();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void RotationXYZ::Copy(Control* from) {
  if (!from || from == this) return;
  Control* channels[3] = {from->GetXController(), from->GetYController(), from->GetZController()};
  const bool float_channels = [&] {
    for (Control* c : channels) {
      if (!c || c->SuperClassID() != CTRL_FLOAT_CLASS_ID) return false;
    }
    return true;
  }();
  auto* euler = static_cast<IEulerControl*>(from->GetInterface(I_EULERCTRL));
  const bool same_class = from->ClassID() == ClassID() && from->SuperClassID() == SuperClassID();
  if (float_channels && (same_class || from->NumKeys() > 0)) {
    // Take the source's channels (and its order, so the rotation stays the same).
    for (int i = 0; i < 3; ++i) ReplaceReference(i, channels[i]);
    const int order = euler ? euler->GetOrder() : order_;
    if (order >= 0 && order < kEulerOrderCount && order != order_) {
      if (theHold.Holding()) theHold.Put(new RotationXYZOrderRestore(this, order_, order));
      order_ = order;
    }
    if (same_class) SetJointParams(static_cast<RotationXYZ*>(from)->GetJointParams());
  } else if (from->SuperClassID() == CTRL_ROTATION_CLASS_ID) {
    Quat q;
    Interval ignored = FOREVER;
    from->GetValue(0, &q, ignored, CTRL_ABSOLUTE);
    Matrix3 m;
    q.MakeMatrix(m);
    float seq[3];
    MatrixToEuler(m, seq, order_);
    AnimateSuspend no_keys;
    WriteSequence(0, seq);
  }
  const bool locked = IsTrackLocked(from);
  if (locked != locked_) {
    HoldState();
    locked_ = locked;
  }
  NotifyOrderChanged();
}

void RotationXYZ::SetOrder(int order) {
  if (order < 0 || order >= kEulerOrderCount || order == order_) return;
  if (theHold.Holding()) theHold.Put(new RotationXYZOrderRestore(this, order_, order));
  order_ = order;
  NotifyOrderChanged();
}

void RotationXYZ::NotifyOrderChanged() {
  cache_valid_.SetEmpty();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
}

void RotationXYZ::SetJointParams(const JointParamsEuler* params) {
  if (params == joint_params_.get()) return;
  joint_params_ = params ? std::make_unique<JointParamsEuler>(*params) : nullptr;
}

void RotationXYZ::HoldState() {
  if (theHold.Holding()) theHold.Put(new StateRestore(this));
}

void RotationXYZ::SetState(const State& s) {
  locked_ = s.locked;
  order_ = s.order;
}

void RotationXYZ::StateRestored() {
  cache_valid_.SetEmpty();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

IOResult RotationXYZ::Save(ISave* isave) {
  if (joint_params_) {
    isave->BeginChunk(kJointParamsChunk);
    for (const Point3& record : joint_params_->records) {
      if (SaveChunk(isave, kJointRecordChunk, record) != IO_OK) return IO_ERROR;
    }
    isave->EndChunk();
  }
  const std::int32_t order = order_ > 0 ? order_ + kOrderMark : 0;
  if (SaveChunk(isave, kOrderChunk, order) != IO_OK) return IO_ERROR;
  return SaveChunk(isave, kLockedChunk, std::int32_t(locked_ ? 1 : 0));
}

namespace {

IOResult LoadJointParams(ILoad* iload, JointParamsEuler& params) {
  return ForEachChunk(iload, [&](USHORT id) {
    if (id != kJointRecordChunk) return IO_OK;
    Point3 record;
    if (LoadValue(iload, record) != IO_OK) return IO_ERROR;
    params.records.push_back(record);
    return IO_OK;
  });
}

}  // namespace

IOResult RotationXYZ::Load(ILoad* iload) {
  std::int32_t order = 0;
  std::int32_t locked = 0;
  bool older = false;
  std::unique_ptr<JointParamsEuler> joints;
  const IOResult res = ForEachChunk(iload, [&](USHORT id) -> IOResult {
    switch (id) {
      case kJointParamsChunk:
        joints = std::make_unique<JointParamsEuler>();
        return LoadJointParams(iload, *joints);
      case kOrderChunk:
        if (LoadValue(iload, order) != IO_OK) return IO_ERROR;
        if (order >= kOrderMark) {
          order %= kOrderMark;
        } else {
          older = order >= 1 && order <= kLastTaitBryanOrder;
        }
        return order < 0 || order >= kEulerOrderCount ? IO_ERROR : IO_OK;
      case kLockedChunk:
        return LoadValue(iload, locked);
      default:
        return IO_OK;
    }
  });
  if (res != IO_OK) return res;
  order_ = order;
  locked_ = locked != 0;
  older_order_ = older;
  joint_params_ = std::move(joints);
  cache_valid_.SetEmpty();
  return IO_OK;
}

ClassDesc2* GetRotationXYZDesc() { return &rotation_xyz_cd; }

}  // namespace marvolith
