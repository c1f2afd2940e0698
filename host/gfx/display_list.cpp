// Copyright Marvolith contributors.
#include "host/gfx/display_list.h"

void DisplayList::Clear() {
  points_ws.clear();
  primitives.clear();
  texts.clear();
}

Box3 DisplayList::Bounds() const {
  Box3 box;
  for (const Point3& p : points_ws) box += p;
  return box;
}

int DisplayList::Count(PrimitiveKind kind) const {
  int n = 0;
  for (const DisplayPrimitive& p : primitives) n += p.kind == kind ? 1 : 0;
  return n;
}

int DisplayList::LineCount() const {
  int n = 0;
  for (const DisplayPrimitive& p : primitives) {
    if (p.kind != PrimitiveKind::kPolyline || p.count < 2) continue;
    n += static_cast<int>(p.count) - 1 + (p.closed ? 1 : 0);
  }
  return n;
}
