// Copyright Marvolith contributors.
// Controllers of three float channels: Euler XYZ rotation, position XYZ and scale XYZ.
#pragma once

#include "host/controllers/control_interfaces.h"
#include "host/io/chunk_io.h"
#include "support/compound_control.h"

class ClassDesc2;

/// Three float sub-controllers in references and sub-anims 0, 1, 2 (X, Y, Z), each assignable to
/// any float controller. A missing channel reads 0 and is skipped when set. Saves its locked
/// flag (chunk kLockChunkID) and, for Euler XYZ, its order (chunk 0x0100, int32 0..8); the channels
/// are references, saved by the scene.
class FloatTripleControl : public CompoundControl {
 public:
  /// Undo state of the controller itself (the channels record their own).
  struct State {
    bool locked = false;
    int order = 0;
  };
  State GetState() const { return {locked_, order_}; }
  void SetState(const State& s);
  void StateRestored();

  int NumSubs() override { return 3; }
  Animatable* SubAnim(int i) override { return i >= 0 && i < 3 ? sub_[i] : nullptr; }
  MSTR SubAnimName(int i, bool localized = true) override;
  bool CanAssignController(int i) override { return i >= 0 && i < 3; }
  /// Replaces channel i by a float controller, which adopts the channel's value (Copy); anything
  /// else is refused.
  bool AssignController(Animatable* control, int i) override;
  int SubNumToRefNum(int i) override { return i >= 0 && i < 3 ? i : -1; }
  int NumRefs() override { return 3; }
  RefTargetHandle GetReference(int i) override;
  Control* GetXController() override { return sub_[0]; }
  Control* GetYController() override { return sub_[1]; }
  Control* GetZController() override { return sub_[2]; }

  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  IOResult Save(ISave* isave) override;
  /// Reads the locked flag (and order); a damaged chunk or an order outside 0..8 answers
  /// IO_ERROR and changes nothing.
  IOResult Load(ILoad* iload) override;

 protected:
  /// With loading false, each channel gets NewDefaultFloatController().
  explicit FloatTripleControl(bool loading);
  void SetReference(int i, RefTargetHandle target) override;
  int NumKeySubs() override { return 3; }
  Control* KeySub(int i) override { return i >= 0 && i < 3 ? sub_[i] : nullptr; }
  void HoldState() override;
  virtual const char* ChannelName(int i) = 0;

  /// Channel i at t (0 when missing), narrowing valid.
  float Channel(int i, TimeValue t, Interval& valid);
  /// Sets channel i absolute at t; a missing channel is skipped.
  void SetChannel(int i, TimeValue t, float v, int commit);
  /// Completes a clone: channels through remap, order and locked flag.
  void CloneInto(FloatTripleControl* clone, RemapDir& remap);
  /// Copy from another controller of the same class shares its channels; true when done.
  bool CopyChannels(Control* from);

  int order_ = 0;
  bool saves_order_ = false;

 private:
  Control* sub_[3] = {nullptr, nullptr, nullptr};
};

/// The host's Euler XYZ rotation (Class_ID(0x2012, 0), CTRL_ROTATION_CLASS_ID): three angle
/// channels in radians, "X Rotation", "Y Rotation", "Z Rotation". For the Tait-Bryan orders
/// channel a holds the angle about axis a; for the repeated-axis orders the first two steps use
/// their axis's channel and the third step the channel left over (Z for XYX, X for YZY, Y for
/// ZXZ). GetValue builds the rotation of the order from the three angles. SetValue of a Quat
/// (absolute) or an AngAxis (relative, applied after the present rotation, in steps of at most
/// 3/4 of pi) writes the angles nearest the present ones (ContinuousQuatToEuler), so keyed
/// angles stay continuous.
class EulerXYZControl : public FloatTripleControl, public IEulerControl {
 public:
  explicit EulerXYZControl(bool loading = false);

  Class_ID ClassID() override { return Class_ID(0x2012, 0); }
  SClass_ID SuperClassID() override { return CTRL_ROTATION_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "Euler XYZ"; }
  void* GetInterface(ULONG id) override;
  using FloatTripleControl::GetInterface;
  /// The three angle tracks read in degrees.
  ParamDimension* GetParamDimension(int i) override {
    return i >= 0 && i < 3 ? stdAngleDim : defaultDim;
  }

  int GetOrder() override { return order_; }
  /// Undoable; tells dependents REFMSG_CHANGE and REFMSG_SUBANIM_STRUCTURE_CHANGED.
  void SetOrder(int order) override;

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  /// Another Euler XYZ: shares its channels and takes its order; any other rotation: its value
  /// at the current time, written into the channels.
  void Copy(Control* from) override;
  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  const char* ChannelName(int i) override;
};

/// The host's position XYZ (Class_ID(0x118F7E02, 0xFFEE238A), CTRL_POSITION_CLASS_ID):
/// channels "X Position", "Y Position", "Z Position".
class PositionXYZControl : public FloatTripleControl {
 public:
  explicit PositionXYZControl(bool loading = false);

  Class_ID ClassID() override { return Class_ID(0x118F7E02, 0xFFEE238A); }
  SClass_ID SuperClassID() override { return CTRL_POSITION_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "Position XYZ"; }

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void Copy(Control* from) override;
  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  const char* ChannelName(int i) override;
};

/// The host's scale XYZ (Class_ID(0x118F7C01, 0xFEEE238B), CTRL_SCALE_CLASS_ID): channels
/// "X Scale", "Y Scale", "Z Scale", starting at 1. The value's axis system is always the
/// identity; an absolute SetValue keeps only the factors of its ScaleValue.
class ScaleXYZControl : public FloatTripleControl {
 public:
  explicit ScaleXYZControl(bool loading = false);

  Class_ID ClassID() override { return Class_ID(0x118F7C01, 0xFEEE238B); }
  SClass_ID SuperClassID() override { return CTRL_SCALE_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "Scale XYZ"; }

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void Copy(Control* from) override;
  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  const char* ChannelName(int i) override;
};

ClassDesc2* EulerXYZClassDesc();
ClassDesc2* PositionXYZClassDesc();
ClassDesc2* ScaleXYZClassDesc();
