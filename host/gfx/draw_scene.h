// Copyright Marvolith contributors.
// Drawing a whole scene into a viewport as the host's redraw does, and framing it.
#pragma once

#include <span>

#include "host/gfx/view_camera.h"
#include "host/gfx/view_exp.h"
#include "host/math/box3.h"
#include "host/math/interval.h"

class INode;

/// What DrawScene draws besides the objects.
struct DrawSceneOptions {
  /// A line from each node's pivot to its parent's (not the root's), as the host draws links
  /// when a node's "Display Links" is on, in the child's wire colour.
  bool links = true;
  /// Nodes without an object get a small axis tripod (red X, green Y, blue Z) at their pivot,
  /// so that a bare hierarchy is still visible.
  bool empty_node_axes = true;
  /// Length of those tripods, world units.
  float empty_node_axis_length = 4.0f;
  /// The flags passed to each object's Display.
  int display_flags = 0;
};

/// Draws the open scene at t into vpt: every node except the root, parents first, children in
/// order, skipping hidden ones. Per node: the line colour is set to NodeWireColor, the transform
/// to the node's object TM, the render limits to the window's limits on entry, and the node's
/// evaluated object (EvalWorldState) draws through Display. A HeadlessViewport records each
/// primitive with the node's handle. After the object the node's transform controller draws
/// through Control::Display (a PRS passes that on to its tracks), with the same colour and
/// limits. The window's transform, colours and render limits are restored at the end.
void DrawScene(TimeValue t, ViewExp& vpt, const DrawSceneOptions& options = {});

/// The world box of what DrawScene would draw at t: the world boxes (GetWorldBoundBox) of the
/// visible nodes' objects, and for visible nodes without one the cube around the pivot that holds
/// a default tripod. Empty for an empty scene. vpt is passed on to the objects (for constant screen
/// size) and may be null.
Box3 SceneWorldBox(TimeValue t, ViewExp* vpt = nullptr);
/// The world box of nodes at t, as SceneWorldBox does it; hidden nodes count too. Null entries
/// are skipped.
Box3 NodesWorldBox(TimeValue t, std::span<INode* const> nodes, ViewExp* vpt = nullptr);
