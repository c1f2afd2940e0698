// Copyright Marvolith contributors.
// ControlHelper: the helper object that draws a control figure straight into the viewport's
// graphics window from its parameters, and its class descriptor.
#pragma once

#include <vector>

#include "controls/control_object.h"
#include "host/gfx/graphics_window.h"
#include "plugin/class_table.h"

namespace marvolith {

/// Colour of the gizmo box drawn at the gizmo sub-object level.
inline constexpr Point3 kGizmoColor{1.0f, 0.9f, 0.0f};

/// The helper ("Control Helper", super class HELPER_CLASS_ID). Nothing of the figure is cached:
/// every draw, hit test and box generates it from the block at t.
///
/// Drawing allocates nothing but its point array: the array reserves room for the largest ring
/// of the present `steps` (4 * steps + 4 points, at least kMinPointCapacity) when it has less,
/// and grows again only when a single polyline of the figure needs more (the star's outline at
/// high `steps`). Drawing the same figure again allocates nothing.
class ControlHelper : public ControlObject<HelperObject> {
 public:
  static constexpr size_t kMinPointCapacity = 256;

  /// With loading true the block is not made: the scene file links the loaded one.
  explicit ControlHelper(bool loading = false);

  Class_ID ClassID() override { return CONTROL_HELPER_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  FPInterfaceDesc* GetDesc() override;

  /// The object itself, valid over ObjectValidity(t).
  ObjectState Eval(TimeValue t) override;
  /// The validity of the parameters the figure reads at t.
  Interval ObjectValidity(TimeValue t) override;

  /// Draws the figure at t for inode (its object TM; the identity without a node) into vpt: the
  /// transform of ComputeDisplayTM (and constant screen size), the node's wire colour, the
  /// z-buffer off with `draw_on_top`, and the render limits restored afterwards. A figure of
  /// size 0 draws a point marker instead. At the gizmo sub-object level the gizmo's box follows
  /// in kGizmoColor. Nothing without a block or a viewport. Answers 0.
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;
  /// Whether the figure drawn at t hits the region of type (POINT_RGN, RECT_RGN, CIRCLE_RGN)
  /// given by the screen points p, through vpt's pick mode: 1 for a hit, 0 otherwise (and
  /// without a block). Builds no mesh.
  int HitTest(
      TimeValue t, INode* inode, int type, int crossing, int flags, IPoint2* p, ViewExp* vpt);

  /// The box of the figure in object space: its points through gizmo and axis, or, with
  /// face_camera or constant_screen_size, through the transform vpt draws it with (when inode
  /// and vpt are given). The offset line counts. A figure that draws nothing gives the origin.
  void GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;
  /// The box of the figure's points in world space, as Display places them.
  void GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vpt, Box3& box) override;
  /// The box of the figure through gizmo and axis, then through tm when given.
  void GetDeformBBox(TimeValue t, Box3& box, const Matrix3* tm = nullptr);

  /// Figure space to world at t for a node at node_tm seen in vpt (null: no view).
  Matrix3 DisplayTM(TimeValue t, const Matrix3& node_tm, ViewExp* vpt);

  RefTargetHandle Clone(RemapDir& remap) override;

 private:
  // Generates the figure of in into gw through the point array (see the class comment).
  void DrawFigure(GraphicsWindow& gw, const FigureInput& in);
  // The box of the figure drawn with figure-to-space tm, the pivot placed at origin_space.
  Box3 FigureBox(TimeValue t, const Matrix3& tm, const Point3& origin_space);

  std::vector<Point3> points_;
};

/// Descriptor of ControlHelper; identity and names from the module's class table.
class ControlHelperClassDesc : public MarvolithClassDesc {
 public:
  ControlHelperClassDesc() : MarvolithClassDesc(ClassIndex::ControlHelper) {}
  Animatable* Create(bool loading = false) override { return new ControlHelper(loading); }
};
ClassDesc2* GetControlHelperDesc();

}  // namespace marvolith
