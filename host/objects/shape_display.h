// Copyright Marvolith contributors.
// Drawing a BezierShape into a viewport as the host draws shape objects; shared by the host's
// shapes and by shape objects of the toolkit.
#pragma once

#include <vector>

#include "host/math/interval.h"
#include "host/math/point3.h"
#include "host/objects/bezier_shape.h"

class INode;
class ViewExp;

/// Draws shape for inode into vpt: each spline as one polyline of its segments in steps + 1
/// straight pieces each (Spline3D::Polyline; closed splines closed), through inode's object TM,
/// in NodeWireColor(inode). A spline of one knot draws a POINT_MRKR marker. scratch holds the
/// points between calls, so that drawing allocates nothing once it is large enough. Nothing is
/// drawn without inode or vpt.
void DisplayBezierShape(const BezierShape& shape,
                        int steps,
                        TimeValue t,
                        INode* inode,
                        ViewExp* vpt,
                        std::vector<Point3>& scratch);
