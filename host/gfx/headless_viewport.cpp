// Copyright Marvolith contributors.
#include "host/gfx/headless_viewport.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/math/geometry.h"

namespace {

constexpr DWORD kNoHitDistance = 0xFFFFFFFFu;

struct Vec2 {
  double x = 0.0;
  double y = 0.0;
};

double DistanceToSegment(const Vec2& p, const Vec2& a, const Vec2& b) {
  const double dx = b.x - a.x, dy = b.y - a.y;
  const double len2 = dx * dx + dy * dy;
  double s = len2 > 0.0 ? ((p.x - a.x) * dx + (p.y - a.y) * dy) / len2 : 0.0;
  s = std::clamp(s, 0.0, 1.0);
  const double ex = a.x + s * dx - p.x, ey = a.y + s * dy - p.y;
  return std::sqrt(ex * ex + ey * ey);
}

bool InsideRect(const Vec2& p, const HitRegion& r) {
  return p.x >= r.rect.left && p.x <= r.rect.right && p.y >= r.rect.top && p.y <= r.rect.bottom;
}

// Does a..b touch the rectangle? The points came from floats, so narrowing them back is exact.
bool SegmentTouchesRect(const Vec2& a, const Vec2& b, const HitRegion& r) {
  Point3 ca(static_cast<float>(a.x), static_cast<float>(a.y), 0.0f);
  Point3 cb(static_cast<float>(b.x), static_cast<float>(b.y), 0.0f);
  return ClipSegmentToRect(
      ca, cb, Point2(static_cast<float>(r.rect.left), static_cast<float>(r.rect.top)),
      Point2(static_cast<float>(r.rect.right), static_cast<float>(r.rect.bottom)));
}

// Even-odd rule.
bool InsidePolygon(const Vec2& p, const std::vector<Vec2>& poly) {
  bool in = false;
  for (size_t i = 0, j = poly.size() - 1; i < poly.size(); j = i++) {
    const Vec2& a = poly[i];
    const Vec2& b = poly[j];
    if ((a.y > p.y) != (b.y > p.y) && p.x < (b.x - a.x) * (p.y - a.y) / (b.y - a.y) + a.x) in = !in;
  }
  return in;
}

}  // namespace

void HeadlessGraphicsWindow::setColor(ColorType t, float r, float g, float b) {
  if (t >= LINE_COLOR && t <= CLEAR_COLOR) colors_[t] = Point3(r, g, b);
}

Point3 HeadlessGraphicsWindow::getColor(ColorType t) {
  return (t >= LINE_COLOR && t <= CLEAR_COLOR) ? colors_[t] : Point3();
}

DWORD HeadlessGraphicsWindow::transPoint(const Point3* in, Point3* out) {
  if (!in || !out) return CLIP_FRONT;
  return camera_.Project(*in * tm_, *out);
}

DWORD HeadlessGraphicsWindow::wTransPoint(const Point3* in, IPoint3* out) {
  Point3 s;
  const DWORD flags = transPoint(in, &s);
  if (out) {
    *out = IPoint3(static_cast<int>(std::lround(s.x)), static_cast<int>(std::lround(s.y)),
                   static_cast<int>(std::lround(s.z)));
  }
  return flags;
}

DisplayPrimitive& HeadlessGraphicsWindow::Add(PrimitiveKind kind, const Point3& color) {
  DisplayPrimitive& p = list_.primitives.emplace_back();
  p.kind = kind;
  p.color = color;
  p.draw_on_top = (limits_ & GW_Z_BUFFER) == 0;
  p.first = static_cast<std::uint32_t>(list_.points_ws.size());
  p.node = node_;
  return p;
}

void HeadlessGraphicsWindow::polyline(
    int ct, const Point3* xyz, const Point3* rgb, int closed, const int* es) {
  if (ct < 2 || !xyz) return;
  if (Picking()) {
    if (!es) return HitTestPoints(xyz, ct, closed != 0, false);
    const int edges = closed ? ct : ct - 1;
    for (int i = 0; i < edges; ++i) {
      if (es[i] != GW_EDGE_VIS) continue;
      const Point3 pair[2] = {xyz[i], xyz[(i + 1) % ct]};
      HitTestPoints(pair, 2, false, false);
    }
    return;
  }
  if (!rgb && !es) {  // the common case: one primitive
    DisplayPrimitive& p = Add(PrimitiveKind::kPolyline, colors_[LINE_COLOR]);
    p.closed = closed != 0;
    for (int i = 0; i < ct; ++i) list_.points_ws.push_back(xyz[i] * tm_);
    p.count = static_cast<std::uint32_t>(ct);
    return;
  }
  // Runs of visible edges of one colour become open polylines.
  const int edges = closed ? ct : ct - 1;
  DisplayPrimitive* run = nullptr;
  Point3 run_color;
  for (int i = 0; i < edges; ++i) {
    const bool visible = !es || es[i] == GW_EDGE_VIS;
    const Point3 color = rgb ? rgb[i] : colors_[LINE_COLOR];
    if (!visible) {
      run = nullptr;
      continue;
    }
    if (!run || color != run_color) {
      run = &Add(PrimitiveKind::kPolyline, color);
      run_color = color;
      list_.points_ws.push_back(xyz[i] * tm_);
      run->count = 1;
    }
    list_.points_ws.push_back(xyz[(i + 1) % ct] * tm_);
    ++run->count;
  }
}

void HeadlessGraphicsWindow::segment(const Point3* xyz, int vis) {
  if (!vis || !xyz) return;
  polyline(2, xyz, nullptr, 0, nullptr);
}

