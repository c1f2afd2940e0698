// Copyright Marvolith contributors.
// The static controllers: one value of each kind (float, position, rotation, scale, transform)
// with no keys, for tracks that the rig drives from elsewhere and that must cost nothing.
#pragma once

#include "host/controllers/std_control.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/math/scale_value.h"
#include "plugin/class_table.h"

namespace marvolith {

/// The restore record of a static controller C: the value before and, once undone, after.
template <typename C>
class StaticValueRestore;

/// Base of the five static controllers: one value of type V, valid for all time, and the
/// locked flag. Derived is the class itself (for Clone), index its row in the class table, which
/// gives its Class_ID and super class.
///
/// GetValueLocalTime copies the value (absolute) or applies it to *val (relative: a float adds;
/// position, rotation and scale apply to a Matrix3 as PreTranslate, PreRotate and
/// ApplyScaleValue); validity is never narrowed. SetValueLocalTime stores a value of V
/// (absolute) or combines one into it (relative: a float or position adds, a rotation turns by
/// an AngAxis after the present one, a scale composes); commit and animate mode make no
/// difference, as there is no key to make. While locked, writes do nothing. Each change puts one
/// restore record per hold and tells dependents REFMSG_CHANGE over all time.
template <typename Derived, typename V, ClassIndex kIndex>
class StaticControl : public StdControl, public ILockedTrackImp {
 public:
  using ValueType = V;
  static constexpr ClassIndex kClassIndex = kIndex;

  /// The held value.
  const V& GetStaticValue() const { return value_; }
  /// Stores v as a SetValue would (undoable, tells dependents); nothing while locked.
  void SetStaticValue(const V& v);

  // Animatable.
  Class_ID ClassID() override { return GetClassInfo(kIndex).class_id; }
  SClass_ID SuperClassID() override { return GetClassInfo(kIndex).super_class; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  void* GetInterface(ULONG id) override;
  using StdControl::GetInterface;

  // Control.
  bool IsKeyable() override { return false; }
  /// Adopts the value of from at time 0 when it is of the same super class (for a transform
  /// controller: its transform under an identity parent), and its locked state.
  void Copy(Control* from) override;
  void GetValueLocalTime(TimeValue t,
                         void* val,
                         Interval& valid,
                         GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValueLocalTime(TimeValue t,
                         void* val,
                         int commit = 1,
                         GetSetMethod method = CTRL_ABSOLUTE) override;

  // References: a static controller holds none.
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  RefTargetHandle Clone(RemapDir& remap) override;
  /// Chunk 0: the raw value (4, 12, 16, 28 or 52 bytes); chunk 1: the locked flag (1 byte).
  IOResult Save(ISave* isave) override;
  /// Reads the chunks above and skips others; a chunk of a wrong size answers IO_ERROR and
  /// leaves the controller as it was.
  IOResult Load(ILoad* iload) override;

 protected:
  friend class StaticValueRestore<Derived>;
  /// Records the value for undo (once per hold), stores v and tells dependents.
  void Store(const V& v);
  /// After a restore: tells dependents.
  void ValueRestored();

  V value_{};
};

/// "Static Float": a float, default 0.
class StaticFloat final : public StaticControl<StaticFloat, float, ClassIndex::StaticFloat> {};

/// "Static Position": a Point3, default the origin.
class StaticPosition final
    : public StaticControl<StaticPosition, Point3, ClassIndex::StaticPosition> {};

/// "Static Rotation": a Quat, default the identity.
class StaticRotation final
    : public StaticControl<StaticRotation, Quat, ClassIndex::StaticRotation> {};

/// "Static Scale": a ScaleValue (factors and their axis system), default unit scale.
class StaticScale final : public StaticControl<StaticScale, ScaleValue, ClassIndex::StaticScale> {};

/// "Static Transform": the local transform (relative to the parent), default the identity.
///
/// GetValue: absolute copies the local transform into the Matrix3 at val; relative (how a node
/// evaluates it) makes val, the parent's transform, the world transform value * val.
/// SetValue takes a SetXFormPacket (tmParent the parent's world transform, tmAxis the axis
/// system of the command, both expected invertible; a singular one is inverted as Inverse does):
///   XFORM_MOVE   p, given in tmAxis, moves the node: value translates by p through
///                tmAxis * Inverse(tmParent) without its translation;
///   XFORM_ROTATE the node's world transform turns by q about tmAxis (about its own origin when
///                localOrigin is set);
///   XFORM_SCALE  the same with the scale factors p along the axes of tmAxis;
///   XFORM_SET    the world transform becomes tmAxis.
class StaticTransform final
    : public StaticControl<StaticTransform, Matrix3, ClassIndex::StaticTransform> {
 public:
  /// Evaluates at t without out-of-range mapping: a static transform has no range.
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
};

using StaticFloatRestore = StaticValueRestore<StaticFloat>;
using StaticPositionRestore = StaticValueRestore<StaticPosition>;
using StaticRotationRestore = StaticValueRestore<StaticRotation>;
using StaticScaleRestore = StaticValueRestore<StaticScale>;
using StaticTransformRestore = StaticValueRestore<StaticTransform>;

// Descriptors (identity and names from the class table).
class StaticFloatClassDesc : public MarvolithClassDesc {
 public:
  StaticFloatClassDesc() : MarvolithClassDesc(ClassIndex::StaticFloat) {}
  Animatable* Create(bool loading = false) override { return new StaticFloat; }
};
class StaticPositionClassDesc : public MarvolithClassDesc {
 public:
  StaticPositionClassDesc() : MarvolithClassDesc(ClassIndex::StaticPosition) {}
  Animatable* Create(bool loading = false) override { return new StaticPosition; }
};
class StaticRotationClassDesc : public MarvolithClassDesc {
 public:
  StaticRotationClassDesc() : MarvolithClassDesc(ClassIndex::StaticRotation) {}
  Animatable* Create(bool loading = false) override { return new StaticRotation; }
};
class StaticScaleClassDesc : public MarvolithClassDesc {
 public:
  StaticScaleClassDesc() : MarvolithClassDesc(ClassIndex::StaticScale) {}
  Animatable* Create(bool loading = false) override { return new StaticScale; }
};
class StaticTransformClassDesc : public MarvolithClassDesc {
 public:
  StaticTransformClassDesc() : MarvolithClassDesc(ClassIndex::StaticTransform) {}
  Animatable* Create(bool loading = false) override { return new StaticTransform; }
};

/// "Step Float" is registered in the class table but not built yet: its descriptor answers the
/// table's identity and names, and Create answers null (with a "Marvolith: " line to LogLine),
/// so a scene that holds one fails to load rather than loading something else.
class StepFloatClassDesc : public MarvolithClassDesc {
 public:
  StepFloatClassDesc() : MarvolithClassDesc(ClassIndex::StepFloat) {}
  Animatable* Create(bool loading = false) override;
};

/// The module's one descriptor of each class.
ClassDesc2* GetStaticFloatDesc();
ClassDesc2* GetStepFloatDesc();
ClassDesc2* GetStaticPositionDesc();
ClassDesc2* GetStaticRotationDesc();
ClassDesc2* GetStaticScaleDesc();
ClassDesc2* GetStaticTransformDesc();

}  // namespace marvolith
