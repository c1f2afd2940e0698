// Copyright Marvolith contributors.
#include "host/objects/spline_shape.h"

#include "host/objects/shape_display.h"
#include "host/registry/class_desc.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "support/hold_record.h"

namespace {

class SplineShapeClassDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return false; }
  Animatable* Create(bool loading) override { return new SplineShape; }
  const char* ClassName() override { return "SplineShape"; }
  const char* InternalName() override { return "SplineShape"; }
  SClass_ID SuperClassID() override { return SHAPE_CLASS_ID; }
  Class_ID ClassID() override { return SPLINESHAPE_CLASSID; }
  const char* Category() override { return "Splines"; }
};

SplineShapeClassDesc spline_shape_cd;

}  // namespace

// The whole shape before the first change of a hold, and after it, captured at undo.
class SplineShapeRestore : public RestoreObj {
 public:
  explicit SplineShapeRestore(SplineShape* obj)
      : handle_(Animatable::GetHandleByAnim(obj)), before_(obj->shape_) {}
  void Restore(int is_undo) override {
    SplineShape* obj = Find();
    if (!obj) return;
    if (is_undo) after_ = obj->shape_;
    obj->shape_ = before_;
    obj->ShapeChanged();
  }
  void Redo() override {
    if (SplineShape* obj = Find()) {
      obj->shape_ = after_;
      obj->ShapeChanged();
    }
  }
  void EndHold() override {
    if (SplineShape* obj = Find()) obj->ClearAFlag(A_HELD);
  }
  int Size() override { return static_cast<int>(sizeof(*this)); }
  MSTR Description() override { return "Spline shape"; }

 private:
  SplineShape* Find() const {
    return dynamic_cast<SplineShape*>(Animatable::FindAnimIncludingDeleted(handle_));
  }
  AnimHandle handle_;
  BezierShape before_;
  BezierShape after_;
};

ClassDesc2* GetSplineShapeDesc() { return &spline_shape_cd; }

void SplineShape::RecordShape() {
  if (HoldWantsRecord(this)) theHold.Put(new SplineShapeRestore(this));
}

void SplineShape::ShapeChanged() {
  NotifyDependents(FOREVER, PART_GEOM | PART_TOPO, REFMSG_CHANGE);
}

void SplineShape::SetShape(const BezierShape& shape) {
  RecordShape();
  shape_ = shape;
  ShapeChanged();
}

int SplineShape::Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) {
  DisplayBezierShape(shape_, shape_.steps, t, inode, vpt, display_points_);
  return 0;
}

void SplineShape::GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  box = shape_.GetBoundingBox();
}

void SplineShape::GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) {
  if (!inode) {
    box = shape_.GetBoundingBox();
    return;
  }
  const Matrix3 tm = inode->GetObjectTM(t);
  box = shape_.GetBoundingBox(&tm);
}

bool SplineShape::CurveClosed(TimeValue t, int curve) {
  const Spline3D* s = shape_.GetSpline(curve);
  return s && s->Closed();
}

Point3 SplineShape::InterpCurve3D(TimeValue t, int curve, float param) {
  const Spline3D* s = shape_.GetSpline(curve);
  return s ? s->InterpCurve3D(param, PARAM_NORMALIZED) : Point3();
}

Point3 SplineShape::TangentCurve3D(TimeValue t, int curve, float param) {
  const Spline3D* s = shape_.GetSpline(curve);
  return s ? s->TangentCurve3D(param, PARAM_NORMALIZED) : Point3();
}

float SplineShape::LengthOfCurve(TimeValue t, int curve) {
  const Spline3D* s = shape_.GetSpline(curve);
  return s ? s->SplineLength() : 0.0f;
}

RefTargetHandle SplineShape::Clone(RemapDir& remap) {
  auto* clone = new SplineShape;
  clone->shape_ = shape_;
  BaseClone(this, clone, remap);
  return clone;
}
