// Copyright Marvolith contributors.
// The view line of the aim and stretch constraints: a line from the node along its aim axis.
#pragma once

#include "host/math/matrix3.h"
#include "host/math/point3.h"

class ViewExp;

namespace marvolith {

/// What a view line is drawn from.
struct ViewLine {
  Matrix3 node_ws;   ///< the constrained node's world transform
  Point3 target_ws;  ///< the target's (or end's) position
  int axis = 0;      ///< the aim axis, 0 X, 1 Y, 2 Z (others read as Z)
  bool flip = false;
  float length = 100.0f;  ///< `viewline_length`
  bool absolute = true;   ///< false: length times the distance from the node to the target
};

/// The far end of the line, world space: the node's pivot plus the unit direction of its row
/// `axis` (negated with flip) times the length. A row shorter than 1e-6 (a flat scale) gives
/// the pivot itself.
Point3 ViewLineEnd(const ViewLine& line);

/// Draws the line in world space through vpt's graphics window, in its current line colour; the
/// window's transform is left at the identity.
void DrawViewLine(ViewExp& vpt, const ViewLine& line);

}  // namespace marvolith
