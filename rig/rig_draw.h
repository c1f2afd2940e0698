// Copyright Marvolith contributors.
// Drawing of a rig template: points, bone previews toward first children, lines to parents.
#pragma once

#include "host/gfx/graphics_window.h"
#include "host/math/box3.h"
#include "rig/rig_template.h"

namespace marvolith {

/// Colours of a template drawing.
struct RigDrawStyle {
  /// The node's wire colour: lines and bone previews.
  Point3 wire{0.88f, 0.78f, 0.25f};
  Point3 right{0.2f, 0.45f, 1.0f};
  Point3 left{0.2f, 0.8f, 0.2f};
  Point3 selected{1.0f, 0.1f, 0.1f};
  /// Draw with the z-buffer off (`draw_on_top`).
  bool on_top = true;
};

/// Points of a bone preview: an octahedron (root, a square ring at a tenth of the length, tip)
/// traced as one open polyline, each edge once.
inline constexpr int kRigBonePreviewCount = 17;

/// True when p's preview is a bone preview (as BuildRigPreviews left it).
bool HasBonePreview(const RigPoint& p);

/// Rebuilds each point's preview (one point on the way to the parent, or the 17 points of a
/// bone preview toward its first child) in rig units.
void BuildRigPreviews(RigTemplate& t);

/// Draws t into gw: rig units to world by rig_to_world (ScaleMatrix(helper_size) * node TM).
/// Builds the previews first.
void DrawRigTemplate(GraphicsWindow& gw,
                     RigTemplate& t,
                     const Matrix3& rig_to_world,
                     const RigDrawStyle& style);

/// The box of the points (and previews) through rig_to_world; empty without points.
Box3 RigTemplateBounds(const RigTemplate& t, const Matrix3& rig_to_world);

}  // namespace marvolith
