// Copyright Marvolith contributors.
// FloatOperation: a float track that combines two animatable operands, with the one reverse
// path of the float math tracks (setting the result solves for the first operand).
#pragma once

#include "controllers/block_std_control.h"

namespace marvolith {

/// Parameters of FloatOperation's block "params" (block id 0).
enum FloatOperationParam : ParamID {
  kOperationA = 0,         ///< animatable first operand
  kOperationB = 1,         ///< animatable second operand
  kOperationOp = 2,        ///< a FloatOp, 0..8
  kOperationNegative = 3,  ///< bool: negate the result
};

/// The float "Float Operation": FloatOperationValue(`operation`, `a`, `b`, `negative`) with a and
/// b read at t.
///
/// SetValue solves for `a` with `b` as it stands at t (FloatOperationSolveA) and writes it at t;
/// a relative value is added to the present result first. Nothing happens while locked or when
/// the solution is not finite. The write is the block's, so it is undoable and keys `a` in
/// animate mode.
class FloatOperation : public BlockStdControl {
 public:
  /// loading true makes no block (the file links one).
  explicit FloatOperation(bool loading = false);

  MarvolithClassDesc* GetClassDesc() const override;
  void GetValueLocalTime(TimeValue t,
                         void* val,
                         Interval& valid,
                         GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValueLocalTime(TimeValue t,
                         void* val,
                         int commit = 1,
                         GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;
};

/// The class descriptor (module table index 42).
ClassDesc2* GetFloatOperationDesc();

}  // namespace marvolith
