// Copyright Marvolith contributors.
#include "host/objects/shape_display.h"

#include "host/gfx/graphics_window.h"
#include "host/gfx/view_exp.h"
#include "host/scene/inode.h"

void DisplayBezierShape(const BezierShape& shape,
                        int steps,
                        TimeValue t,
                        INode* inode,
                        ViewExp* vpt,
                        std::vector<Point3>& scratch) {
  if (!inode || !vpt) return;
  GraphicsWindow* gw = vpt->getGW();
  gw->setTransform(inode->GetObjectTM(t));
  gw->setColor(LINE_COLOR, NodeWireColor(inode));
  for (int i = 0; i < shape.SplineCount(); ++i) {
    const Spline3D* spline = shape.GetSpline(i);
    scratch.clear();
    spline->Polyline(steps, scratch);
    if (scratch.size() == 1) {
      gw->marker(scratch.data(), POINT_MRKR);
      continue;
    }
    // Polyline repeats the first point at the end of a closed spline; the window closes it.
    const bool closed = spline->Closed() && scratch.size() > 2;
    const int count = static_cast<int>(scratch.size()) - (closed ? 1 : 0);
    gw->polyline(count, scratch.data(), nullptr, closed ? 1 : 0, nullptr);
  }
}
