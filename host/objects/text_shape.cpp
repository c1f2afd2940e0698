// Copyright Marvolith contributors.
#include "host/objects/text_shape.h"

#include "host/objects/shape_display.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"

namespace {

class TextShapeClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return true; }
  Animatable* Create(bool loading) override { return new TextShape(loading); }
  const char* ClassName() override { return "Text"; }
  const char* InternalName() override { return "Text"; }
  SClass_ID SuperClassID() override { return SHAPE_CLASS_ID; }
  Class_ID ClassID() override { return TEXT_CLASS_ID; }
  const char* Category() override { return "Splines"; }
};

TextShapeClassDesc text_cd;

ParamBlockDesc2 text_pb(
    kTextShapeParams,
    "text_params",
    0,
    &text_cd,
    P_AUTO_CONSTRUCT,
    0,
    {
        ParamDef(text_text, "text", TYPE_STRING, 0).Default("MAX Text").Label("Text"),
        ParamDef(text_font, "font", TYPE_STRING, 0).Default("Arial").Label("Font"),
        ParamDef(text_size, "size", TYPE_WORLD, P_ANIMATABLE)
            .Default(100.0f)
            .Range(0.0, 1e30)
            .Label("Size"),
        ParamDef(text_kerning, "kerning", TYPE_WORLD, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-1e30, 1e30)
            .Label("Kerning"),
        ParamDef(text_leading, "leading", TYPE_WORLD, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-1e30, 1e30)
            .Label("Leading"),
    });

}  // namespace

ClassDesc2* GetTextShapeDesc() { return &text_cd; }

TextShape::TextShape(bool loading) {
  if (!loading) text_cd.MakeAutoParamBlocks(this);
}

MSTR TextShape::SubAnimName(int i, bool localized) { return i == 0 ? MSTR("Parameters") : MSTR(); }

IParamBlock2* TextShape::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

void TextShape::SetReference(int i, RefTargetHandle target) {
  if (i != 0) return;
  pblock_ = static_cast<IParamBlock2*>(target);
  shape_valid_ = NEVER;
}

RefResult TextShape::NotifyRefChanged(const Interval& change_int,
                                      RefTargetHandle target,
                                      PartID& part_id,
                                      RefMessage message,
                                      bool propagate) {
  if (message == REFMSG_CHANGE && target == pblock_) shape_valid_ = NEVER;
  return REF_SUCCEED;
}

const char* TextShape::GetText() { return pblock_ ? pblock_->GetStr(text_text) : ""; }

void TextShape::SetText(const MSTR& text) {
  if (pblock_) pblock_->SetValue(text_text, 0, text);
}

StrokeTextLayout TextShape::GetLayout(TimeValue t, Interval& valid) {
  StrokeTextLayout layout;
  if (!pblock_) return layout;
  pblock_->GetValue(text_size, t, layout.size, valid);
  pblock_->GetValue(text_kerning, t, layout.kerning, valid);
  pblock_->GetValue(text_leading, t, layout.leading, valid);
  return layout;
}

const BezierShape& TextShape::GetShape(TimeValue t) {
  if (!shape_valid_.InInterval(t)) {
    Interval valid = FOREVER;
    const StrokeTextLayout layout = GetLayout(t, valid);
    shape_.NewShape();
    BuildStrokeText(GetText(), layout, shape_);
    shape_valid_ = valid;
  }
  return shape_;
}

const Spline3D* TextShape::Curve(TimeValue t, int curve) { return GetShape(t).GetSpline(curve); }

Interval TextShape::ObjectValidity(TimeValue t) {
  Interval valid = FOREVER;
  GetLayout(t, valid);
  return valid;
}

ObjectState TextShape::Eval(TimeValue t) {
  ObjectState os(this);
  os.NarrowObValid(ObjectValidity(t));
  return os;
}

int TextShape::Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) {
  // The stroke font's knots are corners joined by straight lines.
  DisplayBezierShape(GetShape(t), 0, t, inode, vpt, display_points_);
  return 0;
}

void TextShape::GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  box = GetShape(t).GetBoundingBox();
}

void TextShape::GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  if (!inode) {
    GetLocalBoundBox(t, inode, vpt, box);
    return;
  }
  const Matrix3 tm = inode->GetObjectTM(t);
  box = GetShape(t).GetBoundingBox(&tm);
}

int TextShape::NumberOfCurves() {
  // The number of strokes does not depend on time: any time's outline answers it.
  const TimeValue t = shape_valid_.Empty() ? 0 : shape_valid_.Start();
  return GetShape(t).SplineCount();
}

bool TextShape::CurveClosed(TimeValue t, int curve) {
  const Spline3D* s = Curve(t, curve);
  return s && s->Closed();
}

Point3 TextShape::InterpCurve3D(TimeValue t, int curve, float param) {
  const Spline3D* s = Curve(t, curve);
  return s ? s->InterpCurve3D(param, PARAM_NORMALIZED) : Point3();
}

Point3 TextShape::TangentCurve3D(TimeValue t, int curve, float param) {
  const Spline3D* s = Curve(t, curve);
  return s ? s->TangentCurve3D(param, PARAM_NORMALIZED) : Point3();
}

float TextShape::LengthOfCurve(TimeValue t, int curve) {
  const Spline3D* s = Curve(t, curve);
  return s ? s->SplineLength() : 0.0f;
}

RefTargetHandle TextShape::Clone(RemapDir& remap) {
  auto* clone = new TextShape(true);
  clone->ReplaceReference(0, remap.CloneRef(pblock_));
  BaseClone(this, clone, remap);
  return clone;
}
