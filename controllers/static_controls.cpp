// Copyright Marvolith contributors.
#include "controllers/static_controls.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

#include "host/core/diagnostics.h"
#include "host/io/chunk_io.h"
#include "host/math/affine.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"
#include "support/track_assign.h"

namespace marvolith {
namespace {

constexpr USHORT kValueChunk = 0;
constexpr USHORT kLockedChunk = 1;

// ---- The value kinds: relative reads, writes, and the raw file form ----

void ApplyRelative(const float& value, void* val) { *static_cast<float*>(val) += value; }
void ApplyRelative(const Point3& value, void* val) {
  static_cast<Matrix3*>(val)->PreTranslate(value);
}
void ApplyRelative(const Quat& value, void* val) { static_cast<Matrix3*>(val)->PreRotate(value); }
void ApplyRelative(const ScaleValue& value, void* val) {
  ApplyScaleValue(*static_cast<Matrix3*>(val), value);
}
// world = local * parent_ws.
void ApplyRelative(const Matrix3& value, void* val) {
  Matrix3& m = *static_cast<Matrix3*>(val);
  m = value * m;
}

float NextValue(const float& current, const void* val, GetSetMethod method) {
  const float v = *static_cast<const float*>(val);
  return method == CTRL_ABSOLUTE ? v : current + v;
}
Point3 NextValue(const Point3& current, const void* val, GetSetMethod method) {
  const Point3& v = *static_cast<const Point3*>(val);
  return method == CTRL_ABSOLUTE ? v : current + v;
}
// Relative: an AngAxis that turns after the present rotation.
Quat NextValue(const Quat& current, const void* val, GetSetMethod method) {
  if (method == CTRL_ABSOLUTE) return *static_cast<const Quat*>(val);
  return Normalize(current * Quat(*static_cast<const AngAxis*>(val)));
}
// Relative: the scale applied after the present one. Factors multiply when the axis systems
// agree; otherwise the stretch of the product is kept and its small leftover rotation dropped.
ScaleValue NextValue(const ScaleValue& current, const void* val, GetSetMethod method) {
  const ScaleValue& v = *static_cast<const ScaleValue*>(val);
  if (method == CTRL_ABSOLUTE) return v;
  if (current.q.EqualsRotation(v.q, 1e-7f)) return ScaleValue(current.s * v.s, current.q);
  Point3 pos;
  Quat rot;
  ScaleValue out;
  DecomposeMatrix(MatrixFromScaleValue(current) * MatrixFromScaleValue(v), pos, rot, out);
  return out;
}
// The transform commands; value is local, world = value * tmParent.
Matrix3 NextValue(const Matrix3& current, const void* val, GetSetMethod) {
  const SetXFormPacket& pk = *static_cast<const SetXFormPacket*>(val);
  const Matrix3 to_parent = Inverse(pk.tmParent);
  switch (pk.command) {
    case XFORM_MOVE: {
      Matrix3 axis_ps = pk.tmAxis * to_parent;
      axis_ps.NoTrans();
      Matrix3 next = current;
      next.Translate(axis_ps.VectorTransform(pk.p));
      return next;
    }
    case XFORM_ROTATE:
    case XFORM_SCALE: {
      Matrix3 change;
      if (pk.command == XFORM_ROTATE) {
        pk.q.MakeMatrix(change);
      } else {
        change = ScaleMatrix(pk.p);
      }
      const Matrix3 world_ws = current * pk.tmParent;
      Matrix3 axis_ws = pk.tmAxis;
      if (pk.localOrigin) axis_ws.SetTrans(world_ws.GetTrans());  // turn about the node itself
      return world_ws * Inverse(axis_ws) * change * axis_ws * to_parent;
    }
    case XFORM_SET:
    default:
      return pk.tmAxis * to_parent;
  }
}

template <typename V>
IOResult LoadRaw(ILoad* iload, V& value) {
  return LoadValue(iload, value);
}
// A matrix's stored flags are checked against its values.
template <>
IOResult LoadRaw<Matrix3>(ILoad* iload, Matrix3& value) {
  std::array<std::byte, kMatrix3FileBytes> bytes;
  const IOResult r = LoadValue(iload, bytes);
  if (r == IO_OK) value.ReadBytes(std::span<const std::byte, kMatrix3FileBytes>(bytes));
  return r;
}

template <typename V>
V IdentityOf() {
  if constexpr (std::is_same_v<V, float>) {
    return 0.0f;
  } else {
    return V();  // origin, identity rotation, unit scale, identity matrix
  }
}

}  // namespace

// ---- Restore record ----

template <typename C>
class StaticValueRestore : public RestoreObj {
 public:
  explicit StaticValueRestore(C* c) : handle_(Animatable::GetHandleByAnim(c)), before_(c->value_) {}
  void Restore(int is_undo) override {
    C* c = Get();
    if (!c) return;
    if (is_undo) after_ = c->value_;
    c->value_ = before_;
    c->ValueRestored();
  }
  void Redo() override {
    if (C* c = Get()) {
      c->value_ = after_;
      c->ValueRestored();
    }
  }
  void EndHold() override {
    if (C* c = Get()) c->ClearAFlag(A_HELD);
  }
  int Size() override { return static_cast<int>(sizeof(*this)); }
  MSTR Description() override { return ClassNameOf(C::kClassIndex); }

