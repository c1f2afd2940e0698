// Copyright Marvolith contributors.
#include "controls/control_shape.h"

#include "controls/figure_builders.h"
#include "host/gfx/view_exp.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"

namespace marvolith {
namespace {

// The class's static tables, built at module load in this order: descriptor, block, interface.
ControlShapeClassDesc control_shape_cd;
ParamBlockDesc2 control_shape_pb{kControlParams,
                                 "params",
                                 0,
                                 &control_shape_cd,
                                 P_AUTO_CONSTRUCT,
                                 0,
                                 ControlParamDefs(/*with_scale=*/true)};
FPInterfaceDesc control_shape_fp{
    ICONTROLHELPER_SHAPE_ID,   "IControlHelper",    FP_MIXIN, &control_shape_cd, {},
    ControlHelperProperties(), ControlHelperEnums()};

/// The time mark both ends of an invalid shape interval are set to.
constexpr TimeValue kInvalidShapeTime = static_cast<TimeValue>(0x80000000u);

}  // namespace

ClassDesc2* GetControlShapeDesc() { return &control_shape_cd; }

ControlShape::ControlShape(bool loading) {
  InvalidateShape();
  if (!loading) control_shape_cd.MakeAutoParamBlocks(this);
}

void ControlShape::GetClassName(MSTR& s, bool) const { s = ClassNameOf(ClassIndex::ControlShape); }

FPInterfaceDesc* ControlShape::GetDesc() { return &control_shape_fp; }

void ControlShape::InvalidateShape() { shape_valid_.Set(kInvalidShapeTime, kInvalidShapeTime); }

void ControlShape::UpdateShape(TimeValue t) {
  if (shape_valid_.InInterval(t)) return;
  Interval valid = FOREVER;
  FigureInput in = ReadFigure(t, valid);
  const Matrix3 to_object = FigureToObject(t);
  // The offset line starts at the object's origin, before gizmo and axis.
  in.pivot = Point3(0, 0, 0) * Inverse(to_object);
  BuildFigureShape(in, shape_);
  shape_.Transform(to_object);

  points_.clear();
  line_ends_.clear();
  line_closed_.clear();
  std::vector<Point3> line;
  for (int i = 0; i < shape_.SplineCount(); ++i) {
    const Spline3D* s = shape_.GetSpline(i);
    line.clear();
    s->Polyline(shape_.steps, line);
    // A closed spline's polyline ends on its first point again: the window closes it instead.
    if (s->Closed() && line.size() > 1) line.pop_back();
    points_.insert(points_.end(), line.begin(), line.end());
    line_ends_.push_back(static_cast<int>(points_.size()));
    line_closed_.push_back(s->Closed());
  }
  shape_valid_ = valid;
}

const BezierShape& ControlShape::GetShape(TimeValue t) {
  UpdateShape(t);
  return shape_;
}

Interval ControlShape::ObjectValidity(TimeValue t) {
  UpdateShape(t);
  return shape_valid_;
}

ObjectState ControlShape::Eval(TimeValue t) {
  ObjectState os(this);
  os.NarrowObValid(ObjectValidity(t));
  return os;
}

int ControlShape::NumberOfCurves() { return GetShape(GetCOREInterface()->GetTime()).SplineCount(); }

bool ControlShape::CurveClosed(TimeValue t, int curve) {
  const Spline3D* s = GetShape(t).GetSpline(curve);
  return s && s->Closed();
}

Point3 ControlShape::InterpCurve3D(TimeValue t, int curve, float param) {
  const Spline3D* s = GetShape(t).GetSpline(curve);
  return s ? s->InterpCurve3D(param, PARAM_NORMALIZED) : Point3();
}

Point3 ControlShape::TangentCurve3D(TimeValue t, int curve, float param) {
  const Spline3D* s = GetShape(t).GetSpline(curve);
  return s ? s->TangentCurve3D(param, PARAM_NORMALIZED) : Point3();
}

float ControlShape::LengthOfCurve(TimeValue t, int curve) {
  const Spline3D* s = GetShape(t).GetSpline(curve);
  return s ? s->SplineLength() : 0.0f;
}

int ControlShape::Display(TimeValue t, INode* inode, ViewExp* vpt, int) {
  if (!ParamBlock() || !vpt) return 0;
  UpdateShape(t);
  GraphicsWindow* gw = vpt->getGW();
  gw->setTransform(inode ? inode->GetObjectTM(t) : Matrix3());
  if (inode) gw->setColor(LINE_COLOR, NodeWireColor(inode));
  int begin = 0;
  for (size_t i = 0; i < line_ends_.size(); ++i) {
    const int end = line_ends_[i];
    gw->polyline(end - begin, points_.data() + begin, nullptr, line_closed_[i] ? 1 : 0, nullptr);
    begin = end;
  }
  return 0;
}

void ControlShape::GetLocalBoundBox(TimeValue t, INode*, ViewExp*, Box3& box) {
  box = GetShape(t).GetBoundingBox();
  if (box.IsEmpty()) box += Point3(0, 0, 0);
}

void ControlShape::GetWorldBoundBox(TimeValue t, INode* inode, ViewExp*, Box3& box) {
  const Matrix3 tm = inode ? inode->GetObjectTM(t) : Matrix3();
  box = GetShape(t).GetBoundingBox(&tm);
  if (box.IsEmpty()) box += tm.GetTrans();
}

void ControlShape::GetDeformBBox(TimeValue t, Box3& box, const Matrix3* tm) {
  box = GetShape(t).GetBoundingBox(tm);
  if (box.IsEmpty()) box += tm ? tm->GetTrans() : Point3(0, 0, 0);
}

RefTargetHandle ControlShape::Clone(RemapDir& remap) {
  auto* clone = new ControlShape(true);
  clone->ReplaceReference(0, remap.CloneRef(ParamBlock()));
  CopySelectionTo(*clone);
  BaseClone(this, clone, remap);
  return clone;
}

}  // namespace marvolith
