// Copyright Marvolith contributors.
// StretchConstraint: a transform controller that places its node at a start, aims it at an end
// and scales it to span the distance, with volume control; its published interface.
#pragma once

#include "constraints/block_constraint.h"
#include "host/script/fp_interface.h"

namespace marvolith {

/// Id of the published interface "StretchConstraint"; the same pair as the class's Class_ID.
inline constexpr Interface_ID ISTRETCHCONSTRAINT_ID(0x45596d56, 0x1e847b40);

/// Parameters of StretchConstraint's block "params" (block id 0, reference 0).
enum StretchConstraintParam : ParamID {
  kStretchStart = 0,               ///< node the frame starts at; a validator refuses loops
  kStretchUseStart = 1,            ///< bool, default true
  kStretchEnd = 2,                 ///< node aimed and stretched at; a validator refuses loops
  kStretchUseEnd = 3,              ///< bool, default true
  kStretchAimAxis = 4,             ///< 0..2
  kStretchAimAxisFlip = 5,         ///< bool
  kStretchAlignAxis = 6,           ///< 0..2, "Up Axis"
  kStretchAlignAxisFlip = 7,       ///< bool
  kStretchAlign = 8,               ///< frame: 0 world, 1 parent, 2 start (default), 3 end
  kStretchInheritScale = 9,        ///< scale source: 0 none, 1 parent, 2 start (default), 3 end
  kStretchScaleActive = 10,        ///< bool `stretch_scale_active`, default true
  kStretchStretch = 11,            ///< fraction, animatable, default 1: exponent on the aim axis
  kStretchSquash = 12,             ///< fraction, animatable, default 1: exponent on the others
  kStretchLength = 13,             ///< world units, animatable, default 20: rest length
  kStretchViewlineLength = 14,     ///< float, default 100
  kStretchViewlineLengthAbs = 15,  ///< bool, default true
};
inline constexpr BlockID kStretchConstraintParams = 0;

/// Function ids of the interface "StretchConstraint".
enum StretchConstraintFunction : FunctionID { kStretchResetLength = 0 };

/// The published interface of StretchConstraint.
class IStretchConstraint : public FPMixinInterface {
 public:
  FPInterfaceDesc* GetDesc() override;
  /// Makes the distance measured at the current time the rest length (`length` at that time),
  /// so the node takes factors 1 there. Only with stretching on, an active end and the track
  /// not locked. Undoable ("Reset Length"), in a hold of its own or the running one.
  virtual void ResetLength() = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// The transform controller "Stretch Constraint" (super class CTRL_MATRIX3_CLASS_ID).
///
/// GetValue: the parent matrix (CTRL_RELATIVE; the identity otherwise) is kept, the node
/// transforms of `start` (when use_start) and `end` are read, and StretchFrame gives the result,
/// which replaces the incoming matrix whatever the method. The distance measured is kept as
/// CurrentLength. valid narrows by the parameters and nodes read. Allocates nothing.
///
/// Display draws, with an active end, a line from the node's pivot along its aim axis of
/// `viewline_length`, times the distance to the end when `viewline_length_abs` is off.
class StretchConstraint : public BlockConstraint, public IStretchConstraint {
 public:
  /// loading true makes no block (the file links one).
  explicit StretchConstraint(bool loading = false);

  MarvolithClassDesc* GetClassDesc() const override;
  BaseInterface* GetInterface(Interface_ID id) override;
  using BlockConstraint::GetInterface;

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;
  RefTargetHandle Clone(RemapDir& remap) override;

  void ResetLength() override;

  /// The distance of the last evaluation that measured one (0 before any).
  float CurrentLength() const { return current_length_; }
  /// The parent matrix of the last evaluation.
  const Matrix3& KeptParent() const { return parent_ws_; }

 private:
  Matrix3 parent_ws_;
  float current_length_ = 0.0f;
  bool measured_ = false;
};

/// The class descriptor (module table index 3).
ClassDesc2* GetStretchConstraintDesc();

}  // namespace marvolith