void HeadlessGraphicsWindow::marker(const Point3* xyz, MarkerType type) {
  if (!xyz) return;
  if (Picking()) return HitTestPoints(xyz, 1, false, false);
  DisplayPrimitive& p = Add(PrimitiveKind::kMarker, colors_[LINE_COLOR]);
  p.marker = type;
  list_.points_ws.push_back(*xyz * tm_);
  p.count = 1;
}

void HeadlessGraphicsWindow::text(const Point3* xyz, const char* s) {
  if (!xyz || !s || !*s) return;
  if (Picking()) return HitTestPoints(xyz, 1, false, false);
  DisplayPrimitive& p = Add(PrimitiveKind::kText, colors_[TEXT_COLOR]);
  p.text = static_cast<std::int32_t>(list_.texts.size());
  list_.texts.emplace_back(s);
  list_.points_ws.push_back(*xyz * tm_);
  p.count = 1;
}

void HeadlessGraphicsWindow::triangle(const Point3* xyz, const Point3* rgb) {
  polygon(3, xyz, rgb, nullptr);
}

void HeadlessGraphicsWindow::polygon(int ct, const Point3* xyz, const Point3* rgb, const Point3*) {
  if (ct < 3 || !xyz) return;
  if (Picking()) return HitTestPoints(xyz, ct, true, true);
  DisplayPrimitive& p = Add(PrimitiveKind::kPolygon, rgb ? rgb[0] : colors_[FILL_COLOR]);
  p.closed = true;
  for (int i = 0; i < ct; ++i) list_.points_ws.push_back(xyz[i] * tm_);
  p.count = static_cast<std::uint32_t>(ct);
}

void HeadlessGraphicsWindow::setHitRegion(const HitRegion* region) {
  region_ = region ? *region : HitRegion();
}

void HeadlessGraphicsWindow::clearHitCode() {
  hit_ = false;
  window_miss_ = false;
  hit_distance_ = kNoHitDistance;
}

void HeadlessGraphicsWindow::HitTestPoints(const Point3* xyz, int count, bool closed, bool filled) {
  // Project every edge, clipped to a perspective near plane, into pixels.
  const Matrix3 to_view = tm_ * camera_.WorldToView();
  std::vector<Vec2> outline;
  std::vector<std::pair<Vec2, Vec2>> edges;
  const int edge_count = count == 1 ? 1 : (closed ? count : count - 1);
  for (int i = 0; i < edge_count; ++i) {
    Point3 a = xyz[i] * to_view;
    Point3 b = xyz[(i + 1) % count] * to_view;
    if (!camera_.ClipToNear(a, b)) continue;
    Point3 sa, sb;
    camera_.ProjectView(a, sa);
    camera_.ProjectView(b, sb);
    edges.push_back({{sa.x, sa.y}, {sb.x, sb.y}});
    outline.push_back({sa.x, sa.y});
  }
  if (edges.empty()) return;

  const HitRegion& r = region_;
  bool hit = false;
  bool all_inside = true;
  double distance = std::numeric_limits<double>::infinity();
  if (r.type == RECT_RGN || r.type == CIRCLE_RGN) {
    const Vec2 c{static_cast<double>(r.circle.x), static_cast<double>(r.circle.y)};
    for (const auto& [a, b] : edges) {
      if (r.type == RECT_RGN) {
        hit = hit || SegmentTouchesRect(a, b, r);
        all_inside = all_inside && InsideRect(a, r) && InsideRect(b, r);
      } else {
        hit = hit || DistanceToSegment(c, a, b) <= r.circle.r;
        all_inside = all_inside && DistanceToSegment(c, a, a) <= r.circle.r &&
                     DistanceToSegment(c, b, b) <= r.circle.r;
      }
    }
    if (filled && outline.size() >= 3) {
      const Vec2 probe = r.type == RECT_RGN ? Vec2{(r.rect.left + r.rect.right) * 0.5,
                                                   (r.rect.top + r.rect.bottom) * 0.5}
                                            : c;
      hit = hit || InsidePolygon(probe, outline);
    }
    if (!r.crossing) hit = all_inside;
    distance = 0.0;
  } else {
    const Vec2 p{static_cast<double>(r.pt.x), static_cast<double>(r.pt.y)};
    for (const auto& [a, b] : edges) distance = std::min(distance, DistanceToSegment(p, a, b));
    if (filled && outline.size() >= 3 && InsidePolygon(p, outline)) distance = 0.0;
    hit = distance <= r.epsilon;
  }
  if (!r.crossing && r.type != POINT_RGN && !hit) window_miss_ = true;
  if (hit) {
    hit_ = true;
    hit_distance_ = std::min<DWORD>(hit_distance_, static_cast<DWORD>(std::lround(distance)));
  }
}

HeadlessViewport::HeadlessViewport(const ViewCamera& camera) { gw_.SetCamera(camera); }

float HeadlessViewport::GetScreenScaleFactor(const Point3 world_point) {
  return gw_.GetCamera().WorldWidthAt(world_point);
}

Point2 HeadlessViewport::MapViewToScreen(const Point3& p_vs) {
  Point3 s;
  gw_.GetCamera().ProjectView(p_vs, s);
  return {s.x, s.y};
}

void HeadlessViewport::BeginFrame() {
  gw_.GetDisplayList().Clear();
  gw_.setTransform(Matrix3());
  gw_.setRndLimits(GW_DEFAULT_RND_LIMITS);
  for (ColorType t : {LINE_COLOR, FILL_COLOR, TEXT_COLOR}) gw_.setColor(t, 1.0f, 1.0f, 1.0f);
  gw_.setColor(CLEAR_COLOR, 0.0f, 0.0f, 0.0f);
  gw_.SetDrawingNode(0);
  gw_.clearHitCode();
}