 private:
  C* Get() { return dynamic_cast<C*>(Animatable::GetAnimByHandle(handle_)); }
  AnimHandle handle_;
  typename C::ValueType before_;
  typename C::ValueType after_ = IdentityOf<typename C::ValueType>();
};

// ---- StaticControl ----

template <typename Derived, typename V, ClassIndex kIndex>
void StaticControl<Derived, V, kIndex>::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(kIndex);
}

template <typename Derived, typename V, ClassIndex kIndex>
void* StaticControl<Derived, V, kIndex>::GetInterface(ULONG id) {
  if (id == I_LOCKED) return static_cast<ILockedTrack*>(this);
  return StdControl::GetInterface(id);
}

template <typename Derived, typename V, ClassIndex kIndex>
void StaticControl<Derived, V, kIndex>::SetStaticValue(const V& v) {
  if (!GetLocked()) Store(v);
}

template <typename Derived, typename V, ClassIndex kIndex>
void StaticControl<Derived, V, kIndex>::Store(const V& v) {
  if (HoldWantsRecord(this))
    theHold.Put(new StaticValueRestore<Derived>(static_cast<Derived*>(this)));
  value_ = v;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

template <typename Derived, typename V, ClassIndex kIndex>
void StaticControl<Derived, V, kIndex>::ValueRestored() {
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

template <typename Derived, typename V, ClassIndex kIndex>
void StaticControl<Derived, V, kIndex>::GetValueLocalTime(TimeValue,
                                                          void* val,
                                                          Interval&,
                                                          GetSetMethod method) {
  if (!val) return;
  if (method == CTRL_ABSOLUTE) {
    *static_cast<V*>(val) = value_;
  } else {
    ApplyRelative(value_, val);
  }
}

template <typename Derived, typename V, ClassIndex kIndex>
void StaticControl<Derived, V, kIndex>::SetValueLocalTime(TimeValue,
                                                          void* val,
                                                          int,
                                                          GetSetMethod method) {
  if (GetLocked() || !val) return;
  Store(NextValue(value_, val, method));
}

template <typename Derived, typename V, ClassIndex kIndex>
void StaticControl<Derived, V, kIndex>::Copy(Control* from) {
  if (!from || from == this) return;
  if (from->SuperClassID() == SuperClassID()) {
    V v = IdentityOf<V>();
    Interval ignored = FOREVER;
    // A transform controller answers its world transform under the parent given: under the
    // identity that is its local transform.
    from->GetValue(0, &v, ignored, std::is_same_v<V, Matrix3> ? CTRL_RELATIVE : CTRL_ABSOLUTE);
    Store(v);
  }
  SetLocked(IsTrackLocked(from));
}

template <typename Derived, typename V, ClassIndex kIndex>
RefTargetHandle StaticControl<Derived, V, kIndex>::Clone(RemapDir& remap) {
  auto* c = new Derived;
  StaticControl* base = c;
  base->value_ = value_;
  base->locked_ = locked_;
  BaseClone(this, c, remap);
  return c;
}

template <typename Derived, typename V, ClassIndex kIndex>
IOResult StaticControl<Derived, V, kIndex>::Save(ISave* isave) {
  if (SaveChunk(isave, kValueChunk, value_) != IO_OK) return IO_ERROR;
  return SaveChunk(isave, kLockedChunk, std::uint8_t(locked_ ? 1 : 0));
}

template <typename Derived, typename V, ClassIndex kIndex>
IOResult StaticControl<Derived, V, kIndex>::Load(ILoad* iload) {
  V value = value_;
  std::uint8_t locked = locked_ ? 1 : 0;
  const IOResult res = ForEachChunk(iload, [&](USHORT id) {
    if (id == kValueChunk) return LoadRaw(iload, value);
    if (id == kLockedChunk) return LoadValue(iload, locked);
    return IO_OK;
  });
  if (res != IO_OK) return res;
  value_ = value;
  locked_ = locked != 0;
  return IO_OK;
}

template class StaticControl<StaticFloat, float, ClassIndex::StaticFloat>;
template class StaticControl<StaticPosition, Point3, ClassIndex::StaticPosition>;
template class StaticControl<StaticRotation, Quat, ClassIndex::StaticRotation>;
template class StaticControl<StaticScale, ScaleValue, ClassIndex::StaticScale>;
template class StaticControl<StaticTransform, Matrix3, ClassIndex::StaticTransform>;

// ---- StaticTransform ----

void StaticTransform::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  GetValueLocalTime(t, val, valid, method);
}

// ---- Descriptors ----

Animatable* StepFloatClassDesc::Create(bool) {
  LogLine("Marvolith: Step Float is not available in this build; no track was created.\n");
  return nullptr;
}

namespace {

// Descriptors, built at module load.
StaticFloatClassDesc static_float_cd;
StepFloatClassDesc step_float_cd;
StaticPositionClassDesc static_position_cd;
StaticRotationClassDesc static_rotation_cd;
StaticScaleClassDesc static_scale_cd;
StaticTransformClassDesc static_transform_cd;

}  // namespace

ClassDesc2* GetStaticFloatDesc() { return &static_float_cd; }
ClassDesc2* GetStepFloatDesc() { return &step_float_cd; }
ClassDesc2* GetStaticPositionDesc() { return &static_position_cd; }
ClassDesc2* GetStaticRotationDesc() { return &static_rotation_cd; }
ClassDesc2* GetStaticScaleDesc() { return &static_scale_cd; }
ClassDesc2* GetStaticTransformDesc() { return &static_transform_cd; }

}  // namespace marvolith
