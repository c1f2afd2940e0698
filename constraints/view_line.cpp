// Copyright Marvolith contributors.
#include "constraints/view_line.h"

#include "host/gfx/graphics_window.h"
#include "host/gfx/view_exp.h"
#include "host/math/geometry.h"

namespace marvolith {
namespace {

/// Rows shorter than this have no direction to draw along.
constexpr float kViewLineMinRow = 1e-6f;

}  // namespace

Point3 ViewLineEnd(const ViewLine& line) {
  const Point3 pivot = line.node_ws.GetTrans();
  const Point3 row = line.node_ws.GetRow(AxisOrZ(line.axis));
  const float row_length = row.Length();
  if (!(row_length >= kViewLineMinRow)) return pivot;
  const float length =
      line.absolute ? line.length : line.length * (line.target_ws - pivot).Length();
  return pivot + row * ((line.flip ? -length : length) / row_length);
}

void DrawViewLine(ViewExp& vpt, const ViewLine& line) {
  GraphicsWindow* gw = vpt.getGW();
  gw->setTransform(Matrix3());
  const Point3 ends[2] = {line.node_ws.GetTrans(), ViewLineEnd(line)};
  gw->polyline(2, ends, nullptr, 0, nullptr);
}

}  // namespace marvolith
