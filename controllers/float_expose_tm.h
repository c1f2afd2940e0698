// Copyright Marvolith contributors.
// FloatExposeTM: a float track that reads one number off a node's transform (a position or
// Euler component, a scale length, a distance, a twist).
#pragma once

#include "controllers/block_std_control.h"

namespace marvolith {

/// Parameters of FloatExposeTM's block "params" (block id 0).
enum FloatExposeTMParam : ParamID {
  kExposeNode = 0,          ///< node read; a validator refuses loops
  kExposeLocalRefNode = 1,  ///< reference of Local space when use_parent is off
  kExposeUseParent = 2,     ///< bool, default true
  kExposeType = 3,          ///< 0 Position, 1 Rotation, 2 Scale, 3 Distance, 4 Quaternion
  kExposeAxis = 4,          ///< 0..2
  kExposeAxisOrder = 5,     ///< Euler order 0..8 for Rotation
  kExposeLocalWorld = 6,    ///< 0 Local, 1 World
  kExposeOffset = 7,        ///< animatable, added last
  kExposeWeight = 8,        ///< percent, animatable, default 1
};

/// What FloatExposeTM reads, its `type` parameter.
enum class ExposeType : int { Position, Rotation, Scale, Distance, Quaternion };

/// The float "Float Expose TM".
///
/// Value at t: M is `expose_node`'s transform in the chosen space (see NodeSpaceTM: with
/// `local_world` 0 relative to the parent, or `local_reference_node`, or nothing). By `type`:
/// Position, component `axis` of M's translation; Rotation, the Euler angle about `axis` (radians,
/// order `axis_order`, channels as the host's Euler controller) of orthogonalised M; Scale, the
/// length of row `axis`; Distance, the length of the translation; Quaternion, TwistAbout of M's
/// rotation about `axis`. The result is `weight` * value + `offset`. Without a node the value is
/// left as it is (absolute and relative alike). SetValue does nothing: there is no reverse path.
class FloatExposeTM : public BlockStdControl {
 public:
  /// loading true makes no block (the file links one).
  explicit FloatExposeTM(bool loading = false);

  MarvolithClassDesc* GetClassDesc() const override;
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void GetValueLocalTime(TimeValue t,
                         void* val,
                         Interval& valid,
                         GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValueLocalTime(TimeValue, void*, int = 1, GetSetMethod = CTRL_ABSOLUTE) override {}
  RefTargetHandle Clone(RemapDir& remap) override;
};

/// The class descriptor (module table index 5).
ClassDesc2* GetFloatExposeTMDesc();

}  // namespace marvolith
