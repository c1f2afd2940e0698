// Copyright Marvolith contributors.
// ControlShape: the shape object that builds a control figure as splines of a BezierShape and
// keeps it in a cache by validity, and its class descriptor.
#pragma once

#include <vector>

#include "controls/control_object.h"
#include "host/objects/bezier_shape.h"
#include "plugin/class_table.h"

namespace marvolith {

/// The shape ("Control Shape", super class SHAPE_CLASS_ID). Its block adds `scale`, a factor on
/// the figure's extents.
///
/// The shape cache: the figure is built (BuildFigureShape) at a time t in figure space, then
/// moved into object space by AxisPermutation(axis) * gizmo, and kept with the validity of the
/// parameters it read. It is rebuilt only for a time outside that interval; any change of the
/// block sets both ends of the interval to 0x80000000 (an empty interval). IKFK builds no
/// splines, by design of the shape set. The drawn polylines (steps + 1 per segment) are kept
/// with the shape.
class ControlShape : public ControlObject<ShapeObject> {
 public:
  /// With loading true the block is not made: the scene file links the loaded one.
  explicit ControlShape(bool loading = false);

  Class_ID ClassID() override { return CONTROL_SHAPE_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  FPInterfaceDesc* GetDesc() override;

  /// The shape at t, rebuilt when t is outside its validity; object space.
  const BezierShape& GetShape(TimeValue t);
  /// The validity of the cached shape (empty after a change).
  Interval ShapeValidity() const { return shape_valid_; }
  /// Drops the cache: the interval becomes (0x80000000, 0x80000000).
  void InvalidateShape();

  /// The object itself, valid over the shape's validity at t.
  ObjectState Eval(TimeValue t) override;
  Interval ObjectValidity(TimeValue t) override;

  // Curves of the shape at the core interface's time (NumberOfCurves) or at t; a curve index out
  // of range answers the origin, a zero tangent and length, and false. param is the fraction of
  // the curve's length.
  int NumberOfCurves() override;
  bool CurveClosed(TimeValue t, int curve) override;
  Point3 InterpCurve3D(TimeValue t, int curve, float param) override;
  Point3 TangentCurve3D(TimeValue t, int curve, float param) override;
  float LengthOfCurve(TimeValue t, int curve) override;

  /// Draws the cached shape's polylines at t through inode's object TM (the identity without a
  /// node) in the node's wire colour. Nothing without a block or a viewport. Answers 0.
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;
  /// The exact box of the splines in object space; the origin alone for a shape without splines.
  void GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;
  /// The exact box of the splines through inode's object TM.
  void GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;
  /// The box of the splines, through tm when given.
  void GetDeformBBox(TimeValue t, Box3& box, const Matrix3* tm = nullptr);

  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  void FigureChanged() override { InvalidateShape(); }

 private:
  void UpdateShape(TimeValue t);

  BezierShape shape_;
  Interval shape_valid_;
  // The drawn form: every spline's polyline, points_ split by line_ends_ (one past each line).
  std::vector<Point3> points_;
  std::vector<int> line_ends_;
  std::vector<bool> line_closed_;
};

/// Descriptor of ControlShape; identity and names from the module's class table.
class ControlShapeClassDesc : public MarvolithClassDesc {
 public:
  ControlShapeClassDesc() : MarvolithClassDesc(ClassIndex::ControlShape) {}
  Animatable* Create(bool loading = false) override { return new ControlShape(loading); }
};
ClassDesc2* GetControlShapeDesc();

}  // namespace marvolith
