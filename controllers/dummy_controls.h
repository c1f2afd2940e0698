// Copyright Marvolith contributors.
// DummyFloat and DummyRotation: the stand-ins of the gimbal proxy, which show a rig control's
// rotation to the host's gimbal gizmo and pass the gizmo's writes on to the real tracks.
#pragma once

#include "host/core/control.h"
#include "host/io/chunk_io.h"
#include "plugin/class_table.h"

namespace marvolith {

/// A float track that stands for another one ("Dummy Float", CTRL_FLOAT_CLASS_ID): it reads the
/// real track plus an offset, and writes absolute values less the offset (relative ones as
/// they are). The real track is observed by handle, not referenced: without it (none set, or
/// deleted) the value is the offset alone and writes go nowhere.
///
/// Chunks: 0x0001 the offset (float), 0x0002 the real track's scene number (int32, -1 none).
class DummyFloat : public Control {
 public:
  DummyFloat() = default;

  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_FLOAT_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;

  /// Points the stand-in at control (null clears) with offset added to its value (radians for an
  /// angle track).
  void Set(Control* control, float offset);
  Control* GetControl() const;
  float GetOffset() const { return offset_; }

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  bool IsReplaceable() override { return false; }
  bool CanCopyAnim() override { return false; }

  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  RefTargetHandle Clone(RemapDir& remap) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

 private:
  AnimHandle control_ = 0;
  float offset_ = 0.0f;
  ReferenceTarget* loaded_ = nullptr;  // back-patched by a scene load, taken over on first use
};

/// A fixed rotation ("Dummy Rotation", CTRL_ROTATION_CLASS_ID): the frame the gimbal proxy's
/// Euler item turns in. Absolute GetValue answers the rotation; relative GetValue answers
/// Matrix(q) * val while `relative` is set, and Matrix(q) alone (replacing val) while it is
/// clear. SetValue stores an absolute Quat or turns by a relative AngAxis.
///
/// Chunks: 0x0001 the rotation (16 bytes), 0x0002 the relative flag (1 byte).
class DummyRotation : public Control {
 public:
  DummyRotation() = default;

  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_ROTATION_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;

  void Set(const Quat& q, bool relative);
  const Quat& GetQuat() const { return q_; }
  bool IsRelative() const { return relative_; }

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  bool IsReplaceable() override { return false; }
  bool CanCopyAnim() override { return false; }

  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  RefTargetHandle Clone(RemapDir& remap) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

 private:
  Quat q_;
  bool relative_ = false;
};

class DummyFloatClassDesc : public MarvolithClassDesc {
 public:
  DummyFloatClassDesc() : MarvolithClassDesc(ClassIndex::DummyFloat) {}
  Animatable* Create(bool loading = false) override { return new DummyFloat; }
};
class DummyRotationClassDesc : public MarvolithClassDesc {
 public:
  DummyRotationClassDesc() : MarvolithClassDesc(ClassIndex::DummyRotation) {}
  Animatable* Create(bool loading = false) override { return new DummyRotation; }
};
ClassDesc2* GetDummyFloatDesc();
ClassDesc2* GetDummyRotationDesc();

}  // namespace marvolith
