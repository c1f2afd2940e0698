// Copyright Marvolith contributors.
#include "controllers/dummy_controls.h"

#include <cstdint>

#include "plugin/strings.h"
#include "support/chunk_helpers.h"

namespace marvolith {
namespace {

constexpr USHORT kOffsetChunk = 0x0001;
constexpr USHORT kControlChunk = 0x0002;
constexpr USHORT kQuatChunk = 0x0001;
constexpr USHORT kRelativeChunk = 0x0002;

// Descriptors, built at module load.
DummyFloatClassDesc dummy_float_cd;
DummyRotationClassDesc dummy_rotation_cd;

// Turns the back-patched pointer of a loaded DummyFloat into its handle once the file is linked.
class DummyFloatPostLoad : public PostLoadCallback {
 public:
  explicit DummyFloatPostLoad(AnimHandle owner) : owner_(owner) {}
  void proc(ILoad*) override {
    if (auto* d = dynamic_cast<DummyFloat*>(Animatable::GetAnimByHandle(owner_))) d->GetControl();
  }

 private:
  AnimHandle owner_;
};

}  // namespace

ClassDesc2* GetDummyFloatDesc() { return &dummy_float_cd; }
ClassDesc2* GetDummyRotationDesc() { return &dummy_rotation_cd; }

// ---------------------------------------------------------------------------------------------
// DummyFloat

Class_ID DummyFloat::ClassID() { return GetClassInfo(ClassIndex::DummyFloat).class_id; }

void DummyFloat::GetClassName(MSTR& s, bool) const { s = ClassNameOf(ClassIndex::DummyFloat); }

void DummyFloat::Set(Control* control, float offset) {
  control_ = GetHandleByAnim(control);
  loaded_ = nullptr;
  offset_ = offset;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

Control* DummyFloat::GetControl() const {
  auto* self = const_cast<DummyFloat*>(this);
  if (loaded_) {
    self->control_ = GetHandleByAnim(dynamic_cast<Control*>(loaded_));
    self->loaded_ = nullptr;
  }
  return dynamic_cast<Control*>(GetAnimByHandle(control_));
}

void DummyFloat::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val) return;
  auto* v = static_cast<float*>(val);
  if (Control* c = GetControl()) {
    c->GetValue(t, val, valid, method);
  } else if (method == CTRL_ABSOLUTE) {
    *v = 0.0f;
  }
  *v += offset_;
}

void DummyFloat::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  Control* c = GetControl();
  if (!val || !c) return;
  float v = *static_cast<const float*>(val);
  if (method == CTRL_ABSOLUTE) v -= offset_;  // the real track holds the value less the offset
  c->SetValue(t, &v, commit, method);
}

RefTargetHandle DummyFloat::Clone(RemapDir& remap) {
  auto* d = new DummyFloat;
  d->control_ = control_;
  d->loaded_ = loaded_;
  d->offset_ = offset_;
  BaseClone(this, d, remap);
  return d;
}

IOResult DummyFloat::Save(ISave* isave) {
  if (SaveChunk(isave, kOffsetChunk, offset_) != IO_OK) return IO_ERROR;
  const std::int32_t id = isave->GetRefID(dynamic_cast<ReferenceTarget*>(GetControl()));
  return SaveChunk(isave, kControlChunk, id);
}

IOResult DummyFloat::Load(ILoad* iload) {
  bool patched = false;
  const IOResult res = ForEachChunk(iload, [&](USHORT id) {
    if (id == kOffsetChunk) return LoadValue(iload, offset_);
    if (id == kControlChunk) {
      std::int32_t ref_id = -1;
      if (LoadValue(iload, ref_id) != IO_OK) return IO_ERROR;
      if (ref_id >= 0) {
        iload->RecordBackpatch(ref_id, reinterpret_cast<void**>(&loaded_));
        patched = true;
      }
    }
    return IO_OK;
  });
  if (res == IO_OK && patched) {
    iload->RegisterPostLoadCallback(new DummyFloatPostLoad(GetHandleByAnim(this)));
  }
  return res;
}

// ---------------------------------------------------------------------------------------------
// DummyRotation

Class_ID DummyRotation::ClassID() { return GetClassInfo(ClassIndex::DummyRotation).class_id; }

void DummyRotation::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::DummyRotation);
}

void DummyRotation::Set(const Quat& q, bool relative) {
  q_ = q;
  relative_ = relative;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void DummyRotation::GetValue(TimeValue, void* val, Interval&, GetSetMethod method) {
  if (!val) return;
  if (method == CTRL_ABSOLUTE) {
    *static_cast<Quat*>(val) = q_;
    return;
  }
  auto* m = static_cast<Matrix3*>(val);
  Matrix3 r;
  q_.MakeMatrix(r);
  *m = relative_ ? r * *m : r;
}

void DummyRotation::SetValue(TimeValue, void* val, int, GetSetMethod method) {
  if (!val) return;
  if (method == CTRL_ABSOLUTE) {
    q_ = Normalize(*static_cast<const Quat*>(val));
  } else {
    q_ = Normalize(q_ * Quat(*static_cast<const AngAxis*>(val)));
  }
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

RefTargetHandle DummyRotation::Clone(RemapDir& remap) {
  auto* d = new DummyRotation;
  d->q_ = q_;
  d->relative_ = relative_;
  BaseClone(this, d, remap);
  return d;
}

IOResult DummyRotation::Save(ISave* isave) {
  if (SaveChunk(isave, kQuatChunk, q_) != IO_OK) return IO_ERROR;
  const std::uint8_t relative = relative_ ? 1 : 0;
  return SaveChunk(isave, kRelativeChunk, relative);
}

IOResult DummyRotation::Load(ILoad* iload) {
  return ForEachChunk(iload, [&](USHORT id) {
    if (id == kQuatChunk) return LoadValue(iload, q_);
    if (id == kRelativeChunk) {
      std::uint8_t b = 0;
      const IOResult r = LoadValue(iload, b);
      relative_ = b != 0;
      return r;
    }
    return IO_OK;
  });
}

}  // namespace marvolith
