// Copyright Marvolith contributors.
// DisplayList: what a headless viewport recorded, primitive by primitive, in world space, for
// tests to inspect and renderers to draw.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/base/ids.h"
#include "host/gfx/graphics_window.h"
#include "host/math/box3.h"
#include "host/math/point3.h"

enum class PrimitiveKind : std::uint8_t {
  kPolyline,  ///< points joined by straight lines (closed: the last back to the first)
  kMarker,    ///< one point with a marker figure of fixed pixel size
  kText,      ///< text of fixed pixel size, its baseline starting at the one point
  kPolygon,   ///< a filled polygon
};

/// One recorded primitive. Its points are points_ws[first, first + count) of its list.
struct DisplayPrimitive {
  PrimitiveKind kind = PrimitiveKind::kPolyline;
  bool closed = false;
  /// Recorded with GW_Z_BUFFER off: drawn over everything recorded with it on.
  bool draw_on_top = false;
  MarkerType marker = POINT_MRKR;
  /// RGB 0..1: the line colour (polylines, markers), text colour or fill colour.
  Point3 color;
  std::uint32_t first = 0;
  std::uint32_t count = 0;
  /// kText: index into texts.
  std::int32_t text = -1;
  /// The node whose object was drawing (HeadlessViewport::SetDrawingNode), 0 for none.
  AnimHandle node = 0;
};

/// Primitives in the order they were drawn, with their points in world space.
struct DisplayList {
  std::vector<Point3> points_ws;
  std::vector<DisplayPrimitive> primitives;
  std::vector<std::string> texts;

  /// Empties the list, keeping its storage.
  void Clear();
  /// The points of p.
  std::span<const Point3> Points(const DisplayPrimitive& p) const {
    return {points_ws.data() + p.first, p.count};
  }
  /// The world box of every recorded point; empty for an empty list.
  Box3 Bounds() const;
  /// Number of primitives of kind.
  int Count(PrimitiveKind kind) const;
  /// Number of straight lines drawn: per polyline, count - 1, plus 1 when closed.
  int LineCount() const;
};
