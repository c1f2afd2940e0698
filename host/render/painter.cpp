// Copyright Marvolith contributors.
#include "host/render/painter.h"

#include <QPainterPath>
#include <QPen>
#include <algorithm>
#include <cmath>

#include "host/math/geometry.h"
#include "host/objects/bezier_shape.h"
#include "host/objects/stroke_font.h"

namespace {

// Grid shades on the viewport grey: minor lines a little lighter, the lines through the origin
// darker, as the host's home grid.
constexpr double kGridShade = 0.34;
constexpr double kGridAxisShade = 0.13;
// Grid lines of a fixed view are 10 to 100 pixels apart; a user view's grid has 10 to 100 lines.
constexpr double kMinGridPixels = 10.0;
constexpr double kUserGridLines = 10.0;
// Lines are clipped this many pixels outside the window, so that their ends stay out of sight.
constexpr double kWindowMargin = 64.0;

QColor ToQColor(const Point3& c) {
  auto channel = [](float v) {
    return static_cast<int>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f));
  };
  return QColor(channel(c.x), channel(c.y), channel(c.z));
}

QColor Shade(double v) {
  const int g = static_cast<int>(std::lround(std::clamp(v, 0.0, 1.0) * 255.0));
  return QColor(g, g, g);
}

// The camera's window placed in a painter's rectangle: uniform scale, centred.
struct Placement {
  double scale = 1.0;
  double x0 = 0.0;
  double y0 = 0.0;
  QPointF Map(const Point3& screen) const { return {x0 + screen.x * scale, y0 + screen.y * scale}; }
};

Placement Place(const QRectF& target, const ViewCamera& camera) {
  Placement p;
  const double w = camera.WidthPx(), h = camera.HeightPx();
  p.scale = std::min(target.width() / w, target.height() / h);
  p.x0 = target.x() + (target.width() - w * p.scale) * 0.5;
  p.y0 = target.y() + (target.height() - h * p.scale) * 0.5;
  return p;
}

// Clips the screen segment a..b to the camera's window grown by kWindowMargin on every side;
// false when nothing of it is left.
bool ClipToWindow(const ViewCamera& camera, Point3& a, Point3& b) {
  const float margin = static_cast<float>(kWindowMargin);
  return ClipSegmentToRect(a, b, Point2(-margin, -margin),
                           Point2(static_cast<float>(camera.WidthPx()) + margin,
                                  static_cast<float>(camera.HeightPx()) + margin));
}

// Adds the world-space line a..b to path, clipped to the near plane of a perspective camera.
// continuing says that the path's current point is where a lands; it is updated for the next
// line.
void AddLine(QPainterPath& path,
             const ViewCamera& camera,
             const Placement& place,
             const Point3& a_ws,
             const Point3& b_ws,
             bool& continuing) {
  Point3 a = a_ws * camera.WorldToView();
  Point3 b = b_ws * camera.WorldToView();
  const bool a_cut = camera.IsPersp() && !(-a.z >= kPerspNearClip);
  const bool b_cut = camera.IsPersp() && !(-b.z >= kPerspNearClip);
  if (!camera.ClipToNear(a, b)) {
    continuing = false;
    return;
  }
  Point3 sa, sb;
  camera.ProjectView(a, sa);
  camera.ProjectView(b, sb);
  // Then to the window with a margin: a line that ends near a perspective eye projects millions
  // of pixels away, beyond what the painter's fixed-point rasteriser holds.
  const Point3 unclipped_a = sa, unclipped_b = sb;
  if (!ClipToWindow(camera, sa, sb)) {
    continuing = false;
    return;
  }
  if (!continuing || a_cut || sa != unclipped_a) path.moveTo(place.Map(sa));
  path.lineTo(place.Map(sb));
  continuing = !b_cut && sb == unclipped_b;
}

QPainterPath PolylinePath(const DisplayList& list,
                          const DisplayPrimitive& prim,
                          const ViewCamera& camera,
                          const Placement& place) {
  QPainterPath path;
  const std::span<const Point3> pts = list.Points(prim);
  bool continuing = false;
  const size_t edges = prim.closed ? pts.size() : pts.size() - 1;
  for (size_t i = 0; i < edges; ++i)
    AddLine(path, camera, place, pts[i], pts[(i + 1) % pts.size()], continuing);
  return path;
}

