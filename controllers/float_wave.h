// Copyright Marvolith contributors.
// FloatWave: a float track that turns an animatable phase into a periodic wave.
#pragma once

#include "controllers/block_std_control.h"

namespace marvolith {

/// Parameters of FloatWave's block "params" (block id 0).
enum FloatWaveParam : ParamID {
  kWaveAmplitude = 0,  ///< animatable, default 100
  kWaveLength = 1,     ///< animatable, default 100: a period in units of phase
  kWaveOffset = 2,     ///< animatable, added last
  kWavePhase = 3,      ///< animatable: the driving value
  kWaveType = 4,       ///< a WaveType, 0..3
  kWaveAlignment = 5,  ///< a WaveAlignment, 0..2
};

/// The float "Float Wave": WaveValue of the parameters read at t. The time itself plays no part:
/// the wave moves only when `phase` is keyed or wired. SetValue does nothing.
class FloatWave : public BlockStdControl {
 public:
  /// loading true makes no block (the file links one).
  explicit FloatWave(bool loading = false);

  MarvolithClassDesc* GetClassDesc() const override;
  void GetValueLocalTime(TimeValue t,
                         void* val,
                         Interval& valid,
                         GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValueLocalTime(TimeValue, void*, int = 1, GetSetMethod = CTRL_ABSOLUTE) override {}
  RefTargetHandle Clone(RemapDir& remap) override;
};

/// The class descriptor (module table index 43).
ClassDesc2* GetFloatWaveDesc();

}  // namespace marvolith
