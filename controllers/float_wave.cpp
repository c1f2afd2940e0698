// Copyright Marvolith contributors.
#include "controllers/float_wave.h"

#include "controllers/float_math.h"
#include "plugin/class_table.h"

namespace marvolith {
namespace {

class FloatWaveClassDesc : public MarvolithClassDesc {
 public:
  FloatWaveClassDesc() : MarvolithClassDesc(ClassIndex::FloatWave) {}
  Animatable* Create(bool loading) override { return new FloatWave(loading); }
};

FloatWaveClassDesc wave_cd;

ParamBlockDesc2 wave_pb(
    0,
    "params",
    0,
    &wave_cd,
    P_AUTO_CONSTRUCT,
    0,
    {
        ParamDef(kWaveAmplitude, "amplitude", TYPE_FLOAT, P_ANIMATABLE)
            .Default(100.0f)
            .Label("Amplitude"),
        ParamDef(kWaveLength, "wave_length", TYPE_FLOAT, P_ANIMATABLE)
            .Default(100.0f)
            .Label("Wave Length"),
        ParamDef(kWaveOffset, "offset", TYPE_FLOAT, P_ANIMATABLE).Default(0.0f).Label("Offset"),
        ParamDef(kWavePhase, "phase", TYPE_FLOAT, P_ANIMATABLE).Default(0.0f).Label("Phase"),
        ParamDef(kWaveType, "type", TYPE_INT, 0).Default(0).Range(0, 3).Label("Type"),
        ParamDef(kWaveAlignment, "alignment", TYPE_INT, 0)
            .Default(0)
            .Range(0, 2)
            .Label("Alignment"),
    });

}  // namespace

ClassDesc2* GetFloatWaveDesc() { return &wave_cd; }

FloatWave::FloatWave(bool loading) {
  if (!loading) wave_cd.MakeAutoParamBlocks(this);
}

MarvolithClassDesc* FloatWave::GetClassDesc() const { return &wave_cd; }

void FloatWave::GetValueLocalTime(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  WaveInput in;
  if (pblock_) {
    pblock_->GetValue(kWaveAmplitude, t, in.amplitude, valid);
    pblock_->GetValue(kWaveLength, t, in.wave_length, valid);
    pblock_->GetValue(kWaveOffset, t, in.offset, valid);
    pblock_->GetValue(kWavePhase, t, in.phase, valid);
    in.type = pblock_->GetInt(kWaveType);
    in.alignment = pblock_->GetInt(kWaveAlignment);
  }
  *static_cast<float*>(val) = WaveValue(in);
}

RefTargetHandle FloatWave::Clone(RemapDir& remap) {
  auto* c = new FloatWave(true);
  CloneInto(c, remap);
  return c;
}

}  // namespace marvolith