void PaintMarker(QPainter& painter, const QPointF& c, MarkerType type, const QColor& color) {
  // Half sizes in pixels.
  const double big = 3.5, normal = 2.5, small = 1.5;
  painter.setBrush(Qt::NoBrush);
  auto box = [&](double h) { painter.drawRect(QRectF(c.x() - h, c.y() - h, 2 * h, 2 * h)); };
  auto filled_box = [&](double h) {
    painter.fillRect(QRectF(c.x() - h, c.y() - h, 2 * h, 2 * h), color);
  };
  auto circle = [&](double r) { painter.drawEllipse(c, r, r); };
  auto dot = [&](double r) {
    painter.setBrush(color);
    painter.drawEllipse(c, r, r);
    painter.setBrush(Qt::NoBrush);
  };
  auto triangle = [&](double h) {
    const QPointF t[3] = {{c.x(), c.y() - h}, {c.x() + h, c.y() + h}, {c.x() - h, c.y() + h}};
    painter.drawPolygon(t, 3);
  };
  auto diamond = [&](double h) {
    const QPointF d[4] = {
        {c.x(), c.y() - h}, {c.x() + h, c.y()}, {c.x(), c.y() + h}, {c.x() - h, c.y()}};
    painter.drawPolygon(d, 4);
  };
  auto plus = [&](double h) {
    painter.drawLine(QPointF(c.x() - h, c.y()), QPointF(c.x() + h, c.y()));
    painter.drawLine(QPointF(c.x(), c.y() - h), QPointF(c.x(), c.y() + h));
  };
  auto cross = [&](double h) {
    painter.drawLine(QPointF(c.x() - h, c.y() - h), QPointF(c.x() + h, c.y() + h));
    painter.drawLine(QPointF(c.x() - h, c.y() + h), QPointF(c.x() + h, c.y() - h));
  };
  switch (type) {
    case POINT_MRKR:
      filled_box(0.75);
      break;
    case HOLLOW_BOX_MRKR:
      box(normal);
      break;
    case PLUS_SIGN_MRKR:
      plus(normal);
      break;
    case ASTERISK_MRKR:
      plus(normal);
      cross(normal * 0.75);
      break;
    case X_MRKR:
      cross(normal);
      break;
    case BIG_BOX_MRKR:
      box(big);
      break;
    case CIRCLE_MRKR:
      circle(normal);
      break;
    case TRIANGLE_MRKR:
      triangle(normal);
      break;
    case DIAMOND_MRKR:
      diamond(big);
      break;
    case SM_HOLLOW_BOX_MRKR:
      box(small);
      break;
    case SM_CIRCLE_MRKR:
      circle(small);
      break;
    case SM_TRIANGLE_MRKR:
      triangle(small);
      break;
    case SM_DIAMOND_MRKR:
      diamond(normal);
      break;
    case DOT_MRKR:
      dot(normal * 0.6);
      break;
    case SM_DOT_MRKR:
      dot(small * 0.6);
      break;
    case BOX2_MRKR:
    case BOX3_MRKR:
    case BOX4_MRKR:
    case BOX5_MRKR:
    case BOX6_MRKR:
    case BOX7_MRKR:
      filled_box((type - BOX2_MRKR + 2) * 0.5);
      break;
    case DOT2_MRKR:
    case DOT3_MRKR:
    case DOT4_MRKR:
    case DOT5_MRKR:
    case DOT6_MRKR:
    case DOT7_MRKR:
      dot((type - DOT2_MRKR + 2) * 0.5);
      break;
  }
}

// Text as a path in pixels, its baseline starting at the origin (y down).
QPainterPath StrokeTextPath(std::string_view text, double height_px) {
  BezierShape shape;
  StrokeTextLayout layout;
  layout.size = static_cast<float>(height_px);
  BuildStrokeText(text, layout, shape);
  QPainterPath path;
  for (int s = 0; s < shape.SplineCount(); ++s) {
    const Spline3D* spline = shape.GetSpline(s);
    for (int k = 0; k < spline->KnotCount(); ++k) {
      const Point3 p = spline->GetKnotPoint(k);
      const QPointF q(p.x, -p.y);  // glyphs are y-up
      if (k == 0)
        path.moveTo(q);
      else
        path.lineTo(q);
    }
  }
  return path;
}

// Where the view's home grid lies: the plane through the origin with normal along the view for
// the fixed views, the ground (XY) otherwise.
void PaintGrid(QPainter& painter, const ViewCamera& camera, const Placement& place) {
  const int type = camera.ViewType();
  const bool fixed =
      !camera.IsPersp() && type != VIEW_ISO_USER && type >= VIEW_LEFT && type <= VIEW_BACK;
  const Matrix3& frame = camera.ViewToWorld();
  Point3 u, v;            // the grid's two world axes
  double u0, u1, v0, v1;  // their ranges, world units
  double spacing;
  if (fixed) {
    u = frame.GetRow(0);
    v = frame.GetRow(1);
    const double half_w = camera.OrthoWidth() * 0.5;
    const double half_h = half_w * camera.HeightPx() / camera.WidthPx();
    const Point3 c = frame.GetTrans();
    u0 = (c % u) - half_w;
    u1 = (c % u) + half_w;
    v0 = (c % v) - half_h;
    v1 = (c % v) + half_h;
    // The smallest power of ten at least kMinGridPixels apart on screen.
    const double units_per_px = camera.OrthoWidth() / camera.WidthPx();
    spacing = std::pow(10.0, std::ceil(std::log10(kMinGridPixels * units_per_px)));
  } else {
    u = Point3::XAxis;
    v = Point3::YAxis;
    const double span =
        std::max<double>(camera.IsPersp() ? frame.GetTrans().Length() : camera.OrthoWidth(), 10.0);
    spacing = std::pow(10.0, std::floor(std::log10(span / kUserGridLines)));
    // Out to three times the eye's distance: far enough to reach the top of most views.
    const double reach = 3.0 * span;
    u0 = v0 = -reach;
    u1 = v1 = reach;
  }
  if (!(spacing > 0.0) || !std::isfinite(spacing)) return;
  QPen pen(Shade(kGridShade));
  pen.setWidthF(1.0);
  QPen axis_pen(Shade(kGridAxisShade));
  axis_pen.setWidthF(1.0);
  auto draw_family = [&](const Point3& along, const Point3& across, double a0, double a1, double b0,
                         double b1) {
    // Lines at multiples of spacing across [a0, a1], each running from b0 to b1.
    for (double k = std::ceil(a0 / spacing); k * spacing <= a1; k += 1.0) {
      const double a = k * spacing;
      QPainterPath path;
      bool continuing = false;
      AddLine(path, camera, place, along * static_cast<float>(a) + across * static_cast<float>(b0),
              along * static_cast<float>(a) + across * static_cast<float>(b1), continuing);
      painter.setPen(k == 0.0 ? axis_pen : pen);
      painter.drawPath(path);
    }
  };
  painter.setBrush(Qt::NoBrush);
  draw_family(u, v, u0, u1, v0, v1);
  draw_family(v, u, v0, v1, u0, u1);
}

