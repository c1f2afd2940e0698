// Copyright Marvolith contributors.
// SplineShape: the host's editable spline object, a shape object that holds one BezierShape.
#pragma once

#include <utility>
#include <vector>

#include "host/objects/bezier_shape.h"
#include "host/scene/object.h"

class ClassDesc2;

/// Class of the editable spline (super class SHAPE_CLASS_ID).
inline constexpr Class_ID SPLINESHAPE_CLASSID(0x0000000a, 0);

/// A shape object whose curves are the splines of its BezierShape. Every change through SetShape
/// or EditShape is undoable (one record of the whole shape per hold) and tells dependents
/// REFMSG_CHANGE with PART_GEOM | PART_TOPO. The shape does not change with time: its validity
/// is FOREVER. Curve queries on a curve index out of range answer the origin, a zero tangent and
/// length, and false.
class SplineShape : public ShapeObject {
 public:
  Class_ID ClassID() override { return SPLINESHAPE_CLASSID; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = "SplineShape"; }
  MSTR GetObjectName(bool localized = true) override { return "Editable Spline"; }
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override {
    return REF_SUCCEED;
  }

  const BezierShape& GetShape() const { return shape_; }
  /// Replaces the whole shape.
  void SetShape(const BezierShape& shape);
  /// Calls edit(shape) on the held shape, recording it for undo first, and tells dependents
  /// afterwards.
  template <typename F>
  void EditShape(F&& edit) {
    RecordShape();
    std::forward<F>(edit)(shape_);
    ShapeChanged();
  }

  ObjectState Eval(TimeValue t) override { return ObjectState(this); }
  /// Draws the splines with the shape's steps (DisplayBezierShape). Answers 0.
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;
  /// The exact box of the curves.
  void GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;
  /// The exact box of the curves placed by inode's object TM (the local box without a node).
  void GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;

  int NumberOfCurves() override { return shape_.SplineCount(); }
  bool CurveClosed(TimeValue t, int curve) override;
  /// param is the fraction of the curve's length (PARAM_NORMALIZED).
  Point3 InterpCurve3D(TimeValue t, int curve, float param) override;
  Point3 TangentCurve3D(TimeValue t, int curve, float param) override;
  float LengthOfCurve(TimeValue t, int curve) override;

  /// The shape's chunks (BezierShape::Save).
  IOResult Save(ISave* isave) override { return shape_.Save(isave); }
  IOResult Load(ILoad* iload) override { return shape_.Load(iload); }
  RefTargetHandle Clone(RemapDir& remap) override;

 private:
  friend class SplineShapeRestore;
  void RecordShape();
  void ShapeChanged();

  BezierShape shape_;
  std::vector<Point3> display_points_;  // drawing's scratch, not state
};

/// The editable spline's class descriptor.
ClassDesc2* GetSplineShapeDesc();
