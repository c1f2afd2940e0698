// Copyright Marvolith contributors.
#include "controllers/float_operation.h"

#include "controllers/float_math.h"
#include "plugin/class_table.h"

namespace marvolith {
namespace {

class FloatOperationClassDesc : public MarvolithClassDesc {
 public:
  FloatOperationClassDesc() : MarvolithClassDesc(ClassIndex::FloatOperation) {}
  Animatable* Create(bool loading) override { return new FloatOperation(loading); }
};

FloatOperationClassDesc operation_cd;

ParamBlockDesc2 operation_pb(
    0,
    "params",
    0,
    &operation_cd,
    P_AUTO_CONSTRUCT,
    0,
    {
        ParamDef(kOperationA, "a", TYPE_FLOAT, P_ANIMATABLE).Default(0.0f).Label("A"),
        ParamDef(kOperationB, "b", TYPE_FLOAT, P_ANIMATABLE).Default(0.0f).Label("B"),
        ParamDef(kOperationOp, "operation", TYPE_INT, 0).Default(0).Range(0, 8).Label("Operation"),
        ParamDef(kOperationNegative, "negative", TYPE_BOOL, 0).Default(false).Label("Negative"),
    });

}  // namespace

ClassDesc2* GetFloatOperationDesc() { return &operation_cd; }

FloatOperation::FloatOperation(bool loading) {
  if (!loading) operation_cd.MakeAutoParamBlocks(this);
}

MarvolithClassDesc* FloatOperation::GetClassDesc() const { return &operation_cd; }

void FloatOperation::GetValueLocalTime(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  auto* out = static_cast<float*>(val);
  if (!pblock_) {
    *out = 0.0f;
    return;
  }
  float a = 0.0f;
  float b = 0.0f;
  pblock_->GetValue(kOperationA, t, a, valid);
  pblock_->GetValue(kOperationB, t, b, valid);
  *out = FloatOperationValue(pblock_->GetInt(kOperationOp), a, b,
                             pblock_->GetInt(kOperationNegative) != 0);
}

void FloatOperation::SetValueLocalTime(TimeValue t, void* val, int, GetSetMethod method) {
  if (GetLocked() || !val || !pblock_) return;
  float v = *static_cast<const float*>(val);
  if (method == CTRL_RELATIVE) {
    Interval ignored = FOREVER;
    float present = 0.0f;
    GetValueLocalTime(t, &present, ignored);
    v += present;
  }
  float a = 0.0f;
  if (!FloatOperationSolveA(pblock_->GetInt(kOperationOp), v, pblock_->GetFloat(kOperationB, t),
                            pblock_->GetInt(kOperationNegative) != 0, a)) {
    return;
  }
  pblock_->SetValue(kOperationA, t, a);
}

RefTargetHandle FloatOperation::Clone(RemapDir& remap) {
  auto* c = new FloatOperation(true);
  CloneInto(c, remap);
  return c;
}

}  // namespace marvolith