void PaintPrimitive(QPainter& painter,
                    const DisplayList& list,
                    const DisplayPrimitive& prim,
                    const ViewCamera& camera,
                    const Placement& place,
                    const RenderOptions& options) {
  if (prim.count == 0) return;
  const QColor color = ToQColor(prim.color);
  QPen pen(color);
  pen.setWidthF(options.line_width_px);
  pen.setCapStyle(Qt::RoundCap);
  pen.setJoinStyle(Qt::RoundJoin);
  switch (prim.kind) {
    case PrimitiveKind::kPolyline: {
      if (prim.count < 2) return;
      painter.setPen(pen);
      painter.setBrush(Qt::NoBrush);
      painter.drawPath(PolylinePath(list, prim, camera, place));
      return;
    }
    case PrimitiveKind::kPolygon: {
      QPainterPath path = PolylinePath(list, prim, camera, place);
      path.setFillRule(Qt::OddEvenFill);
      painter.setPen(pen);
      painter.setBrush(color);
      painter.drawPath(path);
      return;
    }
    case PrimitiveKind::kMarker: {
      Point3 s;
      if (camera.Project(list.points_ws[prim.first], s) & CLIP_FRONT) return;
      painter.setPen(pen);
      PaintMarker(painter, place.Map(s), prim.marker, color);
      return;
    }
    case PrimitiveKind::kText: {
      if (!options.labels || prim.text < 0 || prim.text >= static_cast<int>(list.texts.size()))
        return;
      Point3 s;
      if (camera.Project(list.points_ws[prim.first], s) & CLIP_FRONT) return;
      painter.setPen(pen);
      PaintStrokeText(painter, place.Map(s), list.texts[static_cast<size_t>(prim.text)],
                      options.text_height_px);
      return;
    }
  }
}

}  // namespace

double PaintStrokeText(QPainter& painter,
                       const QPointF& baseline_px,
                       std::string_view text,
                       double height_px) {
  const QPainterPath path = StrokeTextPath(text, height_px).translated(baseline_px);
  painter.save();
  painter.setBrush(Qt::NoBrush);
  painter.drawPath(path);
  painter.restore();
  return path.isEmpty() ? 0.0 : path.boundingRect().right() - baseline_px.x();
}

double StrokeTextWidth(std::string_view text, double height_px) {
  const QPainterPath path = StrokeTextPath(text, height_px);
  return path.isEmpty() ? 0.0 : path.boundingRect().right();
}

void PaintDisplayList(QPainter& painter,
                      const QRectF& target,
                      const DisplayList& list,
                      const ViewCamera& camera,
                      const RenderOptions& options) {
  painter.save();
  painter.setClipRect(target);
  painter.setRenderHint(QPainter::Antialiasing, options.antialias);
  painter.fillRect(target, ToQColor(options.background));
  const Placement place = Place(target, camera);
  if (options.grid) PaintGrid(painter, camera, place);
  // Two passes: what was drawn with the z-buffer off goes over everything else.
  for (bool on_top : {false, true}) {
    for (const DisplayPrimitive& prim : list.primitives) {
      if (prim.draw_on_top == on_top) PaintPrimitive(painter, list, prim, camera, place, options);
    }
  }
  painter.restore();
}

QImage RenderImage(const DisplayList& list,
                   const ViewCamera& camera,
                   const RenderOptions& options) {
  QImage image(camera.WidthPx(), camera.HeightPx(), QImage::Format_ARGB32_Premultiplied);
  image.fill(ToQColor(options.background));
  QPainter painter(&image);
  PaintDisplayList(painter, QRectF(0, 0, camera.WidthPx(), camera.HeightPx()), list, camera,
                   options);
  painter.end();
  return image;
}
