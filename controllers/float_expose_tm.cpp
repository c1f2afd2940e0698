// Copyright Marvolith contributors.
#include "controllers/float_expose_tm.h"

#include "controllers/float_math.h"
#include "controllers/node_space.h"
#include "host/math/geometry.h"
#include "plugin/class_table.h"

namespace marvolith {
namespace {

class FloatExposeTMClassDesc : public MarvolithClassDesc {
 public:
  FloatExposeTMClassDesc() : MarvolithClassDesc(ClassIndex::FloatExposeTM) {}
  Animatable* Create(bool loading) override { return new FloatExposeTM(loading); }
};

FloatExposeTMClassDesc expose_cd;

ParamBlockDesc2 expose_pb(
    0,
    "params",
    0,
    &expose_cd,
    P_AUTO_CONSTRUCT,
    0,
    {
        ParamDef(kExposeNode, "expose_node", TYPE_INODE, 0)
            .Validator(&GetNodeLoopValidator())
            .Label("Expose Node"),
        ParamDef(kExposeLocalRefNode, "local_reference_node", TYPE_INODE, 0)
            .Validator(&GetNodeLoopValidator())
            .Label("Local Reference Node"),
        ParamDef(kExposeUseParent, "use_parent", TYPE_BOOL, 0).Default(true).Label("Use Parent"),
        ParamDef(kExposeType, "type", TYPE_INT, 0).Default(0).Range(0, 4).Label("Type"),
        ParamDef(kExposeAxis, "axis", TYPE_INT, 0).Default(0).Range(0, 2).Label("Axis"),
        ParamDef(kExposeAxisOrder, "axis_order", TYPE_INT, 0)
            .Default(0)
            .Range(0, 8)
            .Label("Axis Order"),
        ParamDef(kExposeLocalWorld, "local_world", TYPE_INT, 0)
            .Default(0)
            .Range(0, 1)
            .Label("Space"),
        ParamDef(kExposeOffset, "offset", TYPE_FLOAT, P_ANIMATABLE).Default(0.0f).Label("Offset"),
        ParamDef(kExposeWeight, "weight", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Label("Weight"),
    });

}  // namespace

ClassDesc2* GetFloatExposeTMDesc() { return &expose_cd; }

FloatExposeTM::FloatExposeTM(bool loading) {
  if (!loading) expose_cd.MakeAutoParamBlocks(this);
}

MarvolithClassDesc* FloatExposeTM::GetClassDesc() const { return &expose_cd; }

void FloatExposeTM::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val || !pblock_ || !pblock_->GetINode(kExposeNode)) return;  // no node: the value stays
  StdControl::GetValue(t, val, valid, method);
}

void FloatExposeTM::GetValueLocalTime(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  auto* out = static_cast<float*>(val);
  INode* node = pblock_ ? pblock_->GetINode(kExposeNode) : nullptr;
  if (!node) return;
  NodeSpace space;
  space.local = pblock_->GetInt(kExposeLocalWorld) == 0;
  space.use_parent = pblock_->GetInt(kExposeUseParent) != 0;
  space.local_reference = pblock_->GetINode(kExposeLocalRefNode);
  const Matrix3 m = NodeSpaceTM(node, t, space, valid);
  const int a = AxisOrZ(pblock_->GetInt(kExposeAxis));

  float value = 0.0f;
  switch (static_cast<ExposeType>(pblock_->GetInt(kExposeType))) {
    case ExposeType::Position:
      value = m.GetTrans()[a];
      break;
    case ExposeType::Rotation:
    case ExposeType::Quaternion: {
      Matrix3 rot = m;
      rot.Orthogonalize();
      const Quat q(rot);
      value = pblock_->GetInt(kExposeType) == static_cast<int>(ExposeType::Rotation)
                  ? EulerComponent(q, pblock_->GetInt(kExposeAxisOrder), a)
                  : TwistAbout(q, a);
      break;
    }
    case ExposeType::Scale:
      value = m.GetRow(a).Length();
      break;
    case ExposeType::Distance:
      value = m.GetTrans().Length();
      break;
  }
  float offset = 0.0f;
  float weight = 1.0f;
  pblock_->GetValue(kExposeOffset, t, offset, valid);
  pblock_->GetValue(kExposeWeight, t, weight, valid);
  *out = weight * value + offset;
}

RefTargetHandle FloatExposeTM::Clone(RemapDir& remap) {
  auto* c = new FloatExposeTM(true);
  CloneInto(c, remap);
  return c;
}

}  // namespace marvolith
